// The plugin in a host of our own: its output against the library driven
// directly, its latency, real-time behaviour and preset handling.
#include "lv2_reference.h"
#include "lv2_test_host.h"
#include "preset_json/preset_json.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>

namespace larkspin_test {
namespace {

constexpr float kRate = 48000.0f;
constexpr const char* kStereo = "urn:larkspin:lv2:stereo";
constexpr const char* kMono = "urn:larkspin:lv2:mono";

std::string writeFile(const std::string& name, const void* bytes, size_t size) {
  const auto path = std::filesystem::temp_directory_path() / ("larkspin_lv2_" + name);
  std::ofstream(path, std::ios::binary).write(static_cast<const char*>(bytes), static_cast<std::streamsize>(size));
  return path.string();
}

const PresetPayload kLoud = editedPreset({{0, 0, VORA_PRESET_GAIN_DB, 9.0f},
                                          {0, 1, VORA_PRESET_GAIN_DB, 9.0f},
                                          {5, 0, VORA_PRESET_GAIN_DB, -6.0f},
                                          {8, 1, VORA_PRESET_GAIN_DB, 9.0f}});

struct BlockCase {
  const char* name;
  const char* uri;
  int channels;
  float rate;
  uint32_t block; // 0: seeded random sizes from 1 to 5000
};

class Lv2Blocks : public testing::TestWithParam<BlockCase> {};

// Same library, same calls in the same order: the output is bit-identical,
// so the tolerance is zero. The plugin feeds the library fixed chunks, so
// its output does not depend on the host's blocking at all, and it reports
// the library's latency plus that chunk.
TEST_P(Lv2Blocks, OutputEqualsTheLibraryAtTheReportedLatency) {
  const BlockCase& c = GetParam();
  Lv2Instance plugin(c.uri, c.rate);
  ASSERT_EQ(plugin.channels(), c.channels);
  plugin.activate();
  const Planar input = noise(c.channels, 24000, 3);
  EXPECT_EQ(maxDifference(plugin.process(input, blocks(input[0].size(), c.block)), referenceOutput(input, c.rate, {})),
            0.0f);
  vora::GenericAudioProcessor library;
  library.setup(c.rate, static_cast<int>(chunkFrames(c.rate)), c.channels);
  EXPECT_EQ(plugin.latency(), library.getProcessingLatency() + static_cast<float>(chunkFrames(c.rate)));
}

INSTANTIATE_TEST_SUITE_P(Patterns, Lv2Blocks,
                         testing::Values(BlockCase{"stereo_1", kStereo, 2, kRate, 1},
                                         BlockCase{"stereo_random", kStereo, 2, kRate, 0},
                                         BlockCase{"mono_44k1_480", kMono, 1, 44100.0f, 480},
                                         BlockCase{"mono_96k_random", kMono, 1, 96000.0f, 0}),
                         [](const auto& row) { return std::string(row.param.name); });

// What a host does before activation (block kBeforeActivation) and before
// each block of 480 frames takes effect in the chunk the library would apply
// it to, without allocating in run(). A refused preset file keeps the
// previous preset and names the file in the log; nothing else is logged.
constexpr size_t kBeforeActivation = SIZE_MAX;

struct ChangeCase {
  const char* name;
  bool withWorker;
  std::function<void(Lv2Instance&, size_t block)> host;
  std::vector<Change> expected; // what the library is given
  std::string refused;          // the file named in the log
};

class Lv2Changes : public testing::TestWithParam<ChangeCase> {};

TEST_P(Lv2Changes, TakeEffectLikeTheLibrary) {
  const ChangeCase& c = GetParam();
  const Planar input = noise(2, 12000, 5);
  Lv2Instance plugin(kStereo, kRate, c.withWorker);
  c.host(plugin, kBeforeActivation);
  plugin.activate();
  const Planar output = plugin.process(input, blocks(input[0].size(), 480), c.host);
  EXPECT_EQ(maxDifference(output, referenceOutput(input, kRate, c.expected)), 0.0f);
  EXPECT_GT(maxDifference(output, referenceOutput(input, kRate, {})), 0.01f) << "the change must be audible";
  EXPECT_EQ(plugin.log().empty(), c.refused.empty()) << plugin.log();
  EXPECT_NE(plugin.log().find(c.refused), std::string::npos) << plugin.log();
}

// `change` before block `when` (or before activation).
std::function<void(Lv2Instance&, size_t)> at(size_t when, void (*change)(Lv2Instance&)) {
  return [=](Lv2Instance& p, size_t block) { block == when ? change(p) : void(); };
}

void setTwoPorts(Lv2Instance& p) {
  p.setControl("b03_gain_db_l", 6.0f);
  p.setControl("b07_slow_factor", 0.5f);
}
const PresetPayload kTwoPorts =
    editedPreset({{3, 0, VORA_PRESET_GAIN_DB, 6.0f}, {7, -1, VORA_PRESET_SLOW_FACTOR, 0.5f}});

// A JSON preset loads before the first block; `bad` sent before block 5 is
// refused.
ChangeCase refusedAfterJson(const char* name, const std::string& bad) {
  const auto host = [bad](Lv2Instance& p, size_t block) {
    if (block == 0) {
      vora_preset loud;
      vora_preset_decode(kLoud.data(), &loud);
      const std::string json = larkspin_json::toJsonText(loud);
      p.sendPresetPath(writeFile("good.json", json.data(), json.size()));
    } else if (block == 5) {
      p.sendPresetPath(bad);
    }
  };
  return {name, true, host, {presetAt(480, kLoud)}, bad};
}

const PresetPayload kZeros{}; // decodes to gains of minus infinity

// Value ports set before activation edit the preset with or without a
// worker; the patch message's file is read by the worker right after the
// block that carried it; intensity and the host's bypass (through the
// library's fade) go straight from run().
INSTANTIATE_TEST_SUITE_P(
    HostActions, Lv2Changes,
    testing::Values(
        ChangeCase{"ports_without_worker", false, at(kBeforeActivation, setTwoPorts), {presetAt(0, kTwoPorts)}, ""},
        ChangeCase{"ports_with_worker", true, at(kBeforeActivation, setTwoPorts), {presetAt(0, kTwoPorts)}, ""},
        ChangeCase{"patch_message",
                   true,
                   at(16, [](Lv2Instance& p) { p.sendPresetPath(writeFile("loud.bin", kLoud.data(), kLoud.size())); }),
                   {presetAt(17 * 480, kLoud)},
                   ""},
        ChangeCase{"port_while_running",
                   true,
                   at(10, [](Lv2Instance& p) { p.setControl("b03_gain_db_l", 6.0f); }),
                   {presetAt(11 * 480, editedPreset({{3, 0, VORA_PRESET_GAIN_DB, 6.0f}}))},
                   ""},
        ChangeCase{"intensity_then_bypass",
                   true,
                   [](Lv2Instance& p, size_t block) {
                     block == 8 ? void(p.setControl("intensity", 0.25f)) : void();
                     block == 20 ? void(p.setControl("enabled", 0.0f)) : void();
                   },
                   {{8 * 480, [](vora::GenericAudioProcessor& l) { l.setVoraficationIntensity(0.25f); }},
                    {20 * 480, [](vora::GenericAudioProcessor& l) { l.setBypassed(true); }}},
                   ""},
        refusedAfterJson("missing_file", "/nonexistent/preset.json"),
        refusedAfterJson("refused_values", writeFile("refused.bin", kZeros.data(), kZeros.size())),
        refusedAfterJson("broken_json", writeFile("garbage.json", "{\"bands\": [1, 2", 15))),
    [](const auto& row) { return std::string(row.param.name); });

// A preset loaded through a patch message survives a saved and restored
// state in a new instance, without its file.
TEST(Lv2Presets, StateRestoreKeepsThePreset) {
  const std::string path = writeFile("state_preset.bin", kLoud.data(), kLoud.size());
  const Planar input = noise(2, 12000, 5);
  const auto pattern = blocks(input[0].size(), 480);
  Lv2Instance first(kStereo, kRate);
  first.activate();
  first.sendPresetPath(path);
  first.process(input, pattern);
  LilvState* state = first.saveState();
  ASSERT_NE(state, nullptr);
  std::filesystem::remove(path); // the saved payload is enough
  Lv2Instance second(kStereo, kRate);
  second.restoreState(state);
  lilv_state_free(state);
  second.activate();
  EXPECT_EQ(maxDifference(second.process(input, pattern), referenceOutput(input, kRate, {presetAt(0, kLoud)})), 0.0f);
  EXPECT_EQ(second.log(), "");
}

} // namespace
} // namespace larkspin_test
