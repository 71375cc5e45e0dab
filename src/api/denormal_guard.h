// Flushes denormal floats to zero (and treats denormal inputs as zero)
// while it lives, and restores the caller's floating-point state after.
// Denormals can make recursive filters and decaying tails tens of times
// slower on some processors; the audio path must cost the same for silence
// as for noise.
#pragma once

#include <cstdint>

#if defined(__SSE__) || defined(__x86_64__)
#include <xmmintrin.h>
#endif

namespace vora {

class DenormalGuard {
public:
  DenormalGuard() {
#if defined(__SSE__) || defined(__x86_64__)
    saved_ = _mm_getcsr();
    _mm_setcsr(saved_ | kFlushToZero | kDenormalsAreZero);
#elif defined(__arm__) && defined(__ARM_FP)
    asm volatile("vmrs %0, fpscr" : "=r"(saved_));
    asm volatile("vmsr fpscr, %0" : : "r"(saved_ | kArmFlushToZero));
#elif defined(__aarch64__)
    uint64_t fpcr;
    asm volatile("mrs %0, fpcr" : "=r"(fpcr));
    saved_ = static_cast<uint32_t>(fpcr);
    asm volatile("msr fpcr, %0" : : "r"(fpcr | kArmFlushToZero));
#endif
  }

  ~DenormalGuard() {
#if defined(__SSE__) || defined(__x86_64__)
    _mm_setcsr(saved_);
#elif defined(__arm__) && defined(__ARM_FP)
    asm volatile("vmsr fpscr, %0" : : "r"(saved_));
#elif defined(__aarch64__)
    asm volatile("msr fpcr, %0" : : "r"(static_cast<uint64_t>(saved_)));
#endif
  }

  DenormalGuard(const DenormalGuard&) = delete;
  DenormalGuard& operator=(const DenormalGuard&) = delete;

private:
  [[maybe_unused]] static constexpr uint32_t kFlushToZero = 0x8000;      // MXCSR.FTZ
  [[maybe_unused]] static constexpr uint32_t kDenormalsAreZero = 0x0040; // MXCSR.DAZ
  [[maybe_unused]] static constexpr uint32_t kArmFlushToZero = 1u << 24; // FPSCR/FPCR.FZ
  uint32_t saved_ = 0;
};

} // namespace vora
