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

// A shaded stretch of the x axis with a note at its top, or written upwards
// inside it when `vertical` (for a stretch too narrow for a line of text).
struct ChartSpan {
  double xFrom, xTo;
  std::string text;
  bool vertical = false;
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
  // Each series named at its line's right end (spread apart so that close
  // lines keep readable names) instead of in a legend.
  bool endLabels = false;
  std::string note; // small print under the axis label, wrapped to the chart's width
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

// About `count` round tick values (1, 2 or 5 times a power of ten apart)
// from `low` to `high`, both included when they fall on a step.
std::vector<double> niceTicks(double low, double high, int count);
// A tick value as printed: "0.5", "-12", "2k", "1.5k".
std::string formatTick(double value);

// Estimated width in pixels of `text` in the charts' sans-serif font, on
// the wide side so that what is measured to fit does fit.
double textWidth(const std::string& text, double fontSize, bool bold);
// `text` broken at spaces into at most `maxLines` lines no wider than
// `width`; the last line is cut with an ellipsis when the words do not fit.
std::vector<std::string> fitText(const std::string& text, double fontSize, bool bold, double width, int maxLines);

// A centred bold title across the picture, on one line at `fontSize` or, when
// that does not fit, on two lines two points smaller. `baseline` is the first
// line's; the second follows `fontSize` + 2 pixels lower. Adds the extra
// height a second line takes to `*extraHeight` when that is not null.
std::string titleSvg(const std::string& title, double baseline, double fontSize, double* extraHeight);

// Level lines that stay apart: seven colours, solid then dashed.
std::string bandColour(int band);
std::string bandDash(int band);

// Throws ToolError unless `path` names an SVG file: the only picture format
// written, and a picture under another extension would mislead.
void requireSvgPath(const std::string& path);

// Distinct, colour-blind-friendly colours for series i.
std::string seriesColour(size_t index);

} // namespace larkspin_tool
