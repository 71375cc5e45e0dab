// Audio files through libsndfile, held as one float vector per channel.
#pragma once

#include <string>
#include <vector>

namespace larkspin_tool {

struct AudioData {
  int sampleRate = 0;
  int format = 0; // libsndfile format of the source, reused for the output
  std::vector<std::vector<float>> channels;

  int channelCount() const { return static_cast<int>(channels.size()); }
  long frames() const { return channels.empty() ? 0 : static_cast<long>(channels[0].size()); }
};

AudioData readAudioFile(const std::string& path);

// Writes to `path`; integer formats clip at full scale instead of wrapping.
// On failure nothing is left at `path`.
void writeAudioFile(const std::string& path, const AudioData& audio);

// A 16-bit or float WAV format code, for generated files.
int wavFloatFormat();

} // namespace larkspin_tool
