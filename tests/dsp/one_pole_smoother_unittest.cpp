#include "dsp/one_pole_smoother.h"

#include <gtest/gtest.h>

#include <cmath>

namespace vora {
namespace {

// The first output is x/c + y0 for a length c of 0.5 or above, except 1;
// lengths of 1 and below 0.5 start from y0 and give x; a length of 0 passes x through.
TEST(OnePoleSmootherTest, FirstOutputFollowsTheLength) {
  struct Case {
    float length, start, input, expected;
  };
  for (const Case c :
       {Case{4.0f, 2.0f, 8.0f, 4.0f}, Case{37.5f, 2.0f, 8.0f, 8.0f / 37.5f + 2.0f}, Case{1.0f, 5.0f, 3.0f, 3.0f},
        Case{0.25f, 5.0f, 3.0f, 3.0f}, Case{0.5f, 2.0f, 8.0f, 18.0f}, Case{0.0f, 3.0f, 0.125f, 0.125f}}) {
    OnePoleSmoother smoother;
    smoother.initialise(c.length, c.start);
    EXPECT_NEAR(smoother.step(c.input), c.expected, 1e-5f) << c.length;
  }
}

} // namespace
} // namespace vora
