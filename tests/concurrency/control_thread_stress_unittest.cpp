// A control thread changes intensity, bypass and presets a thousand times
// while an audio thread runs blocks of varying length through the C
// interface: every block is accepted and the output stays finite and under
// the limiter's ceiling. (That the newest setting reaches the engine whole
// is checked where the node takes its settings in, the debug record's
// hand-off in the hand-off test.)
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

TEST(ControlThreadStressTest, OutputStaysBoundedWhileSettingsChange) {
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
  long failures = 0, outOfBounds = 0;
  std::thread audio([&] {
    // Noise of at most 0.5: the dry path alone stays well under the ceiling.
    std::vector<float> samples[2] = {std::vector<float>(kMaxFrames), std::vector<float>(kMaxFrames)};
    std::mt19937 lengths(3);
    std::uniform_real_distribution<float> noise(-0.5f, 0.5f);
    while (!stop.load(std::memory_order_acquire)) {
      const auto frames = static_cast<size_t>(1 + lengths() % kMaxFrames);
      for (std::vector<float>& channel : samples) {
        std::generate_n(channel.begin(), frames, [&] { return noise(lengths); });
      }
      float* channels[2] = {samples[0].data(), samples[1].data()};
      failures += vora_ap_process(control, channels, static_cast<int>(frames)) ? 0 : 1;
      for (std::vector<float>& channel : samples) {
        outOfBounds += std::count_if(channel.begin(), channel.begin() + std::ptrdiff_t(frames),
                                     [](float y) { return !(std::fabs(y) <= 1.0f); }); // NaN too
      }
      blocks.fetch_add(1, std::memory_order_release);
    }
  });

  // The control thread: this one (no ASSERT while the audio thread runs).
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  for (int i = 0; i < kChanges; ++i) {
    switch (random() % 3) {
    case 0:
      EXPECT_TRUE(vora_ap_apply_preset_payload(presets[random() % presets.size()].data()));
      break;
    case 1:
      // Some out of range (clamped) and, now and then, a NaN (refused).
      vora_ap_set_vorafication_intensity(i % 50 == 0 ? NAN : -0.25f + 1.5f * unit(random));
      break;
    default:
      EXPECT_TRUE(vora_ap_set_bypassed(random() % 4 == 0)); // mostly processing
    }
    vora_ap_get_debug_info(control); // its reads race the audio thread's writes
    // Wait for the audio thread at random moments, so that the changes
    // spread over many blocks instead of landing before the first.
    if (random() % 2 == 0) {
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
