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
};

struct ChartOptions {
  std::string title;
  std::string xLabel;
  std::string yLabel;
  bool logX = false;
  double xMin = 0.0, xMax = 1.0;
  double yMin = 0.0, yMax = 1.0;
};

std::string renderChart(const ChartOptions& options, const std::vector<ChartSeries>& series);

// Writes text to a file; throws ToolError on failure.
void writeTextFile(const std::string& path, const std::string& text);

// Distinct, colour-blind-friendly colours for series i.
std::string seriesColour(size_t index);

} // namespace larkspin_tool
