#include "dsp/engine_kernels.h"

#include "dsp/band_bank.h"
#include "dsp/band_gain_computer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <vector>

namespace vora {
namespace {

using Plain = Vec4Scalar;
using Vector = Vec4Native;
using Floats = std::vector<float>;

// The engine's layout of the bands at a rate.
struct Spans : BandSpans {
  explicit Spans(float rate) : bins(fftSizeForRate(rate) / 2) {
    auto bank = std::make_unique<BandBank>();
    bank->build(rate, 2 * bins, kBandThresholdDb);
    build(*bank);
  }
  uint32_t bins;
};

Floats uniform(std::mt19937& random, size_t n, float low, float high) {
  std::uniform_real_distribution<float> value(low, high);
  Floats out(n);
  for (float& x : out) {
    x = value(random);
  }
  return out;
}

// Every kernel with SSE2 or NEON against the same kernel in plain C++, on
// data that keep clear of denormals (which NEON flushes): the same bits.
// Every buffer a kernel is given is a heap block exactly as long as the
// kernel is told, so that under AddressSanitizer (the asan preset) a kernel
// touching one lane past its end fails.
TEST(EngineKernelsTest, VectorPathEqualsThePlainPathBitForBit) {
  std::mt19937 random(17u);
  for (const float rate : {48000.0f, 96000.0f, 192000.0f}) {
    const auto spans = std::make_unique<Spans>(rate);
    const uint32_t bins = spans->bins;
    const Floats magnitude0 = uniform(random, bins, 0.0f, 2.0f);
    const Floats magnitude1 = uniform(random, bins, 0.0f, 2.0f);
    const float* magnitude[2] = {magnitude0.data(), magnitude1.data()};
    const Floats gains0 = uniform(random, 16, 0.0f, 4.0f), gains1 = uniform(random, 16, 0.0f, 4.0f);
    const float* gains[2] = {gains0.data(), gains1.data()};
    for (const int channels : {1, 2}) {
      alignas(16) float plainSums[2][16] = {}, vectorSums[2][16] = {};
      bandSums<Plain>(magnitude, channels, spans->weights, spans->first, spans->end, kBandCount, plainSums);
      bandSums<Vector>(magnitude, channels, spans->weights, spans->first, spans->end, kBandCount, vectorSums);
      Floats plainW[2] = {Floats(bins), Floats(bins)}, vectorW[2] = {Floats(bins), Floats(bins)};
      float* plainOut[2] = {plainW[0].data(), plainW[1].data()};
      float* vectorOut[2] = {vectorW[0].data(), vectorW[1].data()};
      bandWeightsPerBin<Plain>(spans->weights, spans->bandsFrom, spans->bandsTo, gains, channels, plainOut, bins);
      bandWeightsPerBin<Vector>(spans->weights, spans->bandsFrom, spans->bandsTo, gains, channels, vectorOut, bins);
      for (int c = 0; c < channels; ++c) {
        // The sums in another order than a plain loop's: within rounding of
        // the exact sum; the weights per bin in the plain loop's order.
        for (int b = 0; b < kBandCount; ++b) {
          double exact = 0.0;
          for (uint32_t k = spans->first[b]; k < spans->end[b]; ++k) {
            exact += double(magnitude[c][k]) * spans->weights[b][k];
          }
          EXPECT_EQ(plainSums[c][b], vectorSums[c][b]) << rate << " Hz, band " << b;
          EXPECT_NEAR(vectorSums[c][b], exact, 1e-6 * exact) << rate << " Hz, band " << b;
        }
        for (uint32_t k = 0; k < bins; ++k) {
          float w = 0.0f;
          for (int b = 0; b < kBandCount; ++b) {
            w += spans->weights[b][k] * gains[c][b];
          }
          ASSERT_EQ(plainW[c][k], vectorW[c][k]) << rate << " Hz, bin " << k;
          ASSERT_EQ(vectorW[c][k], w) << rate << " Hz, bin " << k;
        }
      }
    }
  }

  // Sample-wise kernels on a hop: clamping, the floor (over bins 3 .. 73,
  // the first ones untouched), the limiter's rectifier, division and peak,
  // the crossfade.
  Floats hop = uniform(random, 128, -2.0f, 2.0f);
  hop[3] = NAN;
  hop[10] = -INFINITY;
  hop[11] = 3e12f;
  const auto both = [](auto kernel) {
    const Floats plain = kernel(Plain{}), vector = kernel(Vector{});
    EXPECT_EQ(plain, vector);
    return vector;
  };
  const Floats clean = both([&hop](auto ops) {
    Floats x = hop;
    sanitiseSamples<decltype(ops)>(x.data(), 128);
    return x;
  });
  EXPECT_EQ(clean[3], 0.0f);
  EXPECT_EQ(clean[10], 0.0f);
  EXPECT_EQ(clean[11], kLargestInput);
  const Floats floored = both([&clean](auto ops) {
    Floats x(clean.begin(), clean.begin() + 74), scale(74, 1.0f);
    for (size_t k = 0; k < 74; k += 3) {
      x[k] = x[k] * 1e-5f; // some below the floor
    }
    applyFloor<decltype(ops)>(x.data(), scale.data(), 3, 74);
    x.insert(x.end(), scale.begin(), scale.end());
    return x;
  });
  for (size_t k = 0; k < 74; ++k) {
    const float m = k % 3 == 0 ? clean[k] * 1e-5f : clean[k];
    const float scale = k < 3 ? 1.0f : std::min(m * (1.0f / kFloorMagnitude), 1.0f);
    ASSERT_EQ(floored[k], k < 3 ? m : m * scale) << k;
    ASSERT_EQ(floored[74 + k], scale) << k;
  }
  both([&clean](auto ops) {
    Floats x = clean, envelope(128), peakOf = clean;
    rectify<decltype(ops)>(x.data(), 1.0f, envelope.data(), 128);
    divide<decltype(ops)>(x.data(), envelope.data(), 128);
    x.push_back(largestMagnitude<decltype(ops)>(peakOf.data(), 128));
    return x;
  });
  for (size_t at = 0; at < 8; ++at) { // the peak in each lane of both accumulators
    Floats x(8, 0.5f);
    x[at] = -3.0f;
    EXPECT_EQ(largestMagnitude<Plain>(x.data(), 8), 3.0f) << at;
    EXPECT_EQ(largestMagnitude<Vector>(x.data(), 8), 3.0f) << at;
  }
  both([&clean](auto ops) {
    Floats out = clean, dry(clean.rbegin(), clean.rend());
    crossfade<decltype(ops)>(out.data(), dry.data(), 0.3f, 128);
    return out;
  });
}

// The polynomials that stand in for log10 and exp, against the library,
// within the bounds their comments state, from silence to far above full
// scale; the vector and plain paths agree bit for bit.
TEST(EngineKernelsTest, PolynomialLevelsAndGainsStayWithinTheirBounds) {
  Floats sums, decibels;
  sums.push_back(0.0f);
  for (double x = 2e-38; x < 1e13; x *= 1.003) { // normal floats: NEON flushes denormals
    sums.push_back(static_cast<float>(x));
  }
  for (double db = -240.0; db < 250.0; db += 0.0037) {
    decibels.push_back(static_cast<float>(db));
  }
  sums.resize((sums.size() + 3) / 4 * 4, 1.0f);
  decibels.resize((decibels.size() + 3) / 4 * 4, 0.0f);
  sums.shrink_to_fit(); // no spare capacity behind the last vector
  decibels.shrink_to_fit();
  Floats levels(sums.size()), plainLevels(sums.size()), gains(decibels.size()), plainGains(decibels.size());
  levelsDb<Vector>(sums.data(), levels.data(), static_cast<uint32_t>(sums.size()));
  levelsDb<Plain>(sums.data(), plainLevels.data(), static_cast<uint32_t>(sums.size()));
  dbToGains<Vector>(decibels.data(), gains.data(), static_cast<uint32_t>(decibels.size()));
  dbToGains<Plain>(decibels.data(), plainGains.data(), static_cast<uint32_t>(decibels.size()));
  EXPECT_EQ(levels, plainLevels);
  EXPECT_EQ(gains, plainGains);
  for (size_t i = 0; i < sums.size(); ++i) {
    const float expected = bandLevelDb(sums[i]);
    ASSERT_NEAR(levels[i], expected, 4e-6f + 2e-7f * std::fabs(expected)) << sums[i];
  }
  for (size_t i = 0; i < decibels.size(); ++i) {
    const float expected = std::exp(decibels[i] * kNepersPerDecibel) - kFloatMinimum;
    const float bound = (5e-7f + 1e-8f * std::fabs(decibels[i])) * expected;
    ASSERT_NEAR(gains[i], expected, bound) << decibels[i] << " dB";
  }
}

} // namespace
} // namespace vora
