#include "preset_json/preset_json.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <initializer_list>
#include <iterator>

namespace larkspin_json {

namespace {

constexpr vora_preset_field kChannelFields[] = {VORA_PRESET_GAIN_DB, VORA_PRESET_FAST_THRESHOLD_DB,
                                                VORA_PRESET_FAST_RATIO};
constexpr vora_preset_field kBandFields[] = {VORA_PRESET_SLOW_THRESHOLD_DB, VORA_PRESET_SLOW_FACTOR,
                                             VORA_PRESET_SLOW_DELAY_MS, VORA_PRESET_SLOW_TIME_CONSTANT_MS};

std::string describe(const vora_preset_issue& issue) {
  char text[200];
  vora_preset_format_issue(&issue, text, sizeof text);
  return text;
}

std::string where(int band, int channel, vora_preset_field field) {
  std::string text = "band " + std::to_string(band);
  if (channel >= 0) {
    text += ", channel " + std::to_string(channel);
  }
  return text + ", " + vora_preset_field_name(field);
}

float readNumber(const nlohmann::json& object, vora_preset_field field, const std::string& place) {
  const auto it = object.find(vora_preset_field_name(field));
  if (it == object.end() || !it->is_number()) {
    throw PresetError(place + ": missing or not a number");
  }
  return static_cast<float>(it->get<double>());
}

double roundedHz(double hz) {
  return std::round(hz * 10.0) / 10.0;
}

// The first refused value of `issues`, with a count of the others.
std::string refusal(const std::vector<vora_preset_issue>& issues, int refused) {
  for (const vora_preset_issue& issue : issues) {
    if (issue.kind == VORA_PRESET_REFUSED) {
      std::string message = describe(issue);
      if (refused > 1) {
        message += " (and " + std::to_string(refused - 1) + " more refused)";
      }
      return message;
    }
  }
  return "refused";
}

std::vector<vora_preset_issue> issueBuffer() {
  return std::vector<vora_preset_issue>(VORA_PRESET_BAND_COUNT *
                                        (2 * std::size(kChannelFields) + std::size(kBandFields)));
}

// A key the reader does not know is an error: a misspelt field would
// otherwise be silently left at a default.
void refuseUnknownKeys(const nlohmann::json& object, std::initializer_list<const char*> known,
                       const std::string& place) {
  for (const auto& item : object.items()) {
    const std::string& key = item.key();
    if (std::none_of(known.begin(), known.end(), [&](const char* name) { return key == name; })) {
      throw PresetError(std::string(place).append(": unknown key \"").append(key).append("\""));
    }
  }
}

// The band number and edges are written for the reader; they cannot be
// changed, so a value that differs means the file was edited in the belief
// that it could be.
void refuseEditedBand(const nlohmann::json& entry, int band, const vora_band_info& info) {
  const std::string place = "band " + std::to_string(band);
  const auto number = entry.find("band");
  if (number != entry.end() && (!number->is_number_integer() || number->get<long>() != band)) {
    throw PresetError(place + ": the entry at this position says \"band\": " + number->dump());
  }
  for (const auto& [key, hz] : {std::pair{"lowHz", info.lowHz}, std::pair{"highHz", info.highHz}}) {
    const auto it = entry.find(key);
    if (it != entry.end() && (!it->is_number() || std::fabs(it->get<double>() - roundedHz(hz)) > 0.051)) {
      throw PresetError(place + ": " + key + " = " + it->dump() + " differs from the fixed band edge " +
                        nlohmann::json(roundedHz(hz)).dump() + " Hz (band edges cannot be changed)");
    }
  }
}

} // namespace

nlohmann::json toJson(const vora_preset& preset) {
  vora_band_info layout[VORA_BAND_COUNT];
  vora_preset_band_layout(48000.0f, layout); // the controlled bands' edges do not depend on the rate
  nlohmann::json bands = nlohmann::json::array();
  for (int band = 0; band < VORA_PRESET_BAND_COUNT; ++band) {
    vora_preset copy = preset;
    nlohmann::json entry;
    entry["band"] = band;
    entry["lowHz"] = roundedHz(layout[band].lowHz);
    entry["highHz"] = roundedHz(layout[band].highHz);
    nlohmann::json channels = nlohmann::json::array();
    for (int channel = 0; channel < VORA_PRESET_CHANNEL_COUNT; ++channel) {
      nlohmann::json fields;
      for (vora_preset_field field : kChannelFields) {
        fields[vora_preset_field_name(field)] = *vora_preset_value(&copy, band, channel, field);
      }
      channels.push_back(fields);
    }
    entry["channels"] = channels;
    for (vora_preset_field field : kBandFields) {
      entry[vora_preset_field_name(field)] = *vora_preset_value(&copy, band, -1, field);
    }
    bands.push_back(entry);
  }
  return nlohmann::json{{"format", "larkspin-preset"}, {"version", 1}, {"bands", bands}};
}

std::string toJsonText(const vora_preset& preset) {
  return toJson(preset).dump(2) + "\n";
}

Preset encode(const vora_preset& values) {
  Preset result{values, {}, {}};
  std::vector<vora_preset_issue> issues = issueBuffer();
  int count = 0;
  const int refused =
      vora_preset_encode(&values, result.payload.data(), issues.data(), static_cast<int>(issues.size()), &count);
  issues.resize(static_cast<size_t>(count));
  if (refused > 0) {
    throw PresetError(refusal(issues, refused));
  }
  for (const vora_preset_issue& issue : issues) {
    result.roundingNotes.push_back(describe(issue));
  }
  return result;
}

Preset fromJson(const nlohmann::json& json) {
  if (!json.is_object() || !json.contains("bands") || !json["bands"].is_array() ||
      json["bands"].size() != VORA_PRESET_BAND_COUNT) {
    throw PresetError("a JSON preset needs a \"bands\" array of 13 entries");
  }
  refuseUnknownKeys(json, {"format", "version", "bands"}, "the preset");
  if (json.contains("format") && json["format"] != "larkspin-preset") {
    throw PresetError("\"format\" is " + json["format"].dump() + ", not \"larkspin-preset\"");
  }
  if (json.contains("version") && json["version"] != 1) {
    throw PresetError("preset format version " + json["version"].dump() + " is not supported (only 1 is)");
  }
  vora_band_info layout[VORA_BAND_COUNT];
  vora_preset_band_layout(48000.0f, layout);
  vora_preset values;
  for (int band = 0; band < VORA_PRESET_BAND_COUNT; ++band) {
    const nlohmann::json& entry = json["bands"][static_cast<size_t>(band)];
    if (!entry.is_object()) {
      throw PresetError("band " + std::to_string(band) + ": not a JSON object");
    }
    refuseUnknownKeys(
        entry,
        {"band", "lowHz", "highHz", "channels", "slowThresholdDb", "slowFactor", "slowDelayMs", "slowTimeConstantMs"},
        "band " + std::to_string(band));
    refuseEditedBand(entry, band, layout[band]);
    const auto channels = entry.find("channels");
    if (channels == entry.end() || !channels->is_array() || channels->size() != VORA_PRESET_CHANNEL_COUNT) {
      throw PresetError("band " + std::to_string(band) + ": \"channels\" must hold two entries");
    }
    for (int channel = 0; channel < VORA_PRESET_CHANNEL_COUNT; ++channel) {
      const nlohmann::json& fields = (*channels)[static_cast<size_t>(channel)];
      const std::string place = "band " + std::to_string(band) + ", channel " + std::to_string(channel);
      if (!fields.is_object()) {
        throw PresetError(place + ": not a JSON object");
      }
      refuseUnknownKeys(fields, {"gainDb", "fastThresholdDb", "fastRatio"}, place);
      for (vora_preset_field field : kChannelFields) {
        *vora_preset_value(&values, band, channel, field) = readNumber(fields, field, where(band, channel, field));
      }
    }
    for (vora_preset_field field : kBandFields) {
      *vora_preset_value(&values, band, -1, field) = readNumber(entry, field, where(band, -1, field));
    }
  }
  return encode(values);
}

Preset parse(std::string_view bytes, const std::string& name) {
  if (bytes.size() == VORA_AP_PRESET_PAYLOAD_SIZE) {
    Preset result{};
    std::copy(bytes.begin(), bytes.end(), result.payload.begin());
    vora_preset_decode(result.payload.data(), &result.values);
    std::vector<vora_preset_issue> issues = issueBuffer();
    int count = 0;
    const int refused = vora_preset_check(&result.values, issues.data(), static_cast<int>(issues.size()), &count);
    issues.resize(static_cast<size_t>(std::min<int>(count, static_cast<int>(issues.size()))));
    if (refused > 0) {
      throw PresetError("the library refuses the payload '" + name + "': " + refusal(issues, refused));
    }
    return result;
  }
  nlohmann::json json;
  try {
    json = nlohmann::json::parse(bytes);
  } catch (const nlohmann::json::parse_error& error) {
    throw PresetError("preset '" + name + "' is neither a 196-byte payload nor valid JSON (" + error.what() + ")");
  }
  return fromJson(json);
}

Preset readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw PresetError("cannot read preset '" + path + "'");
  }
  const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  return parse(bytes, path);
}

} // namespace larkspin_json
