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

// SVG text: the settled output level and the net gain against the input
// level, one curve per set of bands with identical settings (channel 1
// apart only where it differs), named at the line ends; bands without an
// FFT bin at `sampleRate` are starred and explained underneath.
std::string renderIoCurves(const vora_preset& preset, const std::string& presetName, int sampleRate);

} // namespace larkspin_tool
