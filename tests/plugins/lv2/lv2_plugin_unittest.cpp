// The plugin in a host of our own: its output against the library driven
// directly, its latency, real-time behaviour and preset handling.
#include "lv2_reference.h"
#include "lv2_test_host.h"
#include "preset_json/preset_json.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <filesystem>

namespace larkspin_test {
namespace {

constexpr float kRate = 48000.0f;
constexpr const char* kStereo = "urn:larkspin:lv2:stereo";
constexpr const char* kMono = "urn:larkspin:lv2:mono";

const PresetPayload kLoud = editedPreset({{0, 0, VORA_PRESET_GAIN_DB, 9.0f},
                                          {0, 1, VORA_PRESET_GAIN_DB, 9.0f},
                                          {5, 0, VORA_PRESET_GAIN_DB, -6.0f},
                                          {8, 1, VORA_PRESET_GAIN_DB, 9.0f}});

// What a host does before activation (block kBeforeActivation) and before
// each block takes effect in the chunk the library would apply it to,
// without allocating in run() and without printing. A refused preset file
// keeps the previous preset and names the file in the log; nothing else is
// logged.
constexpr size_t kBeforeActivation = SIZE_MAX;

struct HostCase {
  const char* name;
  const char* uri = kStereo;
  float rate = kRate;
  uint32_t block = 480; // 0: seeded random sizes from 1 to 5000
  Worker worker = Worker::Inline;
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
  Lv2Instance plugin(c.uri, c.rate, c.worker);
  ASSERT_EQ(plugin.channels(), c.uri == kMono ? 1 : 2);
  const Planar input = noise(plugin.channels(), 24000, 5);
  testing::internal::CaptureStdout();
  c.host(plugin, kBeforeActivation);
  plugin.activate();
  const Planar output = plugin.process(input, c.block, c.host);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
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

// Intensity and bypass values no host should send, before activation and
// every fifth block: NaN is ignored, the rest is clamped, the bypass is on
// above 0. With a worker a change reaches the library one block later.
HostCase oddControls(const char* name, Worker worker) {
  const auto host = [](Lv2Instance& p, size_t block) {
    const float inf = INFINITY;
    const std::map<size_t, std::pair<const char*, float>> sent = {{kBeforeActivation, {"intensity", NAN}},
                                                                  {0, {"bypass", NAN}},
                                                                  {5, {"intensity", inf}},
                                                                  {10, {"intensity", -inf}},
                                                                  {15, {"intensity", NAN}},
                                                                  {20, {"intensity", 7.0f}},
                                                                  {25, {"bypass", inf}},
                                                                  {30, {"bypass", NAN}},
                                                                  {35, {"bypass", -2.0f}}};
    if (const auto it = sent.find(block); it != sent.end()) {
      p.setControl(it->second.first, it->second.second);
    }
  };
  const size_t lag = worker == Worker::None ? 0 : 1;
  auto at = [lag](size_t block) { return (block + lag) * 480; };
  return {.name = name,
          .worker = worker,
          .host = host,
          .expected = {{at(10), [](vora::GenericAudioProcessor& l) { l.setVoraficationIntensity(0.0f); }},
                       {at(20), [](vora::GenericAudioProcessor& l) { l.setVoraficationIntensity(1.0f); }},
                       {at(25), [](vora::GenericAudioProcessor& l) { l.setBypassed(true); }},
                       {at(35), [](vora::GenericAudioProcessor& l) { l.setBypassed(false); }}}};
}

// Blockings that do and do not divide the chunk, at the smallest and a
// large rate; value ports set before activation edit the preset (the
// activation applies them, worker or not; the mono plugin's edit channel 0);
// a restored state brings its preset back; the patch message's file, edited
// values, intensity and bypass (through the library's fade) reach the
// library through the worker right after the block that carried them, or
// straight from run() in a host without one. A host that leaves every
// control at 0 gets the default preset at full intensity, and a value it
// moves later edits only its own field.
INSTANTIATE_TEST_SUITE_P(
    HostActions, Lv2Host,
    testing::Values(
        HostCase{.name = "stereo_1", .block = 1}, HostCase{.name = "stereo_random", .block = 0},
        HostCase{.name = "mono_44k1_480", .uri = kMono, .rate = 44100.0f},
        HostCase{.name = "mono_96k_random", .uri = kMono, .rate = 96000.0f, .block = 0},
        HostCase{.name = "mono_ports_without_worker",
                 .uri = kMono,
                 .worker = Worker::None,
                 .host = at(kBeforeActivation,
                            [](Lv2Instance& p) {
                              p.setControl("b03_gain_db", 6.0f);
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
        oddControls("odd_controls", Worker::Inline), oddControls("odd_controls_without_worker", Worker::None),
        HostCase{.name = "zero_filled",
                 .host =
                     [](Lv2Instance& p, size_t block) {
                       block == kBeforeActivation ? p.zeroFill() : void();
                       block == 10 ? p.setControl("b03_gain_db_l", 6.0f) : void();
                     },
                 .expected = {presetAt(11 * 480, editedPreset({{3, 0, VORA_PRESET_GAIN_DB, 6.0f}}))}},
        HostCase{.name = "restored_state",
                 .host = at(kBeforeActivation, restoreLoudState),
                 .expected = {presetAt(0, kLoud)}},
        refusedAfterJson("missing_file", "/nonexistent/preset.json"),
        refusedAfterJson("refused_values", writeFile("refused.bin", kZeros.data(), kZeros.size())),
        refusedAfterJson("broken_json", writeFile("garbage.json", "{\"bands\": [1, 2", 15))),
    [](const auto& row) { return std::string(row.param.name); });

} // namespace
} // namespace larkspin_test
