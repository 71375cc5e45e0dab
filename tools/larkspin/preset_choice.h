// The preset a command works with: the built-in default or a file, then any
// "--set NAME=VALUE" overrides, encoded through the library so that values
// are refused and rounded exactly as in a preset file.
#pragma once

#include "preset_json/preset_json.h"

#include <larkspin/vora_preset.h>

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace larkspin_tool {

struct PresetChoice {
  std::string path;                  // empty: the built-in default
  std::vector<std::string> settings; // "band3.gainDb=4", "all.ch1.fastRatio=0.5", ...
};

// Adds --preset and --set to `command`.
void addPresetOptions(CLI::App* command, PresetChoice& choice);

// Changes the values one setting names. NAME is "bandN" (0..12) or "all",
// then optionally ".ch0" or ".ch1" (per-channel fields only; without it both
// channels change), then a field name as in the JSON form. Throws ToolError
// for an unknown name or a value that is not a number; the range is checked
// when the preset is encoded.
void applySetting(vora_preset& preset, const std::string& setting);

// The chosen preset with its settings applied and encoded; throws ToolError
// or larkspin_json::PresetError. Prints nothing.
larkspin_json::Preset resolvePreset(const PresetChoice& choice);

// One line on standard error when the payload's steps changed any value.
void reportRounding(const larkspin_json::Preset& preset);

} // namespace larkspin_tool
