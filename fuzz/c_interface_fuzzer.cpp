// Sequences of C-interface calls decoded from the input: controls created
// with any format, destroyed, updated, fed blocks of any length and any
// sample values, and the global setters with any value. After every call
// every live control still answers and the registry's getters agree with a
// model of it. Every input ends by destroying what it created, so inputs do
// not depend on each other.
#include <larkspin/vora_ap.h>

#include "fuzz_check.h"
#include "fuzz_input.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

namespace {

constexpr int kMaximumControls = 4;
constexpr int kMaximumCalls = 48;
constexpr int kMaximumFrames = 2048;     // largest block a control is set up for
constexpr long kFrameBudget = 24 * 1024; // frames processed per input, all controls

constexpr int64_t kLargestHop = 256; // a quarter of the largest FFT
constexpr int64_t kNever = -(int64_t{1} << 40);

struct Control {
  vora_ap_control* handle = nullptr;
  int maximumFrames = 0;
  int channels = 0;
  bool setUp = false;
  int64_t framesFed = 0;
  int64_t lastNonFiniteInput[2] = {kNever, kNever};
};

float anyRate(larkspin_fuzz::FuzzInput& input) {
  static constexpr float kRates[] = {32000.0f,  44100.0f, 48000.0f,  88200.0f, 96000.0f,
                                     192000.0f, 31999.0f, 192001.0f, 0.0f,     -48000.0f};
  const uint8_t choice = input.byte();
  if (choice < 200) {
    return kRates[choice % (sizeof kRates / sizeof kRates[0])];
  }
  return input.value<float>();
}

int anyMaximumFrames(larkspin_fuzz::FuzzInput& input) {
  const uint8_t choice = input.byte();
  if (choice < 8) {
    return -static_cast<int>(choice); // zero and negative counts are refused
  }
  return input.inRange(1, kMaximumFrames);
}

float anyFloat(larkspin_fuzz::FuzzInput& input) {
  using limits = std::numeric_limits<float>;
  static constexpr float kAwkward[] = {limits::quiet_NaN(), limits::infinity(),   -limits::infinity(),
                                       limits::max(),       limits::denorm_min(), 1.0e6f};
  const uint8_t choice = input.byte() % 10;
  if (choice < 6) {
    return kAwkward[choice];
  }
  return choice == 6 ? static_cast<float>(input.byte()) / 255.0f : input.value<float>();
}

void fill(larkspin_fuzz::FuzzInput& input, std::vector<float>& samples) {
  const uint8_t kind = input.byte() % 4;
  if (kind == 0) {
    // Raw values straight from the input, repeated.
    float pattern[16];
    input.bytes(pattern, sizeof pattern);
    for (size_t i = 0; i < samples.size(); ++i) {
      samples[i] = pattern[i % 16];
    }
    return;
  }
  uint32_t seed = input.value<uint32_t>() | 1u;
  const float odd = anyFloat(input);
  const float amplitude = kind == 1 ? 1.0e6f : 0.9f;
  for (float& x : samples) {
    const float noise = larkspin_fuzz::nextNoise(seed);
    x = kind == 3 && seed % 61 == 0 ? odd : noise * amplitude;
  }
}

class Session {
public:
  ~Session() {
    for (const Control& control : controls_) {
      LARKSPIN_FUZZ_CHECK(vora_ap_destroy_control(control.handle));
    }
  }

  void run(larkspin_fuzz::FuzzInput& input) {
    for (int call = 0; call < kMaximumCalls && !input.empty(); ++call) {
      step(input);
      checkAll();
    }
  }

private:
  Control* pick(larkspin_fuzz::FuzzInput& input) {
    const uint8_t index = input.byte();
    return controls_.empty() ? nullptr : &controls_[index % controls_.size()];
  }

  void step(larkspin_fuzz::FuzzInput& input) {
    switch (input.byte() % 9) {
    case 0:
      create(input);
      break;
    case 1:
      destroy(input);
      break;
    case 2:
      update(input);
      break;
    case 3:
    case 4:
      process(input);
      break;
    case 5:
      vora_ap_set_vorafication_intensity(anyFloat(input));
      break;
    case 6:
      vora_ap_set_bypassed(input.byte() % 2 != 0);
      break;
    case 7: {
      unsigned char payload[VORA_AP_PRESET_PAYLOAD_SIZE];
      input.bytes(payload, sizeof payload);
      const bool applied = vora_ap_apply_preset_payload(payload);
      LARKSPIN_FUZZ_CHECK(controls_.empty() ? !applied : true);
      break;
    }
    default:
      // The per-handle functions with a null handle do nothing.
      LARKSPIN_FUZZ_CHECK(!vora_ap_update(nullptr, 48000.0f, 256, 1));
      LARKSPIN_FUZZ_CHECK(!vora_ap_process(nullptr, nullptr, 16));
      LARKSPIN_FUZZ_CHECK(vora_ap_get_processing_latency(nullptr) == 0.0f);
      LARKSPIN_FUZZ_CHECK(vora_ap_destroy_control(nullptr));
      break;
    }
  }

  // A format as a host may ask for one; read in full whether used or not.
  struct Format {
    float rate;
    int maximumFrames;
    int stereo;
  };
  static Format anyFormat(larkspin_fuzz::FuzzInput& input) {
    const float rate = anyRate(input);
    const int maximumFrames = anyMaximumFrames(input);
    return {rate, maximumFrames, input.byte() % 2};
  }

