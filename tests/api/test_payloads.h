// Payloads for api tests, built with the library's codec.
#pragma once

#include "dsp/payload_codec.h"

#include <array>

namespace larkspin_test {

using Payload = std::array<unsigned char, vora::kPresetPayloadSize>;

// No compression and no slow gain; `gainDb` in every band except
// `boostedBand`, which gets `boostDb`.
inline Payload flatPayload(float gainDb = 0.0f, int boostedBand = -1, float boostDb = 0.0f) {
  vora::VorafierParameters parameters;
  for (int b = 0; b < vora::kControlledBandCount; ++b) {
    auto& band = parameters.bands[static_cast<size_t>(b)];
    band.fastRatio0 = band.fastRatio1 = 1.0f;
    band.gainDb0 = band.gainDb1 = b == boostedBand ? boostDb : gainDb;
    band.slowThresholdDb = -40.0f;
    band.slowDelayMs = 10.0f;
    band.slowTimeConstantMs = 50.0f;
  }
  Payload payload{};
  vora::encodePresetPayload(parameters, payload.data());
  return payload;
}

} // namespace larkspin_test
