// Peak and RMS level of a signal, in dBFS, gathered chunk by chunk.
// Non-finite samples are counted but left out of both figures.
#pragma once

#include "larkspin/audio_file.h"

namespace larkspin_tool {

struct Levels {
  double peakDbfs = 0.0;
  double rmsDbfs = 0.0;
  long nonFiniteSamples = 0;
};

class LevelMeter {
public:
  void add(const float* samples, long count);
  Levels levels() const;

private:
  double peak_ = 0.0;
  double sumSquares_ = 0.0;
  long count_ = 0;
  long nonFinite_ = 0;
};

Levels measureLevels(const AudioData& audio);

} // namespace larkspin_tool
