#include "stream.h"

#include <larkspin/vora_preset.h>

#include <cmath>

namespace larkspin_java {

Stream::Stream(int channels, int hop, int block)
    : channels_(channels), hop_(hop), block_(block),
      work_(static_cast<std::size_t>(channels) * static_cast<std::size_t>(block), 0.0f),
      carry_(static_cast<std::size_t>(channels) * static_cast<std::size_t>(hop), 0.0f), carried_(hop) {}

std::unique_ptr<Stream> Stream::create(float sampleRate, int maxBlockFrames, int channels) {
  vora_band_info bands[VORA_BAND_COUNT];
  // The hop is a quarter of the FFT the library uses at this rate.
  const int hop = vora_preset_band_layout(sampleRate, bands) / 4;
  if (hop <= 0 || maxBlockFrames < 1 || (channels != 1 && channels != 2)) {
    return nullptr;
  }
  const int block = std::max(maxBlockFrames, hop);
  std::unique_ptr<Stream> stream(new Stream(channels, hop, block));
  if (!stream->processor_.setup(sampleRate, block, channels)) {
    return nullptr;
  }
  stream->latencyFrames_ = static_cast<int>(std::lround(stream->processor_.getProcessingLatency())) + hop;
  return stream;
}

} // namespace larkspin_java
