// Any 196 bytes decode; re-encoding the decoded record and decoding again gives back every finite value exactly.
// Bytes beyond the payload are taken as a raw parameter record (NaN,
// infinities, huge values): encoding copes with any float, and what it
// writes passes the same round trip.
#include "dsp/payload_codec.h"
#include "fuzz_input.h"

#include <cmath>

using vora::kPresetPayloadSize;
using vora::VorafierParameters;

namespace {

constexpr size_t kFloatCount = sizeof(VorafierParameters) / sizeof(float);

// Decodes `payload`, then checks that encode-and-decode keeps every finite
// value of the result.
void checkRoundTrip(const unsigned char* payload) {
  VorafierParameters first;
  vora::decodePresetPayload(payload, first);
  unsigned char encoded[kPresetPayloadSize];
  vora::encodePresetPayload(first, encoded);
  VorafierParameters second;
  vora::decodePresetPayload(encoded, second);
  const auto* a = reinterpret_cast<const float*>(&first);
  const auto* b = reinterpret_cast<const float*>(&second);
  for (size_t i = 0; i < kFloatCount; ++i) {
    LARKSPIN_FUZZ_CHECK(!std::isfinite(a[i]) || a[i] == b[i]);
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  larkspin_fuzz::FuzzInput input(data, size);
  unsigned char payload[kPresetPayloadSize];
  input.bytes(payload, sizeof payload);
  checkRoundTrip(payload);

  if (!input.empty()) {
    VorafierParameters arbitrary;
    input.bytes(&arbitrary, sizeof arbitrary);
    unsigned char fromArbitrary[kPresetPayloadSize];
    vora::encodePresetPayload(arbitrary, fromArbitrary);
    checkRoundTrip(fromArbitrary);
  }
  return 0;
}
