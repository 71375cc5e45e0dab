// Runs audio through the library's C interface in host-sized blocks, as an
// audio callback would.
#pragma once

#include "larkspin/audio_file.h"
#include "larkspin/preset_file.h"

#include <larkspin/vora_ap.h>

#include <functional>

namespace larkspin_tool {

struct ProcessOptions {
  Payload payload{};
  float intensity = 1.0f;
  bool bypass = false;
  int blockFrames = 256;
  bool align = false;                            // drop the reported latency so output lines up with input
  std::function<void(double fraction)> progress; // optional
  // Optional: called after each processed block with the control and the
  // number of input frames fed so far (to read what the dynamics did).
  std::function<void(vora_ap_control* control, long framesFed)> afterBlock;
};

struct ProcessResult {
  AudioData output;
  int latencyFrames = 0;
  double processingSeconds = 0.0; // CPU-side wall time spent in vora_ap_process
};

// The output has the input's length. Throws ToolError when the library
// refuses the format.
ProcessResult processAudio(const AudioData& input, const ProcessOptions& options);

} // namespace larkspin_tool
