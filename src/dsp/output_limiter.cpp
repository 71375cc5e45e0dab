#include "dsp/output_limiter.h"

#include "dsp/engine_kernels.h"

#include <algorithm>
#include <cmath>

namespace vora {

void OutputLimiter::limit(float* overlap, float* envelope, uint32_t hop, float attackLength, float releaseLength) {
  // Re-initialised only when the wanted length really changes (first hop,
  // new sample rate), so that the release carries over between hops.
  if (!release_.hasLength(releaseLength)) {
    releaseCurrent_ = kFloor;
    release_.initialise(releaseLength, 0.0f);
    release_.setState(releaseCurrent_);
  }
  if (!attack_.hasLength(attackLength)) {
    attackCurrent_ = kFloor;
    attack_.initialise(attackLength, 0.0f);
    attack_.setState(attackCurrent_);
  }

  // Nothing above the ceiling and no release in progress: both passes would
  // yield an envelope of exactly 1.0 and leave the samples as they are.
  const uint32_t span = 2 * hop;
  if (releaseCurrent_ == kFloor && largestMagnitude(overlap, span) <= kFloor) {
    return;
  }

  // The backward pass starts at the last sample above the ceiling: behind
  // it the detector reads 1.0, so the attack stays at its floor and the
  // envelope is 1.0 there, as rectify() leaves it.
  rectify(overlap, kFloor, envelope, span);
  uint32_t last = span;
  while (last > 0 && envelope[last - 1] == kFloor) {
    --last;
  }
  for (uint32_t i = last; i-- > 0;) {
    const float e = envelope[i];
    if (e >= attackCurrent_) {
      attackCurrent_ = e;
      attack_.setState(e);
    } else {
      attackCurrent_ = attack_.step(e);
    }
    envelope[i] = attackCurrent_;
  }
  attackCurrent_ = kFloor;
  attack_.setState(kFloor);

  for (uint32_t i = 0; i < hop; ++i) {
    const float e = std::max(std::fabs(envelope[i]), kFloor);
    if (e < releaseCurrent_) {
      releaseCurrent_ = release_.step(e);
    } else {
      releaseCurrent_ = e;
      release_.setState(e);
    }
    envelope[i] = releaseCurrent_;
  }

  divide(overlap, envelope, hop);
}

} // namespace vora
