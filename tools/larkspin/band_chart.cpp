#include "larkspin/band_chart.h"

#include "larkspin/preset_file.h"
#include "larkspin/svg_chart.h"
#include "larkspin/tool_error.h"

#include "dsp/pex_vorafier.h"

#include <cmath>
#include <memory>

namespace larkspin_tool {

std::string renderBandChart(int sampleRate, const std::optional<vora::VorafierParameters>& preset) {
  // The library's own band bank, as the engine builds it for this rate.
  auto engine = std::make_unique<vora::PexVorafier>();
  if (engine->setup(static_cast<float>(sampleRate)) < 0) {
    throw ToolError("the library does not accept a sample rate of " + std::to_string(sampleRate) +
                    " Hz (32000 to 192000 Hz)");
  }
  const vora::BandBank& bank = engine->bandBank();
  std::vector<ChartSeries> series;
  for (int band = 0; band < vora::kBandCount; ++band) {
    ChartSeries s{band == 0                      ? "band 0 (low)"
                  : band == vora::kBandCount - 1 ? "band 13 (high)"
                                                 : "band " + std::to_string(band),
                  seriesColour(static_cast<size_t>(band) % 6),
                  {},
                  band % 2 == 1};
    for (uint32_t bin = 1; bin < bank.binCount; ++bin) {
      const double hz = static_cast<double>(bin) * sampleRate / bank.fftSize;
      s.points.emplace_back(hz, 10.0 * std::log10(static_cast<double>(bank.weights[band][bin]) + 1e-30));
    }
    series.push_back(std::move(s));
  }
  ChartOptions options;
  options.title =
      "Band responses at " + std::to_string(sampleRate) + " Hz (FFT size " + std::to_string(bank.fftSize) + ")";
  options.xLabel = "frequency (Hz)";
  options.yLabel = "weight (dB)";
  options.logX = true;
  options.xMin = static_cast<double>(sampleRate) / bank.fftSize;
  options.xMax = sampleRate / 2.0;
  options.yMin = -60.0;
  options.yMax = 20.0;
  if (preset) {
    // Each channel's fixed band gain, drawn across its band.
    double top = 0.0;
    for (int channel = 0; channel < 2; ++channel) {
      ChartSeries gains{
          "gain, channel " + std::to_string(channel), channel == 0 ? "#000000" : "#D55E00", {}, channel == 1};
      for (int band = 0; band < vora::kControlledBandCount; ++band) {
        const double gain = preset->slot(vora::VorafierKind::Gain, channel, band);
        const double low = std::max(bandLowHz(band), options.xMin);
        gains.points.emplace_back(low, gain);
        gains.points.emplace_back(bandHighHz(band), gain);
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
