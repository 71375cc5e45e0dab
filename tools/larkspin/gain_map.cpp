#include "larkspin/gain_map.h"

#include "larkspin/svg_chart.h"

#include <larkspin/vora_preset.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace larkspin_tool {
namespace {

constexpr size_t kMaxColumns = 400; // wider gives no more detail on screen
// Kept blocks and level stretches: between one and two for each column.
constexpr size_t kMaxKept = 2 * kMaxColumns;

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
  if (!vora_ap_get_band_readout(control, levels.data(), gains.data())) {
    return;
  }
  for (size_t i = 0; i < gains.size(); ++i) {
    largestDb_[i / 2] = std::max(largestDb_[i / 2], std::fabs(static_cast<double>(gains[i])));
  }
  // A block starts a new entry or takes the place of the previous one in its run.
  if (blocksInEntry_ == 0) {
    frames_.push_back(framesFed);
    gains_.push_back(gains);
  } else {
    frames_.back() = framesFed;
    gains_.back() = gains;
  }
  if (++blocksInEntry_ < stride_) {
    return;
  }
  blocksInEntry_ = 0;
  if (gains_.size() == kMaxKept) {
    // Keep the later of each pair: runs twice as long.
    for (size_t i = 0; i < kMaxKept / 2; ++i) {
      frames_[i] = frames_[2 * i + 1];
      gains_[i] = gains_[2 * i + 1];
    }
    frames_.resize(kMaxKept / 2);
    gains_.resize(kMaxKept / 2);
    stride_ *= 2;
  }
}

void GainRecorder::addInput(const float* interleaved, long frames, int channels) {
  for (long i = 0; i < frames; ++i, ++inputFrames_) {
    if (static_cast<size_t>(inputFrames_ / stretchFrames_) == kMaxKept) {
      // Pairs of stretches become one twice as long.
      for (size_t k = 0; k < kMaxKept / 2; ++k) {
        power_[k] = power_[2 * k] + power_[2 * k + 1];
      }
      power_.resize(kMaxKept / 2);
      stretchFrames_ *= 2;
    }
    if (static_cast<size_t>(inputFrames_ / stretchFrames_) == power_.size()) {
      power_.push_back(0.0);
    }
    for (int ch = 0; ch < channels; ++ch) {
      const double x = interleaved[i * channels + ch];
      power_.back() += x * x;
    }
  }
}

