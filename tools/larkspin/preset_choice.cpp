#include "larkspin/preset_choice.h"

#include "larkspin/preset_file.h"
#include "larkspin/tool_error.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace larkspin_tool {
namespace {

// Parses a whole decimal integer in [low, high], or returns -1.
int parseIndex(const std::string& text, int low, int high) {
  int value = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || text.empty() || value < low || value > high) {
    return -1;
  }
  return value;
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (size_t at = text.find(separator); at != std::string::npos; at = text.find(separator, start)) {
    parts.push_back(text.substr(start, at - start));
    start = at + 1;
  }
  parts.push_back(text.substr(start));
  return parts;
}

} // namespace

void addPresetOptions(CLI::App* command, PresetChoice& choice) {
  command->add_option("--preset", choice.path,
                      std::string("196-byte payload or JSON preset; default: ") + kDefaultPresetDescription);
  command->add_option("--set", choice.settings,
                      "change one value, e.g. band3.gainDb=4, all.fastRatio=0.5, band2.ch1.fastThresholdDb=-30 "
                      "(repeatable; bands 0..12)");
}

void applySetting(vora_preset& preset, const std::string& setting) {
  const std::string usage = "--set '" + setting + "': ";
  const size_t equals = setting.find('=');
  if (equals == std::string::npos) {
    throw ToolError(usage + "expected NAME=VALUE, e.g. band3.gainDb=4");
  }
  const std::vector<std::string> parts = split(setting.substr(0, equals), '.');
  const std::string valueText = setting.substr(equals + 1);
  if (parts.size() < 2 || parts.size() > 3) {
    throw ToolError(usage + "expected bandN[.chM].FIELD or all[.chM].FIELD");
  }
  int firstBand = 0, lastBand = VORA_PRESET_BAND_COUNT - 1;
  if (parts[0] != "all") {
    const int band =
        parts[0].rfind("band", 0) == 0 ? parseIndex(parts[0].substr(4), 0, VORA_PRESET_BAND_COUNT - 1) : -1;
    if (band < 0) {
      throw ToolError(usage + "unknown band '" + parts[0] + "' (band0 to band12, or all; band 13 has no controls)");
    }
    firstBand = lastBand = band;
  }
  int firstChannel = 0, lastChannel = VORA_PRESET_CHANNEL_COUNT - 1;
  if (parts.size() == 3) {
    const int channel = parts[1].rfind("ch", 0) == 0 ? parseIndex(parts[1].substr(2), 0, 1) : -1;
    if (channel < 0) {
      throw ToolError(usage + "unknown channel '" + parts[1] + "' (ch0 or ch1)");
    }
    firstChannel = lastChannel = channel;
  }
  const std::string& name = parts.back();
  int field = 0;
  while (field < VORA_PRESET_FIELD_COUNT && name != vora_preset_field_name(static_cast<vora_preset_field>(field))) {
    ++field;
  }
  if (field == VORA_PRESET_FIELD_COUNT) {
    std::string known;
    for (int f = 0; f < VORA_PRESET_FIELD_COUNT; ++f) {
      known += (f > 0 ? ", " : "") + std::string(vora_preset_field_name(static_cast<vora_preset_field>(f)));
    }
    throw ToolError(usage + "unknown field '" + name + "' (" + known + ")");
  }
  const bool perBand = field >= VORA_PRESET_SLOW_THRESHOLD_DB;
  if (perBand && parts.size() == 3) {
    throw ToolError(usage + name + " is shared by both channels; leave out '." + parts[1] + "'");
  }
  // from_chars takes no leading '+', which people write for gains.
  const size_t skip = valueText.rfind('+', 0) == 0 ? 1 : 0;
  float value = 0.0f;
  const auto [end, error] = std::from_chars(valueText.data() + skip, valueText.data() + valueText.size(), value);
  if (error != std::errc() || end != valueText.data() + valueText.size() || valueText.size() == skip ||
      !std::isfinite(value)) {
    throw ToolError(usage + "'" + valueText + "' is not a number");
  }
  for (int band = firstBand; band <= lastBand; ++band) {
    for (int channel = firstChannel; channel <= (perBand ? firstChannel : lastChannel); ++channel) {
      *vora_preset_value(&preset, band, channel, static_cast<vora_preset_field>(field)) = value;
    }
  }
}

larkspin_json::Preset resolvePreset(const PresetChoice& choice) {
  larkspin_json::Preset preset =
      choice.path.empty() ? larkspin_json::encode(defaultPreset()) : larkspin_json::readFile(choice.path);
  if (choice.settings.empty()) {
    return preset;
  }
  for (const std::string& setting : choice.settings) {
    applySetting(preset.values, setting);
  }
  return larkspin_json::encode(preset.values);
}

void reportRounding(const larkspin_json::Preset& preset) {
  const size_t count = preset.roundingNotes.size();
  if (count == 1) {
    std::fprintf(stderr, "larkspin: note: %s; see `larkspin preset encode`\n", preset.roundingNotes[0].c_str());
  } else if (count > 1) {
    std::fprintf(stderr, "larkspin: note: %zu values rounded to the payload's steps; see `larkspin preset encode`\n",
                 count);
  }
}

} // namespace larkspin_tool
