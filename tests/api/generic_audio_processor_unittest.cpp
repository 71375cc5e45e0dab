#include <larkspin/generic_audio_processor.h>

#include "support/capture_stdout.h"
#include "support/test_payloads.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <optional>
#include <vector>

namespace vora {
namespace {

using larkspin_test::flatPayload;
using larkspin_test::Payload;

// Processes a block of `frames` frames of 0.25 in both channels; the left
// channel as it comes back, or nothing when the block is refused (which must
// leave it alone).
std::optional<std::vector<float>> processConstant(GenericAudioProcessor& processor, int frames) {
  std::vector<float> left(static_cast<size_t>(frames), 0.25f), right = left;
  float* channels[2] = {left.data(), right.data()};
  if (processor.process(channels, frames)) {
    return left;
  }
  EXPECT_EQ(left, right) << "a refused block was written";
  return std::nullopt;
}

TEST(FacadeTest, BeforeSetupEverythingIsRefused) {
  GenericAudioProcessor processor;
  EXPECT_FALSE(processConstant(processor, 64));
  const auto info = processor.getDebugInfo();
  EXPECT_FALSE(info.processingSuccess);
  EXPECT_EQ(info.processedNumberFrames, 64.0);
  EXPECT_TRUE(std::isinf(info.processingBufferDurationMs)); // no sample rate yet

  Payload payload = flatPayload(3.0f);
  EXPECT_FALSE(processor.applyPresetPayload(payload.data()));
  EXPECT_FALSE(processor.setVoraficationIntensity(0.7f));
  EXPECT_EQ(processor.getVoraficationIntensity(), 0.0f); // the read-back of an absent node
  EXPECT_FALSE(processor.setBypassed(true));
  EXPECT_FALSE(processor.getBypassed());
}

TEST(FacadeTest, SetupReportsItselfIntensityIsClampedAndSettingsSurviveUpdate) {
  GenericAudioProcessor processor;
  EXPECT_FALSE(processor.setup(48000.0f, 256, 3));
  ASSERT_TRUE(processor.setup(48000.0f, 256, 2));
  EXPECT_EQ(processor.getProcessingLatency(), 192.0f);
  EXPECT_EQ(processor.getTechLevel(), 4);
  EXPECT_STREQ(processor.getLibVersion(), "pex-1.5.0-ne10_neon");
  EXPECT_EQ(processor.getVoraficationIntensity(), 0.0f); // a new instance processes dry
  EXPECT_TRUE(processor.setVoraficationIntensity(-0.5f));
  EXPECT_EQ(processor.getVoraficationIntensity(), 0.0f);
  EXPECT_TRUE(processor.setVoraficationIntensity(7.0f));
  EXPECT_EQ(processor.getVoraficationIntensity(), 1.0f);
  std::string out = larkspin_test::captureStdout([&] { EXPECT_FALSE(processor.setVoraficationIntensity(NAN)); });
  EXPECT_EQ(processor.getVoraficationIntensity(), 1.0f); // read back from the node
  EXPECT_NE(out.find("***** parameter value nan"), std::string::npos);

  EXPECT_TRUE(processor.setBypassed(true));
  ASSERT_TRUE(processor.update(96000.0f, 128, 1));
  EXPECT_EQ(processor.getProcessingLatency(), 384.0f);
  EXPECT_TRUE(processor.getBypassed());
  EXPECT_EQ(processor.getVoraficationIntensity(), 1.0f);
}

TEST(FacadeTest, PayloadShortCutsAndSurvivesUpdate) {
  GenericAudioProcessor processor;
  ASSERT_TRUE(processor.setup(48000.0f, 256, 2));
  ASSERT_TRUE(processor.setVoraficationIntensity(1.0f));

  // All zeros equals the stored copy of a fresh instance: accepted without
  // touching the node, so the engine still passes audio untouched...
  Payload zeros{};
  EXPECT_TRUE(processor.applyPresetPayload(zeros.data()));
  EXPECT_EQ(processConstant(processor, 256), std::vector<float>(256, 0.25f));
  // ...until the next update applies the stored all-zero payload for real
  // (its gains decode to minus infinity and are refused, the rest applies).
  larkspin_test::captureStdout([&] { ASSERT_TRUE(processor.update(48000.0f, 256, 2)); });
  const auto after = processConstant(processor, 256);
  ASSERT_TRUE(after);
  EXPECT_NE(*after, std::vector<float>(256, 0.25f));

  Payload payload = flatPayload(3.0f);
  EXPECT_TRUE(processor.applyPresetPayload(payload.data()));
  EXPECT_EQ(std::memcmp(processor.getCurrentPresetPayload(), payload.data(), payload.size()), 0);
}

TEST(FacadeTest, TimeStampAdvancesAndDebugRecordFollowsEveryCall) {
  GenericAudioProcessor processor;
  ASSERT_TRUE(processor.setup(48000.0f, 480, 1));
  std::vector<float> mono(480, 0.0f);
  float* channels[1] = {mono.data()};
  ASSERT_TRUE(processor.process(channels, 480));
  auto info = processor.getDebugInfo();
  EXPECT_TRUE(info.processingSuccess);
  EXPECT_EQ(info.processingBufferDurationMs, 10.0);
  EXPECT_EQ(info.processingSampleRate, 48000.0);
  EXPECT_EQ(info.maximumNumberFrames, 480.0);
  EXPECT_GE(info.timeSpentProcessingMs, 0.0);

  EXPECT_FALSE(processor.process(channels, 481));
  EXPECT_FALSE(processor.getDebugInfo().processingSuccess);

  // Bad input from a host gets a refusal, never a crash.
  EXPECT_FALSE(processor.process(nullptr, 64));
  float* missing[1] = {nullptr};
  EXPECT_FALSE(processor.process(missing, 64));

  const std::string out = larkspin_test::captureStdout([&] { processor.logDebugInfo(); });
  EXPECT_EQ(out.rfind("*** vora audio processing debug info:\nprocessing success: false\n", 0), 0u);
}

} // namespace
} // namespace vora
