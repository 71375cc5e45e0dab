#include "dsp/preset_conversion.h"

#include "dsp/payload_codec.h"
#include "support/test_payloads.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>
#include <utility>

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

  // Each entry holds its own record field (the record keeps the slow delay
  // before the slow factor; the identifiers number them the other way).
  VorafierParameters decoded;
  decodePresetPayload(loud.data(), decoded);
  for (int band = 0; band < kControlledBandCount; ++band) {
    const VorafierBandRecord& r = decoded.bands[static_cast<size_t>(band)];
    const std::pair<std::string, float> expected[] = {{"gain_0", r.gainDb0},
                                                      {"gain_1", r.gainDb1},
                                                      {"fast_threshold_0", r.fastThresholdDb0},
                                                      {"fast_threshold_1", r.fastThresholdDb1},
                                                      {"fast_ratio_0", r.fastRatio0},
                                                      {"fast_ratio_1", r.fastRatio1},
                                                      {"slow_threshold_0", r.slowThresholdDb},
                                                      {"slow_factor_0", r.slowFactor},
                                                      {"slow_delay_0", r.slowDelayMs},
                                                      {"slow_time_constant_0", r.slowTimeConstantMs}};
    for (const auto& [key, value] : expected) {
      EXPECT_EQ(a.parameters().at("vorafier_" + key + "_" + std::to_string(band)), value) << key << " " << band;
    }
  }
}

TEST(PresetConversionTest, EncodingThePresetGivesThePayloadBackAndIgnoresAThirdChannel) {
  std::mt19937 random(77u);
  for (int trial = 0; trial < 50; ++trial) {
    const Bytes payload = randomPayload(random);
    AudioProcessorPreset preset = presetFromPayload(payload.data());
    preset.addParameter(ParameterIdentifier::vorafier_gain, 9.0f, 2, 0); // a third channel has no field
    Bytes encoded{};
    encodePresetPayload(parametersFromPreset(preset), encoded.data());
    ASSERT_EQ(encoded, payload) << trial;
  }
}

} // namespace
} // namespace vora
