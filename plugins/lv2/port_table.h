// The plugin's ports, in index order, for the mono and the stereo plugin. The
// Turtle description is generated from this table at build time, so the
// binary and its description cannot disagree.
#pragma once

#include <larkspin/vora_preset.h>

#include <cstdint>
#include <cstdio>

namespace larkspin_lv2 {

inline constexpr const char* kMonoUri = "urn:larkspin:lv2:mono";
inline constexpr const char* kStereoUri = "urn:larkspin:lv2:stereo";
inline constexpr const char* kPresetParameterUri = "urn:larkspin:lv2:preset";
inline constexpr const char* kPayloadStateUri = "urn:larkspin:lv2:payload";
inline constexpr const char* kPathStateUri = "urn:larkspin:lv2:path";

// Fixed ports; the preset value ports follow, then the audio ports.
enum FixedPort : uint32_t {
  kControlPort = 0, // atom input: patch messages that set the preset file
  kIntensityPort = 1,
  kEnabledPort = 2,
  kLatencyPort = 3,
  kFixedPortCount = 4
};

// One preset value per port: per band, the three per-channel fields of both
// channels, then the four per-band slow fields.
inline constexpr int kChannelFieldCount = 3;
inline constexpr int kBandFieldCount = 4;
inline constexpr int kPortsPerBand = VORA_PRESET_CHANNEL_COUNT * kChannelFieldCount + kBandFieldCount;
inline constexpr int kPresetPortCount = VORA_PRESET_BAND_COUNT * kPortsPerBand;
inline constexpr uint32_t kFirstPresetPort = kFixedPortCount;
inline constexpr uint32_t kFirstAudioPort = kFirstPresetPort + kPresetPortCount;

inline uint32_t portCount(int channels) {
  return kFirstAudioPort + 2 * static_cast<uint32_t>(channels);
}
// Audio ports: input then output for channel 0, then for channel 1.
inline uint32_t audioInputPort(int channel) {
  return kFirstAudioPort + 2 * static_cast<uint32_t>(channel);
}
inline uint32_t audioOutputPort(int channel) {
  return audioInputPort(channel) + 1;
}

// Where preset value port `index` (0 .. kPresetPortCount-1) lives in a preset.
struct PresetPortField {
  int band;
  int channel; // -1 for the per-band slow fields
  vora_preset_field field;
};

inline PresetPortField presetPortField(int index) {
  const int band = index / kPortsPerBand;
  const int within = index % kPortsPerBand;
  const int channelFields = VORA_PRESET_CHANNEL_COUNT * kChannelFieldCount;
  if (within < channelFields) {
    return {band, within / kChannelFieldCount, static_cast<vora_preset_field>(within % kChannelFieldCount)};
  }
  return {band, -1, static_cast<vora_preset_field>(VORA_PRESET_SLOW_THRESHOLD_DB + within - channelFields)};
}

inline float* presetValue(vora_preset& preset, const PresetPortField& where) {
  return vora_preset_value(&preset, where.band, where.channel, where.field);
}

// Port symbol of preset value port `index`, e.g. "b03_gain_db_l",
// "b03_slow_factor": short enough to type in a command-line host. Units and
// ranges are those of vora_preset.h. bNN_slow_factor is the slow gain's
// feedback factor f (0..1, 0 = off): the gain is -f times the band's level
// over bNN_slow_threshold_db after the fast stage, a level that includes the
// gain itself, so a steady band above the threshold settles at an output
// slope of 1 / (1 + f) dB per dB (0.2: 0.83, 0.5: 0.67, 1: 0.5), and at
// r / (1 + f r) above a fast threshold of ratio r.
inline constexpr const char* kFieldSymbols[VORA_PRESET_FIELD_COUNT] = {
    "gain_db",     "fast_threshold_db", "fast_ratio",           "slow_threshold_db",
    "slow_factor", "slow_delay_ms",     "slow_time_constant_ms"};

struct PortSymbol {
  char text[40];
};

inline PortSymbol presetPortSymbol(int index) {
  const PresetPortField where = presetPortField(index);
  PortSymbol symbol{};
  const char* suffix = where.channel < 0 ? "" : (where.channel == 0 ? "_l" : "_r");
  std::snprintf(symbol.text, sizeof symbol.text, "b%02d_%s%s", where.band, kFieldSymbols[where.field], suffix);
  return symbol;
}

struct Range {
  float minimum;
  float maximum;
};

inline Range presetFieldRange(vora_preset_field field) {
  switch (field) {
  case VORA_PRESET_GAIN_DB:
    return {VORA_PRESET_GAIN_DB_MIN, VORA_PRESET_GAIN_DB_MAX};
  case VORA_PRESET_FAST_THRESHOLD_DB:
  case VORA_PRESET_SLOW_THRESHOLD_DB:
    return {VORA_PRESET_THRESHOLD_DB_MIN, VORA_PRESET_THRESHOLD_DB_MAX};
  case VORA_PRESET_FAST_RATIO:
  case VORA_PRESET_SLOW_FACTOR:
    return {0.0f, 1.0f};
  case VORA_PRESET_SLOW_DELAY_MS:
  case VORA_PRESET_SLOW_TIME_CONSTANT_MS:
    return {0.0f, VORA_PRESET_TIME_MS_MAX};
  }
  return {0.0f, 1.0f};
}

} // namespace larkspin_lv2
