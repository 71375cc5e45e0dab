// The demo's own test signal: speech-like noise bursts, a tone sweep and a
// loud passage that drives the limiter.
#pragma once

#include "larkspin/audio_file.h"

namespace larkspin_tool {

AudioData makeDemoSignal(int sampleRate, double seconds = 10.0);

} // namespace larkspin_tool
