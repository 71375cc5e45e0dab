#include "larkspin/average_levels.h"

#include <kiss_fftr.h>

#include <cmath>
#include <numbers>

namespace larkspin_tool {

struct SpectrumMeter::State {
  int sampleRate;
  int channels;
  size_t n;
  std::unique_ptr<std::remove_pointer_t<kiss_fftr_cfg>, decltype(&kiss_fftr_free)> plan{nullptr, &kiss_fftr_free};
  std::vector<float> window, frame;
  double windowSum = 0.0;
  std::vector<std::vector<float>> history; // the last n samples of each channel
  std::vector<kiss_fft_cpx> bins;
  std::vector<double> power;
  size_t total = 0; // samples of each channel so far
  long frames = 0;
};

SpectrumMeter::SpectrumMeter(int sampleRate, int channels, int fftSize) : state_(std::make_unique<State>()) {
  State& s = *state_;
  s.sampleRate = sampleRate;
  s.channels = channels;
  s.n = static_cast<size_t>(fftSize);
  s.plan.reset(kiss_fftr_alloc(fftSize, 0, nullptr, nullptr));
  s.window.resize(s.n);
  s.frame.resize(s.n);
  for (size_t i = 0; i < s.n; ++i) {
    s.window[i] = static_cast<float>(0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * static_cast<double>(i) / fftSize));
    s.windowSum += s.window[i];
  }
  s.history.assign(static_cast<size_t>(channels), std::vector<float>(s.n, 0.0f));
  s.bins.resize(s.n / 2 + 1);
  s.power.assign(s.n / 2 + 1, 0.0);
}

SpectrumMeter::~SpectrumMeter() = default;

void SpectrumMeter::add(const float* interleaved, long frames) {
  State& s = *state_;
  for (long i = 0; i < frames; ++i) {
    // The history is a ring indexed by the running sample count; a frame
    // is analysed every half frame once the ring is full.
    const size_t at = s.total % s.n;
    for (int ch = 0; ch < s.channels; ++ch) {
      s.history[static_cast<size_t>(ch)][at] = interleaved[i * s.channels + ch];
    }
    ++s.total;
    if (s.total < s.n || (s.total - s.n) % (s.n / 2) != 0) {
      continue;
    }
    const size_t oldest = s.total % s.n;
    for (const auto& channel : s.history) {
      for (size_t k = 0; k < s.n; ++k) {
        s.frame[k] = channel[(oldest + k) % s.n] * s.window[k];
      }
      kiss_fftr(s.plan.get(), s.frame.data(), s.bins.data());
      for (size_t k = 0; k <= s.n / 2; ++k) {
        s.power[k] += static_cast<double>(s.bins[k].r) * s.bins[k].r + static_cast<double>(s.bins[k].i) * s.bins[k].i;
      }
      ++s.frames;
    }
  }
}

Spectrum SpectrumMeter::spectrum() const {
  const State& s = *state_;
  Spectrum spectrum;
  // A full-scale sine gives a bin magnitude of windowSum / 2: that is 0 dB.
  const double reference = s.windowSum * s.windowSum / 4.0;
  for (size_t k = 1; k <= s.n / 2; ++k) {
    spectrum.frequencyHz.push_back(static_cast<double>(k) * s.sampleRate / static_cast<double>(s.n));
    const double mean = s.frames > 0 ? s.power[k] / static_cast<double>(s.frames) : 0.0;
    spectrum.levelDb.push_back(10.0 * std::log10(mean / reference + 1e-30));
  }
  return spectrum;
}

Spectrum averageSpectrum(const AudioData& audio, int fftSize) {
  const int channels = audio.channelCount();
  SpectrumMeter meter(audio.sampleRate, channels, fftSize);
  std::vector<float> interleaved(static_cast<size_t>(channels));
  for (long i = 0; i < audio.frames(); ++i) {
    for (int ch = 0; ch < channels; ++ch) {
      interleaved[static_cast<size_t>(ch)] = audio.channels[static_cast<size_t>(ch)][static_cast<size_t>(i)];
    }
    meter.add(interleaved.data(), 1);
  }
  return meter.spectrum();
}

} // namespace larkspin_tool
