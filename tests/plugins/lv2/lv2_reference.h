// What the plugin must produce: the library driven directly through its C++
// facade with the same preset, intensity and blocking.
#pragma once

#include <larkspin/generic_audio_processor.h>
#include <larkspin/vora_preset.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <random>
#include <vector>

namespace larkspin_test {

// The tests load the bundle of this build unless LV2_PATH names another
// place (an installed bundle); the hosts they start inherit the setting.
inline const bool kLv2PathSet = setenv("LV2_PATH", LV2_BUNDLE_PARENT, 0) == 0;

using Planar = std::vector<std::vector<float>>;
using PresetPayload = std::array<unsigned char, VORA_AP_PRESET_PAYLOAD_SIZE>;

inline Planar noise(int channels, size_t frames, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> level(-0.5f, 0.5f);
  Planar out(static_cast<size_t>(channels), std::vector<float>(frames));
  for (auto& channel : out) {
    std::generate(channel.begin(), channel.end(), [&] { return level(random); });
  }
  return out;
}

// The default preset with some values changed: audibly not the default.
struct Edit {
  int band;
  int channel; // -1 for the per-band slow fields
  vora_preset_field field;
  float value;
};
inline PresetPayload editedPreset(const std::vector<Edit>& edits) {
  vora_preset preset;
  vora_preset_default(&preset);
  for (const Edit& e : edits) {
    *vora_preset_value(&preset, e.band, e.channel, e.field) = e.value;
  }
  PresetPayload payload{};
  vora_preset_encode(&preset, payload.data(), nullptr, 0, nullptr);
  return payload;
}

// The plugin feeds the library whole chunks of a quarter of the FFT size.
inline size_t chunkFrames(float sampleRate) {
  vora_band_info bands[VORA_BAND_COUNT];
  return static_cast<size_t>(vora_preset_band_layout(sampleRate, bands) / 4);
}

// A call made on the library once the host has handed over `afterFrames`.
struct Change {
  size_t afterFrames;
  std::function<void(vora::GenericAudioProcessor&)> call;
};
inline Change presetAt(size_t afterFrames, PresetPayload payload) {
  return {afterFrames, [payload](vora::GenericAudioProcessor& p) mutable { p.applyPresetPayload(payload.data()); }};
}

// The plugin delays by one chunk more than the library, so its output is the
// same for every host blocking; a change made between host blocks takes
// effect with the first chunk completed after it. The default preset is in
// force from the start.
inline Planar referenceOutput(Planar signal, float sampleRate, const std::vector<Change>& changes) {
  const size_t chunk = chunkFrames(sampleRate);
  vora::GenericAudioProcessor processor;
  processor.setup(sampleRate, static_cast<int>(chunk), static_cast<int>(signal.size()));
  processor.setVoraficationIntensity(1.0f);
  processor.applyPresetPayload(editedPreset({}).data());
  const size_t frames = signal[0].size();
  for (size_t start = 0; start + chunk <= frames; start += chunk) {
    for (const Change& change : changes) {
      if (change.afterFrames / chunk == start / chunk) {
        change.call(processor);
      }
    }
    float* pointers[2] = {signal[0].data() + start, signal.back().data() + start};
    processor.process(pointers, static_cast<int>(chunk));
  }
  for (auto& channel : signal) {
    channel.insert(channel.begin(), chunk, 0.0f);
    channel.resize(frames);
  }
  return signal;
}

// Largest difference of `actual` from `expected`; throws if `actual` is
// short of a channel or a sample.
inline float maxDifference(const Planar& actual, const Planar& expected) {
  float worst = 0.0f;
  for (size_t c = 0; c < expected.size(); ++c) {
    for (size_t i = 0; i < expected[c].size(); ++i) {
      worst = std::max(worst, std::abs(actual.at(c).at(i) - expected[c][i]));
    }
  }
  return worst;
}

} // namespace larkspin_test
