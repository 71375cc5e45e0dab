// The project's own real FFT for N = 256, 512 and 1024, written once against
// a four-lane vector interface (vec4.h) so that the same code runs as SSE2,
// NEON or plain C++.
//
// A real signal of N points is read as N/2 complex points z[n] = x[2n] +
// i x[2n+1]; their complex FFT Z is split into the spectra of the even and
// odd samples, which one pass of twiddles turns into the N/2 + 1 bins of x.
// The inverse runs the same steps backwards, and gets its inverse complex
// FFT from the forward one by swapping real and imaginary parts on the way
// in and out.
//
// The complex FFT is a Stockham autosort (natural order in and out, two
// buffers used in turn) of radix-4 passes plus one radix-2 pass when N/2 is
// not a power of four. Data are kept as separate real and imaginary arrays,
// so every butterfly works on four independent points at once: in the first
// pass the four lanes are four butterflies whose results a 4x4 transpose
// puts in place; in later passes the lanes are four consecutive points that
// share one twiddle.
//
// Every table and buffer is a fixed member sized for N = 1024; setup() fills
// the twiddles, forward() and inverse() neither allocate nor branch on data.
#pragma once

#include "dsp/engine_constants.h"
#include "dsp/real_fft.h"

#include <cmath>
#include <cstdint>
#include <numbers>

#if defined(__SANITIZE_ADDRESS__)
#define LARKSPIN_FFT_POISON_UNUSED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define LARKSPIN_FFT_POISON_UNUSED 1
#endif
#endif
#ifdef LARKSPIN_FFT_POISON_UNUSED
#include <sanitizer/asan_interface.h>
#endif

