// larkspin: process audio files through the library, read and write presets
// as JSON, and draw the bands, gains and spectra.
#include "larkspin/audio_file.h"
#include "larkspin/average_levels.h"
#include "larkspin/band_chart.h"
#include "larkspin/demo_signal.h"
#include "larkspin/levels.h"
#include "larkspin/preset_file.h"
#include "larkspin/processing.h"
#include "larkspin/svg_chart.h"
#include "larkspin/tool_error.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <unistd.h>

namespace larkspin_tool {
namespace {

void printSummary(const AudioData& input, const ProcessResult& result) {
  const Levels in = measureLevels(input);
  const Levels out = measureLevels(result.output);
  const double seconds = static_cast<double>(input.frames()) / input.sampleRate;
  std::printf("frames:        %ld (%.2f s)\n", input.frames(), seconds);
  std::printf("sample rate:   %d Hz\n", input.sampleRate);
  std::printf("channels:      %d\n", input.channelCount());
  std::printf("latency:       %d frames (%.2f ms)\n", result.latencyFrames,
              1000.0 * result.latencyFrames / input.sampleRate);
  std::printf("peak in/out:   %.2f / %.2f dBFS\n", in.peakDbfs, out.peakDbfs);
  std::printf("RMS in/out:    %.2f / %.2f dBFS\n", in.rmsDbfs, out.rmsDbfs);
  if (result.processingSeconds > 0.0) {
    std::printf("real time:     %.0fx (%.3f s of processing)\n", seconds / result.processingSeconds,
                result.processingSeconds);
  }
}

std::function<void(double)> progressBar(const AudioData& input) {
  const double seconds = static_cast<double>(input.frames()) / input.sampleRate;
  if (!isatty(STDERR_FILENO) || seconds < 5.0) {
    return {};
  }
  return [](double fraction) {
    constexpr int kWidth = 40;
    const int filled = static_cast<int>(fraction * kWidth);
    std::fprintf(stderr, "\r[%s%s] %3d%%", std::string(static_cast<size_t>(filled), '#').c_str(),
                 std::string(static_cast<size_t>(kWidth - filled), ' ').c_str(), static_cast<int>(fraction * 100));
    if (fraction >= 1.0) {
      std::fputc('\n', stderr);
    }
  };
}

void writeSpectrumReport(const std::string& path, const AudioData& input, const AudioData& output) {
  const Spectrum before = averageSpectrum(input);
  const Spectrum after = averageSpectrum(output);
  ChartSeries in{"input", seriesColour(0), {}, false};
  ChartSeries out{"output", seriesColour(1), {}, false};
  double top = -200.0;
  for (size_t k = 0; k < before.frequencyHz.size(); ++k) {
    in.points.emplace_back(before.frequencyHz[k], before.levelDb[k]);
    out.points.emplace_back(after.frequencyHz[k], after.levelDb[k]);
    top = std::max({top, before.levelDb[k], after.levelDb[k]});
  }
  ChartOptions options;
  options.title = "Long-term average spectrum";
  options.xLabel = "frequency (Hz)";
  options.yLabel = "level (dB re full-scale sine)";
  options.logX = true;
  options.xMin = 20.0;
  options.xMax = input.sampleRate / 2.0;
  options.yMax = std::ceil(top / 10.0) * 10.0 + 5.0;
  options.yMin = options.yMax - 100.0;
  writeTextFile(path, renderChart(options, {in, out}));
}

struct ProcessArguments {
  std::string input, output, preset, report;
  float intensity = 1.0f;
  bool bypass = false, align = false;
  int block = 256;
};

int runProcess(const ProcessArguments& args) {
  const AudioData input = readAudioFile(args.input);
  ProcessOptions options;
  options.payload = args.preset.empty() ? encodePayload(defaultPreset()) : loadPreset(args.preset).payload;
  options.intensity = args.intensity;
  options.bypass = args.bypass;
  options.blockFrames = args.block;
  options.align = args.align;
  options.progress = progressBar(input);
  const ProcessResult result = processAudio(input, options);
  writeAudioFile(args.output, result.output);
  if (!args.report.empty()) {
    writeSpectrumReport(args.report, input, result.output);
  }
  printSummary(input, result);
  return 0;
}

// Prints what the payload holds: for a JSON file, the values after rounding.
int runPresetDecode(const std::string& path) {
  vora_preset stored;
  vora_preset_decode(loadPreset(path).payload.data(), &stored);
  std::cout << larkspin_json::toJsonText(stored);
  return 0;
}

int runPresetEncode(const std::string& jsonPath, const std::string& outPath) {
  const Payload payload = loadPreset(jsonPath).payload;
  std::ofstream out(outPath, std::ios::binary);
  if (!out.write(reinterpret_cast<const char*>(payload.data()), static_cast<std::streamsize>(payload.size())) ||
      !out.flush()) {
    out.close();
    std::remove(outPath.c_str());
    throw ToolError("cannot write '" + outPath + "'");
  }
  return 0;
}

int runPlot(int sampleRate, const std::string& presetPath, const std::string& outPath) {
  std::optional<vora_preset> preset;
  if (!presetPath.empty()) {
    vora_preset stored;
    vora_preset_decode(loadPreset(presetPath).payload.data(), &stored);
    preset = stored;
  }
  writeTextFile(outPath, renderBandChart(sampleRate, preset));
  return 0;
}

int runDemo(const std::string& directory) {
  std::filesystem::create_directories(directory);
  const std::filesystem::path dir(directory);
  AudioData input = makeDemoSignal(48000);
  input.format = wavFloatFormat();
  writeAudioFile((dir / "input.wav").string(), input);

  ProcessOptions options;
  options.payload = encodePayload(defaultPreset());
  options.intensity = 1.0f;
  const ProcessResult result = processAudio(input, options);
  writeAudioFile((dir / "output.wav").string(), result.output);
  writeSpectrumReport((dir / "report.svg").string(), input, result.output);
  writeTextFile((dir / "bands.svg").string(), renderBandChart(48000, defaultPreset()));
  std::printf("demo: default preset (%s) at intensity 1.0\n", kDefaultPresetDescription);
  std::printf("wrote %s/{input.wav, output.wav, report.svg, bands.svg}\n", directory.c_str());
  printSummary(input, result);
  return 0;
}

} // namespace
} // namespace larkspin_tool

