// Row conversions between half and float, next to a memcpy writing the same
// number of output bytes; bytes_per_second counts output bytes throughout.
// The "vs_memcpy" counter of a conversion is its time per row divided by the
// time of the memcpy of equal output size measured earlier in the same run
// (1.0 = as fast as memcpy, 2.0 = half its speed); it is left out when the
// memcpy benchmarks are filtered out.
#include "lumo/image/half.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace {

using half_float::half;
using lumo::image::detail::HalfPath;

constexpr std::size_t kCount = std::size_t{4} << 20;  // 4 Mi values

std::vector<float> RandomFloats() {
  // The whole half range and a little beyond (about 6% overflow), with one
  // value in 16 scaled down to where most results are subnormal.
  std::mt19937 rng(42);
  std::uniform_real_distribution<float> dist(-70000.0f, 70000.0f);
  std::vector<float> v(kCount);
  for (std::size_t i = 0; i < kCount; ++i) v[i] = dist(rng) * ((i % 16 == 0) ? 1e-9f : 1.0f);
  return v;
}

std::vector<half> RandomHalves() {
  std::mt19937 rng(7);
  std::vector<half> v(kCount);
  for (half& h : v) h = half::FromBits(static_cast<std::uint16_t>(rng()));
  return v;
}

// Seconds per row of the memcpy baselines, written by the memcpy benchmarks,
// which are registered (and so run) first. [0] half-sized output, [1] float.
double g_memcpy_seconds[2] = {0, 0};

// Runs the timed loop and returns wall seconds per row.
template <typename Fn>
double RunRows(benchmark::State& state, Fn&& row) {
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    row();
    benchmark::ClobberMemory();
  }
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  return elapsed.count() / static_cast<double>(state.iterations());
}

void Report(benchmark::State& state, std::size_t out_bytes, double seconds_per_row, int baseline) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * out_bytes));
  state.counters["values_per_second"] =
      benchmark::Counter(static_cast<double>(state.iterations() * kCount), benchmark::Counter::kIsRate);
  if (baseline >= 0 && g_memcpy_seconds[baseline] > 0) {
    state.counters["vs_memcpy"] = seconds_per_row / g_memcpy_seconds[baseline];
  }
}

template <typename T>
void Memcpy(benchmark::State& state, double& seconds_per_row) {
  std::vector<T> src(kCount, T(1.0f));
  std::vector<T> dst(kCount);
  seconds_per_row = RunRows(state, [&] {
    std::memcpy(dst.data(), src.data(), kCount * sizeof(T));
    benchmark::DoNotOptimize(dst.data());
  });
  Report(state, kCount * sizeof(T), seconds_per_row, -1);
}

void BM_MemcpyHalfBytes(benchmark::State& state) { Memcpy<half>(state, g_memcpy_seconds[0]); }

void BM_MemcpyFloatBytes(benchmark::State& state) { Memcpy<float>(state, g_memcpy_seconds[1]); }

void BM_FloatToHalf(benchmark::State& state, HalfPath path) {
  if (!lumo::image::detail::HalfPathSupported(path)) {
    state.SkipWithError("back end not supported by this CPU");
    return;
  }
  std::vector<float> src = RandomFloats();
  std::vector<half> dst(kCount);
  const double seconds = RunRows(state, [&] {
    lumo::image::detail::FloatToHalf(path, src.data(), dst.data(), kCount);
    benchmark::DoNotOptimize(dst.data());
  });
  Report(state, kCount * sizeof(half), seconds, 0);
}

void BM_HalfToFloat(benchmark::State& state, HalfPath path) {
  if (!lumo::image::detail::HalfPathSupported(path)) {
    state.SkipWithError("back end not supported by this CPU");
    return;
  }
  std::vector<half> src = RandomHalves();
  std::vector<float> dst(kCount);
  const double seconds = RunRows(state, [&] {
    lumo::image::detail::HalfToFloat(path, src.data(), dst.data(), kCount);
    benchmark::DoNotOptimize(dst.data());
  });
  Report(state, kCount * sizeof(float), seconds, 1);
}

}  // namespace

BENCHMARK(BM_MemcpyHalfBytes)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_MemcpyFloatBytes)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_FloatToHalf, f16c, HalfPath::F16c)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_FloatToHalf, portable, HalfPath::Portable)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_HalfToFloat, f16c, HalfPath::F16c)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_HalfToFloat, portable, HalfPath::Portable)->Unit(benchmark::kMicrosecond)->UseRealTime();
