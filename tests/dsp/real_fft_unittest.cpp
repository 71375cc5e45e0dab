#include "dsp/real_fft.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

namespace vora {
namespace {

class RealFftTest : public testing::TestWithParam<uint32_t> {};

TEST_P(RealFftTest, RoundTripReturnsTheInput) {
  const uint32_t n = GetParam();
  RealFft fft;
  ASSERT_TRUE(fft.setup(n));
  std::mt19937 random(7u);
  std::uniform_real_distribution<float> sample(-1.0f, 1.0f);
  std::vector<float> input(n), data(n);
  for (auto& x : input) {
    x = sample(random);
  }
  data = input;
  fft.forward(data.data(), data.data());
  fft.inverse(data.data(), data.data());
  for (uint32_t i = 0; i < n; ++i) {
    EXPECT_NEAR(data[i], input[i], 1e-5f) << i;
  }
}

TEST_P(RealFftTest, PackedLayoutAndScale) {
  const uint32_t n = GetParam();
  RealFft fft;
  ASSERT_TRUE(fft.setup(n));
  // DC 0.25, Nyquist 0.5 and a cosine of amplitude 0.75 in bin 5 (phase 0),
  // plus a sine of amplitude 0.5 in bin 9.
  std::vector<float> data(n);
  for (uint32_t i = 0; i < n; ++i) {
    const double t = 2.0 * std::numbers::pi * i / n;
    data[i] = static_cast<float>(0.25 + 0.5 * ((i % 2) ? -1.0 : 1.0) + 0.75 * std::cos(5 * t) + 0.5 * std::sin(9 * t));
  }
  fft.forward(data.data(), data.data());
  const float half = static_cast<float>(n) / 2.0f;
  EXPECT_NEAR(data[0], 0.25f * static_cast<float>(n), 1e-3f); // unscaled forward
  EXPECT_NEAR(data[1], 0.5f * static_cast<float>(n), 1e-3f);
  EXPECT_NEAR(data[2 * 5], 0.75f * half, 1e-3f);
  EXPECT_NEAR(data[2 * 5 + 1], 0.0f, 1e-3f);
  EXPECT_NEAR(data[2 * 9], 0.0f, 1e-3f);
  EXPECT_NEAR(data[2 * 9 + 1], -0.5f * half, 1e-3f);
  for (uint32_t k = 1; k < n / 2; ++k) {
    if (k != 5 && k != 9) {
      EXPECT_NEAR(std::hypot(data[2 * k], data[2 * k + 1]), 0.0f, 1e-3f) << k;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Sizes, RealFftTest, testing::Values(256u, 512u, 1024u));

} // namespace
} // namespace vora
