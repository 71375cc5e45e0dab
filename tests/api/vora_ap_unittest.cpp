// The C interface's registry: null handles and an empty registry get
// neutral answers; under churn (controls created, updated and destroyed in
// random order, global setters mixed in) the getters agree after every step
// with a model of the registry: creation order, settings inherited from the
// oldest control, the oldest answering for all.
#include <larkspin/vora_ap.h>

#include "support/test_payloads.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

namespace {

TEST(CInterfaceTest, NullHandlesAndAnEmptyRegistryGetNeutralAnswers) {
  EXPECT_TRUE(vora_ap_destroy_control(nullptr));
  EXPECT_TRUE(vora_ap_destroy(nullptr));
  EXPECT_FALSE(vora_ap_update(nullptr, 48000.0f, 256, 1));
  float* channels[2] = {nullptr, nullptr};
  EXPECT_FALSE(vora_ap_process(nullptr, channels, 16));
  EXPECT_EQ(vora_ap_get_processing_latency(nullptr), 0.0f);
  const vora_ap_debug_info info = vora_ap_get_debug_info(nullptr);
  const vora_ap_debug_info zero{};
  EXPECT_EQ(std::memcmp(&info, &zero, sizeof info), 0);
  vora_ap_log_debug_info(nullptr);
  EXPECT_STREQ(vora_ap_get_wrapper_version(), "3.4.0");
  EXPECT_EQ(vora_ap_create(8000.0f, 256, 1), nullptr);

  auto payload = larkspin_test::flatPayload();
  EXPECT_FALSE(vora_ap_apply_preset_payload(payload.data()));
  EXPECT_FALSE(vora_ap_set_bypassed(true));
  EXPECT_FALSE(vora_ap_set_vorafication_intensity(0.5f));
}

struct ModelControl {
  vora_ap_control* handle;
  float intensity;
  bool bypassed;
};

// The global getters answer for the oldest control, or neutrally. (What a
// control reports of itself is the facade's, tested there.)
void expectGettersAgree(const std::vector<ModelControl>& model, int step) {
  ASSERT_EQ(vora_ap_get_lib_version() == nullptr, model.empty()) << step;
  ASSERT_EQ(vora_ap_get_tech_level(), model.empty() ? 0 : 4) << step;
  ASSERT_EQ(vora_ap_get_vorafication_intensity(), model.empty() ? 0.0f : model.front().intensity) << step;
  ASSERT_EQ(vora_ap_get_bypassed(), !model.empty() && model.front().bypassed) << step;
}

// Two hundred creations already walk every path many times over.
TEST(CInterfaceTest, RegistryUnderChurnAgreesWithItsModel) {
  constexpr int kCreations = 200;
  constexpr size_t kMaximumAlive = 8;
  std::mt19937 random(20261123);
  std::vector<ModelControl> model;
  int created = 0, refused = 0;
  for (int step = 0; created < kCreations || !model.empty(); ++step) {
    const size_t alive = model.size();
    const int action = static_cast<int>(random() % 10);
    if (created < kCreations && (alive == 0 || (action < 4 && alive < kMaximumAlive))) {
      // One creation in sixteen asks for no frames: refused, nothing registered.
      const bool refuse = random() % 16 == 0;
      const int frames = refuse ? 0 : static_cast<int>(1 + random() % 1024);
      vora_ap_control* handle = vora_ap_create_control(48000.0f, frames, static_cast<int>(random() % 2));
      ASSERT_EQ(handle == nullptr, refuse) << step;
      if (!refuse) {
        // A new control starts alike the oldest; the first one dry and active.
        model.push_back(model.empty() ? ModelControl{handle, 0.0f, false}
                                      : ModelControl{handle, model.front().intensity, model.front().bypassed});
      }
      (refuse ? refused : created) += 1;
    } else if (action < 7 || created >= kCreations) {
      const auto index = static_cast<std::ptrdiff_t>(random() % alive);
      vora_ap_control* handle = model[size_t(index)].handle;
      ASSERT_TRUE(vora_ap_destroy_control(handle)) << step;
      model.erase(model.begin() + index);
      ASSERT_FALSE(vora_ap_destroy_control(handle)) << step; // no longer registered
    } else if (action == 7) {
      // An update keeps the control's place and settings.
      vora_ap_control* handle = model[random() % alive].handle;
      ASSERT_TRUE(vora_ap_update(handle, 48000.0f, static_cast<int>(1 + random() % 1024), 1)) << step;
    } else if (action == 8) {
      // Out-of-range values are clamped into [0, 1].
      const float value = std::uniform_real_distribution<float>(-0.5f, 1.5f)(random);
      ASSERT_TRUE(vora_ap_set_vorafication_intensity(value)) << step;
      for (ModelControl& control : model) {
        control.intensity = std::clamp(value, 0.0f, 1.0f);
      }
    } else {
      const bool flag = random() % 2 != 0;
      ASSERT_TRUE(vora_ap_set_bypassed(flag)) << step;
      for (ModelControl& control : model) {
        control.bypassed = flag;
      }
    }
    ASSERT_NO_FATAL_FAILURE(expectGettersAgree(model, step));
  }
  EXPECT_GT(refused, 0);
}

} // namespace
