#include "dsp/vorafier_parameters.h"

#include <bit>
#include <cstdint>

namespace vora {

VorafierParameters::VorafierParameters() {
  for (auto& band : bands) {
    band = VorafierBandRecord{};
    band.slowDelayMs = 5.0f;
  }
}

float& VorafierParameters::slot(VorafierKind kind, int channel, int band) {
  VorafierBandRecord& record = bands[static_cast<std::size_t>(band)];
  const bool second = channel == 1;
  switch (kind) {
  case VorafierKind::FastThreshold:
    return second ? record.fastThresholdDb1 : record.fastThresholdDb0;
  case VorafierKind::FastRatio:
    return second ? record.fastRatio1 : record.fastRatio0;
  case VorafierKind::SlowThreshold:
    return record.slowThresholdDb;
  case VorafierKind::SlowDelay:
    return record.slowDelayMs;
  case VorafierKind::SlowFactor:
    return record.slowFactor;
  case VorafierKind::SlowTimeConstant:
    return record.slowTimeConstantMs;
  case VorafierKind::Gain:
    break;
  }
  return second ? record.gainDb1 : record.gainDb0;
}

float VorafierParameters::slot(VorafierKind kind, int channel, int band) const {
  return const_cast<VorafierParameters*>(this)->slot(kind, channel, band);
}

void VorafierParameters::set(VorafierKind kind, int channel, const float* values) {
  for (int band = 0; band < kControlledBandCount; ++band) {
    if (channel < 0 && isPerChannel(kind)) {
      slot(kind, 0, band) = values[band];
      slot(kind, 1, band) = values[band];
    } else {
      slot(kind, channel < 0 ? 0 : channel, band) = values[band];
    }
  }
}

void VorafierParameters::get(VorafierKind kind, int channel, float* values) const {
  for (int band = 0; band < kControlledBandCount; ++band) {
    values[band] = slot(kind, channel, band);
  }
}

bool VorafierParameters::operator==(const VorafierParameters& other) const {
  // Bit for bit: -0 differs from +0 and a NaN equals the same NaN.
  using Bits = std::array<uint32_t, sizeof(VorafierParameters) / sizeof(uint32_t)>;
  return std::bit_cast<Bits>(*this) == std::bit_cast<Bits>(other);
}

} // namespace vora
