// KissFFT backend of RealFft (BSD licence; the default).
#include "dsp/real_fft.h"

#include <kiss_fftr.h>

#include <cmath>

namespace vora {

struct RealFft::Backend {
  kiss_fftr_cfg forwardPlan = nullptr;
  kiss_fftr_cfg inversePlan = nullptr;
  kiss_fft_cpx bins[kMaxSize / 2 + 1] = {};
  float time[kMaxSize] = {};

  ~Backend() {
    kiss_fftr_free(forwardPlan);
    kiss_fftr_free(inversePlan);
  }
};

RealFft::RealFft() = default;
RealFft::~RealFft() = default;

const char* RealFft::backendName() {
  return "kissfft";
}

const char* RealFft::buildDescription() {
  return "KissFFT, plain C";
}

bool RealFft::setup(uint32_t size) {
  if (!isEngineFftSize(size)) {
    return false;
  }
  if (backend_ && size_ == size) {
    return true;
  }
  auto backend = std::make_unique<Backend>();
  backend->forwardPlan = kiss_fftr_alloc(static_cast<int>(size), 0, nullptr, nullptr);
  backend->inversePlan = kiss_fftr_alloc(static_cast<int>(size), 1, nullptr, nullptr);
  if (backend->forwardPlan == nullptr || backend->inversePlan == nullptr) {
    return false;
  }
  backend_ = std::move(backend);
  size_ = size;
  return true;
}

void RealFft::forward(const float* input, float* packedSpectrum, const FftForwardSteps& steps) {
  float* magnitude = steps.magnitude;
  if (steps.window != nullptr) {
    for (uint32_t n = 0; n < size_; ++n) {
      backend_->time[n] = input[n] * steps.window[n];
    }
    input = backend_->time;
  }
  kiss_fftr(backend_->forwardPlan, input, backend_->bins);
  const uint32_t half = size_ / 2;
  const kiss_fft_cpx* bins = backend_->bins;
  packedSpectrum[0] = bins[0].r;
  packedSpectrum[1] = bins[half].r;
  for (uint32_t k = 1; k < half; ++k) {
    packedSpectrum[2 * k] = bins[k].r;
    packedSpectrum[2 * k + 1] = bins[k].i;
  }
  if (magnitude != nullptr) {
    magnitude[0] = std::fabs(bins[0].r);
    for (uint32_t k = 1; k < half; ++k) {
      magnitude[k] = std::sqrt(bins[k].r * bins[k].r + bins[k].i * bins[k].i);
    }
  }
}

void RealFft::inverse(const float* packedSpectrum, float* output, const FftInverseSteps& steps) {
  const float* scaleA = steps.scaleA;
  const float* scaleB = steps.scaleB;
  const uint32_t half = size_ / 2;
  kiss_fft_cpx* bins = backend_->bins;
  bins[0].r = packedSpectrum[0];
  bins[0].i = 0.0f;
  bins[half].r = packedSpectrum[1];
  bins[half].i = 0.0f;
  for (uint32_t k = 1; k < half; ++k) {
    const float scale = scaleA != nullptr ? scaleA[k] * scaleB[k] : 1.0f;
    bins[k].r = packedSpectrum[2 * k] * scale;
    bins[k].i = packedSpectrum[2 * k + 1] * scale;
  }
  kiss_fftri(backend_->inversePlan, bins, backend_->time);
  const float scale = 1.0f / static_cast<float>(size_);
  for (uint32_t n = 0; n < size_; ++n) {
    const float x = backend_->time[n] * scale;
    output[n] = steps.window != nullptr ? output[n] + x * steps.window[n] : x;
  }
}

} // namespace vora
