// The program's --align: the output lines up with the input for every block
// length and rate, and a dry run gives the input back.
#include "tool_runner.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace larkspin_test {
namespace {

constexpr int kRates[] = {44100, 48000, 88200, 96000, 176400, 192000};
constexpr int kBlocks[] = {1, 100, 256, 480, 1024};

class AlignmentTest : public ToolRunner {};

// A dry run (bypassed, or at intensity 0) equals the input bit for bit. The
// one exception is the library's mix ease, which settles at about 5e-21 and
// never at zero: it leaves that fraction of the input in float output where
// the input is exactly zero.
TEST_F(AlignmentTest, DryRunsGiveTheInputBackForEveryBlockAndRate) {
  // Every rate, mono and stereo, 16-bit and float files, as one batch per command.
  std::vector<std::string> names;
  std::string inputs;
  for (size_t i = 0; i < std::size(kRates); ++i) {
    const int rate = kRates[i];
    names.push_back(std::to_string(rate) + ".wav");
    inputs += " " + path("in/" + names.back());
    std::filesystem::create_directories(path("in"));
    write("in/" + names.back(), testSignal(rate, i == 0 ? 1 : 2, rate / 25, static_cast<unsigned>(rate)),
          SF_FORMAT_WAV | (i % 2 == 0 ? SF_FORMAT_PCM_16 : SF_FORMAT_FLOAT));
  }
  // Both dry paths, taking turns over the block lengths.
  for (size_t turn = 0; turn < std::size(kBlocks); ++turn) {
    const int block = kBlocks[turn];
    const std::string mode = turn % 2 == 0 ? "--bypass" : "--intensity 0", out = "out" + std::to_string(block);
    SCOPED_TRACE(mode + ", block " + std::to_string(block));
    const ToolRun result = run("process" + inputs + " --align --json -j 2 --block " + std::to_string(block) + " " +
                               mode + " --out-dir " + path(out));
    ASSERT_EQ(result.status, 0) << result.err;
    // Delays a host sees, as measured on the library itself.
    for (const auto& file : nlohmann::json::parse(result.out)["files"]) {
      const long rate = std::stol(std::filesystem::path(file["input"].get<std::string>()).filename().string());
      const long expected = rate == 48000 ? 224 : rate == 96000 ? 480 : rate == 192000 ? 992 : -1;
      if (block == 480 && expected > 0) {
        EXPECT_EQ(file["delayFrames"], expected) << rate;
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
            ASSERT_TRUE(isFloat && x == 0.0f && std::fabs(y) <= 1e-20f) << name << " at " << i << ": " << y;
          }
        }
      }
    }
  }
}

// Processed audio comes out the same whatever the host's block length (the
// silence that re-blocking adds is all removed), and a partial intensity
// mixes processed and dry audio in that proportion from the first sample on.
TEST_F(AlignmentTest, OutputDoesNotDependOnTheBlockLengthAndMixesFromTheStart) {
  std::filesystem::create_directories(path("in"));
  const std::string inputs = path("in/44100.wav") + " " + path("in/96000.wav");
  for (int rate : {44100, 96000}) {
    write("in/" + std::to_string(rate) + ".wav", testSignal(rate, 2, rate / 10, 7u));
  }
  for (int block : kBlocks) {
    const std::string common = " --align --quiet -j 2 --block " + std::to_string(block) + " --out-dir " + path("");
    ASSERT_EQ(run("process " + inputs + common + "wet" + std::to_string(block)).status, 0);
    ASSERT_EQ(run("process " + inputs + " --intensity 0.25" + common + "mix" + std::to_string(block)).status, 0);
    for (const std::string& name : std::vector<std::string>{"44100.wav", "96000.wav"}) {
      SCOPED_TRACE(name + ", block " + std::to_string(block));
      const Audio in = read("in/" + name), wet = read("wet" + std::to_string(block) + "/" + name),
                  mix = read("mix" + std::to_string(block) + "/" + name);
      EXPECT_EQ(wet.channels, read("wet1/" + name).channels);
      ASSERT_EQ(mix.channels.size(), in.channels.size());
      float worst = 0.0f;
      for (size_t ch = 0; ch < in.channels.size(); ++ch) {
        for (size_t i = 0; i < in.channels[ch].size(); ++i) {
          const float expected = 0.25f * wet.channels[ch][i] + 0.75f * in.channels[ch][i];
          worst = std::max(worst, std::fabs(mix.channels[ch][i] - expected));
        }
      }
      EXPECT_LE(worst, 2e-6f);
    }
  }
}

} // namespace
} // namespace larkspin_test
