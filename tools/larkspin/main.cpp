// larkspin: process audio files through the library, read and write presets
// as JSON, and draw the bands, gains and spectra.
#include "larkspin/audio_file.h"
#include "larkspin/average_levels.h"
#include "larkspin/band_chart.h"
#include "larkspin/demo_signal.h"
#include "larkspin/gain_map.h"
#include "larkspin/io_curves.h"
#include "larkspin/levels.h"
#include "larkspin/preset_choice.h"
#include "larkspin/preset_file.h"
#include "larkspin/processing.h"
#include "larkspin/resample.h"
#include "larkspin/svg_chart.h"
#include "larkspin/tool_error.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <tuple>
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

// The long-term average spectra before and after; a silent signal is named
// as such instead of drawn as a line at the bottom of the dB range.
void writeSpectrumReport(const std::string& path, const std::string& title, const AudioData& input,
                         const AudioData& output) {
  constexpr double kSilentDb = -250.0;
  const Spectrum before = averageSpectrum(input);
  const Spectrum after = averageSpectrum(output);
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
      for (size_t k = 0; k < spectrum->frequencyHz.size(); ++k) {
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
  options.xMax = input.sampleRate / 2.0;
  options.yMax = anySound ? std::ceil(top / 10.0) * 10.0 + 5.0 : 0.0;
  options.yMin = options.yMax - 100.0;
  if (!anySound) {
    options.labels.push_back({std::sqrt(options.xMin * options.xMax), -50.0, "silent: nothing to show", "#333333"});
  }
  writeTextFile(path, renderChart(options, series));
}

std::string reportTitle(const std::string& file, const std::string& preset, double intensity) {
  char amount[32];
  std::snprintf(amount, sizeof amount, "%.2f", intensity);
  return "Average spectrum of " + std::filesystem::path(file).filename().string() + ", preset " + preset +
         ", intensity " + amount;
}

std::string presetName(const PresetChoice& choice) {
  std::string name =
      choice.path.empty() ? "the default preset" : std::filesystem::path(choice.path).filename().string();
  for (size_t i = 0; i < choice.settings.size(); ++i) {
    name += (i == 0 ? " with " : ", ") + choice.settings[i];
  }
  return name;
}

struct ProcessArguments {
  std::string input, output, report, gains;
  PresetChoice preset;
  float intensity = 1.0f;
  bool bypass = false, align = false, resample = false;
  int block = 256;
};

// The input at a rate the library takes: as it is, or converted with
// --resample (the error says that option exists).
AudioData atSupportedRate(const AudioData& input, bool resample) {
  if (input.sampleRate >= 32000 || input.sampleRate <= 0) {
    return input;
  }
  const int rate = supportedRateFor(input.sampleRate);
  if (!resample) {
    throw ToolError("the library does not accept a sample rate of " + std::to_string(input.sampleRate) +
                    " Hz (32000 to 192000 Hz); --resample processes it at " + std::to_string(rate) +
                    " Hz and converts back");
  }
  return resampleAudio(input, rate);
}

int runProcess(const ProcessArguments& args) {
  for (const std::string* picture : {&args.report, &args.gains}) {
    if (!picture->empty()) {
      requireSvgPath(*picture);
    }
  }
  const AudioData input = readAudioFile(args.input);
  const AudioData working = atSupportedRate(input, args.resample);
  ProcessOptions options;
  const larkspin_json::Preset preset = resolvePreset(args.preset);
  reportRounding(preset);
  options.payload = preset.payload;
  options.intensity = args.intensity;
  options.bypass = args.bypass;
  options.blockFrames = args.block;
  options.align = args.align;
  options.progress = progressBar(input);
  GainRecorder recorder;
  if (!args.gains.empty()) {
    options.afterBlock = [&recorder](vora_ap_control* control, long framesFed) { recorder.record(control, framesFed); };
  }
  ProcessResult result = processAudio(working, options);
  if (working.sampleRate != input.sampleRate) {
    result.output = resampleAudio(result.output, input.sampleRate, input.frames());
    result.latencyFrames = static_cast<int>(
        std::lround(static_cast<double>(result.latencyFrames) * input.sampleRate / working.sampleRate));
  }
  writeAudioFile(args.output, result.output);
  if (!args.report.empty()) {
    writeSpectrumReport(args.report,
                        reportTitle(args.input, presetName(args.preset), args.bypass ? 0.0 : args.intensity), input,
                        result.output);
  }
  if (!args.gains.empty()) {
    const std::string title = "Band gains over time: " + std::filesystem::path(args.input).filename().string() + ", " +
                              presetName(args.preset);
    writeTextFile(args.gains, recorder.render(title, working));
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

int runPresetDefault(const std::vector<std::string>& settings) {
  vora_preset preset = defaultPreset();
  for (const std::string& setting : settings) {
    applySetting(preset, setting);
  }
  const larkspin_json::Preset encoded = larkspin_json::encode(preset);
  for (const std::string& note : encoded.roundingNotes) {
    std::fprintf(stderr, "larkspin: note: %s\n", note.c_str());
  }
  std::cout << larkspin_json::toJsonText(preset);
  return 0;
}

int runPlot(int sampleRate, const PresetChoice& choice, bool curves, const std::string& outPath) {
  requireSvgPath(outPath);
  const larkspin_json::Preset preset = resolvePreset(choice);
  reportRounding(preset);
  vora_preset stored;
  vora_preset_decode(preset.payload.data(), &stored);
  writeTextFile(outPath, curves ? renderIoCurves(stored, presetName(choice))
                                : renderBandChart(sampleRate, stored, presetName(choice)));
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
  GainRecorder recorder;
  options.afterBlock = [&recorder](vora_ap_control* control, long framesFed) { recorder.record(control, framesFed); };
  const ProcessResult result = processAudio(input, options);
  writeAudioFile((dir / "output.wav").string(), result.output);
  writeSpectrumReport((dir / "report.svg").string(), reportTitle("input.wav", "default", 1.0), input, result.output);
  writeTextFile((dir / "bands.svg").string(), renderBandChart(48000, defaultPreset(), "the default preset"));
  writeTextFile((dir / "curves.svg").string(), renderIoCurves(defaultPreset(), "the default preset"));
  writeTextFile((dir / "gains.svg").string(),
                recorder.render("Band gains over time: input.wav, default preset", input));
  std::printf("demo: default preset (%s) at intensity 1.0\n", kDefaultPresetDescription);
  std::printf("wrote %s/{input.wav, output.wav, report.svg, bands.svg, curves.svg, gains.svg}\n", directory.c_str());
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
  addPresetOptions(processCommand, process.preset);
  processCommand->add_option("--intensity", process.intensity, "intensity 0..1 (default 1)")
      ->check(CLI::Range(0.0, 1.0));
  processCommand->add_flag("--bypass", process.bypass, "bypass the processing (output is the delayed input)");
  processCommand->add_option("--block", process.block, "host block length in frames (default 256)")
      ->check(CLI::Range(1, 1 << 20));
  processCommand->add_flag("--resample", process.resample,
                           "process a file below 32 kHz (8, 16, 22.05 kHz...) at a multiple of its rate, then convert "
                           "back");
  processCommand->add_flag("--align", process.align, "remove the latency so the output lines up with the input");
  processCommand->add_option("--report", process.report, "write the long-term average spectra as SVG");
  processCommand->add_option("--gains", process.gains,
                             "write each band's gain over time as an SVG heat map under the input level");

  auto* presetCommand = app.add_subcommand("preset", "read and write presets as JSON");
  presetCommand->require_subcommand(1);
  std::string decodePath, encodeIn, encodeOut;
  auto* decodeCommand = presetCommand->add_subcommand("decode", "print a payload file as JSON");
  decodeCommand->add_option("FILE", decodePath, "196-byte payload (or JSON)")->required();
  std::vector<std::string> defaultSettings;
  auto* defaultCommand =
      presetCommand->add_subcommand("default", "print the built-in default preset as JSON, a place to start");
  defaultCommand->add_option("--set", defaultSettings, "change one value first, e.g. all.fastRatio=1");
  auto* encodeCommand = presetCommand->add_subcommand("encode", "write a JSON preset as a payload file");
  encodeCommand->add_option("JSON", encodeIn, "JSON preset")->required();
  encodeCommand->add_option("OUT", encodeOut, "196-byte payload to write")->required();

  int plotRate = 48000;
  std::string plotOut;
  PresetChoice plotPreset;
  auto* plotCommand = app.add_subcommand("plot", "draw the band responses and a preset's gains as SVG");
  plotCommand->add_option("--rate", plotRate, "sample rate in Hz (default 48000)");
  addPresetOptions(plotCommand, plotPreset);
  bool plotCurves = false;
  plotCommand->add_flag("--curves", plotCurves, "draw each band's settled input/output level curve instead");
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
    if (*defaultCommand) {
      return runPresetDefault(defaultSettings);
    }
    if (*encodeCommand) {
      return runPresetEncode(encodeIn, encodeOut);
    }
    if (*plotCommand) {
      return runPlot(plotRate, plotPreset, plotCurves, plotOut);
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
