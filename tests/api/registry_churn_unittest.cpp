// The control registry under churn: controls created and destroyed in
// random order, with the global setters mixed in, checked after every step
// against a model of the registry (creation order, per-control intensity
// and bypass, inheritance from the oldest control).
#include <larkspin/vora_ap.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

namespace {

struct ModelControl {
  vora_ap_control* handle;
  float intensity;
  bool bypassed;
};

class RegistryModel {
public:
  void create(vora_ap_control* handle) {
    // A new control starts alike the oldest; the first one dry and active.
    controls_.push_back(controls_.empty()
                            ? ModelControl{handle, 0.0f, false}
                            : ModelControl{handle, controls_.front().intensity, controls_.front().bypassed});
  }
  void destroy(size_t index) { controls_.erase(controls_.begin() + static_cast<std::ptrdiff_t>(index)); }
  void setIntensity(float value) {
    for (auto& control : controls_) {
      control.intensity = std::clamp(value, 0.0f, 1.0f);
    }
  }
  void setBypassed(bool flag) {
    for (auto& control : controls_) {
      control.bypassed = flag;
    }
  }
  const std::vector<ModelControl>& controls() const { return controls_; }

  // The global getters answer for the oldest control, or neutrally.
  void expectGettersAgree(int step) const {
    if (controls_.empty()) {
      ASSERT_EQ(vora_ap_get_lib_version(), nullptr) << step;
      ASSERT_EQ(vora_ap_get_tech_level(), 0) << step;
      ASSERT_EQ(vora_ap_get_vorafication_intensity(), 0.0f) << step;
      ASSERT_FALSE(vora_ap_get_bypassed()) << step;
      return;
    }
    const char* version = vora_ap_get_lib_version();
    ASSERT_NE(version, nullptr) << step;
    ASSERT_STREQ(version, "pex-1.5.0-ne10_neon") << step;
    ASSERT_EQ(vora_ap_get_tech_level(), 4) << step;
    ASSERT_EQ(vora_ap_get_vorafication_intensity(), controls_.front().intensity) << step;
    ASSERT_EQ(vora_ap_get_bypassed(), controls_.front().bypassed) << step;
  }

private:
  std::vector<ModelControl> controls_;
};

TEST(RegistryChurnTest, TenThousandControlsCreatedAndDestroyedInRandomOrder) {
  constexpr int kCreations = 10000;
  constexpr size_t kMaximumAlive = 8;
  // One rate: the registry does not care, and set-up cost grows with it.
  constexpr float kRate = 48000.0f;

  std::mt19937 random(20261123);
  RegistryModel model;
  model.expectGettersAgree(-1);
  int created = 0;
  int refused = 0;
  for (int step = 0; created < kCreations || !model.controls().empty(); ++step) {
    const size_t alive = model.controls().size();
    const int action = static_cast<int>(random() % 10);
    if (created < kCreations && (alive == 0 || (action < 4 && alive < kMaximumAlive))) {
      // One creation in sixteen asks for no frames: refused, nothing registered.
      const bool refuse = random() % 16 == 0;
      const int frames = refuse ? 0 : static_cast<int>(1 + random() % 1024);
      vora_ap_control* handle = vora_ap_create_control(kRate, frames, static_cast<int>(random() % 2));
      if (refuse) {
        ASSERT_EQ(handle, nullptr) << step;
        ++refused;
      } else {
        ASSERT_NE(handle, nullptr) << step;
        model.create(handle);
        ++created;
      }
    } else if (action < 8 || created >= kCreations) {
      const size_t index = random() % alive;
      vora_ap_control* handle = model.controls()[index].handle;
      ASSERT_TRUE(vora_ap_destroy_control(handle)) << step;
      model.destroy(index);
      ASSERT_FALSE(vora_ap_destroy_control(handle)) << step; // no longer registered
    } else if (action == 8) {
      // Out-of-range values are clamped into [0, 1].
      const float value = std::uniform_real_distribution<float>(-0.5f, 1.5f)(random);
      ASSERT_TRUE(vora_ap_set_vorafication_intensity(value)) << step;
      model.setIntensity(value);
    } else {
      const bool flag = random() % 2 != 0;
      ASSERT_TRUE(vora_ap_set_bypassed(flag)) << step;
      model.setBypassed(flag);
    }
    model.expectGettersAgree(step);
    if (testing::Test::HasFatalFailure()) {
      return;
    }
  }
  EXPECT_EQ(created, kCreations);
  EXPECT_GT(refused, 0);
}

} // namespace
