#include "dsp/output_limiter.h"

#include <algorithm>
#include <cmath>

namespace vora {

void OutputLimiter::limit(float* overlap, HopFifo& envelope, uint32_t hop, float attackLength, float releaseLength) {
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

  float* env = envelope.data();

  // Nothing above the ceiling and no release in progress: both passes would
  // yield an envelope of exactly 1.0 and leave the samples as they are.
  if (releaseCurrent_ == kFloor) {
    float peak = 0.0f;
    for (uint32_t i = 0; i < 2 * hop; ++i) {
      peak = std::max(peak, std::fabs(overlap[i]));
    }
    if (peak <= kFloor) {
      std::fill(env, env + 2 * static_cast<size_t>(hop), kFloor);
      release_.setState(kFloor);
      envelope.push(nullptr);
      return;
    }
  }

  for (uint32_t i = 2 * hop; i-- > 0;) {
    const float e = std::max(std::fabs(overlap[i]), kFloor);
    if (e >= attackCurrent_) {
      attackCurrent_ = e;
      attack_.setState(e);
    } else {
      attackCurrent_ = attack_.step(e);
    }
    env[i] = attackCurrent_;
  }
  attackCurrent_ = kFloor;
  attack_.setState(kFloor);

  for (uint32_t i = 0; i < hop; ++i) {
    const float e = std::max(std::fabs(env[i]), kFloor);
    if (e < releaseCurrent_) {
      releaseCurrent_ = release_.step(e);
    } else {
      releaseCurrent_ = e;
      release_.setState(e);
    }
    env[i] = releaseCurrent_;
  }

  for (uint32_t i = 0; i < hop; ++i) {
    overlap[i] /= env[i];
  }
  envelope.push(nullptr);
}

} // namespace vora
