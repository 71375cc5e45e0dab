// The mono and stereo LV2 plugins: one vora::GenericAudioProcessor per
// instance. run() only moves audio and hands requests on: preset files,
// edited preset values, intensity and bypass go to the host's worker thread,
// which checks, encodes and applies them, so the audio thread never
// allocates, locks, reads a file or prints.
//
// The processor takes settings from one control thread at a time. With a
// worker that is the worker: everything that changes the processor reaches it
// there, in the order the host's ports and messages asked for it (activation
// and state restore, which LV2 never runs beside run() or the worker, apply
// directly). A host without a worker runs the plugin from one thread only, so
// run() itself is then the control thread for intensity and bypass; those two
// setters neither allocate nor print for the sanitised values run() passes.
#include "port_table.h"
#include "preset_source.h"

#include <larkspin/generic_audio_processor.h>

#include <lv2/atom/atom.h>
#include <lv2/atom/util.h>
#include <lv2/core/lv2.h>
#include <lv2/log/log.h>
#include <lv2/log/logger.h>
#include <lv2/patch/patch.h>
#include <lv2/state/state.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <string>

namespace larkspin_lv2 {
namespace {

// The processor is fed whole chunks of a quarter of its FFT size: only then
// is its delay the same for every host block pattern. A chunk is at most
// this long (the FFT at 192 kHz is 1024 points).
constexpr int kMaximumChunkFrames = 256;
constexpr uint32_t kMaximumPathBytes = 4096;

enum class WorkKind : uint32_t { LoadFile, Controls, EditValues };

using PortValues = std::array<float, kMaximumPresetPortCount>;
using PortFlags = std::array<bool, kMaximumPresetPortCount>;

// Intensity and bypass as the processor takes them.
struct Controls {
  float intensity = 1.0f;
  bool bypassed = false;
  bool operator==(const Controls&) const = default;
};

struct ControlsMessage {
  WorkKind kind;
  Controls controls;
};

struct LoadFileMessage {
  WorkKind kind;
  uint32_t pathBytes; // without the terminating NUL
  char path[kMaximumPathBytes];
};

struct EditValuesMessage {
  WorkKind kind;
  PortValues values;
  PortFlags changed;
};

const void* featureData(const LV2_Feature* const* features, const char* uri) {
  for (int i = 0; features != nullptr && features[i] != nullptr; ++i) {
    if (std::strcmp(features[i]->URI, uri) == 0) {
      return features[i]->data;
    }
  }
  return nullptr;
}

struct Uris {
  LV2_URID atomObject = 0;
  LV2_URID atomPath = 0;
  LV2_URID atomChunk = 0;
  LV2_URID atomUrid = 0;
  LV2_URID patchSet = 0;
  LV2_URID patchProperty = 0;
  LV2_URID patchValue = 0;
  LV2_URID presetParameter = 0;
  LV2_URID payloadState = 0;
  LV2_URID pathState = 0;

  void mapAll(LV2_URID_Map* map) {
    auto m = [map](const char* uri) { return map->map(map->handle, uri); };
    atomObject = m(LV2_ATOM__Object);
    atomPath = m(LV2_ATOM__Path);
    atomChunk = m(LV2_ATOM__Chunk);
    atomUrid = m(LV2_ATOM__URID);
    patchSet = m(LV2_PATCH__Set);
    patchProperty = m(LV2_PATCH__property);
    patchValue = m(LV2_PATCH__value);
    presetParameter = m(kPresetParameterUri);
    payloadState = m(kPayloadStateUri);
    pathState = m(kPathStateUri);
  }
};

class Plugin {
public:
  Plugin(int channels, float sampleRate, const LV2_Feature* const* features);
  bool ready() const { return ready_; }

  void connect(uint32_t port, void* data);
  void activate();
  void run(uint32_t frames);

  LV2_Worker_Status work(uint32_t size, const void* data);
  LV2_State_Status save(LV2_State_Store_Function store, LV2_State_Handle handle, const LV2_Feature* const* features);
  LV2_State_Status restore(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle,
                           const LV2_Feature* const* features);

private:
  int presetPorts() const { return presetPortCount(channels_); }
  void takeHostPorts();
  Controls controlsFromPorts();
  bool presetPortsAllZero() const;
  bool collectEdits(PortValues& values, PortFlags& changed);
  void readControlMessages();
  void forwardHostPorts();
  void applyControls(const Controls& controls);
  void applyEdits(const PortValues& values, const PortFlags& changed);
  void loadFile(const std::string& path);
  bool applyPreset(const CheckedPreset& preset, const std::string& path);

