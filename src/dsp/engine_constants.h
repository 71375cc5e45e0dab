// The dynamics engine's fixed numbers, each named once with the reason for
// its value. The engine, its tests and the benchmarks all read them here.
#pragma once

#include <cmath>
#include <cstdint>

namespace vora {

// Smallest normal float. Added before a logarithm so that silence reads
// 20·log10(kFloatMinimum) = -758.6 dB instead of -inf, and subtracted from
// every linear gain, so that dB -> gain -> dB keeps the same offset.
inline constexpr float kFloatMinimum = 1.1754944e-38f;

// Mono or stereo: the preset carries per-channel values for two channels.
inline constexpr int kMaxChannels = 2;

// Sample rates the engine accepts, Hz: 32 to 192 kHz, with a hertz of
// margin on both sides for rates that arrive as rounded floats.
inline constexpr float kMinSampleRate = 31999.0f;
inline constexpr float kMaxSampleRate = 192001.0f;

// FFT size for a rate: 256 points up to 50 kHz, 512 up to 100 kHz, 1024
// above, so a frame lasts 5.1 to 10.2 ms (5.3 ms at 48, 96 and 192 kHz) and
// the bands' resolution in time and frequency is alike at every rate.
inline constexpr uint32_t fftSizeForRate(float sampleRate) {
  return sampleRate <= 50000.0f ? 256u : sampleRate <= 100000.0f ? 512u : 1024u;
}

// The sizes that rule gives are the only ones an FFT backend must accept.
inline constexpr bool isEngineFftSize(uint32_t size) {
  return size == 256u || size == 512u || size == 1024u;
}

inline constexpr uint32_t kMaxFftSize = 1024;
inline constexpr uint32_t kMaxBinCount = kMaxFftSize / 2;

// The fourteen bands padded to whole vectors of four lanes.
inline constexpr int kBandLanes = 16;
// A hop is a quarter frame: four frames overlap at every sample.
inline constexpr uint32_t kFramesPerHop = 4;

// 2π rounded to float, for the window formula.
inline constexpr float kTwoPi = 6.2831855f;

// Periodic Hann w = (1 - cos)/2 has a mean square of 3/8 over a frame; four
// frames overlap at a hop of N/4, so Σ w² over the overlap is 4 × 3/8 = 1.5.
// The synthesis window is divided by it so that analysis × synthesis
// overlap-adds to one.
inline constexpr float kHannSquaredOverlapSum = 1.5f;

// A band's bin range ends where its weight falls below -144.5 dB, the
// resolution of a float's 24-bit significand (20·log10(2^-24)): bins beyond
// add nothing a float sum can hold.
inline constexpr float kBandThresholdDb = -144.5f;

// Low-magnitude floor: bins quieter than kFloorMagnitude are pushed further
// down (their magnitude squared over kFloorMagnitude), which keeps noise in
// near-silent bins from being boosted with the band. It covers the bins
// from 500 Hz, above the lowest bands' wide skirts, to the top edge of band
// 12 (210.224 Hz × √2^12 = 13454.343 Hz), above which nothing is gained.
inline constexpr float kFloorMagnitude = 1e-5f;
inline constexpr float kFloorLowHz = 500.0f;
inline constexpr float kFloorHighHz = 13454.343f;

// 10^(dB/20) = exp(dB × ln(10)/20): the factor ln(10)/20 in float.
inline constexpr float kNepersPerDecibel = 0.115129255f;

// Wet/dry mix: a 50 ms smoother towards the target. At or below 0.001 the
// wet share is under -60 dB and the analysis is skipped; at or above 0.999
// the dry share is, and the dry delay is skipped.
inline constexpr float kMixSmoothingMs = 50.0f;
inline constexpr float kWetThreshold = 0.001f;
inline constexpr float kDryThreshold = 0.999f;

// Input samples are clamped to ±1e10 (+200 dBFS): far beyond any audio, and
// far enough below float overflow that a whole frame of them still
// transforms to a finite spectrum.
inline constexpr float kLargestInput = 1.0e10f;

// Output limiter: a ceiling of full scale; attack and release as times,
// whole samples at the rate (at 48 kHz: 5 and 278 samples).
inline constexpr float kLimiterCeiling = 1.0f;
inline constexpr float kLimiterAttackSeconds = 0.0001225f;
inline constexpr float kLimiterReleaseSeconds = 0.0058f;

inline float limiterAttackSamples(float sampleRate) {
  return std::trunc(sampleRate * kLimiterAttackSeconds);
}
inline float limiterReleaseSamples(float sampleRate) {
  return std::trunc(sampleRate * kLimiterReleaseSeconds);
}

} // namespace vora
