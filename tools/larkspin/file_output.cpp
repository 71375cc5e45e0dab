#include "larkspin/file_output.h"

#include "larkspin/tool_error.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <optional>

namespace larkspin_tool {

namespace {

namespace fs = std::filesystem;

// Read once, before any thread exists: umask() can only be read by setting it.
const mode_t kUmask = [] {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return mask;
}();

// Temporary files that an interrupting signal must not leave behind. The
// handler removes them and lets the signal take its course; the slots are
// lock-free so that it may read them.
constexpr int kSignalSlots = 256;
std::atomic<const char*> pendingTemporaries[kSignalSlots];

extern "C" void removeTemporaries(int signal) {
  for (auto& slot : pendingTemporaries) {
    if (const char* path = slot.load()) {
      ::unlink(path);
    }
  }
  std::raise(signal); // the handler was reset on entry: the default action follows
}

void installSignalHandlers() {
  for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
    struct sigaction current {};
    // A signal the caller chose to ignore stays ignored.
    if (::sigaction(signal, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) {
      struct sigaction action {};
      action.sa_handler = removeTemporaries;
      action.sa_flags = SA_RESETHAND;
      sigemptyset(&action.sa_mask);
      ::sigaction(signal, &action, nullptr);
    }
  }
}

// Returns the slot taken, or -1 when all are in use (the file is then only
// removed on ordinary failures).
int registerTemporary(const char* path) {
  static const bool installed = (installSignalHandlers(), true);
  (void)installed;
  for (int i = 0; i < kSignalSlots; ++i) {
    const char* empty = nullptr;
    if (pendingTemporaries[i].compare_exchange_strong(empty, path)) {
      return i;
    }
  }
  return -1;
}

void releaseTemporary(int slot) {
  if (slot >= 0) {
    pendingTemporaries[slot].store(nullptr);
  }
}

std::string systemError() {
  return std::strerror(errno);
}

bool isStreamDescriptor(int fd) {
  struct stat status {};
  return ::fstat(fd, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
}

// What makes two paths one file: an existing file's device and inode, or
// for a file yet to be made, its folder's and its name.
struct FileKey {
  dev_t device = 0;
  ino_t inode = 0;
  std::string name;
  bool operator==(const FileKey&) const = default;
};

std::optional<FileKey> keyOf(const std::string& path) {
  if (path.empty() || path == "-") {
    return std::nullopt;
  }
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0) {
    // Devices and pipes are not written over; a folder is refused when opened.
    return S_ISREG(status.st_mode) ? std::optional(FileKey{status.st_dev, status.st_ino, ""}) : std::nullopt;
  }
  const fs::path name(path);
  const fs::path folder = name.has_parent_path() ? name.parent_path() : fs::path(".");
  if (::stat(folder.c_str(), &status) == 0) {
    return FileKey{status.st_dev, status.st_ino, name.filename().string()};
  }
  return FileKey{0, 0, fs::absolute(name).lexically_normal().string()};
}

} // namespace

OutputFile::OutputFile(const std::string& path) : path_(path) {
  if (path == "-") {
    fd_ = STDOUT_FILENO;
    stream_ = isStreamDescriptor(fd_);
    return;
  }
  struct stat status {};
  const bool exists = ::stat(path.c_str(), &status) == 0;
  if (exists && S_ISDIR(status.st_mode)) {
    throw ToolError("cannot write '" + path + "': it is a folder");
  }
  if (exists && !S_ISREG(status.st_mode)) {
    fd_ = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd_ < 0) {
      throw ToolError("cannot write '" + path + "': " + systemError());
    }
    stream_ = isStreamDescriptor(fd_);
    return;
  }
  // Through a link the file it points to is replaced, and the link stays.
  std::error_code ignored;
  target_ = fs::is_symlink(path, ignored) ? fs::weakly_canonical(path, ignored).string() : path;
  if (target_.empty()) {
    target_ = path;
  }
  const fs::path target(target_);
  const fs::path folder = target.has_parent_path() ? target.parent_path() : fs::path(".");
  // A hidden name, short enough for any file system's limit.
  std::string hidden = ".";
  hidden.append(target.filename().string(), 0, 200).append(".larkspin-XXXXXX");
  std::string pattern = (folder / hidden).string();
  fd_ = ::mkostemp(pattern.data(), O_CLOEXEC);
  if (fd_ < 0) {
    throw ToolError("cannot write '" + path + "': " + systemError());
  }
  temporary_ = pattern;
  signalSlot_ = registerTemporary(temporary_.c_str());
  // The permissions a plain create would give, or those of the file replaced.
  ::fchmod(fd_, exists ? (status.st_mode & 07777) : (0666 & ~kUmask));
}

OutputFile::~OutputFile() {
  if (fd_ >= 0 && fd_ != STDOUT_FILENO) {
    ::close(fd_);
  }
  if (!temporary_.empty() && !committed_) {
    releaseTemporary(signalSlot_);
    ::unlink(temporary_.c_str());
  }
}

void OutputFile::write(const void* bytes, size_t count) {
  const char* next = static_cast<const char*>(bytes);
  while (count > 0) {
    const ssize_t written = ::write(fd_, next, count);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      throw ToolError("writing '" + path_ + "' failed: " + systemError());
    }
    next += written;
    count -= static_cast<size_t>(written);
  }
}

void OutputFile::commit() {
  if (fd_ != STDOUT_FILENO) {
    // A full disk or a network file system may report a failed write only
    // on syncing or closing.
    const bool synced = temporary_.empty() || ::fsync(fd_) == 0;
    const int fd = fd_;
    fd_ = -1;
    if (!synced || ::close(fd) != 0) {
      throw ToolError("writing '" + path_ + "' failed: " + systemError());
    }
  }
  if (!temporary_.empty()) {
    if (::rename(temporary_.c_str(), target_.c_str()) != 0) {
      throw ToolError("cannot write '" + path_ + "': " + systemError());
    }
    releaseTemporary(signalSlot_);
  }
  committed_ = true;
}

void writeTextFile(const std::string& path, std::string_view bytes) {
  OutputFile file(path);
  file.write(bytes.data(), bytes.size());
  file.commit();
}

bool isRegularFile(const std::string& path) {
  struct stat status {};
  return path != "-" && ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

void refuseOverwriting(const std::vector<std::string>& inputs, const std::vector<std::string>& outputs) {
  std::vector<std::pair<FileKey, const std::string*>> inputKeys, outputKeys;
  for (const std::string& input : inputs) {
    if (const auto key = keyOf(input)) {
      inputKeys.emplace_back(*key, &input);
    }
  }
  for (const std::string& output : outputs) {
    const auto key = keyOf(output);
    if (!key) {
      continue;
    }
    for (const auto& [inputKey, input] : inputKeys) {
      if (inputKey == *key) {
        throw ToolError("the output '" + output + "' is the input " + (*input == output ? "" : "'" + *input + "' ") +
                        "itself");
      }
    }
    for (const auto& [outputKey, other] : outputKeys) {
      if (outputKey == *key) {
        throw ToolError("'" + *other + "' and '" + output + "' are one file: two outputs cannot share it");
      }
    }
    outputKeys.emplace_back(*key, &output);
  }
}

} // namespace larkspin_tool
