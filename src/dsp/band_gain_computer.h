// Per-band gain: a slow adaptive gain seen through a delay line, an
// instantaneous fast compressor above a threshold, and a fixed per-channel
// band gain. Called once per controlled band (0..12) per hop. The engine
// runs the same stages for all bands at once (band_gain_bank.h); this is
// the form they are checked against.
#pragma once

#include "dsp/engine_constants.h"
#include "dsp/one_pole_smoother.h"
#include "dsp/vorafier_parameters.h"

#include <cmath>
#include <cstdint>

namespace vora {

// Slow path state of one band: a circular delay line of slow gains.
struct SlowGainState {
  static constexpr uint32_t kLineCapacity = 192; // hops; longer delays are clamped

  float line[kLineCapacity] = {};
  uint32_t writeIndex = 0;
  uint32_t readIndex = 0;
  uint32_t length = 999; // forces a reset on first use
  OnePoleSmoother smoother;
};

struct BandGains {
  float gainDb[kMaxChannels] = {0.0f, 0.0f};
};

// A band's level in dB as the gain computer measures it: 20·log10 of its
// band-weighted magnitude sum, kFloatMinimum keeping silence finite.
inline float bandLevelDb(float bandSum) {
  return 20.0f * std::log10(std::fabs(bandSum) + kFloatMinimum);
}

// `bandSums[ch]` is the sum of the channel's band-weighted magnitudes over the
// band's bins. Returns each channel's gain in dB and advances `state` by one hop.
BandGains computeBandGain(int band, const float* bandSums, int channelCount, const VorafierParameters& parameters,
                          float hopMilliseconds, SlowGainState& state);

} // namespace vora
