// A small LV2 host on lilv for the plugin's tests: URID map, a worker (none,
// one run on the test's thread between blocks, or one on a thread of its
// own), a log that collects messages, a control port for patch messages,
// and state save and restore.
#pragma once

#include "lv2_reference.h"
#include "port_table.h"
#include "support/allocation_counter.h"

#include <gtest/gtest.h>

#include <lilv/lilv.h>
#include <lv2/atom/forge.h>
#include <lv2/log/log.h>
#include <lv2/patch/patch.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace larkspin_test {

// How the host runs the work the plugin schedules: not at all (no worker
// feature, as lv2apply, ffmpeg, GStreamer and ecasound), on the test's thread
// after each block, or on a thread of its own as real-time hosts do.
enum class Worker { None, Inline, Threaded };

// Every bundle on LV2_PATH, loaded once per process.
inline LilvWorld* lv2World() {
  static LilvWorld* world = [] {
    LilvWorld* w = lilv_world_new();
    lilv_world_load_all(w);
    return w;
  }();
  return world;
}

inline LV2_URID_Map* lv2UridMap() {
  static std::map<std::string, LV2_URID> uris;
  static LV2_URID_Map map{&uris, [](LV2_URID_Map_Handle, const char* uri) {
                            return uris.emplace(uri, static_cast<LV2_URID>(uris.size() + 1)).first->second;
                          }};
  return &map;
}

inline LV2_URID lv2Urid(const char* uri) {
  return lv2UridMap()->map(lv2UridMap()->handle, uri);
}

// Writes `size` bytes to a file in the temporary folder; returns its path.
// Written beside and renamed into place: test processes running at once
// write the same names, and none may read another's half-written file.
inline std::string writeFile(const std::string& name, const void* bytes, size_t size) {
  const auto path = std::filesystem::temp_directory_path() / ("larkspin_lv2_" + name);
  const std::string partial = path.string() + "." + std::to_string(getpid());
  std::ofstream(partial, std::ios::binary).write(static_cast<const char*>(bytes), static_cast<std::streamsize>(size));
  std::filesystem::rename(partial, path);
  return path.string();
}

