// Audio files through libsndfile: read and written in chunks of interleaved
// float frames, so that memory does not depend on a file's length. "-" stands
// for standard input or output; a pipe takes every readable format in, and
// au, flac or ogg out.
#pragma once

#include <memory>
#include <string>
#include <vector>

typedef struct sf_private_tag SNDFILE;

namespace larkspin_tool {

struct AudioData {
  int sampleRate = 0;
  int format = 0;          // libsndfile format of the source, reused for the output
  long promisedFrames = 0; // what a truncated source's header promised; 0 when complete
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
  ~AudioReader();
  AudioReader(const AudioReader&) = delete;
  AudioReader& operator=(const AudioReader&) = delete;

  int sampleRate() const { return sampleRate_; }
  int channels() const { return channels_; }
  int format() const { return format_; }
  long framesHint() const { return framesHint_; } // 0 when unknown (a pipe)
  // The frames an ordinary file's header promises, which a truncated file
  // does not hold; 0 when the header does not say (or on a pipe, whose
  // writer may not have known).
  long promisedFrames() const { return promisedFrames_; }
  const std::string& path() const { return path_; }

  // Reads up to `frames` interleaved frames; 0 at the end.
  long read(float* interleaved, long frames);

  struct Pipe;

private:
  struct Descriptor {
    int fd = -1;
    ~Descriptor();
  };
  std::string path_;
  Descriptor descriptor_;      // outlives pipe_ and file_
  std::unique_ptr<Pipe> pipe_; // outlives file_, which reads through it
  std::unique_ptr<SNDFILE, SndfileCloser> file_;
  int sampleRate_ = 0;
  int channels_ = 0;
  int format_ = 0;
  long framesHint_ = 0;
  long promisedFrames_ = 0;
};

class OutputFile;

// Writes to a path or to standard output through an OutputFile: the
// destination is replaced only by close(). Integer formats clip at full
// scale instead of wrapping. On a pipe only au, flac and ogg are written
// (the others complete their header last); anything else is refused here,
// before a sample is written.
class AudioWriter {
public:
  AudioWriter(const std::string& path, int sampleRate, int channels, int format);
  ~AudioWriter();
  AudioWriter(const AudioWriter&) = delete;
  AudioWriter& operator=(const AudioWriter&) = delete;

  void write(const float* interleaved, long frames);
  // Completes the file; throws ToolError when it could not be written.
  void close();
  // Then puts it in the destination's place.
  void commit();

  struct Sink;

private:
  std::string path_;
  std::unique_ptr<OutputFile> out_;
  std::unique_ptr<Sink> sink_; // outlives file_, which writes through it
  std::unique_ptr<SNDFILE, SndfileCloser> file_;
  int channels_ = 0;
};

// The output format: named by `formatName` (an extension such as "flac"),
// or else by the output path's extension, or else the input's. The sample
// encoding of the input is kept where the new container can hold it.
// Throws ToolError for a name or extension that cannot be written.
int chooseOutputFormat(const std::string& outputPath, const std::string& formatName, int inputFormat, int channels,
                       int sampleRate);

AudioData readAudioFile(const std::string& path);
void writeAudioFile(const std::string& path, const AudioData& audio);

// A float WAV format code, for generated files.
int wavFloatFormat();

} // namespace larkspin_tool
