// The program's pictures against the library: settled band curves against
// the gain computer's formulas worked by hand, and the unity-gain sum of the
// band bank against what the library does to a steady tone.
#include "larkspin/band_chart.h"
#include "larkspin/io_curves.h"

#include <larkspin/vora_ap.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace {

using larkspin_tool::steadyBand;

vora_preset_band bandOf(float thresholdDb, float ratio0, float ratio1, float slowThresholdDb, float slowFactor) {
  vora_preset_band band{};
  band.channels[0] = {1.0f, thresholdDb, ratio0};
  band.channels[1] = {-2.0f, thresholdDb, ratio1};
  band.slowThresholdDb = slowThresholdDb;
  band.slowFactor = slowFactor;
  band.slowDelayMs = 20.0f;
  band.slowTimeConstantMs = 200.0f;
  return band;
}

TEST(ToolPicturesTest, SettledCurvesFollowTheGainComputer) {
  struct Case {
    vora_preset_band band;
    double inputDb, slowDb, out0Db, out1Db;
  };
  // Worked by hand: with L = in + S above the fast threshold T, the level
  // after compression is r L + (1 - r) T, and the slow gain S is
  // -factor * (mean level after compression - slow threshold).
  const double s2 = -0.2 * (0.5 * -10.0 + 0.5 * -20.0 + 40.0) / (1.0 + 0.2 * 0.5);
  const std::vector<Case> table = {
      // Below both thresholds: only the fixed gains.
      {bandOf(-20.0f, 0.5f, 0.5f, -40.0f, 0.2f), -60.0, 0.0, -59.0, -62.0},
      // Above the slow threshold only: S = -0.2 (in + S + 40).
      {bandOf(-20.0f, 0.5f, 0.5f, -40.0f, 0.2f), -30.0, -2.0 / 1.2, -30.0 - 2.0 / 1.2 + 1.0, -30.0 - 2.0 / 1.2 - 2.0},
      // Above both: S (1 + factor r) = -factor (r in + (1 - r) T - slow threshold).
      {bandOf(-20.0f, 0.5f, 0.5f, -40.0f, 0.2f), -10.0, s2, 0.5 * (-10.0 + s2) - 10.0 + 1.0,
       0.5 * (-10.0 + s2) - 10.0 - 2.0},
      // Slow path off: the compressor alone, 4:1 above -20 dB.
      {bandOf(-20.0f, 0.25f, 0.25f, -40.0f, 0.0f), -10.0, 0.0, -17.5 + 1.0, -17.5 - 2.0},
      // Channels differ (no compression / hard limit): the slow path follows
      // their mean, S = -0.5 ((in + S - 20) / 2 + 40), so S = -12 at 0 dB.
      {bandOf(-20.0f, 1.0f, 0.0f, -40.0f, 0.5f), 0.0, -12.0, -12.0 + 1.0, -20.0 - 2.0},
  };
  for (size_t i = 0; i < table.size(); ++i) {
    const auto settled = steadyBand(table[i].band, table[i].inputDb);
    EXPECT_NEAR(settled.slowGainDb, table[i].slowDb, 1e-6) << i;
    EXPECT_NEAR(settled.outputDb[0], table[i].out0Db, 1e-5) << i;
    EXPECT_NEAR(settled.outputDb[1], table[i].out1Db, 1e-5) << i;
  }
}

// A tone on a bin, processed by the library with every gain at 0 dB and no
// dynamics, comes out changed by the bank's unity-gain sum: the window
// spreads it over its neighbours, so between theirs.
TEST(ToolPicturesTest, UnityGainSumMatchesTheLibrary) {
  constexpr int kRate = 48000, kBlock = 256;
  const larkspin_tool::CombinedResponse sum = larkspin_tool::combinedResponse(kRate);
  ASSERT_EQ(sum.frequencyHz.size(), 127u);
  vora_preset neutral;
  vora_preset_default(&neutral);
  for (auto& band : neutral.bands) {
    band.slowFactor = 0.0f;
    band.channels[0] = band.channels[1] = {0.0f, 0.0f, 1.0f};
  }
  unsigned char payload[VORA_AP_PRESET_PAYLOAD_SIZE];
  ASSERT_EQ(vora_preset_encode(&neutral, payload, nullptr, 0, nullptr), 0);
  for (size_t bin : {4u, 11u, 30u, 48u, 70u}) {
    vora_ap_control* control = vora_ap_create_control(static_cast<float>(kRate), kBlock, 0);
    ASSERT_NE(control, nullptr);
    vora_ap_apply_preset_payload(payload);
    vora_ap_set_vorafication_intensity(1.0f);
    const double hz = sum.frequencyHz[bin - 1];
    std::vector<float> tone(kRate / 2);
    for (size_t i = 0; i < tone.size(); ++i) {
      tone[i] = static_cast<float>(0.1 * std::sin(2.0 * std::numbers::pi * hz * static_cast<double>(i) / kRate));
    }
    std::vector<float> out = tone;
    for (size_t start = 0; start + kBlock <= out.size(); start += kBlock) {
      float* channels[1] = {out.data() + start};
      vora_ap_process(control, channels, kBlock);
    }
    vora_ap_destroy_control(control);
    double in = 0.0, processed = 0.0;
    for (size_t i = tone.size() / 2; i < tone.size(); ++i) {
      in += static_cast<double>(tone[i]) * tone[i];
      processed += static_cast<double>(out[i]) * out[i];
    }
    const double gainDb = 10.0 * std::log10(processed / in);
    const auto near = sum.levelDb.begin() + static_cast<std::ptrdiff_t>(bin - 2);
    EXPECT_GE(gainDb, *std::min_element(near, near + 3) - 0.02) << hz;
    EXPECT_LE(gainDb, *std::max_element(near, near + 3) + 0.02) << hz;
  }
}

} // namespace
