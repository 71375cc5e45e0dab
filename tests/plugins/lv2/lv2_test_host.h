// A small LV2 host on lilv for the plugin's tests: URID map, a worker run on
// the test's thread between blocks, a log that collects messages, and a
// control port for patch messages.
#pragma once

#include <lilv/lilv.h>
#include <lv2/atom/forge.h>
#include <lv2/log/log.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include <memory>
#include <string>
#include <vector>

namespace larkspin_test {

// Loads every bundle on LV2_PATH once per process.
class Lv2World {
public:
  static Lv2World& instance();
  const LilvPlugin* plugin(const char* uri) const;
  LilvWorld* world() const { return world_; }
  LV2_URID_Map* map() { return &map_; }
  LV2_URID map(const char* uri) { return map_.map(map_.handle, uri); }

private:
  Lv2World();
  static LV2_URID mapUri(LV2_URID_Map_Handle handle, const char* uri);
  LilvWorld* world_;
  std::vector<std::string> uris_;
  LV2_URID_Map map_;
};

class Lv2Instance {
public:
  // Plugin `uri` at `sampleRate`; `withWorker` false plays a host without one.
  Lv2Instance(const char* uri, double sampleRate, bool withWorker = true);
  ~Lv2Instance();
  Lv2Instance(const Lv2Instance&) = delete;
  Lv2Instance& operator=(const Lv2Instance&) = delete;

  bool valid() const { return instance_ != nullptr; }
  int channels() const { return static_cast<int>(inputs_.size()); }

  // Sets a control input port by symbol; false for an unknown symbol.
  bool setControl(const char* symbol, float value);
  float latency() const { return latency_; }

  void activate();
  // Queues a patch:Set of the preset path, delivered with the next block.
  void sendPresetPath(const std::string& path);
  // Runs one block: `in` and `out` hold `channels()` pointers of `frames`
  // samples.
  void run(const float* const* in, float* const* out, uint32_t frames);
  // Runs the work scheduled so far, as a host's worker thread would between
  // two blocks.
  void runWork();

  LilvState* saveState();
  void restoreState(const LilvState* state);

  // Everything the plugin logged so far.
  const std::string& log() const { return log_; }

private:
  static LV2_Worker_Status schedule(LV2_Worker_Schedule_Handle handle, uint32_t size, const void* data);
  static int logPrintf(LV2_Log_Handle handle, LV2_URID type, const char* format, ...);
  static int logVPrintf(LV2_Log_Handle handle, LV2_URID type, const char* format, va_list args);

  const LilvPlugin* plugin_;
  LilvInstance* instance_ = nullptr;
  const LV2_Worker_Interface* worker_ = nullptr;
  std::vector<float> controls_;
  std::vector<uint32_t> inputs_;
  std::vector<uint32_t> outputs_;
  float latency_ = -1.0f;
  uint32_t latencyPort_ = 0;
  uint32_t controlPort_ = 0;

  // Atom buffer of the control port; cleared after every block.
  std::vector<uint64_t> atomBuffer_;
  LV2_Atom_Forge forge_;
  LV2_Atom_Forge_Frame sequenceFrame_;

  // Work scheduled during a block, in storage reserved up front so that
  // scheduling does not allocate.
  std::vector<unsigned char> work_;
  std::vector<uint32_t> workSizes_;

  std::string log_;
  LV2_Worker_Schedule scheduleFeature_;
  LV2_Log_Log logFeature_;
  LV2_Feature features_[3];
  std::vector<const LV2_Feature*> featureList_;
  void beginSequence();
};

} // namespace larkspin_test
