#include "larkspin/preset_file.h"

#include "larkspin/tool_error.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>

namespace larkspin_tool {

using vora::kControlledBandCount;
using vora::VorafierKind;
using vora::VorafierParameters;

namespace {

constexpr double kFirstEdgeHz = 210.224103813429; // bands are half an octave wide above it

struct FieldInfo {
  const char* key;
  VorafierKind kind;
  double minimum; // what both the library and the payload accept
  double maximum;
};

// The node's ranges intersected with what the payload can represent:
// gains are stored as a 16-bit linear factor (1..32767)/128, thresholds as
// 16-bit dB/128, ratios and factors as 8-bit fractions, times as 8-bit ms.
const FieldInfo kChannelFields[] = {
    {"gainDb", VorafierKind::Gain, -42.14, 48.16},
    {"fastThresholdDb", VorafierKind::FastThreshold, -256.0, 0.0},
    {"fastRatio", VorafierKind::FastRatio, 0.0, 1.0},
};
const FieldInfo kBandFields[] = {
    {"slowThresholdDb", VorafierKind::SlowThreshold, -256.0, 0.0},
    {"slowFactor", VorafierKind::SlowFactor, 0.0, 1.0},
    {"slowDelayMs", VorafierKind::SlowDelay, 0.0, 255.0},
    {"slowTimeConstantMs", VorafierKind::SlowTimeConstant, 0.0, 255.0},
};

std::string describe(int band, int channel, const char* key) {
  std::ostringstream text;
  text << "band " << band;
  if (channel >= 0) {
    text << ", channel " << channel;
  }
  text << ", " << key;
  return text.str();
}

double readNumber(const nlohmann::json& object, const char* key, const std::string& where) {
  const auto it = object.find(key);
  if (it == object.end() || !it->is_number()) {
    throw ToolError(where + ": missing or not a number");
  }
  return it->get<double>();
}

bool representable(double value, const FieldInfo& field) {
  if (field.kind == VorafierKind::Gain) {
    // Stored as round(10^(dB/20) * 128) in 1..32767.
    const double raw = std::round(std::pow(10.0, value / 20.0) * 128.0);
    return raw >= 1.0 && raw <= 32767.0;
  }
  return value >= field.minimum && value <= field.maximum;
}

void checkRange(double value, const FieldInfo& field, const std::string& where) {
  if (!std::isfinite(value) || !representable(value, field)) {
    std::ostringstream text;
    text << where << " = " << value << " is outside the allowed range " << field.minimum << " to " << field.maximum;
    throw ToolError(text.str());
  }
}

} // namespace

const char* const kDefaultPresetDescription =
    "a gentle presence lift: +4 dB from 1.7 to 4.8 kHz, +2 to +3 dB of air above, "
    "-1 dB in the low mids (420 Hz to 1.2 kHz); 2:1 compression of any band above -20 dB, "
    "and a slow levelling that pulls loud bands down by a fifth of their excess over -40 dB "
    "(200 ms time constant, 20 ms delay)";

VorafierParameters defaultPreset() {
  VorafierParameters parameters;
  const float gainsDb[kControlledBandCount] = {1, 0, 0, -1, -1, -1, 0, 4, 4, 4, 3, 2, 2};
  for (int band = 0; band < kControlledBandCount; ++band) {
    auto& record = parameters.bands[static_cast<size_t>(band)];
    record.fastThresholdDb0 = record.fastThresholdDb1 = -20.0f;
    record.fastRatio0 = record.fastRatio1 = 0.5f;
    record.slowThresholdDb = -40.0f;
    record.slowFactor = 0.2f;
    record.slowDelayMs = 20.0f;
    record.slowTimeConstantMs = 200.0f;
    record.gainDb0 = record.gainDb1 = gainsDb[band];
  }
  // Store what the payload can represent, so that the default is exactly
  // what a payload file written from it would hold.
  VorafierParameters quantised;
  vora::decodePresetPayload(encodePayload(parameters).data(), quantised);
  return quantised;
}

double bandLowHz(int band) {
  return band == 0 ? 0.0 : kFirstEdgeHz * std::pow(2.0, (band - 1) / 2.0);
}
double bandHighHz(int band) {
  return kFirstEdgeHz * std::pow(2.0, band / 2.0);
}

Payload encodePayload(const VorafierParameters& parameters) {
  Payload payload{};
  vora::encodePresetPayload(parameters, payload.data());
  return payload;
}

Payload loadPreset(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw ToolError("cannot read preset '" + path + "'");
  }
  const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (bytes.size() == vora::kPresetPayloadSize) {
    Payload payload{};
    std::copy(bytes.begin(), bytes.end(), payload.begin());
    return payload;
  }
  nlohmann::json json;
  try {
    json = nlohmann::json::parse(bytes);
  } catch (const nlohmann::json::parse_error& error) {
    throw ToolError("preset '" + path + "' is neither a 196-byte payload nor valid JSON (" + error.what() + ")");
  }
  std::vector<std::string> warnings;
  const VorafierParameters parameters = jsonToParameters(json, warnings);
  for (const auto& warning : warnings) {
    std::fprintf(stderr, "larkspin: warning: %s\n", warning.c_str());
  }
  return encodePayload(parameters);
}

