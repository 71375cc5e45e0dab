#include "dsp/pex_vorafier.h"

#include "dsp/bin_rebuild.h"
#include "dsp/payload_codec.h"

#include <algorithm>
#include <cmath>

namespace vora {

namespace {

// 10^(dB/20) as exp(dB × ln(10)/20): equal within float rounding, and
// cheaper than a general power.
float dbToGain(float db) {
  return std::exp(db * kNepersPerDecibel) - kFloatMinimum;
}

// Σ magnitude[k] × weight[k] over [first, end), with four partial sums so
// that the loop vectorises; the order of summation only moves rounding.
float weightedSum(const float* magnitude, const float* weight, uint32_t first, uint32_t end) {
  float partial[4] = {0.0f, 0.0f, 0.0f, 0.0f};
  uint32_t k = first;
  for (; k + 4 <= end; k += 4) {
    for (uint32_t j = 0; j < 4; ++j) {
      partial[j] += magnitude[k + j] * weight[k + j];
    }
  }
  for (; k < end; ++k) {
    partial[0] += magnitude[k] * weight[k];
  }
  return (partial[0] + partial[1]) + (partial[2] + partial[3]);
}

} // namespace

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
  hopMilliseconds_ = static_cast<float>(hopSize_) / sampleRate * 1000.0f;
  attackLength_ = limiterAttackSamples(sampleRate);
  releaseLength_ = limiterReleaseSamples(sampleRate);

  for (int ch = 0; ch < kMaxChannels; ++ch) {
    std::fill(channels_[ch].floorScale, channels_[ch].floorScale + kMaxBinCount, 1.0f);
    channels_[ch].envelopeFifo.initialise(fftSize, hopSize_);
    dryFifo_[ch].initialise(fftSize, hopSize_);
  }

  // The floor starts one bin above the bin of kFloorLowHz and ends two
  // above the bin of kFloorHighHz, so that the bins leaning on either edge
  // are inside.
  const float n = static_cast<float>(fftSize);
  floorFirstBin_ = static_cast<uint32_t>(std::ceil(n * kFloorLowHz / sampleRate) + 1.0f);
  floorEndBin_ = std::min(static_cast<uint32_t>(std::ceil(n * kFloorHighHz / sampleRate) + 2.0f), fftSize / 2);

  mixSmoother_.initialise(kMixSmoothingMs / hopMilliseconds_, 1.0f);
  configured_ = true;
  return static_cast<int>(hopSize_);
}

void PexVorafier::applyParameterPayload(const unsigned char* payload) {
  decodePresetPayload(payload, parameters_);
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
  float* spectrum = stft_.analyse(channel, input);
  // Bin 0 leaves the band processing; its real part and the Nyquist real
  // part are put back unchanged at synthesis.
  c.dcReal = spectrum[0];
  c.nyquistReal = spectrum[1];
  spectrum[0] = 0.0f;
  spectrum[1] = 0.0f;
  const uint32_t bins = fftSize_ / 2;
  for (uint32_t k = 0; k < bins; ++k) {
    const float re = spectrum[2 * k];
    const float im = spectrum[2 * k + 1];
    c.magnitude[k] = std::sqrt(re * re + im * im);
  }
  for (uint32_t k = floorFirstBin_; k < floorEndBin_; ++k) {
    const float m = c.magnitude[k];
    const float scale = m < kFloorMagnitude ? m / kFloorMagnitude : 1.0f;
    c.magnitude[k] = m * scale;
    c.floorScale[k] = scale;
  }
}

void PexVorafier::synthesise(int channel, float* output, bool limit) {
  SpectralChannel& c = channels_[channel];
  float* spectrum = stft_.spectrum(channel);
  scaleBins(spectrum, bandWeight_[channel], c.floorScale, fftSize_ / 2);
  spectrum[0] = c.dcReal;
  spectrum[1] = c.nyquistReal;
  float* overlap = stft_.synthesise(channel);
  if (limit) {
    c.limiter.limit(overlap, c.envelopeFifo, hopSize_, attackLength_, releaseLength_);
  }
  stft_.emit(channel, output);
}

void PexVorafier::processHop(float* const* io, float mixTarget, HopOptions options) {
  const int channelCount = io[1] != nullptr ? 2 : 1;
  const uint32_t hop = hopSize_;

  // A non-finite sample would poison the smoothers and the limiter for good,
  // and so would a finite one so large that the spectrum overflows.
  for (int ch = 0; ch < channelCount; ++ch) {
    float* samples = io[ch];
    for (uint32_t i = 0; i < hop; ++i) {
      if (!std::isfinite(samples[i])) {
        samples[i] = 0.0f;
      } else {
        samples[i] = std::clamp(samples[i], -kLargestInput, kLargestInput);
      }
    }
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
      std::fill(bandWeight_[ch], bandWeight_[ch] + fftSize_ / 2, 0.0f);
    }
    for (int band = 0; band < kBandCount; ++band) {
      const BandRange& range = bandBank_.ranges[band];
      const float* weights = bandBank_.weights[band];
      float sums[kMaxChannels] = {0.0f, 0.0f};
      for (int ch = 0; ch < channelCount; ++ch) {
        sums[ch] = weightedSum(channels_[ch].magnitude, weights, range.firstBin, range.endBin);
      }
      BandGains gains;
      if (band < kControlledBandCount) {
        gains = computeBandGain(band, sums, channelCount, parameters_, hopMilliseconds_, slowGain_[band]);
      }
      for (int ch = 0; ch < channelCount; ++ch) {
        readout_.bandSum[band][ch] = sums[ch];
        readout_.gainDb[band][ch] = gains.gainDb[ch];
      }
      // The new magnitude is Σ_b magnitude × weight_b × gain_b; the
      // magnitude is factored out and applied with the phase at synthesis.
      for (int ch = 0; ch < channelCount; ++ch) {
        const float gain = dbToGain(gains.gainDb[ch]);
        float* bandWeight = bandWeight_[ch];
        for (uint32_t k = range.firstBin; k < range.endBin; ++k) {
          bandWeight[k] += weights[k] * gain;
        }
      }
    }
    for (int ch = 0; ch < channelCount; ++ch) {
      synthesise(ch, io[ch], options.limit);
    }
  }

  if (mix < kDryThreshold) {
    const float dryGain = 1.0f - mix;
    for (int ch = 0; ch < channelCount; ++ch) {
      const float* dry = dryFifo_[ch].data();
      float* out = io[ch];
      for (uint32_t i = 0; i < hop; ++i) {
        out[i] = out[i] * mix + dry[i] * dryGain;
      }
    }
  }
}

} // namespace vora
