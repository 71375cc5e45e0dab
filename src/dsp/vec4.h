// Four-lane float vectors with the handful of operations the transform in
// packed_real_fft.h and the engine's kernels (engine_kernels.h) need.
// Both are written once against this interface; Vec4Scalar runs them as
// plain C++ on any target and is the reference the SSE2 and NEON versions
// are checked against. Vec4Native is the fastest one the target compiles.
//
// Every operation gives the same bits in every version for ordered
// operands, with two exceptions the callers keep clear of: min and max of a
// NaN or of zeros of opposite signs, and denormal results, which NEON on
// ARMv7 always flushes to zero. Masks (from lessThan) are lanes of all ones
// or all zeros, for select only.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>

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
  static V div(V a, V b) {
    return {{a.lane[0] / b.lane[0], a.lane[1] / b.lane[1], a.lane[2] / b.lane[2], a.lane[3] / b.lane[3]}};
  }
  // a < b ? a : b and a > b ? a : b, lane by lane.
  static V min(V a, V b) {
    return map2(a, b, [](float x, float y) { return x < y ? x : y; });
  }
  static V max(V a, V b) {
    return map2(a, b, [](float x, float y) { return x > y ? x : y; });
  }
  static V abs(V a) {
    return map(a, [](float x) { return std::fabs(x); });
  }
  static V sqrt(V a) {
    return map(a, [](float x) { return std::sqrt(x); });
  }
  static V lessThan(V a, V b) {
    return map2(a, b, [](float x, float y) { return std::bit_cast<float>(x < y ? ~0u : 0u); });
  }
  // Lanes of `a` where `mask` is set, of `b` elsewhere.
  static V select(V mask, V a, V b) {
    V out;
    for (int i = 0; i < 4; ++i) {
      const uint32_t m = std::bit_cast<uint32_t>(mask.lane[i]);
      out.lane[i] =
          std::bit_cast<float>((m & std::bit_cast<uint32_t>(a.lane[i])) | (~m & std::bit_cast<uint32_t>(b.lane[i])));
    }
    return out;
  }
  static float maxLane(V a) {
    const float lo = a.lane[0] > a.lane[1] ? a.lane[0] : a.lane[1];
    const float hi = a.lane[2] > a.lane[3] ? a.lane[2] : a.lane[3];
    return lo > hi ? lo : hi;
  }
  // For positive normal x = m · 2^e with m in [1, 2): e (as a float) and m.
  static V exponent(V a) {
    return map(a, [](float x) {
      return static_cast<float>(static_cast<int32_t>((std::bit_cast<uint32_t>(x) >> 23) & 0xffu) - 127);
    });
  }
  static V mantissa(V a) {
    return map(a,
               [](float x) { return std::bit_cast<float>((std::bit_cast<uint32_t>(x) & 0x007fffffu) | 0x3f800000u); });
  }
  // 2^n for whole numbers n in -126 .. 127.
  static V pow2(V n) {
    return map(
        n, [](float x) { return std::bit_cast<float>(static_cast<uint32_t>(static_cast<int32_t>(x) + 127) << 23); });
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
  // deinterleave of p[i] × w[i], i = 0..7.
  static void deinterleaveProduct(const float* p, const float* w, V& even, V& odd) {
    for (size_t i = 0; i < 4; ++i) {
      even.lane[i] = p[2 * i] * w[2 * i];
      odd.lane[i] = p[2 * i + 1] * w[2 * i + 1];
    }
  }
  // sum[i] += interleave(even, odd)[i] × w[i], i = 0..7.
  static void interleaveMultiplyAdd(float* sum, const float* w, V even, V odd) {
    for (size_t i = 0; i < 4; ++i) {
      sum[2 * i] = sum[2 * i] + even.lane[i] * w[2 * i];
      sum[2 * i + 1] = sum[2 * i + 1] + odd.lane[i] * w[2 * i + 1];
    }
  }

private:
  template <class F> static V map(V a, F f) { return {{f(a.lane[0]), f(a.lane[1]), f(a.lane[2]), f(a.lane[3])}}; }
  template <class F> static V map2(V a, V b, F f) {
    return {{f(a.lane[0], b.lane[0]), f(a.lane[1], b.lane[1]), f(a.lane[2], b.lane[2]), f(a.lane[3], b.lane[3])}};
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
  static V div(V a, V b) { return _mm_div_ps(a, b); }
  static V min(V a, V b) { return _mm_min_ps(a, b); }
  static V max(V a, V b) { return _mm_max_ps(a, b); }
  static V abs(V a) { return _mm_andnot_ps(_mm_set1_ps(-0.0f), a); }
  static V sqrt(V a) { return _mm_sqrt_ps(a); }
  static V lessThan(V a, V b) { return _mm_cmplt_ps(a, b); }
  static V select(V mask, V a, V b) { return _mm_or_ps(_mm_and_ps(mask, a), _mm_andnot_ps(mask, b)); }
  static float maxLane(V a) {
    // max(0, 2) and max(1, 3) in lanes 0 and 1; max_ss reads lane 0 only,
    // so the shuffle need only bring lane 1 down.
    const V pairs = _mm_max_ps(a, _mm_movehl_ps(a, a));
    return _mm_cvtss_f32(_mm_max_ss(pairs, _mm_shuffle_ps(pairs, pairs, 1)));
  }
  static V exponent(V a) {
    const __m128i biased = _mm_and_si128(_mm_srli_epi32(_mm_castps_si128(a), 23), _mm_set1_epi32(0xff));
    return _mm_cvtepi32_ps(_mm_sub_epi32(biased, _mm_set1_epi32(127)));
  }
  static V mantissa(V a) {
    return _mm_or_ps(_mm_and_ps(a, _mm_castsi128_ps(_mm_set1_epi32(0x007fffff))),
                     _mm_castsi128_ps(_mm_set1_epi32(0x3f800000)));
  }
  static V pow2(V n) {
    return _mm_castsi128_ps(_mm_slli_epi32(_mm_add_epi32(_mm_cvttps_epi32(n), _mm_set1_epi32(127)), 23));
  }
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
  static void deinterleaveProduct(const float* p, const float* w, V& even, V& odd) {
    const V lo = _mm_mul_ps(_mm_loadu_ps(p), _mm_loadu_ps(w));
    const V hi = _mm_mul_ps(_mm_loadu_ps(p + 4), _mm_loadu_ps(w + 4));
    even = _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(2, 0, 2, 0));
    odd = _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(3, 1, 3, 1));
  }
  static void interleaveMultiplyAdd(float* sum, const float* w, V even, V odd) {
    const V lo = _mm_mul_ps(_mm_unpacklo_ps(even, odd), _mm_loadu_ps(w));
    const V hi = _mm_mul_ps(_mm_unpackhi_ps(even, odd), _mm_loadu_ps(w + 4));
    _mm_storeu_ps(sum, _mm_add_ps(_mm_loadu_ps(sum), lo));
    _mm_storeu_ps(sum + 4, _mm_add_ps(_mm_loadu_ps(sum + 4), hi));
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
  // ARMv7 NEON has no vector division or square root; the VFP does each
  // lane exactly, as the other versions do.
  static V div(V a, V b) {
    return lanes(a, b, [](float x, float y) { return x / y; });
  }
  static V min(V a, V b) { return vminq_f32(a, b); }
  static V max(V a, V b) { return vmaxq_f32(a, b); }
  static V abs(V a) { return vabsq_f32(a); }
  static V sqrt(V a) {
    return lanes(a, a, [](float x, float) { return std::sqrt(x); });
  }
  static V lessThan(V a, V b) { return vreinterpretq_f32_u32(vcltq_f32(a, b)); }
  static V select(V mask, V a, V b) { return vbslq_f32(vreinterpretq_u32_f32(mask), a, b); }
  static float maxLane(V a) {
    const float32x2_t pairs = vpmax_f32(vget_low_f32(a), vget_high_f32(a));
    return vget_lane_f32(vpmax_f32(pairs, pairs), 0);
  }
  static V exponent(V a) {
    const uint32x4_t biased = vandq_u32(vshrq_n_u32(vreinterpretq_u32_f32(a), 23), vdupq_n_u32(0xff));
    return vcvtq_f32_s32(vsubq_s32(vreinterpretq_s32_u32(biased), vdupq_n_s32(127)));
  }
  static V mantissa(V a) {
    return vreinterpretq_f32_u32(
        vorrq_u32(vandq_u32(vreinterpretq_u32_f32(a), vdupq_n_u32(0x007fffff)), vdupq_n_u32(0x3f800000)));
  }
  static V pow2(V n) { return vreinterpretq_f32_s32(vshlq_n_s32(vaddq_s32(vcvtq_s32_f32(n), vdupq_n_s32(127)), 23)); }
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
  static void deinterleaveProduct(const float* p, const float* w, V& even, V& odd) {
    const float32x4x2_t x = vld2q_f32(p);
    const float32x4x2_t y = vld2q_f32(w);
    even = vmulq_f32(x.val[0], y.val[0]);
    odd = vmulq_f32(x.val[1], y.val[1]);
  }
  static void interleaveMultiplyAdd(float* sum, const float* w, V even, V odd) {
    float32x4x2_t s = vld2q_f32(sum);
    const float32x4x2_t y = vld2q_f32(w);
    s.val[0] = vaddq_f32(s.val[0], vmulq_f32(even, y.val[0]));
    s.val[1] = vaddq_f32(s.val[1], vmulq_f32(odd, y.val[1]));
    vst2q_f32(sum, s);
  }

private:
  template <class F> static V lanes(V a, V b, F f) {
    float x[4], y[4];
    vst1q_f32(x, a);
    vst1q_f32(y, b);
    for (int i = 0; i < 4; ++i) {
      x[i] = f(x[i], y[i]);
    }
    return vld1q_f32(x);
  }
};
using Vec4Native = Vec4Neon;
#else
using Vec4Native = Vec4Scalar;
#endif

} // namespace vora
