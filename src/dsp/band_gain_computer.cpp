#include "dsp/band_gain_computer.h"

#include "dsp/engine_constants.h"

#include <algorithm>
#include <cmath>

namespace vora {

BandGains computeBandGain(int band, const float* bandSums, int channelCount, const VorafierParameters& parameters,
                          float hopMilliseconds, SlowGainState& state) {
  const VorafierBandRecord& record = parameters.bands[static_cast<std::size_t>(band)];
  BandGains result;
  float levelOut[kMaxChannels] = {0.0f, 0.0f};

  // Fast stage, per channel, on the band level seen through the slow gain.
  const float slowGainDb = state.line[state.readIndex];
  for (int ch = 0; ch < channelCount; ++ch) {
    const float levelDb = 20.0f * std::log10(std::fabs(bandSums[ch]) + kFloatMinimum) + slowGainDb;
    const float over = std::max(levelDb - record.fastThresholdDb(ch), 0.0f);
    const float fastGainDb = (record.fastRatio(ch) - 1.0f) * over;
    levelOut[ch] = levelDb + fastGainDb;
    result.gainDb[ch] = slowGainDb + fastGainDb;
  }

  // Slow stage, common to both channels, driven by the mean level after
  // fast compression.
  const float slowLevelDb = channelCount == 1 ? levelOut[0] : (levelOut[0] + levelOut[1]) * 0.5f;

  const float delayHops = std::ceil(record.slowDelayMs / hopMilliseconds);
  uint32_t delay = delayHops < static_cast<float>(SlowGainState::kLineCapacity)
                       ? static_cast<uint32_t>(std::max(delayHops, 0.0f))
                       : SlowGainState::kLineCapacity;
  // Compared before raising to 1, so a 0 ms delay clears its one-entry line
  // every hop; harmless, since this hop's slow gain was read above.
  if (delay != state.length) {
    delay = std::max(delay, 1u);
    state.length = delay;
    std::fill(state.line, state.line + delay, 0.0f);
  }

  const float timeConstantHops = record.slowTimeConstantMs / hopMilliseconds;
  if (!state.smoother.hasLength(timeConstantHops)) {
    state.smoother.initialise(timeConstantHops, 0.0f);
  }
  const float excess = std::max(slowLevelDb - record.slowThresholdDb, 0.0f) * record.slowFactor;
  const float smoothed = state.smoother.step(excess);

  state.line[state.writeIndex] = -smoothed;
  state.writeIndex = (state.writeIndex + 1) % state.length;
  state.readIndex = (state.readIndex + 1) % state.length;

  for (int ch = 0; ch < channelCount; ++ch) {
    result.gainDb[ch] += record.gainDb(ch);
  }
  return result;
}

} // namespace vora
