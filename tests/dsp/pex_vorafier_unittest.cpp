#include "dsp/pex_vorafier.h"

#include "dsp/payload_codec.h"
#include "dsp/real_fft.h"
#include "support/test_payloads.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

namespace vora {
namespace {

using larkspin_test::flatParameters;

void applyParameters(PexVorafier& engine, const VorafierParameters& parameters) {
  engine.applyParameterPayload(larkspin_test::payloadOf(parameters).data());
}

// Runs a whole stereo signal (both channels alike) through the engine.
std::vector<float> runStereo(PexVorafier& engine, const std::vector<float>& input, bool bypass, float mix) {
  const uint32_t hop = engine.hopSize();
  std::vector<float> left = input, right = input;
  for (size_t start = 0; start + hop <= input.size(); start += hop) {
    float* channels[2] = {left.data() + start, right.data() + start};
    engine.processStereo(channels, bypass, mix);
  }
  EXPECT_EQ(left, right);
  return left;
}

// A cosine, so that 0 Hz is a constant and half the rate alternates.
std::vector<float> tone(double frequencyHz, size_t frames, double amplitude) {
  std::vector<float> out(frames);
  for (size_t i = 0; i < frames; ++i) {
    out[i] = static_cast<float>(amplitude * std::cos(2.0 * std::numbers::pi * frequencyHz * i / 48000.0));
  }
  return out;
}

double rms(const std::vector<float>& x, size_t from) {
  double sum = 0.0;
  for (size_t i = from; i < x.size(); ++i) {
    sum += double(x[i]) * x[i];
  }
  return std::sqrt(sum / double(x.size() - from));
}

struct RateCase {
  float rate;
  int hop; // -1: refused
};

class EngineRateTest : public testing::TestWithParam<RateCase> {};

// A refused rate leaves the engine as it was before set-up: no hop to wait
// for, so the audio passes untouched.
TEST_P(EngineRateTest, FftSizeHopAndLatencyFollowTheRate) {
  PexVorafier engine;
  const RateCase c = GetParam();
  EXPECT_EQ(engine.setup(c.rate), c.hop);
  EXPECT_EQ(engine.isConfigured(), c.hop > 0);
  EXPECT_EQ(engine.latency(), c.hop > 0 ? static_cast<uint32_t>(3 * c.hop) : 0u);
  EXPECT_FLOAT_EQ(engine.hopMilliseconds(), c.hop > 0 ? 1000.0f * static_cast<float>(c.hop) / c.rate : 0.0f);
  if (c.hop < 0) {
    std::vector<float> buffer = tone(1000.0, 640, 0.5);
    engine.processMono(buffer.data(), false, 1.0f);
    EXPECT_EQ(buffer, tone(1000.0, 640, 0.5));
  }
}

// The edges of each FFT size, and the refused rates just outside the range.
INSTANTIATE_TEST_SUITE_P(Rates, EngineRateTest,
                         testing::Values(RateCase{32000, 64}, RateCase{50000, 64}, RateCase{50001, 128},
                                         RateCase{100000, 128}, RateCase{100001, 256}, RateCase{192000, 256},
                                         RateCase{31998, -1}, RateCase{192002, -1}));

// Level change of a steady tone, after the start-up, with every controlled
// band at one gain. Band 13 (the highpass above about 16 kHz) is never
// controlled; the real parts of bins 0 and N/2 skip the band processing
// (only their leakage into neighbouring bins is attenuated); the quiet-bin
// floor, which squares the level of bins far below it, covers only the bins
// from about 500 Hz to about 13.5 kHz.
TEST(EngineTest, ToneLevelChangeFollowsTheBandsTheToneFalls) {
  struct Case {
    double frequencyHz, amplitude;
    float gainDb;
    double minimumDb, maximumDb;
  };
  for (const Case c :
       {Case{1000.0, 0.01, 20.0f, 19.0, 21.0}, Case{18000.0, 0.25, 20.0f, -0.1, 0.1}, Case{0.0, 0.1, -42.0f, -7.0, 0.1},
        Case{24000.0, 0.05, -42.0f, -7.0, 0.1}, Case{200.0, 1e-8, 0.0f, -1.0, 1.0},
        Case{2000.0, 1e-8, 0.0f, -200.0, -20.0}, Case{18000.0, 1e-8, 0.0f, -1.0, 1.0}}) {
    PexVorafier engine;
    engine.setup(48000.0f);
    applyParameters(engine, flatParameters(c.gainDb));
    const std::vector<float> input = tone(c.frequencyHz, 9600, c.amplitude);
    const double changeDb = 20.0 * std::log10(rms(runStereo(engine, input, false, 1.0f), 4800) / rms(input, 4800));
    EXPECT_GE(changeDb, c.minimumDb) << c.frequencyHz << " Hz at " << c.gainDb << " dB";
    EXPECT_LE(changeDb, c.maximumDb) << c.frequencyHz << " Hz at " << c.gainDb << " dB";
  }
}

TEST(EngineTest, PhaseKeepingRebuildEqualsThePolarForm) {
  // Random bins (some exactly zero, some floored) through the inverse
  // transform that scales them on the way in, against the literal form:
  // new magnitude = floored magnitude × band weight, times (cos, sin) of
  // atan2's phase, through the plain inverse. The real parts of bins 0 and
  // N/2 pass unscaled.
  std::mt19937 random(3);
  std::uniform_real_distribution<float> value(-2.0f, 2.0f);
  constexpr uint32_t kBins = 256;
  std::vector<float> packed(2 * kBins), bandWeight(kBins), floorScale(kBins, 1.0f);
  for (uint32_t k = 0; k < kBins; ++k) {
    const bool zero = k % 17 == 0;
    const float size = k % 5 == 0 ? 1e-6f : 1.0f; // below the floor
    packed[2 * k] = zero ? 0.0f : size * value(random);
    packed[2 * k + 1] = zero ? 0.0f : size * value(random);
    bandWeight[k] = std::fabs(value(random));
    const float magnitude = std::hypot(packed[2 * k], packed[2 * k + 1]);
    if (magnitude < kFloorMagnitude) {
      floorScale[k] = magnitude / kFloorMagnitude;
    }
  }
  std::vector<float> polar = packed;
  for (uint32_t k = 1; k < kBins; ++k) {
    const float magnitude = std::hypot(packed[2 * k], packed[2 * k + 1]);
    const float floored = magnitude < kFloorMagnitude ? magnitude * (magnitude / kFloorMagnitude) : magnitude;
    const float newMagnitude = floored * bandWeight[k];
    const float phase = std::atan2(packed[2 * k + 1], packed[2 * k]);
    polar[2 * k] = newMagnitude * std::cos(phase);
    polar[2 * k + 1] = newMagnitude * std::sin(phase);
  }
  RealFft fft;
  ASSERT_TRUE(fft.setup(2 * kBins));
  std::vector<float> rebuilt(2 * kBins), expected(2 * kBins);
  fft.inverse(packed.data(), rebuilt.data(), {.scaleA = bandWeight.data(), .scaleB = floorScale.data()});
  fft.inverse(polar.data(), expected.data());
  for (uint32_t i = 0; i < 2 * kBins; ++i) {
    EXPECT_NEAR(rebuilt[i], expected[i], 1e-6f) << i;
  }
}

TEST(EngineTest, MixThresholdsSkipThePaths) {
  PexVorafier engine;
  engine.setup(48000.0f);
  applyParameters(engine, flatParameters(6.0f));
  std::vector<float> signal = tone(1000.0, 64 * 40, 0.3);

  // A target of 1.0 never feeds the dry FIFO; at or below 0.001 the wet path
  // is skipped: the output is the undelayed input times m plus the oldest
  // dry hop (still silence) times 1 - m.
  for (int hop = 0; hop < 30; ++hop) {
    float* channels[2] = {signal.data() + 64 * hop, nullptr};
    engine.processHop(channels, 1.0f, {.smoothMix = false, .limit = true});
  }
  std::vector<float> last(signal.begin() + 64 * 30, signal.begin() + 64 * 31);
  const std::vector<float> before = last;
  float* channels[2] = {last.data(), nullptr};
  engine.processHop(channels, 0.001f, {.smoothMix = false, .limit = true});
  for (size_t i = 0; i < 64; ++i) {
    EXPECT_FLOAT_EQ(last[i], before[i] * 0.001f) << i;
  }

  // From 0.999 up the dry path is skipped: the output is the wet signal alone.
  const auto wetRun = [&](float mix) {
    PexVorafier wet;
    wet.setup(48000.0f);
    applyParameters(wet, flatParameters(6.0f));
    std::vector<float> out = signal;
    for (size_t start = 0; start < out.size(); start += 64) {
      float* wetChannels[2] = {out.data() + start, nullptr};
      wet.processHop(wetChannels, mix, {.smoothMix = false, .limit = true});
    }
    return out;
  };
  EXPECT_EQ(wetRun(1.0f), wetRun(0.999f));
}

TEST(EngineTest, NonFiniteInputIsTreatedAsSilence) {
  PexVorafier engine;
  engine.setup(48000.0f);
  applyParameters(engine, flatParameters(6.0f));
  std::vector<float> input = tone(1000.0, 9600, 0.5);
  input[1000] = NAN;
  input[2000] = INFINITY;
  input[3000] = -INFINITY;
  const std::vector<float> output = runStereo(engine, input, false, 0.5f);
  for (float x : output) {
    ASSERT_TRUE(std::isfinite(x));
  }
  EXPECT_GT(rms(output, 8000), 0.1);
}

} // namespace
} // namespace vora
