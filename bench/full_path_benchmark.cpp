// The whole path a host pays for: vora_ap_process through the C interface
// (facade, graph, re-blocking, engine), against a bare STFT round trip of
// the same size with the same FFT backend, measured in one run. A summary
// table follows: ns per frame, real-time factor and the ratio full / bare,
// then the cost per block over ten minutes of audio (median, 99.9th
// percentile, maximum) for noise and for a signal decaying into denormals.
#include <larkspin/vora_ap.h>

#include "dsp/payload_codec.h"
#include "dsp/real_fft.h"

#include "bare_stft.h"
#include "benchmark_payload.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <numbers>
#include <random>
#include <tuple>
#include <vector>

namespace {

using larkspin_bench::BareStft;

constexpr int kRatesHz[] = {44100, 48000, 96000, 192000};
constexpr int kBlocks[] = {64, 256, 1024};

std::vector<float> noiseWithTone(int rateHz, size_t frames, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<float> noise(0.0f, 0.1f);
  std::vector<float> out(frames);
  for (size_t i = 0; i < frames; ++i) {
    out[i] = noise(random) + 0.5f * static_cast<float>(std::sin(2.0 * std::numbers::pi * 220.0 * double(i) / rateHz));
  }
  return out;
}

// A control as a host sets it up: payload applied, intensity 1.0.
vora_ap_control* makeControl(int rateHz, int block, int channels) {
  vora_ap_control* control = vora_ap_create_control(float(rateHz), block, channels == 2 ? 1 : 0);
  auto payload = benchmarkPayload();
  vora_ap_apply_preset_payload(payload.data());
  vora_ap_set_vorafication_intensity(1.0f);
  return control;
}

// Cycles through two seconds of signal so that the processor sees changing
// material, block by block.
class BlockSource {
public:
  BlockSource(int rateHz, int block, int channels) : block_(size_t(block)), channels_(channels) {
    for (int c = 0; c < channels; ++c) {
      source_[c] = noiseWithTone(rateHz, size_t(rateHz) * 2 / block_ * block_, 3u + unsigned(c));
      buffer_[c].resize(block_);
      pointers_[c] = buffer_[c].data();
    }
  }
  float** next() {
    for (int c = 0; c < channels_; ++c) {
      std::copy_n(source_[c].begin() + std::ptrdiff_t(position_), block_, buffer_[c].begin());
    }
    position_ = position_ + 2 * block_ > source_[0].size() ? 0 : position_ + block_;
    return pointers_;
  }

private:
  size_t block_;
  int channels_;
  size_t position_ = 0;
  std::vector<float> source_[2];
  std::vector<float> buffer_[2];
  float* pointers_[2] = {nullptr, nullptr};
};

// ns of CPU per frame of the finished runs, keyed (rate, channels, block);
// the bare STFT is keyed with block 0.
std::map<std::tuple<int, int, int>, double> gNsPerFrame;

void BM_BareStft(benchmark::State& state) {
  const int rateHz = int(state.range(0));
  const int channels = int(state.range(1));
  auto stft = std::make_unique<BareStft>(vora::fftSizeForRate(float(rateHz)));
  BlockSource source(rateHz, int(stft->hop()), channels);
  for (auto _ : state) {
    float** buffers = source.next();
    stft->process(buffers, channels);
    benchmark::DoNotOptimize(buffers[0][0]);
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * stft->hop());
}

void BM_FullPath(benchmark::State& state) {
  const int rateHz = int(state.range(0));
  const int channels = int(state.range(1));
  const int block = int(state.range(2));
  vora_ap_control* control = makeControl(rateHz, block, channels);
  BlockSource source(rateHz, block, channels);
  for (auto _ : state) {
    float** buffers = source.next();
    benchmark::DoNotOptimize(vora_ap_process(control, buffers, block));
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * block);
  vora_ap_destroy_control(control);
}

void stftArguments(benchmark::internal::Benchmark* b) {
  for (int rate : kRatesHz) {
    for (int channels : {2, 1}) {
      b->Args({rate, channels});
    }
  }
  b->ArgNames({"rate", "channels"});
}

void fullPathArguments(benchmark::internal::Benchmark* b) {
  for (int rate : kRatesHz) {
    for (int channels : {2, 1}) {
      for (int block : kBlocks) {
        b->Args({rate, channels, block});
      }
    }
  }
  b->ArgNames({"rate", "channels", "block"});
}

BENCHMARK(BM_BareStft)->Apply(stftArguments);
BENCHMARK(BM_FullPath)->Apply(fullPathArguments);

class SummaryReporter : public benchmark::ConsoleReporter {
public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.iterations == 0) {
        continue;
      }
      const auto items = run.counters.find("items_per_second");
      if (items == run.counters.end()) {
        continue;
      }
      int rate = 0, channels = 0, block = 0;
      const std::string name = run.benchmark_name();
      std::sscanf(name.c_str(), "%*[^/]/rate:%d/channels:%d/block:%d", &rate, &channels, &block);
      // items_per_second is per CPU second.
      gNsPerFrame[{rate, channels, block}] = 1e9 / items->second.value;
    }
  }
};

