#include "lv2_test_host.h"

#include <lv2/patch/patch.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace larkspin_test {

Lv2World& Lv2World::instance() {
  static Lv2World world;
  return world;
}

// The tests load the bundle of this build unless LV2_PATH names another
// place (an installed bundle); the hosts they start inherit the setting.
const bool kLv2PathSet = setenv("LV2_PATH", LV2_BUNDLE_PARENT, 0) == 0;

Lv2World::Lv2World() : world_(nullptr), map_{this, mapUri} {
  world_ = lilv_world_new();
  lilv_world_load_all(world_);
}

LV2_URID Lv2World::mapUri(LV2_URID_Map_Handle handle, const char* uri) {
  auto& uris = static_cast<Lv2World*>(handle)->uris_;
  for (size_t i = 0; i < uris.size(); ++i) {
    if (uris[i] == uri) {
      return static_cast<LV2_URID>(i + 1);
    }
  }
  uris.emplace_back(uri);
  return static_cast<LV2_URID>(uris.size());
}

const LilvPlugin* Lv2World::plugin(const char* uri) const {
  LilvNode* node = lilv_new_uri(world_, uri);
  const LilvPlugin* found = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world_), node);
  lilv_node_free(node);
  return found;
}

Lv2Instance::Lv2Instance(const char* uri, double sampleRate, bool withWorker)
    : plugin_(Lv2World::instance().plugin(uri)), atomBuffer_(8192), work_(1 << 16) {
  if (plugin_ == nullptr) {
    return;
  }
  Lv2World& world = Lv2World::instance();
  scheduleFeature_ = {this, schedule};
  logFeature_ = {this, logPrintf, logVPrintf};
  features_[0] = {LV2_URID__map, world.map()};
  features_[1] = {LV2_LOG__log, &logFeature_};
  features_[2] = {LV2_WORKER__schedule, &scheduleFeature_};
  featureList_ = {&features_[0], &features_[1]};
  if (withWorker) {
    featureList_.push_back(&features_[2]);
  }
  featureList_.push_back(nullptr);
  workSizes_.reserve(64);
  instance_ = lilv_plugin_instantiate(plugin_, sampleRate, featureList_.data());
  if (instance_ == nullptr) {
    return;
  }
  worker_ =
      static_cast<const LV2_Worker_Interface*>(lilv_instance_get_extension_data(instance_, LV2_WORKER__interface));
  lv2_atom_forge_init(&forge_, world.map());

  LilvWorld* lw = world.world();
  LilvNode* audio = lilv_new_uri(lw, LILV_URI_AUDIO_PORT);
  LilvNode* controlClass = lilv_new_uri(lw, LILV_URI_CONTROL_PORT);
  LilvNode* input = lilv_new_uri(lw, LILV_URI_INPUT_PORT);
  LilvNode* atom = lilv_new_uri(lw, LILV_URI_ATOM_PORT);
  const uint32_t count = lilv_plugin_get_num_ports(plugin_);
  controls_.assign(count, 0.0f);
  std::vector<float> defaults(count, 0.0f);
  lilv_plugin_get_port_ranges_float(plugin_, nullptr, nullptr, defaults.data());
  for (uint32_t i = 0; i < count; ++i) {
    const LilvPort* port = lilv_plugin_get_port_by_index(plugin_, i);
    const bool isInput = lilv_port_is_a(plugin_, port, input);
    if (lilv_port_is_a(plugin_, port, audio)) {
      (isInput ? inputs_ : outputs_).push_back(i);
    } else if (lilv_port_is_a(plugin_, port, controlClass)) {
      controls_[i] = isInput ? defaults[i] : 0.0f;
      if (!isInput) {
        latencyPort_ = i;
      }
      lilv_instance_connect_port(instance_, i, &controls_[i]);
    } else if (lilv_port_is_a(plugin_, port, atom)) {
      controlPort_ = i;
      lilv_instance_connect_port(instance_, i, atomBuffer_.data());
    }
  }
  for (LilvNode* node : {audio, controlClass, input, atom}) {
    lilv_node_free(node);
  }
  beginSequence();
}

Lv2Instance::~Lv2Instance() {
  if (instance_ != nullptr) {
    lilv_instance_deactivate(instance_);
    lilv_instance_free(instance_);
  }
}

