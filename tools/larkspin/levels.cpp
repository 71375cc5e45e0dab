#include "larkspin/levels.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace larkspin_tool {

namespace {
double toDb(double linear) {
  return linear > 0.0 ? 20.0 * std::log10(linear) : -std::numeric_limits<double>::infinity();
}
} // namespace

void LevelMeter::add(const float* samples, long count) {
  for (long i = 0; i < count; ++i) {
    const double sample = samples[i];
    if (!std::isfinite(sample)) {
      ++nonFinite_;
      continue;
    }
    peak_ = std::max(peak_, std::fabs(sample));
    sumSquares_ += sample * sample;
    ++count_;
  }
}

Levels LevelMeter::levels() const {
  Levels levels;
  levels.peakDbfs = toDb(peak_);
  levels.rmsDbfs = count_ > 0 ? toDb(std::sqrt(sumSquares_ / static_cast<double>(count_)))
                              : -std::numeric_limits<double>::infinity();
  levels.nonFiniteSamples = nonFinite_;
  return levels;
}

Levels measureLevels(const AudioData& audio) {
  LevelMeter meter;
  for (const auto& channel : audio.channels) {
    meter.add(channel.data(), static_cast<long>(channel.size()));
  }
  return meter.levels();
}

} // namespace larkspin_tool
