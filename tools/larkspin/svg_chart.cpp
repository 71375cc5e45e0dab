#include "larkspin/svg_chart.h"

#include "larkspin/tool_error.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <sstream>

namespace larkspin_tool {

namespace {

constexpr double kWidth = kChartWidth;
constexpr double kLeft = kChartLeft, kRight = kChartRight, kTop = 50, kBottom = 70;

std::string escape(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
    case '&':
      out += "&amp;";
      break;
    case '<':
      out += "&lt;";
      break;
    case '>':
      out += "&gt;";
      break;
    case '"':
      out += "&quot;";
      break;
    default:
      out += c;
    }
  }
  return out;
}

} // namespace

std::vector<double> niceTicks(double low, double high, int count) {
  std::vector<double> ticks;
  if (!(high > low) || count < 1) {
    return ticks;
  }
  const double raw = (high - low) / count;
  const double power = std::pow(10.0, std::floor(std::log10(raw)));
  double step = 10.0 * power;
  for (double m : {1.0, 2.0, 5.0}) {
    if (m * power >= raw * 0.999) {
      step = m * power;
      break;
    }
  }
  // Counted in whole steps, so that 0.1 + 0.2 never prints as 0.30000000000000004.
  for (double n = std::ceil(low / step - 1e-9); n * step <= high + step * 1e-9; n += 1.0) {
    ticks.push_back(n * step == 0.0 ? 0.0 : n * step);
  }
  return ticks;
}

std::string formatTick(double value) {
  char buffer[32];
  if (std::fabs(value) >= 1000.0) {
    std::snprintf(buffer, sizeof buffer, "%.6gk", value / 1000.0);
  } else {
    std::snprintf(buffer, sizeof buffer, "%.6g", value);
  }
  return buffer;
}

double textWidth(const std::string& text, double fontSize, bool bold) {
  // Advance widths in ems of the common free sans-serif face (the widest
  // of those a viewer is likely to use), grouped and rounded up.
  static const std::pair<const char*, double> kGroups[] = {
      {"'ijlIJ", 0.29}, {" ,.", 0.32},    {"/:;\\|", 0.35},  {"f-", 0.37},       {"()[]t!r", 0.42},   {"\"*_`", 0.5},
      {"szc?", 0.55},   {"LFkvxyP", 0.6}, {"KAVXZBRC", 0.7}, {"UNHDG&OQ", 0.79}, {"w#+<=>^~M", 0.86}, {"%mW@", 1.0}};
  double ems = 0.0;
  for (unsigned char c : text) {
    if ((c & 0xC0) == 0x80) {
      continue; // a UTF-8 continuation byte: counted with its first byte
    }
    double width = c >= 0x80 ? 0.8 : 0.64; // the rest: digits, most lower case, T, Y, E, S
    for (const auto& [members, groupEms] : kGroups) {
      if (c != 0 && std::strchr(members, c) != nullptr) {
        width = groupEms;
        break;
      }
    }
    ems += width;
  }
  return ems * fontSize * (bold ? 1.1 : 1.0) * 1.03;
}

std::vector<std::string> fitText(const std::string& text, double fontSize, bool bold, double width, int maxLines) {
  std::vector<std::string> lines;
  std::istringstream words(text);
  std::string word;
  while (words >> word) {
    // A word that does not fit starts a new line while there may be one;
    // past the last, it is cut off below.
    const bool fits = !lines.empty() && textWidth(lines.back() + " " + word, fontSize, bold) <= width;
    if (lines.empty() || (!fits && static_cast<int>(lines.size()) < maxLines)) {
      lines.push_back(word);
    } else {
      lines.back() += " " + word;
    }
  }
  if (!lines.empty() && textWidth(lines.back(), fontSize, bold) > width) {
    std::string& last = lines.back();
    const std::string ellipsis = "\u2026";
    while (!last.empty() && textWidth(last + ellipsis, fontSize, bold) > width) {
      last.pop_back();
      while (!last.empty() && (static_cast<unsigned char>(last.back()) & 0xC0) == 0x80) {
        last.pop_back(); // never leave half a UTF-8 character
      }
      if (!last.empty() && (static_cast<unsigned char>(last.back()) & 0xC0) == 0xC0) {
        last.pop_back();
      }
    }
    last += ellipsis;
  }
  return lines;
}