class Lv2Instance {
public:
  // Plugin `uri` at `sampleRate`. Throws if the plugin cannot be found or
  // instantiated.
  Lv2Instance(const char* uri, double sampleRate, Worker worker = Worker::Inline) : atomBuffer_(8192), worker_(worker) {
    LilvNode* uriNode = lilv_new_uri(lv2World(), uri);
    plugin_ = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(lv2World()), uriNode);
    lilv_node_free(uriNode);
    features_ = {{LV2_URID__map, lv2UridMap()}, {LV2_LOG__log, &log_}, {LV2_WORKER__schedule, &schedule_}};
    featureList_ = {&features_[0], &features_[1], worker == Worker::None ? nullptr : &features_[2], nullptr};
    work_.reserve(1 << 16);
    instance_ = plugin_ == nullptr ? nullptr : lilv_plugin_instantiate(plugin_, sampleRate, featureList_.data());
    if (instance_ == nullptr) {
      throw std::runtime_error(std::string(uri) + " not found or refused: is LV2_PATH set to the built bundle?");
    }
    workInterface_ =
        static_cast<const LV2_Worker_Interface*>(lilv_instance_get_extension_data(instance_, LV2_WORKER__interface));
    lv2_atom_forge_init(&forge_, lv2UridMap());
    connectPorts();
    beginSequence();
    if (worker == Worker::Threaded) {
      workerThread_ = std::thread([this] { workerLoop(); });
    }
  }
  ~Lv2Instance() {
    if (workerThread_.joinable()) {
      batchReady_.store(kStopWorker, std::memory_order_release);
      workerThread_.join();
    }
    lilv_instance_deactivate(instance_);
    lilv_instance_free(instance_);
  }
  Lv2Instance(const Lv2Instance&) = delete;
  Lv2Instance& operator=(const Lv2Instance&) = delete;

  int channels() const { return channels_; }
  float latency() const { return controls_[larkspin_lv2::kLatencyPort]; }
  // Everything the plugin logged so far (the worker thread logs too).
  std::string log() const {
    const std::lock_guard<std::mutex> lock(logMutex_);
    return logText_;
  }

  // Every control input at 0, as a host that fills what it was not given
  // with zeros leaves them.
  void zeroFill() { std::fill(controls_.begin(), controls_.end(), 0.0f); }

  // Sets a control input port by symbol; an unknown symbol is ignored.
  void setControl(const char* symbol, float value) {
    LilvNode* node = lilv_new_string(lv2World(), symbol);
    if (const LilvPort* port = lilv_plugin_get_port_by_symbol(plugin_, node)) {
      controls_[lilv_port_get_index(plugin_, port)] = value;
    }
    lilv_node_free(node);
  }

  void activate() { lilv_instance_activate(instance_); }

  // Queues a patch:Set of the preset path, delivered with the next block.
  void sendPresetPath(const std::string& path) {
    LV2_Atom_Forge_Frame frame;
    lv2_atom_forge_frame_time(&forge_, 0);
    lv2_atom_forge_object(&forge_, &frame, 0, lv2Urid(LV2_PATCH__Set));
    lv2_atom_forge_key(&forge_, lv2Urid(LV2_PATCH__property));
    lv2_atom_forge_urid(&forge_, lv2Urid("urn:larkspin:lv2:preset"));
    lv2_atom_forge_key(&forge_, lv2Urid(LV2_PATCH__value));
    lv2_atom_forge_path(&forge_, path.c_str(), static_cast<uint32_t>(path.size() + 1));
    lv2_atom_forge_pop(&forge_, &frame);
  }

  // Runs `input` through the plugin in blocks of `blockFrames` (0: seeded
  // random sizes from 1 to 5000, some above the plugin's maximum), and the
  // work it scheduled after each block, as a host's worker thread would
  // between two blocks; `beforeBlock` may send messages or change ports
  // first. Fails the test if run() allocates.
  //
  // The threaded worker finishes a block's work before the next block too,
  // so its output can be compared with the inline worker's; but the test's
  // thread learns that through a relaxed flag, which orders nothing for
  // ThreadSanitizer. Any memory the plugin shares between its worker and
  // run() must therefore be ordered by the plugin or the library itself, as
  // in a host whose worker lags behind the audio.
  Planar process(const Planar& input, uint32_t blockFrames,
                 const std::function<void(Lv2Instance&, size_t)>& beforeBlock = {}) {
    Planar output(input.size(), std::vector<float>(input[0].size()));
    std::mt19937 random(7);
    std::uniform_int_distribution<uint32_t> anySize(1, 5000);
    size_t allocations = 0;
    for (size_t block = 0, offset = 0; offset < input[0].size(); ++block) {
      const auto frames = static_cast<uint32_t>(
          std::min<size_t>(blockFrames == 0 ? anySize(random) : blockFrames, input[0].size() - offset));
      if (beforeBlock) {
        beforeBlock(*this, block);
      }
      for (int c = 0; c < channels_; ++c) {
        const auto channel = static_cast<size_t>(c);
        lilv_instance_connect_port(instance_, larkspin_lv2::audioInputPort(channels_, c),
                                   const_cast<float*>(input[channel].data() + offset));
        lilv_instance_connect_port(instance_, larkspin_lv2::audioOutputPort(channels_, c),
                                   output[channel].data() + offset);
      }
      {
        AllocationScope scope;
        lilv_instance_run(instance_, frames);
        allocations += scope.allocations();
      }
      beginSequence();
      if (worker_ == Worker::Threaded) {
        handToWorkerAndWait();
      } else {
        runWork(work_);
        work_.clear();
      }
      offset += frames;
    }
    EXPECT_EQ(allocations, 0u);
    return output;
  }

  // The plugin's own state only: the port values are the host's business.
  LilvState* saveState() {
    return lilv_state_new_from_instance(plugin_, instance_, lv2UridMap(), nullptr, nullptr, nullptr, nullptr, nullptr,
                                        nullptr, 0, featureList_.data());
  }
  void restoreState(const LilvState* state) {
    lilv_state_restore(state, instance_, nullptr, nullptr, 0, featureList_.data());
  }

