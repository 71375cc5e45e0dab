#include "dsp/packed_real_fft.h"
#include "dsp/real_fft.h"
#include "dsp/vec4.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <numbers>
#include <random>
#include <vector>

namespace vora {
namespace {

// Forward error against a double-precision DFT and round-trip error, as
// relative RMS in dB, on seeded noise and on pure tones between bins. The
// DFT comparison pins the packed layout (DC and Nyquist real parts in
// slots 0 and 1), the sign convention and the unscaled forward transform.
template <class Fft> void expectAccurate(Fft& fft, uint32_t n, const char* name) {
  ASSERT_TRUE(fft.setup(n));
  std::vector<double> cosTable(n), sinTable(n);
  for (uint32_t i = 0; i < n; ++i) {
    cosTable[i] = std::cos(2.0 * std::numbers::pi * i / n);
    sinTable[i] = std::sin(2.0 * std::numbers::pi * i / n);
  }
  const auto db = [](double error, double reference) { return 20.0 * std::log10(std::sqrt(error / reference)); };

  std::mt19937 random(7u);
  std::uniform_real_distribution<float> sample(-1.0f, 1.0f);
  for (const double cyclesPerBlock : {-1.0, 61.3, n / 2.0 - 1.7}) { // < 0: noise
    std::vector<float> input(n), spectrum(n), back(n);
    for (uint32_t i = 0; i < n; ++i) {
      input[i] = cyclesPerBlock < 0.0
                     ? sample(random)
                     : static_cast<float>(0.9 * std::sin(2.0 * std::numbers::pi * cyclesPerBlock * i / n + 0.3));
    }
    fft.forward(input.data(), spectrum.data());
    fft.inverse(spectrum.data(), back.data());

    double forwardError = 0.0, spectrumPower = 0.0, roundTripError = 0.0, signalPower = 0.0;
    for (uint32_t k = 0; k <= n / 2; ++k) {
      double re = 0.0, im = 0.0;
      for (uint32_t i = 0; i < n; ++i) {
        re += input[i] * cosTable[(uint64_t{i} * k) % n];
        im -= input[i] * sinTable[(uint64_t{i} * k) % n];
      }
      const double gotRe = k == 0 ? spectrum[0] : k == n / 2 ? spectrum[1] : spectrum[2 * k];
      const double gotIm = k == 0 || k == n / 2 ? 0.0 : spectrum[2 * k + 1];
      forwardError += (gotRe - re) * (gotRe - re) + (gotIm - im) * (gotIm - im);
      spectrumPower += re * re + im * im;
    }
    for (uint32_t i = 0; i < n; ++i) {
      roundTripError += (double(back[i]) - input[i]) * (double(back[i]) - input[i]);
      signalPower += double(input[i]) * input[i];
    }
    const double forwardDb = db(forwardError, spectrumPower);
    const double roundTripDb = db(roundTripError, signalPower);
    // A single-precision FFT is good to about -130 dB; -120 dB leaves room
    // for the compiler while catching any wrong twiddle, index or vector op.
    EXPECT_LT(forwardDb, -120.0) << name << " N=" << n << ", " << cyclesPerBlock << " cycles";
    EXPECT_LT(roundTripDb, -120.0) << name << " N=" << n << ", " << cyclesPerBlock << " cycles";
  }
}

class RealFftTest : public testing::TestWithParam<uint32_t> {};

// The backend compiled in and the plain path of the library's own transform
// against the DFT; the vector path this target compiles (SSE2 or NEON) runs
// the plain path's operations lane by lane in the same order, so it must
// equal it bit for bit, forward and inverse.
TEST_P(RealFftTest, AccuracyAgainstDoubleDft) {
  const uint32_t n = GetParam();
  RealFft fft;
  expectAccurate(fft, n, RealFft::backendName());
  auto scalar = std::make_unique<PackedRealFft<Vec4Scalar>>();
  expectAccurate(*scalar, n, Vec4Scalar::kName);

  auto native = std::make_unique<PackedRealFft<Vec4Native>>();
  ASSERT_TRUE(native->setup(n));
  std::mt19937 random(11u);
  std::uniform_real_distribution<float> sample(-1.0f, 1.0f);
  std::vector<float> input(n), plain(n), vector(n);
  for (float& x : input) {
    x = sample(random);
  }
  scalar->forward(input.data(), plain.data());
  native->forward(input.data(), vector.data());
  EXPECT_EQ(plain, vector) << Vec4Native::kName << " forward, N=" << n;
  scalar->inverse(input.data(), plain.data());
  native->inverse(input.data(), vector.data());
  EXPECT_EQ(plain, vector) << Vec4Native::kName << " inverse, N=" << n;
}

INSTANTIATE_TEST_SUITE_P(Sizes, RealFftTest, testing::Values(256u, 512u, 1024u));

} // namespace
} // namespace vora
