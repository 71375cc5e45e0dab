// Runs audio through the library's C interface in host-sized blocks, as an
// audio callback would, chunk by chunk.
#pragma once

#include "larkspin/host_delay.h"
#include "larkspin/preset_file.h"

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

struct vora_ap_control;

namespace larkspin_tool {

struct ProcessOptions {
  Payload payload{};
  float intensity = 1.0f;
  bool bypass = false;
  int blockFrames = 256;
  bool align = false; // drop the whole delay so that the output lines up with the input
  // Optional: called after each block of the file (not during priming) with
  // the control and the number of input frames fed so far, to read what the
  // dynamics did.
  std::function<void(vora_ap_control* control, long framesFed)> afterBlock;
  // Optional: called with each chunk of the file's input as it is read.
  std::function<void(const float* interleaved, long frames, int channels)> afterRead;
};

// Receives interleaved output frames.
using FrameSink = std::function<void(const float* interleaved, long frames)>;

struct ControlDeleter {
  void operator()(vora_ap_control* control) const;
};
using ControlHandle = std::unique_ptr<vora_ap_control, ControlDeleter>;

// Creates `count` controls for blocks of options.blockFrames and gives them
// the options' preset, intensity and bypass. The library's setters reach every
// control at once, so this happens before any of them processes; each file
// then re-configures its control alone (see StreamProcessor), which keeps those
// settings. Throws ToolError when the library refuses.
std::vector<ControlHandle> makeControls(int count, const ProcessOptions& options);

// One file through one control and the host blocks around it. The control is
// re-configured for the file, so it starts afresh. The output has the input's
// length; with `align` it is shifted back by the delay the host sees: the
// reported latency plus the silence that re-blocking puts in front.
class StreamProcessor {
public:
  // Throws ToolError when the library refuses the sample rate.
  StreamProcessor(vora_ap_control* control, int sampleRate, int channels, const ProcessOptions& options);
  StreamProcessor(const StreamProcessor&) = delete;
  StreamProcessor& operator=(const StreamProcessor&) = delete;

  void write(const float* interleaved, long frames, const FrameSink& sink);
  // Pushes out the rest: the last partial block and, when aligning, the tail.
  void finish(const FrameSink& sink);

  int latencyFrames() const { return latency_; }
  // The delay removed by `align`: latency plus re-blocking silence.
  long delayFrames() const;
  double processingSeconds() const { return std::chrono::duration<double>(busy_).count(); }

private:
  void runBlock(const FrameSink& sink);
  void processBlock(int frames);

  ProcessOptions options_;
  int channels_;
  vora_ap_control* control_;
  int latency_ = 0;
  ReblockingModel reblocking_;
  std::vector<std::vector<float>> block_; // planar, one host block
  std::vector<float*> pointers_;
  std::vector<float> interleaved_;
  int filled_ = 0;            // input frames in the current block
  long fed_ = 0;              // input frames of the file so far
  long emitted_ = 0;          // output frames handed on so far
  long processedSamples_ = 0; // processed (non-silence) frames out of the library, priming included
  long primeFrames_ = 0;
  int lastPad_ = 0; // leading silence of the last block
  std::chrono::steady_clock::duration busy_{};
};

} // namespace larkspin_tool
