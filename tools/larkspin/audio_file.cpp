#include "larkspin/audio_file.h"

#include "larkspin/file_output.h"
#include "larkspin/tool_error.h"

#include <sndfile.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

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

// Bytes per sample of an encoding whose data size gives its frame count;
// 0 for compressed ones.
int fixedSampleBytes(int format) {
  switch (format & SF_FORMAT_SUBMASK) {
  case SF_FORMAT_PCM_S8:
  case SF_FORMAT_PCM_U8:
  case SF_FORMAT_ULAW:
  case SF_FORMAT_ALAW:
    return 1;
  case SF_FORMAT_PCM_16:
    return 2;
  case SF_FORMAT_PCM_24:
    return 3;
  case SF_FORMAT_PCM_32:
  case SF_FORMAT_FLOAT:
    return 4;
  case SF_FORMAT_DOUBLE:
    return 8;
  default:
    return 0;
  }
}

// An ordinary file seen as if it had no end. libsndfile shortens a header's
// frame count to what the file holds; read through this view, the header
// says what it promised.
struct EndlessView {
  int fd;
  sf_count_t position = 0;

  static sf_count_t length(void*) { return SF_COUNT_MAX; }
  static sf_count_t seek(sf_count_t offset, int whence, void* data) {
    auto* view = static_cast<EndlessView*>(data);
    const sf_count_t target = whence == SEEK_SET ? offset : whence == SEEK_CUR ? view->position + offset : -1;
    if (target < 0) {
      return -1;
    }
    return view->position = target;
  }
  static sf_count_t read(void* bytes, sf_count_t count, void* data) {
    auto* view = static_cast<EndlessView*>(data);
    const ssize_t got = ::pread(view->fd, bytes, static_cast<size_t>(count), view->position);
    if (got <= 0) {
      return 0;
    }
    view->position += got;
    return got;
  }
  static sf_count_t tell(void* data) { return static_cast<EndlessView*>(data)->position; }
};

// The frames `fd`'s header promises (see AudioReader::promisedFrames).
long promisedFramesOf(int fd, const SF_INFO& info) {
  if ((info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_FLAC) {
    // The stream's own count; libsndfile reports an unknown one as the largest.
    return info.frames > 0 && info.frames < SF_COUNT_MAX ? static_cast<long>(info.frames) : 0;
  }
  const int sampleBytes = fixedSampleBytes(info.format);
  if (sampleBytes == 0) {
    return 0;
  }
  EndlessView view{fd};
  SF_VIRTUAL_IO io{EndlessView::length, EndlessView::seek, EndlessView::read, nullptr, EndlessView::tell};
  SF_INFO promised{};
  SNDFILE* file = sf_open_virtual(&io, SFM_READ, &promised, &view);
  if (file == nullptr) {
    return 0;
  }
  sf_close(file);
  // A size at the 32-bit limit is what a writer that could not go back to
  // its header leaves there: it promises nothing.
  const double bytes = static_cast<double>(promised.frames) * info.channels * sampleBytes;
  return promised.frames > info.frames && bytes < 0xffff0000 ? static_cast<long>(promised.frames) : 0;
}

} // namespace

void SndfileCloser::operator()(SNDFILE* file) const {
  sf_close(file);
}

// A pipe (or another stream) seen through libsndfile's virtual I/O. On a
// pipe libsndfile's own reading loses the bytes it took to recognise a FLAC
// stream. Here the stream's first bytes are kept, so that a format reader may
// go back to the start, and nothing beyond what has been read can be reached:
// a reader that looks there for more header finds the end instead.
struct AudioReader::Pipe {
  static constexpr sf_count_t kKeptBytes = 1 << 16;

  explicit Pipe(int descriptor) : fd(descriptor) {}

  int fd;
  std::vector<char> kept; // the first bytes, while reading has not gone past kKeptBytes
  sf_count_t position = 0;
  sf_count_t consumed = 0; // bytes taken from the pipe

