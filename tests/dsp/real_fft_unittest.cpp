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
    // A single-precision FFT is good to about -130 dB; -120 dB leaves room
    // for the compiler while catching any wrong twiddle, index or vector op.
    EXPECT_LT(db(forwardError, spectrumPower), -120.0) << name << " N=" << n << ", " << cyclesPerBlock << " cycles";
    EXPECT_LT(db(roundTripError, signalPower), -120.0) << name << " N=" << n << ", " << cyclesPerBlock << " cycles";
  }
}

class RealFftTest : public testing::TestWithParam<uint32_t> {};

// The backend compiled in and the plain path of the library's own transform
// against the DFT; the vector path this target compiles (SSE2 or NEON) runs
// the plain path's operations lane by lane in the same order, so it must
// equal it bit for bit, forward and inverse; and the backend's folded steps
// equal the same steps done apart.
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

  // The same with the steps folded in: window, magnitudes; per-bin scale,
  // window and overlap-add.
  std::vector<float> window(n), scaleA(n / 2), scaleB(n / 2), magnitude(n / 2), fusedMagnitude(n / 2);
  for (uint32_t i = 0; i < n; ++i) {
    window[i] = 0.5f + 0.5f * sample(random);
  }
  for (uint32_t k = 0; k < n / 2; ++k) {
    scaleA[k] = 2.0f * sample(random);
    scaleB[k] = sample(random);
  }
  scalar->forward(input.data(), plain.data(), {.window = window.data(), .magnitude = magnitude.data()});
  native->forward(input.data(), vector.data(), {.window = window.data(), .magnitude = fusedMagnitude.data()});
  EXPECT_EQ(plain, vector) << Vec4Native::kName << " forward with steps, N=" << n;
  EXPECT_EQ(magnitude, fusedMagnitude) << Vec4Native::kName << " magnitudes, N=" << n;
  std::vector<float> plainSum = input, vectorSum = input;
  const FftInverseSteps inverseSteps{.scaleA = scaleA.data(), .scaleB = scaleB.data(), .window = window.data()};
  scalar->inverse(plain.data(), plainSum.data(), inverseSteps);
  native->inverse(plain.data(), vectorSum.data(), inverseSteps);
  EXPECT_EQ(plainSum, vectorSum) << Vec4Native::kName << " inverse with steps, N=" << n;

  // And the backend's folded steps give what separate loops give.
  std::vector<float> windowed(n), separate(n), fused(n);
  for (uint32_t i = 0; i < n; ++i) {
    windowed[i] = input[i] * window[i];
  }
  fft.forward(windowed.data(), separate.data());
  fft.forward(input.data(), fused.data(), {.window = window.data(), .magnitude = fusedMagnitude.data()});
  EXPECT_EQ(separate, fused) << "forward with window, N=" << n;
  magnitude[0] = std::fabs(separate[0]);
  for (uint32_t k = 1; k < n / 2; ++k) {
    magnitude[k] = std::sqrt(separate[2 * k] * separate[2 * k] + separate[2 * k + 1] * separate[2 * k + 1]);
  }
  EXPECT_EQ(magnitude, fusedMagnitude) << "magnitudes, N=" << n;
  std::vector<float> scaled = separate, sum = input, fusedSum = input;
  for (uint32_t k = 1; k < n / 2; ++k) {
    scaled[2 * k] *= scaleA[k] * scaleB[k];
    scaled[2 * k + 1] *= scaleA[k] * scaleB[k];
  }
  fft.inverse(scaled.data(), windowed.data());
  for (uint32_t i = 0; i < n; ++i) {
    sum[i] += windowed[i] * window[i];
  }
  fft.inverse(separate.data(), fusedSum.data(), inverseSteps);
  EXPECT_EQ(sum, fusedSum) << "inverse with scale and overlap-add, N=" << n;
}

INSTANTIATE_TEST_SUITE_P(Sizes, RealFftTest, testing::Values(256u, 512u, 1024u));

} // namespace
} // namespace vora
