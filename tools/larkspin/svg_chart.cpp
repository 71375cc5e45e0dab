#include "larkspin/svg_chart.h"

#include "larkspin/audio_file.h"

#include "larkspin/tool_error.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <fstream>
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

std::string formatTick(double value) {
  char buffer[32];
  if (std::fabs(value) >= 1000.0) {
    std::snprintf(buffer, sizeof buffer, "%gk", value / 1000.0);
  } else {
    std::snprintf(buffer, sizeof buffer, "%g", value);
  }
  return buffer;
}

} // namespace

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

// One chart's axes, series and legend, drawn `offsetY` pixels down; `id`
// keeps its clip path apart from other panels'.
void drawChart(std::ostringstream& svg, const ChartOptions& options, const std::vector<ChartSeries>& series,
               double offsetY, const std::string& id) {
  const double chartHeight = options.height;
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

  svg << "<g transform=\"translate(0 " << offsetY << ")\">\n"
      << "<text x=\"" << kWidth / 2 << "\" y=\"28\" text-anchor=\"middle\" font-size=\"16\" font-weight=\"bold\">"
      << escape(options.title) << "</text>\n";
  for (const ChartSpan& span : options.spans) {
    const double x0 = mapX(span.xFrom), x1 = mapX(span.xTo);
    svg << "<rect x=\"" << x0 << "\" y=\"" << kTop << "\" width=\"" << x1 - x0 << "\" height=\"" << plotHeight
        << "\" fill=\"#eeeeee\"/>\n<text x=\"" << x1 - 4 << "\" y=\"" << kTop + 14
        << "\" text-anchor=\"end\" font-size=\"10\" fill=\"#555555\">" << escape(span.text) << "</text>\n";
  }

  // Grid and ticks.
  std::vector<double> xTicks;
  if (options.logX) {
    for (int exponent = static_cast<int>(std::floor(std::log10(options.xMin)));
         std::pow(10.0, exponent) <= options.xMax; ++exponent) {
      const double decade = std::pow(10.0, exponent);
      for (double m : {1.0, 2.0, 5.0}) {
        if (m * decade >= options.xMin && m * decade <= options.xMax) {
          xTicks.push_back(m * decade);
        }
      }
    }
  } else {
    for (int i = 0; i <= 10; ++i) {
      xTicks.push_back(options.xMin + (options.xMax - options.xMin) * i / 10.0);
    }
  }
  const double yRange = options.yMax - options.yMin;
  const double yStep = yRange > 100 ? 20 : yRange > 40 ? 10 : yRange > 15 ? 5 : yRange > 6 ? 2 : 1;
  std::vector<double> yTicks;
  const double yFirst = std::ceil(options.yMin / yStep) * yStep;
  for (int i = 0; yFirst + i * yStep <= options.yMax + 1e-9; ++i) {
    yTicks.push_back(yFirst + i * yStep);
  }
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

  // Legend, in columns when it is longer than the plot.
  const size_t perColumn = std::max<size_t>(1, static_cast<size_t>((plotHeight - 10) / 18));
  const double columnWidth = series.size() > perColumn ? 95.0 : 180.0;
  for (size_t i = 0; i < series.size(); ++i) {
    const ChartSeries& s = series[i];
    const size_t column = i / perColumn;
    const double x = kLeft + plotWidth + 16 + static_cast<double>(column) * columnWidth;
    const double legendY = kTop + 10 + static_cast<double>(i % perColumn) * 18;
    svg << "<line x1=\"" << x << "\" y1=\"" << legendY << "\" x2=\"" << x + 24 << "\" y2=\"" << legendY
        << "\" stroke=\"" << s.colour << "\" stroke-width=\"2.5\"" << dashAttribute(s) << "/>\n<text x=\"" << x + 30
        << "\" y=\"" << legendY + 4 << "\">" << escape(s.label) << "</text>\n";
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
  constexpr double kTitleHeight = 40.0;
  double height = kTitleHeight;
  for (const ChartPanel& panel : panels) {
    height += panel.options.height;
  }
  std::ostringstream svg;
  openDocument(svg, height);
  svg << "<text x=\"" << kWidth / 2 << "\" y=\"28\" text-anchor=\"middle\" font-size=\"18\" font-weight=\"bold\">"
      << escape(title) << "</text>\n";
  double offsetY = kTitleHeight;
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

void writeTextFile(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  if (!(file << text) || !file.flush()) {
    file.close();
    removePartialFile(path);
    throw ToolError("cannot write '" + path + "'");
  }
}

} // namespace larkspin_tool
