#include "larkspin/io_curves.h"

#include "larkspin/band_reach.h"
#include "larkspin/svg_chart.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <vector>

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

// "band 4", "bands 0-6", "bands 0, 1*, 2-6": runs of neighbours joined, a
// band the FFT misses starred and kept apart.
std::string bandList(const std::vector<int>& bands, const std::set<int>& missed) {
  std::string text;
  for (size_t i = 0; i < bands.size();) {
    size_t end = i + 1;
    while (missed.count(bands[i]) == 0 && end < bands.size() && bands[end] == bands[end - 1] + 1 &&
           missed.count(bands[end]) == 0) {
      ++end;
    }
    text += (i > 0 ? ", " : "") + std::to_string(bands[i]) + (missed.count(bands[i]) != 0 ? "*" : "");
    if (end - i > 1) {
      text += (end - i > 2 ? "-" : ", ") + std::to_string(bands[end - 1]);
    }
    i = end;
  }
  return (bands.size() > 1 ? "bands " : "band ") + text;
}

bool sameSettings(const vora_preset_band& a, const vora_preset_band& b) {
  for (int ch = 0; ch < VORA_PRESET_CHANNEL_COUNT; ++ch) {
    const vora_preset_channel &x = a.channels[ch], &y = b.channels[ch];
    if (x.gainDb != y.gainDb || x.fastThresholdDb != y.fastThresholdDb || x.fastRatio != y.fastRatio) {
      return false;
    }
  }
  return a.slowThresholdDb == b.slowThresholdDb && a.slowFactor == b.slowFactor && a.slowDelayMs == b.slowDelayMs &&
         a.slowTimeConstantMs == b.slowTimeConstantMs;
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

std::string renderIoCurves(const vora_preset& preset, const std::string& presetName, int sampleRate) {
  constexpr double kLowDb = -100.0, kHighDb = 0.0;
  std::set<int> missed;
  std::string note;
  for (const BandWithoutBin& band : bandsWithoutBin(sampleRate)) {
    missed.insert(band.band);
    note += "* " + bandWithoutBinNote(sampleRate, band, preset.bands[band.band].channels[0].gainDb, true) + " ";
  }

  // Bands with identical settings draw identical curves: draw each once.
  std::vector<std::vector<int>> groups;
  for (int band = 0; band < VORA_PRESET_BAND_COUNT; ++band) {
    auto same = std::find_if(groups.begin(), groups.end(), [&](const std::vector<int>& group) {
      return sameSettings(preset.bands[group[0]], preset.bands[band]);
    });
    if (same == groups.end()) {
      groups.push_back({band});
    } else {
      same->push_back(band);
    }
  }

  ChartPanel levels, gains;
  double top = kHighDb, lowestGain = 0.0, highestGain = 0.0;
  for (size_t g = 0; g < groups.size(); ++g) {
    const vora_preset_band& values = preset.bands[groups[g][0]];
    const bool both = channelsDiffer(values);
    for (int channel = 0; channel < (both ? 2 : 1); ++channel) {
      const std::string name = bandList(groups[g], missed) + (both ? " ch" + std::to_string(channel) : "");
      const std::string dash = channel == 1 ? "2 2" : bandDash(static_cast<int>(g));
      ChartSeries level{name, bandColour(static_cast<int>(g)), {}, false, dash};
      ChartSeries gain = level;
      constexpr int kSteps = static_cast<int>((kHighDb - kLowDb) / 0.5);
      for (int step = 0; step <= kSteps; ++step) {
        const double in = kLowDb + 0.5 * step;
        const double out = steadyBand(values, in).outputDb[channel];
        level.points.emplace_back(in, out);
        gain.points.emplace_back(in, out - in);
        top = std::max(top, out);
        lowestGain = std::min(lowestGain, out - in);
        highestGain = std::max(highestGain, out - in);
      }
      levels.series.push_back(std::move(level));
      gains.series.push_back(std::move(gain));
    }
  }
  levels.series.push_back({"output = input", "#999999", {{kLowDb, kLowDb}, {kHighDb, kHighDb}}, false, "1 4"});
  levels.options.title = "Band level out";
  levels.options.yLabel = "band level out (dB)";
  levels.options.yMin = kLowDb;
  levels.options.yMax = std::ceil(top / 10.0) * 10.0;
  levels.options.height = 520.0;

  gains.options.title = "Net band gain (level out - level in)";
  gains.options.yLabel = "gain (dB)";
  gains.options.yMin = std::floor(lowestGain) - 1.0;
  gains.options.yMax = std::ceil(highestGain) + 1.0;
  gains.options.height = 420.0 + (note.empty() ? 0.0 : 44.0);
  gains.options.endLabels = true;
  gains.options.note = note;

  std::vector<ChartPanel> panels{levels, gains};
  for (ChartPanel& panel : panels) {
    panel.options.xLabel = "steady band level in (dB)";
    panel.options.xMin = kLowDb;
    panel.options.xMax = kHighDb;
  }
  return renderPanels("Settled input/output levels per band, " + presetName, panels);
}

} // namespace larkspin_tool
