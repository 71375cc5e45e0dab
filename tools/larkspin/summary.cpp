#include "larkspin/summary.h"

#include <larkspin/vora_ap.h>

#include <nlohmann/json.hpp>

#include <cmath>

namespace larkspin_tool {

namespace {

double milliseconds(long frames, int sampleRate) {
  return sampleRate > 0 ? 1000.0 * static_cast<double>(frames) / sampleRate : 0.0;
}

// JSON has no infinities: silence has no level.
nlohmann::json level(double dbfs) {
  return std::isfinite(dbfs) ? nlohmann::json(dbfs) : nlohmann::json(nullptr);
}

} // namespace

void printFileSummary(std::FILE* out, const FileResult& r, bool aligned) {
  const double seconds = r.sampleRate > 0 ? static_cast<double>(r.frames) / r.sampleRate : 0.0;
  std::fprintf(out, "frames:        %ld (%.2f s)\n", r.frames, seconds);
  if (r.promisedFrames > 0) {
    std::fprintf(out, "truncated:     the header promises %ld frames\n", r.promisedFrames);
  }
  std::fprintf(out, "sample rate:   %d Hz\n", r.sampleRate);
  std::fprintf(out, "channels:      %d\n", r.channels);
  std::fprintf(out, "latency:       %d frames (%.2f ms)\n", r.latencyFrames,
               milliseconds(r.latencyFrames, r.sampleRate));
  std::fprintf(out, "%s %ld frames (%.2f ms; latency + %ld of re-blocking)\n",
               aligned ? "delay removed:" : "delay:        ", r.delayFrames, milliseconds(r.delayFrames, r.sampleRate),
               r.delayFrames - r.latencyFrames);
  std::fprintf(out, "peak in/out:   %.2f / %.2f dBFS\n", r.in.peakDbfs, r.out.peakDbfs);
  std::fprintf(out, "RMS in/out:    %.2f / %.2f dBFS\n", r.in.rmsDbfs, r.out.rmsDbfs);
  if (r.in.nonFiniteSamples > 0) {
    std::fprintf(out, "not finite:    %ld input samples (left out of the levels)\n", r.in.nonFiniteSamples);
  }
  if (r.processingSeconds > 0.0) {
    std::fprintf(out, "real time:     %.0fx (%.3f s of processing)\n", seconds / r.processingSeconds,
                 r.processingSeconds);
  }
  std::fprintf(out, "library:       %s\n", vora_ap_get_build_info());
}

void printBatchSummary(std::FILE* out, const std::vector<FileResult>& results) {
  int failed = 0;
  for (const FileResult& r : results) {
    if (r.ok) {
      std::fprintf(out, "ok      %s -> %s (%.2f s, peak %.2f / %.2f dBFS%s)\n", r.job.input.c_str(),
                   r.job.output.c_str(), r.sampleRate > 0 ? static_cast<double>(r.frames) / r.sampleRate : 0.0,
                   r.in.peakDbfs, r.out.peakDbfs, r.promisedFrames > 0 ? ", truncated" : "");
    } else {
      ++failed;
      std::fprintf(out, "FAILED  %s: %s\n", r.job.input.c_str(), r.error.c_str());
    }
  }
  std::fprintf(out, "%zu files, %d failed\n", results.size(), failed);
}

void printJsonSummary(std::FILE* out, const std::vector<FileResult>& results, bool aligned) {
  nlohmann::json files = nlohmann::json::array();
  for (const FileResult& r : results) {
    nlohmann::json file = {{"input", r.job.input}, {"output", r.job.output}, {"ok", r.ok}};
    if (!r.ok) {
      file["error"] = r.error;
    } else {
      file["frames"] = r.frames;
      file["truncated"] = r.promisedFrames > 0;
      if (r.promisedFrames > 0) {
        file["promisedFrames"] = r.promisedFrames;
      }
      file["sampleRate"] = r.sampleRate;
      file["channels"] = r.channels;
      file["latencyFrames"] = r.latencyFrames;
      file["delayFrames"] = r.delayFrames;
      file["delayRemoved"] = aligned;
      file["peakInDbfs"] = level(r.in.peakDbfs);
      file["peakOutDbfs"] = level(r.out.peakDbfs);
      file["rmsInDbfs"] = level(r.in.rmsDbfs);
      file["rmsOutDbfs"] = level(r.out.rmsDbfs);
      file["nonFiniteInputSamples"] = r.in.nonFiniteSamples;
      file["processingSeconds"] = r.processingSeconds;
    }
    files.push_back(file);
  }
  std::fprintf(out, "%s\n", nlohmann::json{{"files", files}, {"library", vora_ap_get_build_info()}}.dump(2).c_str());
}

} // namespace larkspin_tool
