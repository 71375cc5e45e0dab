#include "larkspin/gain_map.h"

#include "larkspin/svg_chart.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace larkspin_tool {
namespace {

constexpr size_t kMaxColumns = 400; // wider gives no more detail on screen

// White at 0 dB, red for boosts, blue for cuts, full at +-`rangeDb`.
std::string colourOf(double gainDb, double rangeDb) {
  const double t = std::clamp(gainDb / rangeDb, -1.0, 1.0);
  const auto mix = [](double from, double to, double amount) { return static_cast<int>(from + (to - from) * amount); };
  const double a = std::fabs(t);
  const int r = t > 0 ? mix(255, 200, a) : mix(255, 33, a);
  const int g = t > 0 ? mix(255, 30, a) : mix(255, 102, a);
  const int b = t > 0 ? mix(255, 40, a) : mix(255, 172, a);
  char text[8];
  std::snprintf(text, sizeof text, "#%02x%02x%02x", r, g, b);
  return text;
}

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.4g", value);
  return text;
}

} // namespace

void GainRecorder::record(vora_ap_control* control, long framesFed) {
  Gains levels{}, gains{};
  if (vora_ap_get_band_readout(control, levels.data(), gains.data())) {
    frames_.push_back(framesFed);
    gains_.push_back(gains);
  }
}

