// Peak limiter with a ceiling of 1.0 on a channel's overlap-add buffer.
// A backward pass over two hops starts the gain reduction before a peak
// (look-ahead, short attack smoothing); a forward pass over the hop lets it
// recover (release smoothing, carried over from hop to hop).
#pragma once

#include "dsp/engine_constants.h"
#include "dsp/one_pole_smoother.h"

#include <cstdint>

namespace vora {

class OutputLimiter {
public:
  // Scales the first `hop` samples of `overlap` in place, reading 2 * hop
  // of them; `envelope` is scratch for 2 * hop floats, nothing is kept in
  // it. hop: a multiple of 4. Lengths are in samples.
  void limit(float* overlap, float* envelope, uint32_t hop, float attackLength, float releaseLength);

  float releaseValue() const { return releaseCurrent_; }

private:
  static constexpr float kFloor = kLimiterCeiling;

  OnePoleSmoother release_;
  float releaseCurrent_ = kFloor;
  OnePoleSmoother attack_; // its state lives only within one backward pass
};

} // namespace vora
