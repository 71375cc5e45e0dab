// Peak and RMS level of a whole signal, in dBFS.
#pragma once

#include "larkspin/audio_file.h"

namespace larkspin_tool {

struct Levels {
  double peakDbfs = 0.0;
  double rmsDbfs = 0.0;
};

Levels measureLevels(const AudioData& audio);

} // namespace larkspin_tool
