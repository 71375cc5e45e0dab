// The program's handling of files: refusals, formats, streaming through
// pipes with flat memory, and many files at once.
#include "tool_runner.h"

#include <nlohmann/json.hpp>

#include <sys/resource.h>
#include <sys/stat.h>

#include <cmath>

namespace larkspin_test {
namespace {

namespace fs = std::filesystem;

class FilesTest : public ToolRunner {};

TEST_F(FilesTest, RefusalsSayWhyAndLeaveNoOutput) {
  write("in.wav", testSignal(48000, 2, 4800, 1u), SF_FORMAT_WAV | SF_FORMAT_PCM_16);
  write("three.wav", testSignal(48000, 3, 480, 2u));
  write("slow.wav", testSignal(8000, 1, 800, 3u));
  const std::string in = path("in.wav") + " ";
  const Audio before = read("in.wav"), slowBefore = read("slow.wav");
  // A payload the library refuses: all zeros (gains of minus infinity).
  std::ofstream(path("zero.bin"), std::ios::binary) << std::string(196, '\0');
  std::ofstream(path("broken.json")) << "{\"bands\": [1, 2";
  const std::string shipped = std::string(LARKSPIN_SOURCE_DIR) + "/presets/neutral.json";
  // Presets that are not: endless, waiting for a writer, a folder, too large,
  // and one that says a value twice (the second would win unseen).
  ASSERT_EQ(::mkfifo(path("fifo.json").c_str(), 0600), 0);
  fs::create_directories(path("folder.json"));
  std::ofstream(path("huge.json")) << std::string(100000, ' ') << slurp(shipped);
  std::string twice = slurp(shipped);
  twice.insert(twice.find("\"gainDb\""), "\"gainDb\": 40, ");
  std::ofstream(path("twice.json")) << twice;
  // The same file under other names.
  fs::create_symlink(path("slow.wav"), path("link.wav"));
  fs::create_hard_link(path("in.wav"), path("hard.wav"));
  // Exit status 1 (2 for a misused command line), one line on standard
  // error that names the problem, and no output file made.
  struct Case {
    std::string arguments, message, mustNotExist;
    int status = 1;
    std::string stdoutTo = "";
  };
  std::vector<Case> cases = {
      {"process " + path("missing.wav") + " " + path("o.wav"), "cannot read", "o.wav"},
      {"process " + path("three.wav") + " " + path("o.wav"), "only mono and stereo", "o.wav"},
      {"process " + path("slow.wav") + " " + path("o.wav"), "--resample processes it", "o.wav"},
      {"process " + in + path("o.wav") + " --intensity nan", "not a finite number", "o.wav", 2},
      {"process " + in + "/dev/full", "No space left", ""},
      {"process " + in + "- --format wav", "No space left", "", 1, "/dev/full"},
      {"process " + in + path("j.wav") + " --json", "standard output", "", 1, "/dev/full"},
      {"process " + in + path("o.wav") + " --report " + path("no/dir.svg"), "No such file", "o.wav"},
      {"process " + in + path("o.wav") + " --report " + path("r.png"), "SVG only", "o.wav"},
      {"process " + in + path("o.xyz"), "unknown extension '.xyz'", "o.xyz"},
      {"process " + in + path("o.wav") + " --format xyz", "unknown output format 'xyz'", "o.wav"},
      {"process " + in + path("in.wav"), "is the input itself", ""},
      {"process " + path("slow.wav") + " " + path("slow.wav") + " --resample", "is the input itself", ""},
      {"process " + path("slow.wav") + " " + path("link.wav") + " --resample", "is the input", ""},
      {"process " + in + dir_.string() + "/./hard.wav", "is the input", ""},
      {"process " + in + path("three.wav") + " --out-dir " + dir_.string(), "is the input", ""},
      {"process " + in + path("o.wav") + " --report " + path("r.svg") + " --gains " + dir_.string() + "/./r.svg",
       "are one file", "r.svg"},
      {"process " + in + "-", "give --format", "", 2},
      {"preset encode " + shipped + " " + shipped, "is the input itself", ""},
      {"preset decode /dev/zero", "not an ordinary file", ""},
      {"preset decode " + path("fifo.json"), "not an ordinary file", ""},
      {"preset decode " + path("folder.json"), "is a folder", ""},
      {"preset decode " + path("huge.json"), "larger than a preset can be", ""},
      {"preset decode " + path("twice.json"), "the key \"gainDb\" appears twice", ""},
      {"procss " + in + path("o.wav"), "did you mean 'process'?", "o.wav", 2},
      {"process --intensty 0.5 " + in + path("o.wav"), "did you mean '--intensity'?", "o.wav", 2},
      {"process " + in, "IN and OUT", "", 2},
      {"process " + in + path("o.wav") + " --preset " + path("zero.bin"), "the library refuses the payload", "o.wav"},
      {"plot --rate 8000 " + path("o.svg"), "32000 to 192000", "o.svg"},
      {"plot " + path("o.png"), "SVG only", "o.png"},
      {"preset decode " + path("zero.bin"), "band 0, channel 0, ", ""},
      {"preset encode " + path("missing.json") + " /dev/full", "cannot read", ""},
      {"preset encode " + path("broken.json") + " " + path("o.bin"), "nor valid JSON", "o.bin"},
      {"preset encode " + shipped + " /dev/full", "writing '/dev/full' failed: No space left", ""},
  };
  // Every way a --set can be wrong, each named.
  for (const auto& [setting, message] :
       std::vector<std::pair<std::string, std::string>>{{"band13.gainDb=1", "unknown band"},
                                                        {"band3.ch2.gainDb=1", "unknown channel"},
                                                        {"band3.loudness=1", "unknown field"},
                                                        {"gainDb=1", "expected bandN"},
                                                        {"band3.gainDb=4dB", "not a number"},
                                                        {"band3.ch0.slowFactor=0.5", "shared by both channels"},
                                                        {"band3.gainDb", "expected NAME=VALUE"}}) {
    cases.push_back({"plot --set " + setting + " " + path("o.svg"), message, "o.svg"});
  }
  for (const Case& c : cases) {
    const ToolRun result = run(c.arguments, c.stdoutTo);
    SCOPED_TRACE(c.arguments + "\n" + result.err);
    EXPECT_EQ(result.status, c.status);
    EXPECT_EQ(result.err.rfind("larkspin: error: ", 0), 0u);
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
    EXPECT_NE(result.err.find(c.message), std::string::npos);
    EXPECT_TRUE(c.mustNotExist.empty() || !fs::exists(path(c.mustNotExist)));
  }
  const ToolRun version = run("--version");
  EXPECT_EQ(version.status, 0);
  EXPECT_NE(version.out.find("C interface 3.4.0, processing core "), std::string::npos) << version.out;
  EXPECT_EQ(read("in.wav").channels, before.channels);
  EXPECT_EQ(read("slow.wav").channels, slowBefore.channels);
}

// A write that fails part-way (a file size limit, as a full disk would make
// it) leaves the previous file byte for byte and nothing beside it.
TEST_F(FilesTest, AFailedWriteLeavesThePreviousFile) {
  write("in.wav", testSignal(48000, 2, 48000, 6u), SF_FORMAT_WAV | SF_FORMAT_PCM_16);
  const std::string shipped = std::string(LARKSPIN_SOURCE_DIR) + "/presets/neutral.json";
  const std::string previous(30000, 'x');
  for (const auto& [output, arguments, limitBytes] :
       {std::tuple{"out.wav", "process " + path("in.wav") + " " + path("out.wav"), 20000},
        std::tuple{"bands.svg", "plot " + path("bands.svg"), 4000},
        std::tuple{"preset.bin", "preset encode " + shipped + " " + path("preset.bin"), 100}}) {
    std::ofstream(path(output)) << previous;
    // SIGXFSZ ignored: the write fails with EFBIG instead of ending the program.
    // Messages go through a pipe, which the limit does not touch.
    const std::string command = "trap '' XFSZ; prlimit --fsize=" + std::to_string(limitBytes) + " " +
                                LARKSPIN_TOOL_PATH + " " + arguments + " 2>&1";
    FILE* pipe = ::popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string message;
    for (int c; (c = std::fgetc(pipe)) != EOF;) {
      message += static_cast<char>(c);
    }
    const int status = ::pclose(pipe);
    EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 1) << output;
    EXPECT_NE(message.find("File too large"), std::string::npos) << message;
    EXPECT_TRUE(slurp(path(output)) == previous) << output;
  }
  for (const auto& entry : fs::directory_iterator(dir_)) {
    EXPECT_NE(entry.path().filename().string()[0], '.') << entry.path();
  }
}

TEST_F(FilesTest, OutputFormatFollowsTheExtensionOrFormat) {
  write("in.wav", testSignal(44100, 1, 4410, 2u), SF_FORMAT_WAV | SF_FORMAT_FLOAT);
  const struct {
    std::string output, extra;
    int major;
  } cases[] = {
      {"o.flac", "", SF_FORMAT_FLAC}, {"o.wav", "--format au", SF_FORMAT_AU}, {"noextension", "", SF_FORMAT_WAV}};
  for (const auto& c : cases) {
    const ToolRun result = run("process " + path("in.wav") + " " + path(c.output) + " -q " + c.extra);
    ASSERT_EQ(result.status, 0) << c.output << result.err;
    const SndfileHandle file(path(c.output));
    EXPECT_EQ(file.frames(), 4410) << c.output;
    EXPECT_EQ(file.format() & SF_FORMAT_TYPEMASK, c.major) << c.output;
  }
}

// Odd inputs are processed and named: non-finite samples are counted and
// left out of the levels; a truncated file (its header promises more frames
// than it holds) is warned of, even with --quiet.
TEST_F(FilesTest, SummaryNamesOddInputs) {
  Audio audio = testSignal(48000, 1, 4800, 3u);
  for (int i = 0; i < 100; ++i) {
    audio.channels[0][static_cast<size_t>(1000 + i)] = i % 2 == 0 ? NAN : INFINITY;
  }
  write("nan.wav", audio, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
  const auto file =
      nlohmann::json::parse(succeed("process " + path("nan.wav") + " " + path("o.wav") + " --json"))["files"][0];
  EXPECT_EQ(file["nonFiniteInputSamples"], 100);
  EXPECT_GT(file["rmsInDbfs"].get<double>(), -20.0);

  write("whole.wav", testSignal(48000, 1, 48000, 4u), SF_FORMAT_WAV | SF_FORMAT_PCM_16);
  const std::string whole = slurp(path("whole.wav"));
  std::ofstream(path("half.wav"), std::ios::binary) << whole.substr(0, whole.size() - 48000); // 24000 frames gone
  const ToolRun quiet = run("process " + path("half.wav") + " " + path("o.wav") + " --quiet");
  EXPECT_EQ(quiet.status, 0);
  EXPECT_EQ(quiet.err, "larkspin: warning: '" + path("half.wav") +
                           "' is truncated: its header promises 48000 frames, only 24000 are there (processed as "
                           "they are)\n");
  const auto half =
      nlohmann::json::parse(succeed("process " + path("half.wav") + " " + path("o.wav") + " --json"))["files"][0];
  EXPECT_EQ(half["frames"], 24000);
  EXPECT_EQ(half["promisedFrames"], 48000);
}

TEST_F(FilesTest, MemoryStaysFlatWhateverTheLength) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitiser's own memory hides the program's";
#endif
  // 4 s and 16 s: holding the longer file's samples as floats would take
  // 2.3 MB more, and a copy of the output as much again; streaming keeps
  // the peak within about 100 kB whatever the length, also with both
  // pictures, which keep only what they can show. sox makes the files,
  // so that this process stays small and the children's peak is the
  // program's.
  long peak[2] = {};
  for (int seconds : {4, 16}) {
    const std::string file = path("long.wav");
    const std::string sox = "sox -n -r 48000 -b 16 " + file + " synth " + std::to_string(seconds) + " whitenoise";
    ASSERT_EQ(std::system(sox.c_str()), 0);
    succeed("process " + file + " " + path("out.wav") + " --align --report " + path("r.svg") + " --gains " +
            path("g.svg"));
    rusage children{};
    getrusage(RUSAGE_CHILDREN, &children);
    peak[seconds / 16] = children.ru_maxrss;
  }
  EXPECT_LT(peak[1], peak[0] + 1500) << peak[0] << " kB for 4 s, " << peak[1] << " kB for 16 s";
}

TEST_F(FilesTest, PipesGiveWhatFilesGive) {
  write("in.wav", testSignal(48000, 2, 24000, 5u), SF_FORMAT_WAV | SF_FORMAT_PCM_24);
  const std::string in = path("in.wav") + " ";
  ASSERT_EQ(run("process " + in + path("file.wav") + " --block 100 --align").status, 0);
  // From sox through the program, as in a shell pipeline (a header-only format on the pipe).
  const std::string fromSox = "sox " + path("in.wav") + " -t au - | " + LARKSPIN_TOOL_PATH + " process - " +
                              path("pipe.wav") + " --block 100 --align --format wav 2>" + path("sox.err");
  ASSERT_EQ(std::system(fromSox.c_str()), 0) << slurp(path("sox.err"));
  ASSERT_EQ(run("process - - --format wav --block 100 --align <" + path("in.wav"), path("stdout.wav")).status, 0);
  EXPECT_TRUE(slurp(path("stdout.wav")) == slurp(path("file.wav")));
  EXPECT_EQ(read("pipe.wav").channels, read("file.wav").channels);

  // Every format the README names for pipes, in and out through real pipes
  // (cat on both ends), gives what the same run between files gives.
  for (const std::string format : {"au", "flac", "ogg"}) {
    SCOPED_TRACE(format);
    const std::string source = path("in." + format), file = path("file." + format), piped = path("piped." + format);
    ASSERT_EQ(run("process " + in + source).status, 0);
    ASSERT_EQ(run("process " + source + " " + file).status, 0);
    const std::string command = "cat " + source + " | " + LARKSPIN_TOOL_PATH + " process - - -q --format " + format +
                                " 2>" + path("pipe.err") + " | cat >" + piped;
    ASSERT_EQ(std::system(command.c_str()), 0);
    EXPECT_EQ(slurp(path("pipe.err")), "");
    EXPECT_EQ(read("piped." + format).channels, read("file." + format).channels);
  }
  const std::string wav =
      std::string(LARKSPIN_TOOL_PATH) + " process " + in + "- --format wav 2>" + path("pipe.err") + " | cat";
  ASSERT_EQ(std::system(wav.c_str()), 0);
  EXPECT_NE(slurp(path("pipe.err")).find("a pipe takes au, flac or ogg"), std::string::npos);
}

TEST_F(FilesTest, BatchKeepsGoingPastABadFile) {
  fs::create_directories(path("in"));
  std::string inputs;
  for (int i = 0; i < 4; ++i) {
    const std::string name = "in/" + std::to_string(i) + ".wav";
    // Float files too: their bytes must not depend on the time of writing.
    write(name, testSignal(i % 2 == 0 ? 48000 : 96000, 1 + i % 2, 9600, static_cast<unsigned>(i)),
          SF_FORMAT_WAV | (i < 2 ? SF_FORMAT_PCM_16 : SF_FORMAT_FLOAT));
    inputs.append(" ").append(path(name));
  }
  std::ofstream(path("in/bad.wav")) << "not audio";
  inputs.append(" ").append(path("in/bad.wav"));

  const ToolRun batch = run("process" + inputs + " --out-dir " + path("out") + " -j 2 --block 100 --intensity 0.5");
  EXPECT_EQ(batch.status, 1);
  EXPECT_NE(batch.out.find("FAILED  " + path("in/bad.wav")), std::string::npos) << batch.out;
  EXPECT_NE(batch.out.find("5 files, 1 failed"), std::string::npos) << batch.out;
  EXPECT_NE(batch.err.find("bad.wav"), std::string::npos) << batch.err;
  EXPECT_FALSE(fs::exists(path("out/bad.wav")));
  for (int i = 0; i < 4; ++i) {
    const std::string name = std::to_string(i) + ".wav";
    ASSERT_EQ(run("process " + path("in/" + name) + " " + path(name) + " --block 100 --intensity 0.5").status, 0);
    EXPECT_TRUE(slurp(path("out/" + name)) == slurp(path(name))) << name;
  }
  // Quiet: the one error, and no note of the values rounded.
  const ToolRun quiet = run("process" + inputs + " --out-dir " + path("out") + " --quiet --set all.fastRatio=0.3");
  EXPECT_EQ(quiet.status, 1);
  EXPECT_EQ(quiet.out, "");
  EXPECT_EQ(std::count(quiet.err.begin(), quiet.err.end(), '\n'), 1) << quiet.err;
}

} // namespace
} // namespace larkspin_test
