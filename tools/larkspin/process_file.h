// One audio file through the library, read, processed and written in chunks,
// with its levels measured on the way.
#pragma once

#include "larkspin/average_levels.h"
#include "larkspin/levels.h"
#include "larkspin/processing.h"
#include "larkspin/progress_bar.h"

#include <string>

namespace larkspin_tool {

struct FileJob {
  std::string input;      // a path, or "-" for standard input
  std::string output;     // a path, or "-" for standard output
  std::string formatName; // empty: from the output's extension
  std::string report;     // optional SVG of the average spectra
  std::string reportTitle = "Long-term average spectrum";
  int contentRate = 0; // the input's own rate when it was converted up: the report stops at its Nyquist frequency
};

struct FileResult {
  FileJob job;
  bool ok = false;
  std::string error;
  int sampleRate = 0;
  int channels = 0;
  long frames = 0;
  Levels in, out;
  int latencyFrames = 0;
  long delayFrames = 0;    // latency plus re-blocking silence; removed with --align
  long promisedFrames = 0; // a truncated input's header count (`frames` were there); 0 otherwise
  double processingSeconds = 0.0;
};

// Never throws: a failure is described in the result, and leaves the output
// and report as they were. The output replaces its destination only once
// complete, after the report.
FileResult processFile(const FileJob& job, vora_ap_control* control, const ProcessOptions& options,
                       ProgressBar* progress);

// The length of an audio file in frames and seconds; 0 when it cannot be told.
struct AudioLength {
  long frames = 0;
  double seconds = 0.0;
};
AudioLength audioFileLength(const std::string& path);

// A silent signal is named as such instead of drawn as a line at the bottom
// of the dB range. The frequency axis ends at the Nyquist frequency of
// `contentRate` when that is given (a file converted up holds nothing above
// its own), else of `sampleRate`.
void writeSpectrumReport(const std::string& path, const std::string& title, const Spectrum& before,
                         const Spectrum& after, int sampleRate, int contentRate = 0);

} // namespace larkspin_tool
