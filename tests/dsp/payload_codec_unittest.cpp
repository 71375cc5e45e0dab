#include "dsp/payload_codec.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>

namespace vora {
namespace {

using Bytes = std::array<unsigned char, kPresetPayloadSize>;

// Scrambles a descrambled image the way a payload producer does: per
// little-endian word, swap the bytes then XOR with 0x4E29.
Bytes scrambleImage(const Bytes& image) {
  Bytes payload{};
  for (std::size_t i = 0; i < kPresetPayloadSize; i += 2) {
    payload[i] = static_cast<unsigned char>(image[i + 1] ^ 0x29);
    payload[i + 1] = static_cast<unsigned char>(image[i] ^ 0x4E);
  }
  return payload;
}

void putS16(Bytes& image, std::size_t offset, int value) {
  const auto word = static_cast<uint16_t>(value);
  image[offset] = static_cast<unsigned char>(word >> 8);
  image[offset + 1] = static_cast<unsigned char>(word & 0xFF);
}

// Offsets of the groups in the descrambled stream.
constexpr std::size_t kGain0 = 1, kGain1 = 27, kFastThreshold0 = 53, kFastRatio0 = 105, kSlowDelay = 131,
                      kSlowThreshold = 144, kSlowTimeConstant = 183; // slow factors at 170

// Bands 0 to 11 carry hand-built values; band 12 stays all zero bytes, which
// the key turns into zeros again: a zero linear gain is minus infinity dB.
TEST(PayloadCodecTest, DecodesHandBuiltFields) {
  Bytes image{};
  image[0] = 255;
  for (std::size_t band = 0; band < 12; ++band) {
    putS16(image, kGain0 + 2 * band, 128);
    putS16(image, kGain1 + 2 * band, 256);
    putS16(image, kFastThreshold0 + 2 * band, -1280);
    putS16(image, kSlowThreshold + 2 * band, -40 * 128);
    image[kFastRatio0 + band] = 255;
    image[kSlowDelay + band] = static_cast<unsigned char>(band * 19);
    image[kSlowTimeConstant + band] = 255;
  }
  const Bytes payload = scrambleImage(image);

  VorafierParameters parameters;
  decodePresetPayload(payload.data(), parameters);

  EXPECT_EQ(parameters.level, 1.0f);
  for (std::size_t band = 0; band < 12; ++band) {
    const VorafierBandRecord& record = parameters.bands[band];
    EXPECT_EQ(record.gainDb0, 0.0f); // odd offset: every value straddles two scrambled pairs
    EXPECT_NEAR(record.gainDb1, 6.0206f, 1e-4f);
    EXPECT_EQ(record.fastThresholdDb0, -10.0f);
    EXPECT_EQ(record.fastRatio0, 1.0f);
    EXPECT_EQ(record.slowDelayMs, static_cast<float>(band * 19));
    EXPECT_EQ(record.slowThresholdDb, -40.0f);
    EXPECT_EQ(record.slowFactor, 0.0f);
    EXPECT_EQ(record.slowTimeConstantMs, 255.0f);
  }
  EXPECT_EQ(parameters.bands[12].gainDb1, -INFINITY);
  EXPECT_EQ(parameters.bands[12].fastRatio1, 0.0f);
}

TEST(PayloadCodecTest, EncodeInvertsDecodeForFiniteRandomPayloads) {
  std::mt19937 random(1234u);
  std::uniform_int_distribution<int> byte(0, 255);
  for (int trial = 0; trial < 300; ++trial) {
    Bytes image{};
    for (auto& b : image) {
      b = static_cast<unsigned char>(byte(random));
    }
    image[0] = 255;
    // Gains must be positive linear factors to decode to finite dB.
    for (std::size_t offset : {kGain0, kGain1}) {
      for (std::size_t band = 0; band < 13; ++band) {
        putS16(image, offset + 2 * band, 1 + byte(random) * 128 + byte(random) % 127);
      }
    }
    const Bytes payload = scrambleImage(image);
    VorafierParameters parameters;
    decodePresetPayload(payload.data(), parameters);
    Bytes encoded{};
    encodePresetPayload(parameters, encoded.data());
    ASSERT_EQ(encoded, payload) << "trial " << trial;
  }
}

TEST(PayloadCodecTest, OutOfRangeValuesWrapInsteadOfSaturating) {
  VorafierParameters parameters;
  parameters.bands[0].fastThresholdDb0 = 300.0f;         // 38400 wraps to 38400 - 65536
  parameters.bands[0].slowDelayMs = 300.0f;              // low byte of 300
  parameters.bands[0].slowFactor = -0.5f;                // negative: 0
  parameters.bands[0].fastThresholdDb1 = -2.5f / 128.0f; // half rounds away from zero
  parameters.bands[0].slowTimeConstantMs = 2.5f;
  Bytes payload{};
  encodePresetPayload(parameters, payload.data());
  VorafierParameters decoded;
  decodePresetPayload(payload.data(), decoded);
  EXPECT_EQ(decoded.bands[0].fastThresholdDb0, (38400.0f - 65536.0f) / 128.0f);
  EXPECT_EQ(decoded.bands[0].slowDelayMs, 44.0f);
  EXPECT_EQ(decoded.bands[0].slowFactor, 0.0f);
  EXPECT_EQ(decoded.bands[0].fastThresholdDb1, -3.0f / 128.0f);
  EXPECT_EQ(decoded.bands[0].slowTimeConstantMs, 3.0f);
}

} // namespace
} // namespace vora
