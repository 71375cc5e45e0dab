#include "dsp/preset_conversion.h"

#include "dsp/payload_codec.h"
#include "dsp/preset_fields.h"

namespace vora {

AudioProcessorPreset presetFromPayload(const unsigned char* payload) {
  VorafierParameters parameters;
  decodePresetPayload(payload, parameters);
  // Channel 0 carries every field, channel 1 only the per-channel ones.
  AudioProcessorPreset preset;
  for (unsigned channel = 0; channel < 2; ++channel) {
    for (unsigned band = 0; band < kControlledBandCount; ++band) {
      for (const PresetField& row : kPresetFields) {
        if (channel == 0 || row.perChannel()) {
          const float value = parameters.slot(row.kind, static_cast<int>(channel), static_cast<int>(band));
          preset.addParameter(row.id, value, channel, band);
        }
      }
    }
  }
  return preset;
}

VorafierParameters parametersFromPreset(const AudioProcessorPreset& preset) {
  VorafierParameters parameters; // level keeps its default: the processing does not use it
  const auto& values = preset.parameters();
  for (unsigned channel = 0; channel < 2; ++channel) {
    for (unsigned band = 0; band < kControlledBandCount; ++band) {
      for (const PresetField& row : kPresetFields) {
        const unsigned from = row.perChannel() ? channel : 0;
        const auto it = values.find(AudioProcessorPreset::makeKey(row.id, from, band));
        if (it != values.end()) {
          parameters.slot(row.kind, static_cast<int>(from), static_cast<int>(band)) = it->second;
        }
      }
    }
  }
  return parameters;
}

} // namespace vora
