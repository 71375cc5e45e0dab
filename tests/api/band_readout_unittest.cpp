// The band read-out after a steady tone: the tone's band reads the tone's
// level and the gain the gain computer gives for it, the other bands their
// idle gains; reading allocates nothing (reading it while audio runs is a
// concurrency test). Through it, the slope the slow levelling settles at.
#include <larkspin/vora_ap.h>
#include <larkspin/vora_preset.h>

#include "support/allocation_counter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

namespace {

constexpr int kRate = 48000, kBlock = 256;
constexpr double kToneHz = 2812.5; // on a bin, inside band 8
constexpr int kToneBand = 8;

// A stereo control fed `blocks` blocks of the tone at `amplitude` with the
// preset `payload`; the caller reads it and destroys it.
vora_ap_control* settledOnTone(unsigned char* payload, double amplitude, int blocks) {
  vora_ap_control* control = vora_ap_create_control(static_cast<float>(kRate), kBlock, 1);
  EXPECT_NE(control, nullptr);
  EXPECT_TRUE(vora_ap_apply_preset_payload(payload));
  EXPECT_TRUE(vora_ap_set_vorafication_intensity(1.0f));
  std::vector<float> left(kBlock), right(kBlock);
  size_t n = 0;
  for (int block = 0; block < blocks && control != nullptr; ++block) {
    for (int i = 0; i < kBlock; ++i, ++n) {
      left[static_cast<size_t>(i)] = right[static_cast<size_t>(i)] =
          static_cast<float>(amplitude * std::sin(2.0 * std::numbers::pi * kToneHz * static_cast<double>(n) / kRate));
    }
    float* channels[2] = {left.data(), right.data()};
    EXPECT_TRUE(vora_ap_process(control, channels, kBlock));
  }
  return control;
}

// The default preset with no slow levelling and `channel` in every band.
vora_preset uniformPreset(vora_preset_channel channel) {
  vora_preset preset;
  vora_preset_default(&preset);
  for (auto& band : preset.bands) {
    band.slowFactor = 0.0f;
    band.channels[0] = band.channels[1] = channel;
  }
  return preset;
}

TEST(BandReadoutTest, SteadyToneInOneBand) {
  constexpr double kAmplitude = 0.3;
  vora_preset preset = uniformPreset({1.0f, -20.0f, 0.5f});
  preset.bands[kToneBand].channels[1].gainDb = 3.0f;
  unsigned char payload[VORA_AP_PRESET_PAYLOAD_SIZE];
  ASSERT_EQ(vora_preset_encode(&preset, payload, nullptr, 0, nullptr), 0);
  vora_preset_decode(payload, &preset); // the stored values

  vora_ap_control* control = settledOnTone(payload, kAmplitude, 200);
  ASSERT_NE(control, nullptr);
  float levels[VORA_AP_BAND_COUNT * 2], gains[VORA_AP_BAND_COUNT * 2];
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
  std::vector<float> left(kBlock), right(kBlock);
  float* channels[2] = {left.data(), right.data()};
  for (const float rate : {8000.0f, 48000.0f}) {
    const bool accepted = vora_ap_update(control, rate, kBlock, 1);
    EXPECT_EQ(vora_ap_process(control, channels, kBlock), accepted) << rate;
    EXPECT_EQ(vora_ap_get_band_readout(control, levels, gains), accepted) << rate;
  }
  vora_ap_destroy_control(control);
}

// Above its threshold the slow gain settles at -factor times the band's
// excess after the fast stage, which itself sees the slow gain: the band's
// output then rises r / (1 + factor r) dB per dB in (r: the fast ratio, 1
// without compression), not 1 - factor. Measured between two tone levels.
TEST(BandReadoutTest, SlowLevellingSettlesAtTheDocumentedSlope) {
  for (float ratio : {1.0f, 0.5f}) {
    for (float factor : {0.2f, 0.5f, 1.0f}) {
      vora_preset preset = uniformPreset({0.0f, 0.0f, 1.0f});
      vora_preset_band& band = preset.bands[kToneBand];
      band.channels[0] = band.channels[1] = {0.0f, -100.0f, ratio};
      band = {{band.channels[0], band.channels[1]}, -80.0f, factor, 0.0f, 20.0f};
      unsigned char payload[VORA_AP_PRESET_PAYLOAD_SIZE];
      ASSERT_EQ(vora_preset_encode(&preset, payload, nullptr, 0, nullptr), 0);
      vora_preset_decode(payload, &preset);
      double levelDb[2], outDb[2];
      for (int i = 0; i < 2; ++i) {
        vora_ap_control* control = settledOnTone(payload, i == 0 ? 0.003 : 0.1, 150);
        float levels[VORA_AP_BAND_COUNT * 2], gains[VORA_AP_BAND_COUNT * 2];
        ASSERT_TRUE(vora_ap_get_band_readout(control, levels, gains));
        levelDb[i] = levels[kToneBand * 2];
        outDb[i] = levels[kToneBand * 2] + gains[kToneBand * 2];
        vora_ap_destroy_control(control);
      }
      const double r = band.channels[0].fastRatio, f = band.slowFactor;
      EXPECT_NEAR((outDb[1] - outDb[0]) / (levelDb[1] - levelDb[0]), r / (1.0 + f * r), 0.01)
          << "ratio " << r << ", factor " << f;
    }
  }
}

} // namespace
