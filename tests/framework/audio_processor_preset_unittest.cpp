#include "framework/audio_processor.h"
#include "framework/audio_processor_preset.h"

#include "direct_owner.h"
#include "support/capture_stdout.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace vora {
namespace {

using larkspin_test::captureStdout;

using larkspin_test::DirectOwner;

class PresetNode : public AudioProcessor {
public:
  PresetNode() {
    for (unsigned band = 0; band < 13; ++band) {
      addParameter(ParameterIdentifier::vorafier_gain, 0.0f, -80.0f, 80.0f, 0, band);
    }
    addParameter(ParameterIdentifier::vorafier_slow_delay, 10.0f, 0.0f, 500.0f, 0, 0);
    EXPECT_TRUE(addProperty(PropertyIdentifier::tech_level, 4.0f, 4.0f, 4.0f));
  }
  bool presetApplied() override {
    ++appliedCalls;
    return appliedResult;
  }
  int appliedCalls = 0;
  bool appliedResult = true;
};

float gain(PresetNode& node, unsigned band) {
  return node.getParameter(ParameterIdentifier::vorafier_gain, 0, band)->getValue();
}

TEST(PresetTest, ParameterTableLookUps) {
  PresetNode node;
  EXPECT_EQ(node.getParameter(ParameterIdentifier::vorafier_gain, 0, 13), nullptr);
  EXPECT_EQ(node.getParameter(ParameterIdentifier::vorafier_slow_delay, 1, 0), nullptr);
  EXPECT_EQ(node.getParameter(ParameterIdentifier::vorafier_gain, 0, 0xFFFFFFFFu), nullptr);
  EXPECT_TRUE(node.addParameter(ParameterIdentifier::parameter_unspecified, 0.5f, 0.0f, 1.0f, 5, 5));
  EXPECT_EQ(node.getParameter(ParameterIdentifier::parameter_unspecified, 5, 5), nullptr);
  EXPECT_FALSE(captureStdout([&] {
                 node.addParameter(ParameterIdentifier::vorafier_fast_ratio, 2.0f, 0.0f, 1.0f, 0, 0);
               }).empty());
  EXPECT_EQ(node.getParameter(ParameterIdentifier::vorafier_fast_ratio, 0, 0), nullptr);
}

// A node in no graph and an empty preset are refused. Keys apply in text
// order; a refused entry is skipped and the answer is presetApplied()'s.
// The node's snapshot then carries what was applied, and applies whole to
// another node.
TEST(PresetTest, KeysApplyInTextOrderAndTheSnapshotRoundTrips) {
  PresetNode node;
  DirectOwner owner(node);
  AudioProcessorPreset preset;
  preset.addParameter(ParameterIdentifier::vorafier_gain, 2.0f, 0, 2);
  preset.addParameter(ParameterIdentifier::vorafier_gain, 10.0f, 0, 10);
  preset.addParameter(ParameterIdentifier::vorafier_gain, 99.0f, 0, 4); // out of range
  PresetNode lone;                                                      // belongs to no graph
  EXPECT_FALSE(lone.applyPreset(preset));
  EXPECT_FALSE(node.applyPreset(AudioProcessorPreset{}));
  EXPECT_EQ(node.appliedCalls, 0);
  bool result = false;
  captureStdout([&] { result = node.applyPreset(preset); });
  EXPECT_TRUE(result);
  EXPECT_EQ(owner.order, (std::vector<std::string>{"vorafier_gain_0_10", "vorafier_gain_0_2", "vorafier_gain_0_4"}));
  EXPECT_EQ(gain(node, 2), 2.0f);
  EXPECT_EQ(gain(node, 10), 10.0f);
  EXPECT_EQ(gain(node, 4), 0.0f);
  node.appliedResult = false;
  captureStdout([&] { EXPECT_FALSE(node.applyPreset(preset)); });

  const AudioProcessorPreset snapshot = node.getPreset();
  EXPECT_EQ(snapshot.parameterCount(), 14u);
  EXPECT_EQ(snapshot.propertyCount(), 1u);
  PresetNode other;
  DirectOwner otherOwner(other);
  EXPECT_TRUE(other.applyPreset(snapshot));
  EXPECT_EQ(gain(other, 10), 10.0f);
}

TEST(PresetTest, UnparsableKeysAreSkippedWithOneLineEach) {
  // Built through a snapshot's key space: keys that name no parameter, lack
  // underscores or carry non-numeric indices.
  AudioProcessorPreset withBadKeys;
  withBadKeys.addParameter(ParameterIdentifier::vorafier_gain, 1.0f, 0, 1);
  const char* const badKeys[] = {"",
                                 "gain",
                                 "vorafier_gain_0",
                                 "vorafier_gain_x_1",
                                 "vorafier_gain_0_1b",
                                 "vorafier_gains_0_1",
                                 "vorafier_gain_-1_1"};
  std::vector<std::string> visited;
  // Inject the bad keys through the map the preset exposes for reading.
  auto& parameters = const_cast<std::map<std::string, float>&>(withBadKeys.parameters());
  for (const char* key : badKeys) {
    parameters[key] = 1.0f;
  }
  const std::string out = captureStdout([&] {
    withBadKeys.forEachParameter([&](ParameterIdentifier id, float, unsigned channel, unsigned band) {
      visited.push_back(AudioProcessorPreset::makeKey(id, channel, band));
    });
  });
  EXPECT_EQ(visited, std::vector<std::string>{"vorafier_gain_0_1"});
  EXPECT_EQ(static_cast<size_t>(std::count(out.begin(), out.end(), '\n')), std::size(badKeys));
  EXPECT_EQ(out.rfind("*****", 0), 0u);
}

} // namespace
} // namespace vora
