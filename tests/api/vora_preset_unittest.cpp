#include <larkspin/vora_preset.h>

#include "support/allocation_counter.h"
#include "support/test_payloads.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using larkspin_test::Payload;

// Reached through the public accessor, which the walks below exercise.
float& fieldOf(vora_preset& preset, int band, int channel, vora_preset_field field) {
  return *vora_preset_value(&preset, band, channel, field);
}

// Each field's allowed range, inclusive.
constexpr float kRange[VORA_PRESET_FIELD_COUNT][2] = {{VORA_PRESET_GAIN_DB_MIN, VORA_PRESET_GAIN_DB_MAX},
                                                      {-256.0f, 0.0f},
                                                      {0.0f, 1.0f},
                                                      {-256.0f, 0.0f},
                                                      {0.0f, 1.0f},
                                                      {0.0f, 255.0f},
                                                      {0.0f, 255.0f}};

// Every value of a preset, in the order issues are reported: band, channel
// (the per-band slow fields as channel -1, after both channels), field.
struct Place {
  int band, channel;
  vora_preset_field field;
};
std::vector<Place> everyPlace() {
  std::vector<Place> places;
  for (int band = 0; band < VORA_PRESET_BAND_COUNT; ++band) {
    for (int channel : {0, 1, -1}) {
      for (int f = 0; f < VORA_PRESET_FIELD_COUNT; ++f) {
        if ((f >= VORA_PRESET_SLOW_THRESHOLD_DB) == (channel < 0)) {
          places.push_back({band, channel, static_cast<vora_preset_field>(f)});
        }
      }
    }
  }
  return places;
}

vora_preset defaultPreset() {
  vora_preset preset;
  EXPECT_TRUE(vora_preset_default(&preset));
  return preset;
}

std::vector<vora_preset_issue> check(const vora_preset& preset, int* refused = nullptr) {
  std::vector<vora_preset_issue> issues(200);
  int count = 0;
  const int result = vora_preset_check(&preset, issues.data(), static_cast<int>(issues.size()), &count);
  if (refused != nullptr) {
    *refused = result;
  }
  issues.resize(static_cast<size_t>(count));
  return issues;
}

std::string format(const vora_preset_issue& issue) {
  char text[160];
  const int length = vora_preset_format_issue(&issue, text, sizeof text);
  EXPECT_EQ(length, static_cast<int>(std::strlen(text)));
  return text;
}

// Encoding stores each value to within half a step of its field, and every
// change beyond float noise is reported, in order, with the value the
// payload carries.
TEST(PresetTest, RandomPresetsSurviveEncodingUpToQuantisation) {
  std::mt19937 random(1301);
  const double halfStep[VORA_PRESET_FIELD_COUNT] = {0.0, 0.5 / 128, 0.5 / 255, 0.5 / 128, 0.5 / 255, 0.5, 0.5};
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  for (int round = 0; round < 50; ++round) {
    // Unquantised values anywhere in the allowed ranges, now and then at an
    // end, which must not wrap round.
    vora_preset wanted;
    for (const auto& [band, channel, field] : everyPlace()) {
      const float* range = kRange[field];
      fieldOf(wanted, band, channel, field) =
          random() % 8 == 0 ? range[random() % 2] : range[0] + (range[1] - range[0]) * unit(random);
    }
    Payload payload{};
    int refused = -1;
    const std::vector<vora_preset_issue> issues = check(wanted, &refused);
    ASSERT_EQ(refused, 0);
    ASSERT_EQ(vora_preset_encode(&wanted, payload.data(), nullptr, 0, nullptr), 0);
    vora_preset stored;
    ASSERT_TRUE(vora_preset_decode(payload.data(), &stored));

    size_t next = 0;
    for (const auto& [band, channel, field] : everyPlace()) {
      const float value = fieldOf(wanted, band, channel, field);
      const float kept = fieldOf(stored, band, channel, field);
      if (field == VORA_PRESET_GAIN_DB) {
        const auto linear = [](float db) { return std::pow(10.0, db / 20.0) * 128.0; };
        EXPECT_LE(std::fabs(linear(kept) - linear(value)), 0.5 + 1e-3) << band << " " << channel;
      } else {
        EXPECT_LE(std::fabs(kept - value), halfStep[field] + 1e-4) << band << " " << channel << " " << field;
      }
      const vora_preset_issue* issue = next < issues.size() ? &issues[next] : nullptr;
      if (issue != nullptr && issue->band == band && issue->channel == channel && issue->field == field) {
        EXPECT_EQ(issue->kind, VORA_PRESET_ROUNDED);
        EXPECT_EQ(issue->value, value);
        EXPECT_EQ(issue->stored, kept);
        ++next;
      } else {
        EXPECT_NEAR(kept, value, 1e-5f * std::max(1.0f, std::fabs(value))) << "unreported change";
      }
    }
    EXPECT_EQ(next, issues.size()) << "issues out of order";

    // Re-encoding a decoded payload gives it back bit for bit, for what this
    // encoder wrote and for any valid payload from the codec.
    const Payload valid = larkspin_test::payloadOf(larkspin_test::randomParameters(random));
    for (const Payload& original : {payload, valid}) {
      ASSERT_TRUE(vora_preset_decode(original.data(), &stored));
      Payload again{};
      int count = -1;
      EXPECT_EQ(vora_preset_encode(&stored, again.data(), nullptr, 0, &count), 0);
      EXPECT_EQ(count, 0);
      EXPECT_EQ(again, original);
    }
  }
}

