#include "dsp/one_pole_smoother.h"

#include <gtest/gtest.h>

#include <cmath>

namespace vora {
namespace {

TEST(OnePoleSmootherTest, FirstOutputIsInputOverLengthPlusStartValue) {
  for (float length : {4.0f, 37.5f}) {
    OnePoleSmoother smoother;
    smoother.initialise(length, 2.0f);
    EXPECT_NEAR(smoother.step(8.0f), 8.0f / length + 2.0f, 1e-5f) << length;
  }
}

TEST(OnePoleSmootherTest, EpsilonAlternatesSignOnEveryStepIncludingPassThrough) {
  for (float length : {0.0f, 10.0f}) {
    OnePoleSmoother smoother;
    smoother.initialise(length, 0.0f);
    EXPECT_EQ(smoother.epsilon(), 1e-20f);
    smoother.step(1.0f);
    EXPECT_EQ(smoother.epsilon(), -1e-20f);
    smoother.step(1.0f);
    EXPECT_EQ(smoother.epsilon(), 1e-20f);
  }
  OnePoleSmoother passThrough;
  passThrough.initialise(0.0f, 3.0f);
  EXPECT_EQ(passThrough.step(0.125f), 0.125f);
}

TEST(OnePoleSmootherTest, LengthReadsBackExactlyAndOnlyOnceInitialised) {
  for (float length : {278.0f, 187.5f, 1.0f, 0.25f, 0.0f}) {
    OnePoleSmoother smoother;
    EXPECT_FALSE(smoother.hasLength(length)) << length;
    smoother.initialise(length, 0.0f);
    EXPECT_EQ(smoother.length(), length);
    EXPECT_TRUE(smoother.hasLength(length + 0.0009f)) << length;
    EXPECT_FALSE(smoother.hasLength(length + 0.002f)) << length;
  }
}

TEST(OnePoleSmootherTest, LengthOneAndShorterStartAtTheStartValueAndStayFinite) {
  for (float length : {1.0f, 0.25f}) {
    OnePoleSmoother smoother;
    smoother.initialise(length, 5.0f);
    EXPECT_EQ(smoother.state(), 5.0f);
    const float first = smoother.step(3.0f);
    EXPECT_TRUE(std::isfinite(first));
    EXPECT_EQ(first, 3.0f);
  }
}

} // namespace
} // namespace vora
