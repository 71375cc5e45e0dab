#include <larkspin/vora_ap.h>

#include "support/test_payloads.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

using larkspin_test::flatPayload;

// The registry is process-wide: every test leaves it empty.
class CInterfaceTest : public testing::Test {
protected:
  void TearDown() override {
    for (vora_ap_control* control : created) {
      vora_ap_destroy_control(control);
    }
  }
  vora_ap_control* create(int stereo = 1) {
    vora_ap_control* control = vora_ap_create_control(48000.0f, 256, stereo);
    created.push_back(control);
    return control;
  }
  std::vector<vora_ap_control*> created;
};

TEST_F(CInterfaceTest, NullHandlesAndAnEmptyRegistryGetNeutralAnswers) {
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

  EXPECT_EQ(vora_ap_get_lib_version(), nullptr);
  EXPECT_EQ(vora_ap_get_tech_level(), 0);
  EXPECT_EQ(vora_ap_get_vorafication_intensity(), 0.0f);
  EXPECT_FALSE(vora_ap_get_bypassed());
  auto payload = flatPayload();
  EXPECT_FALSE(vora_ap_apply_preset_payload(payload.data()));
  EXPECT_FALSE(vora_ap_set_bypassed(true));
  EXPECT_FALSE(vora_ap_set_vorafication_intensity(0.5f));
}

TEST_F(CInterfaceTest, CreateRefusalsAndDestroyTwice) {
  EXPECT_EQ(vora_ap_create_control(48000.0f, 0, 1), nullptr);
  EXPECT_EQ(vora_ap_create(8000.0f, 256, 1), nullptr);
  EXPECT_EQ(vora_ap_get_tech_level(), 0); // nothing was registered

  vora_ap_control* control = vora_ap_create_control(48000.0f, 256, 1);
  ASSERT_NE(control, nullptr);
  EXPECT_EQ(vora_ap_get_tech_level(), 4);
  EXPECT_STREQ(vora_ap_get_lib_version(), "pex-1.5.0-ne10_neon");
  EXPECT_TRUE(vora_ap_destroy_control(control));
  EXPECT_FALSE(vora_ap_destroy_control(control)); // no longer registered
  EXPECT_EQ(vora_ap_get_lib_version(), nullptr);
}

TEST_F(CInterfaceTest, GlobalSettersReachEveryControlAndGettersTheOldest) {
  vora_ap_control* first = create();
  vora_ap_control* second = create(0);
  EXPECT_TRUE(vora_ap_set_vorafication_intensity(0.3f));
  EXPECT_FLOAT_EQ(vora_ap_get_vorafication_intensity(), 0.3f);
  auto payload = flatPayload(6.0f);
  EXPECT_TRUE(vora_ap_apply_preset_payload(payload.data()));
  EXPECT_TRUE(vora_ap_apply_preset_payload(payload.data())); // the same bytes again: not re-applied
  EXPECT_TRUE(vora_ap_set_bypassed(true));

  // A new control starts like the oldest one.
  vora_ap_control* third = create();
  ASSERT_TRUE(vora_ap_destroy_control(first));
  created.erase(created.begin());
  EXPECT_TRUE(vora_ap_get_bypassed()); // now answered by `second`
  vora_ap_destroy_control(second);
  created.erase(created.begin());
  EXPECT_TRUE(vora_ap_get_bypassed()); // and now by `third`, which inherited it
  EXPECT_FLOAT_EQ(vora_ap_get_vorafication_intensity(), 0.3f);
  EXPECT_TRUE(vora_ap_apply_preset_payload(payload.data())); // `third` already holds it

  EXPECT_TRUE(vora_ap_set_bypassed(false));
  EXPECT_FALSE(vora_ap_get_bypassed());
  EXPECT_TRUE(vora_ap_update(third, 96000.0f, 512, 1));
  EXPECT_EQ(vora_ap_get_processing_latency(third), 384.0f);
}

} // namespace

extern "C" int larkspin_c_header_check(void);

TEST(CHeaderTest, CompilesAsC99AndRuns) {
  EXPECT_EQ(larkspin_c_header_check(), 1);
}
