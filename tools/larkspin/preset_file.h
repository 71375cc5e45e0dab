// Preset files: the library's 196-byte payload, or a readable JSON form of
// the same fields with units in the key names.
#pragma once

#include "dsp/payload_codec.h"
#include "dsp/vorafier_parameters.h"

#include <nlohmann/json.hpp>

#include <array>
#include <string>
#include <vector>

namespace larkspin_tool {

using Payload = std::array<unsigned char, vora::kPresetPayloadSize>;

// The built-in preset used when none is given: a gentle presence lift with
// light compression (see defaultPresetDescription).
vora::VorafierParameters defaultPreset();
extern const char* const kDefaultPresetDescription;

// Loads a payload file (exactly 196 bytes) or a JSON preset (anything else).
Payload loadPreset(const std::string& path);

nlohmann::json parametersToJson(const vora::VorafierParameters& parameters);

// Validates every value against what the library accepts and the payload
// can represent; throws ToolError naming band, channel, field and range.
// Values that the payload's quantisation changes are listed in `warnings`.
vora::VorafierParameters jsonToParameters(const nlohmann::json& json, std::vector<std::string>& warnings);

Payload encodePayload(const vora::VorafierParameters& parameters);

// Lower and upper edge of a controlled band, Hz.
double bandLowHz(int band);
double bandHighHz(int band);

} // namespace larkspin_tool
