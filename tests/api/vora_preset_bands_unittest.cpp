#include <larkspin/vora_preset.h>

#include "dsp/band_bank.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <map>
#include <memory>

namespace {

// Responses of independently designed Butterworth filters (scipy, see
// make_band_reference.py) at the FFT bins of 44.1, 48, 96 and 192 kHz.
TEST(PresetBandsTest, ResponseMatchesTheReferenceDesignAndTheEngineTables) {
  std::ifstream file(LARKSPIN_TEST_DATA_DIR "/band_weights.txt");
  ASSERT_TRUE(file) << "reference file missing";
  std::map<int, std::unique_ptr<vora::BandBank>> banks;
  int rate, size, band, bin;
  double referenceDb;
  int compared = 0;
  while (file >> rate >> size >> band >> bin >> referenceDb) {
    const float sampleRate = static_cast<float>(rate);
    auto& bank = banks[rate];
    if (!bank) {
      vora_band_info bands[VORA_BAND_COUNT];
      ASSERT_EQ(vora_preset_band_layout(sampleRate, bands), size) << rate;
      bank = std::make_unique<vora::BandBank>();
      bank->build(sampleRate, static_cast<uint32_t>(size), -144.5f);
    }
    const double responseDb = vora_preset_band_response_db(sampleRate, band, bin * static_cast<double>(rate) / size);
    const float tableWeight = bank->weights[band][bin];
    EXPECT_NEAR(static_cast<float>(std::pow(10.0, responseDb / 10.0)), tableWeight, 1e-6f * tableWeight)
        << rate << " Hz, band " << band << ", bin " << bin;
    if (referenceDb > -120.0) {
      EXPECT_NEAR(responseDb, referenceDb, 0.01) << rate << " Hz, band " << band << ", bin " << bin;
      ++compared;
    }
  }
  EXPECT_EQ(banks.size(), 4u);
  EXPECT_GT(compared, 3000);
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
