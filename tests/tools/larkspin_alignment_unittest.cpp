// The program's --align: the output lines up with the input for every block
// length and rate, and a dry run gives the input back.
#include "tool_runner.h"

#include <nlohmann/json.hpp>

#include <cmath>

namespace larkspin_test {
namespace {

constexpr int kRates[] = {44100, 48000, 88200, 96000, 176400, 192000};
constexpr int kBlocks[] = {1, 100, 256, 480, 1024};

class AlignmentTest : public ToolRunner {
protected:
  // Every rate in 16-bit and float files, as one batch per command.
  std::vector<std::string> writeInputs() {
    std::vector<std::string> names;
    for (int rate : kRates) {
      const Audio audio = testSignal(rate, (rate / 100) % 2 == 1 ? 1 : 2, rate / 25, static_cast<unsigned>(rate));
      for (const auto& [suffix, format] : {std::pair{"i16", SF_FORMAT_PCM_16}, std::pair{"f32", SF_FORMAT_FLOAT}}) {
        names.push_back(std::to_string(rate) + "-" + suffix + ".wav");
        write("in/" + names.back(), audio, SF_FORMAT_WAV | format);
      }
    }
    return names;
  }
};

// A dry run (bypassed, or at intensity 0) equals the input bit for bit. The
// one exception is the library's mix ease, which settles at about 5e-21 and
// never at zero: it leaves that fraction of the input in float output where
// the input is exactly zero.
TEST_F(AlignmentTest, DryRunsGiveTheInputBackForEveryBlockAndRate) {
  std::filesystem::create_directories(path("in"));
  const std::vector<std::string> names = writeInputs();
  std::string inputs;
  for (const auto& name : names) {
    inputs += " " + path("in/" + name);
  }
  for (const char* mode : {"--bypass", "--intensity 0"}) {
    for (int block : kBlocks) {
      const std::string out = "out" + std::to_string(block) + (mode[2] == 'b' ? "b" : "i");
      const ToolRun result = run("process" + inputs + " --align --json -j 2 --block " + std::to_string(block) + " " +
                                 mode + " --out-dir " + path(out));
      ASSERT_EQ(result.status, 0) << result.err;
      const nlohmann::json summary = nlohmann::json::parse(result.out);
      for (const auto& file : summary["files"]) {
        // Delays a host sees, as measured on the library itself.
        const long rate = std::stol(std::filesystem::path(file["input"].get<std::string>()).filename().string());
        if (block == 480) {
          const long expected = rate == 48000 ? 224 : rate == 96000 ? 480 : rate == 192000 ? 992 : -1;
          if (expected > 0) {
            EXPECT_EQ(file["delayFrames"], expected) << rate;
          }
        }
      }
      for (const auto& name : names) {
        const Audio in = read("in/" + name);
        int format = 0;
        const Audio got = read(out + "/" + name, &format);
        ASSERT_EQ(got.channels.size(), in.channels.size()) << name;
        const bool isFloat = (format & SF_FORMAT_SUBMASK) == SF_FORMAT_FLOAT;
        for (size_t ch = 0; ch < in.channels.size(); ++ch) {
          ASSERT_EQ(got.channels[ch].size(), in.channels[ch].size()) << name;
          for (size_t i = 0; i < in.channels[ch].size(); ++i) {
            const float x = in.channels[ch][i], y = got.channels[ch][i];
            if (x != y) {
              ASSERT_TRUE(isFloat && x == 0.0f && std::fabs(y) <= 1e-20f)
                  << mode << " block " << block << " " << name << " at " << i << ": " << y << " for " << x;
            }
          }
        }
      }
    }
  }
}

// Processed audio comes out the same whatever the host's block length: the
// silence that re-blocking adds is all removed.
TEST_F(AlignmentTest, ProcessedOutputDoesNotDependOnTheBlockLength) {
  for (int rate : {44100, 96000}) {
    write("in.wav", testSignal(rate, 2, rate / 10, 7u), SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    for (const char* intensity : {"1", "0.5"}) {
      std::vector<Audio> outputs;
      for (int block : kBlocks) {
        const ToolRun result = run("process " + path("in.wav") + " " + path("out.wav") + " --align --quiet --block " +
                                   std::to_string(block) + " --intensity " + intensity);
        ASSERT_EQ(result.status, 0) << result.err;
        outputs.push_back(read("out.wav"));
        EXPECT_EQ(outputs.back().channels, outputs.front().channels) << rate << " block " << block << " " << intensity;
      }
    }
  }
}

// A partial intensity mixes processed and dry audio in that proportion from
// the file's first sample on.
TEST_F(AlignmentTest, IntensityIsInForceFromTheFirstSample) {
  write("in.wav", testSignal(48000, 2, 9600, 9u), SF_FORMAT_WAV | SF_FORMAT_FLOAT);
  ASSERT_EQ(run("process " + path("in.wav") + " " + path("wet.wav") + " --align --quiet --block 480").status, 0);
  const Audio in = read("in.wav"), wet = read("wet.wav");
  for (float intensity : {0.25f, 0.5f, 0.75f}) {
    const ToolRun result = run("process " + path("in.wav") + " " + path("mix.wav") + " --align --quiet --block 480" +
                               " --intensity " + std::to_string(intensity));
    ASSERT_EQ(result.status, 0) << result.err;
    const Audio mix = read("mix.wav");
    for (size_t ch = 0; ch < in.channels.size(); ++ch) {
      for (size_t i = 0; i < in.channels[ch].size(); ++i) {
        const float expected = intensity * wet.channels[ch][i] + (1.0f - intensity) * in.channels[ch][i];
        ASSERT_NEAR(mix.channels[ch][i], expected, 2e-6f) << intensity << " at " << i;
      }
    }
  }
}

} // namespace
} // namespace larkspin_test