  static sf_count_t length(void*) { return SF_COUNT_MAX; }
  static sf_count_t seek(sf_count_t offset, int whence, void* data) {
    auto* pipe = static_cast<Pipe*>(data);
    const sf_count_t target = whence == SEEK_SET ? offset : whence == SEEK_CUR ? pipe->position + offset : -1;
    const bool allKept = pipe->consumed == static_cast<sf_count_t>(pipe->kept.size());
    if (target == pipe->consumed || (allKept && target >= 0 && target < pipe->consumed)) {
      return pipe->position = target;
    }
    return -1;
  }
  static sf_count_t read(void* bytes, sf_count_t count, void* data) {
    auto* pipe = static_cast<Pipe*>(data);
    char* out = static_cast<char*>(bytes);
    sf_count_t done = 0;
    if (pipe->position < static_cast<sf_count_t>(pipe->kept.size())) {
      done = std::min(count, static_cast<sf_count_t>(pipe->kept.size()) - pipe->position);
      std::memcpy(out, pipe->kept.data() + pipe->position, static_cast<size_t>(done));
      pipe->position += done;
    }
    while (done < count && pipe->position == pipe->consumed) {
      const ssize_t got = ::read(pipe->fd, out + done, static_cast<size_t>(count - done));
      if (got < 0 && errno == EINTR) {
        continue;
      }
      if (got <= 0) {
        break;
      }
      if (pipe->consumed == static_cast<sf_count_t>(pipe->kept.size()) && pipe->consumed < kKeptBytes) {
        pipe->kept.insert(pipe->kept.end(), out + done, out + done + got);
      }
      pipe->consumed += got;
      pipe->position += got;
      done += got;
    }
    return done;
  }
  static sf_count_t tell(void* data) { return static_cast<Pipe*>(data)->position; }
};

AudioReader::Descriptor::~Descriptor() {
  if (fd > STDIN_FILENO) {
    ::close(fd);
  }
}

AudioReader::AudioReader(const std::string& path) : path_(path) {
  descriptor_.fd = path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const int fd = descriptor_.fd;
  if (fd < 0) {
    throw ToolError("cannot read '" + path + "': " + std::strerror(errno));
  }
  struct stat status {};
  ::fstat(fd, &status);
  if (S_ISDIR(status.st_mode)) {
    throw ToolError("cannot read '" + path + "': it is a folder");
  }
  SF_INFO info{};
  if (S_ISREG(status.st_mode)) {
    file_.reset(sf_open_fd(fd, SFM_READ, &info, SF_FALSE));
  } else {
    pipe_ = std::make_unique<Pipe>(fd);
    SF_VIRTUAL_IO io{Pipe::length, Pipe::seek, Pipe::read, nullptr, Pipe::tell};
    file_.reset(sf_open_virtual(&io, SFM_READ, &info, pipe_.get()));
  }
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
  // Read through a pipe, a length is only the header's word.
  framesHint_ = !pipe_ && info.frames > 0 && info.frames < SF_COUNT_MAX ? static_cast<long>(info.frames) : 0;
  promisedFrames_ = pipe_ ? 0 : promisedFramesOf(fd, info);
}

AudioReader::~AudioReader() = default;

long AudioReader::read(float* interleaved, long frames) {
  const sf_count_t got = sf_readf_float(file_.get(), interleaved, frames);
  if (got < 0) {
    throw ToolError("reading '" + path_ + "' failed");
  }
  return static_cast<long>(got);
}

// FLAC to a pipe. libsndfile's FLAC writer goes back at the end to complete
// the stream's header; a pipe cannot, and those bytes would be appended to
// the stream. Bytes meant for a place already written are dropped here, so
// the header keeps "length unknown", as any streamed FLAC has.
struct AudioWriter::Sink {
  explicit Sink(OutputFile* file) : out(file) {}

  OutputFile* out;
  sf_count_t position = 0;
  sf_count_t written = 0;
  std::string error; // the first failure, reported by close()

  static sf_count_t length(void* data) { return static_cast<Sink*>(data)->written; }
  static sf_count_t seek(sf_count_t offset, int whence, void* data) {
    auto* sink = static_cast<Sink*>(data);
    const sf_count_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? sink->position : sink->written;
    return sink->position = std::max<sf_count_t>(base + offset, 0);
  }
  static sf_count_t write(const void* bytes, sf_count_t count, void* data) {
    auto* sink = static_cast<Sink*>(data);
    const sf_count_t skip = std::clamp<sf_count_t>(sink->written - sink->position, 0, count);
    try {
      if (sink->error.empty() && skip < count) {
        sink->out->write(static_cast<const char*>(bytes) + skip, static_cast<size_t>(count - skip));
      }
    } catch (const ToolError& failure) {
      sink->error = failure.what();
      return 0;
    }
    sink->position += count;
    sink->written = std::max(sink->written, sink->position);
    return count;
  }
  static sf_count_t read(void*, sf_count_t, void*) { return 0; }
  static sf_count_t tell(void* data) { return static_cast<Sink*>(data)->position; }
};

