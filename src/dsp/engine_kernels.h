// The engine's per-sample and per-bin loops, written once against the
// four-lane interface of vec4.h. The engine runs them with Vec4Native (SSE2
// or NEON); with Vec4Scalar they are the plain path the vector one is
// tested against; the two give the same bits. Where a kernel replaced a
// plain loop or a library call of earlier versions in another order of
// operations (bandSums: partial sums by bin modulo 4; levelsDb, dbToGains:
// polynomials), its bound against that is stated with it.
//
// Lengths marked "a multiple of 4" are hops, frames, bin counts or band
// spans widened to whole vectors.
#pragma once

#include "dsp/engine_constants.h"
#include "dsp/vec4.h"

#include <cstdint>
#include <limits>

namespace vora {

// Non-finite samples (NaN, infinities) become 0, the rest are clamped to
// ±kLargestInput. n: a multiple of 4.
template <class Ops = Vec4Native> void sanitiseSamples(float* x, uint32_t n) {
  const auto largest = Ops::broadcast(kLargestInput);
  const auto lowest = Ops::broadcast(-kLargestInput);
  const auto infinity = Ops::broadcast(std::numeric_limits<float>::infinity());
  const auto zero = Ops::broadcast(0.0f);
  for (uint32_t i = 0; i < n; i += 4) {
    const auto v = Ops::load(x + i);
    const auto finite = Ops::lessThan(Ops::abs(v), infinity); // false for NaN and ±inf
    Ops::store(x + i, Ops::select(finite, Ops::min(Ops::max(v, lowest), largest), zero));
  }
}

// The low-magnitude floor over bins [first, end): a magnitude m below
// kFloorMagnitude becomes m × s with s = m / kFloorMagnitude (else s = 1),
// and s is kept for the synthesis. s is taken as m × (1 / kFloorMagnitude),
// which is within one rounding of the quotient and exactly 1 from the floor
// up.
template <class Ops = Vec4Native> void applyFloor(float* magnitude, float* floorScale, uint32_t first, uint32_t end) {
  constexpr float reciprocal = 1.0f / kFloorMagnitude;
  const auto r = Ops::broadcast(reciprocal);
  const auto one = Ops::broadcast(1.0f);
  uint32_t k = first;
  for (; k + 4 <= end; k += 4) {
    const auto m = Ops::load(magnitude + k);
    const auto s = Ops::min(Ops::mul(m, r), one);
    Ops::store(magnitude + k, Ops::mul(m, s));
    Ops::store(floorScale + k, s);
  }
  for (; k < end; ++k) {
    const float m = magnitude[k];
    const float s = m * reciprocal < 1.0f ? m * reciprocal : 1.0f;
    magnitude[k] = m * s;
    floorScale[k] = s;
  }
}

// sums[c][b] = Σ_k magnitude[c][k] × weights[b][k] over band b's span
// [first[b], end[b]) (multiples of 4; the weights are zero outside the
// band's own range, so a span may be wider) for bands 0 .. bandCount-1 (at
// most kBandLanes) and one or two channels. Each band's sum is eight partial sums:
// one per lane of two accumulators taking alternate vectors of bins (so
// that two additions are in flight at once), added lane by lane into p,
// then (p0 + p1) + (p2 + p3), four bands at a time.
template <class Ops = Vec4Native>
void bandSums(const float* const* magnitude, int channels, const float (*weights)[kMaxBinCount], const uint32_t* first,
              const uint32_t* end, int bandCount, float (*sums)[kBandLanes]) {
  using V = typename Ops::V;
  alignas(16) float partial[2][kBandLanes][4] = {};
  const auto zero = Ops::broadcast(0.0f);
  for (int b = 0; b < bandCount; ++b) {
    const float* w = weights[b];
    const uint32_t stop = end[b];
    uint32_t k = first[b];
    V a0 = zero, b0 = zero, a1 = zero, b1 = zero;
    if (channels == 1) {
      const float* m0 = magnitude[0];
      for (; k + 8 <= stop; k += 8) {
        a0 = Ops::add(a0, Ops::mul(Ops::load(m0 + k), Ops::load(w + k)));
        b0 = Ops::add(b0, Ops::mul(Ops::load(m0 + k + 4), Ops::load(w + k + 4)));
      }
      if (k < stop) {
        a0 = Ops::add(a0, Ops::mul(Ops::load(m0 + k), Ops::load(w + k)));
      }
    } else {
      const float* m0 = magnitude[0];
      const float* m1 = magnitude[1];
      for (; k + 8 <= stop; k += 8) {
        const V wa = Ops::load(w + k);
        const V wb = Ops::load(w + k + 4);
        a0 = Ops::add(a0, Ops::mul(Ops::load(m0 + k), wa));
        a1 = Ops::add(a1, Ops::mul(Ops::load(m1 + k), wa));
        b0 = Ops::add(b0, Ops::mul(Ops::load(m0 + k + 4), wb));
        b1 = Ops::add(b1, Ops::mul(Ops::load(m1 + k + 4), wb));
      }
      if (k < stop) {
        const V wa = Ops::load(w + k);
        a0 = Ops::add(a0, Ops::mul(Ops::load(m0 + k), wa));
        a1 = Ops::add(a1, Ops::mul(Ops::load(m1 + k), wa));
      }
      Ops::store(partial[1][b], Ops::add(a1, b1));
    }
    Ops::store(partial[0][b], Ops::add(a0, b0));
  }
  for (int c = 0; c < channels; ++c) {
    for (int b = 0; b < bandCount; b += 4) {
      V p0 = Ops::load(partial[c][b]), p1 = Ops::load(partial[c][b + 1]);
      V p2 = Ops::load(partial[c][b + 2]), p3 = Ops::load(partial[c][b + 3]);
      Ops::transpose(p0, p1, p2, p3); // lane j of pi: partial i of band b + j
      Ops::store(sums[c] + b, Ops::add(Ops::add(p0, p1), Ops::add(p2, p3)));
    }
  }
}

// out[c][k] = Σ_b weights[b][k] × gains[c][b] for every bin, added band
// by band in order from 0: each eight bins k = 8v .. 8v + 7 over the bands
// bandsFrom[v] .. bandsTo[v] - 1 (gains[c] holds kBandLanes), whose weights are
// zero wherever their range does not reach, adding nothing. One or two
// channels; bins: a multiple of 8.
template <class Ops = Vec4Native>
void bandWeightsPerBin(const float (*weights)[kMaxBinCount], const uint8_t* bandsFrom, const uint8_t* bandsTo,
                       const float* const* gains, int channels, float* const* out, uint32_t bins) {
  using V = typename Ops::V;
  alignas(16) float gain[2][kBandLanes][4];
  for (int c = 0; c < channels; ++c) {
    for (int b = 0; b < kBandLanes; ++b) {
      Ops::store(gain[c][b], Ops::broadcast(gains[c][b]));
    }
  }
  const auto zero = Ops::broadcast(0.0f);
  for (uint32_t v = 0; v < bins / 8; ++v) {
    const uint32_t k = 8 * v;
    V lo0 = zero, hi0 = zero, lo1 = zero, hi1 = zero;
    if (channels == 1) {
      for (int b = bandsFrom[v]; b < bandsTo[v]; ++b) {
        const V g = Ops::load(gain[0][b]);
        lo0 = Ops::add(lo0, Ops::mul(Ops::load(weights[b] + k), g));
        hi0 = Ops::add(hi0, Ops::mul(Ops::load(weights[b] + k + 4), g));
      }
    } else {
      for (int b = bandsFrom[v]; b < bandsTo[v]; ++b) {
        const V wLo = Ops::load(weights[b] + k);
        const V wHi = Ops::load(weights[b] + k + 4);
        const V g0 = Ops::load(gain[0][b]);
        const V g1 = Ops::load(gain[1][b]);
        lo0 = Ops::add(lo0, Ops::mul(wLo, g0));
        hi0 = Ops::add(hi0, Ops::mul(wHi, g0));
        lo1 = Ops::add(lo1, Ops::mul(wLo, g1));
        hi1 = Ops::add(hi1, Ops::mul(wHi, g1));
      }
      Ops::store(out[1] + k, lo1);
      Ops::store(out[1] + k + 4, hi1);
    }
    Ops::store(out[0] + k, lo0);
    Ops::store(out[0] + k + 4, hi0);
  }
}

// 20·log10(|sum| + kFloatMinimum), the level of a band sum in dB, n at a
// time (a multiple of 4). A polynomial stands in for the library's log10:
// log2 x = e + u·Q(u) for x = (1 + u)·2^e, Q of degree 8 fitted on [0, 1),
// within 1.5e-7 of log2 before the float roundings. Against 20·log10f it
// stays within 4e-6 dB + 2e-7 of the level (tested from silence, -758.6 dB,
// to +260 dB); a gain computed from it moves by as little.
template <class Ops = Vec4Native> void levelsDb(const float* sums, float* levels, uint32_t n) {
  constexpr float q[9] = {1.44269502f,   -0.721340358f, 0.480695486f,   -0.358428478f, 0.275719672f,
                          -0.197285205f, 0.113051973f,  -0.0426871851f, 0.00757913571f};
  constexpr float decibelsPerOctave = 6.02059991f; // 20·log10(2)
  const auto tiny = Ops::broadcast(kFloatMinimum);
  const auto one = Ops::broadcast(1.0f);
  for (uint32_t i = 0; i < n; i += 4) {
    const auto x = Ops::add(Ops::abs(Ops::load(sums + i)), tiny);
    const auto u = Ops::sub(Ops::mantissa(x), one);
    auto p = Ops::broadcast(q[8]);
    for (int j = 7; j >= 0; --j) {
      p = Ops::add(Ops::mul(p, u), Ops::broadcast(q[j]));
    }
    const auto log2 = Ops::add(Ops::exponent(x), Ops::mul(u, p));
    Ops::store(levels + i, Ops::mul(log2, Ops::broadcast(decibelsPerOctave)));
  }
}

// 10^(dB/20) - kFloatMinimum, the linear gain of a gain in dB, n at a time
// (a multiple of 4). A polynomial stands in for the library's exp:
// 2^t = 2^f·2^n with n the nearest whole number to t and 2^f of degree 6 on
// [-0.5, 0.5] (within 1e-7). t is clamped to -125 .. 127, so gains below
// -752 dB give 0 and the result is never denormal. Against
// exp(dB × ln(10)/20) it stays within 5e-7 + 1e-8 per dB, relative (tested
// from -240 to +250 dB).
template <class Ops = Vec4Native> void dbToGains(const float* db, float* gains, uint32_t n) {
  constexpr float c[7] = {1.0f,           0.693147182f,   0.240226507f,   0.0555032715f,
                          0.00961802527f, 0.00134004327f, 0.000154697322f};
  constexpr float octavesPerDecibel = 0.166096405f; // log2(10)/20
  constexpr float roundingShift = 12582912.0f;      // 1.5·2^23: adding it rounds to a whole number
  const auto lowest = Ops::broadcast(-125.0f);
  const auto highest = Ops::broadcast(127.0f);
  const auto shift = Ops::broadcast(roundingShift);
  const auto tiny = Ops::broadcast(kFloatMinimum);
  for (uint32_t i = 0; i < n; i += 4) {
    const auto t = Ops::min(Ops::max(Ops::mul(Ops::load(db + i), Ops::broadcast(octavesPerDecibel)), lowest), highest);
    const auto whole = Ops::sub(Ops::add(t, shift), shift);
    const auto f = Ops::sub(t, whole);
    auto p = Ops::broadcast(c[6]);
    for (int j = 5; j >= 0; --j) {
      p = Ops::add(Ops::mul(p, f), Ops::broadcast(c[j]));
    }
    Ops::store(gains + i, Ops::sub(Ops::mul(p, Ops::pow2(whole)), tiny));
  }
}

// The largest |x[i]|. n: a multiple of 8.
template <class Ops = Vec4Native> float largestMagnitude(const float* x, uint32_t n) {
  auto peakA = Ops::broadcast(0.0f);
  auto peakB = peakA;
  for (uint32_t i = 0; i < n; i += 8) {
    peakA = Ops::max(peakA, Ops::abs(Ops::load(x + i)));
    peakB = Ops::max(peakB, Ops::abs(Ops::load(x + i + 4)));
  }
  return Ops::maxLane(Ops::max(peakA, peakB));
}

// envelope[i] = max(|x[i]|, floor), the limiter's detector input. n: a
// multiple of 4.
template <class Ops = Vec4Native> void rectify(const float* x, float floor, float* envelope, uint32_t n) {
  const auto f = Ops::broadcast(floor);
  for (uint32_t i = 0; i < n; i += 4) {
    Ops::store(envelope + i, Ops::max(Ops::abs(Ops::load(x + i)), f));
  }
}

// x[i] /= by[i]. n: a multiple of 4.
template <class Ops = Vec4Native> void divide(float* x, const float* by, uint32_t n) {
  for (uint32_t i = 0; i < n; i += 4) {
    Ops::store(x + i, Ops::div(Ops::load(x + i), Ops::load(by + i)));
  }
}

// out[i] = out[i] × mix + dry[i] × (1 - mix). n: a multiple of 4.
template <class Ops = Vec4Native> void crossfade(float* out, const float* dry, float mix, uint32_t n) {
  const auto m = Ops::broadcast(mix);
  const auto d = Ops::broadcast(1.0f - mix);
  for (uint32_t i = 0; i < n; i += 4) {
    Ops::store(out + i, Ops::add(Ops::mul(Ops::load(out + i), m), Ops::mul(Ops::load(dry + i), d)));
  }
}

} // namespace vora
