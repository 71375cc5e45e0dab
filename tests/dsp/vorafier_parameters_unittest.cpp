#include "dsp/vorafier_parameters.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace vora {
namespace {

float valueFor(int position, int band) {
  return static_cast<float>(100 * position + band);
}

// Each kind and channel lands at its fixed position in the flat record (the
// slow delay precedes the slow factor); get() shares the slots and the
// codec round trip reads every kind back through it.
TEST(VorafierParametersTest, SetterWritesTheRecordPositions) {
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
  // A new record: level 1, a 5 ms slow delay in every band, zero elsewhere.
  VorafierParameters parameters;
  float flat[131];
  std::memcpy(flat, &parameters, sizeof(flat));
  for (int i = 0; i < 131; ++i) {
    EXPECT_EQ(flat[i], i == 0 ? 1.0f : (i - 1) % 10 == 5 ? 5.0f : 0.0f) << i;
  }
  for (const Case& c : cases) {
    float values[kControlledBandCount];
    for (int band = 0; band < kControlledBandCount; ++band) {
      values[band] = valueFor(c.position, band);
    }
    parameters.set(c.kind, c.channel, values);
  }
  std::memcpy(flat, &parameters, sizeof(flat));
  for (const Case& c : cases) {
    for (int band = 0; band < kControlledBandCount; ++band) {
      EXPECT_EQ(flat[1 + 10 * band + c.position], valueFor(c.position, band)) << c.position << " " << band;
    }
  }

  // A negative channel writes both slots of a per-channel kind, or the one
  // slot of a shared kind; channel 0 alone leaves channel 1.
  float marker[kControlledBandCount];
  std::fill(marker, marker + kControlledBandCount, -3.0f);
  parameters.set(VorafierKind::Gain, -1, marker);
  parameters.set(VorafierKind::SlowFactor, -1, marker);
  parameters.set(VorafierKind::FastRatio, 0, marker);
  for (const VorafierBandRecord& band : parameters.bands) {
    EXPECT_EQ(band.gainDb0, -3.0f);
    EXPECT_EQ(band.gainDb1, -3.0f);
    EXPECT_EQ(band.slowFactor, -3.0f);
    EXPECT_EQ(band.fastRatio0, -3.0f);
    EXPECT_NE(band.fastRatio1, -3.0f);
  }
}

} // namespace
} // namespace vora
