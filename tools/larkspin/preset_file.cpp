#include "larkspin/preset_file.h"

#include <cstdio>

namespace larkspin_tool {

const char* const kDefaultPresetDescription =
    "+1 dB below 210 Hz, -1 dB from 420 Hz to 1.2 kHz, +4 dB from 1.7 to 4.8 kHz, +3 dB to 6.7 kHz and "
    "+2 dB to 13.45 kHz; in each of the thirteen controlled bands 2:1 compression above -20 dB and a slow "
    "levelling with factor 0.2 above -40 dB, under which a steady band's output rises 0.83 dB per dB (200 ms "
    "time constant, 20 ms delay); nothing above 13.45 kHz";

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
