#include <larkspin/vora_preset.h>

#include "dsp/band_bank.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

// The public response is the engine's own band table at every bin of the
// common rates (the engine's tables answer to an independent design in the
// engine's tests).
TEST(PresetBandsTest, ResponseIsTheEngineTableAtEveryBin) {
  for (float rate : {44100.0f, 48000.0f, 96000.0f, 192000.0f}) {
    vora_band_info bands[VORA_BAND_COUNT];
    const int size = vora_preset_band_layout(rate, bands);
    vora::BandBank bank;
    bank.build(rate, static_cast<uint32_t>(size), vora::kBandThresholdDb);
    for (int band = 0; band < VORA_BAND_COUNT; ++band) {
      for (int bin = 1; bin < size / 2; ++bin) {
        const double responseDb = vora_preset_band_response_db(rate, band, bin * static_cast<double>(rate) / size);
        const float weight = bank.weights[band][bin];
        EXPECT_NEAR(std::pow(10.0, responseDb / 10.0), weight, 1e-6 * weight + 1e-30)
            << rate << " Hz, band " << band << ", bin " << bin;
      }
    }
  }
}

TEST(PresetBandsTest, LayoutTilesTheSpectrumAtEveryAcceptedRate) {
  const std::pair<float, int> rates[] = {{31999.0f, 256},  {44100.0f, 256},   {50000.0f, 256},  {50001.0f, 512},
                                         {100000.0f, 512}, {100001.0f, 1024}, {192001.0f, 1024}};
  for (const auto& [rate, fftSize] : rates) {
    vora_band_info bands[VORA_BAND_COUNT];
    ASSERT_EQ(vora_preset_band_layout(rate, bands), fftSize) << rate;
    EXPECT_EQ(bands[0].lowHz, 0.0);
    EXPECT_NEAR(bands[0].centreHz, 105.1, 0.05);
    EXPECT_EQ(bands[VORA_BAND_COUNT - 1].highHz, rate / 2.0);
    for (int b = 0; b < VORA_BAND_COUNT; ++b) {
      EXPECT_EQ(bands[b].controlled, b < VORA_PRESET_BAND_COUNT);
      EXPECT_LT(bands[b].lowHz, bands[b].centreHz) << rate << " " << b;
      EXPECT_LE(bands[b].centreHz, bands[b].highHz) << rate << " " << b;
      if (b > 0) {
        EXPECT_EQ(bands[b].lowHz, bands[b - 1].highHz);
      }
      if (b > 0 && b < VORA_PRESET_BAND_COUNT) {
        EXPECT_NEAR(bands[b].highHz / bands[b].lowHz, std::sqrt(2.0), 1e-9);
        // A bandpass passes its centre at unity.
        EXPECT_NEAR(vora_preset_band_response_db(rate, b, bands[b].centreHz), 0.0, 0.01) << rate << " " << b;
      }
      // Finite from 0 Hz to the Nyquist frequency, deep stopbands included.
      for (int step = 0; step <= 256; ++step) {
        const double db = vora_preset_band_response_db(rate, b, rate / 2.0 * step / 256.0);
        EXPECT_TRUE(db >= -379.3 && db <= 1e-9) << rate << " Hz, band " << b << ", step " << step << ": " << db;
      }
    }
  }
}

TEST(PresetBandsTest, UnsupportedArgumentsGetNothing) {
  vora_band_info bands[VORA_BAND_COUNT] = {};
  for (float rate : {31998.9f, 192002.0f, NAN, INFINITY, -48000.0f, 0.0f}) {
    EXPECT_EQ(vora_preset_band_layout(rate, bands), 0) << rate;
    EXPECT_TRUE(std::isnan(vora_preset_band_response_db(rate, 3, 1000.0))) << rate;
  }
  EXPECT_EQ(bands[5].highHz, 0.0) << "nothing written";
  EXPECT_EQ(vora_preset_band_layout(48000.0f, nullptr), 0);
  const std::pair<int, double> bad[] = {{-1, 1000.0}, {14, 1000.0}, {3, -1.0}, {3, 24000.01}, {3, NAN}, {3, INFINITY}};
  for (const auto& [band, hz] : bad) {
    EXPECT_TRUE(std::isnan(vora_preset_band_response_db(48000.0f, band, hz))) << band << " " << hz;
  }
  // The ends of the range are finite for the bands that pass there.
  EXPECT_NEAR(vora_preset_band_response_db(48000.0f, 0, 0.0), 0.0, 1e-9);
  EXPECT_NEAR(vora_preset_band_response_db(48000.0f, 13, 24000.0), 0.0, 1e-9);
}

} // namespace