nlohmann::json parametersToJson(const VorafierParameters& parameters) {
  nlohmann::json bands = nlohmann::json::array();
  for (int band = 0; band < kControlledBandCount; ++band) {
    nlohmann::json entry;
    entry["band"] = band;
    entry["lowHz"] = std::round(bandLowHz(band) * 10.0) / 10.0;
    entry["highHz"] = std::round(bandHighHz(band) * 10.0) / 10.0;
    nlohmann::json channels = nlohmann::json::array();
    for (int channel = 0; channel < 2; ++channel) {
      nlohmann::json values;
      for (const auto& field : kChannelFields) {
        values[field.key] = parameters.slot(field.kind, channel, band);
      }
      channels.push_back(values);
    }
    entry["channels"] = channels;
    for (const auto& field : kBandFields) {
      entry[field.key] = parameters.slot(field.kind, 0, band);
    }
    bands.push_back(entry);
  }
  return nlohmann::json{{"format", "larkspin-preset"}, {"version", 1}, {"bands", bands}};
}

VorafierParameters jsonToParameters(const nlohmann::json& json, std::vector<std::string>& warnings) {
  if (!json.is_object() || !json.contains("bands") || !json["bands"].is_array() ||
      json["bands"].size() != static_cast<size_t>(kControlledBandCount)) {
    throw ToolError("a JSON preset needs a \"bands\" array of 13 entries");
  }
  VorafierParameters parameters;
  parameters.level = 1.0f;
  for (int band = 0; band < kControlledBandCount; ++band) {
    const auto& entry = json["bands"][static_cast<size_t>(band)];
    const auto& channels = entry.contains("channels") ? entry["channels"] : nlohmann::json();
    if (!channels.is_array() || channels.size() != 2) {
      throw ToolError("band " + std::to_string(band) + ": \"channels\" must hold two entries");
    }
    for (int channel = 0; channel < 2; ++channel) {
      for (const auto& field : kChannelFields) {
        const std::string where = describe(band, channel, field.key);
        const double value = readNumber(channels[static_cast<size_t>(channel)], field.key, where);
        checkRange(value, field, where);
        parameters.slot(field.kind, channel, band) = static_cast<float>(value);
      }
    }
    for (const auto& field : kBandFields) {
      const std::string where = describe(band, -1, field.key);
      const double value = readNumber(entry, field.key, where);
      checkRange(value, field, where);
      parameters.slot(field.kind, 0, band) = static_cast<float>(value);
    }
  }

  // Report what the payload's quantisation changes.
  VorafierParameters stored;
  vora::decodePresetPayload(encodePayload(parameters).data(), stored);
  for (int band = 0; band < kControlledBandCount; ++band) {
    auto check = [&](const FieldInfo& field, int channel) {
      const float wanted = parameters.slot(field.kind, std::max(channel, 0), band);
      const float kept = stored.slot(field.kind, std::max(channel, 0), band);
      if (std::fabs(wanted - kept) > 1e-5f * std::max(1.0f, std::fabs(wanted))) {
        std::ostringstream text;
        text << describe(band, channel, field.key) << " = " << wanted << " is stored as " << kept;
        warnings.push_back(text.str());
      }
    };
    for (int channel = 0; channel < 2; ++channel) {
      for (const auto& field : kChannelFields) {
        check(field, channel);
      }
    }
    for (const auto& field : kBandFields) {
      check(field, -1);
    }
  }
  return parameters;
}

} // namespace larkspin_tool
