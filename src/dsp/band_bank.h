// The fourteen fixed analysis bands: band 0 a lowpass below 210 Hz, bands
// 1..12 half-octave bandpasses up to 13.45 kHz, band 13 a highpass above.
// Each band's table holds the magnitude-squared response of a bilinear-
// transform Butterworth filter at the FFT's bin frequencies.
#pragma once

#include "dsp/engine_constants.h"
#include "dsp/vorafier_parameters.h"

#include <cstdint>

namespace vora {

// Band edges in Hz for the bandpass bands: band i (1..12) spans
// kBandEdgesHz[i-1] .. kBandEdgesHz[i]; each edge is the previous times sqrt(2).
inline constexpr double kBandEdgesHz[13] = {210.224103813429, 297.30177875068,  420.448207626857, 594.603557501361,
                                            840.896415253714, 1189.20711500272, 1681.79283050743, 2378.41423000544,
                                            3363.58566101486, 4756.82846001089, 6727.17132202972, 9513.65692002177,
                                            13454.3426440594};

// |H|^2 of band `band` (0..13) at the angular frequency `omega` (rad/sample,
// above 0 and up to pi) for `sampleRate` (Hz): the formula behind every table
// entry, also between the bins. The tables take bin 0 at a tiny positive
// omega, where the formula is still finite.
double bandWeight(int band, double sampleRate, double omega);
// The same in dB (10 log10 |H|^2), finite over the whole of (0, pi] where
// bandWeight underflows to 0 or overflows to NaN deep in a stopband.
double bandWeightDb(int band, double sampleRate, double omega);

// The bins where a band's weight is above the search threshold.
struct BandRange {
  uint32_t firstBin = 0; // inclusive
  uint32_t endBin = 0;   // exclusive
};

struct BandBank {
  uint32_t fftSize = 0;
  uint32_t binCount = 0;                        // fftSize / 2
  float weights[kBandCount][kMaxBinCount] = {}; // only the first binCount entries are used
  BandRange ranges[kBandCount] = {};

  // Fills the tables for `sampleRate` and `fftSize` (computed in double
  // precision, stored as float) and finds each band's range with a
  // threshold of `thresholdDb`.
  void build(float rate, uint32_t size, float thresholdDb);
};

// A bank's weights as the engine's vector kernels read them: each band over
// whole vectors of bins (its range widened to multiples of 4, the weights
// zero outside the range), and for every eight bins the bands that reach
// them, from bandsFrom to bandsTo - 1.
struct BandSpans {
  uint32_t first[kBandCount] = {};
  uint32_t end[kBandCount] = {};
  uint8_t bandsFrom[kMaxBinCount / 8] = {};
  uint8_t bandsTo[kMaxBinCount / 8] = {};
  alignas(16) float weights[kBandCount][kMaxBinCount] = {};

  void build(const BandBank& bank);
};

} // namespace vora