int main(int argc, char** argv) {
  using namespace larkspin_tool;
  CLI::App app{"larkspin: hear, read and see what the larkspin processor does"};
  app.require_subcommand(1);

  ProcessArguments process;
  auto* processCommand = app.add_subcommand("process", "process an audio file through the library");
  processCommand->add_option("IN", process.input, "input audio file (mono or stereo)")->required();
  processCommand->add_option("OUT", process.output, "output file, same format and rate")->required();
  processCommand->add_option("--preset", process.preset,
                             std::string("196-byte payload or JSON preset; default: ") + kDefaultPresetDescription);
  processCommand->add_option("--intensity", process.intensity, "intensity 0..1 (default 1)")
      ->check(CLI::Range(0.0, 1.0));
  processCommand->add_flag("--bypass", process.bypass, "bypass the processing (output is the delayed input)");
  processCommand->add_option("--block", process.block, "host block length in frames (default 256)")
      ->check(CLI::Range(1, 1 << 20));
  processCommand->add_flag("--align", process.align, "remove the latency so the output lines up with the input");
  processCommand->add_option("--report", process.report, "write the long-term average spectra as SVG");

  auto* presetCommand = app.add_subcommand("preset", "read and write presets as JSON");
  presetCommand->require_subcommand(1);
  std::string decodePath, encodeIn, encodeOut;
  auto* decodeCommand = presetCommand->add_subcommand("decode", "print a payload file as JSON");
  decodeCommand->add_option("FILE", decodePath, "196-byte payload (or JSON)")->required();
  auto* encodeCommand = presetCommand->add_subcommand("encode", "write a JSON preset as a payload file");
  encodeCommand->add_option("JSON", encodeIn, "JSON preset")->required();
  encodeCommand->add_option("OUT", encodeOut, "196-byte payload to write")->required();

  int plotRate = 48000;
  std::string plotPreset, plotOut;
  auto* plotCommand = app.add_subcommand("plot", "draw the band responses and a preset's gains as SVG");
  plotCommand->add_option("--rate", plotRate, "sample rate in Hz")->required();
  plotCommand->add_option("--preset", plotPreset, "payload or JSON preset whose gains to draw");
  plotCommand->add_option("OUT", plotOut, "SVG file to write")->required();

  std::string demoDir = "demo";
  auto* demoCommand = app.add_subcommand("demo", "process a generated test signal with the default preset");
  demoCommand->add_option("DIR", demoDir, "output directory (default demo/)");

  CLI11_PARSE(app, argc, argv);
  try {
    if (*processCommand) {
      return runProcess(process);
    }
    if (*decodeCommand) {
      return runPresetDecode(decodePath);
    }
    if (*encodeCommand) {
      return runPresetEncode(encodeIn, encodeOut);
    }
    if (*plotCommand) {
      return runPlot(plotRate, plotPreset, plotOut);
    }
    if (*demoCommand) {
      return runDemo(demoDir);
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "larkspin: error: %s\n", error.what());
    return 1;
  }
  return 0;
}
