// larkspin: process audio files through the library, read and write presets
// as JSON, and draw the bands, gains and spectra.
#include "larkspin/audio_file.h"
#include "larkspin/band_chart.h"
#include "larkspin/band_reach.h"
#include "larkspin/batch.h"
#include "larkspin/command_line.h"
#include "larkspin/demo_signal.h"
#include "larkspin/file_output.h"
#include "larkspin/gain_map.h"
#include "larkspin/io_curves.h"
#include "larkspin/preset_choice.h"
#include "larkspin/preset_file.h"
#include "larkspin/processing.h"
#include "larkspin/resample.h"
#include "larkspin/summary.h"
#include "larkspin/svg_chart.h"
#include "larkspin/tool_error.h"

#include <larkspin/vora_ap.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <set>
#include <thread>
#include <unistd.h>

namespace larkspin_tool {
namespace {

constexpr const char* kProgramVersion = LARKSPIN_PROGRAM_VERSION;

// `preset`: "the default preset" or "preset NAME", with any settings.
std::string reportTitle(const std::string& file, const std::string& preset, double intensity) {
  char amount[32];
  std::snprintf(amount, sizeof amount, "%.2f", intensity);
  return "Average spectrum of " + std::filesystem::path(file).filename().string() + ", " + preset + ", intensity " +
         amount;
}

void printNotes(const std::vector<std::string>& notes) {
  for (const std::string& note : notes) {
    std::fprintf(stderr, "larkspin: note: %s\n", note.c_str());
  }
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
  std::vector<std::string> files;
  std::string outDir, report, format, gains;
  PresetChoice preset;
  float intensity = 1.0f;
  bool bypass = false, align = false, quiet = false, json = false, resample = false;
  int block = 256;
  int jobs = 0;
};

std::vector<FileJob> makeJobs(const ProcessArguments& args) {
  std::vector<FileJob> jobs;
  for (const std::string* picture : {&args.report, &args.gains}) {
    if (!picture->empty()) {
      requireSvgPath(*picture);
    }
  }
  if (args.outDir.empty()) {
    if (args.files.size() != 2) {
      throw UsageError("process takes IN and OUT, or several inputs with --out-dir DIR");
    }
    if (args.files[1] == "-" && args.format.empty()) {
      throw UsageError("standard output has no extension to take the format from: give --format (au, flac or "
                       "ogg for a pipe)");
    }
    if (args.resample && !isRegularFile(args.files[0])) {
      throw UsageError("--resample reads its input whole: give a file, not a pipe");
    }
    refuseOverwriting({args.files[0], args.preset.path}, {args.files[1], args.report, args.gains});
    FileJob job{args.files[0], args.files[1], args.format, args.report};
    job.reportTitle = reportTitle(args.files[0], (args.preset.path.empty() ? "" : "preset ") + presetName(args.preset),
                                  args.bypass ? 0.0 : args.intensity);
    jobs.push_back(job);
    return jobs;
  }
  for (const auto& [option, value] : {std::pair{"--report", &args.report}, std::pair{"--gains", &args.gains}}) {
    if (!value->empty()) {
      throw UsageError(std::string(option) + " works with a single input, not with --out-dir");
    }
  }
  if (args.resample) {
    throw UsageError("--resample works with a single input, not with --out-dir");
  }
  std::vector<std::string> names, inputs = args.files, outputs;
  for (const std::string& input : args.files) {
    if (input == "-") {
      throw UsageError("standard input cannot be one of several inputs");
    }
    std::filesystem::path name = std::filesystem::path(input).filename();
    if (!args.format.empty()) {
      name.replace_extension(args.format);
    }
    if (std::find(names.begin(), names.end(), name.string()) != names.end()) {
      throw UsageError("two inputs would both be written to '" + name.string() + "' in " + args.outDir);
    }
    names.push_back(name.string());
    outputs.push_back((std::filesystem::path(args.outDir) / name).string());
    jobs.push_back({input, outputs.back(), args.format, ""});
  }
  inputs.push_back(args.preset.path);
  refuseOverwriting(inputs, outputs);
  std::filesystem::create_directories(args.outDir);
  return jobs;
}

// The sample rate of a file the library cannot take as it is (below 32 kHz),
// or 0: such a file goes the --resample way.
int rateNeedingResampling(const std::string& path) {
  if (!isRegularFile(path)) {
    return 0; // a pipe is read once, by the processing
  }
  try {
    const int rate = AudioReader(path).sampleRate();
    return rate > 0 && rate < 32000 ? rate : 0;
  } catch (const ToolError&) {
    return 0; // the normal path reports why it cannot be read
  }
}

// The rate the library runs at for each input that can be told before
// reading it (not standard input), for the notes on bands the FFT misses.
std::set<int> processingRates(const std::vector<FileJob>& jobs, bool resample) {
  std::set<int> rates;
  for (const FileJob& job : jobs) {
    try {
      const int rate = job.input == "-" ? 0 : AudioReader(job.input).sampleRate();
      if (rate > 0) {
        rates.insert(rate < 32000 && resample ? supportedRateFor(rate) : rate);
      }
    } catch (const ToolError&) {
      // reported when the file is processed
    }
  }
  return rates;
}

// A file below 32 kHz: read whole, converted up to a rate the library takes,
// streamed through it from a temporary file and converted back to the input's
// rate and exact length.
FileResult processResampled(const FileJob& job, const ProcessOptions& options, bool showProgress) {
  const AudioData input = readAudioFile(job.input);
  AudioData working = resampleAudio(input, supportedRateFor(input.sampleRate));
  working.format = wavFloatFormat();
  const std::filesystem::path scratch =
      std::filesystem::temp_directory_path() / ("larkspin-" + std::to_string(::getpid()));
  std::filesystem::create_directories(scratch);
  struct Cleanup {
    std::filesystem::path dir;
    ~Cleanup() {
      std::error_code ignored;
      std::filesystem::remove_all(dir, ignored);
    }
  } cleanup{scratch};
  FileJob inner = job;
  inner.input = (scratch / "in.wav").string();
  inner.output = (scratch / "out.wav").string();
  inner.formatName = "";
  inner.contentRate = input.sampleRate;
  writeAudioFile(inner.input, working);
  FileResult result = processFiles({inner}, options, 1, showProgress)[0];
  result.job = job;
  if (!result.ok) {
    return result;
  }
  AudioData output = resampleAudio(readAudioFile(inner.output), input.sampleRate, input.frames());
  output.format = input.format;
  writeAudioFile(job.output, output);
  const double scale = static_cast<double>(input.sampleRate) / working.sampleRate;
  result.sampleRate = input.sampleRate;
  result.frames = input.frames();
  result.promisedFrames = input.promisedFrames;
  result.latencyFrames = static_cast<int>(std::lround(result.latencyFrames * scale));
  result.delayFrames = std::lround(static_cast<double>(result.delayFrames) * scale);
  return result;
}

int runProcess(const ProcessArguments& args) {
  const std::vector<FileJob> jobs = makeJobs(args);
  ProcessOptions options;
  const larkspin_json::Preset preset = resolvePreset(args.preset);
  if (!args.quiet) {
    reportRounding(preset);
    for (int rate : processingRates(jobs, args.resample)) {
      printNotes(settingNotes(args.preset.settings, preset.values, rate));
    }
  }
  options.payload = preset.payload;
  options.intensity = args.intensity;
  options.bypass = args.bypass;
  options.blockFrames = args.block;
  options.align = args.align;
  const int workers = args.jobs > 0 ? args.jobs : static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  GainRecorder recorder;
  if (!args.gains.empty()) {
    OutputFile probe(args.gains); // a picture that cannot be written fails the run before any audio
    options.afterBlock = [&recorder](vora_ap_control* control, long framesFed) { recorder.record(control, framesFed); };
    options.afterRead = [&recorder](const float* interleaved, long frames, int channels) {
      recorder.addInput(interleaved, frames, channels);
    };
  }

  // Audio on standard output leaves only standard error for the words.
  const bool toStdout = jobs.size() == 1 && jobs[0].output == "-";
  const int lowRate = jobs.size() == 1 ? rateNeedingResampling(jobs[0].input) : 0;
  std::vector<FileResult> results;
  if (lowRate > 0 && args.resample) {
    results.push_back(processResampled(jobs[0], options, !args.quiet));
  } else {
    results = processFiles(jobs, options, workers, !args.quiet);
  }
  for (const FileResult& result : results) {
    // Even with --quiet: the output is shorter than the input claims to be.
    if (result.ok && result.promisedFrames > 0) {
      std::fprintf(stderr,
                   "larkspin: warning: '%s' is truncated: its header promises %ld frames, only %ld are there "
                   "(processed as they are)\n",
                   result.job.input.c_str(), result.promisedFrames, result.frames);
    }
  }
  if (!args.gains.empty() && results[0].ok) {
    // The map was recorded at the rate the library ran at.
    const int rate = lowRate > 0 ? supportedRateFor(lowRate) : results[0].sampleRate;
    const std::string title = "Band gains over time: " + std::filesystem::path(jobs[0].input).filename().string() +
                              ", " + presetName(args.preset);
    writeTextFile(args.gains, recorder.render(title, rate, results[0].channels, lowRate));
  }
  std::FILE* out = toStdout ? stderr : stdout;
  if (args.json) {
    printJsonSummary(out, results, args.align);
  } else if (!args.quiet) {
    if (args.outDir.empty()) {
      if (results[0].ok) {
        printFileSummary(out, results[0], args.align);
      }
    } else {
      printBatchSummary(out, results);
    }
  }
  const bool allOk = std::all_of(results.begin(), results.end(), [](const FileResult& r) { return r.ok; });
  return allOk ? 0 : 1;
}

// Prints what the payload holds: for a JSON file, the values after rounding.
int runPresetDecode(const std::string& path) {
  vora_preset stored;
  vora_preset_decode(loadPreset(path).payload.data(), &stored);
  std::cout << larkspin_json::toJsonText(stored);
  return 0;
}

int runPresetEncode(const std::string& jsonPath, const std::string& outPath) {
  refuseOverwriting({jsonPath}, {outPath});
  const larkspin_json::Preset preset = loadPreset(jsonPath);
  printNotes(presetNotes(preset.values));
  const Payload& payload = preset.payload;
  writeTextFile(outPath, std::string_view(reinterpret_cast<const char*>(payload.data()), payload.size()));
  return 0;
}

int runPresetDefault(const std::vector<std::string>& settings) {
  vora_preset preset = defaultPreset();
  for (const std::string& setting : settings) {
    applySetting(preset, setting);
  }
  const larkspin_json::Preset encoded = larkspin_json::encode(preset);
  printNotes(encoded.roundingNotes);
  printNotes(presetNotes(preset));
  std::cout << larkspin_json::toJsonText(preset);
  return 0;
}

int runPlot(int sampleRate, const PresetChoice& choice, bool curves, const std::string& outPath) {
  requireSvgPath(outPath);
  refuseOverwriting({choice.path}, {outPath});
  const larkspin_json::Preset preset = resolvePreset(choice);
  reportRounding(preset);
  vora_preset stored;
  vora_preset_decode(preset.payload.data(), &stored);
  printNotes(settingNotes(choice.settings, stored, sampleRate));
  writeTextFile(outPath, curves ? renderIoCurves(stored, presetName(choice), sampleRate)
                                : renderBandChart(sampleRate, stored, presetName(choice)));
  return 0;
}

int runDemo(const std::string& directory) {
  std::filesystem::create_directories(directory);
  const std::filesystem::path dir(directory);
  AudioData input = makeDemoSignal(48000);
  input.format = wavFloatFormat();
  const std::string inputPath = (dir / "input.wav").string();
  writeAudioFile(inputPath, input);

  ProcessOptions options;
  options.payload = encodePayload(defaultPreset());
  options.intensity = 1.0f;
  GainRecorder recorder;
  options.afterBlock = [&recorder](vora_ap_control* control, long framesFed) { recorder.record(control, framesFed); };
  options.afterRead = [&recorder](const float* interleaved, long frames, int channels) {
    recorder.addInput(interleaved, frames, channels);
  };
  FileJob job{inputPath, (dir / "output.wav").string(), "", (dir / "report.svg").string()};
  job.reportTitle = reportTitle("input.wav", "the default preset", 1.0);
  const FileResult result = processFiles({job}, options, 1, false)[0];
  if (!result.ok) {
    throw ToolError(result.error);
  }
  writeTextFile((dir / "bands.svg").string(), renderBandChart(48000, defaultPreset(), "the default preset"));
  writeTextFile((dir / "curves.svg").string(), renderIoCurves(defaultPreset(), "the default preset", 48000));
  writeTextFile((dir / "gains.svg").string(),
                recorder.render("Band gains over time: input.wav, the default preset", 48000, input.channelCount()));
  std::printf("demo: default preset (%s) at intensity 1.0\n", kDefaultPresetDescription);
  std::printf("wrote %s/{input.wav, output.wav, report.svg, bands.svg, curves.svg, gains.svg}\n", directory.c_str());
  printFileSummary(stdout, result, false);
  return 0;
}

std::string versionText() {
  // The core reports its version only while a control exists.
  std::string core = "unknown";
  if (vora_ap_control* control = vora_ap_create_control(48000.0f, 256, 1)) {
    if (const char* text = vora_ap_get_lib_version()) {
      core = text;
    }
    vora_ap_destroy_control(control);
  }
  return std::string("larkspin ") + kProgramVersion + " (C interface " + vora_ap_get_wrapper_version() +
         ", processing core " + core + "; this build: " + vora_ap_get_build_info() + ")";
}

} // namespace
} // namespace larkspin_tool

