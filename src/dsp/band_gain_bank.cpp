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

} // namespace vora
