// Pictures of the band bank: the fourteen band responses, what they add up
// to at unity gains, and a preset's band gains per channel.
#pragma once

#include <larkspin/vora_preset.h>

#include <string>
#include <vector>

namespace larkspin_tool {

// The bank's combined magnitude response in dB at unity band gains, at the
// FFT's bin frequencies 1 .. N/2 - 1 (the engine adds the bands' weighted
// magnitudes, so this is 20 log10 of the sum of the weights). Empty for a
// rate the library refuses.
struct CombinedResponse {
  std::vector<double> frequencyHz, levelDb;
};
CombinedResponse combinedResponse(int sampleRate);

// SVG text; throws ToolError for a rate the library refuses. `presetName`
// says whose gains are drawn.
std::string renderBandChart(int sampleRate, const vora_preset& preset, const std::string& presetName);

} // namespace larkspin_tool