// Each field, just outside either end of its range and not finite, at a
// band and channel that differ from field to field.
TEST(PresetTest, EveryRefusedValueIsReportedWhereItIs) {
  const float inf = INFINITY;
  for (int f = 0; f < VORA_PRESET_FIELD_COUNT; ++f) {
    const auto field = static_cast<vora_preset_field>(f);
    const float minimum = kRange[f][0], maximum = kRange[f][1];
    const int band = (3 * f + 1) % VORA_PRESET_BAND_COUNT;
    const int channel = f >= VORA_PRESET_SLOW_THRESHOLD_DB ? -1 : f % 2;
    for (float bad : {std::nextafter(minimum, -inf), std::nextafter(maximum, inf), -inf, inf, NAN}) {
      vora_preset preset = defaultPreset();
      fieldOf(preset, band, channel, field) = bad;
      int refused = -1;
      const std::vector<vora_preset_issue> issues = check(preset, &refused);
      ASSERT_EQ(refused, 1) << field << " " << bad;
      ASSERT_EQ(issues.size(), 1u);
      const vora_preset_issue& issue = issues[0];
      // The text names the place, the field and the range.
      const vora_preset_issue expected{VORA_PRESET_REFUSED, band, channel, field, bad, minimum, maximum, NAN};
      EXPECT_EQ(format(issue), format(expected));
      EXPECT_TRUE(std::isnan(bad) ? std::isnan(issue.value) : issue.value == bad);
      EXPECT_TRUE(std::isnan(issue.stored));
    }
  }
}

// The default preset: exactly representable, and what it says it is.
TEST(PresetTest, DefaultIsExactAndAsDescribed) {
  const vora_preset preset = defaultPreset();
  EXPECT_TRUE(check(preset).empty());
  const float expectedGainsDb[VORA_PRESET_BAND_COUNT] = {1, 0, 0, -1, -1, -1, 0, 4, 4, 4, 3, 2, 2};
  for (int band = 0; band < VORA_PRESET_BAND_COUNT; ++band) {
    const vora_preset_band& b = preset.bands[band];
    for (const vora_preset_channel& c : b.channels) {
      EXPECT_NEAR(c.gainDb, expectedGainsDb[band], 0.03f) << band;
      EXPECT_NEAR(c.fastThresholdDb, -20.0f, 1e-6f);
      EXPECT_NEAR(c.fastRatio, 0.5f, 0.002f);
    }
    EXPECT_NEAR(b.slowThresholdDb, -40.0f, 1e-6f);
    EXPECT_NEAR(b.slowFactor, 0.2f, 1e-6f);
    EXPECT_EQ(b.slowDelayMs, 20.0f);
    EXPECT_EQ(b.slowTimeConstantMs, 200.0f);
  }
}

