// C interface over vora::GenericAudioProcessor with its control registry.
// No exception crosses this boundary: every function answers with its
// documented neutral value instead.
#include <larkspin/vora_ap.h>

#include "api/control_registry.h"
#include "dsp/payload_codec.h"
#include "dsp/real_fft.h"

#include <algorithm>
#include <cstring>

using vora::GenericAudioProcessor;

namespace {

GenericAudioProcessor* instanceOf(vora_ap_control* control) {
  return control != nullptr ? control->instance : nullptr;
}

// The host's message hook, given to every control (control thread only).
vora_ap_message_hook messageHook = nullptr;
void* messageContext = nullptr;

vora_ap_debug_info zeroDebugInfo() {
  vora_ap_debug_info info;
  std::memset(&info, 0, sizeof info);
  return info;
}

} // namespace

extern "C" {

vora_ap_control* vora_ap_create_control(float sampleRate, int maximumFrames, int stereo) {
  GenericAudioProcessor* instance = nullptr;
  try {
    instance = new GenericAudioProcessor;
    instance->setMessageHook(messageHook, messageContext);
    if (!instance->setup(sampleRate, maximumFrames, stereo != 0 ? 2 : 1)) {
      delete instance; // nothing is registered; a refused set-up must not leak
      return nullptr;
    }
    auto& registry = vora::controlRegistry();
    if (!registry.empty() && registry.front()->instance != nullptr) {
      // New controls start alike the oldest one.
      GenericAudioProcessor* oldest = registry.front()->instance;
      instance->applyPresetPayload(oldest->getCurrentPresetPayload());
      instance->setVoraficationIntensity(oldest->getVoraficationIntensity());
      instance->setBypassed(oldest->getBypassed());
    }
    auto* control = new vora_ap_control{instance};
    try {
      registry.push_back(control);
    } catch (...) {
      delete control;
      throw;
    }
    return control;
  } catch (...) {
    delete instance;
    return nullptr;
  }
}

vora_ap_control* vora_ap_create(float sampleRate, int maximumFrames, int stereo) {
  return vora_ap_create_control(sampleRate, maximumFrames, stereo);
}

bool vora_ap_destroy_control(vora_ap_control* control) {
  if (control == nullptr) {
    return true;
  }
  auto& registry = vora::controlRegistry();
  const auto it = std::find(registry.begin(), registry.end(), control);
  if (it == registry.end()) {
    return false;
  }
  registry.erase(it); // keeps the order of the others
  delete control->instance;
  delete control;
  return true;
}

bool vora_ap_destroy(vora_ap_control* control) {
  return vora_ap_destroy_control(control);
}

bool vora_ap_update(vora_ap_control* control, float sampleRate, int maximumFrames, int stereo) {
  GenericAudioProcessor* instance = instanceOf(control);
  return instance != nullptr && instance->update(sampleRate, maximumFrames, stereo != 0 ? 2 : 1);
}

bool vora_ap_process(vora_ap_control* control, float** channels, int frames) {
  GenericAudioProcessor* instance = instanceOf(control);
  return instance != nullptr && instance->process(channels, frames);
}

float vora_ap_get_processing_latency(vora_ap_control* control) {
  GenericAudioProcessor* instance = instanceOf(control);
  return instance != nullptr ? instance->getProcessingLatency() : 0.0f;
}

vora_ap_debug_info vora_ap_get_debug_info(vora_ap_control* control) {
  GenericAudioProcessor* instance = instanceOf(control);
  return instance != nullptr ? instance->getDebugInfo() : zeroDebugInfo();
}

bool vora_ap_get_band_readout(vora_ap_control* control, float* levelsDb, float* gainsDb) {
  const GenericAudioProcessor* instance = instanceOf(control);
  return instance != nullptr && instance->getBandReadout(levelsDb, gainsDb);
}

void vora_ap_log_debug_info(vora_ap_control* control) {
  if (GenericAudioProcessor* instance = instanceOf(control)) {
    try {
      instance->logDebugInfo();
    } catch (...) {
      // A failing standard output stream is not the host's problem here.
    }
  }
}

void vora_ap_set_message_hook(vora_ap_message_hook hook, void* context) {
  messageHook = hook;
  messageContext = context;
  vora::forEachControl([&](GenericAudioProcessor* instance, bool*) {
    if (instance != nullptr) {
      instance->setMessageHook(hook, context);
    }
  });
}

const char* vora_ap_get_wrapper_version(void) {
  return "3.4.0";
}

// The setters visit every control and answer with the newest control's
// result (an earlier failure is hidden by a later success, deliberately);
// the getters answer for the oldest control.

bool vora_ap_apply_preset_payload(unsigned char* payload) {
  if (payload == nullptr) {
    return false;
  }
  bool result = false;
  try {
    vora::forEachControl([&](GenericAudioProcessor* instance, bool*) {
      if (instance == nullptr) {
        return;
      }
      if (std::memcmp(instance->getCurrentPresetPayload(), payload, vora::kPresetPayloadSize) == 0) {
        result = true; // the same payload: the instance is not called at all
      } else {
        result = instance->applyPresetPayload(payload);
      }
    });
  } catch (...) {
    return false;
  }
  return result;
}

bool vora_ap_set_bypassed(bool bypassed) {
  bool result = false;
  vora::forEachControl([&](GenericAudioProcessor* instance, bool*) {
    if (instance != nullptr) {
      result = instance->setBypassed(bypassed);
    }
  });
  return result;
}

bool vora_ap_get_bypassed(void) {
  bool result = false;
  vora::forEachControl([&](GenericAudioProcessor* instance, bool* stop) {
    if (instance != nullptr) {
      result = instance->getBypassed();
      *stop = true;
    }
  });
  return result;
}

bool vora_ap_set_vorafication_intensity(float intensity) {
  bool result = false;
  vora::forEachControl([&](GenericAudioProcessor* instance, bool*) {
    if (instance != nullptr) {
      result = instance->setVoraficationIntensity(intensity);
    }
  });
  return result;
}

float vora_ap_get_vorafication_intensity(void) {
  float result = 0.0f;
  vora::forEachControl([&](GenericAudioProcessor* instance, bool* stop) {
    if (instance != nullptr) {
      result = instance->getVoraficationIntensity();
      *stop = true;
    }
  });
  return result;
}

int vora_ap_get_tech_level(void) {
  int result = 0;
  vora::forEachControl([&](GenericAudioProcessor* instance, bool* stop) {
    if (instance != nullptr) {
      result = instance->getTechLevel();
      *stop = true;
    }
  });
  return result;
}

const char* vora_ap_get_lib_version(void) {
  const char* result = nullptr;
  vora::forEachControl([&](GenericAudioProcessor* instance, bool* stop) {
    if (instance != nullptr) {
      result = instance->getLibVersion();
      *stop = true;
    }
  });
  return result;
}

const char* vora_ap_get_build_info(void) {
  return vora::RealFft::buildDescription();
}

} // extern "C"
