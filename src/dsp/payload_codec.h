// The 196-byte preset payload: a scrambled stream of 8- and 16-bit fields
// that decodes into the engine's parameter record, and back.
#pragma once

#include "dsp/vorafier_parameters.h"

#include <cstddef>

namespace vora {

inline constexpr std::size_t kPresetPayloadSize = 196;

// Reads exactly 196 bytes; never fails and never changes the caller's bytes.
// Every field of `parameters` is overwritten.
void decodePresetPayload(const unsigned char* payload, VorafierParameters& parameters);

// Writes exactly 196 bytes: the exact inverse of decodePresetPayload for
// finite values. Out-of-range values wrap rather than saturate.
void encodePresetPayload(const VorafierParameters& parameters, unsigned char* payload);

} // namespace vora