std::string GainRecorder::render(const std::string& title, const AudioData& input) const {
  const double rate = input.sampleRate;
  const double seconds = std::max(static_cast<double>(input.frames()) / rate, 1e-3);
  const size_t columns = std::max<size_t>(1, std::min(kMaxColumns, gains_.size()));
  const int channels = input.channelCount();

  // The input level over time, in as many steps as the map has columns.
  ChartSeries level{"input level", "#333333", {}, false, {}};
  const long step = std::max<long>(1, input.frames() / static_cast<long>(columns));
  for (long start = 0; start < input.frames(); start += step) {
    double sum = 0.0;
    long count = 0;
    for (const auto& channel : input.channels) {
      for (long i = start; i < std::min(start + step, input.frames()); ++i, ++count) {
        sum += static_cast<double>(channel[static_cast<size_t>(i)]) * channel[static_cast<size_t>(i)];
      }
    }
    const double db = 10.0 * std::log10(sum / static_cast<double>(std::max<long>(count, 1)) + 1e-30);
    const long middle = start + step / 2; // the window's middle sample
    level.points.emplace_back(static_cast<double>(middle) / rate, std::max(db, -120.0));
  }
  ChartOptions levelOptions;
  levelOptions.title = "Input level (RMS over " + number(1000.0 * static_cast<double>(step) / rate) + " ms)";
  levelOptions.xLabel = "time (s)";
  levelOptions.yLabel = "level (dBFS)";
  levelOptions.xMin = 0.0;
  levelOptions.xMax = seconds;
  levelOptions.yMin = -80.0;
  levelOptions.yMax = 0.0;
  levelOptions.height = 240.0;

  // Colour range: symmetric, whole dB, at least 3 dB.
  double rangeDb = 3.0;
  for (const Gains& g : gains_) {
    for (float v : g) {
      rangeDb = std::max(rangeDb, std::ceil(std::fabs(static_cast<double>(v))));
    }
  }

  constexpr double kTitleHeight = 40.0, kMapTop = 40.0, kRowHeight = 16.0, kMapBottom = 50.0;
  const double plotLeft = kChartLeft, plotWidth = kChartWidth - kChartLeft - kChartRight;
  const double mapHeight = kMapTop + VORA_AP_BAND_COUNT * kRowHeight + kMapBottom;
  const double height = kTitleHeight + levelOptions.height + channels * mapHeight;
  std::string svg = openSvg(height);
  svg += "<text x=\"" + number(kChartWidth / 2) +
         "\" y=\"28\" text-anchor=\"middle\" font-size=\"18\" font-weight=\"bold\">" + escapeXml(title) + "</text>\n";
  appendChart(svg, levelOptions, {level}, kTitleHeight, "level");

  const double cellWidth = plotWidth / static_cast<double>(columns);
  for (int ch = 0; ch < channels; ++ch) {
    const double top = kTitleHeight + levelOptions.height + ch * mapHeight + kMapTop;
    svg += "<text x=\"" + number(kChartWidth / 2) + "\" y=\"" + number(top - 12) +
           "\" text-anchor=\"middle\" font-size=\"16\" font-weight=\"bold\">Band gains" +
           (channels > 1 ? ", channel " + std::to_string(ch) : std::string()) + " (dB)</text>\n";
    // One rectangle per run of equal colour in a band's row keeps the file
    // small; it carries the first cell's time and value.
    const auto sample = [&](size_t column) {
      return std::min(gains_.size() - 1, (column + 1) * gains_.size() / columns - 1); // last block in the column
    };
    for (int band = 0; band < VORA_AP_BAND_COUNT && !gains_.empty(); ++band) {
      const double y = top + (VORA_AP_BAND_COUNT - 1 - band) * kRowHeight;
      const size_t slot = static_cast<size_t>(band) * 2 + static_cast<size_t>(ch); // band-major, channel-minor
      for (size_t column = 0; column < columns;) {
        const size_t index = sample(column);
        const double db = gains_[index][slot];
        const std::string colour = colourOf(db, rangeDb);
        size_t end = column + 1;
        while (end < columns && colourOf(gains_[sample(end)][slot], rangeDb) == colour) {
          ++end;
        }
        svg += "<rect x=\"" + number(plotLeft + static_cast<double>(column) * cellWidth) + "\" y=\"" + number(y) +
               "\" width=\"" + number(static_cast<double>(end - column) * cellWidth + 0.3) + "\" height=\"" +
               number(kRowHeight) + "\" fill=\"" + colour + "\" data-band=\"" + std::to_string(band) +
               "\" data-time=\"" + number(static_cast<double>(frames_[index]) / rate) + "\" data-db=\"" + number(db) +
               "\"/>\n";
        column = end;
      }
    }
    for (int band = 0; band < VORA_AP_BAND_COUNT; ++band) {
      const double y = top + (VORA_AP_BAND_COUNT - 1 - band) * kRowHeight + kRowHeight * 0.75;
      svg += "<text x=\"" + number(plotLeft - 6) + "\" y=\"" + number(y) + "\" text-anchor=\"end\" font-size=\"11\">" +
             (band == VORA_AP_BAND_COUNT - 1 ? std::string("13 (fixed)") : "band " + std::to_string(band)) +
             "</text>\n";
    }
    const double bottom = top + VORA_AP_BAND_COUNT * kRowHeight;
    svg += "<rect x=\"" + number(plotLeft) + "\" y=\"" + number(top) + "\" width=\"" + number(plotWidth) +
           "\" height=\"" + number(bottom - top) + "\" fill=\"none\" stroke=\"#333333\"/>\n";
    for (int tick = 0; tick <= 10; ++tick) {
      svg += "<text x=\"" + number(plotLeft + plotWidth * tick / 10.0) + "\" y=\"" + number(bottom + 16) +
             "\" text-anchor=\"middle\" font-size=\"11\">" + number(seconds * tick / 10.0) + "</text>\n";
    }
    svg += "<text x=\"" + number(plotLeft + plotWidth / 2) + "\" y=\"" + number(bottom + 36) +
           "\" text-anchor=\"middle\">time (s)</text>\n";
    // Colour bar.
    const double barX = plotLeft + plotWidth + 30;
    for (int i = 0; i <= 20; ++i) {
      const double db = rangeDb * (1.0 - i / 10.0);
      svg += "<rect x=\"" + number(barX) + "\" y=\"" + number(top + i * (bottom - top) / 21.0) +
             "\" width=\"18\" height=\"" + number((bottom - top) / 21.0 + 0.3) + "\" fill=\"" + colourOf(db, rangeDb) +
             "\"/>\n";
      if (i % 5 == 0) {
        svg += "<text x=\"" + number(barX + 24) + "\" y=\"" + number(top + (i + 0.75) * (bottom - top) / 21.0) +
               "\" font-size=\"11\">" + number(db) + " dB</text>\n";
      }
    }
  }
  svg += "</svg>\n";
  return svg;
}

} // namespace larkspin_tool