  void create(larkspin_fuzz::FuzzInput& input) {
    const Format format = anyFormat(input);
    if (controls_.size() >= kMaximumControls) {
      return;
    }
    vora_ap_control* handle = vora_ap_create_control(format.rate, format.maximumFrames, format.stereo);
    if (handle != nullptr) {
      controls_.push_back({handle, format.maximumFrames, format.stereo + 1, true, 0, {kNever, kNever}});
    }
  }

  void destroy(larkspin_fuzz::FuzzInput& input) {
    Control* control = pick(input);
    if (control == nullptr) {
      return;
    }
    LARKSPIN_FUZZ_CHECK(vora_ap_destroy_control(control->handle));
    controls_.erase(controls_.begin() + (control - controls_.data()));
  }

  void update(larkspin_fuzz::FuzzInput& input) {
    Control* control = pick(input);
    const Format format = anyFormat(input);
    if (control == nullptr) {
      return;
    }
    // A refused format leaves the control torn down until the next update.
    control->setUp = vora_ap_update(control->handle, format.rate, format.maximumFrames, format.stereo);
    if (control->setUp) {
      control->maximumFrames = format.maximumFrames;
      control->channels = format.stereo + 1;
    }
  }

  void process(larkspin_fuzz::FuzzInput& input) {
    Control* control = pick(input);
    const int frames = input.inRange(-2, 2 * kMaximumFrames);
    if (control == nullptr || frames > budget_) {
      return;
    }
    budget_ -= frames > 0 ? frames : 0;
    const size_t length = frames > 0 ? static_cast<size_t>(frames) : 1u;
    // Always two buffers: a mono control reads only the first.
    left_.assign(length, 0.0f);
    right_.assign(length, 0.0f);
    fill(input, left_);
    fill(input, right_);
    const std::vector<float> leftIn = left_;
    const std::vector<float> rightIn = right_;
    float* buffers[2] = {left_.data(), right_.data()};
    const bool ok = vora_ap_process(control->handle, buffers, frames);
    const bool expected = control->setUp && frames >= 0 && frames <= control->maximumFrames;
    LARKSPIN_FUZZ_CHECK(ok == expected);
    if (!ok) {
      // A refused block leaves the host's buffers untouched.
      LARKSPIN_FUZZ_CHECK(std::memcmp(left_.data(), leftIn.data(), length * sizeof(float)) == 0);
      LARKSPIN_FUZZ_CHECK(std::memcmp(right_.data(), rightIn.data(), length * sizeof(float)) == 0);
      return;
    }
    // Until a payload is in force the engine passes audio through untouched,
    // behind the node's re-blocking into hops (less than one hop of delay),
    // so a non-finite input sample may come out shortly after it went in.
    // Any other non-finite sample was made by the library.
    for (size_t i = 0; i < static_cast<size_t>(frames); ++i) {
      const int64_t now = control->framesFed + static_cast<int64_t>(i);
      const float* in[2] = {&leftIn[i], &rightIn[i]};
      const float* out[2] = {&left_[i], &right_[i]};
      for (int ch = 0; ch < control->channels; ++ch) {
        if (!std::isfinite(*in[ch])) {
          control->lastNonFiniteInput[ch] = now;
        }
        LARKSPIN_FUZZ_CHECK(std::isfinite(*out[ch]) || now - control->lastNonFiniteInput[ch] < kLargestHop);
      }
    }
    control->framesFed += frames;
    if (control->channels == 1) {
      LARKSPIN_FUZZ_CHECK(std::memcmp(right_.data(), rightIn.data(), length * sizeof(float)) == 0);
    }
  }

  // Every live control answers, and the global getters speak for the oldest.
  void checkAll() {
    for (const Control& control : controls_) {
      const float latency = vora_ap_get_processing_latency(control.handle);
      LARKSPIN_FUZZ_CHECK(std::isfinite(latency) && latency >= 0.0f);
      const vora_ap_debug_info info = vora_ap_get_debug_info(control.handle);
      LARKSPIN_FUZZ_CHECK(std::isfinite(info.timeSpentProcessingMs) && info.timeSpentProcessingMs >= 0.0);
    }
    if (controls_.empty()) {
      LARKSPIN_FUZZ_CHECK(vora_ap_get_lib_version() == nullptr);
      LARKSPIN_FUZZ_CHECK(vora_ap_get_tech_level() == 0);
      LARKSPIN_FUZZ_CHECK(vora_ap_get_vorafication_intensity() == 0.0f);
      LARKSPIN_FUZZ_CHECK(!vora_ap_get_bypassed());
      return;
    }
    const float intensity = vora_ap_get_vorafication_intensity();
    // NaN passes the clamp unchanged and is refused by the node's range
    // check, whose read-back then restores the previous value.
    LARKSPIN_FUZZ_CHECK(intensity >= 0.0f && intensity <= 1.0f);
    if (controls_.front().setUp) {
      LARKSPIN_FUZZ_CHECK(vora_ap_get_tech_level() == 4);
      const char* version = vora_ap_get_lib_version();
      LARKSPIN_FUZZ_CHECK(version != nullptr && std::strcmp(version, "pex-1.5.0-ne10_neon") == 0);
    }
  }

  std::vector<Control> controls_;
  std::vector<float> left_, right_;
  long budget_ = kFrameBudget;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  larkspin_fuzz::FuzzInput input(data, size);
  Session session;
  session.run(input);
  return 0;
}
