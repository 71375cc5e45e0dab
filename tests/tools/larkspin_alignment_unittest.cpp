// The program's --align: the output lines up with the input for every block
// length and rate, dry, processed or mixed.
#include "tool_runner.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <map>

namespace larkspin_test {
namespace {

class AlignmentTest : public ToolRunner {};

// The largest difference between `got` and dry * in + wet * processed.
float worstError(const Audio& got, const Audio& in, float dry, const Audio& processed, float wet) {
  EXPECT_EQ(got.channels.size(), in.channels.size());
  float worst = 0.0f;
  for (size_t ch = 0; ch < std::min(got.channels.size(), in.channels.size()); ++ch) {
    EXPECT_EQ(got.channels[ch].size(), in.channels[ch].size());
    for (size_t i = 0; i < std::min(got.channels[ch].size(), in.channels[ch].size()); ++i) {
      const float expected = dry * in.channels[ch][i] + wet * processed.channels[ch][i];
      worst = std::max(worst, std::fabs(got.channels[ch][i] - expected));
    }
  }
  return worst;
}

// For every block length: a dry run (bypassed, or at intensity 0) gives the
// input back, processed audio is the same as with blocks of one frame (the
// silence that re-blocking adds is all removed), and a partial intensity
// mixes processed and dry audio in that proportion from the first sample on.
// The dry allowance is the library's mix ease, which settles at about 5e-21
// and never at zero.
TEST_F(AlignmentTest, OutputLinesUpForEveryBlockRateAndMix) {
  // Delays a host sees at blocks of 480, as measured on the library itself.
  const std::map<std::string, long> delays = {{"48000.wav", 224}, {"96000.wav", 480}, {"192000.wav", 992}};
  const std::vector<std::string> names = {"44100.wav", "48000.wav", "96000.wav", "192000.wav"};
  std::filesystem::create_directories(path("in"));
  std::string inputs;
  for (const std::string& name : names) {
    const int rate = std::stoi(name);
    write("in/" + name, testSignal(rate, rate == 44100 ? 1 : 2, rate / 25, static_cast<unsigned>(rate)));
    inputs.append(" ").append(path("in/" + name));
  }
  const int blocks[] = {1, 100, 256, 480, 1024};
  for (size_t turn = 0; turn < std::size(blocks); ++turn) {
    const std::string block = std::to_string(blocks[turn]);
    const std::string common = inputs + " --align -j 2 --block " + block + " --out-dir " + path("");
    const std::string dryMode = turn % 2 == 0 ? " --bypass" : " --intensity 0";
    SCOPED_TRACE(dryMode + ", block " + block);
    const ToolRun dry = run("process" + common + "dry" + block + dryMode + " --json");
    ASSERT_EQ(dry.status, 0) << dry.err;
    ASSERT_EQ(run("process" + common + "wet" + block + " --quiet").status, 0);
    ASSERT_EQ(run("process" + common + "mix" + block + " --quiet --intensity 0.25").status, 0);
    const nlohmann::json report = nlohmann::json::parse(dry.out);
    for (const auto& file : report["files"]) {
      const auto name = std::filesystem::path(file["input"].get<std::string>()).filename().string();
      if (block == "480" && delays.count(name) != 0) {
        EXPECT_EQ(file["delayFrames"], delays.at(name)) << name;
      }
    }
    for (const std::string& name : names) {
      const Audio in = read("in/" + name), wet = read("wet" + block + "/" + name);
      EXPECT_EQ(wet.channels, read("wet1/" + name).channels) << name;
      EXPECT_LE(worstError(read("dry" + block + "/" + name), in, 1.0f, wet, 0.0f), 1e-20f) << name;
      EXPECT_LE(worstError(read("mix" + block + "/" + name), in, 0.75f, wet, 0.25f), 2e-6f) << name;
    }
  }
}

} // namespace
} // namespace larkspin_test
