// Many files at once: one control per worker thread, one overall progress bar.
#pragma once

#include "larkspin/process_file.h"

#include <vector>

namespace larkspin_tool {

// Processes every job, in any order, on `workers` threads; results come back
// in the jobs' order. A failed file does not stop the others; its error is
// reported on standard error as it happens.
std::vector<FileResult> processFiles(const std::vector<FileJob>& jobs, const ProcessOptions& options, int workers,
                                     bool showProgress);

} // namespace larkspin_tool
