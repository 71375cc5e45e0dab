// Turning what a user hands the plugin (a preset file, edited values, saved
// state) into a payload the library accepts. Runs on the worker thread or in
// the host's instantiation context, never in run(): it reads files and
// allocates. Nothing here prints; failures come back as one line of text.
#pragma once

#include <larkspin/vora_ap.h>
#include <larkspin/vora_preset.h>

#include <array>
#include <string>

namespace larkspin_lv2 {

using Payload = std::array<unsigned char, VORA_AP_PRESET_PAYLOAD_SIZE>;

struct CheckedPreset {
  vora_preset values{};
  Payload payload{};
};

// Encodes `values`. False with the reason in `why` when the library refuses
// any of them. Every preset that gets through here is one the library takes
// without complaint, so applying it prints nothing.
bool encodeValues(const vora_preset& values, CheckedPreset& out, std::string& why);

// Decodes and checks a payload (from a file or saved state).
bool checkPayload(const unsigned char* bytes, CheckedPreset& out, std::string& why);

// Reads a preset file: a 196-byte payload, or the larkspin program's JSON form.
bool readPresetFile(const std::string& path, CheckedPreset& out, std::string& why);

} // namespace larkspin_lv2
