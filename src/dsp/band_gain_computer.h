// Per-band gain: a slow adaptive gain seen through a delay line, an
// instantaneous fast compressor above a threshold, and a fixed per-channel
// band gain. Called once per controlled band (0..12) per hop.
#pragma once

#include "dsp/one_pole_smoother.h"
#include "dsp/vorafier_parameters.h"

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

// `bandSums[ch]` is the sum of the channel's band-weighted magnitudes over the
// band's bins. Returns each channel's gain in dB and advances `state` by one hop.
BandGains computeBandGain(int band, const float* bandSums, int channelCount, const VorafierParameters& parameters,
                          float hopMilliseconds, SlowGainState& state);

} // namespace vora
