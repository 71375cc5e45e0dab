#include "dsp/preset_conversion.h"

#include "dsp/payload_codec.h"

namespace vora {

namespace {

struct Entry {
  ParameterIdentifier id;
  VorafierKind kind;
};

constexpr Entry kChannelEntries[] = {
    {ParameterIdentifier::vorafier_gain, VorafierKind::Gain},
    {ParameterIdentifier::vorafier_fast_threshold, VorafierKind::FastThreshold},
    {ParameterIdentifier::vorafier_fast_ratio, VorafierKind::FastRatio},
};

// The identifiers number factor before delay; the record stores delay first.
constexpr Entry kSharedEntries[] = {
    {ParameterIdentifier::vorafier_slow_threshold, VorafierKind::SlowThreshold},
    {ParameterIdentifier::vorafier_slow_factor, VorafierKind::SlowFactor},
    {ParameterIdentifier::vorafier_slow_delay, VorafierKind::SlowDelay},
    {ParameterIdentifier::vorafier_slow_time_constant, VorafierKind::SlowTimeConstant},
};

} // namespace

AudioProcessorPreset presetFromPayload(const unsigned char* payload) {
  VorafierParameters parameters;
  decodePresetPayload(payload, parameters);
  AudioProcessorPreset preset;
  for (unsigned band = 0; band < kControlledBandCount; ++band) {
    for (const Entry& entry : kChannelEntries) {
      preset.addParameter(entry.id, parameters.slot(entry.kind, 0, static_cast<int>(band)), 0, band);
    }
    for (const Entry& entry : kSharedEntries) {
      preset.addParameter(entry.id, parameters.slot(entry.kind, 0, static_cast<int>(band)), 0, band);
    }
  }
  for (unsigned band = 0; band < kControlledBandCount; ++band) {
    for (const Entry& entry : kChannelEntries) {
      preset.addParameter(entry.id, parameters.slot(entry.kind, 1, static_cast<int>(band)), 1, band);
    }
  }
  return preset;
}

VorafierParameters parametersFromPreset(const AudioProcessorPreset& preset) {
  VorafierParameters parameters;
  parameters.level = 1.0f;
  const auto& values = preset.parameters();
  auto read = [&](ParameterIdentifier id, unsigned row, unsigned band, float& slot) {
    const auto it = values.find(AudioProcessorPreset::makeKey(id, row, band));
    if (it != values.end()) {
      slot = it->second;
    }
  };
  for (unsigned row = 0; row < 2; ++row) {
    for (unsigned band = 0; band < kControlledBandCount; ++band) {
      const int b = static_cast<int>(band);
      for (const Entry& entry : kChannelEntries) {
        read(entry.id, row, band, parameters.slot(entry.kind, static_cast<int>(row), b));
      }
      for (const Entry& entry : kSharedEntries) {
        read(entry.id, 0, band, parameters.slot(entry.kind, 0, b));
      }
    }
  }
  return parameters;
}

} // namespace vora
