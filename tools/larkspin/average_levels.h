// Long-term average spectrum (Welch's method, Hann window, half overlap), in
// dB, gathered chunk by chunk.
#pragma once

#include "larkspin/audio_file.h"

#include <memory>
#include <vector>

namespace larkspin_tool {

struct Spectrum {
  std::vector<double> frequencyHz;
  std::vector<double> levelDb; // power per bin, relative to a full-scale sine
};

class SpectrumMeter {
public:
  SpectrumMeter(int sampleRate, int channels, int fftSize = 4096);
  ~SpectrumMeter();
  SpectrumMeter(const SpectrumMeter&) = delete;
  SpectrumMeter& operator=(const SpectrumMeter&) = delete;

  void add(const float* interleaved, long frames);
  Spectrum spectrum() const;

private:
  struct State;
  std::unique_ptr<State> state_;
};

Spectrum averageSpectrum(const AudioData& audio, int fftSize = 4096);

} // namespace larkspin_tool
