// The analysis bands at a sample rate, for hosts that draw or explain them:
// the same edges and the same response formula the engine's tables use.
#include <larkspin/vora_preset.h>

#include "dsp/band_bank.h"
#include "dsp/engine_constants.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace {

// 10 log10 of the smallest normal float.
constexpr double kFloorDb = -379.2977945366163;

bool supportedRate(float sampleRate) {
  return sampleRate >= vora::kMinSampleRate && sampleRate <= vora::kMaxSampleRate;
}

} // namespace

extern "C" {

int vora_preset_band_layout(float sampleRate, vora_band_info* bands) {
  if (bands == nullptr || !supportedRate(sampleRate)) {
    return 0;
  }
  const double nyquistHz = sampleRate / 2.0;
  const double* edges = vora::kBandEdgesHz;
  constexpr int last = VORA_BAND_COUNT - 1;
  for (int band = 0; band < VORA_BAND_COUNT; ++band) {
    vora_band_info& info = bands[band];
    info.lowHz = band == 0 ? 0.0 : edges[band - 1];
    info.highHz = band == last ? nyquistHz : edges[band];
    info.controlled = band != last;
    // The outer bands have one edge only: their centres sit an octave below
    // the lowpass edge and half an octave above the highpass edge, as the
    // bandpasses do between theirs.
    if (band == 0) {
      info.centreHz = edges[0] / 2.0;
    } else if (band == last) {
      info.centreHz = std::min(edges[last - 1] * std::numbers::sqrt2, nyquistHz);
    } else {
      info.centreHz = std::sqrt(info.lowHz * info.highHz);
    }
  }
  return static_cast<int>(vora::fftSizeForRate(sampleRate));
}

double vora_preset_band_response_db(float sampleRate, int band, double frequencyHz) {
  const double nyquistHz = sampleRate / 2.0;
  if (!supportedRate(sampleRate) || band < 0 || band >= VORA_BAND_COUNT || !(frequencyHz >= 0.0) ||
      !(frequencyHz <= nyquistHz)) {
    return std::numeric_limits<double>::quiet_NaN();
  }
  // The tables take bin 0 a hair above 0 Hz; so does the response.
  const double binCount = static_cast<double>(vora::fftSizeForRate(sampleRate)) / 2.0;
  const double omega = std::max(std::numbers::pi * frequencyHz / nyquistHz, std::numbers::pi / binCount * 1e-10);
  // Below the smallest normal float the engine's table holds nothing usable
  // (processing flushes such weights to zero), so that is the floor.
  return std::max(vora::bandWeightDb(band, static_cast<double>(sampleRate), omega), kFloorDb);
}

} // extern "C"
