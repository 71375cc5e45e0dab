// What the dynamics did over time: the band gains the library reports after
// each block, drawn as a heat map (time across, band up, colour in dB) under
// the input's level over time.
#pragma once

#include "larkspin/audio_file.h"

#include <larkspin/vora_ap.h>

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace larkspin_tool {

class GainRecorder {
public:
  using Gains = std::array<float, size_t{VORA_AP_BAND_COUNT} * 2>; // band * 2 + channel, dB

  // Reads the control's band gains; `framesFed` dates them.
  void record(vora_ap_control* control, long framesFed);

  // SVG text. Each column is dated by the input frames fed so far, the end
  // of the last analysed frame.
  std::string render(const std::string& title, const AudioData& input) const;

private:
  std::vector<long> frames_;
  std::vector<Gains> gains_;
};

} // namespace larkspin_tool
