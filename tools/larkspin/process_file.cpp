#include "larkspin/process_file.h"

#include "larkspin/average_levels.h"
#include "larkspin/file_output.h"
#include "larkspin/svg_chart.h"
#include "larkspin/tool_error.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <optional>
#include <tuple>

namespace larkspin_tool {

namespace {

constexpr long kChunkFrames = 8192;

void run(const FileJob& job, vora_ap_control* control, const ProcessOptions& options, ProgressBar* progress,
         FileResult& result) {
  AudioReader reader(job.input);
  const int channels = reader.channels();
  const int rate = reader.sampleRate();
  result.sampleRate = rate;
  result.channels = channels;
  const int format = chooseOutputFormat(job.output, job.formatName, reader.format(), channels, rate);
  StreamProcessor processor(control, rate, channels, options);
  if (!job.report.empty()) {
    OutputFile probe(job.report); // a report that cannot be written fails the run before any audio
  }
  AudioWriter writer(job.output, rate, channels, format);

  LevelMeter inLevels, outLevels;
  std::optional<SpectrumMeter> inSpectrum, outSpectrum;
  if (!job.report.empty()) {
    inSpectrum.emplace(rate, channels);
    outSpectrum.emplace(rate, channels);
  }
  const FrameSink sink = [&](const float* frames, long count) {
    writer.write(frames, count);
    outLevels.add(frames, count * channels);
    if (outSpectrum) {
      outSpectrum->add(frames, count);
    }
  };
  std::vector<float> chunk(static_cast<size_t>(kChunkFrames * channels));
  for (long got; (got = reader.read(chunk.data(), kChunkFrames)) > 0;) {
    inLevels.add(chunk.data(), got * channels);
    if (options.afterRead) {
      options.afterRead(chunk.data(), got, channels);
    }
    if (inSpectrum) {
      inSpectrum->add(chunk.data(), got);
    }
    processor.write(chunk.data(), got, sink);
    result.frames += got;
    if (progress != nullptr) {
      progress->advance(got);
    }
  }
  processor.finish(sink);
  writer.close();
  if (inSpectrum) {
    writeSpectrumReport(job.report, job.reportTitle, inSpectrum->spectrum(), outSpectrum->spectrum(), rate,
                        job.contentRate);
  }
  writer.commit();
  if (result.frames < reader.promisedFrames()) {
    result.promisedFrames = reader.promisedFrames();
  }
  result.in = inLevels.levels();
  result.out = outLevels.levels();
  result.latencyFrames = processor.latencyFrames();
  result.delayFrames = processor.delayFrames();
  result.processingSeconds = processor.processingSeconds();
}

} // namespace

FileResult processFile(const FileJob& job, vora_ap_control* control, const ProcessOptions& options,
                       ProgressBar* progress) {
  FileResult result;
  result.job = job;
  try {
    run(job, control, options, progress, result);
    result.ok = true;
  } catch (const std::exception& error) {
    result.error = error.what();
  }
  return result;
}

AudioLength audioFileLength(const std::string& path) {
  if (!isRegularFile(path)) {
    return {}; // a pipe's bytes are read once, by the processing
  }
  SF_INFO info{};
  SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
  if (file == nullptr) {
    return {};
  }
  sf_close(file);
  return {static_cast<long>(info.frames),
          info.samplerate > 0 ? static_cast<double>(info.frames) / info.samplerate : 0.0};
}

void writeSpectrumReport(const std::string& path, const std::string& title, const Spectrum& before,
                         const Spectrum& after, int sampleRate, int contentRate) {
  constexpr double kSilentDb = -250.0;
  const double topHz = (contentRate > 0 ? std::min(contentRate, sampleRate) : sampleRate) / 2.0;
  std::vector<ChartSeries> series;
  double top = -200.0;
  bool anySound = false;
  for (const auto& [name, spectrum, index] : {std::tuple{"input", &before, 0}, std::tuple{"output", &after, 1}}) {
    const double loudest =
        spectrum->levelDb.empty() ? -300.0 : *std::max_element(spectrum->levelDb.begin(), spectrum->levelDb.end());
    ChartSeries s{name, seriesColour(static_cast<size_t>(index)), {}, false, {}};
    if (loudest < kSilentDb) {
      s.label += " (silent)";
    } else {
      anySound = true;
      top = std::max(top, loudest);
      for (size_t k = 0; k < spectrum->frequencyHz.size() && spectrum->frequencyHz[k] <= topHz; ++k) {
        s.points.emplace_back(spectrum->frequencyHz[k], spectrum->levelDb[k]);
      }
    }
    series.push_back(std::move(s));
  }
  ChartOptions options;
  options.title = title;
  options.xLabel = "frequency (Hz)";
  options.yLabel = "level (dB re full-scale sine)";
  options.logX = true;
  options.xMin = 20.0;
  options.xMax = topHz;
  options.yMax = anySound ? std::ceil(top / 10.0) * 10.0 + 5.0 : 0.0;
  options.yMin = options.yMax - 100.0;
  if (!anySound) {
    options.labels.push_back({std::sqrt(options.xMin * options.xMax), -50.0, "silent: nothing to show", "#333333"});
  }
  writeTextFile(path, renderChart(options, series));
}

} // namespace larkspin_tool
