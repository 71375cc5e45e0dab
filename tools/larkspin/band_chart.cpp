#include "larkspin/band_chart.h"

#include "larkspin/band_reach.h"
#include "larkspin/svg_chart.h"
#include "larkspin/tool_error.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace larkspin_tool {
namespace {

int layoutOrThrow(int sampleRate, vora_band_info* bands) {
  const int fftSize = vora_preset_band_layout(static_cast<float>(sampleRate), bands);
  if (fftSize == 0) {
    throw ToolError("the library does not accept a sample rate of " + std::to_string(sampleRate) +
                    " Hz (32000 to 192000 Hz)");
  }
  return fftSize;
}

std::string hzText(double hz) {
  char text[32];
  std::snprintf(text, sizeof text, hz >= 1000.0 ? "%.3g kHz" : "%.4g Hz", hz >= 1000.0 ? hz / 1000.0 : hz);
  return text;
}

} // namespace

CombinedResponse combinedResponse(int sampleRate) {
  vora_band_info bands[VORA_BAND_COUNT];
  const float rate = static_cast<float>(sampleRate);
  const int fftSize = vora_preset_band_layout(rate, bands);
  CombinedResponse response;
  for (int bin = 1; bin < fftSize / 2; ++bin) {
    const double hz = static_cast<double>(bin) * sampleRate / fftSize;
    double sum = 0.0;
    for (int band = 0; band < VORA_BAND_COUNT; ++band) {
      sum += std::pow(10.0, vora_preset_band_response_db(rate, band, hz) / 10.0);
    }
    response.frequencyHz.push_back(hz);
    response.levelDb.push_back(20.0 * std::log10(sum));
  }
  return response;
}

std::string renderBandChart(int sampleRate, const vora_preset& preset, const std::string& presetName) {
  const float rate = static_cast<float>(sampleRate);
  vora_band_info bands[VORA_BAND_COUNT];
  const int fftSize = layoutOrThrow(sampleRate, bands);
  const double lowestHz = static_cast<double>(sampleRate) / fftSize; // the first bin the engine keeps
  const double nyquistHz = sampleRate / 2.0;
  const double leftHz = lowestHz / 1.6; // room for band 0's label
  const ChartSpan uncontrolled{bands[VORA_BAND_COUNT - 1].lowHz, nyquistHz, "band 13: no controls"};
  // Bands the FFT has no bin in, shaded where their gains are drawn.
  std::vector<ChartSpan> missed;
  for (const BandWithoutBin& band : bandsWithoutBin(sampleRate)) {
    char text[96];
    std::snprintf(text, sizeof text, "band %d: no FFT bin, %.1f dB at most", band.band, band.peakWeightDb);
    missed.push_back({band.lowHz, band.highHz, text, true});
  }

  // The band responses as the engine applies them, at the FFT's bins.
  ChartPanel responses;
  responses.options.title =
      "Band responses (FFT size " + std::to_string(fftSize) + ", bins every " + hzText(lowestHz) + ")";
  responses.options.yLabel = "band weight (dB)";
  responses.options.yMin = -40.0;
  responses.options.yMax = 5.0;
  for (int band = 0; band < VORA_BAND_COUNT; ++band) {
    const bool top = band == VORA_BAND_COUNT - 1;
    ChartSeries s{
        top ? "13 (no controls)" : "band " + std::to_string(band), bandColour(band), {}, false, bandDash(band)};
    for (int bin = 1; bin < fftSize / 2; ++bin) {
      const double hz = static_cast<double>(bin) * sampleRate / fftSize;
      s.points.emplace_back(hz, std::max(vora_preset_band_response_db(rate, band, hz), -300.0));
    }
    responses.series.push_back(std::move(s));
    responses.options.labels.push_back({std::clamp(bands[band].centreHz, leftHz * 1.15, nyquistHz / 1.05), 2.0,
                                        std::to_string(band), bandColour(band)});
  }
  responses.options.spans.push_back(uncontrolled);
  responses.options.spans.insert(responses.options.spans.end(), missed.begin(), missed.end());

  // What the bands add up to when every gain is 0 dB: not exactly flat.
  const CombinedResponse combined = combinedResponse(sampleRate);
  ChartPanel sum;
  double low = 0.0, high = 0.0;
  ChartSeries sumSeries{"sum of the bands", "#000000", {}, false, {}};
  for (size_t i = 0; i < combined.frequencyHz.size(); ++i) {
    sumSeries.points.emplace_back(combined.frequencyHz[i], combined.levelDb[i]);
    low = std::min(low, combined.levelDb[i]);
    high = std::max(high, combined.levelDb[i]);
  }
  sum.series.push_back(std::move(sumSeries));
  sum.series.push_back({"0 dB (transparent)", "#999999", {{leftHz, 0.0}, {nyquistHz, 0.0}}, true, {}});
  sum.options.title = "Combined response at unity gains (all gains 0 dB, no compression)";
  sum.options.yLabel = "level (dB)";
  sum.options.yMin = std::max(-3.0, std::floor(low * 2.0 - 0.5) / 2.0);
  sum.options.yMax = std::min(3.0, std::ceil(high * 2.0 + 0.5) / 2.0);
  sum.options.height = 300.0;
  sum.options.spans.push_back(uncontrolled);

  // The preset's fixed gains, drawn across each band.
  ChartPanel gains;
  double topGain = 0.0;
  for (int channel = 0; channel < VORA_PRESET_CHANNEL_COUNT; ++channel) {
    ChartSeries s{"channel " + std::to_string(channel), channel == 0 ? "#0072B2" : "#D55E00", {}, channel == 1, {}};
    for (int band = 0; band < VORA_PRESET_BAND_COUNT; ++band) {
      const double gain = preset.bands[band].channels[channel].gainDb;
      s.points.emplace_back(std::max(bands[band].lowHz, leftHz), gain);
      s.points.emplace_back(bands[band].highHz, gain);
      topGain = std::max(topGain, std::fabs(gain));
    }
    s.points.emplace_back(bands[VORA_BAND_COUNT - 1].lowHz, 0.0);
    s.points.emplace_back(nyquistHz, 0.0);
    gains.series.push_back(std::move(s));
  }
  gains.options.title = "Fixed band gains of " + presetName;
  gains.options.yLabel = "gain (dB)";
  gains.options.yMax = std::ceil(topGain / 2.0) * 2.0 + 2.0;
  gains.options.yMin = -gains.options.yMax;
  gains.options.height = 360.0;
  gains.options.spans.push_back(uncontrolled);
  gains.options.spans.insert(gains.options.spans.end(), missed.begin(), missed.end());
  for (const BandWithoutBin& band : bandsWithoutBin(sampleRate)) {
    gains.options.note += (gains.options.note.empty() ? "" : " ") +
                          bandWithoutBinNote(sampleRate, band, preset.bands[band.band].channels[0].gainDb, true);
    gains.options.height += 42.0;
  }
  for (int band = 0; band < VORA_PRESET_BAND_COUNT; ++band) {
    gains.options.labels.push_back({std::clamp(bands[band].centreHz, leftHz * 1.15, nyquistHz),
                                    gains.options.yMin * 0.85, std::to_string(band), bandColour(band)});
  }

  std::vector<ChartPanel> panels{responses, sum, gains};
  for (ChartPanel& panel : panels) {
    panel.options.xLabel = "frequency (Hz)";
    panel.options.logX = true;
    panel.options.xMin = leftHz;
    panel.options.xMax = nyquistHz;
  }
  return renderPanels("The fourteen bands at " + std::to_string(sampleRate) + " Hz", panels);
}

} // namespace larkspin_tool
