#include "dsp/vorafier_parameters.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace vora {
namespace {

float valueFor(int position, int band) {
  return static_cast<float>(100 * position + band);
}

TEST(VorafierParametersTest, ConstructionValues) {
  VorafierParameters parameters;
  float flat[131];
  std::memcpy(flat, &parameters, sizeof(flat));
  EXPECT_EQ(flat[0], 1.0f);
  for (int i = 1; i < 131; ++i) {
    EXPECT_EQ(flat[i], (i - 1) % 10 == 5 ? 5.0f : 0.0f) << i;
  }
}

// Each kind and channel lands at its fixed position in the flat record (the
// slow delay precedes the slow factor), and reads back through get().
TEST(VorafierParametersTest, SetterWritesTheRecordPositionsAndGetterReadsThem) {
  struct Case {
    VorafierKind kind;
    int channel;
    int position;
  };
  const Case cases[] = {
      {VorafierKind::FastThreshold, 0, 0}, {VorafierKind::FastRatio, 0, 1},        {VorafierKind::FastThreshold, 1, 2},
      {VorafierKind::FastRatio, 1, 3},     {VorafierKind::SlowThreshold, 0, 4},    {VorafierKind::SlowDelay, 0, 5},
      {VorafierKind::SlowFactor, 0, 6},    {VorafierKind::SlowTimeConstant, 0, 7}, {VorafierKind::Gain, 0, 8},
      {VorafierKind::Gain, 1, 9},
  };
  VorafierParameters parameters;
  for (const Case& c : cases) {
    float values[kControlledBandCount];
    for (int band = 0; band < kControlledBandCount; ++band) {
      values[band] = valueFor(c.position, band);
    }
    parameters.set(c.kind, c.channel, values);
  }
  float flat[131];
  std::memcpy(flat, &parameters, sizeof(flat));
  for (const Case& c : cases) {
    float read[kControlledBandCount];
    parameters.get(c.kind, c.channel, read);
    for (int band = 0; band < kControlledBandCount; ++band) {
      EXPECT_EQ(flat[1 + 10 * band + c.position], valueFor(c.position, band)) << c.position << " " << band;
      EXPECT_EQ(read[band], valueFor(c.position, band));
    }
  }
}

TEST(VorafierParametersTest, NegativeChannelWritesBothSlotsOrTheSharedOne) {
  VorafierParameters parameters;
  float values[kControlledBandCount];
  for (int band = 0; band < kControlledBandCount; ++band) {
    values[band] = -3.0f - static_cast<float>(band);
  }
  parameters.set(VorafierKind::Gain, -1, values);
  parameters.set(VorafierKind::SlowFactor, -1, values);
  parameters.set(VorafierKind::FastRatio, 0, values); // channel 0 alone leaves channel 1
  for (int band = 0; band < kControlledBandCount; ++band) {
    EXPECT_EQ(parameters.bands[static_cast<std::size_t>(band)].gainDb0, values[band]);
    EXPECT_EQ(parameters.bands[static_cast<std::size_t>(band)].gainDb1, values[band]);
    EXPECT_EQ(parameters.bands[static_cast<std::size_t>(band)].slowFactor, values[band]);
    EXPECT_EQ(parameters.bands[static_cast<std::size_t>(band)].fastRatio0, values[band]);
    EXPECT_EQ(parameters.bands[static_cast<std::size_t>(band)].fastRatio1, 0.0f);
  }
}

TEST(VorafierParametersTest, EqualityIsBitForBit) {
  VorafierParameters a;
  VorafierParameters b;
  EXPECT_TRUE(a == b);
  b.bands[3].gainDb1 = -0.0f; // equal as floats, different bits
  EXPECT_FALSE(a == b);
  a.bands[3].gainDb1 = std::nanf("");
  b.bands[3].gainDb1 = a.bands[3].gainDb1; // same NaN bits compare equal
  EXPECT_TRUE(a == b);
  b.level = 0.5f;
  EXPECT_FALSE(a == b);
}

} // namespace
} // namespace vora
