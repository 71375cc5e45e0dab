// One progress line on standard error, fitted to the terminal's width, shared
// by every worker. Silent when standard error is not a terminal.
#pragma once

#include <atomic>
#include <mutex>
#include <string>

namespace larkspin_tool {

class ProgressBar {
public:
  // `totalFrames` 0: unknown (a pipe); the line then counts frames read.
  ProgressBar(long totalFrames, bool enabled);
  ~ProgressBar();

  void advance(long frames);
  void finish();
  // Prints a line of its own on standard error, above the bar.
  void print(const std::string& line);

private:
  void draw(long done); // with the mutex held

  long total_;
  bool enabled_;
  std::atomic<long> done_{0};
  long drawnAt_ = -1;
  bool finished_ = false;
  std::mutex mutex_;
};

} // namespace larkspin_tool
