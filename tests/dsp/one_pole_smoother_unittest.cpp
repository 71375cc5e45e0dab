#include "dsp/one_pole_smoother.h"

#include <gtest/gtest.h>

namespace vora {
namespace {

TEST(OnePoleSmootherTest, FirstOutputIsInputOverLengthPlusStartValue) {
  OnePoleSmoother smoother;
  smoother.initialise(4.0f, 2.0f);
  EXPECT_NEAR(smoother.step(8.0f), 8.0f / 4.0f + 2.0f, 1e-6f);
}

TEST(OnePoleSmootherTest, LengthReadsBackExactly) {
  for (float length : {278.0f, 187.5f, 5.0f, 37.5f}) {
    OnePoleSmoother smoother;
    smoother.initialise(length, 0.0f);
    EXPECT_EQ(smoother.length(), length);
  }
}

} // namespace
} // namespace vora
