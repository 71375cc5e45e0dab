// A control thread changes intensity, bypass and presets a thousand times
// while an audio thread runs blocks of varying length through the C
// interface: every block is accepted and the output stays finite and under
// the limiter's ceiling, and every band read-out the control thread takes
// meanwhile is one hop's. (That the newest setting reaches the engine whole
// is checked where the node takes its settings in, the debug record's
// hand-off in the hand-off test.)
#include <larkspin/vora_ap.h>

#include "support/test_payloads.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <random>
#include <set>
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
    // Both channels alike, as the audio is: the read-out's channels must match.
    auto parameters = larkspin_test::randomParameters(random);
    for (auto& band : parameters.bands) {
      band.gainDb1 = band.gainDb0;
      band.fastThresholdDb1 = band.fastThresholdDb0;
      band.fastRatio1 = band.fastRatio0;
    }
    presets.push_back(larkspin_test::payloadOf(parameters));
  }
  presets.push_back(larkspin_test::flatPayload(12.0f)); // pushes the limiter hard
  presets.push_back(larkspin_test::flatPayload(-6.0f, 3, 24.0f));

  vora_ap_control* control = vora_ap_create_control(kRate, kMaxFrames, 1);
  ASSERT_NE(control, nullptr);
  ASSERT_TRUE(vora_ap_apply_preset_payload(presets[0].data()));
  ASSERT_TRUE(vora_ap_set_vorafication_intensity(1.0f));

  std::atomic<bool> stop{false};
  std::atomic<long> blocks{0};
  long failures = 0, outOfBounds = 0, unlike = 0;
  std::set<float> levelsSeen;
  std::thread audio([&] {
    // Noise of at most 0.5: the dry path alone stays well under the ceiling.
    std::vector<float> samples[2] = {std::vector<float>(kMaxFrames), std::vector<float>(kMaxFrames)};
    std::mt19937 lengths(3);
    std::uniform_real_distribution<float> noise(-0.5f, 0.5f);
    while (!stop.load(std::memory_order_acquire)) {
      const auto frames = static_cast<size_t>(1 + lengths() % kMaxFrames);
      std::generate_n(samples[0].begin(), frames, [&] { return noise(lengths); });
      samples[1] = samples[0];
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
    // So do a meter's: a read-out mixing two hops would show unlike channels.
    float levels[VORA_AP_BAND_COUNT * 2], gains[VORA_AP_BAND_COUNT * 2];
    EXPECT_TRUE(vora_ap_get_band_readout(control, levels, gains));
    for (int b = 0; b < VORA_AP_BAND_COUNT; ++b) {
      unlike += levels[2 * b] != levels[2 * b + 1] || gains[2 * b] != gains[2 * b + 1] ? 1 : 0;
    }
    levelsSeen.insert(levels[16]);
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
  EXPECT_EQ(unlike, 0);
  EXPECT_GT(levelsSeen.size(), 50u) << "the read-out follows the audio";
  vora_ap_destroy_control(control);
}

} // namespace
