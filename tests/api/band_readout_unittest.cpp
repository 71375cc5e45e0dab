// The band read-out after a steady tone: the tone's band reads the tone's
// level and the gain the gain computer gives for it, the other bands their
// idle gains; reading allocates nothing. (Reading it while audio runs is a
// concurrency test.)
#include <larkspin/vora_ap.h>
#include <larkspin/vora_preset.h>

#include "support/allocation_counter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

namespace {

TEST(BandReadoutTest, SteadyToneInOneBand) {
  constexpr int kRate = 48000, kBlock = 256;
  constexpr double kToneHz = 2812.5, kAmplitude = 0.3; // on a bin, inside band 8
  constexpr int kToneBand = 8;
  vora_preset preset;
  vora_preset_default(&preset);
  for (auto& band : preset.bands) {
    band.slowFactor = 0.0f;
    for (auto& channel : band.channels) {
      channel = {1.0f, -20.0f, 0.5f};
    }
  }
  preset.bands[kToneBand].channels[1].gainDb = 3.0f;
  unsigned char payload[VORA_AP_PRESET_PAYLOAD_SIZE];
  ASSERT_EQ(vora_preset_encode(&preset, payload, nullptr, 0, nullptr), 0);
  vora_preset_decode(payload, &preset); // the stored values

  vora_ap_control* control = vora_ap_create_control(static_cast<float>(kRate), kBlock, 1);
  ASSERT_NE(control, nullptr);
  ASSERT_TRUE(vora_ap_apply_preset_payload(payload));
  ASSERT_TRUE(vora_ap_set_vorafication_intensity(1.0f));
  float levels[VORA_AP_BAND_COUNT * 2], gains[VORA_AP_BAND_COUNT * 2];
  std::vector<float> left(kBlock), right(kBlock);
  size_t n = 0;
  for (int block = 0; block < 200; ++block) {
    for (int i = 0; i < kBlock; ++i, ++n) {
      left[static_cast<size_t>(i)] = right[static_cast<size_t>(i)] =
          static_cast<float>(kAmplitude * std::sin(2.0 * std::numbers::pi * kToneHz * static_cast<double>(n) / kRate));
    }
    float* channels[2] = {left.data(), right.data()};
    ASSERT_TRUE(vora_ap_process(control, channels, kBlock));
  }
  larkspin_test::AllocationScope scope;
  ASSERT_TRUE(vora_ap_get_band_readout(control, levels, gains));
  EXPECT_EQ(scope.allocations(), 0u);

  const double toneDb = 20.0 * std::log10(kAmplitude);
  for (int band = 0; band < VORA_AP_BAND_COUNT; ++band) {
    for (int ch = 0; ch < 2; ++ch) {
      const float level = levels[band * 2 + ch], gain = gains[band * 2 + ch];
      if (band == kToneBand) {
        // Fast stage above -20 dB at 2:1, then the fixed gain.
        const vora_preset_channel& values = preset.bands[band].channels[ch];
        EXPECT_NEAR(level, toneDb, 0.5) << ch;
        EXPECT_NEAR(gain, (values.fastRatio - 1.0f) * (level - values.fastThresholdDb) + values.gainDb, 1e-3) << ch;
      } else if (band == VORA_AP_BAND_COUNT - 1) {
        EXPECT_EQ(gain, 0.0f);
      } else if (std::abs(band - kToneBand) > 2) {
        EXPECT_LT(level, toneDb - 20.0) << band;
        EXPECT_NEAR(gain, preset.bands[band].channels[ch].gainDb, 1e-3) << band;
      }
    }
  }

  EXPECT_FALSE(vora_ap_get_band_readout(nullptr, levels, gains));
  EXPECT_FALSE(vora_ap_get_band_readout(control, nullptr, gains));
  EXPECT_FALSE(vora_ap_get_band_readout(control, levels, nullptr));
  // Refused exactly when process is: after a refused update, until a good one.
  float* channels[2] = {left.data(), right.data()};
  for (const float rate : {8000.0f, 48000.0f}) {
    const bool accepted = vora_ap_update(control, rate, kBlock, 1);
    EXPECT_EQ(vora_ap_process(control, channels, kBlock), accepted) << rate;
    EXPECT_EQ(vora_ap_get_band_readout(control, levels, gains), accepted) << rate;
  }
  vora_ap_destroy_control(control);
}

} // namespace
