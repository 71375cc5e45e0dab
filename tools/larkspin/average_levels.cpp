#include "larkspin/average_levels.h"

#include <kiss_fftr.h>

#include <cmath>
#include <memory>
#include <numbers>

namespace larkspin_tool {

Spectrum averageSpectrum(const AudioData& audio, int fftSize) {
  const size_t n = static_cast<size_t>(fftSize);
  std::unique_ptr<std::remove_pointer_t<kiss_fftr_cfg>, decltype(&kiss_fftr_free)> plan(
      kiss_fftr_alloc(fftSize, 0, nullptr, nullptr), &kiss_fftr_free);
  std::vector<float> window(n), frame(n);
  double windowSum = 0.0;
  for (size_t i = 0; i < n; ++i) {
    window[i] = static_cast<float>(0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * static_cast<double>(i) / fftSize));
    windowSum += window[i];
  }
  std::vector<kiss_fft_cpx> bins(n / 2 + 1);
  std::vector<double> power(n / 2 + 1, 0.0);
  long frames = 0;
  for (const auto& channel : audio.channels) {
    for (size_t start = 0; start + n <= channel.size(); start += n / 2) {
      for (size_t i = 0; i < n; ++i) {
        frame[i] = channel[start + i] * window[i];
      }
      kiss_fftr(plan.get(), frame.data(), bins.data());
      for (size_t k = 0; k <= n / 2; ++k) {
        power[k] += static_cast<double>(bins[k].r) * bins[k].r + static_cast<double>(bins[k].i) * bins[k].i;
      }
      ++frames;
    }
  }
  Spectrum spectrum;
  // A full-scale sine gives a bin magnitude of windowSum / 2: that is 0 dB.
  const double reference = windowSum * windowSum / 4.0;
  for (size_t k = 1; k <= n / 2; ++k) {
    spectrum.frequencyHz.push_back(static_cast<double>(k) * audio.sampleRate / fftSize);
    const double mean = frames > 0 ? power[k] / static_cast<double>(frames) : 0.0;
    spectrum.levelDb.push_back(10.0 * std::log10(mean / reference + 1e-30));
  }
  return spectrum;
}

} // namespace larkspin_tool