namespace {

std::string formatName(int format) {
  SF_FORMAT_INFO info{};
  info.format = format & SF_FORMAT_TYPEMASK;
  sf_command(nullptr, SFC_GET_FORMAT_INFO, &info, sizeof info);
  const std::string extension = info.extension != nullptr ? info.extension : "this format";
  return extension == "m1a" ? "mp3" : extension == "oga" ? "ogg" : extension;
}

} // namespace

AudioWriter::AudioWriter(const std::string& path, int sampleRate, int channels, int format)
    : path_(path), channels_(channels) {
  SF_INFO info{};
  info.samplerate = sampleRate;
  info.channels = channels;
  info.format = format;
  if (!sf_format_check(&info)) {
    throw ToolError("cannot write '" + path + "' in the chosen format");
  }
  out_ = std::make_unique<OutputFile>(path);
  const int major = format & SF_FORMAT_TYPEMASK;
  if (out_->isStream() && major != SF_FORMAT_AU && major != SF_FORMAT_FLAC && major != SF_FORMAT_OGG) {
    throw ToolError("cannot write " + formatName(format) + " to the pipe '" + path +
                    "': its header is completed last; a pipe takes au, flac or ogg");
  }
  if (out_->isStream() && major == SF_FORMAT_FLAC) {
    sink_ = std::make_unique<Sink>(out_.get());
    SF_VIRTUAL_IO io{Sink::length, Sink::seek, Sink::read, Sink::write, Sink::tell};
    file_.reset(sf_open_virtual(&io, SFM_WRITE, &info, sink_.get()));
  } else {
    file_.reset(sf_open_fd(out_->descriptor(), SFM_WRITE, &info, SF_FALSE));
  }
  if (!file_) {
    throw ToolError("cannot write '" + path + "': " + sf_strerror(nullptr));
  }
  sf_command(file_.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
  // A float file's peak chunk carries the time of writing: without it the
  // same input gives the same bytes on every run.
  sf_command(file_.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
}

AudioWriter::~AudioWriter() = default;

void AudioWriter::write(const float* interleaved, long frames) {
  if (frames > 0 && sf_writef_float(file_.get(), interleaved, frames) != frames) {
    throw ToolError(sink_ && !sink_->error.empty() ? sink_->error
                                                   : "writing '" + path_ + "' failed: " + sf_strerror(file_.get()));
  }
}

void AudioWriter::close() {
  // The header is completed on closing, so a full disk may show only here.
  const int error = sf_close(file_.release());
  if (sink_ && !sink_->error.empty()) {
    throw ToolError(sink_->error);
  }
  if (error != 0) {
    throw ToolError("writing '" + path_ + "' failed: " + sf_error_number(error));
  }
}

void AudioWriter::commit() {
  out_->commit();
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
  // A codec is kept only within its own container: libsndfile accepts some
  // pairings (MPEG in WAV) that it cannot write.
  const bool keepCodec = fixedSampleBytes(inputFormat) > 0 || (inputFormat & SF_FORMAT_TYPEMASK) == major;
  const int subtypes[] = {keepCodec ? inputFormat & SF_FORMAT_SUBMASK : SF_FORMAT_FLOAT,
                          SF_FORMAT_FLOAT,
                          SF_FORMAT_PCM_24,
                          SF_FORMAT_PCM_16,
                          SF_FORMAT_VORBIS,
                          SF_FORMAT_MPEG_LAYER_III};
  for (int subtype : subtypes) {
    if (canWrite(major | subtype, channels, sampleRate)) {
      return major | subtype;
    }
  }
  throw ToolError("cannot write '" + outputPath + "': the format cannot hold " + std::to_string(channels) +
                  " channels at " + std::to_string(sampleRate) + " Hz");
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
  if (audio.frames() < reader.promisedFrames()) {
    audio.promisedFrames = reader.promisedFrames();
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
  writer.commit();
}

int wavFloatFormat() {
  return SF_FORMAT_WAV | SF_FORMAT_FLOAT;
}

} // namespace larkspin_tool
