// Picture decoding against stb_image on the same bytes. Both decoders are
// timed by this thread's CPU time, interleaved in every iteration, and the
// medians reported: the machine may be shared, and wall time would mostly
// measure the other processes.
#pragma once

#include <benchmark/benchmark.h>
#include <stb_image.h>
#include <time.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "bench_util.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/surface_data.h"

namespace lumo::image::bench {

inline double ThreadSeconds() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

template <typename Fn>
double CpuSeconds(Fn&& fn) {
  const double start = ThreadSeconds();
  fn();
  return ThreadSeconds() - start;
}

inline double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

// Decodes `file` as `format` and with stb_image (its float loader when
// `stb_float`), adding the counters stb_ms, ours_ms, vs_stb (our time / stb's),
// file_bytes and vs_memcpy (against `decoded_bytes`).
inline void DecodeVsStb(benchmark::State& state, ImageFormat format, const std::vector<char>& file,
                        unsigned long long decoded_bytes, bool stb_float = false) {
  if (file.empty()) {
    state.SkipWithError("the picture could not be written");
    return;
  }
  const std::shared_ptr<char> bytes(const_cast<char*>(file.data()), null_deleter());
  const auto* data = reinterpret_cast<const stbi_uc*>(file.data());
  const int size = static_cast<int>(file.size());
  std::vector<double> ours, stb;
  for (auto _ : state) {
    stb.push_back(CpuSeconds([&] {
      int w = 0, h = 0, n = 0;
      void* pixels = stb_float ? static_cast<void*>(stbi_loadf_from_memory(data, size, &w, &h, &n, 0))
                               : static_cast<void*>(stbi_load_from_memory(data, size, &w, &h, &n, 0));
      benchmark::DoNotOptimize(pixels);
      stbi_image_free(pixels);
    }));
    const double t = CpuSeconds([&] {
      auto image = ImageFactory::Instance()->Create(format, bytes, file.size());
      benchmark::DoNotOptimize(image.get());
    });
    ours.push_back(t);
    state.SetIterationTime(t);
  }
  state.counters["stb_ms"] = Median(stb) * 1e3;
  state.counters["ours_ms"] = Median(ours) * 1e3;
  state.counters["vs_stb"] = Median(ours) / Median(stb);
  state.counters["file_bytes"] = static_cast<double>(file.size());
  ReportVsMemcpy(state, decoded_bytes, Median(ours));
}

}  // namespace lumo::image::bench
