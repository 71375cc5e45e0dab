#include "larkspin/io_curves.h"

#include "larkspin/svg_chart.h"

#include <algorithm>
#include <cmath>

namespace larkspin_tool {
namespace {

// Level after the fast stage, before the fixed gain, for a level `levelDb`
// that already includes the slow gain.
double afterFastStage(const vora_preset_channel& channel, double levelDb) {
  const double over = std::max(levelDb - channel.fastThresholdDb, 0.0);
  return levelDb + (channel.fastRatio - 1.0) * over;
}

double slowExcess(const vora_preset_band& band, double inputDb, double slowDb) {
  double mean = 0.0;
  for (const vora_preset_channel& channel : band.channels) {
    mean += afterFastStage(channel, inputDb + slowDb) / VORA_PRESET_CHANNEL_COUNT;
  }
  return band.slowFactor * std::max(mean - band.slowThresholdDb, 0.0);
}

bool channelsDiffer(const vora_preset_band& band) {
  const vora_preset_channel& a = band.channels[0];
  const vora_preset_channel& b = band.channels[1];
  return a.gainDb != b.gainDb || a.fastThresholdDb != b.fastThresholdDb || a.fastRatio != b.fastRatio;
}

} // namespace

SteadyBand steadyBand(const vora_preset_band& band, double inputDb) {
  // slow + excess(slow) rises strictly with slow (slope at least 1) and is
  // at most 0 at slow = 0, so the fixed point lies in [-excess(0), 0].
  double low = -slowExcess(band, inputDb, 0.0), high = 0.0;
  for (int step = 0; step < 100 && high - low > 1e-12; ++step) {
    const double mid = 0.5 * (low + high);
    (mid + slowExcess(band, inputDb, mid) > 0.0 ? high : low) = mid;
  }
  SteadyBand result{};
  result.slowGainDb = 0.5 * (low + high);
  for (int channel = 0; channel < VORA_PRESET_CHANNEL_COUNT; ++channel) {
    const vora_preset_channel& values = band.channels[channel];
    result.outputDb[channel] = afterFastStage(values, inputDb + result.slowGainDb) + values.gainDb;
  }
  return result;
}

std::string renderIoCurves(const vora_preset& preset, const std::string& presetName) {
  constexpr double kLowDb = -100.0, kHighDb = 0.0;
  std::vector<ChartSeries> series;
  double top = kHighDb;
  for (int band = 0; band < VORA_PRESET_BAND_COUNT; ++band) {
    const bool both = channelsDiffer(preset.bands[band]);
    for (int channel = 0; channel < (both ? 2 : 1); ++channel) {
      ChartSeries s{"band " + std::to_string(band) + (both ? " ch" + std::to_string(channel) : ""),
                    bandColour(band),
                    {},
                    false,
                    channel == 0 ? bandDash(band) : "2 2"};
      for (int step = 0; step <= static_cast<int>((kHighDb - kLowDb) / 0.5); ++step) {
        const double in = kLowDb + 0.5 * step;
        const double out = steadyBand(preset.bands[band], in).outputDb[channel];
        s.points.emplace_back(in, out);
        top = std::max(top, out);
      }
      series.push_back(std::move(s));
    }
  }
  series.push_back({"output = input", "#999999", {{kLowDb, kLowDb}, {kHighDb, kHighDb}}, false, "1 4"});
  ChartOptions options;
  options.title = "Settled input/output levels per band, " + presetName;
  options.xLabel = "steady band level in (dB)";
  options.yLabel = "band level out (dB)";
  options.xMin = kLowDb;
  options.xMax = kHighDb;
  options.yMin = kLowDb;
  options.yMax = std::ceil(top / 10.0) * 10.0;
  options.height = 640.0;
  return renderChart(options, series);
}

} // namespace larkspin_tool
