// Gives each bin of a packed spectrum its new magnitude while keeping its
// phase.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vora {

// The band bank's new magnitude of bin k is the (floored) analysis
// magnitude times W[k] = Σ_b weight_b[k] × gain_b. Rebuilding it as
// new × (cos φ, sin φ) is the same, within float rounding, as scaling the
// bin's complex value by new / original magnitude = W[k] × floorScale[k],
// where floorScale is floored / original magnitude (1 outside the floor).
// That needs no square root, division or transcendental function per bin;
// a bin of zero magnitude stays zero, as the polar form with atan2(0, 0)
// gives. Elements 0 and 1 (the real parts of bins 0 and N/2) are left alone.
inline void scaleBins(float* packed, const float* bandWeight, const float* floorScale, uint32_t binCount) {
  for (size_t k = 1; k < binCount; ++k) {
    const float scale = bandWeight[k] * floorScale[k];
    packed[2 * k] *= scale;
    packed[2 * k + 1] *= scale;
  }
}

} // namespace vora
