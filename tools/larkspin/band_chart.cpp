#include "larkspin/band_chart.h"

#include "larkspin/svg_chart.h"
#include "larkspin/tool_error.h"

#include <algorithm>
#include <cmath>

namespace larkspin_tool {

std::string renderBandChart(int sampleRate, const std::optional<vora_preset>& preset) {
  // The library's own band layout and responses at this rate, drawn at the
  // FFT's bin frequencies as the engine sees them.
  const float rate = static_cast<float>(sampleRate);
  vora_band_info bands[VORA_BAND_COUNT];
  const int fftSize = vora_preset_band_layout(rate, bands);
  if (fftSize == 0) {
    throw ToolError("the library does not accept a sample rate of " + std::to_string(sampleRate) +
                    " Hz (32000 to 192000 Hz)");
  }
  std::vector<ChartSeries> series;
  for (int band = 0; band < VORA_BAND_COUNT; ++band) {
    ChartSeries s{band == 0                     ? "band 0 (low)"
                  : band == VORA_BAND_COUNT - 1 ? "band 13 (high)"
                                                : "band " + std::to_string(band),
                  seriesColour(static_cast<size_t>(band) % 6),
                  {},
                  band % 2 == 1};
    for (int bin = 1; bin < fftSize / 2; ++bin) {
      const double hz = static_cast<double>(bin) * sampleRate / fftSize;
      s.points.emplace_back(hz, std::max(vora_preset_band_response_db(rate, band, hz), -300.0));
    }
    series.push_back(std::move(s));
  }
  ChartOptions options;
  options.title = "Band responses at " + std::to_string(sampleRate) + " Hz (FFT size " + std::to_string(fftSize) + ")";
  options.xLabel = "frequency (Hz)";
  options.yLabel = "weight (dB)";
  options.logX = true;
  options.xMin = static_cast<double>(sampleRate) / fftSize;
  options.xMax = sampleRate / 2.0;
  options.yMin = -60.0;
  options.yMax = 20.0;
  if (preset) {
    // Each channel's fixed band gain, drawn across its band.
    double top = 0.0;
    for (int channel = 0; channel < VORA_PRESET_CHANNEL_COUNT; ++channel) {
      ChartSeries gains{
          "gain, channel " + std::to_string(channel), channel == 0 ? "#000000" : "#D55E00", {}, channel == 1};
      for (int band = 0; band < VORA_PRESET_BAND_COUNT; ++band) {
        const double gain = preset->bands[band].channels[channel].gainDb;
        gains.points.emplace_back(std::max(bands[band].lowHz, options.xMin), gain);
        gains.points.emplace_back(bands[band].highHz, gain);
        top = std::max(top, std::fabs(gain));
      }
      series.push_back(std::move(gains));
    }
    options.title += ", with the preset's band gains";
    options.yMax = std::max(20.0, std::ceil(top / 5.0) * 5.0 + 5.0);
  }
  return renderChart(options, series);
}

} // namespace larkspin_tool
