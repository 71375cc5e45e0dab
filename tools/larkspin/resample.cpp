#include "larkspin/resample.h"

#include "larkspin/tool_error.h"

#include <soxr.h>

#include <algorithm>
#include <cmath>

namespace larkspin_tool {

int supportedRateFor(int sampleRate) {
  constexpr int kLowestRate = 32000;
  const int factor = (kLowestRate + sampleRate - 1) / std::max(sampleRate, 1);
  return sampleRate * std::max(factor, 1);
}

AudioData resampleAudio(const AudioData& input, int sampleRate, long frames) {
  AudioData output;
  output.sampleRate = sampleRate;
  output.format = input.format;
  const double ratio = static_cast<double>(sampleRate) / input.sampleRate;
  const long length = frames >= 0 ? frames : std::lround(static_cast<double>(input.frames()) * ratio);
  const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
  const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
  for (const auto& channel : input.channels) {
    std::vector<float> converted(static_cast<size_t>(length), 0.0f);
    size_t done = 0;
    // One shot: the whole channel, with the converter's delay removed.
    const soxr_error_t error = soxr_oneshot(input.sampleRate, sampleRate, 1, channel.data(), channel.size(), nullptr,
                                            converted.data(), converted.size(), &done, &io, &quality, nullptr);
    if (error != nullptr) {
      throw ToolError(std::string("cannot convert the sample rate: ") + error);
    }
    output.channels.push_back(std::move(converted));
  }
  return output;
}

} // namespace larkspin_tool
