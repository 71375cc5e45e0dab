// Conversions between the 196-byte payload and the framework preset that is
// applied to the dynamics node, entry by entry, through its validated
// parameter setters.
#pragma once

#include "dsp/vorafier_parameters.h"
#include "framework/audio_processor_preset.h"

namespace vora {

// 130 parameter entries (row = channel, column = band): per band, channel 0
// gain, fast threshold, fast ratio and the four slow parameters; then per
// band, channel 1 gain, fast threshold, fast ratio. The slow parameters
// exist at channel 0 only; the level is not carried.
AudioProcessorPreset presetFromPayload(const unsigned char* payload);

// The record a preset describes, with level 1.0. Entries missing from the
// preset keep the record's construction values.
VorafierParameters parametersFromPreset(const AudioProcessorPreset& preset);

} // namespace vora
