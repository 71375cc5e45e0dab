// Sequences of C-interface calls decoded from the input: controls created
// with any format, destroyed, updated, fed blocks of any length and any
// sample values, and the global setters with any value. Whatever the order,
// nothing crashes, a block is refused exactly when it must be and then left
// untouched, finite input gives finite output, and the getters stay in range.
// Every input ends by destroying what it created, so inputs do not depend on
// each other.
#include <larkspin/vora_ap.h>

#include "fuzz_input.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace {

using larkspin_fuzz::FuzzInput;

constexpr size_t kMaximumControls = 4;
constexpr int kMaximumCalls = 48;
constexpr int kMaximumFrames = 2048;     // largest block a control is set up for
constexpr long kFrameBudget = 24 * 1024; // frames processed per input, all controls

constexpr int64_t kLargestHop = 256; // a quarter of the largest FFT

struct Control {
  vora_ap_control* handle = nullptr;
  int maximumFrames = 0;
  int channels = 0;
  bool setUp = true; // false after a refused update
  int64_t framesFed = 0;
  int64_t lastNonFiniteInput[2] = {-kLargestHop, -kLargestHop}; // none within a hop of the start
};

// A format as a host may ask for one; read in full whether used or not.
struct Format {
  float rate;
  int maximumFrames;
  int stereo;
};

Format anyFormat(FuzzInput& input) {
  static constexpr float kRates[] = {32000.0f,  44100.0f, 48000.0f,  88200.0f, 96000.0f,
                                     192000.0f, 31999.0f, 192001.0f, 0.0f,     -48000.0f};
  const uint8_t rateChoice = input.byte();
  const float rate = rateChoice < 200 ? kRates[rateChoice % std::size(kRates)] : input.value<float>();
  // Zero and negative frame counts are refused.
  const uint8_t framesChoice = input.byte();
  const int maximumFrames = framesChoice < 8 ? -static_cast<int>(framesChoice) : input.inRange(1, kMaximumFrames);
  return {rate, maximumFrames, input.byte() % 2};
}

// Feeds `control` a block of loud or quiet noise with an awkward value now
// and then, within what is left of `budget`.
void process(FuzzInput& input, Control& control, long& budget) {
  const int frames = input.inRange(-2, 2 * kMaximumFrames);
  if (frames > budget) {
    return;
  }
  budget -= std::max(frames, 0);
  // Always two buffers: a mono control reads only the first.
  std::vector<float> in[2], out[2];
  float* buffers[2];
  for (int ch = 0; ch < 2; ++ch) {
    in[ch].resize(static_cast<size_t>(std::max(frames, 1)));
    uint32_t seed = input.value<uint32_t>() | 1u;
    const float scale = input.byte() % 2 == 0 ? 0.9f : 1.0e6f;
    const float odd = input.awkwardFloat();
    for (float& x : in[ch]) {
      const float noise = larkspin_fuzz::nextNoise(seed) * scale;
      x = seed % 61 == 0 ? odd : noise;
    }
    out[ch] = in[ch];
    buffers[ch] = out[ch].data();
  }
  const bool ok = vora_ap_process(control.handle, buffers, frames);
  LARKSPIN_FUZZ_CHECK(ok == (control.setUp && frames >= 0 && frames <= control.maximumFrames));
  // A refused block leaves the host's buffers untouched, bit for bit (NaN
  // included); a mono control leaves the second.
  for (int ch = ok ? control.channels : 0; ch < 2; ++ch) {
    LARKSPIN_FUZZ_CHECK(std::memcmp(out[ch].data(), in[ch].data(), in[ch].size() * sizeof(float)) == 0);
  }
  // Until a payload is in force the engine passes audio through untouched,
  // behind the node's re-blocking into hops (less than one hop of delay),
  // so a non-finite input sample may come out shortly after it went in.
  // Any other non-finite sample was made by the library.
  for (int i = 0; ok && i < frames; ++i) {
    const int64_t now = control.framesFed + i;
    for (int ch = 0; ch < control.channels; ++ch) {
      if (!std::isfinite(in[ch][static_cast<size_t>(i)])) {
        control.lastNonFiniteInput[ch] = now;
      }
      LARKSPIN_FUZZ_CHECK(std::isfinite(out[ch][static_cast<size_t>(i)]) ||
                          now - control.lastNonFiniteInput[ch] < kLargestHop);
    }
  }
  control.framesFed += ok ? frames : 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  std::vector<Control> controls;
  long budget = kFrameBudget;
  for (int call = 0; call < kMaximumCalls && !input.empty(); ++call) {
    const int operation = input.byte() % 8;
    Control* control = controls.empty() ? nullptr : &controls[input.byte() % controls.size()];
    if (operation == 0 && controls.size() < kMaximumControls) {
      const Format format = anyFormat(input);
      if (vora_ap_control* handle = vora_ap_create_control(format.rate, format.maximumFrames, format.stereo)) {
        controls.push_back({handle, format.maximumFrames, format.stereo + 1});
      }
    } else if (operation == 1 && control != nullptr) {
      LARKSPIN_FUZZ_CHECK(vora_ap_destroy_control(control->handle));
      controls.erase(controls.begin() + (control - controls.data()));
    } else if (operation == 2 && control != nullptr) {
      // A refused format leaves the control torn down until the next update.
      const Format format = anyFormat(input);
      control->setUp = vora_ap_update(control->handle, format.rate, format.maximumFrames, format.stereo);
      if (control->setUp) {
        control->maximumFrames = format.maximumFrames;
        control->channels = format.stereo + 1;
      }
    } else if ((operation == 3 || operation == 4) && control != nullptr) {
      process(input, *control, budget);
    } else if (operation == 5) {
      vora_ap_set_vorafication_intensity(input.byte() % 2 ? input.awkwardFloat() : input.byte() / 255.0f);
    } else if (operation == 6) {
      vora_ap_set_bypassed(input.byte() % 2 != 0);
    } else if (operation == 7) {
      unsigned char payload[VORA_AP_PRESET_PAYLOAD_SIZE];
      input.bytes(payload, sizeof payload);
      vora_ap_apply_preset_payload(payload);
    }
    // Whatever was set, every live control reports a usable latency and the
    // intensity stays a mix ratio: NaN passes the clamp unchanged and is
    // refused by the node's range check, whose read-back then restores the
    // previous value.
    for (const Control& live : controls) {
      const float latency = vora_ap_get_processing_latency(live.handle);
      LARKSPIN_FUZZ_CHECK(std::isfinite(latency) && latency >= 0.0f);
    }
    const float intensity = vora_ap_get_vorafication_intensity();
    LARKSPIN_FUZZ_CHECK(intensity >= 0.0f && intensity <= 1.0f);
  }
  for (const Control& control : controls) {
    LARKSPIN_FUZZ_CHECK(vora_ap_destroy_control(control.handle));
  }
  return 0;
}