  int channels_;
  float sampleRate_;
  bool ready_ = false;
  vora::GenericAudioProcessor processor_;
  float latencyFrames_ = 0.0f;

  // Host audio passes through a FIFO of one chunk, so that the processor
  // always sees whole chunks; this adds one chunk to the latency.
  uint32_t chunkFrames_ = 0;
  uint32_t chunkPosition_ = 0;
  std::array<std::array<float, kMaximumChunkFrames>, 2> chunkIn_{};
  std::array<std::array<float, kMaximumChunkFrames>, 2> chunkOut_{};

  LV2_URID_Map* map_ = nullptr;
  LV2_Worker_Schedule* schedule_ = nullptr;
  LV2_Log_Logger logger_{};
  Uris uris_;

  // Ports.
  const LV2_Atom_Sequence* control_ = nullptr;
  const float* intensity_ = nullptr;
  const float* bypass_ = nullptr;
  float* latency_ = nullptr;
  std::array<const float*, kMaximumPresetPortCount> presetPorts_{};
  std::array<const float*, 2> inputs_{};
  std::array<float*, 2> outputs_{};

  // Audio thread and activation only.
  bool activated_ = false;
  bool started_ = false;        // run() was called since activation
  bool intensityUnset_ = false; // the host zero-filled every control, intensity still at that 0
  Controls forwarded_;          // last handed to the processor or the worker
  PortValues seenValues_{};
  LoadFileMessage loadMessage_{};
  ControlsMessage controlsMessage_{};
  EditValuesMessage editMessage_{};

