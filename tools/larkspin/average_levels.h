// Long-term average spectrum (Welch's method, Hann window), in dB.
#pragma once

#include "larkspin/audio_file.h"

#include <vector>

namespace larkspin_tool {

struct Spectrum {
  std::vector<double> frequencyHz;
  std::vector<double> levelDb; // power per bin, relative to a full-scale sine
};

Spectrum averageSpectrum(const AudioData& audio, int fftSize = 4096);

} // namespace larkspin_tool
