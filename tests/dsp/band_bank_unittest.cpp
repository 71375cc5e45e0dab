#include "dsp/band_bank.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <map>
#include <memory>

namespace vora {
namespace {

// Reference responses made by scipy (see reference/make_band_reference.py).
// Tolerance: 0.01 dB wherever the response is above -120 dB.
TEST(BandBankTest, MatchesIndependentButterworthDesign) {
  std::ifstream file(LARKSPIN_TEST_DATA_DIR "/band_weights.txt");
  ASSERT_TRUE(file) << "reference file missing";
  std::map<int, std::unique_ptr<BandBank>> banks;
  double largestDeviationDb = 0.0;
  int compared = 0;
  int rate, size, band, bin;
  double referenceDb;
  while (file >> rate >> size >> band >> bin >> referenceDb) {
    auto& bank = banks[rate];
    if (!bank) {
      bank = std::make_unique<BandBank>();
      bank->build(static_cast<float>(rate), static_cast<uint32_t>(size), kBandThresholdDb);
    }
    if (referenceDb < -120.0) {
      continue;
    }
    const double weight = bank->weights[band][bin];
    const double deviation = std::fabs(10.0 * std::log10(weight) - referenceDb);
    largestDeviationDb = std::max(largestDeviationDb, deviation);
    EXPECT_LT(deviation, 0.01) << rate << " Hz, band " << band << ", bin " << bin;
    ++compared;
  }
  EXPECT_GT(compared, 1000);
  RecordProperty("largest_deviation_db", std::to_string(largestDeviationDb));
}

TEST(BandBankTest, RangesCoverTheBandsAndStopAtTheThreshold) {
  BandBank bank;
  bank.build(48000.0f, 256, kBandThresholdDb);
  const float threshold = std::pow(10.0f, kBandThresholdDb / 20.0f);
  for (int b = 0; b < kBandCount; ++b) {
    const BandRange& range = bank.ranges[b];
    ASSERT_LT(range.firstBin, range.endBin) << b;
    EXPECT_GT(bank.weights[b][range.firstBin], threshold);
    if (range.firstBin > 0) {
      EXPECT_LE(bank.weights[b][range.firstBin - 1], threshold);
    }
    EXPECT_LE(bank.weights[b][range.endBin], threshold); // 0 past the bins
  }
  EXPECT_EQ(bank.ranges[0].firstBin, 0u);
  EXPECT_EQ(bank.ranges[13].endBin, 128u);
  // A threshold above every weight (at most 1) leaves every range empty at
  // the end of the bins.
  bank.build(96000.0f, 512, 1.0f);
  for (const BandRange& range : bank.ranges) {
    EXPECT_EQ(range.firstBin, 256u);
    EXPECT_EQ(range.endBin, 256u);
  }
}

} // namespace
} // namespace vora
