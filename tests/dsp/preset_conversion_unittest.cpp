#include "dsp/preset_conversion.h"

#include "dsp/payload_codec.h"
#include "support/test_payloads.h"

#include <gtest/gtest.h>

#include <array>
#include <random>

namespace vora {
namespace {

using Bytes = std::array<unsigned char, kPresetPayloadSize>;

// Seeded random values that every field holds exactly, with the given
// level byte.
Bytes randomPayload(std::mt19937& random, unsigned char levelByte = 255) {
  vora::VorafierParameters parameters = larkspin_test::randomParameters(random);
  parameters.level = levelByte / 255.0f;
  return larkspin_test::payloadOf(parameters);
}

TEST(PresetConversionTest, PayloadBecomesOneHundredThirtyEntriesWithoutTheLevel) {
  std::mt19937 random(5u);
  const Bytes loud = randomPayload(random, 255);
  std::mt19937 same(5u);
  const Bytes quiet = randomPayload(same, 17);
  ASSERT_NE(loud, quiet);
  const AudioProcessorPreset a = presetFromPayload(loud.data());
  const AudioProcessorPreset b = presetFromPayload(quiet.data());
  EXPECT_EQ(a.parameterCount(), 130u);
  EXPECT_EQ(a.propertyCount(), 0u);
  EXPECT_EQ(a.parameters(), b.parameters());
  EXPECT_EQ(a.parameters().count("vorafier_slow_delay_1_0"), 0u); // slow parameters at channel 0 only
}

TEST(PresetConversionTest, EncodingThePresetGivesThePayloadBack) {
  std::mt19937 random(77u);
  for (int trial = 0; trial < 50; ++trial) {
    const Bytes payload = randomPayload(random);
    Bytes encoded{};
    encodePresetPayload(parametersFromPreset(presetFromPayload(payload.data())), encoded.data());
    ASSERT_EQ(encoded, payload) << trial;
  }
}

} // namespace
} // namespace vora
