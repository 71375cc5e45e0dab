// Forward + inverse real FFT per size, for every backend that can be linked
// into one program: the project's own (vector path and plain C++ path),
// KissFFT and, where installed, FFTW. All run in one process, so the ratios
// in the summary hold on a noisy machine even when absolute times do not.
#include "dsp/packed_real_fft.h"
#include "dsp/vec4.h"

#include <benchmark/benchmark.h>
#include <kiss_fftr.h>
#if LARKSPIN_BENCH_HAVE_FFTW
#include <fftw3.h>
#endif

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

std::map<std::pair<std::string, int>, double> gNsPerPair; // (backend, N) -> ns per forward + inverse

std::vector<float> noise(int n) {
  std::mt19937 random(3u);
  std::uniform_real_distribution<float> sample(-1.0f, 1.0f);
  std::vector<float> out(static_cast<size_t>(n));
  for (auto& x : out) {
    x = sample(random);
  }
  return out;
}

template <class Ops> void BM_Own(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  auto fft = std::make_unique<vora::PackedRealFft<Ops>>();
  fft->setup(static_cast<uint32_t>(n));
  std::vector<float> data = noise(n);
  for (auto _ : state) {
    fft->forward(data.data(), data.data());
    fft->inverse(data.data(), data.data());
    benchmark::DoNotOptimize(data.data());
  }
  state.SetItemsProcessed(state.iterations());
}

// With the packing the engine's contract asks for, as the KissFFT backend
// does it.
void BM_KissFft(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  kiss_fftr_cfg forwardPlan = kiss_fftr_alloc(n, 0, nullptr, nullptr);
  kiss_fftr_cfg inversePlan = kiss_fftr_alloc(n, 1, nullptr, nullptr);
  std::vector<kiss_fft_cpx> bins(static_cast<size_t>(n / 2 + 1));
  std::vector<float> data = noise(n), packed(static_cast<size_t>(n));
  const float scale = 1.0f / static_cast<float>(n);
  for (auto _ : state) {
    kiss_fftr(forwardPlan, data.data(), bins.data());
    packed[0] = bins[0].r;
    packed[1] = bins[static_cast<size_t>(n / 2)].r;
    for (int k = 1; k < n / 2; ++k) {
      packed[2 * k] = bins[k].r;
      packed[2 * k + 1] = bins[k].i;
    }
    benchmark::DoNotOptimize(packed.data());
    bins[0] = {packed[0], 0.0f};
    bins[static_cast<size_t>(n / 2)] = {packed[1], 0.0f};
    for (int k = 1; k < n / 2; ++k) {
      bins[k] = {packed[2 * k], packed[2 * k + 1]};
    }
    kiss_fftri(inversePlan, bins.data(), data.data());
    for (auto& x : data) {
      x *= scale;
    }
    benchmark::DoNotOptimize(data.data());
  }
  kiss_fftr_free(forwardPlan);
  kiss_fftr_free(inversePlan);
  state.SetItemsProcessed(state.iterations());
}

#if LARKSPIN_BENCH_HAVE_FFTW
// Forward and inverse plans over `data`, scaled back as the backends do;
// destroys the plans.
void timeRoundTrips(benchmark::State& state, fftwf_plan forwardPlan, fftwf_plan inversePlan, float* data, int n) {
  const float scale = 1.0f / static_cast<float>(n);
  for (auto _ : state) {
    fftwf_execute(forwardPlan);
    fftwf_execute(inversePlan);
    for (int i = 0; i < n; ++i) {
      data[i] *= scale;
    }
    benchmark::DoNotOptimize(data);
  }
  fftwf_destroy_plan(forwardPlan);
  fftwf_destroy_plan(inversePlan);
}

