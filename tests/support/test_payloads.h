// Parameter records and payloads for tests, built with the library's codec.
#pragma once

#include "dsp/payload_codec.h"

#include <array>
#include <cmath>
#include <random>

namespace larkspin_test {

using Payload = std::array<unsigned char, vora::kPresetPayloadSize>;

// No compression and no slow gain; `gainDb` in every band except
// `boostedBand`, which gets `boostDb`.
inline vora::VorafierParameters flatParameters(float gainDb = 0.0f, int boostedBand = -1, float boostDb = 0.0f) {
  vora::VorafierParameters parameters;
  for (int b = 0; b < vora::kControlledBandCount; ++b) {
    auto& band = parameters.bands[static_cast<size_t>(b)];
    band.fastRatio0 = band.fastRatio1 = 1.0f;
    band.gainDb0 = band.gainDb1 = b == boostedBand ? boostDb : gainDb;
    band.slowThresholdDb = -40.0f;
    band.slowDelayMs = 10.0f;
    band.slowTimeConstantMs = 50.0f;
  }
  return parameters;
}

// Finite values that both the node and the payload's fields accept.
inline vora::VorafierParameters randomParameters(std::mt19937& random) {
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  vora::VorafierParameters parameters;
  for (auto& band : parameters.bands) {
    band.gainDb0 = -40.0f + 85.0f * unit(random);
    band.gainDb1 = -40.0f + 85.0f * unit(random);
    band.fastThresholdDb0 = -250.0f * unit(random);
    band.fastThresholdDb1 = -250.0f * unit(random);
    band.fastRatio0 = unit(random);
    band.fastRatio1 = unit(random);
    band.slowThresholdDb = -250.0f * unit(random);
    band.slowFactor = unit(random);
    band.slowDelayMs = std::floor(255.0f * unit(random));
    band.slowTimeConstantMs = std::floor(255.0f * unit(random));
  }
  return parameters;
}

inline Payload payloadOf(const vora::VorafierParameters& parameters) {
  Payload payload{};
  vora::encodePresetPayload(parameters, payload.data());
  return payload;
}

inline Payload flatPayload(float gainDb = 0.0f, int boostedBand = -1, float boostDb = 0.0f) {
  return payloadOf(flatParameters(gainDb, boostedBand, boostDb));
}

} // namespace larkspin_test