bool Lv2Instance::setControl(const char* symbol, float value) {
  LilvNode* node = lilv_new_string(Lv2World::instance().world(), symbol);
  const LilvPort* port = lilv_plugin_get_port_by_symbol(plugin_, node);
  lilv_node_free(node);
  if (port == nullptr) {
    return false;
  }
  controls_[lilv_port_get_index(plugin_, port)] = value;
  return true;
}

void Lv2Instance::activate() {
  lilv_instance_activate(instance_);
}

void Lv2Instance::beginSequence() {
  lv2_atom_forge_set_buffer(&forge_, reinterpret_cast<uint8_t*>(atomBuffer_.data()),
                            atomBuffer_.size() * sizeof(uint64_t));
  lv2_atom_forge_sequence_head(&forge_, &sequenceFrame_, 0);
}

void Lv2Instance::sendPresetPath(const std::string& path) {
  Lv2World& world = Lv2World::instance();
  LV2_Atom_Forge_Frame frame;
  lv2_atom_forge_frame_time(&forge_, 0);
  lv2_atom_forge_object(&forge_, &frame, 0, world.map(LV2_PATCH__Set));
  lv2_atom_forge_key(&forge_, world.map(LV2_PATCH__property));
  lv2_atom_forge_urid(&forge_, world.map("urn:larkspin:lv2:preset"));
  lv2_atom_forge_key(&forge_, world.map(LV2_PATCH__value));
  lv2_atom_forge_path(&forge_, path.c_str(), static_cast<uint32_t>(path.size() + 1));
  lv2_atom_forge_pop(&forge_, &frame);
}

void Lv2Instance::run(const float* const* in, float* const* out, uint32_t frames) {
  for (size_t c = 0; c < inputs_.size(); ++c) {
    lilv_instance_connect_port(instance_, inputs_[c], const_cast<float*>(in[c]));
    lilv_instance_connect_port(instance_, outputs_[c], out[c]);
  }
  lilv_instance_run(instance_, frames);
  latency_ = controls_[latencyPort_];
  beginSequence();
}

void Lv2Instance::runWork() {
  size_t offset = 0;
  for (uint32_t size : workSizes_) {
    worker_->work(lilv_instance_get_handle(instance_), nullptr, nullptr, size, &work_[offset]);
    offset += size;
  }
  workSizes_.clear();
}

LV2_Worker_Status Lv2Instance::schedule(LV2_Worker_Schedule_Handle handle, uint32_t size, const void* data) {
  auto* self = static_cast<Lv2Instance*>(handle);
  size_t used = 0;
  for (uint32_t s : self->workSizes_) {
    used += s;
  }
  if (used + size > self->work_.size() || self->workSizes_.size() == self->workSizes_.capacity()) {
    return LV2_WORKER_ERR_NO_SPACE;
  }
  std::memcpy(&self->work_[used], data, size);
  self->workSizes_.push_back(size);
  return LV2_WORKER_SUCCESS;
}

int Lv2Instance::logPrintf(LV2_Log_Handle handle, LV2_URID type, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int n = logVPrintf(handle, type, format, args);
  va_end(args);
  return n;
}

int Lv2Instance::logVPrintf(LV2_Log_Handle handle, LV2_URID, const char* format, va_list args) {
  char text[1024];
  // The caller has started the list (va_start in logPrintf or in the plugin).
  const int n = std::vsnprintf(text, sizeof text, format, args); // NOLINT(clang-analyzer-valist.Uninitialized)
  static_cast<Lv2Instance*>(handle)->log_ += text;
  return n;
}

namespace {
const void* noPortValue(const char*, void*, uint32_t* size, uint32_t* type) {
  *size = 0;
  *type = 0;
  return nullptr;
}
} // namespace

LilvState* Lv2Instance::saveState() {
  return lilv_state_new_from_instance(plugin_, instance_, Lv2World::instance().map(), nullptr, nullptr, nullptr,
                                      nullptr, noPortValue, nullptr, 0, featureList_.data());
}

void Lv2Instance::restoreState(const LilvState* state) {
  lilv_state_restore(state, instance_, nullptr, nullptr, 0, featureList_.data());
}

} // namespace larkspin_test
