// Four-lane float vectors with the handful of operations the transform in
// packed_real_fft.h needs. The transform is written once against this
// interface; Vec4Scalar runs it as plain C++ on any target and is the
// reference the SSE2 and NEON versions are checked against. Vec4Native is
// the fastest one the target compiles.
#pragma once

#include <cstddef>

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define LARKSPIN_VEC4_SSE2 1
#elif defined(__ARM_NEON) || defined(__ARM_NEON__)
#include <arm_neon.h>
#define LARKSPIN_VEC4_NEON 1
#endif

namespace vora {

struct Vec4Scalar {
  struct V {
    float lane[4];
  };
  static constexpr const char* kName = "scalar";

  static V load(const float* p) { return {{p[0], p[1], p[2], p[3]}}; }
  static void store(float* p, V a) {
    for (int i = 0; i < 4; ++i) {
      p[i] = a.lane[i];
    }
  }
  static V broadcast(float x) { return {{x, x, x, x}}; }
  static V add(V a, V b) {
    return {{a.lane[0] + b.lane[0], a.lane[1] + b.lane[1], a.lane[2] + b.lane[2], a.lane[3] + b.lane[3]}};
  }
  static V sub(V a, V b) {
    return {{a.lane[0] - b.lane[0], a.lane[1] - b.lane[1], a.lane[2] - b.lane[2], a.lane[3] - b.lane[3]}};
  }
  static V mul(V a, V b) {
    return {{a.lane[0] * b.lane[0], a.lane[1] * b.lane[1], a.lane[2] * b.lane[2], a.lane[3] * b.lane[3]}};
  }
  // Lanes 3, 2, 1, 0.
  static V reverse(V a) { return {{a.lane[3], a.lane[2], a.lane[1], a.lane[0]}}; }
  // Rows become columns.
  static void transpose(V& r0, V& r1, V& r2, V& r3) {
    const V a = r0, b = r1, c = r2, d = r3;
    r0 = {{a.lane[0], b.lane[0], c.lane[0], d.lane[0]}};
    r1 = {{a.lane[1], b.lane[1], c.lane[1], d.lane[1]}};
    r2 = {{a.lane[2], b.lane[2], c.lane[2], d.lane[2]}};
    r3 = {{a.lane[3], b.lane[3], c.lane[3], d.lane[3]}};
  }
  // Eight consecutive floats p[0..7] -> even p[0, 2, 4, 6], odd p[1, 3, 5, 7].
  static void deinterleave(const float* p, V& even, V& odd) {
    even = {{p[0], p[2], p[4], p[6]}};
    odd = {{p[1], p[3], p[5], p[7]}};
  }
  // The reverse of deinterleave.
  static void interleave(float* p, V even, V odd) {
    for (size_t i = 0; i < 4; ++i) {
      p[2 * i] = even.lane[i];
      p[2 * i + 1] = odd.lane[i];
    }
  }
};

#if LARKSPIN_VEC4_SSE2
struct Vec4Sse2 {
  using V = __m128;
  static constexpr const char* kName = "sse2";

  static V load(const float* p) { return _mm_loadu_ps(p); }
  static void store(float* p, V a) { _mm_storeu_ps(p, a); }
  static V broadcast(float x) { return _mm_set1_ps(x); }
  static V add(V a, V b) { return _mm_add_ps(a, b); }
  static V sub(V a, V b) { return _mm_sub_ps(a, b); }
  static V mul(V a, V b) { return _mm_mul_ps(a, b); }
  static V reverse(V a) { return _mm_shuffle_ps(a, a, _MM_SHUFFLE(0, 1, 2, 3)); }
  static void transpose(V& r0, V& r1, V& r2, V& r3) { _MM_TRANSPOSE4_PS(r0, r1, r2, r3); }
  static void deinterleave(const float* p, V& even, V& odd) {
    const V lo = _mm_loadu_ps(p);
    const V hi = _mm_loadu_ps(p + 4);
    even = _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(2, 0, 2, 0));
    odd = _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(3, 1, 3, 1));
  }
  static void interleave(float* p, V even, V odd) {
    _mm_storeu_ps(p, _mm_unpacklo_ps(even, odd));
    _mm_storeu_ps(p + 4, _mm_unpackhi_ps(even, odd));
  }
};
using Vec4Native = Vec4Sse2;
#elif LARKSPIN_VEC4_NEON
struct Vec4Neon {
  using V = float32x4_t;
  static constexpr const char* kName = "neon";

  static V load(const float* p) { return vld1q_f32(p); }
  static void store(float* p, V a) { vst1q_f32(p, a); }
  static V broadcast(float x) { return vdupq_n_f32(x); }
  static V add(V a, V b) { return vaddq_f32(a, b); }
  static V sub(V a, V b) { return vsubq_f32(a, b); }
  static V mul(V a, V b) { return vmulq_f32(a, b); }
  static V reverse(V a) {
    const V pairsSwapped = vrev64q_f32(a); // 1 0 3 2
    return vcombine_f32(vget_high_f32(pairsSwapped), vget_low_f32(pairsSwapped));
  }
  static void transpose(V& r0, V& r1, V& r2, V& r3) {
    const float32x4x2_t t01 = vtrnq_f32(r0, r1); // a0 b0 a2 b2 | a1 b1 a3 b3
    const float32x4x2_t t23 = vtrnq_f32(r2, r3);
    r0 = vcombine_f32(vget_low_f32(t01.val[0]), vget_low_f32(t23.val[0]));
    r1 = vcombine_f32(vget_low_f32(t01.val[1]), vget_low_f32(t23.val[1]));
    r2 = vcombine_f32(vget_high_f32(t01.val[0]), vget_high_f32(t23.val[0]));
    r3 = vcombine_f32(vget_high_f32(t01.val[1]), vget_high_f32(t23.val[1]));
  }
  static void deinterleave(const float* p, V& even, V& odd) {
    const float32x4x2_t pair = vld2q_f32(p);
    even = pair.val[0];
    odd = pair.val[1];
  }
  static void interleave(float* p, V even, V odd) {
    float32x4x2_t pair;
    pair.val[0] = even;
    pair.val[1] = odd;
    vst2q_f32(p, pair);
  }
};
using Vec4Native = Vec4Neon;
#else
using Vec4Native = Vec4Scalar;
#endif

} // namespace vora
