#include "dsp/stft.h"

#include <algorithm>
#include <cmath>

namespace vora {

bool Stft::setup(uint32_t fftSize) {
  if (!fft_.setup(fftSize)) {
    return false;
  }
  fftSize_ = fftSize;
  hopSize_ = fftSize / kFramesPerHop;
  for (Channel& channel : channels_) {
    channel.input.initialise(fftSize, hopSize_);
    channel.overlap.initialise(fftSize, hopSize_);
  }

  // The analysis window carries 1/S (S = Σ w) and the synthesis window S
  // back, over the Hann-squared overlap sum, so that band levels do not
  // depend on N while the round trip stays at unity.
  const float n = static_cast<float>(fftSize);
  float windowSum = 0.0f;
  for (uint32_t i = 0; i < fftSize; ++i) {
    analysisWindow_[i] = (1.0f - std::cos(static_cast<float>(i) * kTwoPi / n)) * 0.5f;
    windowSum += analysisWindow_[i];
  }
  for (uint32_t i = 0; i < fftSize; ++i) {
    const float w = analysisWindow_[i];
    analysisWindow_[i] = w / windowSum;
    synthesisWindow_[i] = windowSum * w / kHannSquaredOverlapSum;
  }
  return true;
}

float* Stft::analyse(int channel, const float* hop, float* magnitude) {
  Channel& c = channels_[channel];
  c.input.push(hop);
  fft_.forward(c.input.data(), c.spectrum, {.window = analysisWindow_.data(), .magnitude = magnitude});
  return c.spectrum;
}

float* Stft::synthesise(int channel, const float* scaleA, const float* scaleB) {
  Channel& c = channels_[channel];
  float* overlap = c.overlap.data();
  fft_.inverse(c.spectrum, overlap, {.scaleA = scaleA, .scaleB = scaleB, .window = synthesisWindow_.data()});
  return overlap;
}

void Stft::emit(int channel, float* out) {
  Channel& c = channels_[channel];
  std::copy_n(c.overlap.data(), hopSize_, out);
  c.overlap.push(nullptr);
}

} // namespace vora
