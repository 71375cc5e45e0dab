#include "larkspin/processing.h"

#include "larkspin/tool_error.h"

#include <larkspin/vora_ap.h>

#include <algorithm>
#include <chrono>
#include <memory>

namespace larkspin_tool {

namespace {

struct ControlDeleter {
  void operator()(vora_ap_control* control) const { vora_ap_destroy_control(control); }
};

} // namespace

ProcessResult processAudio(const AudioData& input, const ProcessOptions& options) {
  if (options.blockFrames < 1) {
    throw ToolError("the block length must be at least 1 frame");
  }
  const int channels = input.channelCount();
  std::unique_ptr<vora_ap_control, ControlDeleter> control(
      vora_ap_create_control(static_cast<float>(input.sampleRate), options.blockFrames, channels == 2 ? 1 : 0));
  if (!control) {
    throw ToolError("the library does not accept a sample rate of " + std::to_string(input.sampleRate) +
                    " Hz (32000 to 192000 Hz)");
  }
  Payload payload = options.payload;
  vora_ap_apply_preset_payload(payload.data());
  vora_ap_set_vorafication_intensity(options.intensity);
  vora_ap_set_bypassed(options.bypass);

  ProcessResult result;
  result.latencyFrames = static_cast<int>(vora_ap_get_processing_latency(control.get()));
  const long frames = input.frames();
  const long skip = options.align ? result.latencyFrames : 0;
  const long total = frames + skip; // with --align the tail is flushed with zeros

  result.output.sampleRate = input.sampleRate;
  result.output.format = input.format;
  result.output.channels.assign(static_cast<size_t>(channels), std::vector<float>(static_cast<size_t>(frames)));

  std::vector<std::vector<float>> block(static_cast<size_t>(channels),
                                        std::vector<float>(static_cast<size_t>(options.blockFrames)));
  std::vector<float*> pointers(static_cast<size_t>(channels));
  for (int ch = 0; ch < channels; ++ch) {
    pointers[static_cast<size_t>(ch)] = block[static_cast<size_t>(ch)].data();
  }

  // The library fades its mix over 50 ms; a bypassed run is primed with
  // silence so that the file is bypassed from its first sample.
  if (options.bypass) {
    const int primeFrames = input.sampleRate / 2;
    for (int done = 0; done < primeFrames; done += options.blockFrames) {
      for (float* channel : pointers) {
        std::fill(channel, channel + options.blockFrames, 0.0f);
      }
      vora_ap_process(control.get(), pointers.data(), std::min(options.blockFrames, primeFrames - done));
    }
  }

  std::chrono::steady_clock::duration busy{};
  long nextReport = 0;
  for (long start = 0; start < total; start += options.blockFrames) {
    // Always whole blocks, as a callback delivers them: the last one is
    // padded with silence and only its useful part is kept.
    const int count = options.blockFrames;
    for (int ch = 0; ch < channels; ++ch) {
      const auto& source = input.channels[static_cast<size_t>(ch)];
      float* destination = pointers[static_cast<size_t>(ch)];
      for (int i = 0; i < count; ++i) {
        const long at = start + i;
        destination[i] = at < frames ? source[static_cast<size_t>(at)] : 0.0f;
      }
    }
    const auto before = std::chrono::steady_clock::now();
    const bool ok = vora_ap_process(control.get(), pointers.data(), count);
    busy += std::chrono::steady_clock::now() - before;
    if (!ok) {
      throw ToolError("the library refused to process a block");
    }
    if (options.afterBlock) {
      options.afterBlock(control.get(), start + count);
    }
    for (int ch = 0; ch < channels; ++ch) {
      auto& destination = result.output.channels[static_cast<size_t>(ch)];
      for (int i = 0; i < count; ++i) {
        const long at = start + i - skip;
        if (at >= 0 && at < frames) {
          destination[static_cast<size_t>(at)] = pointers[static_cast<size_t>(ch)][i];
        }
      }
    }
    if (options.progress && start >= nextReport) {
      options.progress(static_cast<double>(start) / static_cast<double>(total));
      nextReport = start + total / 200 + 1;
    }
  }
  if (options.progress) {
    options.progress(1.0);
  }
  result.processingSeconds = std::chrono::duration<double>(busy).count();
  return result;
}

} // namespace larkspin_tool
