#include "dsp/payload_codec.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace vora {

namespace {

constexpr uint16_t kKey = 0x4E29;
constexpr uint32_t kSigned16 = 0x100; // 16-bit signed big-endian field, else unsigned 8-bit
constexpr uint32_t kDecibel = 0x1;    // the raw value is a linear factor delivered in dB

// The representable range (maximum, minimum) is descriptive only: neither
// decoding nor encoding clamps to it.
struct FieldDescriptor {
  float maximum;
  float minimum;
  uint32_t flags;
  float scale;
};

constexpr std::array<FieldDescriptor, 8> kDescriptors = {{
    {1.0f, 0.0f, 0x000, 255.0f},      // 0: unsigned 8-bit fraction (level)
    {256.0f, -256.0f, 0x100, 128.0f}, // 1: signed 16-bit, 7 fractional bits
    {1.0f, 0.0f, 0x000, 255.0f},      // 2: unsigned 8-bit fraction
    {256.0f, -256.0f, 0x101, 128.0f}, // 3: signed 16-bit linear factor, in dB
    {256.0f, -256.0f, 0x100, 128.0f}, // 4: signed 16-bit, 7 fractional bits
    {1.0f, 0.0f, 0x000, 255.0f},      // 5: unsigned 8-bit fraction
    {255.0f, 0.0f, 0x000, 1.0f},      // 6: unsigned 8-bit integer
    {255.0f, 0.0f, 0x000, 1.0f},      // 7: unsigned 8-bit integer
}};

// The ten band groups in payload order; channel -1 is the shared slot.
struct Group {
  VorafierKind kind;
  int channel;
  int descriptor;
};

constexpr Group kGroups[10] = {
    {VorafierKind::Gain, 0, 3},          {VorafierKind::Gain, 1, 3},
    {VorafierKind::FastThreshold, 0, 1}, {VorafierKind::FastThreshold, 1, 1},
    {VorafierKind::FastRatio, 0, 2},     {VorafierKind::FastRatio, 1, 2},
    {VorafierKind::SlowDelay, -1, 7},    {VorafierKind::SlowThreshold, -1, 4},
    {VorafierKind::SlowFactor, -1, 5},   {VorafierKind::SlowTimeConstant, -1, 6},
};

// The payload's bytes, as an array so that a checked build bounds every index.
using PayloadBytes = std::array<unsigned char, kPresetPayloadSize>;

// Scrambling works on little-endian 16-bit words: XOR with the key, then swap
// the bytes. Descrambling is its own mirror image.
void descramble(PayloadBytes& bytes) {
  for (std::size_t i = 0; i < kPresetPayloadSize; i += 2) {
    const unsigned char low = bytes[i];
    const unsigned char high = bytes[i + 1];
    bytes[i] = static_cast<unsigned char>(high ^ (kKey >> 8));
    bytes[i + 1] = static_cast<unsigned char>(low ^ (kKey & 0xFF));
  }
}

void scramble(PayloadBytes& bytes) {
  for (std::size_t i = 0; i < kPresetPayloadSize; i += 2) {
    const unsigned char first = bytes[i];
    const unsigned char second = bytes[i + 1];
    bytes[i] = static_cast<unsigned char>(second ^ (kKey & 0xFF));
    bytes[i + 1] = static_cast<unsigned char>(first ^ (kKey >> 8));
  }
}

float readField(const PayloadBytes& bytes, std::size_t& cursor, const FieldDescriptor& descriptor) {
  float raw;
  if (descriptor.flags & kSigned16) {
    const auto word = static_cast<uint16_t>((bytes[cursor] << 8) | bytes[cursor + 1]);
    raw = static_cast<float>(static_cast<int16_t>(word));
    cursor += 2;
  } else {
    raw = static_cast<float>(bytes[cursor]);
    cursor += 1;
  }
  const float value = raw / descriptor.scale;
  return (descriptor.flags & kDecibel) ? 20.0f * std::log10(value) : value;
}

void writeField(PayloadBytes& bytes, std::size_t& cursor, const FieldDescriptor& descriptor, float value) {
  if (descriptor.flags & kDecibel) {
    value = std::pow(10.0f, value / 20.0f);
  }
  // Rounded half away from zero; out-of-range values wrap, deliberately.
  const float scaled = std::round(value * descriptor.scale);
  const int64_t integer = std::isfinite(scaled) && std::fabs(scaled) < 9.0e18f ? static_cast<int64_t>(scaled) : 0;
  if (descriptor.flags & kSigned16) {
    const auto word = static_cast<uint16_t>(static_cast<uint64_t>(integer) & 0xFFFFu);
    bytes[cursor] = static_cast<unsigned char>(word >> 8);
    bytes[cursor + 1] = static_cast<unsigned char>(word & 0xFF);
    cursor += 2;
  } else {
    // An unsigned byte takes no negative value: those become 0.
    bytes[cursor] = static_cast<unsigned char>(static_cast<uint64_t>(std::max<int64_t>(integer, 0)) & 0xFFu);
    cursor += 1;
  }
}

} // namespace

void decodePresetPayload(const unsigned char* payload, VorafierParameters& parameters) {
  PayloadBytes bytes;
  std::memcpy(bytes.data(), payload, kPresetPayloadSize);
  descramble(bytes);

  parameters = VorafierParameters{};
  std::size_t cursor = 0;
  parameters.level = readField(bytes, cursor, kDescriptors[0]);
  for (const Group& group : kGroups) {
    float values[kControlledBandCount];
    for (float& value : values) {
      value = readField(bytes, cursor, kDescriptors[group.descriptor]);
    }
    parameters.set(group.kind, group.channel, values);
  }
}

void encodePresetPayload(const VorafierParameters& parameters, unsigned char* payload) {
  PayloadBytes bytes;
  std::size_t cursor = 0;
  writeField(bytes, cursor, kDescriptors[0], parameters.level);
  for (const Group& group : kGroups) {
    float values[kControlledBandCount];
    parameters.get(group.kind, group.channel < 0 ? 0 : group.channel, values);
    for (float value : values) {
      writeField(bytes, cursor, kDescriptors[group.descriptor], value);
    }
  }
  scramble(bytes);
  std::memcpy(payload, bytes.data(), kPresetPayloadSize);
}

} // namespace vora
