// The transform work no implementation of this processor can avoid: the
// engine's own STFT framing (window, FFT, inverse FFT, window, overlap-add)
// with nothing between analysis and synthesis, same size, same FFT backend.
// The benchmarks measure everything else against it.
#pragma once

#include "dsp/stft.h"

#include <cstdint>

namespace larkspin_bench {

class BareStft {
public:
  explicit BareStft(uint32_t fftSize) { stft_.setup(fftSize); }

  // One hop per channel, in place.
  void process(float* const* buffers, int channelCount) {
    for (int c = 0; c < channelCount; ++c) {
      stft_.analyse(c, buffers[c]);
      stft_.synthesise(c);
      stft_.emit(c, buffers[c]);
    }
  }

  uint32_t hop() const { return stft_.hopSize(); }

private:
  vora::Stft stft_;
};

} // namespace larkspin_bench
