// What the dynamics did over time: the band gains the library reports after
// each block, drawn as a heat map (time across, band up, colour in dB) under
// the input's level over time.
#pragma once

#include "larkspin/audio_file.h"

#include <larkspin/vora_ap.h>

#include <array>
#include <string>
#include <vector>

namespace larkspin_tool {

class GainRecorder {
public:
  using Gains = std::array<float, VORA_AP_BAND_COUNT * 2>; // band * 2 + channel, dB

  // Reads the control's band gains; `framesFed` dates them.
  void record(vora_ap_control* control, long framesFed);

  // SVG text. Each column is dated by the input frames fed so far, the end
  // of the last analysed frame. `contentRate`, when given, is the rate the
  // input had before it was converted up: bands above its Nyquist frequency
  // hold nothing and are drawn as empty.
  std::string render(const std::string& title, const AudioData& input, int contentRate = 0) const;

private:
  std::vector<long> frames_;
  std::vector<Gains> gains_;
};

} // namespace larkspin_tool
