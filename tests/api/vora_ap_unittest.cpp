// The C interface's own answers: null handles and an empty registry get
// neutral answers; the registry's order and inheritance. (The rules of a
// single control are the facade's, tested there.)
#include <larkspin/vora_ap.h>
#include <larkspin/vora_preset.h>

#include "dsp/real_fft.h"
#include "support/capture_stdout.h"
#include "support/test_payloads.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

TEST(CInterfaceTest, NullHandlesAndAnEmptyRegistryGetNeutralAnswers) {
  // The interface fuzzer passes null handles to the other per-control calls.
  EXPECT_TRUE(vora_ap_destroy(nullptr));
  const vora_ap_debug_info info = vora_ap_get_debug_info(nullptr), zero{};
  EXPECT_EQ(std::memcmp(&info, &zero, sizeof info), 0);
  vora_ap_log_debug_info(nullptr);
  EXPECT_FALSE(vora_ap_process(nullptr, nullptr, 4));
  EXPECT_FALSE(vora_ap_update(nullptr, 48000.0f, 256, 1));
  EXPECT_EQ(vora_ap_get_processing_latency(nullptr), 0.0f);
  EXPECT_STREQ(vora_ap_get_wrapper_version(), "3.4.0");
  // The build says which FFT and instruction set it runs, without a control.
  if (std::string(vora::RealFft::backendName()) == "own") {
#if defined(__x86_64__)
    EXPECT_STREQ(vora_ap_get_build_info(), "own FFT, SSE2");
#elif defined(__ARM_NEON)
    EXPECT_STREQ(vora_ap_get_build_info(), "own FFT, NEON");
#endif
  }
  EXPECT_EQ(vora_ap_create(8000.0f, 256, 1), nullptr);

  auto payload = larkspin_test::flatPayload();
  EXPECT_FALSE(vora_ap_apply_preset_payload(payload.data()));
  EXPECT_FALSE(vora_ap_set_bypassed(true));
  EXPECT_FALSE(vora_ap_set_vorafication_intensity(0.5f));
}

// The global getters answer for the oldest control, or neutrally.
void expectGetters(float intensity, bool bypassed) {
  EXPECT_EQ(vora_ap_get_vorafication_intensity(), intensity);
  EXPECT_EQ(vora_ap_get_bypassed(), bypassed);
}

// A walk that visits every registry rule once: the first control starts dry
// and active; later ones start alike the oldest, which answers for all; a
// refused creation registers nothing; an emptied registry forgets.
TEST(CInterfaceTest, NewControlsStartAlikeTheOldestWhichAnswersForAll) {
  vora_ap_control* a = vora_ap_create_control(48000.0f, 256, 1);
  vora_ap_control* b = vora_ap_create_control(44100.0f, 100, 0);
  ASSERT_TRUE(a != nullptr && b != nullptr);
  expectGetters(0.0f, false);
  ASSERT_TRUE(vora_ap_set_vorafication_intensity(1.5f)); // clamped
  ASSERT_TRUE(vora_ap_set_bypassed(true));
  EXPECT_EQ(vora_ap_create_control(48000.0f, 0, 1), nullptr);
  vora_ap_control* c = vora_ap_create_control(96000.0f, 64, 1);
  ASSERT_TRUE(vora_ap_destroy_control(a));
  EXPECT_FALSE(vora_ap_destroy_control(a)) << "no longer registered";
  expectGetters(1.0f, true); // the setters reached b
  ASSERT_TRUE(vora_ap_destroy_control(b));
  expectGetters(1.0f, true); // c took them from the oldest
  ASSERT_TRUE(vora_ap_update(c, 48000.0f, 512, 0));
  expectGetters(1.0f, true);
  EXPECT_STREQ(vora_ap_get_lib_version(), "pex-1.5.0-ne10_neon");
  ASSERT_TRUE(vora_ap_destroy_control(c));
  EXPECT_EQ(vora_ap_get_lib_version(), nullptr);
  expectGetters(0.0f, false);
  vora_ap_control* d = vora_ap_create_control(48000.0f, 256, 1);
  expectGetters(0.0f, false);
  ASSERT_TRUE(vora_ap_destroy_control(d));
}

// A hook gets exactly the lines that are printed without one, and only
// them; it reaches controls created later; process emits nothing.
TEST(CInterfaceTest, MessageHookReceivesExactlyThePrintedLines) {
  vora_ap_control* control = vora_ap_create_control(48000.0f, 256, 0);
  ASSERT_NE(control, nullptr);
  auto good = larkspin_test::flatPayload();
  larkspin_test::Payload refused{};
  refused.back() = 1; // differs from the stored zeros; its gains decode to minus infinity
  vora_preset decoded;
  vora_preset_decode(refused.data(), &decoded);
  ASSERT_GT(vora_preset_check(&decoded, nullptr, 0, nullptr), 0);
  std::vector<std::string> lines;
  const auto collect = [](void* context, const char* line) {
    static_cast<std::vector<std::string>*>(context)->push_back(line);
  };

  const std::function<void()> calls[] = {
      [] { vora_ap_set_vorafication_intensity(NAN); },
      [&] { vora_ap_apply_preset_payload(good.data()), vora_ap_apply_preset_payload(refused.data()); },
      [&] { vora_ap_log_debug_info(control); },
  };
  for (const auto& call : calls) {
    const std::string printed = larkspin_test::captureStdout(call);
    lines.clear();
    vora_ap_set_message_hook(collect, &lines);
    EXPECT_EQ(larkspin_test::captureStdout(call), "");
    vora_ap_set_message_hook(nullptr, nullptr);
    std::string received;
    for (const std::string& line : lines) {
      received += line + "\n";
    }
    EXPECT_FALSE(printed.empty());
    EXPECT_EQ(received, printed);
  }
  EXPECT_EQ(larkspin_test::captureStdout(calls[0]),
            "***** parameter value nan out of range: 0 - 1\n***** for parameter with identifier 8\n");

  ASSERT_TRUE(vora_ap_apply_preset_payload(good.data()));
  lines.clear();
  vora_ap_set_message_hook(collect, &lines);
  vora_ap_control* later = vora_ap_create_control(44100.0f, 64, 1);
  ASSERT_NE(later, nullptr);
  calls[0]();
  EXPECT_EQ(lines.size(), 4u) << "two lines from each control";
  std::vector<float> samples(300, NAN);
  float* channels[1] = {samples.data()};
  lines.clear();
  EXPECT_TRUE(vora_ap_process(control, channels, 256));
  EXPECT_FALSE(vora_ap_process(control, channels, 300));
  EXPECT_TRUE(lines.empty());
  vora_ap_set_message_hook(nullptr, nullptr);
  vora_ap_destroy_control(later);
  vora_ap_destroy_control(control);
}

} // namespace