namespace vora {

template <class Ops> class PackedRealFft {
  using V = typename Ops::V;

public:
  static constexpr uint32_t kMaxSize = kMaxFftSize;

  PackedRealFft() = default;
  PackedRealFft(const PackedRealFft&) = delete;
  PackedRealFft& operator=(const PackedRealFft&) = delete;
  ~PackedRealFft() { markUnused(kMaxHalf, kMaxHalf + 4, kMaxHalf); }

  // Accepts the engine's sizes only (256, 512 or 1024); returns false for
  // anything else.
  bool setup(uint32_t size) {
    if (!isEngineFftSize(size)) {
      return false;
    }
    size_ = size;
    half_ = size / 2;
    stageCount_ = 0;
    uint32_t twiddleAt = 0;
    for (uint32_t n = half_; n >= 4; n /= 4) {
      const uint32_t m = n / 4;
      stageTwiddles_[stageCount_++] = twiddleAt;
      for (uint32_t j = 1; j <= 3; ++j) {
        for (uint32_t p = 0; p < m; ++p) {
          const double angle = -2.0 * std::numbers::pi * double(j * p) / double(n);
          twiddleRe_[twiddleAt] = static_cast<float>(std::cos(angle));
          twiddleIm_[twiddleAt] = static_cast<float>(std::sin(angle));
          ++twiddleAt;
        }
      }
    }
    radix2Last_ = half_ != 256u; // 128 and 512 are twice a power of four
    const double scale = 1.0 / double(size);
    for (uint32_t k = 0; k < half_; ++k) {
      const double angle = -2.0 * std::numbers::pi * double(k) / double(size);
      splitRe_[k] = static_cast<float>(0.5 * std::cos(angle));
      splitIm_[k] = static_cast<float>(0.5 * std::sin(angle));
      mergeRe_[k] = static_cast<float>(scale * std::cos(angle));
      mergeIm_[k] = static_cast<float>(-scale * std::sin(angle));
    }
    markUnused(half_, half_ + 1, twiddleAt);
    return true;
  }

  uint32_t size() const { return size_; }

  // Unscaled forward transform into the packed layout: Re bin 0, Re bin
  // N/2, then (Re, Im) of bins 1 .. N/2-1. In place is allowed. `steps` as
  // RealFft's.
  void forward(const float* input, float* packed, const FftForwardSteps& steps = {}) {
    for (size_t i = 0; i < half_; i += 4) {
      V even, odd;
      if (steps.window != nullptr) {
        Ops::deinterleaveProduct(input + 2 * i, steps.window + 2 * i, even, odd);
      } else {
        Ops::deinterleave(input + 2 * i, even, odd);
      }
      Ops::store(aRe_ + i, even);
      Ops::store(aIm_ + i, odd);
    }
    float* magnitude = steps.magnitude;
    const bool inB = complexForward(aRe_, aIm_, bRe_, bIm_);
    float* zRe = inB ? bRe_ : aRe_;
    float* zIm = inB ? bIm_ : aIm_;
    zRe[half_] = zRe[0]; // Z[N/2] wraps to Z[0]
    zIm[half_] = zIm[0];

    // X[k] = E[k] + W^k O[k], with E = (Z[k] + conj Z[N/2-k]) / 2 and
    // O = -i (Z[k] - conj Z[N/2-k]) / 2; the halves sit in the twiddles.
    const V half = Ops::broadcast(0.5f);
    for (size_t k = 0; k < half_; k += 4) {
      const V ar = Ops::load(zRe + k);
      const V ai = Ops::load(zIm + k);
      const V br = Ops::reverse(Ops::load(zRe + half_ - k - 3));
      const V bi = Ops::reverse(Ops::load(zIm + half_ - k - 3));
      const V er = Ops::mul(half, Ops::add(ar, br));
      const V ei = Ops::mul(half, Ops::sub(ai, bi));
      const V odr = Ops::add(ai, bi);
      const V odi = Ops::sub(br, ar);
      const V wr = Ops::load(splitRe_ + k);
      const V wi = Ops::load(splitIm_ + k);
      const V xr = Ops::add(er, Ops::sub(Ops::mul(wr, odr), Ops::mul(wi, odi)));
      const V xi = Ops::add(ei, Ops::add(Ops::mul(wr, odi), Ops::mul(wi, odr)));
      Ops::interleave(packed + 2 * k, xr, xi);
      if (magnitude != nullptr) {
        Ops::store(magnitude + k, Ops::sqrt(Ops::add(Ops::mul(xr, xr), Ops::mul(xi, xi))));
      }
    }
    packed[0] = zRe[0] + zIm[0];
    packed[1] = zRe[0] - zIm[0];
  }

  // Inverse of forward(), scaled by 1/N. In place is allowed without a
  // window. `steps` as RealFft's.
  void inverse(const float* packed, float* output, const FftInverseSteps& steps = {}) {
    for (size_t k = 0; k < half_; k += 4) {
      V re, im;
      Ops::deinterleave(packed + 2 * k, re, im);
      if (steps.scaleA != nullptr) {
        const V scale = Ops::mul(Ops::load(steps.scaleA + k), Ops::load(steps.scaleB + k));
        re = Ops::mul(re, scale);
        im = Ops::mul(im, scale);
      }
      Ops::store(bRe_ + k, re);
      Ops::store(bIm_ + k, im);
    }
    bRe_[0] = packed[0];
    bIm_[0] = 0.0f;
    bRe_[half_] = packed[1];
    bIm_[half_] = 0.0f;

    // Z[k] = (E[k] + i O[k]) with E = X[k] + conj X[N/2-k] and
    // O = conj(W^k) (X[k] - conj X[N/2-k]), both scaled by 1/N here.
    const V scale = Ops::broadcast(1.0f / static_cast<float>(size_));
    for (uint32_t k = 0; k < half_; k += 4) {
      const V ar = Ops::load(bRe_ + k);
      const V ai = Ops::load(bIm_ + k);
      const V br = Ops::reverse(Ops::load(bRe_ + half_ - k - 3));
      const V bi = Ops::reverse(Ops::load(bIm_ + half_ - k - 3));
      const V dr = Ops::sub(ar, br);
      const V di = Ops::add(ai, bi);
      const V gr = Ops::load(mergeRe_ + k);
      const V gi = Ops::load(mergeIm_ + k);
      const V er = Ops::mul(scale, Ops::add(ar, br));
      const V ei = Ops::mul(scale, Ops::sub(ai, bi));
      Ops::store(aRe_ + k, Ops::sub(er, Ops::add(Ops::mul(gr, di), Ops::mul(gi, dr))));
      Ops::store(aIm_ + k, Ops::add(ei, Ops::sub(Ops::mul(gr, dr), Ops::mul(gi, di))));
    }
    // The inverse complex FFT is the forward one with real and imaginary
    // parts swapped on both sides.
    const bool inB = complexForward(aIm_, aRe_, bIm_, bRe_);
    const float* zRe = inB ? bRe_ : aRe_;
    const float* zIm = inB ? bIm_ : aIm_;
    if (steps.window == nullptr) {
      for (size_t i = 0; i < half_; i += 4) {
        Ops::interleave(output + 2 * i, Ops::load(zRe + i), Ops::load(zIm + i));
      }
      return;
    }
    for (size_t i = 0; i < half_; i += 4) {
      Ops::interleaveMultiplyAdd(output + 2 * i, steps.window + 2 * i, Ops::load(zRe + i), Ops::load(zIm + i));
    }
  }

private:
  static constexpr uint32_t kMaxHalf = kMaxSize / 2;

  struct Complex {
    V re, im;
  };

  static Complex cmul(Complex a, V wr, V wi) {
    return {Ops::sub(Ops::mul(a.re, wr), Ops::mul(a.im, wi)), Ops::add(Ops::mul(a.re, wi), Ops::mul(a.im, wr))};
  }

  // The radix-4 butterfly of the forward transform, before twiddles:
  // y0 = a + b + c + d, y1 = a - ib - c + id, y2 = a - b + c - d,
  // y3 = a + ib - c - id.
  static void butterfly(Complex a, Complex b, Complex c, Complex d, Complex& y0, Complex& y1, Complex& y2,
                        Complex& y3) {
    const Complex apc{Ops::add(a.re, c.re), Ops::add(a.im, c.im)};
    const Complex amc{Ops::sub(a.re, c.re), Ops::sub(a.im, c.im)};
    const Complex bpd{Ops::add(b.re, d.re), Ops::add(b.im, d.im)};
    const Complex bmd{Ops::sub(b.re, d.re), Ops::sub(b.im, d.im)};
    y0 = {Ops::add(apc.re, bpd.re), Ops::add(apc.im, bpd.im)};
    y1 = {Ops::add(amc.re, bmd.im), Ops::sub(amc.im, bmd.re)};
    y2 = {Ops::sub(apc.re, bpd.re), Ops::sub(apc.im, bpd.im)};
    y3 = {Ops::sub(amc.re, bmd.im), Ops::add(amc.im, bmd.re)};
  }

  static Complex loadComplex(const float* re, const float* im, uint32_t at) {
    return {Ops::load(re + at), Ops::load(im + at)};
  }
  static void storeComplex(float* re, float* im, uint32_t at, Complex v) {
    Ops::store(re + at, v.re);
    Ops::store(im + at, v.im);
  }

  // Forward complex FFT of half_ points from (xRe, xIm), using (yRe, yIm)
  // as the second buffer. Returns true when the result ends up in y.
  bool complexForward(float* xRe, float* xIm, float* yRe, float* yIm) const {
    firstPass(xRe, xIm, yRe, yIm);
    bool inY = true;
    uint32_t stride = 4;
    for (uint32_t stage = 1; stage < stageCount_; ++stage) {
      if (inY) {
        laterPass(yRe, yIm, xRe, xIm, half_ / stride, stride, stage);
      } else {
        laterPass(xRe, xIm, yRe, yIm, half_ / stride, stride, stage);
      }
      inY = !inY;
      stride *= 4;
    }
    if (radix2Last_) {
      if (inY) {
        radix2Pass(yRe, yIm, xRe, xIm, stride);
      } else {
        radix2Pass(xRe, xIm, yRe, yIm, stride);
      }
      inY = !inY;
    }
    return inY;
  }

  // Stride 1: lanes are four butterflies p .. p+3, each with its own
  // twiddles; a transpose turns their outputs into four runs of y.
  void firstPass(const float* xRe, const float* xIm, float* yRe, float* yIm) const {
    const uint32_t m = half_ / 4;
    // The first stage's twiddles open the tables.
    const float* wRe = twiddleRe_;
    const float* wIm = twiddleIm_;
    const size_t twoM = size_t{2} * m;
    for (uint32_t p = 0; p < m; p += 4) {
      Complex y0, y1, y2, y3;
      butterfly(loadComplex(xRe, xIm, p), loadComplex(xRe, xIm, p + m), loadComplex(xRe, xIm, p + 2 * m),
                loadComplex(xRe, xIm, p + 3 * m), y0, y1, y2, y3);
      y1 = cmul(y1, Ops::load(wRe + p), Ops::load(wIm + p));
      y2 = cmul(y2, Ops::load(wRe + m + p), Ops::load(wIm + m + p));
      y3 = cmul(y3, Ops::load(wRe + twoM + p), Ops::load(wIm + twoM + p));
      Ops::transpose(y0.re, y1.re, y2.re, y3.re);
      Ops::transpose(y0.im, y1.im, y2.im, y3.im);
      storeComplex(yRe, yIm, 4 * p, y0);
      storeComplex(yRe, yIm, 4 * p + 4, y1);
      storeComplex(yRe, yIm, 4 * p + 8, y2);
      storeComplex(yRe, yIm, 4 * p + 12, y3);
    }
  }

  // Stride s >= 4 over sub-transforms of length n: lanes are four
  // consecutive points q .. q+3 that share the twiddles of butterfly p.
  void laterPass(const float* xRe, const float* xIm, float* yRe, float* yIm, uint32_t n, uint32_t s,
                 uint32_t stage) const {
    const uint32_t m = n / 4;
    const float* wRe = twiddleRe_ + stageTwiddles_[stage];
    const float* wIm = twiddleIm_ + stageTwiddles_[stage];
    for (uint32_t p = 0; p < m; ++p) {
      const V w1r = Ops::broadcast(wRe[p]), w1i = Ops::broadcast(wIm[p]);
      const V w2r = Ops::broadcast(wRe[m + p]), w2i = Ops::broadcast(wIm[m + p]);
      const V w3r = Ops::broadcast(wRe[2 * m + p]), w3i = Ops::broadcast(wIm[2 * m + p]);
      for (uint32_t q = 0; q < s; q += 4) {
        Complex y0, y1, y2, y3;
        butterfly(loadComplex(xRe, xIm, q + s * p), loadComplex(xRe, xIm, q + s * (p + m)),
                  loadComplex(xRe, xIm, q + s * (p + 2 * m)), loadComplex(xRe, xIm, q + s * (p + 3 * m)), y0, y1, y2,
                  y3);
        storeComplex(yRe, yIm, q + s * (4 * p), y0);
        storeComplex(yRe, yIm, q + s * (4 * p + 1), cmul(y1, w1r, w1i));
        storeComplex(yRe, yIm, q + s * (4 * p + 2), cmul(y2, w2r, w2i));
        storeComplex(yRe, yIm, q + s * (4 * p + 3), cmul(y3, w3r, w3i));
      }
    }
  }

  // The last pass when half_ is twice a power of four: sub-transforms of
  // length 2, no twiddles.
  static void radix2Pass(const float* xRe, const float* xIm, float* yRe, float* yIm, uint32_t s) {
    for (uint32_t q = 0; q < s; q += 4) {
      const Complex a = loadComplex(xRe, xIm, q);
      const Complex b = loadComplex(xRe, xIm, q + s);
      storeComplex(yRe, yIm, q, {Ops::add(a.re, b.re), Ops::add(a.im, b.im)});
      storeComplex(yRe, yIm, q + s, {Ops::sub(a.re, b.re), Ops::sub(a.im, b.im)});
    }
  }

  // Under AddressSanitizer, the parts of the fixed tables and buffers that
  // this size leaves unused (past `tables` entries of each per-bin table,
  // `work` of each work buffer, `twiddles` of the twiddles) are poisoned, so
  // that a loop running one vector too far fails as it would on a block of
  // exactly the size in use. Elsewhere it does nothing.
  void markUnused([[maybe_unused]] uint32_t tables, [[maybe_unused]] uint32_t work,
                  [[maybe_unused]] uint32_t twiddles) {
#ifdef LARKSPIN_FFT_POISON_UNUSED
    const auto mark = [](float* buffer, uint32_t capacity, uint32_t used) {
      ASAN_UNPOISON_MEMORY_REGION(buffer, capacity * sizeof(float));
      ASAN_POISON_MEMORY_REGION(buffer + used, (capacity - used) * sizeof(float));
    };
    for (float* table : {splitRe_, splitIm_, mergeRe_, mergeIm_}) {
      mark(table, kMaxHalf, tables);
    }
    for (float* buffer : {aRe_, aIm_, bRe_, bIm_}) {
      mark(buffer, kMaxHalf + 4, work);
    }
    mark(twiddleRe_, kMaxHalf, twiddles);
    mark(twiddleIm_, kMaxHalf, twiddles);
#endif
  }

  uint32_t size_{};
  uint32_t half_{};
  uint32_t stageCount_{}; // radix-4 passes
  bool radix2Last_ = false;
  uint32_t stageTwiddles_[8] = {};
  // w^p, w^2p, w^3p per radix-4 pass; 3/4 of half_ per pass sums below half_.
  alignas(16) float twiddleRe_[kMaxHalf] = {};
  alignas(16) float twiddleIm_[kMaxHalf] = {};
  alignas(16) float splitRe_[kMaxHalf] = {}; // W^k / 2 for the forward split
  alignas(16) float splitIm_[kMaxHalf] = {};
  alignas(16) float mergeRe_[kMaxHalf] = {}; // conj(W^k) / N for the inverse merge
  alignas(16) float mergeIm_[kMaxHalf] = {};
  // Work buffers; one spare slot past half_ for the wrap to Z[0].
  alignas(16) float aRe_[kMaxHalf + 4] = {};
  alignas(16) float aIm_[kMaxHalf + 4] = {};
  alignas(16) float bRe_[kMaxHalf + 4] = {};
  alignas(16) float bIm_[kMaxHalf + 4] = {};
};

} // namespace vora
