// The payload every whole-path measurement uses: every band compressing and
// boosting, so that no stage of the engine idles.
#pragma once

#include "dsp/payload_codec.h"
#include "dsp/vorafier_parameters.h"

#include <array>

inline std::array<unsigned char, vora::kPresetPayloadSize> benchmarkPayload() {
  vora::VorafierParameters parameters;
  for (auto& band : parameters.bands) {
    band.fastThresholdDb0 = band.fastThresholdDb1 = -30.0f;
    band.fastRatio0 = band.fastRatio1 = 0.5f;
    band.gainDb0 = band.gainDb1 = 6.0f;
    band.slowThresholdDb = -50.0f;
    band.slowFactor = 0.5f;
    band.slowDelayMs = 10.0f;
    band.slowTimeConstantMs = 50.0f;
  }
  std::array<unsigned char, vora::kPresetPayloadSize> payload{};
  vora::encodePresetPayload(parameters, payload.data());
  return payload;
}
