#include "larkspin/preset_file.h"

#include <cstdio>

namespace larkspin_tool {

const char* const kDefaultPresetDescription =
    "a gentle presence lift: +4 dB from 1.7 to 4.8 kHz, +2 to +3 dB of air above, "
    "-1 dB in the low mids (420 Hz to 1.2 kHz); 2:1 compression of any band above -20 dB, "
    "and a slow levelling that pulls loud bands down by a fifth of their excess over -40 dB "
    "(200 ms time constant, 20 ms delay)";

vora_preset defaultPreset() {
  vora_preset preset;
  vora_preset_default(&preset);
  return preset;
}

larkspin_json::Preset loadPreset(const std::string& path) {
  larkspin_json::Preset preset = larkspin_json::readFile(path);
  for (const std::string& note : preset.roundingNotes) {
    std::fprintf(stderr, "larkspin: warning: %s\n", note.c_str());
  }
  return preset;
}

Payload encodePayload(const vora_preset& preset) {
  return larkspin_json::encode(preset).payload;
}

} // namespace larkspin_tool
