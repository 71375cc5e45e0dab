#include "dsp/output_limiter.h"

#include "dsp/engine_kernels.h"

#include <algorithm>
#include <cmath>

namespace vora {

void OutputLimiter::limit(float* overlap, float* envelope, uint32_t hop, float attackLength, float releaseLength) {
  // Re-initialised only when the wanted length really changes (first hop,
  // new sample rate), so that the release carries over between hops. No
  // smoother needs a start state (both start at the floor): the attack pass
  // sets its state at its first sample, and so does the release pass after
  // a restart, as every sample is at or above the floor it restarts from.
  if (!release_.hasLength(releaseLength)) {
    releaseCurrent_ = kFloor;
    release_.initialise(releaseLength, kFloor);
  }
  if (!attack_.hasLength(attackLength)) {
    attack_.initialise(attackLength, kFloor);
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
  float attack = kFloor;
  for (uint32_t i = last; i-- > 0;) {
    const float e = envelope[i];
    if (e >= attack) {
      attack = e;
      attack_.setState(e);
    } else {
      attack = attack_.step(e);
    }
    envelope[i] = attack;
  }

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