std::string titleSvg(const std::string& title, double baseline, double fontSize, double* extraHeight) {
  const double width = kWidth - 20.0;
  std::vector<std::string> lines = fitText(title, fontSize, true, width, 1);
  if (textWidth(title, fontSize, true) > width) {
    fontSize -= 2.0;
    lines = fitText(title, fontSize, true, width, 2);
  }
  std::ostringstream svg;
  svg.precision(6);
  const double first = lines.size() > 1 ? baseline - 8.0 : baseline;
  for (size_t i = 0; i < lines.size(); ++i) {
    svg << "<text x=\"" << kWidth / 2 << "\" y=\"" << first + static_cast<double>(i) * (fontSize + 3.0)
        << "\" text-anchor=\"middle\" font-size=\"" << fontSize << "\" font-weight=\"bold\">" << escape(lines[i])
        << "</text>\n";
  }
  if (extraHeight != nullptr && lines.size() > 1) {
    *extraHeight += first + fontSize + 3.0 - baseline;
  }
  return svg.str();
}

std::string seriesColour(size_t index) {
  static const char* const kPalette[] = {"#0072B2", "#D55E00", "#009E73", "#CC79A7", "#E69F00",
                                         "#56B4E9", "#000000", "#F0E442", "#999999"};
  return kPalette[index % (sizeof kPalette / sizeof kPalette[0])];
}

std::string bandColour(int band) {
  static const char* const kColours[] = {"#0072B2", "#D55E00", "#009E73", "#CC79A7", "#E69F00", "#56B4E9", "#000000"};
  return kColours[band % 7];
}

std::string bandDash(int band) {
  return band % 14 < 7 ? "" : "7 3";
}

