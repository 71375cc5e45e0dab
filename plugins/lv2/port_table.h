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
//
// There is no port with the lv2:enabled designation: hosts that leave such a
// port at 0 (GStreamer shows a toggle's default as false, ecasound sets every
// value not given to 0) would bypass the plugin without being asked. The
// bypass port is the other way round, so 0 processes; hosts with a bypass of
// their own use it for this plugin as for any other without lv2:enabled.
enum FixedPort : uint32_t {
  kControlPort = 0, // atom input: patch messages that set the preset file
  kIntensityPort = 1,
  kBypassPort = 2,
  kLatencyPort = 3,
  kFixedPortCount = 4
};

// One preset value per port: per band, the three per-channel fields of each
// channel the plugin has (the mono plugin only channel 0's), then the four
// per-band slow fields.
inline constexpr int kChannelFieldCount = 3;
inline constexpr int kBandFieldCount = 4;
inline constexpr int portsPerBand(int channels) {
  return channels * kChannelFieldCount + kBandFieldCount;
}
inline constexpr int presetPortCount(int channels) {
  return VORA_PRESET_BAND_COUNT * portsPerBand(channels);
}
inline constexpr int kMaximumPresetPortCount = presetPortCount(VORA_PRESET_CHANNEL_COUNT);
inline constexpr uint32_t kFirstPresetPort = kFixedPortCount;

inline constexpr uint32_t firstAudioPort(int channels) {
  return kFirstPresetPort + static_cast<uint32_t>(presetPortCount(channels));
}
inline constexpr uint32_t portCount(int channels) {
  return firstAudioPort(channels) + 2 * static_cast<uint32_t>(channels);
}
// Audio ports: input then output for channel 0, then for channel 1.
inline constexpr uint32_t audioInputPort(int channels, int channel) {
  return firstAudioPort(channels) + 2 * static_cast<uint32_t>(channel);
}
inline constexpr uint32_t audioOutputPort(int channels, int channel) {
  return audioInputPort(channels, channel) + 1;
}

// Where preset value port `index` (0 .. presetPortCount(channels)-1) of the
// plugin with `channels` channels lives in a preset.
struct PresetPortField {
  int band;
  int channel; // -1 for the per-band slow fields
  vora_preset_field field;
};

inline PresetPortField presetPortField(int index, int channels) {
  const int band = index / portsPerBand(channels);
  const int within = index % portsPerBand(channels);
  const int channelFields = channels * kChannelFieldCount;
  if (within < channelFields) {
    return {band, within / kChannelFieldCount, static_cast<vora_preset_field>(within % kChannelFieldCount)};
  }
  return {band, -1, static_cast<vora_preset_field>(VORA_PRESET_SLOW_THRESHOLD_DB + within - channelFields)};
}

inline float* presetValue(vora_preset& preset, const PresetPortField& where) {
  return vora_preset_value(&preset, where.band, where.channel, where.field);
}

// Port symbol of preset value port `index`, e.g. "b03_gain_db_l" (stereo),
// "b03_gain_db" (mono), "b03_slow_factor": short enough to type in a
// command-line host. Units and ranges are those of vora_preset.h.
// bNN_slow_factor is the slow gain's feedback factor f (0..1, 0 = off): the
// gain is -f times the band's level over bNN_slow_threshold_db after the fast
// stage, a level that includes the gain itself, so a steady band above the
// threshold settles at an output slope of 1 / (1 + f) dB per dB (0.2: 0.83,
// 0.5: 0.67, 1: 0.5), and at r / (1 + f r) above a fast threshold of ratio r.
inline constexpr const char* kFieldSymbols[VORA_PRESET_FIELD_COUNT] = {
    "gain_db",     "fast_threshold_db", "fast_ratio",           "slow_threshold_db",
    "slow_factor", "slow_delay_ms",     "slow_time_constant_ms"};

struct PortSymbol {
  char text[40];
};

inline PortSymbol presetPortSymbol(int index, int channels) {
  const PresetPortField where = presetPortField(index, channels);
  PortSymbol symbol{};
  const char* suffix = where.channel < 0 || channels == 1 ? "" : (where.channel == 0 ? "_l" : "_r");
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
