// Presets as plain values: the default, decoding, checking and encoding of
// payloads, through the engine's own codec so that what is reported as
// stored is exactly what the payload carries.
#include <larkspin/vora_preset.h>

#include "dsp/payload_codec.h"
#include "dsp/preset_fields.h"
#include "dsp/vorafier_parameters.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace {

using vora::kPresetFields;
using vora::PresetField;
using vora::VorafierParameters;

static_assert(VORA_PRESET_BAND_COUNT == vora::kControlledBandCount);
static_assert(VORA_PRESET_CHANNEL_COUNT == vora::kMaxChannels);
static_assert(VORA_BAND_COUNT == vora::kBandCount);
static_assert(VORA_AP_PRESET_PAYLOAD_SIZE == vora::kPresetPayloadSize);

float& valueOf(vora_preset_band& band, int channel, int field) {
  switch (field) {
  case VORA_PRESET_GAIN_DB:
    return band.channels[channel].gainDb;
  case VORA_PRESET_FAST_THRESHOLD_DB:
    return band.channels[channel].fastThresholdDb;
  case VORA_PRESET_FAST_RATIO:
    return band.channels[channel].fastRatio;
  case VORA_PRESET_SLOW_THRESHOLD_DB:
    return band.slowThresholdDb;
  case VORA_PRESET_SLOW_FACTOR:
    return band.slowFactor;
  case VORA_PRESET_SLOW_DELAY_MS:
    return band.slowDelayMs;
  default:
    return band.slowTimeConstantMs;
  }
}

float valueOf(const vora_preset_band& band, int channel, int field) {
  return valueOf(const_cast<vora_preset_band&>(band), channel, field);
}

// Visits every value in report order: per band channel 0, channel 1, then
// the per-band fields with channel -1.
template <typename Visit> void forEachValue(Visit&& visit) {
  for (int band = 0; band < VORA_PRESET_BAND_COUNT; ++band) {
    for (int channel = 0; channel < VORA_PRESET_CHANNEL_COUNT; ++channel) {
      for (const PresetField& row : kPresetFields) {
        if (row.perChannel()) {
          visit(band, channel, row);
        }
      }
    }
    for (const PresetField& row : kPresetFields) {
      if (!row.perChannel()) {
        visit(band, -1, row);
      }
    }
  }
}

VorafierParameters toParameters(const vora_preset& preset) {
  VorafierParameters parameters;
  parameters.level = 1.0f;
  forEachValue([&](int band, int channel, const PresetField& row) {
    parameters.slot(row.kind, std::max(channel, 0), band) =
        valueOf(preset.bands[band], std::max(channel, 0), row.field);
  });
  return parameters;
}

vora_preset fromParameters(const VorafierParameters& parameters) {
  vora_preset preset;
  forEachValue([&](int band, int channel, const PresetField& row) {
    valueOf(preset.bands[band], std::max(channel, 0), row.field) =
        parameters.slot(row.kind, std::max(channel, 0), band);
  });
  return preset;
}

bool allowed(float value, const PresetField& row) {
  return value >= row.minimum && value <= row.maximum; // false for NaN
}

// Quantisation below this relative size is float noise of the conversion,
// not a change worth reporting.
bool changedByQuantisation(float value, float stored) {
  return std::fabs(value - stored) > 1e-5f * std::max(1.0f, std::fabs(value));
}

// Checks `preset` and, through the codec, finds what the payload carries for
// it; `payload` receives the encoded bytes whatever the outcome.
int checkInto(const vora_preset& preset, vora_preset_issue* issues, int capacity, int* issueCount,
              unsigned char* payload) {
  vora::encodePresetPayload(toParameters(preset), payload);
  VorafierParameters stored;
  vora::decodePresetPayload(payload, stored);

  int refused = 0;
  int count = 0;
  forEachValue([&](int band, int channel, const PresetField& row) {
    const float value = valueOf(preset.bands[band], std::max(channel, 0), row.field);
    vora_preset_issue issue{VORA_PRESET_REFUSED,
                            band,
                            channel,
                            row.field,
                            value,
                            row.minimum,
                            row.maximum,
                            std::numeric_limits<float>::quiet_NaN()};
    // A value the field cannot hold wraps around in the payload and comes
    // back as something else entirely, or not finite; never keep it.
    const float kept = stored.slot(row.kind, std::max(channel, 0), band);
    if (allowed(value, row) && allowed(kept, row)) {
      if (!changedByQuantisation(value, kept)) {
        return;
      }
      issue.kind = VORA_PRESET_ROUNDED;
      issue.stored = kept;
    } else {
      ++refused;
    }
    if (count < capacity) {
      issues[count] = issue;
    }
    ++count;
  });
  if (issueCount != nullptr) {
    *issueCount = count;
  }
  return refused;
}

