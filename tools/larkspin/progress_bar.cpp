#include "larkspin/progress_bar.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace larkspin_tool {

namespace {

int terminalColumns() {
  winsize size{};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
    return size.ws_col;
  }
  return 80;
}

} // namespace

ProgressBar::ProgressBar(long totalFrames, bool enabled)
    : total_(totalFrames), enabled_(enabled && isatty(STDERR_FILENO)) {}

ProgressBar::~ProgressBar() {
  finish();
}

void ProgressBar::advance(long frames) {
  const long done = done_ += frames;
  if (!enabled_) {
    return;
  }
  std::lock_guard lock(mutex_);
  // Redraw every half per cent, or every 100000 frames when the length is unknown.
  const long step = total_ > 0 ? std::max(total_ / 200, 1L) : 100000;
  if (!finished_ && (drawnAt_ < 0 || done - drawnAt_ >= step)) {
    draw(done);
  }
}

void ProgressBar::draw(long done) {
  drawnAt_ = done;
  // One column less than the terminal, so that the line never wraps.
  const int columns = terminalColumns() - 1;
  if (total_ <= 0) {
    std::fprintf(stderr, "\r%.*s", columns, ("read " + std::to_string(done) + " frames").c_str());
  } else {
    const double fraction = std::min(1.0, static_cast<double>(done) / static_cast<double>(total_));
    char percent[8];
    std::snprintf(percent, sizeof(percent), " %3d%%", static_cast<int>(fraction * 100.0));
    const int width = columns - 2 - 5;
    if (width < 4) {
      std::fprintf(stderr, "\r%s", percent + 1);
    } else {
      const int filled = static_cast<int>(fraction * width);
      std::fprintf(stderr, "\r[%s%s]%s", std::string(static_cast<size_t>(filled), '#').c_str(),
                   std::string(static_cast<size_t>(width - filled), ' ').c_str(), percent);
    }
  }
  std::fflush(stderr);
}

void ProgressBar::print(const std::string& line) {
  std::lock_guard lock(mutex_);
  const bool barShown = enabled_ && !finished_ && drawnAt_ >= 0;
  std::fprintf(stderr, "%s%s\n", barShown ? "\r\033[K" : "", line.c_str());
  if (barShown) {
    draw(drawnAt_);
  }
}

void ProgressBar::finish() {
  std::lock_guard lock(mutex_);
  if (enabled_ && !finished_ && drawnAt_ >= 0) {
    draw(done_);
    std::fputc('\n', stderr);
  }
  finished_ = true;
}

} // namespace larkspin_tool
