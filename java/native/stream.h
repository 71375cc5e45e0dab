// One processor for Java callers: any number of frames per call, always the
// same delay.
//
// The library's delay equals its reported latency only when every block is
// a whole number of its hops. Callers hand over whatever their pipeline
// produced, so input collects here until whole hops are ready; those are
// processed at once (up to the block size) and the output is played out one
// hop behind. The delay is then the library's latency plus one hop for any
// sequence of call lengths, and each frame's output depends only on the
// stream, not on where it was cut.
#ifndef LARKSPIN_JAVA_STREAM_H
#define LARKSPIN_JAVA_STREAM_H

#include <larkspin/generic_audio_processor.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace larkspin_java {

class Stream {
public:
  // nullptr when the library refuses the configuration; throws
  // std::bad_alloc when memory runs out.
  static std::unique_ptr<Stream> create(float sampleRate, int maxBlockFrames, int channels);

  vora::GenericAudioProcessor& processor() { return processor_; }
  int channels() const { return channels_; }
  // The delay of every output frame behind its input frame.
  int latencyFrames() const { return latencyFrames_; }

  // Runs `frames` frames through: source(first, count, to) fills channel
  // buffers to[c][0..count) with input frames first..first+count of this
  // call, sink(first, count, from) takes the output frames. Input frames are
  // always read before the output frames of the same positions are written,
  // so source and sink may share memory frame for frame. Allocation-free.
  // False when the library refused a block (nothing more is processed).
  template <typename Source, typename Sink> bool run(std::int64_t frames, Source&& source, Sink&& sink);

private:
  Stream(int channels, int hop, int block);
  float* work(int c) { return work_.data() + static_cast<std::size_t>(c) * static_cast<std::size_t>(block_); }
  float* carry(int c) { return carry_.data() + static_cast<std::size_t>(c) * static_cast<std::size_t>(hop_); }

  vora::GenericAudioProcessor processor_;
  int channels_;
  int hop_;
  int block_;
  int latencyFrames_ = 0;
  // Input not yet processed: the first pending_ frames of work_ (< one hop
  // between calls). Output not yet played: the first carried_ frames of
  // carry_. pending_ + carried_ is always one hop.
  std::vector<float> work_;
  std::vector<float> carry_;
  int pending_ = 0;
  int carried_;
};

template <typename Source, typename Sink> bool Stream::run(std::int64_t frames, Source&& source, Sink&& sink) {
  float* work[2] = {this->work(0), channels_ > 1 ? this->work(1) : nullptr};
  float* carry[2] = {this->carry(0), channels_ > 1 ? this->carry(1) : nullptr};
  for (std::int64_t done = 0; done < frames;) {
    const int take = static_cast<int>(std::min<std::int64_t>(frames - done, block_ - pending_));
    float* at[2] = {work[0] + pending_, channels_ > 1 ? work[1] + pending_ : nullptr};
    source(done, take, at);
    const int filled = pending_ + take;
    const int whole = filled / hop_ * hop_;
    if (whole > 0 && !processor_.process(work, whole)) {
      return false;
    }
    // Out go the carried frames, then the freshly processed ones.
    const int fromCarry = std::min(take, carried_);
    const int fromWork = take - fromCarry;
    sink(done, fromCarry, carry);
    const float* processed[2] = {work[0], work[1]};
    sink(done + fromCarry, fromWork, processed);
    for (int c = 0; c < channels_; ++c) {
      if (fromCarry < carried_) { // then nothing was processed: take < one hop
        std::memmove(carry[c], carry[c] + fromCarry, sizeof(float) * static_cast<std::size_t>(carried_ - fromCarry));
      } else {
        std::memcpy(carry[c], work[c] + fromWork, sizeof(float) * static_cast<std::size_t>(whole - fromWork));
      }
      std::memmove(work[c], work[c] + whole, sizeof(float) * static_cast<std::size_t>(filled - whole));
    }
    carried_ = fromCarry < carried_ ? carried_ - fromCarry : whole - fromWork;
    pending_ = filled - whole;
    done += take;
  }
  return true;
}

} // namespace larkspin_java

#endif // LARKSPIN_JAVA_STREAM_H