bool badIssueArguments(const vora_preset* preset, const vora_preset_issue* issues, int capacity) {
  return preset == nullptr || capacity < 0 || (issues == nullptr && capacity > 0);
}

} // namespace

extern "C" {

float* vora_preset_value(vora_preset* preset, int band, int channel, vora_preset_field field) {
  const int index = static_cast<int>(field);
  if (preset == nullptr || band < 0 || band >= VORA_PRESET_BAND_COUNT || index < 0 ||
      index >= VORA_PRESET_FIELD_COUNT) {
    return nullptr;
  }
  const bool perChannel = kPresetFields[index].perChannel();
  if (perChannel && (channel < 0 || channel >= VORA_PRESET_CHANNEL_COUNT)) {
    return nullptr;
  }
  return &valueOf(preset->bands[band], perChannel ? channel : 0, index);
}

const char* vora_preset_field_name(vora_preset_field field) {
  const int index = static_cast<int>(field);
  return index >= 0 && index < VORA_PRESET_FIELD_COUNT ? kPresetFields[index].name : nullptr;
}

bool vora_preset_default(vora_preset* preset) {
  if (preset == nullptr) {
    return false;
  }
  constexpr float kGainsDb[VORA_PRESET_BAND_COUNT] = {1, 0, 0, -1, -1, -1, 0, 4, 4, 4, 3, 2, 2};
  vora_preset wanted;
  for (int band = 0; band < VORA_PRESET_BAND_COUNT; ++band) {
    vora_preset_band& values = wanted.bands[band];
    for (vora_preset_channel& channel : values.channels) {
      channel = {kGainsDb[band], -20.0f, 0.5f};
    }
    values.slowThresholdDb = -40.0f;
    values.slowFactor = 0.2f;
    values.slowDelayMs = 20.0f;
    values.slowTimeConstantMs = 200.0f;
  }
  // Hand out what a payload holds, so that the default survives encoding
  // and decoding unchanged.
  unsigned char payload[vora::kPresetPayloadSize];
  vora::encodePresetPayload(toParameters(wanted), payload);
  VorafierParameters stored;
  vora::decodePresetPayload(payload, stored);
  *preset = fromParameters(stored);
  return true;
}

bool vora_preset_decode(const unsigned char* payload, vora_preset* preset) {
  if (payload == nullptr || preset == nullptr) {
    return false;
  }
  VorafierParameters parameters;
  vora::decodePresetPayload(payload, parameters);
  *preset = fromParameters(parameters);
  return true;
}

int vora_preset_check(const vora_preset* preset, vora_preset_issue* issues, int capacity, int* issueCount) {
  if (badIssueArguments(preset, issues, capacity)) {
    return -1;
  }
  unsigned char scratch[vora::kPresetPayloadSize];
  return checkInto(*preset, issues, capacity, issueCount, scratch);
}

int vora_preset_encode(const vora_preset* preset, unsigned char* payload, vora_preset_issue* issues, int capacity,
                       int* issueCount) {
  if (badIssueArguments(preset, issues, capacity) || payload == nullptr) {
    return -1;
  }
  unsigned char encoded[vora::kPresetPayloadSize];
  const int refused = checkInto(*preset, issues, capacity, issueCount, encoded);
  if (refused == 0) {
    std::copy(encoded, encoded + vora::kPresetPayloadSize, payload);
  }
  return refused;
}

int vora_preset_format_issue(const vora_preset_issue* issue, char* text, size_t capacity) {
  if (issue == nullptr || (text == nullptr && capacity > 0)) {
    return -1;
  }
  char where[64];
  const char* name = vora_preset_field_name(issue->field);
  const char* known = name != nullptr ? name : "unknown field";
  if (issue->channel >= 0) {
    std::snprintf(where, sizeof where, "band %d, channel %d, %s", issue->band, issue->channel, known);
  } else {
    std::snprintf(where, sizeof where, "band %d, %s", issue->band, known);
  }
  const double value = issue->value;
  if (issue->kind == VORA_PRESET_ROUNDED) {
    return std::snprintf(text, capacity, "%s = %g is stored as %g", where, value, static_cast<double>(issue->stored));
  }
  if (std::isnan(value)) {
    return std::snprintf(text, capacity, "%s is not a number", where);
  }
  return std::snprintf(text, capacity, "%s = %g is outside the allowed range %g to %g", where, value,
                       static_cast<double>(issue->minimum), static_cast<double>(issue->maximum));
}

} // extern "C"
