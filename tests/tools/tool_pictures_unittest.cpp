// The program's pictures against the library: settled band curves against
// the gain computer's formulas worked by hand, the unity-gain sum of the
// band bank against what the library does to a steady tone, the bands the
// FFT misses against the library's layout; and what makes a picture
// readable: round ticks, titles that fit.
#include "larkspin/band_chart.h"
#include "larkspin/band_reach.h"
#include "larkspin/io_curves.h"
#include "larkspin/svg_chart.h"

#include <larkspin/vora_ap.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <set>
#include <string>
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

// Worked out here from the library's layout alone: a band whose range holds
// no FFT bin is named in the program's notes and marked in both pictures,
// and no other band is.
TEST(ToolPicturesTest, BandsWithoutABinAreNotedAndMarked) {
  std::set<int> missedAtSomeCommonRate;
  for (int rate : {32000, 44100, 48000, 50000, 88200, 96000, 176400, 192000}) {
    vora_band_info bands[VORA_BAND_COUNT];
    const int size = vora_preset_band_layout(static_cast<float>(rate), bands);
    std::set<int> missed;
    for (int band = 0; band < VORA_PRESET_BAND_COUNT; ++band) {
      const double firstBinAbove = std::ceil(bands[band].lowHz * size / rate) * rate / size;
      if (!(firstBinAbove < bands[band].highHz)) {
        missed.insert(band);
      }
    }
    if (rate != 50000) {
      missedAtSomeCommonRate.insert(missed.begin(), missed.end());
    }
    EXPECT_EQ(missed.empty(), rate == 32000) << rate; // band 1 at 44.1 and 48 kHz and their multiples

    vora_preset preset;
    vora_preset_default(&preset);
    const std::string chart = larkspin_tool::renderBandChart(rate, preset, "p");
    const std::string curves = larkspin_tool::renderIoCurves(preset, "p", rate);
    for (int band = 0; band < VORA_PRESET_BAND_COUNT; ++band) {
      const bool expected = missed.count(band) != 0;
      const std::string name = "band " + std::to_string(band);
      EXPECT_EQ(chart.find(name + ": no FFT bin") != std::string::npos, expected) << rate << ' ' << band;
      EXPECT_EQ(curves.find(' ' + std::to_string(band) + "*") != std::string::npos, expected) << rate; // "bands 0, 1*"
      vora_preset changed = preset;
      changed.bands[band].channels[0].gainDb = changed.bands[band].channels[1].gainDb = 10.0f;
      const auto notes = larkspin_tool::settingNotes({"band" + std::to_string(band) + ".gainDb=10"}, changed, rate);
      ASSERT_EQ(notes.size(), expected ? 1u : 0u) << rate << ' ' << band;
      if (expected) {
        EXPECT_EQ(notes[0].rfind(name + " (", 0), 0u) << notes[0];
        EXPECT_NE(notes[0].find(std::to_string(rate) + " Hz"), std::string::npos) << notes[0];
      }
    }
    // Only a band named alone: not "all", not a malformed name.
    EXPECT_TRUE(larkspin_tool::settingNotes({"all.gainDb=10", "band1x", "band1"}, preset, rate).empty());
  }
  // A preset file has no rate: a changed band is noted when some common rate misses it.
  for (int band = 0; band < VORA_PRESET_BAND_COUNT; ++band) {
    vora_preset changed;
    vora_preset_default(&changed);
    changed.bands[band].slowFactor = 0.5f;
    EXPECT_EQ(larkspin_tool::presetNotes(changed).size(), missedAtSomeCommonRate.count(band)) << band;
  }
  vora_preset unchanged;
  vora_preset_default(&unchanged);
  EXPECT_TRUE(larkspin_tool::presetNotes(unchanged).empty());
}

// The texts of an SVG's <text> elements with the given attribute fragment.
std::vector<std::string> texts(const std::string& svg, const std::string& attribute) {
  std::vector<std::string> found;
  for (size_t at = svg.find("<text"); at != std::string::npos; at = svg.find("<text", at + 1)) {
    const size_t end = svg.find('>', at);
    if (svg.substr(at, end - at).find(attribute) != std::string::npos) {
      found.push_back(svg.substr(end + 1, svg.find('<', end) - end - 1));
    }
  }
  return found;
}

TEST(ToolPicturesTest, TicksAreRoundAndTitlesFit) {
  // Ticks fall on whole multiples of 1, 2 or 5 times a power of ten.
  const std::pair<double, double> ranges[] = {{0.0, 9.76142}, {-13.7, 4.2}, {0.0, 0.37}, {-100.0, 0.0}, {3.0, 3.01}};
  for (const auto& [low, high] : ranges) {
    const std::vector<double> ticks = larkspin_tool::niceTicks(low, high, 10);
    ASSERT_GE(ticks.size(), 4u) << low << ' ' << high;
    const double step = ticks[1] - ticks[0];
    const double mantissa = step / std::pow(10.0, std::floor(std::log10(step) + 1e-9));
    EXPECT_TRUE(std::fabs(mantissa - 1) < 1e-6 || std::fabs(mantissa - 2) < 1e-6 || std::fabs(mantissa - 5) < 1e-6)
        << step;
    for (double tick : ticks) {
      EXPECT_NEAR(tick / step, std::round(tick / step), 1e-6) << tick;
      EXPECT_TRUE(tick >= low - 1e-9 && tick <= high + 1e-9) << tick;
      EXPECT_LE(larkspin_tool::formatTick(tick).size(), 6u) << tick;
    }
    EXPECT_LT(ticks.front() - low, step + 1e-9);
    EXPECT_LT(high - ticks.back(), step + 1e-9);
  }
  EXPECT_EQ(larkspin_tool::formatTick(0.30000000000000004), "0.3");
  EXPECT_EQ(larkspin_tool::formatTick(1500.0), "1.5k");

  // A title longer than the picture wraps onto a second line and, when even
  // that is too short, ends in an ellipsis; no line is wider than the picture.
  std::string title = "Average spectrum of a-recording-with-a-long-name.wav, strong.json with";
  for (int band = 0; band < 13; ++band) {
    title += " band" + std::to_string(band) + ".gainDb=" + std::to_string(band);
  }
  larkspin_tool::ChartOptions options;
  for (const std::string& text : {title.substr(0, 120), title}) {
    options.title = text;
    const std::string svg = larkspin_tool::renderChart(options, {});
    const std::vector<std::string> lines = texts(svg, "font-weight=\"bold\"");
    ASSERT_EQ(lines.size(), 2u) << svg;
    for (const std::string& line : lines) {
      EXPECT_LE(larkspin_tool::textWidth(line, 14.0, true), larkspin_tool::kChartWidth - 20.0) << line;
    }
    EXPECT_EQ(lines[0] + " " + lines[1], text.size() == 120 ? text : lines[0] + " " + lines[1]);
    EXPECT_EQ(text.size() == 120, lines[1].find("\u2026") == std::string::npos) << lines[1];
  }
}

} // namespace
