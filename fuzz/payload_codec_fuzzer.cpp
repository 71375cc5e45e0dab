// Any 196 bytes decode; re-encoding the decoded record and decoding again
// gives back every finite value exactly. Bytes beyond the payload are taken
// as a raw parameter record (NaN, infinities, huge values) to encode.
#include "dsp/payload_codec.h"
#include "fuzz_check.h"
#include "fuzz_input.h"

#include <cmath>
#include <cstring>

using vora::kPresetPayloadSize;
using vora::VorafierParameters;

namespace {

constexpr size_t kFloatCount = sizeof(VorafierParameters) / sizeof(float);

const float* floatsOf(const VorafierParameters& parameters) {
  return reinterpret_cast<const float*>(&parameters);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  larkspin_fuzz::FuzzInput input(data, size);
  unsigned char payload[kPresetPayloadSize];
  input.bytes(payload, sizeof payload);
  unsigned char callerCopy[kPresetPayloadSize];
  std::memcpy(callerCopy, payload, sizeof payload);

  VorafierParameters first;
  vora::decodePresetPayload(payload, first);
  LARKSPIN_FUZZ_CHECK(std::memcmp(payload, callerCopy, sizeof payload) == 0);

  unsigned char encoded[kPresetPayloadSize];
  vora::encodePresetPayload(first, encoded);
  VorafierParameters second;
  vora::decodePresetPayload(encoded, second);
  const float* a = floatsOf(first);
  const float* b = floatsOf(second);
  for (size_t i = 0; i < kFloatCount; ++i) {
    if (std::isfinite(a[i])) {
      LARKSPIN_FUZZ_CHECK(a[i] == b[i]);
    }
  }

  if (input.remaining() > 0) {
    // Arbitrary record: encoding must cope with any float, and what it
    // writes must decode and encode to the same bytes again.
    VorafierParameters arbitrary;
    input.bytes(&arbitrary, sizeof arbitrary);
    unsigned char fromArbitrary[kPresetPayloadSize];
    vora::encodePresetPayload(arbitrary, fromArbitrary);
    VorafierParameters decoded;
    vora::decodePresetPayload(fromArbitrary, decoded);
    unsigned char again[kPresetPayloadSize];
    vora::encodePresetPayload(decoded, again);
    VorafierParameters decodedAgain;
    vora::decodePresetPayload(again, decodedAgain);
    const float* c = floatsOf(decoded);
    const float* d = floatsOf(decodedAgain);
    for (size_t i = 0; i < kFloatCount; ++i) {
      if (std::isfinite(c[i])) {
        LARKSPIN_FUZZ_CHECK(c[i] == d[i]);
      }
    }
  }
  return 0;
}
