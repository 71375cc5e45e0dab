#include "dsp/band_gain_computer.h"

#include "dsp/band_gain_bank.h"
#include "support/test_payloads.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>

namespace vora {
namespace {

constexpr float kHopMs = 64.0f / 48.0f; // hop of 64 at 48 kHz

// Band 2 with the slow path off (factor 0) and a band gain of 1.5 dB: a
// level over the fast threshold is compressed by the ratio, one below it is
// left alone.
TEST(BandGainComputerTest, FastGainCompressesOnlyTheExcessOverTheThreshold) {
  struct Case {
    float thresholdDb, ratio, bandSum, fastDb;
  };
  for (const Case c : {Case{-20.0f, 1.0f, 1.0f, 0.0f},   // compressor off
                       Case{-20.0f, 0.0f, 1.0f, -20.0f}, // held at the threshold
                       Case{-20.0f, 0.2f, 1.0f, -16.0f}, // 5:1: 20 dB over becomes 4
                       Case{0.0f, 0.2f, 0.5f, 0.0f}}) {  // below the threshold
    VorafierParameters parameters;
    auto& band = parameters.bands[2];
    band.fastThresholdDb0 = c.thresholdDb;
    band.fastRatio0 = c.ratio;
    band.gainDb0 = 1.5f;
    SlowGainState state;
    const float sums[2] = {c.bandSum, 0.0f};
    const BandGains gains = computeBandGain(2, sums, 1, parameters, kHopMs, state);
    EXPECT_NEAR(gains.gainDb[0], c.fastDb + 1.5f, 1e-4f) << c.thresholdDb << " dB, ratio " << c.ratio;
  }
}

// One band with the fast stage off and a slow path at a -100 dB threshold.
VorafierParameters slowPath(int bandIndex, float factor, float delayMs, float timeConstantMs) {
  VorafierParameters parameters;
  auto& band = parameters.bands[static_cast<size_t>(bandIndex)];
  band.fastRatio0 = band.fastRatio1 = 1.0f;
  band.slowThresholdDb = -100.0f;
  band.slowFactor = factor;
  band.slowDelayMs = delayMs;
  band.slowTimeConstantMs = timeConstantMs;
  return parameters;
}

// One loud hop then silence through a slow path without smoothing (a time
// constant of 0 passes the input): the resulting gain is applied `length`
// hops later.
TEST(BandGainComputerTest, SlowGainIsAppliedLengthHopsLater) {
  struct Case {
    float delayMs, hopMs;
    uint32_t length;
  };
  for (const Case& c : {Case{10.0f, kHopMs, 8u}, Case{0.0f, kHopMs, 1u}, Case{500.0f, 1.28f, 192u}}) {
    const VorafierParameters parameters = slowPath(0, 1.0f, c.delayMs, 0.0f);
    SlowGainState state;
    int appliedAt = -1;
    for (int hop = 0; hop < 400 && appliedAt < 0; ++hop) {
      const float sums[2] = {hop == 0 ? 1.0f : 0.0f, 0.0f};
      const float gainDb = computeBandGain(0, sums, 1, parameters, c.hopMs, state).gainDb[0];
      if (hop > 0 && gainDb != 0.0f) {
        EXPECT_EQ(gainDb, -100.0f);
        appliedAt = hop;
      }
    }
    EXPECT_EQ(appliedAt, static_cast<int>(c.length)) << c.delayMs;
    EXPECT_EQ(state.length, c.length) << c.delayMs;
  }
}

// The slow gain is shared and follows the mean post-compression level; the
// fast stage and the band gain stay per channel.
TEST(BandGainComputerTest, TwoChannelsShareTheSlowGain) {
  VorafierParameters parameters = slowPath(5, 1.0f, 0.0f, 0.0f);
  auto& band = parameters.bands[5];
  band.fastThresholdDb0 = -10.0f;
  band.fastRatio0 = 0.5f; // 0 dB in, -5 dB out; channel 1: -20 dB in and out
  band.gainDb0 = 1.0f;
  band.gainDb1 = 2.0f;
  SlowGainState state;
  const float sums[2] = {1.0f, 0.1f};

  const BandGains first = computeBandGain(5, sums, 2, parameters, kHopMs, state);
  EXPECT_NEAR(first.gainDb[0], -5.0f + 1.0f, 1e-4f);
  EXPECT_NEAR(first.gainDb[1], 2.0f, 1e-4f);

  // Mean level (-5 + -20) / 2 = -12.5 dB, 87.5 dB above the slow threshold.
  const BandGains second = computeBandGain(5, sums, 2, parameters, kHopMs, state);
  EXPECT_NEAR(second.gainDb[0], -87.5f + 1.0f, 1e-3f);
  EXPECT_NEAR(second.gainDb[1], -87.5f + 2.0f, 1e-3f);
}

// Time constants of 0 ms and of exactly one hop make the slow smoother a
// pass-through from the first hop: on a fresh state, and after the state ran
// with another time constant. Hop of 64 at 32 kHz: 2 ms.
TEST(BandGainComputerTest, OneHopAndZeroTimeConstantsPassTheExcessFromTheFirstHop) {
  constexpr float hopMs = 2.0f;
  const float silence[2] = {0.0f, 0.0f}, loud[2] = {1.0f, 0.0f};
  for (float timeConstantMs : {0.0f, hopMs}) {
    for (bool warmedUp : {false, true}) {
      VorafierParameters parameters = slowPath(3, 0.5f, 0.0f, 50.0f);
      SlowGainState state;
      for (int hop = 0; warmedUp && hop < 20; ++hop) {
        computeBandGain(3, loud, 1, parameters, hopMs, state);
      }
      parameters.bands[3].slowTimeConstantMs = timeConstantMs;
      // A 0 dB band at a slow gain S is 100 + S dB over the threshold, so the
      // next hop's slow gain is -(100 + S) / 2.
      computeBandGain(3, silence, 1, parameters, hopMs, state); // flushes the one-hop line
      float slowDb = computeBandGain(3, loud, 1, parameters, hopMs, state).gainDb[0];
      EXPECT_NEAR(slowDb, 0.0f, 1e-4f);
      for (int hop = 0; hop < 3; ++hop) {
        const float expectedDb = -(100.0f + slowDb) / 2.0f;
        slowDb = computeBandGain(3, loud, 1, parameters, hopMs, state).gainDb[0];
        EXPECT_NEAR(slowDb, expectedDb, 1e-3f) << timeConstantMs << " ms, warmed up " << warmedUp << ", hop " << hop;
      }
    }
  }
}

// The engine's bank of all bands, vector and plain, against the computer
// band by band over hops with random levels (silence included), records
// replaced now and then (each after another record that never saw a hop),
// delays of 0 ms and past the line's end, a time constant of 0 and a change
// of hop: the same bits.
TEST(BandGainComputerTest, BankOfAllBandsEqualsTheComputerBandByBand) {
  std::mt19937 random(9u);
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  for (const int channels : {1, 2}) {
    auto vectorBank = std::make_unique<BandGainBank>();
    auto plainBank = std::make_unique<BandGainBank>();
    SlowGainState states[kControlledBandCount];
    VorafierParameters parameters;
    float hopMs = 4.0f / 3.0f;
    for (int hop = 0; hop < 300; ++hop) {
      if (hop % 100 == 0 || hop == 250) {
        if (hop == 250) {
          hopMs = 1.28f;
        }
        for (auto* bank : {vectorBank.get(), plainBank.get()}) {
          bank->configure(larkspin_test::randomParameters(random), hopMs); // replaced before any hop
        }
        // Half the bands keep their times, which the record that saw no
        // hop changed: their smoothers must carry on.
        const VorafierParameters previous = parameters;
        parameters = larkspin_test::randomParameters(random);
        for (int b = 4; hop > 0 && b < kControlledBandCount; b += 2) {
          parameters.bands[b].slowTimeConstantMs = previous.bands[b].slowTimeConstantMs;
        }
        parameters.bands[0].slowDelayMs = 0.0f;
        parameters.bands[1].slowDelayMs = 255.0f;
        parameters.bands[2].slowTimeConstantMs = 0.0f;
        vectorBank->configure(parameters, hopMs);
        plainBank->configure(parameters, hopMs);
      }
      alignas(16) float levelsDb[kMaxChannels][BandGainBank::kLanes] = {};
      float sums[kControlledBandCount][kMaxChannels] = {};
      for (int b = 0; b < kControlledBandCount; ++b) {
        for (int ch = 0; ch < channels; ++ch) {
          sums[b][ch] = unit(random) < 0.1f ? 0.0f : std::pow(10.0f, 4.0f * unit(random) - 3.0f);
          levelsDb[ch][b] = bandLevelDb(sums[b][ch]);
        }
      }
      alignas(16) float vectorDb[kMaxChannels][BandGainBank::kLanes], plainDb[kMaxChannels][BandGainBank::kLanes];
      vectorBank->compute<Vec4Native>(levelsDb, channels, vectorDb);
      plainBank->compute<Vec4Scalar>(levelsDb, channels, plainDb);
      for (int b = 0; b < kControlledBandCount; ++b) {
        const BandGains expected = computeBandGain(b, sums[b], channels, parameters, hopMs, states[b]);
        for (int ch = 0; ch < channels; ++ch) {
          ASSERT_EQ(vectorDb[ch][b], expected.gainDb[ch]) << channels << " channels, hop " << hop << ", band " << b;
          ASSERT_EQ(plainDb[ch][b], expected.gainDb[ch]) << channels << " channels, hop " << hop << ", band " << b;
        }
      }
    }
  }
}

} // namespace
} // namespace vora
