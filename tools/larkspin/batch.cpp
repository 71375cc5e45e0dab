#include "larkspin/batch.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <thread>

namespace larkspin_tool {

std::vector<FileResult> processFiles(const std::vector<FileJob>& jobs, const ProcessOptions& options, int workers,
                                     bool showProgress) {
  workers = std::clamp(workers, 1, std::max(1, static_cast<int>(jobs.size())));
  long total = 0;
  double seconds = 0.0;
  bool unknown = false;
  for (const FileJob& job : jobs) {
    const AudioLength length = audioFileLength(job.input);
    total += length.frames;
    seconds += length.seconds;
    unknown = unknown || job.input == "-";
  }
  // A bar for anything that takes a while: a pipe, or 5 s of audio or more.
  ProgressBar progress(unknown ? 0 : total, showProgress && (unknown || seconds >= 5.0));
  // All controls exist, with their settings, before any of them processes.
  std::vector<ControlHandle> controls = makeControls(workers, options);

  std::vector<FileResult> results(jobs.size());
  std::atomic<size_t> next{0};
  const auto work = [&](vora_ap_control* control) {
    for (size_t i; (i = next++) < jobs.size();) {
      results[i] = processFile(jobs[i], control, options, &progress);
      if (!results[i].ok) {
        progress.print("larkspin: error: " + (jobs.size() > 1 ? jobs[i].input + ": " : std::string()) +
                       results[i].error);
      }
    }
  };
  std::vector<std::thread> threads;
  for (int w = 1; w < workers; ++w) {
    threads.emplace_back(work, controls[static_cast<size_t>(w)].get());
  }
  work(controls[0].get());
  for (std::thread& thread : threads) {
    thread.join();
  }
  progress.finish();
  return results;
}

} // namespace larkspin_tool
