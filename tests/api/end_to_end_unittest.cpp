// A stream through the C interface, as a host's audio callback drives it.
#include <larkspin/vora_ap.h>

#include "support/test_payloads.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace {

using larkspin_test::flatPayload;

constexpr double kRate = 48000.0;

std::vector<float> tone(double hz, size_t frames, double amplitude) {
  std::vector<float> x(frames);
  for (size_t i = 0; i < frames; ++i) {
    x[i] = static_cast<float>(amplitude * std::sin(2.0 * std::numbers::pi * hz * static_cast<double>(i) / kRate));
  }
  return x;
}

struct StreamResult {
  std::vector<float> left, right;
  int latency = 0;
};

// Processes (left, right) in blocks of `block` with the payload applied and
// intensity 1.0; `later`, when given, is applied before block `laterBlock`.
StreamResult process(const std::vector<float>& left, const std::vector<float>& right, int block,
                     larkspin_test::Payload payload, larkspin_test::Payload* later = nullptr, size_t laterBlock = 0) {
  vora_ap_control* control = vora_ap_create_control(static_cast<float>(kRate), block, 1);
  EXPECT_NE(control, nullptr);
  EXPECT_TRUE(vora_ap_apply_preset_payload(payload.data()));
  EXPECT_TRUE(vora_ap_set_vorafication_intensity(1.0f));
  StreamResult run;
  run.left = left;
  run.right = right;
  run.latency = static_cast<int>(vora_ap_get_processing_latency(control));
  for (size_t start = 0; start + static_cast<size_t>(block) <= left.size(); start += static_cast<size_t>(block)) {
    if (later != nullptr && start == laterBlock * static_cast<size_t>(block)) {
      EXPECT_TRUE(vora_ap_apply_preset_payload(later->data()));
    }
    float* channels[2] = {run.left.data() + start, run.right.data() + start};
    EXPECT_TRUE(vora_ap_process(control, channels, block));
  }
  vora_ap_destroy_control(control);
  return run;
}

double levelDb(const std::vector<float>& x, size_t from, size_t to) {
  double sum = 0.0;
  for (size_t i = from; i < to; ++i) {
    sum += double(x[i]) * x[i];
  }
  return 10.0 * std::log10(sum / double(to - from));
}

TEST(EndToEndTest, BoostedBandRisesAndOthersStayAtAnyBlockLength) {
  // Band 7 spans 1682-2378 Hz: boost it by 12 dB. A 2 kHz tone in it rises
  // by about 12 dB; a 500 Hz tone (band 3, 0 dB) stays within a dB.
  const size_t frames = 48000 * 2;
  const std::vector<float> boosted = tone(2000.0, frames, 0.05);
  const std::vector<float> plain = tone(500.0, frames, 0.05);
  for (int block : {256, 100}) {
    const StreamResult run = process(boosted, plain, block, flatPayload(0.0f, 7, 12.0f));
    const size_t end = frames / static_cast<size_t>(block) * static_cast<size_t>(block);
    const double gainBoosted = levelDb(run.left, 48000, end) - levelDb(boosted, 48000, end);
    const double gainPlain = levelDb(run.right, 48000, end) - levelDb(plain, 48000, end);
    EXPECT_NEAR(gainBoosted, 12.0, 1.5) << block;
    EXPECT_NEAR(gainPlain, 0.0, 1.0) << block;
  }
}

TEST(EndToEndTest, OutputIsTheInputDelayedByTheReportedLatency) {
  // With intensity 1.0 but everything at unity, a loud transient comes out
  // exactly `latency` samples later (re-blocking adds none for blocks that
  // hops of 64 divide).
  std::vector<float> impulse(48000, 0.0f);
  impulse[10000] = 0.9f;
  const StreamResult run = process(impulse, impulse, 256, flatPayload(0.0f));
  size_t peak = 0;
  for (size_t i = 0; i < run.left.size(); ++i) {
    if (std::fabs(run.left[i]) > std::fabs(run.left[peak])) {
      peak = i;
    }
  }
  EXPECT_EQ(peak, 10000u + static_cast<size_t>(run.latency));
}

// A preset switch while audio runs makes no click: around it, the largest
// step between samples of a low tone is no larger than with either preset
// settled.
TEST(EndToEndTest, PresetSwitchMakesNoClick) {
  const std::vector<float> low = tone(200.0, 48000, 0.1);
  larkspin_test::Payload loud = flatPayload(12.0f);
  const StreamResult run = process(low, low, 480, flatPayload(0.0f), &loud, 40);
  const auto largestStep = [&](size_t from, size_t to) {
    float step = 0.0f;
    for (size_t i = from + 1; i < to; ++i) {
      step = std::max(step, std::fabs(run.left[i] - run.left[i - 1]));
    }
    return step;
  };
  const size_t switchAt = 40 * 480;
  EXPECT_LE(largestStep(switchAt - 1024, switchAt + 4096),
            1.1f * std::max(largestStep(8192, switchAt - 1024), largestStep(switchAt + 16384, 48000)));
  EXPECT_GT(largestStep(switchAt + 16384, 48000), 3.0f * largestStep(8192, switchAt - 1024)) << "the switch took";
}

} // namespace
