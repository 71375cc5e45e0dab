// Preset files for hosts built on larkspin: the library's 196-byte payload,
// or a readable JSON form of the same values with units in the key names:
//
//   {"format": "larkspin-preset", "version": 1, "bands": [
//     {"band": 0, "lowHz": 0.0, "highHz": 210.2,
//      "channels": [{"gainDb": 1.02, "fastThresholdDb": -20.0, "fastRatio": 0.502},
//                   {"gainDb": 1.02, "fastThresholdDb": -20.0, "fastRatio": 0.502}],
//      "slowThresholdDb": -40.0, "slowFactor": 0.2, "slowDelayMs": 20.0,
//      "slowTimeConstantMs": 200.0},
//     ... thirteen bands in all ]}
//
// "band", "lowHz" and "highHz" are for the reader and cannot be changed: on
// input they may be left out, but a value that differs is an error, as are
// unknown or repeated keys, another "format" and a "version" other than 1. Values are
// checked only by the library (vora_preset_check), so every host refuses and
// rounds exactly alike.
//
// Not real-time safe: these functions allocate and throw. Errors are thrown
// as PresetError with a one-line message; nothing is printed.
#pragma once

#include <larkspin/vora_ap.h>
#include <larkspin/vora_preset.h>

#include <nlohmann/json.hpp>

#include <array>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace larkspin_json {

// A preset that cannot be read or stored: a file that cannot be read, text
// that is neither a payload nor a JSON preset, a missing key, or a value the
// library refuses (the message then names band, channel, field and range).
class PresetError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

using Payload = std::array<unsigned char, VORA_AP_PRESET_PAYLOAD_SIZE>;

// A preset as read: its values, the payload that carries them, and one line
// per value that the payload's quantisation changed, for example
// "band 3, channel 0, fastRatio = 0.3 is stored as 0.301961". `preset` holds
// the values as given; decoding `payload` gives the stored ones.
struct Preset {
  vora_preset values;
  Payload payload;
  std::vector<std::string> roundingNotes;
};

// The JSON form of `preset`. Values are written as they are, also those the
// library would refuse (a non-finite value becomes null).
nlohmann::json toJson(const vora_preset& preset);

// The JSON form as text, indented by two spaces, ending in a newline.
std::string toJsonText(const vora_preset& preset);

// Reads the JSON form and encodes it. Throws PresetError for a wrong shape,
// a missing or non-numeric value, or any value the library refuses.
Preset fromJson(const nlohmann::json& json);

// Encodes `values`; throws PresetError when the library refuses any of them.
Preset encode(const vora_preset& values);

// Reads preset text: exactly VORA_AP_PRESET_PAYLOAD_SIZE bytes are a payload,
// taken as they are but refused when the library would refuse any of its
// values (for example 196 zero bytes, whose gains decode to minus infinity);
// anything else must be the JSON form. `name` is used in messages.
Preset parse(std::string_view bytes, const std::string& name);

// Reads a preset file (payload or JSON), as parse(). Only an ordinary file
// of at most 64 kB is read: a folder, device or pipe is refused unread.
Preset readFile(const std::string& path);

} // namespace larkspin_json
