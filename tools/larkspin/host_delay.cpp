#include "larkspin/host_delay.h"

namespace larkspin_tool {

int ReblockingModel::nextPad(int frames) {
  queuedIn_ += frames;
  const long hops = hop_ > 0 ? queuedIn_ / hop_ : 0;
  queuedIn_ -= hops * hop_;
  queuedOut_ += hops * hop_;
  long pad = 0;
  if (hop_ <= 0) {
    pad = 0; // no re-blocking: the output is the input's block
  } else if (queuedOut_ == 0) {
    pad = frames;
  } else if (queuedOut_ < frames) {
    pad = frames - queuedOut_;
    queuedOut_ = 0;
  } else {
    queuedOut_ -= frames;
  }
  totalPad_ += pad;
  return static_cast<int>(pad);
}

int hopFromLatency(int latencyFrames) {
  return latencyFrames / 3;
}

} // namespace larkspin_tool
