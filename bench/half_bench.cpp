// Row conversions between half and float, next to a memcpy writing the same
// number of output bytes; bytes_per_second counts output bytes throughout.
// The "vs_memcpy" counter of a conversion is its time per row divided by the
// time of the memcpy of equal output size measured earlier in the same run
// (1.0 = as fast as memcpy, 2.0 = half its speed); it is left out when the
// memcpy benchmarks are filtered out.
#include "lumo/image/half.h"

#include <benchmark/benchmark.h>

#include "bench_util.h"

#include <chrono>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace {

using half_float::half;
using lumo::image::detail::HalfPath;
using namespace lumo::image::bench;

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

void Report(benchmark::State& state, std::size_t out_bytes, double seconds) {
  ReportVsMemcpy(state, out_bytes, seconds);
  state.counters["values_per_second"] =
      benchmark::Counter(static_cast<double>(state.iterations() * kCount), benchmark::Counter::kIsRate);
}

void BM_FloatToHalf(benchmark::State& state, HalfPath path) {
  if (!lumo::image::detail::HalfPathSupported(path)) {
    state.SkipWithError("back end not supported by this CPU");
    return;
  }
  std::vector<float> src = RandomFloats();
  std::vector<half> dst(kCount);
  const double seconds = SecondsPerIteration(state, [&] {
    lumo::image::detail::FloatToHalf(path, src.data(), dst.data(), kCount);
    benchmark::DoNotOptimize(dst.data());
  });
  Report(state, kCount * sizeof(half), seconds);
}

void BM_HalfToFloat(benchmark::State& state, HalfPath path) {
  if (!lumo::image::detail::HalfPathSupported(path)) {
    state.SkipWithError("back end not supported by this CPU");
    return;
  }
  std::vector<half> src = RandomHalves();
  std::vector<float> dst(kCount);
  const double seconds = SecondsPerIteration(state, [&] {
    lumo::image::detail::HalfToFloat(path, src.data(), dst.data(), kCount);
    benchmark::DoNotOptimize(dst.data());
  });
  Report(state, kCount * sizeof(float), seconds);
}

}  // namespace

[[maybe_unused]] const bool kBaselines =
    (RegisterMemcpy(kCount * sizeof(half)), RegisterMemcpy(kCount * sizeof(float)), true);
BENCHMARK_CAPTURE(BM_FloatToHalf, f16c, HalfPath::F16c)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_FloatToHalf, portable, HalfPath::Portable)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_HalfToFloat, f16c, HalfPath::F16c)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_HalfToFloat, portable, HalfPath::Portable)->Unit(benchmark::kMicrosecond)->UseRealTime();
