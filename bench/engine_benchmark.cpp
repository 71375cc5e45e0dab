// One hop of the vorafier against a bare STFT round trip (analysis window,
// forward FFT, inverse FFT, synthesis window, overlap-add) of the same size
// with the same FFT backend. After the run a summary prints, per rate and
// channel count, the engine / bare STFT ratio and the real-time factor
// (seconds of audio processed per CPU second).
#include "dsp/payload_codec.h"
#include "dsp/pex_vorafier.h"
#include "dsp/real_fft.h"

#include "bare_stft.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <numbers>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using larkspin_bench::BareStft;

using vora::PexVorafier;
using vora::RealFft;

constexpr int kRatesHz[] = {48000, 96000, 192000};

// Noise with a loud low tone: every band is busy and the limiter works.
std::vector<float> testSignal(int rateHz, size_t frames, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<float> noise(0.0f, 0.1f);
  std::vector<float> out(frames);
  for (size_t i = 0; i < frames; ++i) {
    const double phase = 2.0 * std::numbers::pi * 220.0 * double(i) / double(rateHz);
    out[i] = noise(random) + 0.8f * static_cast<float>(std::sin(phase));
  }
  return out;
}

// Strong gains, compression and slow gain in every band.
void applyBenchmarkPayload(PexVorafier& engine) {
  vora::VorafierParameters parameters;
  for (auto& band : parameters.bands) {
    band.fastRatio0 = 0.5f;
    band.fastRatio1 = 0.25f;
    band.gainDb0 = 12.0f;
    band.gainDb1 = 6.0f;
    band.slowFactor = 0.5f;
    band.slowDelayMs = 10.0f;
    band.slowTimeConstantMs = 50.0f;
  }
  std::array<unsigned char, vora::kPresetPayloadSize> payload{};
  vora::encodePresetPayload(parameters, payload.data());
  engine.applyParameterPayload(payload.data());
}

// Per-hop figures of the finished runs, for the summary.
struct Figures {
  double secondsPerHop = 0.0;
  double hopSeconds = 0.0; // audio duration of one hop
};
std::map<std::pair<int, int>, Figures> gEngineFigures;
std::map<std::pair<int, int>, Figures> gStftFigures;

// The input is cycled hop by hop through a few seconds of signal so that the
// engine sees changing material, not one hop repeated.
class HopSource {
public:
  HopSource(int rateHz, uint32_t hop, int channels) : hop_(hop) {
    const size_t frames = static_cast<size_t>(rateHz) * 2 / hop * hop;
    for (int c = 0; c < channels; ++c) {
      source_[c] = testSignal(rateHz, frames, 7u + unsigned(c));
      buffer_[c].resize(hop);
    }
  }

  float** next() {
    for (int c = 0; c < 2; ++c) {
      if (!source_[c].empty()) {
        std::copy_n(source_[c].begin() + std::ptrdiff_t(position_), hop_, buffer_[c].begin());
        pointers_[c] = buffer_[c].data();
      }
    }
    position_ += hop_;
    if (position_ + hop_ > source_[0].size()) {
      position_ = 0;
    }
    return pointers_;
  }

private:
  uint32_t hop_;
  size_t position_ = 0;
  std::vector<float> source_[2];
  std::vector<float> buffer_[2];
  float* pointers_[2] = {nullptr, nullptr};
};

void record(benchmark::State& state, std::map<std::pair<int, int>, Figures>& figures, int rateHz, int channels,
            uint32_t hop) {
  (void)state;
  figures[{rateHz, channels}].hopSeconds = double(hop) / double(rateHz);
}

void BM_Engine(benchmark::State& state) {
  const int rateHz = static_cast<int>(state.range(0));
  const int channels = static_cast<int>(state.range(1));
  auto engine = std::make_unique<PexVorafier>();
  const int hop = engine->setup(float(rateHz));
  applyBenchmarkPayload(*engine);
  HopSource source(rateHz, uint32_t(hop), channels);
  for (auto _ : state) {
    float** buffers = source.next();
    if (channels == 2) {
      engine->processStereo(buffers, false, 1.0f);
    } else {
      engine->processMono(buffers[0], false, 1.0f);
    }
    benchmark::DoNotOptimize(buffers[0][0]);
  }
  const double hopSeconds = double(hop) / double(rateHz);
  state.counters["realtime_factor"] =
      benchmark::Counter(hopSeconds * double(state.iterations()), benchmark::Counter::kIsRate);
  record(state, gEngineFigures, rateHz, channels, uint32_t(hop));
}

void BM_BareStft(benchmark::State& state) {
  const int rateHz = static_cast<int>(state.range(0));
  const int channels = static_cast<int>(state.range(1));
  auto stft = std::make_unique<BareStft>(vora::fftSizeForRate(float(rateHz)));
  HopSource source(rateHz, stft->hop(), channels);
  for (auto _ : state) {
    float** buffers = source.next();
    stft->process(buffers, channels);
    benchmark::DoNotOptimize(buffers[0][0]);
  }
  const double hopSeconds = double(stft->hop()) / double(rateHz);
  state.counters["realtime_factor"] =
      benchmark::Counter(hopSeconds * double(state.iterations()), benchmark::Counter::kIsRate);
  record(state, gStftFigures, rateHz, channels, stft->hop());
}

void rateAndChannelArguments(benchmark::internal::Benchmark* b) {
  for (int rate : kRatesHz) {
    for (int channels : {1, 2}) {
      b->Args({rate, channels});
    }
  }
  b->ArgNames({"rate", "channels"});
}

BENCHMARK(BM_Engine)->Apply(rateAndChannelArguments);
BENCHMARK(BM_BareStft)->Apply(rateAndChannelArguments);

// Captures CPU time per hop from the finished runs for the summary.
class SummaryReporter : public benchmark::ConsoleReporter {
public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      // Single runs, or the median when repetitions are asked for.
      const bool usable = run.run_type == Run::RT_Iteration ? run.iterations > 0 : run.aggregate_name == "median";
      if (!usable) {
        continue;
      }
      const std::string name = run.benchmark_name();
      int rate = 0;
      int channels = 0;
      if (std::sscanf(name.c_str(), "%*[^/]/rate:%d/channels:%d", &rate, &channels) != 2) {
        continue;
      }
      auto& figures = name.rfind("BM_Engine", 0) == 0 ? gEngineFigures : gStftFigures;
      figures[{rate, channels}].secondsPerHop = run.GetAdjustedCPUTime() / 1e9; // reported in ns
    }
  }
};

void printSummary() {
  std::printf("\nFFT backend: %s\n", RealFft::backendName());
  std::printf("%8s %8s %14s %14s %8s %14s\n", "rate", "channels", "engine ns/hop", "stft ns/hop", "ratio",
              "realtime x");
  for (const auto& [key, engine] : gEngineFigures) {
    const auto stft = gStftFigures.find(key);
    if (stft == gStftFigures.end() || engine.secondsPerHop <= 0.0 || stft->second.secondsPerHop <= 0.0) {
      continue;
    }
    std::printf("%8d %8d %14.0f %14.0f %8.2f %14.0f\n", key.first, key.second, engine.secondsPerHop * 1e9,
                stft->second.secondsPerHop * 1e9, engine.secondsPerHop / stft->second.secondsPerHop,
                engine.hopSeconds / engine.secondsPerHop);
  }
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
  printSummary();
  return 0;
}
