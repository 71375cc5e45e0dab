#include "larkspin/levels.h"

#include <algorithm>
#include <cmath>

namespace larkspin_tool {

namespace {
double toDb(double linear) {
  return linear > 0.0 ? 20.0 * std::log10(linear) : -INFINITY;
}
} // namespace

Levels measureLevels(const AudioData& audio) {
  double peak = 0.0;
  double sumSquares = 0.0;
  size_t count = 0;
  for (const auto& channel : audio.channels) {
    for (float sample : channel) {
      peak = std::max(peak, static_cast<double>(std::fabs(sample)));
      sumSquares += static_cast<double>(sample) * sample;
    }
    count += channel.size();
  }
  Levels levels;
  levels.peakDbfs = toDb(peak);
  levels.rmsDbfs = count > 0 ? toDb(std::sqrt(sumSquares / static_cast<double>(count))) : -INFINITY;
  return levels;
}

} // namespace larkspin_tool
