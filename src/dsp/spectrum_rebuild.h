// Gives each bin of a packed spectrum a new magnitude while keeping its
// phase.
#pragma once

#include <cmath>
#include <cstdint>

namespace vora {

// For bins 1 .. binCount-1 of `packed` (Re, Im pairs; elements 0 and 1 are
// left alone): bin k becomes magnitude[k] × (cos φ, sin φ). Scaling the
// complex value by new/old magnitude gives the same within float rounding
// without per-bin transcendental functions; a bin of zero magnitude has
// phase 0, as atan2(0, 0) gives.
inline void rebuildWithPhase(float* packed, const float* magnitude, uint32_t binCount) {
  for (uint32_t k = 1; k < binCount; ++k) {
    const float re = packed[2 * k];
    const float im = packed[2 * k + 1];
    const float oldMagnitude = std::sqrt(re * re + im * im);
    if (oldMagnitude > 0.0f) {
      const float scale = magnitude[k] / oldMagnitude;
      packed[2 * k] = re * scale;
      packed[2 * k + 1] = im * scale;
    } else {
      packed[2 * k] = magnitude[k];
      packed[2 * k + 1] = 0.0f;
    }
  }
}

} // namespace vora
