// Pictures of the band bank: the fourteen band responses and, with a
// preset, each channel's band gain.
#pragma once

#include <larkspin/vora_preset.h>

#include <optional>
#include <string>

namespace larkspin_tool {

// SVG text; throws ToolError for a rate the library refuses.
std::string renderBandChart(int sampleRate, const std::optional<vora_preset>& preset);

} // namespace larkspin_tool
