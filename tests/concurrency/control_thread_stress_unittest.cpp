// A control thread changes intensity, bypass and presets thousands of times
// while an audio thread runs blocks of varying length through the C
// interface. The output stays finite and under the limiter's ceiling, the
// setters and getters answer as they do single-threaded, the debug record is
// never torn, and once the control thread stops the control sounds like a
// fresh one given the last settings.
#include <larkspin/vora_ap.h>

#include "support/test_payloads.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <random>
#include <thread>
#include <vector>

namespace {

constexpr float kRate = 48000.0f;
constexpr int kMaxFrames = 512;
constexpr int kChanges = 2000;
constexpr float kCeiling = 1.0f;

// Two tones and noise, at most 0.5, so that the dry path alone stays well
// under the ceiling.
class Source {
public:
  void fill(std::vector<float>& left, std::vector<float>& right, int frames) {
    std::uniform_real_distribution<float> noise(-0.1f, 0.1f);
    for (size_t i = 0; i < size_t(frames); ++i, ++n_) {
      const double t = double(n_) / double(kRate);
      left[i] = float(0.3 * std::sin(2 * std::numbers::pi * 220.0 * t)) + noise(random_);
      right[i] = float(0.3 * std::sin(2 * std::numbers::pi * 1375.0 * t)) + noise(random_);
    }
  }

private:
  std::mt19937 random_{5};
  long n_ = 0;
};

bool process(vora_ap_control* control, std::vector<float>& left, std::vector<float>& right, int frames) {
  float* channels[2] = {left.data(), right.data()};
  return vora_ap_process(control, channels, frames);
}

// A torn record would pair one call's frames with another call's duration.
bool isWholeRecord(const vora_ap_debug_info& info) {
  const double frames = info.processedNumberFrames;
  return info.processingSampleRate == double(kRate) && info.maximumNumberFrames == kMaxFrames &&
         info.processingBufferDurationMs == frames / double(kRate) * 1000000000.0 / 1000000.0;
}

TEST(ControlThreadStressTest, OutputStaysBoundedAndEndsLikeAFreshControl) {
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
  long frames = 0, failures = 0, outOfBounds = 0;
  Source source;
  const auto start = std::chrono::steady_clock::now();
  std::thread audio([&] {
    std::vector<float> left(kMaxFrames), right(kMaxFrames);
    std::mt19937 lengths(3);
    while (!stop.load(std::memory_order_acquire)) {
      // At most two blocks per change: enough audio, and seconds, not minutes.
      if (blocks.load(std::memory_order_relaxed) > 2 * changes.load(std::memory_order_acquire) + 2) {
        std::this_thread::yield();
        continue;
      }
      const int n = 1 + int(lengths() % kMaxFrames);
      source.fill(left, right, n);
      failures += process(control, left, right, n) ? 0 : 1;
      for (size_t i = 0; i < size_t(n); ++i) {
        outOfBounds += std::isfinite(left[i]) && std::isfinite(right[i]) && std::abs(left[i]) <= kCeiling &&
                               std::abs(right[i]) <= kCeiling
                           ? 0
                           : 1;
      }
      frames += n;
      blocks.fetch_add(1, std::memory_order_release);
    }
  });

  // The control thread: this one (no ASSERT while the audio thread runs).
  size_t preset = 0;
  float intensity = 1.0f;
  bool bypassed = false;
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  for (int i = 0; i < kChanges; ++i) {
    switch (random() % 3) {
    case 0:
      preset = random() % presets.size();
      EXPECT_TRUE(vora_ap_apply_preset_payload(presets[preset].data()));
      break;
    case 1: {
      // Some out of range (clamped) and, now and then, a NaN (refused).
      const float value = i % 50 == 0 ? NAN : -0.25f + 1.5f * unit(random);
      const bool refused = std::isnan(value);
      EXPECT_EQ(vora_ap_set_vorafication_intensity(value), !refused);
      intensity = refused ? intensity : std::clamp(value, 0.0f, 1.0f);
      EXPECT_EQ(vora_ap_get_vorafication_intensity(), intensity);
      break;
    }
    default:
      bypassed = random() % 4 == 0; // mostly processing
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
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf("%d changes over %ld blocks (%ld frames) in %.2f s\n", kChanges, blocks.load(), frames, seconds);
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(outOfBounds, 0);
  EXPECT_GT(blocks.load(), kChanges / 4);

  // A fresh control starts with the oldest control's settings: the last
  // ones made. Fed the same audio, both agree once the mix smoother, the
  // slow gains and the limiter have settled (4 s; their longest time
  // constant is 255 ms). First the stressed control is brought to a hop
  // boundary (the latency is three hops), so that both cut the audio into
  // the same hops; the re-blocking may still delay one output against the
  // other by a constant number of frames, which is searched for.
  const int hop = int(vora_ap_get_processing_latency(control)) / 3;
  std::vector<float> left(kMaxFrames), right(kMaxFrames);
  if (const int align = (hop - int(frames % hop)) % hop; align != 0) {
    source.fill(left, right, align);
    ASSERT_TRUE(process(control, left, right, align));
  }
  vora_ap_control* fresh = vora_ap_create_control(kRate, kMaxFrames, 1);
  ASSERT_NE(fresh, nullptr);
  ASSERT_EQ(vora_ap_get_vorafication_intensity(), intensity);
  ASSERT_EQ(vora_ap_get_bypassed(), bypassed);
  constexpr int kBlock = 480, kBlocks = 450, kCompared = 40;
  std::vector<float> stressedOut, freshOut;
  std::vector<float> freshLeft(kMaxFrames), freshRight(kMaxFrames);
  for (int b = 0; b < kBlocks; ++b) {
    source.fill(left, right, kBlock);
    freshLeft = left;
    freshRight = right;
    ASSERT_TRUE(process(control, left, right, kBlock));
    ASSERT_TRUE(process(fresh, freshLeft, freshRight, kBlock));
    if (b >= kBlocks - kCompared - 2) {
      stressedOut.insert(stressedOut.end(), left.begin(), left.begin() + kBlock);
      freshOut.insert(freshOut.end(), freshLeft.begin(), freshLeft.begin() + kBlock);
    }
  }
  float best = INFINITY, largestOutput = 0.0f;
  const int margin = 2 * kBlock;
  for (int lag = -margin; lag <= margin; ++lag) {
    float largestDifference = 0.0f;
    for (int i = margin; i < margin + kCompared * kBlock - margin && largestDifference < best; ++i) {
      largestDifference = std::max(largestDifference, std::abs(stressedOut[size_t(i)] - freshOut[size_t(i + lag)]));
      largestOutput = std::max(largestOutput, std::abs(stressedOut[size_t(i)]));
    }
    best = std::min(best, largestDifference);
  }
  EXPECT_GT(largestOutput, 0.05f);
  EXPECT_LT(best, 1e-4f);
  vora_ap_destroy_control(fresh);
  vora_ap_destroy_control(control);
}

} // namespace