// Issues come in band, channel, field order; a short array gets the first
// ones and the total still counts them all.
TEST(PresetTest, IssuesAreOrderedCountedAndFormatted) {
  vora_preset preset = defaultPreset();
  preset.bands[3].channels[0].gainDb = 90.0f;
  preset.bands[3].channels[0].fastRatio = 0.299f;
  preset.bands[3].slowDelayMs = 20.4f;
  preset.bands[1].channels[1].fastThresholdDb = 3.0f;

  const std::vector<vora_preset_issue> all = check(preset);
  ASSERT_EQ(all.size(), 4u);
  EXPECT_EQ(all[0].field, VORA_PRESET_FAST_THRESHOLD_DB);
  EXPECT_EQ(format(all[1]), "band 3, channel 0, gainDb = 90 is outside the allowed range -42.1443 to 48.1646");
  EXPECT_EQ(format(all[2]), "band 3, channel 0, fastRatio = 0.299 is stored as 0.298039");
  EXPECT_EQ(format(all[3]), "band 3, slowDelayMs = 20.4 is stored as 20");

  vora_preset_issue first[2];
  int count = 0;
  EXPECT_EQ(vora_preset_check(&preset, first, 2, &count), 2);
  EXPECT_EQ(count, 4);
  EXPECT_EQ(std::memcmp(first, all.data(), sizeof first), 0);
  EXPECT_EQ(vora_preset_check(&preset, nullptr, 0, nullptr), 2);

  // A short buffer gets a truncated line; the return value is the full length.
  const int fullLength = static_cast<int>(format(all[2]).size());
  char text[8];
  EXPECT_EQ(vora_preset_format_issue(&all[2], text, sizeof text), fullLength);
  EXPECT_STREQ(text, "band 3,");
  EXPECT_EQ(vora_preset_format_issue(&all[2], nullptr, 0), fullLength);
}

TEST(PresetTest, BadArgumentsGetTheDocumentedAnswers) {
  vora_preset preset = defaultPreset();
  Payload payload{};
  vora_preset_issue issue{};
  int count = 7;
  EXPECT_FALSE(vora_preset_default(nullptr));
  EXPECT_FALSE(vora_preset_decode(nullptr, &preset));
  EXPECT_FALSE(vora_preset_decode(payload.data(), nullptr));
  EXPECT_EQ(vora_preset_check(nullptr, nullptr, 0, &count), -1);
  EXPECT_EQ(vora_preset_check(&preset, nullptr, 1, &count), -1);
  EXPECT_EQ(vora_preset_check(&preset, &issue, -1, &count), -1);
  EXPECT_EQ(vora_preset_encode(&preset, nullptr, nullptr, 0, &count), -1);
  EXPECT_EQ(vora_preset_encode(nullptr, payload.data(), nullptr, 0, &count), -1);
  EXPECT_EQ(count, 7) << "nothing is written on a bad call";
  EXPECT_EQ(vora_preset_format_issue(nullptr, nullptr, 0), -1);
  EXPECT_EQ(vora_preset_format_issue(&issue, nullptr, 1), -1); // even room for the NUL alone
  EXPECT_EQ(vora_preset_field_name(static_cast<vora_preset_field>(VORA_PRESET_FIELD_COUNT)), nullptr);
  EXPECT_EQ(vora_preset_value(nullptr, 0, 0, VORA_PRESET_GAIN_DB), nullptr);
  EXPECT_EQ(vora_preset_value(&preset, VORA_PRESET_BAND_COUNT, 0, VORA_PRESET_GAIN_DB), nullptr);
  EXPECT_EQ(vora_preset_value(&preset, 0, -1, VORA_PRESET_GAIN_DB), nullptr); // per channel: needs one
  EXPECT_EQ(vora_preset_value(&preset, 0, 0, static_cast<vora_preset_field>(VORA_PRESET_FIELD_COUNT)), nullptr);
  // The walks reach every field through the accessor; a shared slow field
  // is reached whatever the channel.
  EXPECT_EQ(vora_preset_value(&preset, 4, 1, VORA_PRESET_SLOW_DELAY_MS), &preset.bands[4].slowDelayMs);
}

TEST(PresetTest, NothingAllocates) {
  larkspin_test::AllocationScope scope;
  vora_preset preset;
  vora_preset_default(&preset);
  unsigned char payload[VORA_AP_PRESET_PAYLOAD_SIZE];
  vora_preset_issue issues[4];
  int count = 0;
  preset.bands[2].channels[1].fastRatio = 0.3f;
  vora_preset_encode(&preset, payload, issues, 4, &count);
  vora_preset_decode(payload, &preset);
  char text[100];
  vora_preset_format_issue(&issues[0], text, sizeof text);
  vora_band_info bands[VORA_BAND_COUNT];
  vora_preset_band_layout(48000.0f, bands);
  vora_preset_band_response_db(48000.0f, 4, 1000.0);
  EXPECT_EQ(scope.allocations(), 0u);
}

} // namespace
