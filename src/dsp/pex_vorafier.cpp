#include "dsp/pex_vorafier.h"

#include "dsp/engine_kernels.h"
#include "dsp/payload_codec.h"

#include <algorithm>
#include <cmath>

namespace vora {

PexVorafier::PexVorafier() = default;

int PexVorafier::setup(float sampleRate) {
  if (!(sampleRate >= kMinSampleRate && sampleRate <= kMaxSampleRate)) {
    configured_ = false;
    return -1;
  }
  const uint32_t fftSize = fftSizeForRate(sampleRate);
  bandBank_.build(sampleRate, fftSize, kBandThresholdDb);
  if (!stft_.setup(fftSize)) {
    configured_ = false;
    return -1;
  }
  fftSize_ = fftSize;
  hopSize_ = stft_.hopSize();
  bandSpans_.build(bandBank_);
  hopMilliseconds_ = static_cast<float>(hopSize_) / sampleRate * 1000.0f;
  attackLength_ = limiterAttackSamples(sampleRate);
  releaseLength_ = limiterReleaseSamples(sampleRate);

  for (int ch = 0; ch < kMaxChannels; ++ch) {
    std::fill(channels_[ch].floorScale, channels_[ch].floorScale + kMaxBinCount, 1.0f);
    dryFifo_[ch].initialise(fftSize, hopSize_);
  }

  // The floor starts one bin above the bin of kFloorLowHz and ends two
  // above the bin of kFloorHighHz, so that the bins leaning on either edge
  // are inside.
  const float n = static_cast<float>(fftSize);
  floorFirstBin_ = static_cast<uint32_t>(std::ceil(n * kFloorLowHz / sampleRate) + 1.0f);
  floorEndBin_ = std::min(static_cast<uint32_t>(std::ceil(n * kFloorHighHz / sampleRate) + 2.0f), fftSize / 2);

  mixSmoother_.initialise(kMixSmoothingMs / hopMilliseconds_, 1.0f);
  gainBank_.configure(parameters_, hopMilliseconds_);
  configured_ = true;
  return static_cast<int>(hopSize_);
}

void PexVorafier::applyParameterPayload(const unsigned char* payload) {
  decodePresetPayload(payload, parameters_);
  gainBank_.configure(parameters_, hopMilliseconds_);
  presetApplied_ = true;
}

uint32_t PexVorafier::latency() const {
  return configured_ ? stft_.latency() : 0;
}

void PexVorafier::processStereo(float** channels, bool bypass, float mix) {
  if (!configured_ || !presetApplied_) {
    return;
  }
  float* const pair[kMaxChannels] = {channels[0], channels[1]};
  processHop(pair, bypass ? 0.0f : mix, {.smoothMix = true, .limit = true});
}

void PexVorafier::processMono(float* channel, bool bypass, float mix) {
  if (!configured_ || !presetApplied_) {
    return;
  }
  float* const pair[kMaxChannels] = {channel, nullptr};
  processHop(pair, bypass ? 0.0f : mix, {.smoothMix = true, .limit = true});
}

void PexVorafier::analyse(int channel, const float* input) {
  SpectralChannel& c = channels_[channel];
  stft_.analyse(channel, input, c.magnitude);
  // Bin 0 leaves the band processing; synthesis scales bins 1 .. N/2-1 only,
  // so the DC and Nyquist parts pass unchanged.
  c.magnitude[0] = 0.0f;
  applyFloor(c.magnitude, c.floorScale, floorFirstBin_, floorEndBin_);
}

// Band levels, the gain computer and, per bin, W[k] = Σ_b weight_b[k] ×
// gain_b: the new magnitude is the analysis magnitude times W, applied with
// the phase at synthesis. The levels, gains and their conversions run for
// four bands at a time.
void PexVorafier::computeBandWeights(int channelCount) {
  const float* magnitude[kMaxChannels] = {channels_[0].magnitude, channels_[1].magnitude};
  bandSums(magnitude, channelCount, bandSpans_.weights, bandSpans_.first, bandSpans_.end, kBandCount, bandSums_);
  // The rows of the channels follow each other: one call converts all.
  const uint32_t lanes = static_cast<uint32_t>(kLanes * channelCount);
  levelsDb(&bandSums_[0][0], &levelsDb_[0][0], lanes);
  gainBank_.compute(levelsDb_, channelCount, gainsDb_);
  for (int ch = 0; ch < channelCount; ++ch) {
    gainsDb_[ch][kBandCount - 1] = 0.0f; // the top band passes at unity
  }
  dbToGains(&gainsDb_[0][0], &gains_[0][0], lanes);

  const float* gains[kMaxChannels] = {gains_[0], gains_[1]};
  float* bandWeight[kMaxChannels] = {bandWeight_[0], bandWeight_[1]};
  bandWeightsPerBin(bandSpans_.weights, bandSpans_.bandsFrom, bandSpans_.bandsTo, gains, channelCount, bandWeight,
                    fftSize_ / 2);
  for (int band = 0; band < kBandCount; ++band) {
    for (int ch = 0; ch < channelCount; ++ch) {
      readout_.bandSum[band][ch] = bandSums_[ch][band];
      readout_.gainDb[band][ch] = gainsDb_[ch][band];
    }
  }
}

// The new bin is the analysis bin times W[k] × floorScale[k]: the band
// bank's new magnitude over the original one, so the phase is kept without
// a polar round trip (a zero bin stays zero). The inverse transform applies
// it on its way in.
void PexVorafier::synthesise(int channel, float* output, bool limit) {
  SpectralChannel& c = channels_[channel];
  float* overlap = stft_.synthesise(channel, bandWeight_[channel], c.floorScale);
  if (limit) {
    c.limiter.limit(overlap, limiterEnvelope_, hopSize_, attackLength_, releaseLength_);
  }
  stft_.emit(channel, output);
}

void PexVorafier::processHop(float* const* io, float mixTarget, HopOptions options) {
  const int channelCount = io[1] != nullptr ? 2 : 1;
  const uint32_t hop = hopSize_;

  // A non-finite sample would poison the smoothers and the limiter for good,
  // and so would a finite one so large that the spectrum overflows.
  for (int ch = 0; ch < channelCount; ++ch) {
    sanitiseSamples(io[ch], hop);
  }

  const float mix = options.smoothMix ? mixSmoother_.step(mixTarget) : mixTarget;
  if (mix < kDryThreshold) {
    for (int ch = 0; ch < channelCount; ++ch) {
      dryFifo_[ch].push(io[ch]);
    }
  }

  if (mix > kWetThreshold) {
    for (int ch = 0; ch < channelCount; ++ch) {
      analyse(ch, io[ch]);
    }
    computeBandWeights(channelCount);
    for (int ch = 0; ch < channelCount; ++ch) {
      synthesise(ch, io[ch], options.limit);
    }
  }

  if (mix < kDryThreshold) {
    for (int ch = 0; ch < channelCount; ++ch) {
      crossfade(io[ch], dryFifo_[ch].data(), mix, hop);
    }
  }
}

} // namespace vora
