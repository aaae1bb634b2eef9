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
#include "stb_compare.h"
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

void BM_HDRDecode(benchmark::State& state, int flags) {
  const std::vector<char> file = File(flags);
  im::bench::DecodeVsStb(state, im::ImageFormat::HDR, file, static_cast<unsigned long long>(kSide) * kSide * 8, true);
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
