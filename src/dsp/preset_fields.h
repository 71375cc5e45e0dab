// The seven values of a listener's preset, in one table: the node parameter
// that holds each, its number in the public interface, its slot in the
// engine's record, its public name and unit, what the node declares and what
// a preset may hold. Every mapping between the three numberings (parameter
// identifier, public field, record kind) is read from here.
//
// Rows follow the public field order, which is also the identifiers' order
// (identifier = public field + 1), per-channel fields first. The record keeps
// the slow delay before the slow factor; only the kind column knows that.
#pragma once

#include "dsp/vorafier_parameters.h"
#include "framework/identifiers.h"

#include <larkspin/vora_preset.h>

namespace vora {

struct PresetField {
  const char* name; // in the public interface and the JSON form
  const char* unit; // "dB", "ms", or "" for a fraction 0..1
  ParameterIdentifier id;
  vora_preset_field field;
  VorafierKind kind;
  // What the node declares: its default and closed range.
  float nodeDefault;
  float nodeMinimum;
  float nodeMaximum;
  // What a preset may hold: the node's range intersected with what the
  // payload's field carries (the gain as a 16-bit linear factor n/128,
  // n = 1..32767; thresholds in 16-bit steps of 1/128 dB; ratio and factor
  // as 8-bit fractions; times as 8-bit whole milliseconds).
  float minimum;
  float maximum;

  // Per channel, or one value per band (kept at channel 0).
  constexpr bool perChannel() const { return VorafierParameters::isPerChannel(kind); }
};

inline constexpr PresetField kPresetFields[VORA_PRESET_FIELD_COUNT] = {
    {"gainDb", "dB", ParameterIdentifier::vorafier_gain, VORA_PRESET_GAIN_DB, VorafierKind::Gain, 0.0f, -80.0f, 80.0f,
     VORA_PRESET_GAIN_DB_MIN, VORA_PRESET_GAIN_DB_MAX},
    {"fastThresholdDb", "dB", ParameterIdentifier::vorafier_fast_threshold, VORA_PRESET_FAST_THRESHOLD_DB,
     VorafierKind::FastThreshold, 0.0f, -999.0f, 0.0f, VORA_PRESET_THRESHOLD_DB_MIN, VORA_PRESET_THRESHOLD_DB_MAX},
    {"fastRatio", "", ParameterIdentifier::vorafier_fast_ratio, VORA_PRESET_FAST_RATIO, VorafierKind::FastRatio, 0.2f,
     0.0f, 1.0f, 0.0f, 1.0f},
    {"slowThresholdDb", "dB", ParameterIdentifier::vorafier_slow_threshold, VORA_PRESET_SLOW_THRESHOLD_DB,
     VorafierKind::SlowThreshold, -40.0f, -999.0f, 0.0f, VORA_PRESET_THRESHOLD_DB_MIN, VORA_PRESET_THRESHOLD_DB_MAX},
    {"slowFactor", "", ParameterIdentifier::vorafier_slow_factor, VORA_PRESET_SLOW_FACTOR, VorafierKind::SlowFactor,
     0.85f, 0.0f, 1.0f, 0.0f, 1.0f},
    {"slowDelayMs", "ms", ParameterIdentifier::vorafier_slow_delay, VORA_PRESET_SLOW_DELAY_MS, VorafierKind::SlowDelay,
     10.0f, 0.0f, 500.0f, 0.0f, VORA_PRESET_TIME_MS_MAX},
    {"slowTimeConstantMs", "ms", ParameterIdentifier::vorafier_slow_time_constant, VORA_PRESET_SLOW_TIME_CONSTANT_MS,
     VorafierKind::SlowTimeConstant, 50.0f, 0.0f, 500.0f, 0.0f, VORA_PRESET_TIME_MS_MAX},
};

// The row order the rest relies on: row i is public field i and identifier
// i + 1, the per-channel rows come first, and a preset's range lies inside
// the node's.
constexpr bool presetFieldRowsInOrder() {
  bool sharedSeen = false;
  for (int i = 0; i < VORA_PRESET_FIELD_COUNT; ++i) {
    const PresetField& row = kPresetFields[i];
    const bool inside = row.nodeMinimum <= row.minimum && row.maximum <= row.nodeMaximum;
    if (row.field != i || static_cast<int>(row.id) != i + 1 || (sharedSeen && row.perChannel()) || !inside) {
      return false;
    }
    sharedSeen = sharedSeen || !row.perChannel();
  }
  return true;
}
static_assert(presetFieldRowsInOrder());

} // namespace vora
