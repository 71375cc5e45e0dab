// What the dynamics did over time: the band gains the library reports after
// each block, drawn as a heat map (time across, band up, colour in dB) under
// the input's level over time.
#pragma once

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
  // Adds input frames to the level drawn above the map.
  void addInput(const float* interleaved, long frames, int channels);

  // SVG text. Each column is dated by the input frames fed so far, the end
  // of the last analysed frame. `contentRate`, when given, is the rate the
  // input had before it was converted up: bands above its Nyquist frequency
  // hold nothing and are drawn as empty.
  std::string render(const std::string& title, int sampleRate, int channels, int contentRate = 0) const;

private:
  // Only what the picture can show is kept, so that memory does not grow
  // with the input's length: the gains of every stride-th block (the last of
  // each run of blocks, and always the latest block) and the input's power
  // over stretches of stretchFrames_; each halves its count when full.
  std::vector<long> frames_;
  std::vector<Gains> gains_;
  long stride_ = 1;
  long blocksInEntry_ = 0;
  std::array<double, VORA_AP_BAND_COUNT> largestDb_{}; // largest gain or cut of any block, per band
  std::vector<double> power_;                          // sum of squares over each stretch, all channels
  long stretchFrames_ = 1;
  long inputFrames_ = 0;
};

} // namespace larkspin_tool
