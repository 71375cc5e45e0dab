#include "larkspin/demo_signal.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

namespace larkspin_tool {

AudioData makeDemoSignal(int sampleRate, double seconds) {
  const double rate = sampleRate;
  const size_t frames = static_cast<size_t>(seconds * rate);
  AudioData audio;
  audio.sampleRate = sampleRate;
  audio.format = 0;
  audio.channels.assign(2, std::vector<float>(frames, 0.0f));

  std::mt19937 random(20261122u);
  std::normal_distribution<double> noise(0.0, 1.0);
  const double twoPi = 2.0 * std::numbers::pi;

  // 0-4 s: syllable-like bursts of noise shaped by a two-pole resonance
  // (a moving "formant"), about 4 per second, around -20 dBFS.
  double y1 = 0.0, y2 = 0.0;
  const size_t burstEnd = std::min(frames, static_cast<size_t>(4.0 * rate));
  for (size_t i = 0; i < burstEnd; ++i) {
    const double t = static_cast<double>(i) / rate;
    const double formantHz = 700.0 + 500.0 * std::sin(twoPi * 0.7 * t);
    const double r = 0.985;
    const double a1 = 2.0 * r * std::cos(twoPi * formantHz / rate);
    const double y = noise(random) * 0.05 + a1 * y1 - r * r * y2;
    y2 = y1;
    y1 = y;
    const double syllable = std::pow(std::max(0.0, std::sin(std::numbers::pi * 4.0 * t)), 2.0);
    const float sample = static_cast<float>(0.1 * y * syllable);
    audio.channels[0][i] = sample;
    audio.channels[1][i] = 0.8f * sample;
  }
  // The resonance's gain depends on the rate: bring the bursts to a peak of
  // about -10 dBFS.
  float burstPeak = 1e-9f;
  for (size_t i = 0; i < burstEnd; ++i) {
    burstPeak = std::max(burstPeak, std::fabs(audio.channels[0][i]));
  }
  for (auto& channel : audio.channels) {
    for (size_t i = 0; i < burstEnd; ++i) {
      channel[i] *= 0.316f / burstPeak;
    }
  }
  // 4-7 s: a logarithmic sine sweep from 50 Hz to 16 kHz at -12 dBFS.
  const double sweepStart = 4.0, sweepLength = 3.0;
  const double f0 = 50.0, f1 = std::min(16000.0, 0.45 * rate);
  const double k = std::log(f1 / f0);
  for (size_t i = static_cast<size_t>(sweepStart * rate); i < frames && i < static_cast<size_t>(7.0 * rate); ++i) {
    const double t = static_cast<double>(i) / rate - sweepStart;
    const double phase = twoPi * f0 * sweepLength / k * (std::exp(t / sweepLength * k) - 1.0);
    const float sample = static_cast<float>(0.25 * std::sin(phase));
    audio.channels[0][i] = sample;
    audio.channels[1][i] = sample;
  }
  // 7-10 s: a loud chord with noise, peaking near full scale, so that the
  // gains push it over and the limiter has to act.
  for (size_t i = static_cast<size_t>(7.0 * rate); i < frames; ++i) {
    const double t = static_cast<double>(i) / rate;
    const double chord =
        std::sin(twoPi * 220.0 * t) + 0.7 * std::sin(twoPi * 2750.0 * t) + 0.5 * std::sin(twoPi * 3300.0 * t);
    const float sample = static_cast<float>(0.42 * chord + 0.03 * noise(random));
    audio.channels[0][i] = sample;
    audio.channels[1][i] = sample;
  }
  return audio;
}

} // namespace larkspin_tool
