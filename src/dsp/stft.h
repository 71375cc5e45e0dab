// Short-time Fourier framing of up to two channels: each hop (N/4 samples)
// enters a frame of the last N samples, which is windowed and transformed;
// the caller works on the spectrum; the inverse transform is windowed again
// and overlap-added, and the oldest hop of the sum is complete.
//
//   hop ─► input frame (N) ─► × analysis window ─► FFT ─► spectrum
//   spectrum ─► inverse FFT ─► × synthesis window ─► + overlap (N) ─► hop
//
// The windows are a periodic Hann pair whose product overlap-adds to one at
// a hop of N/4, so an untouched spectrum gives the input back N - hop
// samples late. Nothing allocates after setup().
#pragma once

#include "dsp/engine_constants.h"
#include "dsp/hop_fifo.h"
#include "dsp/real_fft.h"

#include <array>
#include <cstdint>

namespace vora {

class Stft {
public:
  // Sizes everything for an FFT of `fftSize` points (isEngineFftSize) and
  // clears the frames. Makes the FFT plan; not real-time safe. False for a
  // size the FFT refuses, which leaves the previous set-up as it was (as
  // the FFT keeps its previous plan).
  bool setup(uint32_t fftSize);

  uint32_t fftSize() const { return fftSize_; }
  uint32_t hopSize() const { return hopSize_; }
  // Samples between a hop entering analyse() and leaving emit(): N - hop.
  uint32_t latency() const { return fftSize_ - hopSize_; }

  // Moves `hop` (hopSize() samples) into the channel's frame, windows it and
  // transforms it. Returns the channel's packed spectrum (RealFft's layout),
  // which the caller may change in place before synthesise(). With
  // `magnitude`, also |X[k]| for k = 0 .. N/2-1, as RealFft::forward.
  float* analyse(int channel, const float* hop, float* magnitude = nullptr);
  // Transforms the channel's spectrum back, windows it and adds it into the
  // overlap buffer, which it returns: N samples, of which the first hop is
  // now complete and may be changed in place before emit(). With `scaleA`
  // and `scaleB`, bins 1 .. N/2-1 are first multiplied by
  // scaleA[k] × scaleB[k], as RealFft::inverse.
  float* synthesise(int channel, const float* scaleA = nullptr, const float* scaleB = nullptr);
  // Copies the complete hop to `out` and moves the overlap buffer on.
  void emit(int channel, float* out);

  const float* analysisWindow() const { return analysisWindow_.data(); }
  const float* synthesisWindow() const { return synthesisWindow_.data(); }

private:
  struct Channel {
    HopFifo input;
    HopFifo overlap;
    alignas(16) float spectrum[kMaxFftSize] = {};
  };

  uint32_t fftSize_{};
  uint32_t hopSize_{};
  RealFft fft_;
  Channel channels_[kMaxChannels];
  // Arrays, so that a checked build bounds every index into them.
  alignas(16) std::array<float, kMaxFftSize> analysisWindow_{};
  alignas(16) std::array<float, kMaxFftSize> synthesisWindow_{};
};

} // namespace vora
