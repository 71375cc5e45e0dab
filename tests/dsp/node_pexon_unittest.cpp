#include "dsp/node_pexon.h"

#include "dsp/preset_conversion.h"
#include "framework/direct_owner.h"
#include "support/test_payloads.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

namespace vora {
namespace {

void applyPayload(node_pexon& node, const VorafierParameters& parameters) {
  const larkspin_test::Payload payload = larkspin_test::payloadOf(parameters);
  larkspin_test::DirectOwner owner(node);
  ASSERT_TRUE(node.applyPreset(presetFromPayload(payload.data())));
}

// Renders the whole signal in one call (hops of 64 divide it); channel ch
// reads source[ch], or the last source when there are fewer.
std::vector<std::vector<float>> renderNode(node_pexon& node, int inputs, int outputs,
                                           const std::vector<std::vector<float>>& source) {
  std::vector<std::vector<float>> block(static_cast<size_t>(std::max(inputs, outputs)));
  std::vector<float*> pointers;
  for (size_t ch = 0; ch < block.size(); ++ch) {
    block[ch] = source[std::min(ch, source.size() - 1)];
    pointers.push_back(block[ch].data());
  }
  AudioTimeStamp timeStamp{0, true};
  node.render(inputs, outputs, static_cast<int>(block[0].size()), pointers.data(), timeStamp);
  block.resize(static_cast<size_t>(outputs));
  return block;
}

std::vector<float> tone(double hz, size_t frames, double amplitude) {
  std::vector<float> x(frames);
  for (size_t i = 0; i < frames; ++i) {
    x[i] = static_cast<float>(amplitude * std::sin(2.0 * std::numbers::pi * hz * i / 48000.0));
  }
  return x;
}

// The declared ranges reach beyond what the engine payload's fields hold:
// values past those reach the engine saturated, never wrapped.
TEST(NodePexonTest, DeclaresParametersAndSaturatesWhatThePayloadCannotHold) {
  node_pexon node;
  const AudioProcessorPreset snapshot = node.getPreset();
  EXPECT_EQ(snapshot.parameterCount(), 13u * 10u + 2u);
  EXPECT_EQ(snapshot.parameters().at("vorafier_fast_ratio_1_12"), 0.2f);
  EXPECT_EQ(snapshot.parameters().at("vorafier_slow_factor_0_5"), 0.85f);
  EXPECT_EQ(snapshot.parameters().at("vorafier_slow_time_constant_0_0"), 50.0f);
  EXPECT_EQ(snapshot.parameters().at("vorafier_mix_ratio_0_0"), 1.0f);
  EXPECT_EQ(node.getParameter(ParameterIdentifier::vorafier_slow_threshold, 1, 0), nullptr);
  EXPECT_EQ(node.getParameter(ParameterIdentifier::vorafier_slow_delay, 0, 7)->getMaximum(), 500.0f);
  EXPECT_EQ(node.getParameter(ParameterIdentifier::vorafier_slow_time_constant, 0, 2)->getMaximum(), 500.0f);
  EXPECT_EQ(node.getParameter(ParameterIdentifier::vorafier_fast_threshold, 1, 3)->getMinimum(), -999.0f);

  using P = ParameterIdentifier;
  node.getParameter(P::vorafier_gain, 1, 7)->setValue(80.0f);
  node.getParameter(P::vorafier_fast_threshold, 1, 7)->setValue(-999.0f);
  node.getParameter(P::vorafier_slow_threshold, 0, 7)->setValue(-999.0f);
  node.getParameter(P::vorafier_slow_delay, 0, 7)->setValue(500.0f);
  node.getParameter(P::vorafier_slow_time_constant, 0, 7)->setValue(500.0f);
  ASSERT_TRUE(node.setup(1, 1, 64, 48000.0));
  node.presetApplied();
  renderNode(node, 1, 1, {std::vector<float>(64)});
  const VorafierBandRecord& band = node.engine().parameters().bands[7];
  EXPECT_NEAR(band.gainDb1, 20.0f * std::log10(32767.0f / 128.0f), 1e-4f); // the largest 16-bit factor
  EXPECT_EQ(band.fastThresholdDb1, -256.0f);                               // the lowest 16-bit step of 1/128 dB
  EXPECT_EQ(band.slowThresholdDb, -256.0f);
  EXPECT_EQ(band.slowDelayMs, 255.0f); // 8-bit whole milliseconds
  EXPECT_EQ(band.slowTimeConstantMs, 255.0f);
}

void setUpBoosted(node_pexon& node, int inputs, int outputs) {
  ASSERT_TRUE(node.setup(inputs, outputs, 9600, 48000.0));
  applyPayload(node, larkspin_test::flatParameters(6.0f));
}

TEST(NodePexonTest, ChannelConversionsAverageAndDuplicate) {
  const std::vector<float> left = tone(1000.0, 9600, 0.3), right = tone(3000.0, 9600, 0.2);

  node_pexon stereo, down;
  setUpBoosted(stereo, 2, 2);
  setUpBoosted(down, 2, 1);
  const auto both = renderNode(stereo, 2, 2, {left, right});
  const auto mixed = renderNode(down, 2, 1, {left, right});
  for (size_t i = 0; i < mixed[0].size(); ++i) {
    ASSERT_FLOAT_EQ(mixed[0][i], (both[0][i] + both[1][i]) * 0.5f) << i;
  }

  node_pexon mono, up;
  setUpBoosted(mono, 1, 1);
  setUpBoosted(up, 1, 2);
  const auto single = renderNode(mono, 1, 1, {left});
  const auto duplicated = renderNode(up, 1, 2, {left});
  EXPECT_EQ(duplicated[0], single[0]);
  EXPECT_EQ(duplicated[1], single[0]);
}

TEST(NodePexonTest, PresetReachesTheEngineAndBypassFadesToDry) {
  const std::vector<float> input = tone(1000.0, 48000, 0.1);
  node_pexon node;
  ASSERT_TRUE(node.setup(1, 1, 48000, 48000.0));
  // No payload yet: the engine leaves the audio alone, and hops of 64
  // divide the block, so nothing is delayed either.
  EXPECT_EQ(renderNode(node, 1, 1, {input})[0], input);
  applyPayload(node, larkspin_test::flatParameters(12.0f));
  node.getParameter(ParameterIdentifier::vorafier_bypass, 0, 0)->setValue(1.0f);
  const std::vector<float> output = renderNode(node, 1, 1, {input})[0];
  const size_t latency = static_cast<size_t>(node.getLatency());
  // Early on the boosted wet signal still dominates; after ten time
  // constants of the 50 ms fade only the delayed dry signal is left.
  double early = 0.0;
  for (size_t i = 480; i < 960; ++i) {
    early = std::max(early, std::fabs(double(output[i]) - input[i - latency]));
  }
  EXPECT_GT(early, 0.05);
  for (size_t i = 24000; i < input.size(); ++i) {
    ASSERT_NEAR(output[i], input[i - latency], 2e-4f) << i;
  }
  EXPECT_EQ(node.getLatency(), 192);
}

} // namespace
} // namespace vora
