// Shared timing and baseline reporting of the benchmarks. Every figure is read
// as a ratio against memcpy of the same number of output bytes, measured in
// the same run: register the memcpy baselines first (RegisterMemcpy), then
// report with ReportVsMemcpy, which adds the "vs_memcpy" counter (time ratio,
// 1.0 = memcpy speed) when a baseline of that size has run.
#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace lumo::image::bench {

// Wall seconds per iteration of the timed loop.
template <typename Fn>
double SecondsPerIteration(benchmark::State& state, Fn&& body) {
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    body();
    benchmark::ClobberMemory();
  }
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  return elapsed.count() / static_cast<double>(state.iterations());
}

// Memcpy seconds per iteration, by byte count.
inline std::map<unsigned long long, double>& MemcpySeconds() {
  static std::map<unsigned long long, double> seconds;
  return seconds;
}

inline void ReportVsMemcpy(benchmark::State& state, unsigned long long bytes, double seconds) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
  const auto baseline = MemcpySeconds().find(bytes);
  if (baseline != MemcpySeconds().end()) state.counters["vs_memcpy"] = seconds / baseline->second;
}

inline void BM_Memcpy(benchmark::State& state, unsigned long long bytes) {
  // Both buffers written before timing, as a converted destination would be.
  std::vector<char> src(bytes, 1), dst(bytes, 0);
  const double seconds = SecondsPerIteration(state, [&] {
    std::memcpy(dst.data(), src.data(), bytes);
    benchmark::DoNotOptimize(dst.data());
  });
  MemcpySeconds()[bytes] = seconds;
  ReportVsMemcpy(state, bytes, seconds);
}

// Registers a memcpy baseline of `bytes` once per size, however many callers ask.
inline void RegisterMemcpy(unsigned long long bytes) {
  static std::map<unsigned long long, bool> registered;
  if (registered[bytes]) return;
  registered[bytes] = true;
  const std::string name = "Memcpy/" + std::to_string(bytes) + "B";
  benchmark::RegisterBenchmark(name.c_str(), BM_Memcpy, bytes)->Unit(benchmark::kMillisecond)->UseRealTime();
}

}  // namespace lumo::image::bench