namespace {

std::string dashAttribute(const ChartSeries& s) {
  const std::string dash = !s.dash.empty() ? s.dash : s.dashed ? "6 3" : "";
  return dash.empty() ? "" : " stroke-dasharray=\"" + dash + "\"";
}

// Legend, in columns when it is longer than the plot.
void drawLegend(std::ostringstream& svg, const std::vector<ChartSeries>& series, double plotRight, double plotHeight) {
  const size_t perColumn = std::max<size_t>(1, static_cast<size_t>((plotHeight - 10) / 18));
  const double columnWidth = series.size() > perColumn ? 95.0 : 180.0;
  for (size_t i = 0; i < series.size(); ++i) {
    const ChartSeries& s = series[i];
    const size_t column = i / perColumn; // whole columns
    const double x = plotRight + 16 + static_cast<double>(column) * columnWidth;
    const double legendY = kTop + 10 + static_cast<double>(i % perColumn) * 18;
    svg << "<line x1=\"" << x << "\" y1=\"" << legendY << "\" x2=\"" << x + 24 << "\" y2=\"" << legendY
        << "\" stroke=\"" << s.colour << "\" stroke-width=\"2.5\"" << dashAttribute(s) << "/>\n<text x=\"" << x + 30
        << "\" y=\"" << legendY + 4 << "\">" << escape(s.label) << "</text>\n";
  }
}

// Names at the lines' right ends, moved apart where lines end close together
// and joined to their line by a short leader.
template <typename MapY>
void drawEndLabels(std::ostringstream& svg, const std::vector<ChartSeries>& series, double plotRight, double top,
                   double bottom, const MapY& mapY) {
  constexpr double kGap = 15.0;
  struct End {
    double lineY, labelY;
    const ChartSeries* s;
  };
  std::vector<End> ends;
  for (const ChartSeries& s : series) {
    auto last = std::find_if(s.points.rbegin(), s.points.rend(), [](const auto& p) { return std::isfinite(p.second); });
    if (last != s.points.rend() && !s.label.empty()) {
      const double y = mapY(last->second);
      ends.push_back({y, y, &s});
    }
  }
  std::stable_sort(ends.begin(), ends.end(), [](const End& a, const End& b) { return a.lineY < b.lineY; });
  for (size_t i = 0; i < ends.size(); ++i) {
    ends[i].labelY = std::max(ends[i].lineY, i > 0 ? ends[i - 1].labelY + kGap : top + 6.0);
  }
  for (size_t i = ends.size(); i-- > 0;) {
    ends[i].labelY = std::min(ends[i].labelY, i + 1 < ends.size() ? ends[i + 1].labelY - kGap : bottom + 20.0);
  }
  for (const End& end : ends) {
    svg << "<polyline fill=\"none\" stroke=\"" << end.s->colour << "\" stroke-width=\"1.6\"" << dashAttribute(*end.s)
        << " points=\"" << plotRight << ',' << end.lineY << ' ' << plotRight + 12 << ',' << end.labelY << ' '
        << plotRight + 30 << ',' << end.labelY << "\"/>\n<text x=\"" << plotRight + 34 << "\" y=\"" << end.labelY + 4
        << "\" fill=\"" << end.s->colour << "\">" << escape(end.s->label) << "</text>\n";
  }
}

// One chart's axes, series and legend, drawn `offsetY` pixels down; `id`
// keeps its clip path apart from other panels'.
void drawChart(std::ostringstream& svg, const ChartOptions& options, const std::vector<ChartSeries>& series,
               double offsetY, const std::string& id) {
  const std::vector<std::string> noteLines =
      options.note.empty() ? std::vector<std::string>{} : fitText(options.note, 11.0, false, kWidth - 40.0, 3);
  const double noteHeight = 14.0 * static_cast<double>(noteLines.size());
  const double chartHeight = options.height - noteHeight; // the note goes under the axis label
  const double plotWidth = kWidth - kLeft - kRight;
  const double plotHeight = chartHeight - kTop - kBottom;
  auto mapX = [&](double x) {
    double t = options.logX
                   ? (std::log10(x) - std::log10(options.xMin)) / (std::log10(options.xMax) - std::log10(options.xMin))
                   : (x - options.xMin) / (options.xMax - options.xMin);
    return kLeft + std::clamp(t, 0.0, 1.0) * plotWidth;
  };
  auto mapY = [&](double y) {
    const double t = (y - options.yMin) / (options.yMax - options.yMin);
    return kTop + (1.0 - std::clamp(t, 0.0, 1.0)) * plotHeight;
  };

  svg << "<g transform=\"translate(0 " << offsetY << ")\">\n" << titleSvg(options.title, 28.0, 16.0, nullptr);
  for (const ChartSpan& span : options.spans) {
    const double x0 = mapX(span.xFrom), x1 = mapX(span.xTo);
    svg << "<rect x=\"" << x0 << "\" y=\"" << kTop << "\" width=\"" << x1 - x0 << "\" height=\"" << plotHeight
        << "\" fill=\"#eeeeee\"/>\n";
    if (span.vertical) {
      svg << "<text transform=\"translate(" << (x0 + x1) / 2 + 4 << ' ' << kTop + plotHeight * 0.78
          << ") rotate(-90)\" font-size=\"10\" fill=\"#555555\" stroke=\"white\" stroke-width=\"3\" "
             "paint-order=\"stroke\">"
          << escape(span.text) << "</text>\n";
    } else {
      svg << "<text x=\"" << x1 - 4 << "\" y=\"" << kTop + 14
          << "\" text-anchor=\"end\" font-size=\"10\" fill=\"#555555\">" << escape(span.text) << "</text>\n";
    }
  }

  // Grid and ticks, at round values.
  std::vector<double> xTicks;
  if (options.logX) {
    for (int exponent = static_cast<int>(std::floor(std::log10(options.xMin)));
         std::pow(10.0, exponent) <= options.xMax; ++exponent) {
      const double decade = std::pow(10.0, exponent);
      for (double m : {1.0, 2.0, 5.0}) {
        if (m * decade >= options.xMin * 0.999 && m * decade <= options.xMax * 1.001) {
          xTicks.push_back(m * decade);
        }
      }
    }
  } else {
    xTicks = niceTicks(options.xMin, options.xMax, 10);
  }
  const std::vector<double> yTicks =
      niceTicks(options.yMin, options.yMax, std::max(4, static_cast<int>(plotHeight / 42.0)));
  svg << "<g stroke=\"#dddddd\" stroke-width=\"1\">\n";
  for (double x : xTicks) {
    svg << "<line x1=\"" << mapX(x) << "\" y1=\"" << kTop << "\" x2=\"" << mapX(x) << "\" y2=\"" << kTop + plotHeight
        << "\"/>\n";
  }
  for (double y : yTicks) {
    svg << "<line x1=\"" << kLeft << "\" y1=\"" << mapY(y) << "\" x2=\"" << kLeft + plotWidth << "\" y2=\"" << mapY(y)
        << "\"/>\n";
  }
  svg << "</g>\n<g fill=\"#333333\">\n";
  for (double x : xTicks) {
    svg << "<text x=\"" << mapX(x) << "\" y=\"" << kTop + plotHeight + 18 << "\" text-anchor=\"middle\">"
        << formatTick(x) << "</text>\n";
  }
  for (double y : yTicks) {
    svg << "<text x=\"" << kLeft - 8 << "\" y=\"" << mapY(y) + 4 << "\" text-anchor=\"end\">" << formatTick(y)
        << "</text>\n";
  }
  svg << "<text x=\"" << kLeft + plotWidth / 2 << "\" y=\"" << chartHeight - 20 << "\" text-anchor=\"middle\">"
      << escape(options.xLabel) << "</text>\n"
      << "<text transform=\"translate(22 " << kTop + plotHeight / 2 << ") rotate(-90)\" text-anchor=\"middle\">"
      << escape(options.yLabel) << "</text>\n</g>\n"
      << "<rect x=\"" << kLeft << "\" y=\"" << kTop << "\" width=\"" << plotWidth << "\" height=\"" << plotHeight
      << "\" fill=\"none\" stroke=\"#333333\"/>\n";

  // Series, clipped to the plot area.
  svg << "<defs><clipPath id=\"" << id << "\"><rect x=\"" << kLeft << "\" y=\"" << kTop << "\" width=\"" << plotWidth
      << "\" height=\"" << plotHeight << "\"/></clipPath></defs>\n<g clip-path=\"url(#" << id << ")\" fill=\"none\">\n";
  for (const auto& s : series) {
    svg << "<polyline stroke=\"" << s.colour << "\" stroke-width=\"1.6\"" << dashAttribute(s) << " points=\"";
    for (const auto& [x, y] : s.points) {
      if (std::isfinite(y) && (!options.logX || x > 0)) {
        svg << mapX(x) << ',' << mapY(y) << ' ';
      }
    }
    svg << "\"/>\n";
  }
  for (const ChartLabel& label : options.labels) {
    svg << "<text x=\"" << mapX(label.x) << "\" y=\"" << mapY(label.y) << "\" text-anchor=\"middle\" fill=\""
        << label.colour << "\" font-size=\"11\" font-weight=\"bold\">" << escape(label.text) << "</text>\n";
  }
  svg << "</g>\n";

  for (size_t i = 0; i < noteLines.size(); ++i) {
    svg << "<text x=\"" << kWidth / 2 << "\" y=\"" << chartHeight + static_cast<double>(i) * 14.0
        << "\" text-anchor=\"middle\" font-size=\"11\" fill=\"#555555\">" << escape(noteLines[i]) << "</text>\n";
  }
  if (options.endLabels) {
    drawEndLabels(svg, series, kLeft + plotWidth, kTop, kTop + plotHeight, mapY);
  } else {
    drawLegend(svg, series, kLeft + plotWidth, plotHeight);
  }
  svg << "</g>\n";
}

void openDocument(std::ostringstream& svg, double height) {
  svg.precision(6);
  svg << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << kWidth << "\" height=\"" << height
      << "\" viewBox=\"0 0 " << kWidth << ' ' << height << "\" font-family=\"sans-serif\" font-size=\"12\">\n"
      << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
}

} // namespace

