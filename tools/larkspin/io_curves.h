// Static input/output curves: what one band does, once settled, to a steady
// input of a given band level in both channels.
#pragma once

#include <larkspin/vora_preset.h>

#include <string>

namespace larkspin_tool {

struct SteadyBand {
  double outputDb[VORA_PRESET_CHANNEL_COUNT]; // band level after all gains
  double slowGainDb;                          // the slow path's settled gain, shared by both channels
};

// The settled state of the band gain computer for a steady band level
// `inputDb` in both channels. The fast stage acts on each hop's level; the
// slow path is a delayed, smoothed feedback of the post-compression level
// (mean of the channels) whose steady state is the fixed point
//   slow = -factor * max(mean(Lout(input + slow)) - slowThreshold, 0).
SteadyBand steadyBand(const vora_preset_band& band, double inputDb);

// SVG text: one curve per band and channel (channel 1 only where it
// differs), with the unity line for reference.
std::string renderIoCurves(const vora_preset& preset, const std::string& presetName);

} // namespace larkspin_tool