std::string GainRecorder::render(const std::string& title, int sampleRate, int channels, int contentRate) const {
  const double rate = sampleRate;
  const double seconds = std::max(static_cast<double>(inputFrames_) / rate, 1e-3);
  const size_t columns = std::max<size_t>(1, std::min(kMaxColumns, gains_.size()));

  // The input level over time, in at most as many steps as the map has columns.
  ChartSeries level{"input level", "#333333", {}, false, {}};
  const size_t perStep = std::max<size_t>(1, (power_.size() + columns - 1) / columns);
  const long step = stretchFrames_ * static_cast<long>(perStep);
  for (size_t first = 0; first < power_.size(); first += perStep) {
    double sum = 0.0;
    for (size_t k = first; k < std::min(first + perStep, power_.size()); ++k) {
      sum += power_[k];
    }
    const long start = static_cast<long>(first) * stretchFrames_;
    const long count = std::min(step, inputFrames_ - start) * channels;
    const double db = 10.0 * std::log10(sum / static_cast<double>(std::max<long>(count, 1)) + 1e-30);
    const long middle = start + step / 2; // the window's middle sample
    level.points.emplace_back(static_cast<double>(middle) / rate, std::max(db, -120.0));
  }
  ChartOptions levelOptions;
  char window[32];
  std::snprintf(window, sizeof window, "%.2g", 1000.0 * static_cast<double>(step) / rate);
  levelOptions.title = "Input level (RMS over " + std::string(window) + " ms)";
  levelOptions.xLabel = "time (s)";
  levelOptions.yLabel = "level (dBFS)";
  levelOptions.xMin = 0.0;
  levelOptions.xMax = seconds;
  levelOptions.yMin = -80.0;
  levelOptions.yMax = 0.0;
  levelOptions.height = 240.0;

  // Bands that start above the content's Nyquist frequency hold nothing
  // but the converter's residue; their gains would only mislead.
  vora_band_info bands[VORA_BAND_COUNT];
  const bool layout = vora_preset_band_layout(static_cast<float>(sampleRate), bands) > 0;
  const double contentTopHz = contentRate > 0 ? contentRate / 2.0 : rate / 2.0;
  int firstEmpty = VORA_AP_BAND_COUNT;
  while (layout && firstEmpty > 0 && bands[firstEmpty - 1].lowHz >= contentTopHz) {
    --firstEmpty;
  }

  // Colour range: symmetric, an even number of dB (so the bar's half-way
  // labels are whole), at least 4 dB.
  double rangeDb = 4.0;
  for (int band = 0; band < firstEmpty; ++band) {
    rangeDb = std::max(rangeDb, 2.0 * std::ceil(largestDb_[static_cast<size_t>(band)] / 2.0));
  }

  constexpr double kMapTop = 40.0, kRowHeight = 16.0, kMapBottom = 50.0;
  double titleHeight = 40.0;
  const std::string heading = titleSvg(title, 28.0, 18.0, &titleHeight);
  const double plotLeft = kChartLeft, plotWidth = kChartWidth - kChartLeft - kChartRight;
  const double mapHeight = kMapTop + VORA_AP_BAND_COUNT * kRowHeight + kMapBottom;
  const double height = titleHeight + levelOptions.height + channels * mapHeight;
  std::string svg = openSvg(height);
  svg += heading;
  appendChart(svg, levelOptions, {level}, titleHeight, "level");

  const double cellWidth = plotWidth / static_cast<double>(columns);
  for (int ch = 0; ch < channels; ++ch) {
    const double top = titleHeight + levelOptions.height + ch * mapHeight + kMapTop;
    svg += "<text x=\"" + number(kChartWidth / 2) + "\" y=\"" + number(top - 12) +
           "\" text-anchor=\"middle\" font-size=\"16\" font-weight=\"bold\">Band gains" +
           (channels > 1 ? ", channel " + std::to_string(ch) : std::string()) + " (dB)</text>\n";
    // One rectangle per run of equal colour in a band's row keeps the file
    // small; it carries the first cell's time and value.
    const auto sample = [&](size_t column) {
      return std::min(gains_.size() - 1, (column + 1) * gains_.size() / columns - 1); // last block in the column
    };
    for (int band = 0; band < firstEmpty && !gains_.empty(); ++band) {
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
    if (firstEmpty < VORA_AP_BAND_COUNT) {
      const double emptyHeight = (VORA_AP_BAND_COUNT - firstEmpty) * kRowHeight;
      svg += "<rect x=\"" + number(plotLeft) + "\" y=\"" + number(top) + "\" width=\"" + number(plotWidth) +
             "\" height=\"" + number(emptyHeight) + "\" fill=\"#eeeeee\" data-empty-from-band=\"" +
             std::to_string(firstEmpty) + "\"/>\n<text x=\"" + number(plotLeft + plotWidth / 2) + "\" y=\"" +
             number(top + emptyHeight / 2 + 4) + "\" text-anchor=\"middle\" font-size=\"11\" fill=\"#555555\">" +
             "empty: above the input's Nyquist frequency (" + number(contentTopHz / 1000.0) + " kHz)</text>\n";
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
    for (double tick : niceTicks(0.0, seconds, 10)) {
      svg += "<text x=\"" + number(plotLeft + plotWidth * tick / seconds) + "\" y=\"" + number(bottom + 16) +
             "\" text-anchor=\"middle\" font-size=\"11\">" + formatTick(tick) + "</text>\n";
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
