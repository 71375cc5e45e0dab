// Audio files through libsndfile: read and written in chunks of interleaved
// float frames, so that memory does not depend on a file's length. "-" stands
// for standard input or output.
#pragma once

#include <memory>
#include <string>
#include <vector>

typedef struct sf_private_tag SNDFILE;

namespace larkspin_tool {

struct AudioData {
  int sampleRate = 0;
  int format = 0; // libsndfile format of the source, reused for the output
  std::vector<std::vector<float>> channels;

  int channelCount() const { return static_cast<int>(channels.size()); }
  long frames() const { return channels.empty() ? 0 : static_cast<long>(channels[0].size()); }
};

struct SndfileCloser {
  void operator()(SNDFILE* file) const;
};

class AudioReader {
public:
  // Throws ToolError for a file that cannot be read, or one with other than
  // one or two channels.
  explicit AudioReader(const std::string& path);

  int sampleRate() const { return sampleRate_; }
  int channels() const { return channels_; }
  int format() const { return format_; }
  long framesHint() const { return framesHint_; } // 0 when unknown (a pipe)
  const std::string& path() const { return path_; }

  // Reads up to `frames` interleaved frames; 0 at the end.
  long read(float* interleaved, long frames);

private:
  std::string path_;
  std::unique_ptr<SNDFILE, SndfileCloser> file_;
  int sampleRate_ = 0;
  int channels_ = 0;
  int format_ = 0;
  long framesHint_ = 0;
};

// Writes to a path or to standard output. Integer formats clip at full scale
// instead of wrapping. Unless close() succeeds, nothing is left at the path.
class AudioWriter {
public:
  AudioWriter(const std::string& path, int sampleRate, int channels, int format);
  ~AudioWriter();
  AudioWriter(const AudioWriter&) = delete;
  AudioWriter& operator=(const AudioWriter&) = delete;

  void write(const float* interleaved, long frames);
  void close();

private:
  std::string path_;
  std::unique_ptr<SNDFILE, SndfileCloser> file_;
  int channels_ = 0;
  bool closed_ = false;
};

// The output format: named by `formatName` (an extension such as "flac"),
// or else by the output path's extension, or else the input's. The sample
// encoding of the input is kept where the new container can hold it.
// Throws ToolError for a name or extension that cannot be written.
int chooseOutputFormat(const std::string& outputPath, const std::string& formatName, int inputFormat, int channels,
                       int sampleRate);

// Removes a partly written output; only ordinary files are touched.
void removePartialFile(const std::string& path);

AudioData readAudioFile(const std::string& path);
void writeAudioFile(const std::string& path, const AudioData& audio);

// A float WAV format code, for generated files.
int wavFloatFormat();

} // namespace larkspin_tool