// Setting the command line up can throw as well (out of memory): the whole
// of main is one try block, so nothing escapes it.
int main(int argc, char** argv) try {
  using namespace larkspin_tool;
  // The library's diagnostic lines join the program's own messages on
  // standard error: standard output may carry audio or JSON.
  vora_ap_set_message_hook([](void*, const char* line) { std::fprintf(stderr, "%s\n", line); }, nullptr);
  CLI::App app{"larkspin: hear, read and see what the larkspin processor does"};
  app.require_subcommand(1);
  app.set_version_flag(
      "--version", [] { return versionText(); }, "print the program's and the library's versions");

  ProcessArguments process;
  auto* processCommand = app.add_subcommand("process", "process audio files through the library");
  processCommand
      ->add_option("FILES", process.files, "IN OUT, or with --out-dir several inputs; '-' is standard input or output")
      ->required();
  processCommand->add_option("--out-dir", process.outDir, "write each input's output here, under the input's name");
  processCommand->add_option("--format", process.format,
                             "output format by extension (wav, flac, ogg, aiff, ...); default: the output's extension");
  addPresetOptions(processCommand, process.preset);
  processCommand->add_option("--intensity", process.intensity, "intensity 0..1 (default 1)")
      ->check(finiteNumber())
      ->check(CLI::Range(0.0, 1.0));
  processCommand->add_flag("--bypass", process.bypass, "bypass the processing (output is the delayed input)");
  processCommand->add_option("--block", process.block, "host block length in frames (default 256)")
      ->check(CLI::Range(1, 1 << 20));
  processCommand->add_flag("--resample", process.resample,
                           "process a file below 32 kHz (8, 16, 22.05 kHz...) at a multiple of its rate, then convert "
                           "back");
  processCommand->add_flag("--align", process.align, "remove the delay so the output lines up with the input");
  processCommand->add_option("--report", process.report, "write the long-term average spectra as SVG");
  processCommand->add_option("--gains", process.gains,
                             "write each band's gain over time as an SVG heat map under the input level");
  processCommand->add_option("-j,--jobs", process.jobs, "files processed at once (default: the number of cores)")
      ->check(CLI::Range(1, 1024));
  processCommand->add_flag("-q,--quiet", process.quiet, "print nothing but errors");
  processCommand->add_flag("--json", process.json, "print the summary as JSON");

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

  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& success) {
    return app.exit(success); // --help and --version
  } catch (const CLI::ParseError& error) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    std::fprintf(stderr, "larkspin: error: %s (see larkspin --help)\n",
                 describeUsageError(app, arguments, error).c_str());
    return 2;
  }
  try {
    int status = 0;
    if (*processCommand) {
      status = runProcess(process);
    } else if (*decodeCommand) {
      status = runPresetDecode(decodePath);
    } else if (*defaultCommand) {
      status = runPresetDefault(defaultSettings);
    } else if (*encodeCommand) {
      status = runPresetEncode(encodeIn, encodeOut);
    } else if (*plotCommand) {
      status = runPlot(plotRate, plotPreset, plotCurves, plotOut);
    } else if (*demoCommand) {
      status = runDemo(demoDir);
    }
    // What went to standard output counts only if it arrived.
    std::cout.flush();
    if (!std::cout || std::fflush(stdout) != 0 || std::ferror(stdout)) {
      throw ToolError("writing to standard output failed");
    }
    return status;
  } catch (const UsageError& error) {
    std::fprintf(stderr, "larkspin: error: %s (see larkspin --help)\n", error.what());
    return 2;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "larkspin: error: %s\n", error.what());
    return 1;
  }
} catch (const std::exception& error) {
  std::fprintf(stderr, "larkspin: error: %s\n", error.what());
  return 1;
} catch (...) {
  std::fprintf(stderr, "larkspin: error: unexpected failure\n");
  return 1;
}
