#include "dsp/stft.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

namespace vora {
namespace {

// With nothing done to the spectrum, the framing gives each channel's input
// back, latency() samples late, from the very first hop (the frames start
// silent): the window pair overlap-adds to one and the FFT round trip is
// unity.
TEST(StftTest, UntouchedSpectrumGivesTheInputBackLatencyLate) {
  for (const uint32_t n : {256u, 512u, 1024u}) {
    auto stft = std::make_unique<Stft>();
    ASSERT_TRUE(stft->setup(n));
    const uint32_t hop = stft->hopSize();
    ASSERT_EQ(hop, n / 4);
    ASSERT_EQ(stft->latency(), n - hop);
    // The analysis window sums to one, so that band levels do not depend on N.
    EXPECT_NEAR(std::accumulate(stft->analysisWindow(), stft->analysisWindow() + n, 0.0), 1.0, 1e-6) << n;
    std::mt19937 random(n);
    std::uniform_real_distribution<float> sample(-1.0f, 1.0f);
    std::vector<float> input[2], output[2];
    for (int c = 0; c < 2; ++c) {
      input[c].resize(8 * n);
      for (float& x : input[c]) {
        x = sample(random);
      }
      output[c] = input[c];
    }
    for (size_t start = 0; start < 8 * n; start += hop) {
      for (int c = 0; c < 2; ++c) {
        stft->analyse(c, output[c].data() + start);
        stft->synthesise(c);
        stft->emit(c, output[c].data() + start);
      }
    }
    for (int c = 0; c < 2; ++c) {
      for (size_t i = 0; i < output[c].size(); ++i) {
        const float expected = i >= stft->latency() ? input[c][i - stft->latency()] : 0.0f;
        ASSERT_NEAR(output[c][i], expected, 2e-6f) << "N=" << n << ", channel " << c << ", sample " << i;
      }
    }
  }
}

} // namespace
} // namespace vora
