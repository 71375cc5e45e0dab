#include "dsp/band_gain_bank.h"

#include <bit>
#include <cmath>

namespace vora {

void BandGainBank::configure(const VorafierParameters& parameters, float hopMilliseconds) {
  for (int band = 0; band < kControlledBandCount; ++band) {
    const VorafierBandRecord& record = parameters.bands[static_cast<std::size_t>(band)];
    for (int ch = 0; ch < kMaxChannels; ++ch) {
      fastThresholdDb_[ch][band] = record.fastThresholdDb(ch);
      fastRatioMinusOne_[ch][band] = record.fastRatio(ch) - 1.0f;
      gainDb_[ch][band] = record.gainDb(ch);
    }
    slowThresholdDb_[band] = record.slowThresholdDb;
    slowFactor_[band] = record.slowFactor;
    slowDelayMs_[band] = record.slowDelayMs;
    slowTimeConstantMs_[band] = record.slowTimeConstantMs;
  }
  hopMilliseconds_ = hopMilliseconds;
  derivePending_ = true;
}

void BandGainBank::deriveLengths() {
  for (int band = 0; band < kControlledBandCount; ++band) {
    const float delayHops = std::ceil(slowDelayMs_[band] / hopMilliseconds_);
    lines_[band].delayHops = delayHops < static_cast<float>(SlowGainState::kLineCapacity)
                                 ? static_cast<uint32_t>(std::max(delayHops, 0.0f))
                                 : SlowGainState::kLineCapacity;
    const float timeConstantHops = slowTimeConstantMs_[band] / hopMilliseconds_;
    OnePoleSmoother& smoother = smoothers_[band];
    if (!smoother.hasLength(timeConstantHops)) {
      smoother.initialise(timeConstantHops, 0.0f);
      a_[band] = smoother.a();
      b_[band] = smoother.b();
      y_[band] = smoother.state();
      passThrough_[band] = std::bit_cast<float>(std::isinf(smoother.a()) ? ~0u : 0u);
    }
  }
  derivePending_ = false;
}

void BandGainBank::advanceLine(Line& line, float smoothed) {
  // Compared before raising to 1, so a 0 ms delay clears its one-entry line
  // every hop; harmless, since this hop's slow gain was read before.
  uint32_t delay = line.delayHops;
  if (delay != line.length) {
    delay = std::max(delay, 1u);
    line.length = delay;
    std::fill(line.values, line.values + delay, 0.0f);
  }
  line.values[line.writeIndex] = -smoothed;
  // The indices are not reset when the length changes, so one may be past
  // the end after a shorter delay: the remainder brings it back.
  const auto next = [&line](uint32_t index) { return index + 1 < line.length ? index + 1 : (index + 1) % line.length; };
  line.writeIndex = next(line.writeIndex);
  line.readIndex = next(line.readIndex);
}

} // namespace vora