  // Worker, state and activation only; never touched by run(). The mutex
  // keeps their calls into the processor one at a time even if a host
  // overlaps a state restore with the worker.
  std::mutex controlMutex_;
  CheckedPreset inForce_;
  bool presetChosen_ = false; // false: the library's default is in force
  std::string path_;
};

Plugin::Plugin(int channels, float sampleRate, const LV2_Feature* const* features)
    : channels_(channels), sampleRate_(sampleRate) {
  map_ = static_cast<LV2_URID_Map*>(const_cast<void*>(featureData(features, LV2_URID__map)));
  schedule_ = static_cast<LV2_Worker_Schedule*>(const_cast<void*>(featureData(features, LV2_WORKER__schedule)));
  auto* log = static_cast<LV2_Log_Log*>(const_cast<void*>(featureData(features, LV2_LOG__log)));
  lv2_log_logger_init(&logger_, map_, log);
  // The library's diagnostic lines go to the host's log (standard error when
  // it offers none), not to the host's standard output.
  processor_.setMessageHook(
      [](void* self, const char* line) {
        lv2_log_warning(&static_cast<Plugin*>(self)->logger_, "larkspin: %s\n", line);
      },
      this);
  if (map_ != nullptr) {
    uris_.mapAll(map_);
  }
  vora_preset_default(&inForce_.values);
  vora_preset defaults = inForce_.values;
  for (int i = 0; i < presetPorts(); ++i) {
    seenValues_[static_cast<size_t>(i)] = *presetValue(defaults, presetPortField(i, channels_));
  }
  loadMessage_.kind = WorkKind::LoadFile;
  controlsMessage_.kind = WorkKind::Controls;
  editMessage_.kind = WorkKind::EditValues;
  std::array<vora_band_info, VORA_BAND_COUNT> bands{};
  chunkFrames_ = static_cast<uint32_t>(vora_preset_band_layout(sampleRate_, bands.data()) / 4);
  ready_ = chunkFrames_ > 0 && chunkFrames_ <= kMaximumChunkFrames &&
           processor_.setup(sampleRate_, static_cast<int>(chunkFrames_), channels_);
  if (!ready_) {
    lv2_log_error(&logger_, "larkspin: cannot run at %g Hz (32000 to 192000 Hz)\n", static_cast<double>(sampleRate));
    return;
  }
  latencyFrames_ = processor_.getProcessingLatency() + static_cast<float>(chunkFrames_);
  // Audible from the start: the library's default preset at full intensity
  // until the host or the user chooses otherwise.
  std::string why;
  if (encodeValues(inForce_.values, inForce_, why)) {
    processor_.applyPresetPayload(inForce_.payload.data());
  }
  applyControls(forwarded_);
}

void Plugin::connect(uint32_t port, void* data) {
  switch (port) {
  case kControlPort:
    control_ = static_cast<const LV2_Atom_Sequence*>(data);
    return;
  case kIntensityPort:
    intensity_ = static_cast<const float*>(data);
    return;
  case kBypassPort:
    bypass_ = static_cast<const float*>(data);
    return;
  case kLatencyPort:
    latency_ = static_cast<float*>(data);
    return;
  default:
    break;
  }
  const uint32_t firstAudio = firstAudioPort(channels_);
  if (port >= kFirstPresetPort && port < firstAudio) {
    presetPorts_[port - kFirstPresetPort] = static_cast<const float*>(data);
  } else if (port >= firstAudio && port < portCount(channels_)) {
    const uint32_t channel = (port - firstAudio) / 2;
    if ((port - firstAudio) % 2 == 0) {
      inputs_[channel] = static_cast<const float*>(data);
    } else {
      outputs_[channel] = static_cast<float*>(data);
    }
  }
}

void Plugin::activate() {
  // A fresh start: no audio history. The preset, intensity and bypass in
  // force survive the set-up.
  processor_.setup(sampleRate_, static_cast<int>(chunkFrames_), channels_);
  chunkIn_ = {};
  chunkOut_ = {};
  chunkPosition_ = 0;
  activated_ = true;
  started_ = false;
  takeHostPorts();
}

// The host's first word after activation (or before the first block, see
// run()), applied in the calling thread. Every control reading exactly 0 is
// how a host that fills what it was not given with zeros (ecasound) says
// "nothing": the intensity is 1 until the host moves it, and the zeros of
// the value ports never become a preset.
void Plugin::takeHostPorts() {
  intensityUnset_ =
      intensity_ != nullptr && *intensity_ == 0.0f && (bypass_ == nullptr || *bypass_ == 0.0f) && presetPortsAllZero();
  if (intensityUnset_) {
    forwarded_.intensity = 1.0f;
  }
  forwarded_ = controlsFromPorts();
  applyControls(forwarded_);
  PortValues values{};
  PortFlags changed{};
  if (collectEdits(values, changed)) {
    seenValues_ = values;
    applyEdits(values, changed);
  }
}

// Intensity and bypass as the host's ports ask for them, made safe for the
// library: NaN is ignored (the value in force stays), the intensity is
// clamped to 0..1, and the bypass is on above 0 (LV2's reading of a toggle).
Controls Plugin::controlsFromPorts() {
  Controls controls = forwarded_;
  if (intensity_ != nullptr && !std::isnan(*intensity_) && !(intensityUnset_ && *intensity_ == 0.0f)) {
    intensityUnset_ = false;
    controls.intensity = std::clamp(*intensity_, 0.0f, 1.0f);
  }
  if (bypass_ != nullptr && !std::isnan(*bypass_)) {
    controls.bypassed = *bypass_ > 0.0f;
  }
  return controls;
}

bool Plugin::presetPortsAllZero() const {
  int connected = 0;
  for (int i = 0; i < presetPorts(); ++i) {
    if (const float* port = presetPorts_[static_cast<size_t>(i)]) {
      if (*port != 0.0f) {
        return false;
      }
      ++connected;
    }
  }
  return connected > 0;
}

// Value ports that differ from the values seen so far, ready for
// applyEdits (the caller records them as seen once they are on their way);
// false if none did. Value ports that are all zero are taken as
// seen without being applied: no listener chooses that preset, but a host
// that zero-fills sends it.
bool Plugin::collectEdits(PortValues& values, PortFlags& changed) {
  if (presetPortsAllZero()) {
    for (int i = 0; i < presetPorts(); ++i) {
      if (presetPorts_[static_cast<size_t>(i)] != nullptr) {
        seenValues_[static_cast<size_t>(i)] = 0.0f;
      }
    }
    return false;
  }
  bool any = false;
  for (size_t i = 0; i < static_cast<size_t>(presetPorts()); ++i) {
    const float* port = presetPorts_[i];
    const bool edited = port != nullptr && std::isfinite(*port) && *port != seenValues_[i];
    changed[i] = edited;
    values[i] = edited ? *port : seenValues_[i];
    any = any || edited;
  }
  return any;
}

void Plugin::run(uint32_t frames) {
  // A host without a worker may connect and set the ports only after
  // activation, just before the first block (ffmpeg's lv2 filter does), and
  // a host may skip activation. Such hosts are offline tools: their values
  // are taken here, once, before the first sample. (With a worker, later
  // port values reach the processor through the worker.)
  if (!started_) {
    started_ = true;
    if (schedule_ == nullptr || !activated_) {
      takeHostPorts();
    }
  }
  readControlMessages();
  forwardHostPorts();
  if (latency_ != nullptr) {
    *latency_ = latencyFrames_;
  }
  for (int c = 0; c < channels_; ++c) {
    if (inputs_[static_cast<size_t>(c)] == nullptr || outputs_[static_cast<size_t>(c)] == nullptr) {
      return;
    }
  }
  for (uint32_t done = 0; done < frames;) {
    const uint32_t count = std::min(frames - done, chunkFrames_ - chunkPosition_);
    for (size_t c = 0; c < static_cast<size_t>(channels_); ++c) {
      // Input first: the host may hand the same buffer for input and output.
      std::memcpy(&chunkIn_[c][chunkPosition_], inputs_[c] + done, count * sizeof(float));
      std::memcpy(outputs_[c] + done, &chunkOut_[c][chunkPosition_], count * sizeof(float));
    }
    chunkPosition_ += count;
    done += count;
    if (chunkPosition_ == chunkFrames_) {
      chunkOut_ = chunkIn_;
      float* chunk[2] = {chunkOut_[0].data(), chunkOut_[1].data()};
      processor_.process(chunk, static_cast<int>(chunkFrames_));
      chunkPosition_ = 0;
    }
  }
}

void Plugin::readControlMessages() {
  if (control_ == nullptr || map_ == nullptr) {
    return;
  }
  LV2_ATOM_SEQUENCE_FOREACH(control_, event) {
    const LV2_Atom_Object* object = reinterpret_cast<const LV2_Atom_Object*>(&event->body);
    if (event->body.type == uris_.atomObject && object->body.otype == uris_.patchSet) {
      const LV2_Atom* property = nullptr;
      const LV2_Atom* value = nullptr;
      lv2_atom_object_get(object, uris_.patchProperty, &property, uris_.patchValue, &value, 0);
      if (property == nullptr || value == nullptr || property->type != uris_.atomUrid ||
          reinterpret_cast<const LV2_Atom_URID*>(property)->body != uris_.presetParameter ||
          value->type != uris_.atomPath || schedule_ == nullptr) {
        continue;
      }
      // A path is a NUL-terminated string; longer ones than fit are dropped.
      const auto* text = static_cast<const char*>(LV2_ATOM_BODY_CONST(value));
      const uint32_t bytes = static_cast<uint32_t>(strnlen(text, value->size));
      if (bytes >= kMaximumPathBytes) {
        continue;
      }
      loadMessage_.pathBytes = bytes;
      std::memcpy(loadMessage_.path, text, bytes);
      loadMessage_.path[bytes] = '\0';
      schedule_->schedule_work(schedule_->handle, static_cast<uint32_t>(offsetof(LoadFileMessage, path) + bytes + 1),
                               &loadMessage_);
    }
  }
}

// Changes reach the worker in the order the host made them: a preset file
// from this block's messages, then intensity and bypass, then edited values.
// Without a worker this thread is the processor's only control thread: the
// two setters are called here, and edits wait for the next activation.
void Plugin::forwardHostPorts() {
  const Controls wanted = controlsFromPorts();
  if (schedule_ == nullptr) {
    if (!(wanted == forwarded_)) {
      forwarded_ = wanted;
      applyControls(wanted);
    }
    return;
  }
  // A full queue is tried again with the next block.
  if (!(wanted == forwarded_)) {
    controlsMessage_.controls = wanted;
    if (schedule_->schedule_work(schedule_->handle, sizeof controlsMessage_, &controlsMessage_) == LV2_WORKER_SUCCESS) {
      forwarded_ = wanted;
    }
  }
  if (collectEdits(editMessage_.values, editMessage_.changed) &&
      schedule_->schedule_work(schedule_->handle, sizeof editMessage_, &editMessage_) == LV2_WORKER_SUCCESS) {
    seenValues_ = editMessage_.values;
  }
}

LV2_Worker_Status Plugin::work(uint32_t size, const void* data) {
  WorkKind kind{};
  if (size < sizeof kind) {
    return LV2_WORKER_ERR_UNKNOWN;
  }
  std::memcpy(&kind, data, sizeof kind);
  if (kind == WorkKind::LoadFile && size > offsetof(LoadFileMessage, path)) {
    const auto* message = static_cast<const LoadFileMessage*>(data);
    loadFile(std::string(message->path, std::min<size_t>(message->pathBytes, size - offsetof(LoadFileMessage, path))));
    return LV2_WORKER_SUCCESS;
  }
  if (kind == WorkKind::Controls && size == sizeof(ControlsMessage)) {
    ControlsMessage message;
    std::memcpy(&message, data, sizeof message);
    const std::lock_guard<std::mutex> lock(controlMutex_);
    applyControls(message.controls);
    return LV2_WORKER_SUCCESS;
  }
  if (kind == WorkKind::EditValues && size == sizeof(EditValuesMessage)) {
    const auto* message = static_cast<const EditValuesMessage*>(data);
    applyEdits(message->values, message->changed);
    return LV2_WORKER_SUCCESS;
  }
  return LV2_WORKER_ERR_UNKNOWN;
}

// The values come from controlsFromPorts(), so neither setter prints, and
// neither allocates. Called by the worker (under the lock), by activation
// and, in a host without a worker, by run().
void Plugin::applyControls(const Controls& controls) {
  processor_.setBypassed(controls.bypassed);
  processor_.setVoraficationIntensity(controls.intensity);
}

// Edited port values change only their own fields of the preset in force, so
// a host can adjust one band of a preset loaded from a file.
void Plugin::applyEdits(const PortValues& values, const PortFlags& changed) {
  std::string path;
  vora_preset edited;
  {
    std::lock_guard<std::mutex> lock(controlMutex_);
    edited = inForce_.values;
    path = path_;
  }
  for (int i = 0; i < presetPorts(); ++i) {
    if (changed[static_cast<size_t>(i)]) {
      *presetValue(edited, presetPortField(i, channels_)) = values[static_cast<size_t>(i)];
    }
  }
  CheckedPreset preset;
  std::string why;
  if (!encodeValues(edited, preset, why)) {
    lv2_log_error(&logger_, "larkspin: preset values refused, keeping the previous preset: %s\n", why.c_str());
    return;
  }
  applyPreset(preset, path);
}

void Plugin::loadFile(const std::string& path) {
  CheckedPreset preset;
  std::string why;
  if (!readPresetFile(path, preset, why)) {
    lv2_log_error(&logger_, "larkspin: preset file \"%s\" not loaded, keeping the previous preset: %s\n", path.c_str(),
                  why.c_str());
    return;
  }
  applyPreset(preset, path);
}

// The one place where a new preset reaches the processor. It runs on the
// worker thread (or during activation or state restore), the same thread
// that sets intensity and bypass, never in run() once the host has
// activated the plugin: applying a preset allocates. The payload has been
// checked, so the library accepts it without printing.
bool Plugin::applyPreset(const CheckedPreset& preset, const std::string& path) {
  std::lock_guard<std::mutex> lock(controlMutex_);
  Payload payload = preset.payload;
  if (!processor_.applyPresetPayload(payload.data())) {
    lv2_log_error(&logger_, "larkspin: the processor refused the preset, keeping the previous one\n");
    return false;
  }
  inForce_ = preset;
  presetChosen_ = true;
  path_ = path;
  return true;
}

LV2_State_Status Plugin::save(LV2_State_Store_Function store, LV2_State_Handle handle,
                              const LV2_Feature* const* features) {
  if (map_ == nullptr) {
    return LV2_STATE_ERR_NO_FEATURE;
  }
  std::lock_guard<std::mutex> lock(controlMutex_);
  if (!presetChosen_) {
    return LV2_STATE_SUCCESS; // the default preset: nothing to keep
  }
  // The payload is what the session sounds like, even if the file changes
  // or disappears later; the path is kept to show where it came from.
  store(handle, uris_.payloadState, inForce_.payload.data(), inForce_.payload.size(), uris_.atomChunk,
        LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE);
  if (!path_.empty()) {
    const LV2_State_Map_Path* mapPath =
        static_cast<const LV2_State_Map_Path*>(featureData(features, LV2_STATE__mapPath));
    char* abstract = mapPath != nullptr ? mapPath->abstract_path(mapPath->handle, path_.c_str()) : nullptr;
    const char* text = abstract != nullptr ? abstract : path_.c_str();
    store(handle, uris_.pathState, text, std::strlen(text) + 1, uris_.atomPath, LV2_STATE_IS_POD);
    std::free(abstract);
  }
  return LV2_STATE_SUCCESS;
}

LV2_State_Status Plugin::restore(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle,
                                 const LV2_Feature* const* features) {
  if (map_ == nullptr) {
    return LV2_STATE_ERR_NO_FEATURE;
  }
  size_t size = 0;
  uint32_t type = 0;
  uint32_t flags = 0;
  std::string path;
  if (const void* value = retrieve(handle, uris_.pathState, &size, &type, &flags);
      value != nullptr && type == uris_.atomPath && size > 0) {
    const auto* text = static_cast<const char*>(value);
    path.assign(text, strnlen(text, size));
    const LV2_State_Map_Path* mapPath =
        static_cast<const LV2_State_Map_Path*>(featureData(features, LV2_STATE__mapPath));
    if (char* absolute = mapPath != nullptr ? mapPath->absolute_path(mapPath->handle, path.c_str()) : nullptr) {
      path = absolute;
      std::free(absolute);
    }
  }
  const void* payload = retrieve(handle, uris_.payloadState, &size, &type, &flags);
  if (payload == nullptr || size != VORA_AP_PRESET_PAYLOAD_SIZE || type != uris_.atomChunk) {
    if (!path.empty()) {
      loadFile(path);
    }
    return LV2_STATE_SUCCESS;
  }
  CheckedPreset preset;
  std::string why;
  if (!checkPayload(static_cast<const unsigned char*>(payload), preset, why)) {
    lv2_log_error(&logger_, "larkspin: saved preset refused, keeping the previous preset: %s\n", why.c_str());
    return LV2_STATE_ERR_UNKNOWN;
  }
  applyPreset(preset, path);
  return LV2_STATE_SUCCESS;
}

// C entry points.

Plugin* self(LV2_Handle handle) {
  return static_cast<Plugin*>(handle);
}

template <int Channels>
LV2_Handle instantiate(const LV2_Descriptor*, double sampleRate, const char*, const LV2_Feature* const* features) {
  auto* plugin = new (std::nothrow) Plugin(Channels, static_cast<float>(sampleRate), features);
  if (plugin != nullptr && !plugin->ready()) {
    delete plugin;
    return nullptr;
  }
  return plugin;
}

void connectPort(LV2_Handle handle, uint32_t port, void* data) {
  self(handle)->connect(port, data);
}

void activate(LV2_Handle handle) {
  self(handle)->activate();
}

void run(LV2_Handle handle, uint32_t frames) {
  self(handle)->run(frames);
}

void cleanup(LV2_Handle handle) {
  delete self(handle);
}

LV2_Worker_Status work(LV2_Handle handle, LV2_Worker_Respond_Function, LV2_Worker_Respond_Handle, uint32_t size,
                       const void* data) {
  return self(handle)->work(size, data);
}

LV2_Worker_Status workResponse(LV2_Handle, uint32_t, const void*) {
  return LV2_WORKER_SUCCESS;
}

LV2_State_Status save(LV2_Handle handle, LV2_State_Store_Function store, LV2_State_Handle state, uint32_t,
                      const LV2_Feature* const* features) {
  return self(handle)->save(store, state, features);
}

LV2_State_Status restore(LV2_Handle handle, LV2_State_Retrieve_Function retrieve, LV2_State_Handle state, uint32_t,
                         const LV2_Feature* const* features) {
  return self(handle)->restore(retrieve, state, features);
}

const void* extensionData(const char* uri) {
  static const LV2_Worker_Interface worker = {work, workResponse, nullptr};
  static const LV2_State_Interface state = {save, restore};
  if (std::strcmp(uri, LV2_WORKER__interface) == 0) {
    return &worker;
  }
  if (std::strcmp(uri, LV2_STATE__interface) == 0) {
    return &state;
  }
  return nullptr;
}

const LV2_Descriptor kDescriptors[] = {
    {kMonoUri, instantiate<1>, connectPort, activate, run, nullptr, cleanup, extensionData},
    {kStereoUri, instantiate<2>, connectPort, activate, run, nullptr, cleanup, extensionData},
};

} // namespace
} // namespace larkspin_lv2

extern "C" LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(uint32_t index) {
  return index < std::size(larkspin_lv2::kDescriptors) ? &larkspin_lv2::kDescriptors[index] : nullptr;
}
