// HDR decoding against stb_image on the same bytes, in the same run. The
// pictures are 2048 x 2048, written by the plugin flat and run-length
// encoded: smooth gradients over a wide range of brightness with noise that
// holds for a few pixels, so the planes mix runs (exponents, flat areas) with
// literals as photographs do. Each iteration decodes with stb_image
// (stbi_loadf_from_memory, 32-bit floats) and with the plugin (half floats),
// timed apart on the thread's CPU clock; the reported time is the plugin's
// median, "vs_stb" the ratio of the medians (below 1.0: faster than
// stb_image), "vs_memcpy" the ratio to copying the decoded bytes.
#include <benchmark/benchmark.h>
#include <stb_image.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <memory>
#include <vector>

#include "bench_util.h"
#include "lumo/image/formats.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/surface_data.h"

namespace {

namespace im = lumo::image;

constexpr unsigned kSide = 2048;

std::vector<char> File(int flags) {
  const auto s = im::SurfaceDataBitmap::Create(kSide, kSide, im::formats::A32fB32fG32fR32f, 2);
  unsigned seed = 12345;
  float noise = 0;
  for (unsigned y = 0; y < kSide; ++y) {
    auto* row = reinterpret_cast<float*>(s->Buffer() + y * s->BytesPerRow());
    for (unsigned x = 0; x < kSide; ++x) {
      seed = seed * 1103515245u + 12345u;
      if ((seed >> 16) % 3 == 0) noise = static_cast<float>((seed >> 20) % 9) * 0.01f;
      // Brightness from about 0.01 (shadows) to about 40 (a light source).
      const float light = 0.01f + 40.0f * static_cast<float>(x * y) / (kSide * kSide) * (x > kSide / 2 ? 1.0f : 0.1f);
      const float pixel[4] = {light * (0.8f + noise), light * (0.6f + noise), light * (0.3f + noise * 0.5f), 1.0f};
      std::memcpy(row + x * 4, pixel, sizeof pixel);
    }
  }
  size_t size = 0;
  const auto file = im::ImageFactory::Instance()->Serialize(im::ImageFormat::HDR, s.get(), &size, flags);
  return file ? std::vector<char>(file.get(), file.get() + size) : std::vector<char>();
}

// CPU seconds of this thread: the machine is shared, and wall time would
// mostly measure the other processes.
double ThreadSeconds() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

template <typename Fn>
double Seconds(Fn&& fn) {
  const double start = ThreadSeconds();
  fn();
  return ThreadSeconds() - start;
}

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

void BM_HDRDecode(benchmark::State& state, int flags) {
  const std::vector<char> file = File(flags);
  if (file.empty()) {
    state.SkipWithError("the writer refused the picture");
    return;
  }
  const std::shared_ptr<char> bytes(const_cast<char*>(file.data()), im::null_deleter());
  std::vector<double> ours, stb;
  for (auto _ : state) {
    stb.push_back(Seconds([&] {
      int w = 0, h = 0, n = 0;
      float* pixels = stbi_loadf_from_memory(reinterpret_cast<const stbi_uc*>(file.data()),
                                             static_cast<int>(file.size()), &w, &h, &n, 0);
      benchmark::DoNotOptimize(pixels);
      stbi_image_free(pixels);
    }));
    const double t = Seconds([&] {
      auto image = im::ImageFactory::Instance()->Create(im::ImageFormat::HDR, bytes, file.size());
      benchmark::DoNotOptimize(image.get());
    });
    ours.push_back(t);
    state.SetIterationTime(t);
  }
  state.counters["stb_ms"] = Median(stb) * 1e3;
  state.counters["ours_ms"] = Median(ours) * 1e3;
  state.counters["vs_stb"] = Median(ours) / Median(stb);
  state.counters["file_bytes"] = static_cast<double>(file.size());
  im::bench::ReportVsMemcpy(state, static_cast<unsigned long long>(kSide) * kSide * 8, Median(ours));
}

const bool kRegistered = [] {
  im::bench::RegisterMemcpy(static_cast<unsigned long long>(kSide) * kSide * 8);
  benchmark::RegisterBenchmark("HDRDecode/flat", BM_HDRDecode, im::ISF_HDR_NOCOMPRESS)
      ->Unit(benchmark::kMillisecond)
      ->UseManualTime();
  benchmark::RegisterBenchmark("HDRDecode/rle", BM_HDRDecode, im::ISF_HDR_RLE)
      ->Unit(benchmark::kMillisecond)
      ->UseManualTime();
  return true;
}();

}  // namespace
