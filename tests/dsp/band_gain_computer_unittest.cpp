#include "dsp/band_gain_computer.h"

#include <gtest/gtest.h>

namespace vora {
namespace {

TEST(BandGainComputerTest, UnityRatioLeavesBandGain) {
  VorafierParameters parameters;
  parameters.bands[0].fastRatio0 = 1.0f;
  parameters.bands[0].gainDb0 = 3.0f;
  SlowGainState state;
  const float sums[2] = {1.0f, 0.0f};
  const BandGains gains = computeBandGain(0, sums, 1, parameters, 64.0f / 48.0f, state);
  EXPECT_FLOAT_EQ(gains.gainDb[0], 3.0f);
}

} // namespace
} // namespace vora
