#include "larkspin/processing.h"

#include "larkspin/tool_error.h"

#include <larkspin/vora_ap.h>

#include <algorithm>
#include <mutex>

namespace larkspin_tool {

namespace {

// The library eases its mix towards a new intensity over about 50 ms and
// starts every control fully processed. Silence of this many hops before
// the file lets the mix settle as far as it goes: what is left of the ease
// swings around 5e-21, so a dry or bypassed run gives the input back bit for
// bit except where the input is exactly zero, where a residue of at most
// 1e-20 times the input's peak shows in float output.
constexpr int kSettleHops = 2048;
// The settling silence goes in calls of whole hops, which leave nothing
// queued: the file then meets the re-blocking exactly as in a fresh control.
constexpr int kSettleCallHops = 16;

// Set-up is serialised across workers, as the library asks of creating
// controls: it may build FFT plans through a planner that is not thread-safe.
std::mutex setupLock;

void configure(vora_ap_control* control, int sampleRate, int maximumFrames, int channels) {
  const std::lock_guard lock(setupLock);
  if (!vora_ap_update(control, static_cast<float>(sampleRate), maximumFrames, channels == 2 ? 1 : 0)) {
    const std::string hint = sampleRate > 0 && sampleRate < 32000
                                 ? "; --resample processes it at a multiple of its rate and converts back"
                                 : "";
    throw ToolError("the library does not accept a sample rate of " + std::to_string(sampleRate) +
                    " Hz (32000 to 192000 Hz)" + hint);
  }
}

} // namespace

void ControlDeleter::operator()(vora_ap_control* control) const {
  vora_ap_destroy_control(control);
}

std::vector<ControlHandle> makeControls(int count, const ProcessOptions& options) {
  if (options.blockFrames < 1) {
    throw ToolError("the block length must be at least 1 frame");
  }
  std::vector<ControlHandle> controls;
  for (int i = 0; i < count; ++i) {
    controls.emplace_back(vora_ap_create_control(48000.0f, options.blockFrames, 1));
    if (!controls.back()) {
      throw ToolError("the library refused to create a control");
    }
  }
  Payload payload = options.payload;
  if (!vora_ap_apply_preset_payload(payload.data())) {
    throw ToolError("the library refuses the preset");
  }
  vora_ap_set_vorafication_intensity(options.intensity);
  vora_ap_set_bypassed(options.bypass);
  return controls;
}

StreamProcessor::StreamProcessor(vora_ap_control* control, int sampleRate, int channels, const ProcessOptions& options)
    : options_(options), channels_(channels), control_(control), reblocking_(0) {
  configure(control, sampleRate, options.blockFrames, channels);
  latency_ = static_cast<int>(vora_ap_get_processing_latency(control));
  const int hop = hopFromLatency(latency_);
  reblocking_ = ReblockingModel(hop);
  const bool settle = (options.bypass || options.intensity < 1.0f) && hop > 0;
  const int settleCall = kSettleCallHops * hop;
  if (settle && settleCall > options.blockFrames) {
    // Room for the settling calls; a larger maximum changes nothing else.
    configure(control, sampleRate, settleCall, channels);
  }

  const size_t blockFrames = static_cast<size_t>(std::max(options.blockFrames, settle ? settleCall : 0));
  block_.assign(static_cast<size_t>(channels), std::vector<float>(blockFrames, 0.0f));
  for (auto& channel : block_) {
    pointers_.push_back(channel.data());
  }
  interleaved_.resize(blockFrames * static_cast<size_t>(channels));
  if (settle) {
    for (int done = 0; done < kSettleHops; done += kSettleCallHops) {
      for (auto& channel : block_) {
        std::fill(channel.begin(), channel.end(), 0.0f);
      }
      processBlock(settleCall);
      primeFrames_ += settleCall;
    }
  }
}

long StreamProcessor::delayFrames() const {
  return latency_ + reblocking_.totalPad();
}

void StreamProcessor::processBlock(int frames) {
  const int pad = reblocking_.nextPad(frames);
  const auto before = std::chrono::steady_clock::now();
  const bool ok = vora_ap_process(control_, pointers_.data(), frames);
  busy_ += std::chrono::steady_clock::now() - before;
  if (!ok) {
    throw ToolError("the library refused to process a block");
  }
  processedSamples_ += frames - pad;
  lastPad_ = pad;
}

void StreamProcessor::write(const float* interleaved, long frames, const FrameSink& sink) {
  const int block = options_.blockFrames;
  for (long i = 0; i < frames;) {
    const long take = std::min<long>(frames - i, block - filled_);
    for (long k = 0; k < take; ++k) {
      for (int ch = 0; ch < channels_; ++ch) {
        block_[static_cast<size_t>(ch)][static_cast<size_t>(filled_ + k)] = interleaved[(i + k) * channels_ + ch];
      }
    }
    filled_ += static_cast<int>(take);
    fed_ += take;
    i += take;
    if (filled_ == block) {
      runBlock(sink);
    }
  }
}

void StreamProcessor::finish(const FrameSink& sink) {
  // Always whole blocks, as a callback delivers them: the last one is padded
  // with silence, and with alignment silence follows until the tail is out.
  while (filled_ > 0 || (options_.align && emitted_ < fed_)) {
    for (auto& channel : block_) {
      std::fill(channel.begin() + filled_, channel.end(), 0.0f);
    }
    filled_ = options_.blockFrames;
    runBlock(sink);
  }
}

void StreamProcessor::runBlock(const FrameSink& sink) {
  const int block = options_.blockFrames;
  const long firstProcessed = processedSamples_;
  processBlock(block);
  filled_ = 0;
  if (options_.afterBlock) {
    options_.afterBlock(control_, fed_);
  }
  const int pad = lastPad_;

  // Which frames of this block's output to keep: with alignment the
  // processed frames whose input was a frame of the file, else everything
  // from the file's first block on.
  int first = 0;
  if (options_.align) {
    const long fileIndexOfFirst = firstProcessed - latency_ - primeFrames_;
    first = pad + static_cast<int>(std::clamp<long>(-fileIndexOfFirst, 0, block - pad));
  }
  const long count = std::min<long>(block - first, fed_ - emitted_);
  if (count <= 0) {
    return;
  }
  for (long k = 0; k < count; ++k) {
    for (int ch = 0; ch < channels_; ++ch) {
      interleaved_[static_cast<size_t>(k * channels_ + ch)] =
          block_[static_cast<size_t>(ch)][static_cast<size_t>(first + k)];
    }
  }
  emitted_ += count;
  sink(interleaved_.data(), count);
}

} // namespace larkspin_tool
