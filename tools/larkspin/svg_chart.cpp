#include "larkspin/svg_chart.h"

#include "larkspin/audio_file.h"

#include "larkspin/tool_error.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace larkspin_tool {

namespace {

constexpr double kWidth = 960, kHeight = 540;
constexpr double kLeft = 80, kRight = 200, kTop = 50, kBottom = 70;

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

std::string renderChart(const ChartOptions& options, const std::vector<ChartSeries>& series) {
  const double plotWidth = kWidth - kLeft - kRight;
  const double plotHeight = kHeight - kTop - kBottom;
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

  std::ostringstream svg;
  svg.precision(6);
  svg << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << kWidth << "\" height=\"" << kHeight
      << "\" viewBox=\"0 0 " << kWidth << ' ' << kHeight << "\" font-family=\"sans-serif\" font-size=\"12\">\n"
      << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n"
      << "<text x=\"" << kWidth / 2 << "\" y=\"28\" text-anchor=\"middle\" font-size=\"16\" font-weight=\"bold\">"
      << escape(options.title) << "</text>\n";

  // Grid and ticks.
  std::vector<double> xTicks;
  if (options.logX) {
    for (double decade = std::pow(10.0, std::floor(std::log10(options.xMin))); decade <= options.xMax; decade *= 10) {
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
  for (double y = std::ceil(options.yMin / yStep) * yStep; y <= options.yMax + 1e-9; y += yStep) {
    yTicks.push_back(y);
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
  svg << "<text x=\"" << kLeft + plotWidth / 2 << "\" y=\"" << kHeight - 20 << "\" text-anchor=\"middle\">"
      << escape(options.xLabel) << "</text>\n"
      << "<text transform=\"translate(22 " << kTop + plotHeight / 2 << ") rotate(-90)\" text-anchor=\"middle\">"
      << escape(options.yLabel) << "</text>\n</g>\n"
      << "<rect x=\"" << kLeft << "\" y=\"" << kTop << "\" width=\"" << plotWidth << "\" height=\"" << plotHeight
      << "\" fill=\"none\" stroke=\"#333333\"/>\n";

  // Series, clipped to the plot area.
  svg << "<defs><clipPath id=\"plot\"><rect x=\"" << kLeft << "\" y=\"" << kTop << "\" width=\"" << plotWidth
      << "\" height=\"" << plotHeight << "\"/></clipPath></defs>\n<g clip-path=\"url(#plot)\" fill=\"none\">\n";
  for (const auto& s : series) {
    svg << "<polyline stroke=\"" << s.colour << "\" stroke-width=\"1.6\""
        << (s.dashed ? " stroke-dasharray=\"6 3\"" : "") << " points=\"";
    for (const auto& [x, y] : s.points) {
      if (std::isfinite(y) && (!options.logX || x > 0)) {
        svg << mapX(x) << ',' << mapY(y) << ' ';
      }
    }
    svg << "\"/>\n";
  }
  svg << "</g>\n";

  // Legend.
  double legendY = kTop + 10;
  for (const auto& s : series) {
    const double x = kLeft + plotWidth + 16;
    svg << "<line x1=\"" << x << "\" y1=\"" << legendY << "\" x2=\"" << x + 24 << "\" y2=\"" << legendY
        << "\" stroke=\"" << s.colour << "\" stroke-width=\"2.5\"" << (s.dashed ? " stroke-dasharray=\"6 3\"" : "")
        << "/>\n<text x=\"" << x + 30 << "\" y=\"" << legendY + 4 << "\">" << escape(s.label) << "</text>\n";
    legendY += 18;
  }
  svg << "</svg>\n";
  return svg.str();
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
