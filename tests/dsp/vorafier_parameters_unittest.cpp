#include "dsp/vorafier_parameters.h"

#include <gtest/gtest.h>

namespace vora {
namespace {

TEST(VorafierParametersTest, ConstructionValues) {
  VorafierParameters parameters;
  EXPECT_EQ(parameters.level, 1.0f);
  EXPECT_EQ(parameters.bands[12].slowDelayMs, 5.0f);
  EXPECT_EQ(parameters.bands[12].gainDb1, 0.0f);
}

} // namespace
} // namespace vora
