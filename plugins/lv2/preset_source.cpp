#include "preset_source.h"

#include "preset_json/preset_json.h"

#include <cstring>
#include <exception>
#include <iterator>

namespace larkspin_lv2 {

namespace {

std::string firstRefusal(const vora_preset& values) {
  vora_preset_issue issues[8];
  int count = 0;
  const int capacity = static_cast<int>(std::size(issues));
  vora_preset_check(&values, issues, capacity, &count);
  for (int i = 0; i < count && i < capacity; ++i) {
    if (issues[i].kind == VORA_PRESET_REFUSED) {
      char text[160];
      vora_preset_format_issue(&issues[i], text, sizeof text);
      return text;
    }
  }
  return "a value is outside its allowed range";
}

} // namespace

bool encodeValues(const vora_preset& values, CheckedPreset& out, std::string& why) {
  CheckedPreset result;
  result.values = values;
  const int refused = vora_preset_encode(&values, result.payload.data(), nullptr, 0, nullptr);
  if (refused != 0) {
    why = firstRefusal(values);
    return false;
  }
  out = result;
  return true;
}

bool checkPayload(const unsigned char* bytes, CheckedPreset& out, std::string& why) {
  CheckedPreset result;
  std::memcpy(result.payload.data(), bytes, result.payload.size());
  if (!vora_preset_decode(bytes, &result.values)) {
    why = "the payload cannot be decoded";
    return false;
  }
  if (vora_preset_check(&result.values, nullptr, 0, nullptr) != 0) {
    why = firstRefusal(result.values);
    return false;
  }
  out = result;
  return true;
}

bool readPresetFile(const std::string& path, CheckedPreset& out, std::string& why) {
  try {
    const larkspin_json::Preset preset = larkspin_json::readFile(path);
    // A JSON preset comes back encoded, so checked; a payload file is taken
    // as it is, so it is checked here.
    return checkPayload(preset.payload.data(), out, why);
  } catch (const std::exception& error) {
    why = error.what();
    return false;
  }
}

} // namespace larkspin_lv2
