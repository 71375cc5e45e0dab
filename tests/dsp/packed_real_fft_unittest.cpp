#include "dsp/packed_real_fft.h"
#include "dsp/vec4.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <memory>
#include <random>
#include <vector>

namespace vora {
namespace {

// The vector path the target compiles (SSE2, NEON) against the plain C++
// path, on the same inputs, both directions. Both run the same operations
// in the same order, so with no fused multiply-add they agree bit for bit;
// the bound allows a compiler that contracts the scalar path.
class PackedRealFftTest : public testing::TestWithParam<uint32_t> {};

TEST_P(PackedRealFftTest, VectorPathMatchesScalarPath) {
  const uint32_t n = GetParam();
  auto scalar = std::make_unique<PackedRealFft<Vec4Scalar>>();
  auto native = std::make_unique<PackedRealFft<Vec4Native>>();
  ASSERT_TRUE(scalar->setup(n));
  ASSERT_TRUE(native->setup(n));
  std::mt19937 random(11u);
  std::uniform_real_distribution<float> sample(-1.0f, 1.0f);
  std::vector<float> input(n), fromScalar(n), fromNative(n);
  double worstForward = 0.0, worstInverse = 0.0;
  for (int trial = 0; trial < 4; ++trial) {
    for (auto& x : input) {
      x = sample(random);
    }
    scalar->forward(input.data(), fromScalar.data());
    native->forward(input.data(), fromNative.data());
    for (uint32_t i = 0; i < n; ++i) {
      worstForward = std::max(worstForward, std::abs(double(fromScalar[i]) - fromNative[i]));
    }
    // Both inverses from the scalar spectrum, so only the inverse differs.
    native->inverse(fromScalar.data(), fromNative.data());
    scalar->inverse(fromScalar.data(), fromScalar.data());
    for (uint32_t i = 0; i < n; ++i) {
      worstInverse = std::max(worstInverse, std::abs(double(fromScalar[i]) - fromNative[i]));
    }
  }
  std::printf("  %s vs scalar, N=%u: largest difference forward %.3g, inverse %.3g\n", Vec4Native::kName, n,
              worstForward, worstInverse);
  // Spectrum bins reach about N/2 here, samples about 1.
  EXPECT_LE(worstForward, 1e-5 * n);
  EXPECT_LE(worstInverse, 1e-6);
}

INSTANTIATE_TEST_SUITE_P(Sizes, PackedRealFftTest, testing::Values(256u, 512u, 1024u));

} // namespace
} // namespace vora
