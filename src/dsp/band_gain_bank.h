// The gain computer of all thirteen controlled bands at once, four bands to
// a vector: the stages of computeBandGain (band_gain_computer.h) with each
// band's parameters and smoother in a lane, and the same arithmetic in the
// same order, so that it gives the same bits band by band. The slow delay
// lines stay per band.
#pragma once

#include "dsp/band_gain_computer.h"
#include "dsp/one_pole_smoother.h"
#include "dsp/vec4.h"
#include "dsp/vorafier_parameters.h"

#include <algorithm>
#include <cstdint>

namespace vora {

class BandGainBank {
public:
  static constexpr int kLanes = kBandLanes; // the controlled bands, in whole vectors

  BandGainBank() {
    // Each smoother's denormal guard starts where a smoother's does.
    std::fill(epsilon_, epsilon_ + kControlledBandCount, OnePoleSmoother().epsilon());
  }

  // Takes a parameter record and the hop length (ms), at set-up and with
  // every new record. The line and smoother lengths follow from them at the
  // next hop, as computeBandGain derives them on every hop.
  void configure(const VorafierParameters& parameters, float hopMilliseconds);

  // One hop: gainsDb[ch][band] from levelsDb[ch][band] (bandLevelDb of the
  // band sums) for ch < channelCount and bands 0..12; lanes 13..15 of each
  // row are written too, with no meaning.
  template <class Ops = Vec4Native>
  void compute(const float (*levelsDb)[kLanes], int channelCount, float (*gainsDb)[kLanes]) {
    if (derivePending_) {
      deriveLengths();
    }
    for (int band = 0; band < kControlledBandCount; ++band) {
      slowGainDb_[band] = lines_[band].values[lines_[band].readIndex];
    }
    const auto zero = Ops::broadcast(0.0f);
    const auto half = Ops::broadcast(0.5f);
    for (int i = 0; i < kLanes; i += 4) {
      const auto slowGainDb = Ops::load(slowGainDb_ + i);
      typename Ops::V levelOut[kMaxChannels], gainDb[kMaxChannels];
      for (int ch = 0; ch < channelCount; ++ch) {
        // Fast stage, per channel, on the band level seen through the slow gain.
        const auto levelDb = Ops::add(Ops::load(levelsDb[ch] + i), slowGainDb);
        const auto over = Ops::max(zero, Ops::sub(levelDb, Ops::load(fastThresholdDb_[ch] + i)));
        const auto fastGainDb = Ops::mul(Ops::load(fastRatioMinusOne_[ch] + i), over);
        levelOut[ch] = Ops::add(levelDb, fastGainDb);
        gainDb[ch] = Ops::add(slowGainDb, fastGainDb);
      }
      // Slow stage, common to both channels, on the mean level after fast
      // compression, through each band's smoother.
      const auto slowLevelDb = channelCount == 1 ? levelOut[0] : Ops::mul(Ops::add(levelOut[0], levelOut[1]), half);
      const auto excess =
          Ops::mul(Ops::max(zero, Ops::sub(slowLevelDb, Ops::load(slowThresholdDb_ + i))), Ops::load(slowFactor_ + i));
      const auto epsilon = Ops::load(epsilon_ + i);
      const auto stepped = Ops::add(
          epsilon, Ops::sub(Ops::mul(Ops::load(b_ + i), excess), Ops::mul(Ops::load(a_ + i), Ops::load(y_ + i))));
      Ops::store(y_ + i, Ops::select(Ops::load(passThrough_ + i), excess, stepped));
      Ops::store(epsilon_ + i, Ops::sub(zero, epsilon));
      for (int ch = 0; ch < channelCount; ++ch) {
        Ops::store(gainsDb[ch] + i, Ops::add(gainDb[ch], Ops::load(gainDb_[ch] + i)));
      }
    }
    for (int band = 0; band < kControlledBandCount; ++band) {
      advanceLine(lines_[band], y_[band]);
    }
  }

private:
  struct Line {
    float values[SlowGainState::kLineCapacity] = {};
    uint32_t writeIndex = 0;
    uint32_t readIndex = 0;
    uint32_t length = UINT32_MAX; // no delay is this long: forces a reset on first use
    uint32_t delayHops{};
  };

  void deriveLengths();

  // Writes the hop's slow gain -smoothed into the line and moves both
  // indices on, after clearing the line if its length changed.
  static void advanceLine(Line& line, float smoothed) {
    // Compared before raising to 1, so a 0 ms delay clears its one-entry
    // line every hop; harmless, since this hop's slow gain was read before.
    uint32_t delay = line.delayHops;
    if (delay != line.length) {
      delay = std::max(delay, 1u);
      line.length = delay;
      std::fill(line.values, line.values + delay, 0.0f);
    }
    line.values[line.writeIndex] = -smoothed;
    // The indices are not reset when the length changes, so one may be past
    // the end after a shorter delay: the remainder brings it back.
    line.writeIndex = (line.writeIndex + 1) % line.length;
    line.readIndex = (line.readIndex + 1) % line.length;
  }

  // Per band in lanes 0..12; lanes 13..15 stay zero.
  alignas(16) float fastThresholdDb_[kMaxChannels][kLanes] = {};
  alignas(16) float fastRatioMinusOne_[kMaxChannels][kLanes] = {};
  alignas(16) float gainDb_[kMaxChannels][kLanes] = {};
  alignas(16) float slowThresholdDb_[kLanes] = {};
  alignas(16) float slowFactor_[kLanes] = {};
  alignas(16) float slowGainDb_[kLanes] = {};
  // The smoothers' coefficients and state (y = ε + b·x - a·y; a pass-through
  // where a is infinite), stepped together.
  alignas(16) float a_[kLanes] = {};
  alignas(16) float b_[kLanes] = {};
  alignas(16) float y_[kLanes] = {};
  alignas(16) float epsilon_[kLanes] = {};
  alignas(16) float passThrough_[kLanes] = {}; // lanes of all ones where a is infinite

  float slowDelayMs_[kControlledBandCount] = {};
  float slowTimeConstantMs_[kControlledBandCount] = {};
  float hopMilliseconds_{};
  bool derivePending_ = true;
  OnePoleSmoother smoothers_[kControlledBandCount]; // their lengths, and their set-up when one changes
  Line lines_[kControlledBandCount];
};

} // namespace vora
