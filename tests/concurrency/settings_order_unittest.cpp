// The dynamics node's settings as the audio thread sees them while a
// control thread changes them: in order, whole, and the newest when several
// changes pile up between two blocks.
#include "dsp/node_pexon.h"
#include "dsp/preset_conversion.h"
#include "graph/graph.h"
#include "graph/node_factory.h"
#include "support/test_payloads.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

namespace vora {
namespace {

constexpr int kMaxFrames = 256;
constexpr int kChanges = 200;

// Change k applies preset k, then mix k. Preset k has a fast threshold of
// its own in every band (the payload keeps 1/128 dB), so that the engine
// record tells which preset is in force.
larkspin_test::Payload presetPayload(int k) {
  VorafierParameters parameters = larkspin_test::flatParameters(3.0f);
  for (VorafierBandRecord& band : parameters.bands) {
    band.fastThresholdDb0 = band.fastThresholdDb1 = -0.25f * static_cast<float>(k);
  }
  return larkspin_test::payloadOf(parameters);
}
float mixOf(int k) {
  return static_cast<float>(k) / static_cast<float>(kChanges + 1);
}

class SettingsOrderTest : public testing::Test {
protected:
  void SetUp() override {
    ASSERT_TRUE(graph_.setup(2, 2, kMaxFrames, 48000.0));
    id_ = static_cast<uint32_t>(graph_.addNode(static_cast<unsigned>(NodeType::Dynamics), 2, 2));
    graph_.connectNodes(graph_.getInputNodeIdentifier(), id_);
    graph_.connectNodes(id_, graph_.getOutputNodeIdentifier());
    ASSERT_TRUE(graph_.prepare(0, 48000.0));
    node_ = static_cast<node_pexon*>(graph_.findNode(id_));
  }

  void change(int k) {
    const larkspin_test::Payload payload = presetPayload(k);
    ASSERT_TRUE(graph_.applyNodePreset(id_, presetFromPayload(payload.data())));
    ASSERT_TRUE(graph_.setNodeParameterValue(id_, ParameterIdentifier::vorafier_mix_ratio, mixOf(k), 0, 0));
  }

  void render(int frames) {
    float* channels[2] = {left_.data(), right_.data()};
    AudioTimeStamp timeStamp{0, true};
    ASSERT_TRUE(graph_.process(frames, channels, timeStamp));
  }

  // The engine record each preset gives, found by rendering it alone.
  std::vector<VorafierParameters> referenceRecords() {
    std::vector<VorafierParameters> records;
    for (int k = 0; k <= kChanges; ++k) {
      change(k);
      render(1);
      records.push_back(node_->engine().parameters());
    }
    return records;
  }

  Graph graph_;
  uint32_t id_ = 0;
  node_pexon* node_ = nullptr;
  std::vector<float> left_ = std::vector<float>(kMaxFrames, 0.1f);
  std::vector<float> right_ = std::vector<float>(kMaxFrames, -0.1f);
};

TEST_F(SettingsOrderTest, ChangesArriveWholeInOrderAndTheNewestWins) {
  const std::vector<VorafierParameters> records = referenceRecords();
  // Between two blocks, far more changes than any queue of single changes
  // would hold: all are accepted, and the newest wins.
  for (int k = 0; k <= kChanges; ++k) {
    change(k);
    for (int i = 0; i < 100; ++i) {
      ASSERT_TRUE(graph_.setNodeParameterValue(id_, ParameterIdentifier::vorafier_mix_ratio, mixOf(i), 0, 0));
    }
  }
  change(7);
  render(kMaxFrames);
  EXPECT_TRUE(node_->engine().parameters() == records[7]);
  EXPECT_EQ(node_->liveSettings().mix, mixOf(7));

  // With an audio thread running, every block sees whole presets and mixes,
  // in the order made, and the last of them.
  change(0);
  render(1);
  std::atomic<bool> done{false};
  std::atomic<int> rendered{0};
  std::vector<std::pair<int, int>> seen; // (preset, mix) per block, audio thread only
  std::thread audio([&] {
    int frames = 1;
    while (!done.load(std::memory_order_acquire)) {
      render(frames);
      frames = 1 + (frames + 36) % kMaxFrames;
      const auto found = std::find(records.begin(), records.end(), node_->engine().parameters());
      const int preset = found == records.end() ? -1 : static_cast<int>(found - records.begin());
      const float mix = node_->liveSettings().mix;
      const int mixIndex = static_cast<int>(std::lround(mix * float(kChanges + 1)));
      seen.emplace_back(preset, mixOf(mixIndex) == mix ? mixIndex : -1);
      rendered.fetch_add(1, std::memory_order_release);
    }
  });
  for (int k = 1; k <= kChanges; ++k) {
    // Let the audio thread run a block now and then, so that changes land
    // between blocks, not all before the first one.
    if (k % 3 == 0) {
      const int before = rendered.load(std::memory_order_acquire);
      while (rendered.load(std::memory_order_acquire) == before) {
        std::this_thread::yield();
      }
    }
    change(k);
  }
  const int last = rendered.load(std::memory_order_acquire);
  while (rendered.load(std::memory_order_acquire) < last + 2) {
    std::this_thread::yield();
  }
  done.store(true, std::memory_order_release);
  audio.join();

  ASSERT_GT(seen.size(), size_t(kChanges / 3));
  std::pair<int, int> previous{0, 0};
  for (const auto& [preset, mix] : seen) {
    ASSERT_GE(preset, 0) << "an engine record that is no whole preset";
    ASSERT_GE(mix, 0) << "a mix no change made";
    // Mix k is set after preset k and before preset k + 1.
    ASSERT_TRUE(mix == preset || mix == preset - 1) << preset << " " << mix;
    ASSERT_GE(preset, previous.first);
    ASSERT_GE(mix, previous.second);
    previous = {preset, mix};
  }
  EXPECT_EQ(previous, std::make_pair(kChanges, kChanges));
}

} // namespace
} // namespace vora
