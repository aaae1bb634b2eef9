// GIF decoding against stb_image on the same bytes, in the same run. The
// picture is 2048 x 2048 of 256 colours written by the plugin: a smooth
// gradient over a ramp of colours with noise that holds for a few pixels, so
// the LZW strings are short, as in a photograph reduced to a palette. Each
// iteration decodes with stb_image and with the plugin, timed apart, so both
// see the same machine; the reported time is the plugin's median, "vs_stb"
// the ratio of the medians (below 1.0: faster than stb_image), and
// "vs_memcpy" compares with copying the decoded bytes. GIFEncode times the
// writer on the same picture.
#include <benchmark/benchmark.h>
#include <stb_image.h>

#include <algorithm>
#include <chrono>
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

// B8G8R8 (bytes R, G, B): colour k of the ramp is (k, 255 - k / 2, 3k mod 256),
// k following the diagonal gradient plus noise of up to 3 steps.
const std::shared_ptr<im::SurfaceDataBitmap>& Picture() {
  static const std::shared_ptr<im::SurfaceDataBitmap> picture = [] {
    auto s = im::SurfaceDataBitmap::Create(kSide, kSide, im::formats::B8G8R8, 2);
    unsigned seed = 12345;
    int noise = 0;
    for (unsigned y = 0; y < kSide; ++y) {
      auto* row = reinterpret_cast<unsigned char*>(s->Buffer() + y * s->BytesPerRow());
      for (unsigned x = 0; x < kSide; ++x) {
        seed = seed * 1103515245u + 12345u;
        if ((seed >> 16) % 3 == 0) noise = static_cast<int>((seed >> 20) % 7) - 3;
        const int k = std::clamp(static_cast<int>((x + y) * 255 / (2 * kSide - 2)) + noise, 0, 255);
        row[3 * x] = static_cast<unsigned char>(k);
        row[3 * x + 1] = static_cast<unsigned char>(255 - k / 2);
        row[3 * x + 2] = static_cast<unsigned char>(3 * k);
      }
    }
    return s;
  }();
  return picture;
}

std::vector<char> File() {
  size_t size = 0;
  const auto file = im::ImageFactory::Instance()->Serialize(im::ImageFormat::GIF, Picture().get(), &size, 0);
  return file ? std::vector<char>(file.get(), file.get() + size) : std::vector<char>();
}

constexpr unsigned long long kDecodedBytes = static_cast<unsigned long long>(kSide) * kSide * 3;

void BM_GIFDecode(benchmark::State& state) {
  const std::vector<char> file = File();
  im::bench::DecodeVsStb(state, im::ImageFormat::GIF, file, kDecodedBytes);
}

void BM_GIFEncode(benchmark::State& state) {
  const auto& picture = Picture();
  size_t size = 0;
  const double seconds = im::bench::SecondsPerIteration(state, [&] {
    auto file = im::ImageFactory::Instance()->Serialize(im::ImageFormat::GIF, picture.get(), &size, 0);
    benchmark::DoNotOptimize(file.get());
  });
  state.counters["file_bytes"] = static_cast<double>(size);
  im::bench::ReportVsMemcpy(state, kDecodedBytes, seconds);
}

const bool kRegistered = [] {
  im::bench::RegisterMemcpy(kDecodedBytes);
  benchmark::RegisterBenchmark("GIFDecode/photo256", BM_GIFDecode)->Unit(benchmark::kMillisecond)->UseManualTime();
  benchmark::RegisterBenchmark("GIFEncode/photo256", BM_GIFEncode)->Unit(benchmark::kMillisecond)->UseRealTime();
  return true;
}();

}  // namespace
