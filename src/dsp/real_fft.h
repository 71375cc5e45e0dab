// Real FFT of size N (256, 512 or 1024: the sizes isEngineFftSize accepts)
// with a fixed contract that the engine relies on, whatever the backend:
//   - forward is unscaled, inverse carries 1/N, so forward then inverse
//     returns the input;
//   - the spectrum is packed into N floats: element 0 is the real part of
//     bin 0, element 1 the real part of bin N/2, then the (Re, Im) pairs of
//     bins 1 .. N/2-1.
// The plan and every buffer are made by setup(); forward and inverse do not
// allocate.
#pragma once

#include "dsp/engine_constants.h"

#include <cstdint>
#include <memory>

namespace vora {

// Element-wise steps around a transform, folded into the passes its data
// make anyway; each gives bit for bit what a separate loop would.
struct FftForwardSteps {
  const float* window = nullptr; // transforms input × window
  float* magnitude = nullptr;    // also writes |X[k]|, k = 0 .. N/2-1 (bin 0: |Re bin 0|)
};
struct FftInverseSteps {
  const float* scaleA = nullptr; // bins 1 .. N/2-1 first multiplied by scaleA[k] × scaleB[k]
  const float* scaleB = nullptr;
  const float* window = nullptr; // output += result × window instead of output = result
};

class RealFft {
public:
  static constexpr uint32_t kMaxSize = kMaxFftSize;

  RealFft();
  ~RealFft();
  RealFft(const RealFft&) = delete;
  RealFft& operator=(const RealFft&) = delete;

  // Makes the plan for `size`. Not real-time safe. Returns false for a
  // size isEngineFftSize refuses, with every backend alike.
  bool setup(uint32_t size);
  uint32_t size() const { return size_; }

  // In place is allowed (input == output) unless `steps` add a window to
  // the inverse.
  void forward(const float* input, float* packedSpectrum, const FftForwardSteps& steps = {});
  void inverse(const float* packedSpectrum, float* output, const FftInverseSteps& steps = {});

  // Name of the backend compiled in ("own", "kissfft" or "fftw").
  static const char* backendName();
  // The backend and the instruction set its transform runs on, for people:
  // "own FFT, SSE2", "own FFT, NEON", "own FFT, plain C++", "KissFFT, plain C",
  // "FFTW3, vectors chosen at run time".
  static const char* buildDescription();

private:
  struct Backend;
  std::unique_ptr<Backend> backend_;
  uint32_t size_{};
};

} // namespace vora
