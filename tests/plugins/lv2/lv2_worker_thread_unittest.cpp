// A host whose worker runs on a thread of its own changes intensity, bypass,
// the preset file and a value port before every block, odd values among
// them. Built and run under ThreadSanitizer too (label concurrency): the
// worker and run() may share only what the plugin and the library order
// themselves. The output must equal that of the same host running its
// worker on one thread, and nothing may be printed.
#include "lv2_reference.h"
#include "lv2_test_host.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace larkspin_test {
namespace {

TEST(Lv2WorkerThread, ChangesEveryBlockActAsOnOneThread) {
  const PresetPayload loud = editedPreset({{2, 0, VORA_PRESET_GAIN_DB, 9.0f}, {6, 1, VORA_PRESET_GAIN_DB, -6.0f}});
  const PresetPayload soft =
      editedPreset({{9, 0, VORA_PRESET_FAST_RATIO, 0.2f}, {4, -1, VORA_PRESET_SLOW_FACTOR, 0.7f}});
  const std::string files[] = {writeFile("thread_loud.bin", loud.data(), loud.size()),
                               writeFile("thread_soft.bin", soft.data(), soft.size()), "/nonexistent/preset.json"};
  const float intensities[] = {0.3f, NAN, 1.0f, -INFINITY, 0.8f, 2.0f, 0.0f, INFINITY, 0.55f};
  const auto host = [&](Lv2Instance& p, size_t block) {
    p.setControl("intensity", intensities[block % std::size(intensities)]);
    p.setControl("bypass", block % 11 == 5 ? 1.0f : (block % 7 == 3 ? NAN : 0.0f));
    p.setControl("b03_gain_db_l", -6.0f + static_cast<float>(block % 13));
    p.sendPresetPath(files[block % std::size(files)]);
  };
  const Planar input = noise(2, 100 * 480, 9);
  const auto run = [&](Worker worker, std::string& log) {
    Lv2Instance plugin("urn:larkspin:lv2:stereo", 48000.0, worker);
    plugin.activate();
    const Planar output = plugin.process(input, 480, host);
    log = plugin.log();
    return output;
  };
  testing::internal::CaptureStdout();
  std::string threadedLog, inlineLog;
  const Planar threaded = run(Worker::Threaded, threadedLog);
  const Planar reference = run(Worker::Inline, inlineLog);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(maxDifference(threaded, reference), 0.0f);
  EXPECT_GT(maxDifference(reference, referenceOutput(input, 48000.0f, {})), 0.01f) << "the changes must be audible";
  EXPECT_EQ(threadedLog, inlineLog);
  EXPECT_NE(threadedLog.find("/nonexistent/preset.json"), std::string::npos) << threadedLog;
}

} // namespace
} // namespace larkspin_test
