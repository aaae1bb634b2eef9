// TGA decoding against stb_image on the same bytes, in the same run. The
// pictures are 2048 x 2048, 24 and 32 bits, raw and run-length encoded by the
// plugin's writer: smooth gradients with noise that holds for a few pixels,
// so run-length files mix short runs with raw packets as photographs do.
// Each iteration decodes with stb_image and with the plugin, timed apart, so
// both see the same machine; the reported time is the plugin's median,
// "vs_stb" the ratio of the medians (below 1.0: faster than stb_image), and
// "vs_memcpy" compares with copying the decoded bytes. Times are the
// thread's CPU time.
#include <benchmark/benchmark.h>
#include <stb_image.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "bench_util.h"
#include "stb_compare.h"
#include "lumo/image/formats.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/surface_data.h"

namespace {

namespace im = lumo::image;

constexpr unsigned kSide = 2048;

std::vector<char> File(im::PixelFormatDescriptor format, int flags) {
  const auto s = im::SurfaceDataBitmap::Create(kSide, kSide, format, 2);
  const unsigned bytes = format == im::formats::R8G8B8 ? 3 : 4;
  unsigned seed = 12345;
  int noise = 0;
  for (unsigned y = 0; y < kSide; ++y) {
    auto* row = reinterpret_cast<unsigned char*>(s->Buffer() + y * s->BytesPerRow());
    for (unsigned x = 0; x < kSide; ++x) {
      seed = seed * 1103515245u + 12345u;
      if ((seed >> 16) % 3 == 0) noise = static_cast<int>((seed >> 20) % 5) - 2;
      const int base[4] = {static_cast<int>((x + y) * 100 / kSide) + 30, static_cast<int>(y * 180 / kSide) + 40,
                           static_cast<int>(x * 200 / kSide) + 20, 255 - static_cast<int>(x * 64 / kSide)};
      for (unsigned c = 0; c < bytes; ++c)
        row[x * bytes + c] = static_cast<unsigned char>(base[c] + (c < 3 ? noise : 0));
    }
  }
  size_t size = 0;
  const auto file = im::ImageFactory::Instance()->Serialize(im::ImageFormat::TGA, s.get(), &size, flags);
  return file ? std::vector<char>(file.get(), file.get() + size) : std::vector<char>();
}

void BM_TGADecode(benchmark::State& state, im::PixelFormatDescriptor format, int flags) {
  const std::vector<char> file = File(format, flags);
  im::bench::DecodeVsStb(state, im::ImageFormat::TGA, file,
                         static_cast<unsigned long long>(kSide) * kSide * (format == im::formats::R8G8B8 ? 3 : 4));
}

const bool kRegistered = [] {
  lumo::image::bench::RegisterMemcpy(static_cast<unsigned long long>(kSide) * kSide * 3);
  lumo::image::bench::RegisterMemcpy(static_cast<unsigned long long>(kSide) * kSide * 4);
  const struct {
    const char* name;
    im::PixelFormatDescriptor format;
    int flags;
  } cases[] = {
      {"TGADecode/raw24", im::formats::R8G8B8, 0},
      {"TGADecode/raw32", im::formats::A8R8G8B8, 0},
      {"TGADecode/rle24", im::formats::R8G8B8, im::ISF_TARGA_SAVE_RLE},
      {"TGADecode/rle32", im::formats::A8R8G8B8, im::ISF_TARGA_SAVE_RLE},
  };
  for (const auto& c : cases) {
    benchmark::RegisterBenchmark(c.name, BM_TGADecode, c.format, c.flags)
        ->Unit(benchmark::kMillisecond)
        ->UseManualTime();
  }
  return true;
}();

}  // namespace
