// The program's presets: the built-in default, and preset files read through
// the shared JSON component with its rounding notes shown as warnings.
#pragma once

#include "preset_json/preset_json.h"

#include <larkspin/vora_preset.h>

#include <string>

namespace larkspin_tool {

using Payload = larkspin_json::Payload;

// The built-in preset used when none is given (see kDefaultPresetDescription).
vora_preset defaultPreset();
extern const char* const kDefaultPresetDescription;

// Loads a payload file (exactly 196 bytes) or a JSON preset (anything else);
// prints a warning for each value the payload's quantisation changes.
larkspin_json::Preset loadPreset(const std::string& path);

// The payload of `preset`, which must be one the library accepts.
Payload encodePayload(const vora_preset& preset);

} // namespace larkspin_tool
