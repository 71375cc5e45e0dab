// The plugin in a host of our own: its output against the library driven
// directly, its latency, real-time behaviour and preset handling.
#include "lv2_reference.h"
#include "lv2_test_host.h"
#include "preset_json/preset_json.h"
#include "support/allocation_counter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>

namespace larkspin_test {
namespace {

constexpr float kRate = 48000.0f;
constexpr const char* kStereo = "urn:larkspin:lv2:stereo";
constexpr const char* kMono = "urn:larkspin:lv2:mono";

// Runs `input` through `plugin` in blocks of `pattern`; `beforeBlock(i)` may
// send messages or change ports before block i. Counts allocations in run().
Planar runPlugin(Lv2Instance& plugin, const Planar& input, const std::vector<uint32_t>& pattern,
                 const std::function<void(size_t)>& beforeBlock = {}, size_t* allocations = nullptr) {
  Planar output(input.size(), std::vector<float>(input[0].size()));
  size_t offset = 0;
  size_t allocated = 0;
  for (size_t block = 0; block < pattern.size(); ++block) {
    if (beforeBlock) {
      beforeBlock(block);
    }
    const float* in[2] = {input[0].data() + offset, input.size() > 1 ? input[1].data() + offset : nullptr};
    float* out[2] = {output[0].data() + offset, output.size() > 1 ? output[1].data() + offset : nullptr};
    {
      AllocationScope scope;
      plugin.run(in, out, pattern[block]);
      allocated += scope.allocations();
    }
    plugin.runWork();
    offset += pattern[block];
  }
  if (allocations != nullptr) {
    *allocations = allocated;
  }
  return output;
}

std::string writeFile(const std::string& name, const void* bytes, size_t size) {
  const auto path = std::filesystem::temp_directory_path() / ("larkspin_lv2_" + name);
  std::ofstream(path, std::ios::binary).write(static_cast<const char*>(bytes), static_cast<std::streamsize>(size));
  return path.string();
}

// Largest step between neighbouring output samples in [from, to).
float largestStep(const Planar& signal, size_t from, size_t to) {
  float step = 0.0f;
  for (const auto& channel : signal) {
    for (size_t i = std::max<size_t>(from, 1); i < to && i < channel.size(); ++i) {
      step = std::max(step, std::abs(channel[i] - channel[i - 1]));
    }
  }
  return step;
}

struct BlockCase {
  const char* uri;
  int channels;
  float rate;
  uint32_t block; // 0: seeded random sizes from 1 to 5000
};

class Lv2Blocks : public testing::TestWithParam<BlockCase> {};

// Same library, same calls in the same order: the output is bit-identical,
// so the tolerance is zero. The plugin feeds the library fixed chunks, so
// its output does not depend on the host's blocking at all.
TEST_P(Lv2Blocks, OutputEqualsTheLibraryAndNothingAllocates) {
  const BlockCase& c = GetParam();
  Lv2Instance plugin(c.uri, c.rate);
  ASSERT_TRUE(plugin.valid()) << "is LV2_PATH set to the built bundle?";
  ASSERT_EQ(plugin.channels(), c.channels);
  plugin.activate();
  const Planar input = noise(c.channels, 24000, 3);
  const auto pattern = blocks(input[0].size(), c.block);
  size_t allocations = 0;
  const Planar output = runPlugin(plugin, input, pattern, {}, &allocations);
  EXPECT_EQ(maxDifference(output, referenceOutput(input, c.rate, {})), 0.0f);
  EXPECT_EQ(allocations, 0u);
}

TEST_P(Lv2Blocks, ImpulseArrivesAtTheReportedLatency) {
  const BlockCase& c = GetParam();
  for (const float intensity : {1.0f, 0.0f}) {
    Lv2Instance plugin(c.uri, c.rate);
    ASSERT_TRUE(plugin.valid());
    plugin.setControl("intensity", intensity);
    plugin.activate();
    constexpr size_t kAt = 3000;
    Planar input(static_cast<size_t>(c.channels), std::vector<float>(16384, 0.0f));
    for (auto& channel : input) {
      channel[kAt] = 0.5f;
    }
    const Planar output = runPlugin(plugin, input, blocks(input[0].size(), c.block));
    const auto& left = output[0];
    const auto peak =
        std::max_element(left.begin(), left.end(), [](float a, float b) { return std::abs(a) < std::abs(b); });
    EXPECT_EQ(static_cast<float>(peak - left.begin() - kAt), plugin.latency()) << "intensity " << intensity;
    EXPECT_GT(plugin.latency(), 0.0f);
  }
}

INSTANTIATE_TEST_SUITE_P(Patterns, Lv2Blocks,
                         testing::Values(BlockCase{kStereo, 2, kRate, 1}, BlockCase{kStereo, 2, kRate, 64},
                                         BlockCase{kStereo, 2, kRate, 256}, BlockCase{kStereo, 2, kRate, 480},
                                         BlockCase{kStereo, 2, kRate, 0}, BlockCase{kMono, 1, 44100.0f, 480},
                                         BlockCase{kMono, 1, 96000.0f, 0}));

// A preset file through the patch message, then the same preset through a
// saved and restored state in a new instance.
TEST(Lv2Presets, PatchMessageAndStateRestoreGiveThePresetsSound) {
  const PresetPayload payload = encode(testPreset());
  const std::string path = writeFile("test_preset.bin", payload.data(), payload.size());
  // A low tone over faint noise: a click at the switch would stand out
  // against the tone's small sample-to-sample steps.
  Planar input = noise(2, 48000, 5);
  for (auto& channel : input) {
    for (size_t i = 0; i < channel.size(); ++i) {
      channel[i] = 0.3f * std::sin(0.0261799f * static_cast<float>(i)) + 0.004f * channel[i]; // 200 Hz
    }
  }
  const auto pattern = blocks(input[0].size(), 480);
  constexpr size_t kSwitchBlock = 40;

  Lv2Instance first(kStereo, kRate);
  ASSERT_TRUE(first.valid());
  first.activate();
  size_t allocations = 0;
  const Planar switched = runPlugin(
      first, input, pattern, [&](size_t block) { block == kSwitchBlock - 1 ? first.sendPresetPath(path) : void(); },
      &allocations);
  EXPECT_EQ(allocations, 0u);
  EXPECT_EQ(first.log(), "");
  // The work runs right after the block that carried the message.
  EXPECT_EQ(maxDifference(switched, referenceOutput(input, kRate, {{framesBefore(pattern, kSwitchBlock), payload}})),
            0.0f);
  const Planar defaultSound = referenceOutput(input, kRate, {});
  EXPECT_GT(maxDifference(switched, defaultSound), 0.01f) << "the test preset must sound different";

  // The switch makes no click: the largest step between samples around it is
  // no larger than with either preset settled.
  const size_t at = kSwitchBlock * 480;
  const float stepAtSwitch = largestStep(switched, at - 1024, at + 4096);
  const float stepElsewhere =
      std::max(largestStep(switched, 8192, at - 1024), largestStep(switched, at + 16384, switched[0].size()));
  RecordProperty("stepAtSwitch", std::to_string(stepAtSwitch));
  RecordProperty("stepElsewhere", std::to_string(stepElsewhere));
  std::printf("preset switch: largest step %.4f near the switch, %.4f elsewhere\n", static_cast<double>(stepAtSwitch),
              static_cast<double>(stepElsewhere));
  EXPECT_LE(stepAtSwitch, 1.1f * stepElsewhere);

  LilvState* state = first.saveState();
  ASSERT_NE(state, nullptr);
  std::filesystem::remove(path); // the saved payload is enough
  Lv2Instance second(kStereo, kRate);
  ASSERT_TRUE(second.valid());
  second.restoreState(state);
  lilv_state_free(state);
  second.activate();
  const Planar restored = runPlugin(second, input, pattern);
  EXPECT_EQ(maxDifference(restored, referenceOutput(input, kRate, {{0, payload}})), 0.0f);
  EXPECT_EQ(second.log(), "");
}

// Preset value ports edit the preset in force: before activation (hosts
// without a worker) and while running (through the worker).
TEST(Lv2Presets, ValuePortsEditThePresetInForce) {
  const Planar input = noise(2, 24000, 9);
  const auto pattern = blocks(input[0].size(), 256);
  vora_preset edited;
  vora_preset_default(&edited);
  edited.bands[3].channels[0].gainDb = 6.0f;
  edited.bands[7].slowFactor = 0.5f;

  for (const bool withWorker : {false, true}) {
    Lv2Instance plugin(kStereo, kRate, withWorker);
    ASSERT_TRUE(plugin.valid());
    ASSERT_TRUE(plugin.setControl("b03_gain_db_l", 6.0f));
    ASSERT_TRUE(plugin.setControl("b07_slow_factor", 0.5f));
    plugin.activate();
    const Planar output = runPlugin(plugin, input, pattern);
    EXPECT_EQ(maxDifference(output, referenceOutput(input, kRate, {{0, encode(edited)}})), 0.0f)
        << "worker " << withWorker;
  }

  Lv2Instance plugin(kStereo, kRate);
  plugin.activate();
  const Planar output = runPlugin(plugin, input, pattern, [&](size_t block) {
    block == 10 ? void(plugin.setControl("b03_gain_db_l", 6.0f)) : void();
  });
  vora_preset oneEdit;
  vora_preset_default(&oneEdit);
  oneEdit.bands[3].channels[0].gainDb = 6.0f;
  EXPECT_EQ(maxDifference(output, referenceOutput(input, kRate, {{framesBefore(pattern, 11), encode(oneEdit)}})), 0.0f);
}

// The host's bypass goes through the library's fade, from run() without
// allocating.
TEST(Lv2Presets, HostBypassUsesTheLibrarysFade) {
  const Planar input = noise(2, 24000, 13);
  const auto pattern = blocks(input[0].size(), 480);
  Lv2Instance plugin(kStereo, kRate);
  ASSERT_TRUE(plugin.valid());
  plugin.activate();
  size_t allocations = 0;
  const Planar output = runPlugin(
      plugin, input, pattern, [&](size_t block) { block == 20 ? void(plugin.setControl("enabled", 0.0f)) : void(); },
      &allocations);
  EXPECT_EQ(allocations, 0u);
  EXPECT_EQ(maxDifference(output, referenceOutput(input, kRate, {{framesBefore(pattern, 20), {}, true}})), 0.0f);
}

// A JSON preset loads; a bad file after it leaves it running and says why in
// the log.
TEST(Lv2Presets, BadFilesKeepThePreviousPresetAndAreLogged) {
  const PresetPayload good = encode(testPreset());
  const std::string json = larkspin_json::toJsonText(testPreset());
  const std::string goodPath = writeFile("good.json", json.data(), json.size());
  const PresetPayload zeros{}; // decodes to gains of minus infinity
  const std::string refusedPath = writeFile("refused.bin", zeros.data(), zeros.size());
  const std::string garbagePath = writeFile("garbage.json", "{\"bands\": [1, 2", 15);
  const Planar input = noise(2, 12000, 11);
  const auto pattern = blocks(input[0].size(), 480);

  for (const std::string& bad : {std::string("/nonexistent/preset.json"), refusedPath, garbagePath}) {
    Lv2Instance plugin(kStereo, kRate);
    ASSERT_TRUE(plugin.valid());
    plugin.activate();
    const Planar output = runPlugin(plugin, input, pattern, [&](size_t block) {
      if (block == 0) {
        plugin.sendPresetPath(goodPath);
      } else if (block == 5) {
        plugin.sendPresetPath(bad);
      }
    });
    EXPECT_EQ(maxDifference(output, referenceOutput(input, kRate, {{framesBefore(pattern, 1), good}})), 0.0f) << bad;
    EXPECT_NE(plugin.log().find("keeping the previous preset"), std::string::npos) << bad;
    EXPECT_NE(plugin.log().find(bad), std::string::npos) << plugin.log();
  }
}

} // namespace
} // namespace larkspin_test
