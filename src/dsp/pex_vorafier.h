// The vorafier: a multiband dynamics processor in the short-time Fourier
// domain. One call processes one hop (N/4 samples) per channel in place.
//
//   input hop ──┬──────────────────────────────► dry FIFO (N) ──► dry, N-hop late
//               │                                                    │
//               └► STFT analysis (stft.h) ─► spectrum X              │
//                     ─► |X| ─► low-magnitude floor                  │
//                     ─► 14 bands: Σ|X|·w_b ─► gain computer (0..12) │
//                     ─► X · Σ_b w_b·g_b (phase kept)                │
//                     ─► STFT synthesis ─► overlap buffer            │
//                     ─► limiter (ceiling 1.0) ─► wet hop            │
//                                                 └──► wet·m + dry·(1-m) ─► output hop
//
// The framing (windows, frames, FFT, overlap-add) is the Stft's; the engine
// does the spectral work between its analysis and synthesis, in the
// four-lane kernels of engine_kernels.h, with the gain computers of all
// bands stepped together (band_gain_bank.h). The mix m
// follows its target through a 50 ms smoother; at or above 0.999 the dry
// path is skipped, at or below 0.001 the wet path. Bypass sets the target
// to 0. The latency is the STFT's, N - hop samples. Nothing allocates after
// setup().
#pragma once

#include "dsp/band_bank.h"
#include "dsp/band_gain_bank.h"
#include "dsp/engine_constants.h"
#include "dsp/hop_fifo.h"
#include "dsp/one_pole_smoother.h"
#include "dsp/output_limiter.h"
#include "dsp/stft.h"
#include "dsp/vorafier_parameters.h"

#include <cstdint>

namespace vora {

class PexVorafier {
public:
  // The per-hop process's stages besides the spectral work. The node always
  // runs both; a caller may switch one off to see the rest alone.
  struct HopOptions {
    bool smoothMix = true; // the mix follows its target through the smoother
    bool limit = true;     // the limiter runs on the wet signal
  };

  PexVorafier();
  PexVorafier(const PexVorafier&) = delete;
  PexVorafier& operator=(const PexVorafier&) = delete;

  // Configures for a sample rate: FFT size fftSizeForRate(sampleRate).
  // Returns the hop size, or -1 for a rate outside kMinSampleRate ..
  // kMaxSampleRate (the engine is then unconfigured). Allocates the FFT
  // plan; not real-time safe.
  int setup(float sampleRate);

  // Decodes a 196-byte payload into the parameter record.
  void applyParameterPayload(const unsigned char* payload);

  // N - hop samples once configured, else 0.
  uint32_t latency() const;
  uint32_t hopSize() const { return hopSize_; }

  // Process exactly one hop per channel in place, with mix smoothing and the
  // limiter on. Until both setup and a payload have succeeded the audio is
  // left untouched. Non-finite input samples are treated as silence.
  void processStereo(float** channels, bool bypass, float mix);
  void processMono(float* channel, bool bypass, float mix);

  // The per-hop process itself; channels[1] == nullptr means mono.
  void processHop(float* const* channels, float mixTarget, HopOptions options);

  bool isConfigured() const { return configured_; }
  bool isPresetApplied() const { return presetApplied_; }
  const BandBank& bandBank() const { return bandBank_; }
  const VorafierParameters& parameters() const { return parameters_; }
  float hopMilliseconds() const { return hopMilliseconds_; }

  // What each band did in the last hop that ran the wet path, per channel:
  // its band-weighted magnitude sum (the gain computer's input) and the gain
  // applied in dB. Band 13's gain is always 0 dB. Before any such hop: zero
  // sums and 0 dB. Sums, not levels, so the hop pays for no logarithm.
  struct BandReadout {
    float bandSum[kBandCount][kMaxChannels] = {};
    float gainDb[kBandCount][kMaxChannels] = {};
  };
  const BandReadout& bandReadout() const { return readout_; }

private:
  // The spectral state of one channel between analysis and synthesis.
  struct SpectralChannel {
    alignas(16) float magnitude[kMaxBinCount] = {};  // after the low-magnitude floor
    alignas(16) float floorScale[kMaxBinCount] = {}; // floored / original magnitude
    OutputLimiter limiter;
  };

  void analyse(int channel, const float* input);
  void computeBandWeights(int channelCount);
  void synthesise(int channel, float* output, bool limit);

  bool presetApplied_ = false;
  bool configured_ = false;
  uint32_t fftSize_{};
  uint32_t hopSize_{};
  float hopMilliseconds_{};
  float attackLength_{};  // limiter, samples
  float releaseLength_{}; // limiter, samples
  OnePoleSmoother mixSmoother_;
  Stft stft_;
  SpectralChannel channels_[kMaxChannels];
  HopFifo dryFifo_[kMaxChannels];
  BandBank bandBank_;
  BandGainBank gainBank_;
  BandSpans bandSpans_;
  // Per channel and band (lanes of the gain bank): the band-weighted
  // magnitude sums, their levels, the gains in dB and as factors.
  static constexpr int kLanes = BandGainBank::kLanes;
  alignas(16) float bandSums_[kMaxChannels][kLanes] = {};
  alignas(16) float levelsDb_[kMaxChannels][kLanes] = {};
  alignas(16) float gainsDb_[kMaxChannels][kLanes] = {};
  alignas(16) float gains_[kMaxChannels][kLanes] = {};
  alignas(16) float bandWeight_[kMaxChannels][kMaxBinCount] = {}; // Σ over bands of weight × gain, per bin
  alignas(16) float limiterEnvelope_[kMaxFftSize / 2] = {};       // the limiter's scratch, two hops
  uint32_t floorFirstBin_{};
  uint32_t floorEndBin_{};
  VorafierParameters parameters_;
  BandReadout readout_;
};

} // namespace vora