void printTable() {
  std::printf("\nFFT backend: %s. Full path = vora_ap_process; bare = window, FFT, inverse FFT, overlap-add.\n",
              vora::RealFft::backendName());
  std::printf("%7s %4s %6s %14s %14s %7s %12s\n", "rate", "ch", "block", "full ns/frame", "bare ns/frame", "ratio",
              "realtime x");
  for (int rate : kRatesHz) {
    for (int channels : {2, 1}) {
      const auto bare = gNsPerFrame.find({rate, channels, 0});
      for (int block : kBlocks) {
        const auto full = gNsPerFrame.find({rate, channels, block});
        if (bare == gNsPerFrame.end() || full == gNsPerFrame.end()) {
          continue;
        }
        std::printf("%7d %4d %6d %14.2f %14.2f %7.2f %12.0f\n", rate, channels, block, full->second, bare->second,
                    full->second / bare->second, 1e9 / rate / full->second);
      }
    }
  }
}

// Ten minutes of stereo 48 kHz audio in blocks of 256, every block timed.
void printCostOverTime(const char* label, const std::vector<float>& signal) {
  constexpr int kRate = 48000, kBlock = 256;
  vora_ap_control* control = makeControl(kRate, kBlock, 2);
  std::vector<float> left(kBlock), right(kBlock);
  float* channels[2] = {left.data(), right.data()};
  const size_t blocks = size_t(kRate) * 600 / kBlock;
  std::vector<double> microseconds;
  microseconds.reserve(blocks);
  for (size_t b = 0; b < blocks; ++b) {
    const size_t at = (b * kBlock) % (signal.size() - kBlock);
    std::copy_n(signal.begin() + std::ptrdiff_t(at), kBlock, left.begin());
    std::copy_n(signal.begin() + std::ptrdiff_t(at), kBlock, right.begin());
    const auto start = std::chrono::steady_clock::now();
    vora_ap_process(control, channels, kBlock);
    microseconds.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
  }
  vora_ap_destroy_control(control);
  std::vector<double> sorted = microseconds;
  std::sort(sorted.begin(), sorted.end());
  double firstMinute = 0.0, lastMinute = 0.0;
  const size_t minute = size_t(kRate) * 60 / kBlock;
  for (size_t b = 0; b < minute; ++b) {
    firstMinute += microseconds[b];
    lastMinute += microseconds[blocks - minute + b];
  }
  std::printf("%-34s median %7.2f us  p99.9 %7.2f us  max %8.2f us  mean first/last minute %6.2f / %6.2f us\n", label,
              sorted[sorted.size() / 2], sorted[sorted.size() * 999 / 1000], sorted.back(),
              firstMinute / double(minute), lastMinute / double(minute));
}

void printCostOverTimeSection() {
  std::printf("\nCost per block over 10 minutes (48 kHz stereo, blocks of 256 = %.2f ms of audio):\n", 256.0 / 48.0);
  const size_t frames = 48000 * 60;
  printCostOverTime("noise and tone, looped 1 min", noiseWithTone(48000, frames, 5u));
  // A tone decaying by 6 dB per second: it reaches the denormal range
  // (below 1.2e-38) within a minute and then true silence.
  std::vector<float> decaying(frames * 10);
  for (size_t i = 0; i < decaying.size(); ++i) {
    const double t = double(i) / 48000.0;
    decaying[i] = float(0.5 * std::pow(0.5, t) * std::sin(2.0 * std::numbers::pi * 440.0 * t));
  }
  printCostOverTime("tone decaying into denormals", decaying);
}

} // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  SummaryReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  printTable();
  if (std::getenv("LARKSPIN_BENCH_SKIP_LONG") == nullptr) {
    printCostOverTimeSection();
  }
}
