// FFTW3 backend of RealFft (single precision). Optional: FFTW is GPL, which
// does not suit a library linked into closed applications.
#include "dsp/real_fft.h"

#include <fftw3.h>

#include <cmath>

namespace vora {

struct RealFft::Backend {
  fftwf_plan forwardPlan = nullptr;
  fftwf_plan inversePlan = nullptr;
  float* time = nullptr;
  float* halfComplex = nullptr; // r0, r1, ..., r(N/2), i(N/2-1), ..., i1

  ~Backend() {
    if (forwardPlan != nullptr) {
      fftwf_destroy_plan(forwardPlan);
    }
    if (inversePlan != nullptr) {
      fftwf_destroy_plan(inversePlan);
    }
    fftwf_free(time);
    fftwf_free(halfComplex);
  }
};

RealFft::RealFft() = default;
RealFft::~RealFft() = default;

const char* RealFft::backendName() {
  return "fftw";
}

const char* RealFft::buildDescription() {
  return "FFTW3, vectors chosen at run time";
}

bool RealFft::setup(uint32_t size) {
  if (!isEngineFftSize(size)) {
    return false;
  }
  if (backend_ && size_ == size) {
    return true;
  }
  auto backend = std::make_unique<Backend>();
  backend->time = fftwf_alloc_real(size);
  backend->halfComplex = fftwf_alloc_real(size);
  const int n = static_cast<int>(size);
  backend->forwardPlan = fftwf_plan_r2r_1d(n, backend->time, backend->halfComplex, FFTW_R2HC, FFTW_MEASURE);
  backend->inversePlan = fftwf_plan_r2r_1d(n, backend->halfComplex, backend->time, FFTW_HC2R, FFTW_MEASURE);
  if (backend->forwardPlan == nullptr || backend->inversePlan == nullptr) {
    return false;
  }
  backend_ = std::move(backend);
  size_ = size;
  return true;
}

void RealFft::forward(const float* input, float* packedSpectrum, const FftForwardSteps& steps) {
  float* magnitude = steps.magnitude;
  float* time = backend_->time;
  const float* hc = backend_->halfComplex;
  for (uint32_t n = 0; n < size_; ++n) {
    time[n] = steps.window != nullptr ? input[n] * steps.window[n] : input[n];
  }
  fftwf_execute(backend_->forwardPlan);
  const uint32_t half = size_ / 2;
  packedSpectrum[0] = hc[0];
  packedSpectrum[1] = hc[half];
  for (uint32_t k = 1; k < half; ++k) {
    packedSpectrum[2 * k] = hc[k];
    packedSpectrum[2 * k + 1] = hc[size_ - k];
  }
  if (magnitude != nullptr) {
    magnitude[0] = std::fabs(hc[0]);
    for (uint32_t k = 1; k < half; ++k) {
      magnitude[k] = std::sqrt(hc[k] * hc[k] + hc[size_ - k] * hc[size_ - k]);
    }
  }
}

void RealFft::inverse(const float* packedSpectrum, float* output, const FftInverseSteps& steps) {
  const float* scaleA = steps.scaleA;
  const float* scaleB = steps.scaleB;
  float* hc = backend_->halfComplex;
  const uint32_t half = size_ / 2;
  hc[0] = packedSpectrum[0];
  hc[half] = packedSpectrum[1];
  for (uint32_t k = 1; k < half; ++k) {
    const float scale = scaleA != nullptr ? scaleA[k] * scaleB[k] : 1.0f;
    hc[k] = packedSpectrum[2 * k] * scale;
    hc[size_ - k] = packedSpectrum[2 * k + 1] * scale;
  }
  fftwf_execute(backend_->inversePlan);
  const float scale = 1.0f / static_cast<float>(size_);
  for (uint32_t n = 0; n < size_; ++n) {
    const float x = backend_->time[n] * scale;
    output[n] = steps.window != nullptr ? output[n] + x * steps.window[n] : x;
  }
}

} // namespace vora
