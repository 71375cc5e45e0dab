// The project's own backend of RealFft (the default): packed_real_fft.h run
// with the widest vectors the target has (SSE2 on x86-64, NEON on ARMv7).
#include "dsp/packed_real_fft.h"
#include "dsp/real_fft.h"
#include "dsp/vec4.h"

namespace vora {

struct RealFft::Backend {
  PackedRealFft<Vec4Native> fft;
};

RealFft::RealFft() = default;
RealFft::~RealFft() = default;

const char* RealFft::backendName() {
  return "own";
}

const char* RealFft::buildDescription() {
#if LARKSPIN_VEC4_SSE2
  return "own FFT, SSE2";
#elif LARKSPIN_VEC4_NEON
  return "own FFT, NEON";
#else
  return "own FFT, plain C++";
#endif
}

bool RealFft::setup(uint32_t size) {
  if (!isEngineFftSize(size)) {
    return false;
  }
  if (backend_ && size_ == size) {
    return true;
  }
  auto backend = std::make_unique<Backend>();
  if (!backend->fft.setup(size)) {
    return false;
  }
  backend_ = std::move(backend);
  size_ = size;
  return true;
}

void RealFft::forward(const float* input, float* packedSpectrum, const FftForwardSteps& steps) {
  backend_->fft.forward(input, packedSpectrum, steps);
}

void RealFft::inverse(const float* packedSpectrum, float* output, const FftInverseSteps& steps) {
  backend_->fft.inverse(packedSpectrum, output, steps);
}

} // namespace vora
