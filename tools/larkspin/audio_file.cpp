#include "larkspin/audio_file.h"

#include "larkspin/tool_error.h"

#include <sndfile.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <unistd.h>

namespace larkspin_tool {

namespace {

constexpr long kChunkFrames = 4096;

std::string lowercase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

// The container named by an extension, from libsndfile's own table, or 0.
int majorFormatFor(std::string extension) {
  extension = lowercase(extension);
  // Common names that libsndfile's table spells differently.
  if (extension == "aif") {
    extension = "aiff";
  } else if (extension == "snd") {
    extension = "au";
  } else if (extension == "ogg") {
    extension = "oga";
  } else if (extension == "mp3") {
    extension = "m1a";
  }
  int count = 0;
  sf_command(nullptr, SFC_GET_FORMAT_MAJOR_COUNT, &count, sizeof(count));
  for (int i = 0; i < count; ++i) {
    SF_FORMAT_INFO info{};
    info.format = i;
    sf_command(nullptr, SFC_GET_FORMAT_MAJOR, &info, sizeof(info));
    if (info.extension != nullptr && extension == info.extension) {
      return info.format;
    }
  }
  return 0;
}

bool canWrite(int format, int channels, int sampleRate) {
  SF_INFO info{};
  info.format = format;
  info.channels = channels;
  info.samplerate = sampleRate;
  return sf_format_check(&info) != 0;
}

} // namespace

void SndfileCloser::operator()(SNDFILE* file) const {
  sf_close(file);
}

AudioReader::AudioReader(const std::string& path) : path_(path) {
  SF_INFO info{};
  file_.reset(path == "-" ? sf_open_fd(STDIN_FILENO, SFM_READ, &info, SF_FALSE)
                          : sf_open(path.c_str(), SFM_READ, &info));
  if (!file_) {
    throw ToolError("cannot read '" + path + "': " + sf_strerror(nullptr));
  }
  if (info.channels < 1 || info.channels > 2) {
    throw ToolError("'" + path + "' has " + std::to_string(info.channels) +
                    " channels; only mono and stereo files can be processed");
  }
  sampleRate_ = info.samplerate;
  channels_ = info.channels;
  format_ = info.format;
  // A pipe reports an unknown length as the largest count.
  framesHint_ = info.frames > 0 && info.frames < SF_COUNT_MAX ? static_cast<long>(info.frames) : 0;
}

long AudioReader::read(float* interleaved, long frames) {
  const sf_count_t got = sf_readf_float(file_.get(), interleaved, frames);
  if (got < 0) {
    throw ToolError("reading '" + path_ + "' failed");
  }
  return static_cast<long>(got);
}

AudioWriter::AudioWriter(const std::string& path, int sampleRate, int channels, int format)
    : path_(path), channels_(channels) {
  SF_INFO info{};
  info.samplerate = sampleRate;
  info.channels = channels;
  info.format = format;
  if (!sf_format_check(&info)) {
    throw ToolError("cannot write '" + path + "' in the chosen format");
  }
  file_.reset(path == "-" ? sf_open_fd(STDOUT_FILENO, SFM_WRITE, &info, SF_FALSE)
                          : sf_open(path.c_str(), SFM_WRITE, &info));
  if (!file_) {
    throw ToolError("cannot write '" + path + "': " + sf_strerror(nullptr));
  }
  sf_command(file_.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
}

AudioWriter::~AudioWriter() {
  if (!closed_) {
    file_.reset();
    if (path_ != "-") {
      removePartialFile(path_);
    }
  }
}

void AudioWriter::write(const float* interleaved, long frames) {
  if (frames > 0 && sf_writef_float(file_.get(), interleaved, frames) != frames) {
    throw ToolError("writing '" + path_ + "' failed: " + sf_strerror(file_.get()));
  }
}

void AudioWriter::close() {
  // The header is completed on closing, so a full disk may show only here.
  const int error = sf_close(file_.release());
  if (error != 0) {
    throw ToolError("writing '" + path_ + "' failed: " + sf_error_number(error));
  }
  closed_ = true;
}

int chooseOutputFormat(const std::string& outputPath, const std::string& formatName, int inputFormat, int channels,
                       int sampleRate) {
  int major = inputFormat & SF_FORMAT_TYPEMASK;
  if (!formatName.empty()) {
    major = majorFormatFor(formatName);
    if (major == 0) {
      throw ToolError("unknown output format '" + formatName + "'");
    }
  } else if (outputPath != "-") {
    const std::string extension = std::filesystem::path(outputPath).extension().string();
    if (extension.size() > 1) {
      major = majorFormatFor(extension.substr(1));
      if (major == 0) {
        throw ToolError("cannot write '" + outputPath + "': unknown extension '" + extension +
                        "' (name the format with --format)");
      }
    }
  }
  const int subtypes[] = {
      inputFormat & SF_FORMAT_SUBMASK, SF_FORMAT_FLOAT, SF_FORMAT_PCM_24, SF_FORMAT_PCM_16, SF_FORMAT_VORBIS,
      SF_FORMAT_MPEG_LAYER_III};
  for (int subtype : subtypes) {
    if (canWrite(major | subtype, channels, sampleRate)) {
      return major | subtype;
    }
  }
  throw ToolError("cannot write '" + outputPath + "': the format cannot hold " + std::to_string(channels) +
                  " channels at " + std::to_string(sampleRate) + " Hz");
}

void removePartialFile(const std::string& path) {
  std::error_code error;
  if (std::filesystem::is_regular_file(path, error)) {
    std::filesystem::remove(path, error);
  }
}

AudioData readAudioFile(const std::string& path) {
  AudioReader reader(path);
  AudioData audio;
  audio.sampleRate = reader.sampleRate();
  audio.format = reader.format();
  const int channels = reader.channels();
  audio.channels.assign(static_cast<size_t>(channels), {});
  std::vector<float> interleaved(static_cast<size_t>(kChunkFrames * channels));
  for (long got; (got = reader.read(interleaved.data(), kChunkFrames)) > 0;) {
    for (long i = 0; i < got; ++i) {
      for (int ch = 0; ch < channels; ++ch) {
        audio.channels[static_cast<size_t>(ch)].push_back(interleaved[static_cast<size_t>(i * channels + ch)]);
      }
    }
  }
  return audio;
}

void writeAudioFile(const std::string& path, const AudioData& audio) {
  const int channels = audio.channelCount();
  AudioWriter writer(path, audio.sampleRate, channels, audio.format);
  std::vector<float> interleaved(static_cast<size_t>(kChunkFrames * channels));
  for (long start = 0; start < audio.frames(); start += kChunkFrames) {
    const long count = std::min(kChunkFrames, audio.frames() - start);
    for (long i = 0; i < count; ++i) {
      for (int ch = 0; ch < channels; ++ch) {
        interleaved[static_cast<size_t>(i * channels + ch)] =
            audio.channels[static_cast<size_t>(ch)][static_cast<size_t>(start + i)];
      }
    }
    writer.write(interleaved.data(), count);
  }
  writer.close();
}

int wavFloatFormat() {
  return SF_FORMAT_WAV | SF_FORMAT_FLOAT;
}

} // namespace larkspin_tool
