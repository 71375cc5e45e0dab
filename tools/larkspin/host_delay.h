// What a host gets back from the library, frame by frame. The library works
// in hops of a fixed length; when the host's blocks are not whole hops, each
// block that finds too few processed frames queued is led by silence. That
// silence adds to the reported latency, and once enough is queued it stops.
#pragma once

namespace larkspin_tool {

class ReblockingModel {
public:
  explicit ReblockingModel(int hopFrames) : hop_(hopFrames) {}

  // The number of leading silent frames in the output of the next call of
  // `frames` frames; the rest of that output is processed audio, in order.
  int nextPad(int frames);

  // Silent frames inserted so far: the delay beyond the reported latency.
  long totalPad() const { return totalPad_; }

private:
  int hop_;
  long queuedIn_ = 0;
  long queuedOut_ = 0;
  long totalPad_ = 0;
};

// The hop of a control, from its latency: the library's latency is three hops.
int hopFromLatency(int latencyFrames);

} // namespace larkspin_tool
