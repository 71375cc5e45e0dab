// A control thread changes intensity, bypass and presets thousands of times
// while an audio thread runs blocks of varying length through the C
// interface. The output stays finite and under the limiter's ceiling, the
// setters and getters answer as they do single-threaded, and the debug
// record is never torn. (That the newest setting reaches the engine is
// checked where the node takes its settings in.)
#include <larkspin/vora_ap.h>

#include "support/test_payloads.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <random>
#include <thread>
#include <vector>

namespace {

constexpr float kRate = 48000.0f;
constexpr int kMaxFrames = 512;
constexpr int kChanges = 1000;

// A torn record would pair one call's frames with another call's duration.
bool isWholeRecord(const vora_ap_debug_info& info) {
  const double frames = info.processedNumberFrames;
  return info.processingSampleRate == double(kRate) && info.maximumNumberFrames == kMaxFrames &&
         info.processingBufferDurationMs == frames / double(kRate) * 1000000000.0 / 1000000.0;
}

TEST(ControlThreadStressTest, OutputStaysBoundedAndSettingsAnswerAsMade) {
  std::mt19937 random(11);
  std::vector<larkspin_test::Payload> presets;
  for (int i = 0; i < 6; ++i) {
    presets.push_back(larkspin_test::payloadOf(larkspin_test::randomParameters(random)));
  }
  presets.push_back(larkspin_test::flatPayload(12.0f)); // pushes the limiter hard
  presets.push_back(larkspin_test::flatPayload(-6.0f, 3, 24.0f));

  vora_ap_control* control = vora_ap_create_control(kRate, kMaxFrames, 1);
  ASSERT_NE(control, nullptr);
  ASSERT_TRUE(vora_ap_apply_preset_payload(presets[0].data()));
  ASSERT_TRUE(vora_ap_set_vorafication_intensity(1.0f));

  std::atomic<bool> stop{false};
  std::atomic<long> blocks{0};
  std::atomic<long> changes{0};
  long failures = 0, outOfBounds = 0;
  std::thread audio([&] {
    // Two tones and noise, at most 0.5: the dry path alone stays well under
    // the ceiling.
    std::vector<float> left(kMaxFrames), right(kMaxFrames);
    std::mt19937 lengths(3);
    std::uniform_real_distribution<float> noise(-0.1f, 0.1f);
    long n = 0;
    while (!stop.load(std::memory_order_acquire)) {
      // At most two blocks per change: enough audio, and seconds, not minutes.
      if (blocks.load(std::memory_order_relaxed) > 2 * changes.load(std::memory_order_acquire) + 2) {
        std::this_thread::yield();
        continue;
      }
      const int frames = 1 + int(lengths() % kMaxFrames);
      for (size_t i = 0; i < size_t(frames); ++i, ++n) {
        left[i] = 0.3f * std::sin(0.0288f * float(n % 48000)) + noise(lengths);
        right[i] = 0.3f * std::sin(0.18f * float(n % 48000)) + noise(lengths);
      }
      float* channels[2] = {left.data(), right.data()};
      failures += vora_ap_process(control, channels, frames) ? 0 : 1;
      for (size_t i = 0; i < size_t(frames); ++i) {
        outOfBounds +=
            std::isfinite(left[i]) && std::isfinite(right[i]) && std::abs(left[i]) <= 1.0f && std::abs(right[i]) <= 1.0f
                ? 0
                : 1;
      }
      blocks.fetch_add(1, std::memory_order_release);
    }
  });

  // The control thread: this one (no ASSERT while the audio thread runs).
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  float intensity = 1.0f;
  for (int i = 0; i < kChanges; ++i) {
    switch (random() % 3) {
    case 0:
      EXPECT_TRUE(vora_ap_apply_preset_payload(presets[random() % presets.size()].data()));
      break;
    case 1: {
      // Some out of range (clamped) and, now and then, a NaN (refused).
      const float value = i % 50 == 0 ? NAN : -0.25f + 1.5f * unit(random);
      EXPECT_EQ(vora_ap_set_vorafication_intensity(value), !std::isnan(value));
      intensity = std::isnan(value) ? intensity : std::clamp(value, 0.0f, 1.0f);
      EXPECT_EQ(vora_ap_get_vorafication_intensity(), intensity);
      break;
    }
    default:
      const bool bypassed = random() % 4 == 0; // mostly processing
      EXPECT_TRUE(vora_ap_set_bypassed(bypassed));
      EXPECT_EQ(vora_ap_get_bypassed(), bypassed);
    }
    changes.fetch_add(1, std::memory_order_release);
    if (blocks.load(std::memory_order_acquire) > 0) {
      EXPECT_TRUE(isWholeRecord(vora_ap_get_debug_info(control)));
    }
    // Wait for the audio thread at random moments, so that the changes
    // spread over many blocks instead of landing before the first.
    if (random() % 2 == 0 && blocks.load(std::memory_order_acquire) <= 2 * (i + 1)) {
      const long seen = blocks.load(std::memory_order_acquire);
      while (blocks.load(std::memory_order_acquire) == seen) {
        std::this_thread::yield();
      }
    }
  }
  stop.store(true, std::memory_order_release);
  audio.join();
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(outOfBounds, 0);
  EXPECT_GT(blocks.load(), kChanges / 4);
  vora_ap_destroy_control(control);
}

} // namespace
