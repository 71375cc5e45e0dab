// The engine's parameter record: one leading level word and thirteen band
// records of ten floats, 131 floats in all, in the fixed order the preset
// payload decodes into.
#pragma once

#include "dsp/engine_constants.h"

#include <array>
#include <cstddef>

namespace vora {

inline constexpr int kControlledBandCount = 13; // bands 0..12 have a gain computer
inline constexpr int kBandCount = 14;           // band 13 passes at unity

// One parameter kind across all bands. Fast threshold, fast ratio and gain
// exist per channel; the slow kinds have one slot shared by both channels.
enum class VorafierKind {
  FastThreshold,    // dB
  FastRatio,        // output slope above the threshold, 0..1
  SlowThreshold,    // dB
  SlowDelay,        // ms
  SlowFactor,       // 0..1
  SlowTimeConstant, // ms
  Gain,             // dB
};

// Field order is part of the record's layout: the slow delay deliberately
// precedes the slow factor.
struct VorafierBandRecord {
  float fastThresholdDb0;
  float fastRatio0;
  float fastThresholdDb1;
  float fastRatio1;
  float slowThresholdDb;
  float slowDelayMs;
  float slowFactor;
  float slowTimeConstantMs;
  float gainDb0;
  float gainDb1;

  float fastThresholdDb(int channel) const { return channel == 0 ? fastThresholdDb0 : fastThresholdDb1; }
  float fastRatio(int channel) const { return channel == 0 ? fastRatio0 : fastRatio1; }
  float gainDb(int channel) const { return channel == 0 ? gainDb0 : gainDb1; }
};

struct VorafierParameters {
  float level = 1.0f; // decoded from the payload, not used by the processing
  std::array<VorafierBandRecord, kControlledBandCount> bands{};

  VorafierParameters();

  static constexpr bool isPerChannel(VorafierKind kind) {
    return kind == VorafierKind::FastThreshold || kind == VorafierKind::FastRatio || kind == VorafierKind::Gain;
  }

  // The slot of `kind` for `channel` in `band` (channel is ignored for the
  // shared slow kinds).
  float& slot(VorafierKind kind, int channel, int band);
  float slot(VorafierKind kind, int channel, int band) const;

  // Writes thirteen values (band 0 first) of one kind, for one channel or,
  // with a negative channel, for both channel slots.
  void set(VorafierKind kind, int channel, const float* values);
  // Reads the thirteen values of one kind and channel.
  void get(VorafierKind kind, int channel, float* values) const;

  // Whole-record comparison, bit for bit over all 131 floats.
  bool operator==(const VorafierParameters& other) const;
};

static_assert(sizeof(VorafierBandRecord) == 10 * sizeof(float));
static_assert(sizeof(VorafierParameters) == 131 * sizeof(float));

} // namespace vora
