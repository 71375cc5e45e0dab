// larkspin: process audio files through the library, read and write presets
// as JSON, and draw the bands, gains and spectra.
#include "larkspin/audio_file.h"
#include "larkspin/band_chart.h"
#include "larkspin/batch.h"
#include "larkspin/command_line.h"
#include "larkspin/demo_signal.h"
#include "larkspin/preset_file.h"
#include "larkspin/summary.h"
#include "larkspin/svg_chart.h"
#include "larkspin/tool_error.h"

#include <larkspin/vora_ap.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <thread>

namespace larkspin_tool {
namespace {

constexpr const char* kProgramVersion = LARKSPIN_PROGRAM_VERSION;

struct ProcessArguments {
  std::vector<std::string> files;
  std::string outDir, preset, report, format;
  float intensity = 1.0f;
  bool bypass = false, align = false, quiet = false, json = false;
  int block = 256;
  int jobs = 0;
};

std::vector<FileJob> makeJobs(const ProcessArguments& args) {
  std::vector<FileJob> jobs;
  if (args.outDir.empty()) {
    if (args.files.size() != 2) {
      throw UsageError("process takes IN and OUT, or several inputs with --out-dir DIR");
    }
    jobs.push_back({args.files[0], args.files[1], args.format, args.report});
    return jobs;
  }
  if (!args.report.empty()) {
    throw UsageError("--report works with a single input, not with --out-dir");
  }
  std::filesystem::create_directories(args.outDir);
  std::vector<std::string> names;
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
    jobs.push_back({input, (std::filesystem::path(args.outDir) / name).string(), args.format, ""});
  }
  return jobs;
}

int runProcess(const ProcessArguments& args) {
  const std::vector<FileJob> jobs = makeJobs(args);
  ProcessOptions options;
  options.payload = args.preset.empty() ? encodePayload(defaultPreset()) : loadPreset(args.preset).payload;
  options.intensity = args.intensity;
  options.bypass = args.bypass;
  options.blockFrames = args.block;
  options.align = args.align;
  const int workers = args.jobs > 0 ? args.jobs : static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));

  // Audio on standard output leaves only standard error for the words.
  const bool toStdout = jobs.size() == 1 && jobs[0].output == "-";
  const std::vector<FileResult> results = processFiles(jobs, options, workers, !args.quiet);
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
  const Payload payload = loadPreset(jsonPath).payload;
  std::ofstream out(outPath, std::ios::binary);
  if (!out.write(reinterpret_cast<const char*>(payload.data()), static_cast<std::streamsize>(payload.size())) ||
      !out.flush()) {
    out.close();
    removePartialFile(outPath);
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
  const std::string inputPath = (dir / "input.wav").string();
  writeAudioFile(inputPath, input);

  ProcessOptions options;
  options.payload = encodePayload(defaultPreset());
  options.intensity = 1.0f;
  const FileJob job{inputPath, (dir / "output.wav").string(), "", (dir / "report.svg").string()};
  const FileResult result = processFiles({job}, options, 1, false)[0];
  if (!result.ok) {
    throw ToolError(result.error);
  }
  writeTextFile((dir / "bands.svg").string(), renderBandChart(48000, defaultPreset()));
  std::printf("demo: default preset (%s) at intensity 1.0\n", kDefaultPresetDescription);
  std::printf("wrote %s/{input.wav, output.wav, report.svg, bands.svg}\n", directory.c_str());
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
         ", processing core " + core + ")";
}

} // namespace
} // namespace larkspin_tool

int main(int argc, char** argv) {
  using namespace larkspin_tool;
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
  processCommand->add_option("--preset", process.preset,
                             std::string("196-byte payload or JSON preset; default: ") + kDefaultPresetDescription);
  processCommand->add_option("--intensity", process.intensity, "intensity 0..1 (default 1)")
      ->check(finiteNumber())
      ->check(CLI::Range(0.0, 1.0));
  processCommand->add_flag("--bypass", process.bypass, "bypass the processing (output is the delayed input)");
  processCommand->add_option("--block", process.block, "host block length in frames (default 256)")
      ->check(CLI::Range(1, 1 << 20));
  processCommand->add_flag("--align", process.align, "remove the delay so the output lines up with the input");
  processCommand->add_option("--report", process.report, "write the long-term average spectra as SVG");
  processCommand->add_option("-j,--jobs", process.jobs, "files processed at once (default: the number of cores)")
      ->check(CLI::Range(1, 1024));
  processCommand->add_flag("-q,--quiet", process.quiet, "print nothing but errors");
  processCommand->add_flag("--json", process.json, "print the summary as JSON");

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
    } else if (*encodeCommand) {
      status = runPresetEncode(encodeIn, encodeOut);
    } else if (*plotCommand) {
      status = runPlot(plotRate, plotPreset, plotOut);
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
}
