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

// What a host does before activation (block kBeforeActivation) and before
// each block takes effect in the chunk the library would apply it to,
// without allocating in run(). A refused preset file keeps the previous
// preset and names the file in the log; nothing else is logged.
constexpr size_t kBeforeActivation = SIZE_MAX;

struct HostCase {
  const char* name;
  const char* uri = kStereo;
  float rate = kRate;
  uint32_t block = 480; // 0: seeded random sizes from 1 to 5000
  bool withWorker = true;
  std::function<void(Lv2Instance&, size_t block)> host = [](Lv2Instance&, size_t) {};
  std::vector<Change> expected = {}; // what the library is given
  std::string refused = "";          // the file named in the log
};

class Lv2Host : public testing::TestWithParam<HostCase> {};

// Same library, same calls in the same order: the output is bit-identical,
// so the tolerance is zero. The plugin feeds the library fixed chunks, so
// its output does not depend on the host's blocking at all, and it reports
// the library's latency plus that chunk.
TEST_P(Lv2Host, ActsLikeTheLibraryAtTheReportedLatency) {
  const HostCase& c = GetParam();
  Lv2Instance plugin(c.uri, c.rate, c.withWorker);
  ASSERT_EQ(plugin.channels(), c.uri == kMono ? 1 : 2);
  const Planar input = noise(plugin.channels(), 24000, 5);
  c.host(plugin, kBeforeActivation);
  plugin.activate();
  const Planar output = plugin.process(input, c.block, c.host);
  EXPECT_EQ(maxDifference(output, referenceOutput(input, c.rate, c.expected)), 0.0f);
  EXPECT_EQ(maxDifference(output, referenceOutput(input, c.rate, {})) > 0.01f, !c.expected.empty())
      << "a change must be audible";
  EXPECT_EQ(plugin.log().empty(), c.refused.empty()) << plugin.log();
  EXPECT_NE(plugin.log().find(c.refused), std::string::npos) << plugin.log();
  vora::GenericAudioProcessor library;
  library.setup(c.rate, static_cast<int>(chunkFrames(c.rate)), plugin.channels());
  EXPECT_EQ(plugin.latency(), library.getProcessingLatency() + static_cast<float>(chunkFrames(c.rate)));
}

// `change` before block `when` (or before activation).
std::function<void(Lv2Instance&, size_t)> at(size_t when, void (*change)(Lv2Instance&)) {
  return [=](Lv2Instance& p, size_t block) { block == when ? change(p) : void(); };
}

// A JSON preset loads before the first block; `bad` sent before block 5 is
// refused.
HostCase refusedAfterJson(const char* name, const std::string& bad) {
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
  return {.name = name, .host = host, .expected = {presetAt(480, kLoud)}, .refused = bad};
}

// A preset loaded through a patch message survives a saved state restored
// into another instance, without its file.
void restoreLoudState(Lv2Instance& p) {
  const std::string path = writeFile("state_preset.bin", kLoud.data(), kLoud.size());
  Lv2Instance first(kStereo, kRate);
  first.activate();
  first.sendPresetPath(path);
  first.process(noise(2, 960, 1), 480);
  LilvState* state = first.saveState();
  std::filesystem::remove(path); // the saved payload is enough
  p.restoreState(state);
  lilv_state_free(state);
}

const PresetPayload kZeros{}; // decodes to gains of minus infinity

// Blockings that do and do not divide the chunk, at the smallest and a
// large rate; value ports set before activation edit the preset (the
// activation applies them, worker or not); a restored state brings its
// preset back; the patch message's file is read by the worker right
// after the block that carried it; intensity and the host's bypass (through
// the library's fade) go straight from run().
INSTANTIATE_TEST_SUITE_P(
    HostActions, Lv2Host,
    testing::Values(
        HostCase{.name = "stereo_1", .block = 1}, HostCase{.name = "stereo_random", .block = 0},
        HostCase{.name = "mono_44k1_480", .uri = kMono, .rate = 44100.0f},
        HostCase{.name = "mono_96k_random", .uri = kMono, .rate = 96000.0f, .block = 0},
        HostCase{.name = "ports_without_worker",
                 .withWorker = false,
                 .host = at(kBeforeActivation,
                            [](Lv2Instance& p) {
                              p.setControl("b03_gain_db_l", 6.0f);
                              p.setControl("b07_slow_factor", 0.5f);
                            }),
                 .expected = {presetAt(0, editedPreset({{3, 0, VORA_PRESET_GAIN_DB, 6.0f},
                                                        {7, -1, VORA_PRESET_SLOW_FACTOR, 0.5f}}))}},
        HostCase{
            .name = "patch_message",
            .host = at(16, [](Lv2Instance& p) { p.sendPresetPath(writeFile("loud.bin", kLoud.data(), kLoud.size())); }),
            .expected = {presetAt(17 * 480, kLoud)}},
        HostCase{.name = "port_while_running",
                 .host = at(10, [](Lv2Instance& p) { p.setControl("b03_gain_db_l", 6.0f); }),
                 .expected = {presetAt(11 * 480, editedPreset({{3, 0, VORA_PRESET_GAIN_DB, 6.0f}}))}},
        HostCase{.name = "intensity_then_bypass",
                 .host =
                     [](Lv2Instance& p, size_t block) {
                       block == 8 ? void(p.setControl("intensity", 0.25f)) : void();
                       block == 20 ? void(p.setControl("enabled", 0.0f)) : void();
                     },
                 .expected = {{8 * 480, [](vora::GenericAudioProcessor& l) { l.setVoraficationIntensity(0.25f); }},
                              {20 * 480, [](vora::GenericAudioProcessor& l) { l.setBypassed(true); }}}},
        HostCase{.name = "restored_state",
                 .host = at(kBeforeActivation, restoreLoudState),
                 .expected = {presetAt(0, kLoud)}},
        refusedAfterJson("missing_file", "/nonexistent/preset.json"),
        refusedAfterJson("refused_values", writeFile("refused.bin", kZeros.data(), kZeros.size())),
        refusedAfterJson("broken_json", writeFile("garbage.json", "{\"bands\": [1, 2", 15))),
    [](const auto& row) { return std::string(row.param.name); });

} // namespace
} // namespace larkspin_test