// FFTW's own half-complex layout, without repacking: its best case.
void BM_Fftw(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  float* data = fftwf_alloc_real(static_cast<size_t>(n));
  float* halfComplex = fftwf_alloc_real(static_cast<size_t>(n));
  const std::vector<float> input = noise(n);
  std::copy(input.begin(), input.end(), data);
  fftwf_plan forwardPlan = fftwf_plan_r2r_1d(n, data, halfComplex, FFTW_R2HC, FFTW_MEASURE);
  fftwf_plan inversePlan = fftwf_plan_r2r_1d(n, halfComplex, data, FFTW_HC2R, FFTW_MEASURE);
  std::copy(input.begin(), input.end(), data);
  timeRoundTrips(state, forwardPlan, inversePlan, data, n);
  fftwf_free(data);
  fftwf_free(halfComplex);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Fftw)->Arg(256)->Arg(512)->Arg(1024);

// FFTW's real-to-complex plans, its vectorised path for real input (the
// backend above uses the half-complex one), again without repacking.
void BM_FftwComplexBins(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  float* data = fftwf_alloc_real(static_cast<size_t>(n));
  fftwf_complex* bins = fftwf_alloc_complex(static_cast<size_t>(n / 2 + 1));
  const std::vector<float> input = noise(n);
  fftwf_plan forwardPlan = fftwf_plan_dft_r2c_1d(n, data, bins, FFTW_MEASURE);
  fftwf_plan inversePlan = fftwf_plan_dft_c2r_1d(n, bins, data, FFTW_MEASURE);
  std::copy(input.begin(), input.end(), data);
  timeRoundTrips(state, forwardPlan, inversePlan, data, n);
  fftwf_free(data);
  fftwf_free(bins);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FftwComplexBins)->Arg(256)->Arg(512)->Arg(1024);
#endif

BENCHMARK_TEMPLATE(BM_Own, vora::Vec4Native)->Arg(256)->Arg(512)->Arg(1024);
BENCHMARK_TEMPLATE(BM_Own, vora::Vec4Scalar)->Arg(256)->Arg(512)->Arg(1024);
BENCHMARK(BM_KissFft)->Arg(256)->Arg(512)->Arg(1024);

std::string backendOf(const std::string& name) {
  if (name.rfind("BM_Own<vora::Vec4Scalar>", 0) == 0) {
    return "own, scalar";
  }
  if (name.rfind("BM_Own", 0) == 0) {
    return std::string("own, ") + vora::Vec4Native::kName;
  }
  if (name.rfind("BM_FftwComplexBins", 0) == 0) {
    return "fftw r2c";
  }
  return name.rfind("BM_KissFft", 0) == 0 ? "kissfft" : "fftw r2r";
}

class SummaryReporter : public benchmark::ConsoleReporter {
public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      // With repetitions, the median of them; else the one run.
      const bool wanted = run.run_type == Run::RT_Aggregate ? run.aggregate_name == "median" : run.repetitions <= 1;
      const auto items = run.counters.find("items_per_second");
      if (!wanted || items == run.counters.end()) {
        continue;
      }
      const std::string name = run.benchmark_name();
      const int n = std::stoi(name.substr(name.find('/') + 1));
      gNsPerPair[{backendOf(name), n}] = 1e9 / items->second.value;
    }
  }
};

void printSummary() {
  std::printf("\nForward + inverse real FFT, ns per pair (ratio to the own vector path):\n");
  std::printf("%-14s %18s %18s %18s\n", "backend", "N=256", "N=512", "N=1024");
  const std::string own = std::string("own, ") + vora::Vec4Native::kName;
  for (const char* backend : {own.c_str(), "own, scalar", "kissfft", "fftw r2r", "fftw r2c"}) {
    if (gNsPerPair.find({backend, 256}) == gNsPerPair.end()) {
      continue;
    }
    std::printf("%-14s", backend);
    for (int n : {256, 512, 1024}) {
      const double ns = gNsPerPair[{backend, n}];
      std::printf(" %10.1f (%4.2fx)", ns, ns / gNsPerPair[{own, n}]);
    }
    std::printf("\n");
  }
}

} // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  SummaryReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  printSummary();
  return 0;
}
