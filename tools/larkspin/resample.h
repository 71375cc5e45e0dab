// Sample-rate conversion for rates the library does not take (8, 16,
// 22.05 kHz and so on): process at a supported multiple and convert back.
#pragma once

#include "larkspin/audio_file.h"

namespace larkspin_tool {

// The smallest whole multiple of `sampleRate` the library accepts (at least
// 32 kHz), so that the conversion ratio is an integer.
int supportedRateFor(int sampleRate);

// `input` at `sampleRate`, `frames` long (the exact length when converting
// back; -1: the rounded converted length). Throws ToolError on failure.
AudioData resampleAudio(const AudioData& input, int sampleRate, long frames = -1);

} // namespace larkspin_tool
