#include "larkspin/audio_file.h"

#include "larkspin/tool_error.h"

#include <sndfile.h>

#include <cstdio>
#include <memory>

namespace larkspin_tool {

namespace {

struct SndfileCloser {
  void operator()(SNDFILE* file) const { sf_close(file); }
};
using SndfileHandle = std::unique_ptr<SNDFILE, SndfileCloser>;

constexpr sf_count_t kChunkFrames = 4096;

} // namespace

AudioData readAudioFile(const std::string& path) {
  SF_INFO info{};
  SndfileHandle file(sf_open(path.c_str(), SFM_READ, &info));
  if (!file) {
    throw ToolError("cannot read '" + path + "': " + sf_strerror(nullptr));
  }
  if (info.channels < 1 || info.channels > 2) {
    throw ToolError("'" + path + "' has " + std::to_string(info.channels) +
                    " channels; only mono and stereo files can be processed");
  }
  AudioData audio;
  audio.sampleRate = info.samplerate;
  audio.format = info.format;
  audio.channels.assign(static_cast<size_t>(info.channels), {});
  for (auto& channel : audio.channels) {
    channel.reserve(static_cast<size_t>(info.frames));
  }
  std::vector<float> interleaved(static_cast<size_t>(kChunkFrames * info.channels));
  for (;;) {
    const sf_count_t got = sf_readf_float(file.get(), interleaved.data(), kChunkFrames);
    if (got <= 0) {
      break;
    }
    for (sf_count_t i = 0; i < got; ++i) {
      for (int ch = 0; ch < info.channels; ++ch) {
        audio.channels[static_cast<size_t>(ch)].push_back(interleaved[static_cast<size_t>(i * info.channels + ch)]);
      }
    }
  }
  return audio;
}

void writeAudioFile(const std::string& path, const AudioData& audio) {
  SF_INFO info{};
  info.samplerate = audio.sampleRate;
  info.channels = audio.channelCount();
  info.format = audio.format;
  if (!sf_format_check(&info)) {
    throw ToolError("cannot write '" + path + "' in the input's format");
  }
  SndfileHandle file(sf_open(path.c_str(), SFM_WRITE, &info));
  if (!file) {
    throw ToolError("cannot write '" + path + "': " + sf_strerror(nullptr));
  }
  sf_command(file.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);

  const long frames = audio.frames();
  const int channels = audio.channelCount();
  std::vector<float> interleaved(static_cast<size_t>(kChunkFrames * channels));
  bool ok = true;
  for (long start = 0; start < frames && ok; start += kChunkFrames) {
    const long count = std::min<long>(kChunkFrames, frames - start);
    for (long i = 0; i < count; ++i) {
      for (int ch = 0; ch < channels; ++ch) {
        interleaved[static_cast<size_t>(i * channels + ch)] =
            audio.channels[static_cast<size_t>(ch)][static_cast<size_t>(start + i)];
      }
    }
    ok = sf_writef_float(file.get(), interleaved.data(), count) == count;
  }
  file.reset();
  if (!ok) {
    std::remove(path.c_str());
    throw ToolError("writing '" + path + "' failed");
  }
}

int wavFloatFormat() {
  return SF_FORMAT_WAV | SF_FORMAT_FLOAT;
}

} // namespace larkspin_tool