std::string renderChart(const ChartOptions& options, const std::vector<ChartSeries>& series) {
  std::ostringstream svg;
  openDocument(svg, options.height);
  drawChart(svg, options, series, 0.0, "plot");
  svg << "</svg>\n";
  return svg.str();
}

void appendChart(std::string& svg, const ChartOptions& options, const std::vector<ChartSeries>& series, double offsetY,
                 const std::string& id) {
  std::ostringstream text;
  text.precision(6);
  drawChart(text, options, series, offsetY, id);
  svg += text.str();
}

std::string openSvg(double height) {
  std::ostringstream text;
  openDocument(text, height);
  return text.str();
}

std::string escapeXml(const std::string& text) {
  return escape(text);
}

std::string renderPanels(const std::string& title, const std::vector<ChartPanel>& panels) {
  double titleHeight = 40.0;
  const std::string heading = titleSvg(title, 28.0, 18.0, &titleHeight);
  double height = titleHeight;
  for (const ChartPanel& panel : panels) {
    height += panel.options.height;
  }
  std::ostringstream svg;
  openDocument(svg, height);
  svg << heading;
  double offsetY = titleHeight;
  for (size_t i = 0; i < panels.size(); ++i) {
    drawChart(svg, panels[i].options, panels[i].series, offsetY, "panel" + std::to_string(i));
    offsetY += panels[i].options.height;
  }
  svg << "</svg>\n";
  return svg.str();
}

void requireSvgPath(const std::string& path) {
  const size_t dot = path.find_last_of("./");
  std::string extension = dot == std::string::npos || path[dot] == '/' ? "" : path.substr(dot + 1);
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (extension != "svg") {
    throw ToolError("cannot write '" + path + "': pictures are written as SVG only; name the file .svg");
  }
}

} // namespace larkspin_tool
