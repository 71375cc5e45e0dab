// A small SVG line chart: axes with ticks and labels, a title and a legend.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace larkspin_tool {

struct ChartSeries {
  std::string label;
  std::string colour; // any SVG colour
  std::vector<std::pair<double, double>> points;
  bool dashed = false;
  std::string dash; // SVG dash pattern; overrides `dashed` when set
};

// Text placed at a data point, centred on it.
struct ChartLabel {
  double x, y;
  std::string text;
  std::string colour = "#333333";
};

// A shaded stretch of the x axis with a note at its top.
struct ChartSpan {
  double xFrom, xTo;
  std::string text;
};

struct ChartOptions {
  std::string title;
  std::string xLabel;
  std::string yLabel;
  bool logX = false;
  double xMin = 0.0, xMax = 1.0;
  double yMin = 0.0, yMax = 1.0;
  double height = 540.0; // of the whole chart, pixels
  std::vector<ChartLabel> labels;
  std::vector<ChartSpan> spans;
};

struct ChartPanel {
  ChartOptions options;
  std::vector<ChartSeries> series;
};

std::string renderChart(const ChartOptions& options, const std::vector<ChartSeries>& series);

// Geometry shared by every chart: the plot area spans x = kChartLeft to
// kChartWidth - kChartRight.
constexpr double kChartWidth = 960, kChartLeft = 80, kChartRight = 200;

// Appends one chart's elements to an open SVG document, `offsetY` pixels
// down; `id` must be unique within the document.
void appendChart(std::string& svg, const ChartOptions& options, const std::vector<ChartSeries>& series, double offsetY,
                 const std::string& id);

// The opening of an SVG document of the charts' width and `height`, with a
// white background; close it with "</svg>\n".
std::string openSvg(double height);
std::string escapeXml(const std::string& text);

// Several charts stacked top to bottom in one picture, each with its own
// axes, units and legend.
std::string renderPanels(const std::string& title, const std::vector<ChartPanel>& panels);

// Level lines that stay apart: seven colours, solid then dashed.
std::string bandColour(int band);
std::string bandDash(int band);

// Throws ToolError unless `path` names an SVG file: the only picture format
// written, and a picture under another extension would mislead.
void requireSvgPath(const std::string& path);

// Distinct, colour-blind-friendly colours for series i.
std::string seriesColour(size_t index);

} // namespace larkspin_tool
