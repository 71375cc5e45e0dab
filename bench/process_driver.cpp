// Runs a fixed stretch of audio through vora_ap_process, with nothing else
// inside that function's calls, for instruction counting under valgrind
// (scripts/bench-count). Signal and settings are fixed, so the count is the
// same from run to run.
//
//   process_driver [--rate HZ] [--seconds S] [--channels 1|2] [--block FRAMES]
//                  [--write FILE] [--compare FILE]
//
// --write saves the output (interleaved float32); --compare prints how far
// the output is from such a file (largest difference and relative RMS in
// dB), which is how builds with different FFT backends are compared.
#include <larkspin/vora_ap.h>

#include "benchmark_payload.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <numbers>
#include <random>
#include <vector>

namespace {

struct Options {
  int rateHz = 48000;
  double seconds = 1.0;
  int channels = 2;
  int block = 256;
  const char* writePath = nullptr;
  const char* comparePath = nullptr;
};

bool parse(int argc, char** argv, Options& options) {
  for (int i = 1; i + 1 < argc; i += 2) {
    const char* value = argv[i + 1];
    if (std::strcmp(argv[i], "--rate") == 0) {
      options.rateHz = std::atoi(value);
    } else if (std::strcmp(argv[i], "--seconds") == 0) {
      options.seconds = std::atof(value);
    } else if (std::strcmp(argv[i], "--channels") == 0) {
      options.channels = std::atoi(value);
    } else if (std::strcmp(argv[i], "--block") == 0) {
      options.block = std::atoi(value);
    } else if (std::strcmp(argv[i], "--write") == 0) {
      options.writePath = value;
    } else if (std::strcmp(argv[i], "--compare") == 0) {
      options.comparePath = value;
    } else {
      return false;
    }
  }
  return argc % 2 == 1 && options.rateHz > 0 && options.seconds > 0.0 &&
         (options.channels == 1 || options.channels == 2) && options.block > 0;
}

void applyPayload() {
  auto payload = benchmarkPayload();
  vora_ap_apply_preset_payload(payload.data());
  vora_ap_set_vorafication_intensity(1.0f);
}

} // namespace

int main(int argc, char** argv) {
  Options options;
  if (!parse(argc, argv, options)) {
    std::fprintf(stderr, "usage: process_driver [--rate HZ] [--seconds S] [--channels 1|2] [--block FRAMES] "
                         "[--write FILE] [--compare FILE]\n");
    return 2;
  }
  const size_t blocks = static_cast<size_t>(options.seconds * options.rateHz / options.block);
  const size_t frames = blocks * static_cast<size_t>(options.block);
  const size_t channels = static_cast<size_t>(options.channels);

  // Noise and a tone, made before processing so that it is not counted.
  std::vector<float> signal(frames * channels);
  std::mt19937 random(5u);
  std::normal_distribution<float> noise(0.0f, 0.1f);
  for (size_t i = 0; i < frames; ++i) {
    const double phase = 2.0 * std::numbers::pi * 220.0 * double(i) / options.rateHz;
    for (size_t c = 0; c < channels; ++c) {
      signal[c * frames + i] = noise(random) + 0.5f * static_cast<float>(std::sin(phase + double(c)));
    }
  }

  vora_ap_control* control = vora_ap_create_control(float(options.rateHz), options.block, options.channels == 2);
  if (control == nullptr) {
    std::fprintf(stderr, "process_driver: no control for %d Hz, block %d\n", options.rateHz, options.block);
    return 1;
  }
  applyPayload();
  float* pointers[2] = {nullptr, nullptr};
  for (size_t b = 0; b < blocks; ++b) {
    for (size_t c = 0; c < channels; ++c) {
      pointers[c] = signal.data() + c * frames + b * static_cast<size_t>(options.block);
    }
    vora_ap_process(control, pointers, options.block);
  }
  vora_ap_destroy_control(control);

  if (options.writePath != nullptr) {
    std::FILE* file = std::fopen(options.writePath, "wb");
    if (file == nullptr || std::fwrite(signal.data(), sizeof(float), signal.size(), file) != signal.size()) {
      std::fprintf(stderr, "process_driver: cannot write %s\n", options.writePath);
      return 1;
    }
    std::fclose(file);
  }
  if (options.comparePath != nullptr) {
    std::vector<float> other(signal.size());
    std::FILE* file = std::fopen(options.comparePath, "rb");
    if (file == nullptr || std::fread(other.data(), sizeof(float), other.size(), file) != other.size()) {
      std::fprintf(stderr, "process_driver: cannot read %zu floats from %s\n", other.size(), options.comparePath);
      return 1;
    }
    std::fclose(file);
    double largest = 0.0, error = 0.0, power = 0.0;
    for (size_t i = 0; i < signal.size(); ++i) {
      const double d = double(signal[i]) - other[i];
      largest = std::max(largest, std::abs(d));
      error += d * d;
      power += double(other[i]) * other[i];
    }
    std::printf("%d Hz: largest difference %.3g, relative RMS difference %.1f dB\n", options.rateHz, largest,
                10.0 * std::log10(error / power));
  }
  return 0;
}
