// How the program writes files: never over one of its inputs, and never
// half. Each output goes to a temporary file beside its destination and
// replaces it only once complete, so a failed, full or interrupted run leaves
// the previous file exactly as it was. Devices and pipes are written as they
// are.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace larkspin_tool {

class OutputFile {
public:
  // "-" is standard output; a device, pipe or socket is opened as it is;
  // anything else gets a temporary file in the destination's folder (behind
  // a symbolic link, the folder of the file it points to). Throws ToolError
  // naming the path when none of these can be opened.
  explicit OutputFile(const std::string& path);
  // Removes the temporary file unless commit() succeeded.
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  int descriptor() const { return fd_; }
  // A pipe or socket: written bytes cannot be gone back to.
  bool isStream() const { return stream_; }
  const std::string& path() const { return path_; }

  // Throws ToolError naming the path and the system's reason.
  void write(const void* bytes, size_t count);
  // Puts the written file in the destination's place; throws ToolError.
  void commit();

private:
  std::string path_;      // as given, for messages
  std::string target_;    // the file replaced
  std::string temporary_; // empty when written directly
  int fd_ = -1;
  bool stream_ = false;
  bool committed_ = false;
  int signalSlot_ = -1;
};

// Writes `bytes` to `path` through an OutputFile.
void writeTextFile(const std::string& path, std::string_view bytes);

// An ordinary file (following symbolic links); false for "-", devices,
// pipes, directories and paths that do not exist.
bool isRegularFile(const std::string& path);

// Refuses, before any work is done, a run that would write over one of its
// own inputs or write two outputs to one file. Paths are compared as the
// files they name (device and inode, or the folder's and the name for a file
// yet to be made), so links and "./" spellings count; "-", empty paths (an
// option not given), devices and pipes are left out. Throws ToolError naming both paths.
void refuseOverwriting(const std::vector<std::string>& inputs, const std::vector<std::string>& outputs);

} // namespace larkspin_tool
