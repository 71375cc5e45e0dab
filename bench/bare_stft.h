// The transform work no implementation of this processor can avoid, laid
// out as the engine lays out its own STFT: per hop and channel, analysis
// window, forward FFT, inverse FFT, synthesis window and overlap-add, with
// the same FFT backend. The benchmarks measure everything else against it.
#pragma once

#include "dsp/hop_fifo.h"
#include "dsp/real_fft.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>

namespace larkspin_bench {

class BareStft {
public:
  explicit BareStft(uint32_t fftSize) : fftSize_(fftSize), hop_(fftSize / 4) {
    fft_.setup(fftSize);
    for (uint32_t i = 0; i < fftSize; ++i) {
      const double w = 0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * double(i) / double(fftSize));
      window_[i] = static_cast<float>(w);
      synthesis_[i] = static_cast<float>(w * 2.0 / 3.0);
    }
    for (auto& channel : channels_) {
      channel.input.initialise(fftSize, hop_);
      channel.overlap.initialise(fftSize, hop_);
    }
  }

  // One hop per channel, in place.
  void process(float* const* buffers, int channelCount) {
    for (int c = 0; c < channelCount; ++c) {
      Channel& channel = channels_[c];
      channel.input.push(buffers[c]);
      const float* frame = channel.input.data();
      for (uint32_t i = 0; i < fftSize_; ++i) {
        work_[i] = frame[i] * window_[i];
      }
      fft_.forward(work_, work_);
      fft_.inverse(work_, work_);
      channel.overlap.push(nullptr);
      float* overlap = channel.overlap.data();
      for (uint32_t i = 0; i < fftSize_; ++i) {
        overlap[i] += work_[i] * synthesis_[i];
      }
      std::copy_n(overlap, hop_, buffers[c]);
    }
  }

  uint32_t hop() const { return hop_; }

private:
  struct Channel {
    vora::HopFifo input;
    vora::HopFifo overlap;
  };
  uint32_t fftSize_;
  uint32_t hop_;
  vora::RealFft fft_;
  float window_[vora::RealFft::kMaxSize] = {};
  float synthesis_[vora::RealFft::kMaxSize] = {};
  float work_[vora::RealFft::kMaxSize] = {};
  Channel channels_[2];
};

} // namespace larkspin_bench
