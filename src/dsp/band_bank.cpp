#include "dsp/band_bank.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

namespace vora {

namespace {

using Complex = std::complex<double>;

enum class Shape { Lowpass, Bandpass, Highpass };

struct BandDesign {
  Shape shape;
  int order;
  double theta; // prewarped angle of the analog prototype
  double q;     // bandpass only
};

BandDesign designBand(int band, double sampleRate) {
  constexpr double pi = std::numbers::pi;
  if (band == 0) {
    return {Shape::Lowpass, 20, 660.4385001477666 / sampleRate, 0.0};
  }
  if (band == kBandCount - 1) {
    return {Shape::Highpass, 20, 42268.06400945688 / sampleRate, 0.0};
  }
  const double t1 = std::tan(pi * kBandEdgesHz[band - 1] / sampleRate);
  const double t2 = std::tan(pi * kBandEdgesHz[band] / sampleRate);
  const double omega0 = std::sqrt(2.0 * t1 * 2.0 * t2);
  return {Shape::Bandpass, 4, std::atan(omega0 / 2.0), omega0 / (2.0 * t2 - 2.0 * t1)};
}

// The analog prototype's variable at the digital frequency `omega`.
Complex prototypeVariable(const BandDesign& design, double omega) {
  const double k = std::cos(design.theta) / std::sin(design.theta);
  const Complex zInverse(std::cos(omega), -std::sin(omega));
  Complex p = k * (1.0 - zInverse) / (1.0 + zInverse);
  if (design.shape == Shape::Highpass) {
    p = 1.0 / p;
  } else if (design.shape == Shape::Bandpass) {
    p = design.q * (p + 1.0 / p);
  }
  return p;
}

// One second-order factor of the Butterworth denominator.
Complex section(const BandDesign& design, Complex p, int m) {
  const int n = design.order;
  const double phi = (2.0 * m + n - 1.0) * std::numbers::pi / (2.0 * n);
  return p * p - 2.0 * std::cos(phi) * p + 1.0;
}

double weightAt(const BandDesign& design, double omega) {
  const Complex p = prototypeVariable(design, omega);
  Complex denominator(1.0, 0.0);
  for (int m = 1; m <= design.order / 2; ++m) {
    denominator *= section(design, p, m);
  }
  return 1.0 / std::norm(denominator);
}

} // namespace

double bandWeight(int band, double sampleRate, double omega) {
  return weightAt(designBand(band, sampleRate), omega);
}

double bandWeightDb(int band, double sampleRate, double omega) {
  // Section by section: far into a twentieth-order stopband the product of
  // the sections overflows a double, while each section's square does not.
  const BandDesign design = designBand(band, sampleRate);
  const Complex p = prototypeVariable(design, omega);
  double db = 0.0;
  for (int m = 1; m <= design.order / 2; ++m) {
    db -= 10.0 * std::log10(std::norm(section(design, p, m)));
  }
  return db;
}

void BandBank::build(float rate, uint32_t size, float thresholdDb) {
  fftSize = size;
  binCount = size / 2;
  const float threshold = std::pow(10.0f, thresholdDb / 20.0f) - kFloatMinimum;
  for (int band = 0; band < kBandCount; ++band) {
    float* table = weights[band];
    std::fill(table, table + kMaxBinCount, 0.0f);
    for (uint32_t bin = 0; bin < binCount; ++bin) {
      const double omega = std::numbers::pi / binCount * std::max(static_cast<double>(bin), 1e-10);
      table[bin] = static_cast<float>(bandWeight(band, static_cast<double>(rate), omega));
    }
    // The range starts at the first weight above the threshold and ends at
    // the first one after it that is not; with none above, it is empty at
    // binCount.
    uint32_t first = 0;
    while (first < binCount && !(table[first] > threshold)) {
      ++first;
    }
    uint32_t end = first;
    while (end < binCount && table[end] > threshold) {
      ++end;
    }
    ranges[band] = {first, end};
  }
}

void BandSpans::build(const BandBank& bank) {
  for (int band = 0; band < kBandCount; ++band) {
    const BandRange& range = bank.ranges[band];
    first[band] = range.firstBin / 4 * 4;
    end[band] = (range.endBin + 3) / 4 * 4; // within binCount, a multiple of 4
    std::fill(weights[band], weights[band] + kMaxBinCount, 0.0f);
    std::copy(bank.weights[band] + range.firstBin, bank.weights[band] + range.endBin, weights[band] + range.firstBin);
  }
  for (uint32_t v = 0; v < bank.binCount / 8; ++v) {
    bandsFrom[v] = kBandCount;
    bandsTo[v] = 0;
    for (int band = 0; band < kBandCount; ++band) {
      if (first[band] < 8 * v + 8 && 8 * v < end[band]) {
        bandsFrom[v] = std::min(bandsFrom[v], static_cast<uint8_t>(band));
        bandsTo[v] = static_cast<uint8_t>(band + 1);
      }
    }
  }
}

} // namespace vora