private:
  // Each piece of scheduled work is stored behind its size.
  void runWork(const std::vector<unsigned char>& work) {
    for (size_t at = 0; at < work.size();) {
      uint32_t size = 0;
      std::memcpy(&size, &work[at], sizeof size);
      workInterface_->work(lilv_instance_get_handle(instance_), nullptr, nullptr, size, &work[at + sizeof size]);
      at += sizeof size + size;
    }
  }

  // The block's work goes to the worker thread as a copy (released and
  // acquired: the copy is host memory), then the test waits, relaxed, until
  // the worker has done it.
  void handToWorkerAndWait() {
    const uint64_t batch = ++batchesSent_;
    batchReady_.store(batch, std::memory_order_release);
    while (batchTaken_.load(std::memory_order_acquire) != batch) {
      std::this_thread::yield();
    }
    work_.clear();
    while (batchDone_.load(std::memory_order_relaxed) != batch) {
      std::this_thread::yield();
    }
  }

  void workerLoop() {
    std::vector<unsigned char> work;
    for (uint64_t taken = 0;;) {
      const uint64_t batch = batchReady_.load(std::memory_order_acquire);
      if (batch == kStopWorker) {
        return;
      }
      if (batch == taken) {
        std::this_thread::yield();
        continue;
      }
      work = work_;
      taken = batch;
      batchTaken_.store(batch, std::memory_order_release);
      runWork(work);
      batchDone_.store(batch, std::memory_order_relaxed);
    }
  }

  // Ports in the plugin's own order: patch messages, controls with their
  // defaults (the latency output among them), then the audio ports.
  void connectPorts() {
    const uint32_t count = lilv_plugin_get_num_ports(plugin_);
    controls_.assign(count, 0.0f);
    lilv_plugin_get_port_ranges_float(plugin_, nullptr, nullptr, controls_.data());
    lilv_instance_connect_port(instance_, larkspin_lv2::kControlPort, atomBuffer_.data());
    channels_ = count == larkspin_lv2::portCount(1) ? 1 : 2;
    for (uint32_t i = larkspin_lv2::kControlPort + 1; i < larkspin_lv2::firstAudioPort(channels_); ++i) {
      lilv_instance_connect_port(instance_, i, &controls_[i]);
    }
  }

  void beginSequence() {
    lv2_atom_forge_set_buffer(&forge_, reinterpret_cast<uint8_t*>(atomBuffer_.data()),
                              atomBuffer_.size() * sizeof(uint64_t));
    lv2_atom_forge_sequence_head(&forge_, &sequenceFrame_, 0);
  }

  // Called from the plugin's run(): appends within the reserved storage, so scheduling
  // does not allocate.
  static LV2_Worker_Status schedule(LV2_Worker_Schedule_Handle handle, uint32_t size, const void* data) {
    auto& work = static_cast<Lv2Instance*>(handle)->work_;
    if (work.size() + sizeof size + size > work.capacity()) {
      return LV2_WORKER_ERR_NO_SPACE;
    }
    const auto* sizeBytes = reinterpret_cast<const unsigned char*>(&size);
    work.insert(work.end(), sizeBytes, sizeBytes + sizeof size);
    work.insert(work.end(), static_cast<const unsigned char*>(data), static_cast<const unsigned char*>(data) + size);
    return LV2_WORKER_SUCCESS;
  }

  static int logVPrintf(LV2_Log_Handle handle, LV2_URID, const char* format, va_list args) {
    char text[1024];
    const int n = std::vsnprintf(text, sizeof text, format, args); // NOLINT(clang-analyzer-valist.Uninitialized)
    auto* self = static_cast<Lv2Instance*>(handle);
    const std::lock_guard<std::mutex> lock(self->logMutex_);
    self->logText_ += text;
    return n;
  }

  const LilvPlugin* plugin_ = nullptr;
  LilvInstance* instance_ = nullptr;
  const LV2_Worker_Interface* workInterface_ = nullptr;
  std::vector<float> controls_; // indexed by port; input ports start at their defaults
  int channels_ = 0;

  // Atom buffer of the control port; cleared after every block.
  std::vector<uint64_t> atomBuffer_;
  LV2_Atom_Forge forge_{};
  LV2_Atom_Forge_Frame sequenceFrame_{};

  // Work scheduled during the current block.
  std::vector<unsigned char> work_;
  Worker worker_;
  std::thread workerThread_;
  static constexpr uint64_t kStopWorker = UINT64_MAX;
  uint64_t batchesSent_ = 0;
  std::atomic<uint64_t> batchReady_{0};
  std::atomic<uint64_t> batchTaken_{0};
  std::atomic<uint64_t> batchDone_{0};
  mutable std::mutex logMutex_;
  std::string logText_;
  LV2_Worker_Schedule schedule_{this, schedule};
  // The plugin logs through the logger of lv2/log, which calls vprintf only.
  LV2_Log_Log log_{this, nullptr, logVPrintf};
  std::vector<LV2_Feature> features_;
  std::vector<const LV2_Feature*> featureList_;
};

} // namespace larkspin_test
