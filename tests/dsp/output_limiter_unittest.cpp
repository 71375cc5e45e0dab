#include "dsp/output_limiter.h"

#include "dsp/engine_constants.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace vora {
namespace {

struct LimiterRig {
  explicit LimiterRig(float sampleRate) {
    hop = fftSizeForRate(sampleRate) / kFramesPerHop;
    attack = limiterAttackSamples(sampleRate);
    release = limiterReleaseSamples(sampleRate);
  }
  void run(float* overlap) { limiter.limit(overlap, envelope, hop, attack, release); }

  OutputLimiter limiter;
  float envelope[512];
  uint32_t hop;
  float attack, release;
};

// A hop within full scale passes bit for bit; in the next, a lone sample of
// 2 comes out at 1 with its neighbours reduced.
TEST(OutputLimiterTest, PullsALoneSampleOfTwoToOne) {
  LimiterRig rig(48000.0f);
  float overlap[512];
  std::fill(overlap, overlap + 512, 0.5f);
  overlap[32] = 2.0f;
  rig.run(overlap);
  EXPECT_FLOAT_EQ(overlap[32], 1.0f);
  EXPECT_LT(overlap[31], 0.5f); // look-ahead: reduced before the peak
  EXPECT_LT(overlap[33], 0.5f); // release: reduced after it
  EXPECT_LT(overlap[31], overlap[20]);
  EXPECT_NEAR(overlap[0], 0.5f, 1e-3f); // the attack smoothing is short

  // What lies past the two hops it reads has no say, however loud.
  LimiterRig fresh(48000.0f);
  std::fill(overlap, overlap + 512, 0.5f);
  overlap[2 * fresh.hop] = 1e6f;
  fresh.run(overlap);
  EXPECT_EQ(overlap[fresh.hop - 1], 0.5f);
}

class LimiterReleaseTest : public testing::TestWithParam<float> {};

// A peak at the end of one hop still reduces the start of the next: the
// release state is not restarted between hops, only for a new length.
TEST_P(LimiterReleaseTest, ReleaseCarriesOverToTheNextHop) {
  LimiterRig rig(GetParam());
  float overlap[512];
  std::fill(overlap, overlap + 512, 0.5f);
  overlap[rig.hop - 1] = 4.0f;
  rig.run(overlap);
  EXPECT_FLOAT_EQ(overlap[rig.hop - 1], 1.0f);
  EXPECT_GT(rig.limiter.releaseValue(), 3.0f);

  std::fill(overlap, overlap + 512, 0.5f);
  rig.run(overlap);
  EXPECT_LT(overlap[0], 0.2f);
  EXPECT_LT(overlap[0], overlap[rig.hop - 1]);

  // A new release length (another rate) starts afresh, from no reduction.
  std::fill(overlap, overlap + 512, 0.5f);
  rig.limiter.limit(overlap, rig.envelope, rig.hop, rig.attack, 2.0f * rig.release);
  EXPECT_EQ(overlap[0], 0.5f);
}

INSTANTIATE_TEST_SUITE_P(Rates, LimiterReleaseTest, testing::Values(44100.0f, 48000.0f, 96000.0f));

} // namespace
} // namespace vora
