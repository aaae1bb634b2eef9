// BMP decoding against stb_image on the same bytes, in the same run. The
// pictures are 2048 x 2048: 24- and 32-bit ones written by the plugin, and an
// 8-bit palette picture raw and RLE8-encoded here (the writer makes no
// palette files). All are smooth gradients with noise that holds for a few
// pixels, so the RLE8 file mixes short runs with absolute runs as a
// photograph does. Each iteration decodes with stb_image and with the
// plugin, timed apart, so both see the same machine; the reported time is
// the plugin's median, "vs_stb" the ratio of the medians (below 1.0: faster
// than stb_image), and "vs_memcpy" compares with copying the decoded bytes.
#include <benchmark/benchmark.h>
#include <stb_image.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
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

// Gradient plus a noise level that changes on about a third of the pixels.
struct Noise {
  unsigned seed = 12345;
  int value = 0;
  int Next() {
    seed = seed * 1103515245u + 12345u;
    if ((seed >> 16) % 3 == 0) value = static_cast<int>((seed >> 20) % 5) - 2;
    return value;
  }
};

std::vector<char> Written(im::PixelFormatDescriptor format) {
  const auto s = im::SurfaceDataBitmap::Create(kSide, kSide, format, 2);
  const unsigned bytes = format == im::formats::R8G8B8 ? 3 : 4;
  Noise noise;
  for (unsigned y = 0; y < kSide; ++y) {
    auto* row = reinterpret_cast<unsigned char*>(s->Buffer() + y * s->BytesPerRow());
    for (unsigned x = 0; x < kSide; ++x) {
      const int n = noise.Next();
      const int base[4] = {static_cast<int>((x + y) * 100 / kSide) + 30, static_cast<int>(y * 180 / kSide) + 40,
                           static_cast<int>(x * 200 / kSide) + 20, 255 - static_cast<int>(x * 64 / kSide)};
      for (unsigned c = 0; c < bytes; ++c) row[x * bytes + c] = static_cast<unsigned char>(base[c] + (c < 3 ? n : 0));
    }
  }
  size_t size = 0;
  const auto file = im::ImageFactory::Instance()->Serialize(im::ImageFormat::BMP, s.get(), &size, 0);
  return file ? std::vector<char>(file.get(), file.get() + size) : std::vector<char>();
}

void Put32(std::vector<char>* b, size_t at, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) (*b)[at + i] = static_cast<char>(v >> (8 * i));
}

// Runs of two or more equal indices as runs, the rest as absolute runs.
void EncodeRle8Row(const unsigned char* row, unsigned width, std::vector<char>* out) {
  unsigned x = 0;
  while (x < width) {
    unsigned run = 1;
    while (x + run < width && run < 255 && row[x + run] == row[x]) ++run;
    if (run >= 2) {
      out->push_back(static_cast<char>(run));
      out->push_back(static_cast<char>(row[x]));
      x += run;
      continue;
    }
    unsigned n = 1;  // up to the next pair of equal indices
    while (x + n < width && n < 255 && !(x + n + 1 < width && row[x + n] == row[x + n + 1])) ++n;
    if (n < 3) {
      for (unsigned i = 0; i < n; ++i) out->insert(out->end(), {1, static_cast<char>(row[x + i])});
    } else {
      out->insert(out->end(), {0, static_cast<char>(n)});
      out->insert(out->end(), row + x, row + x + n);
      if (n % 2 != 0) out->push_back(0);
    }
    x += n;
  }
  out->insert(out->end(), {0, 0});
}

std::vector<char> Palette8(bool rle) {
  std::vector<unsigned char> indices(static_cast<size_t>(kSide) * kSide);
  Noise noise;
  for (unsigned y = 0; y < kSide; ++y) {
    for (unsigned x = 0; x < kSide; ++x) {
      indices[static_cast<size_t>(y) * kSide + x] =
          static_cast<unsigned char>(static_cast<int>((x + y) * 250 / (2 * kSide)) + 2 + noise.Next());
    }
  }
  const size_t offset = 54 + 256 * 4;
  std::vector<char> file(offset, 0);
  for (unsigned i = 0; i < 256; ++i) Put32(&file, 54 + 4 * i, i * 0x010101u ^ 0x004080u);
  if (rle) {
    for (unsigned y = 0; y < kSide; ++y) EncodeRle8Row(&indices[static_cast<size_t>(y) * kSide], kSide, &file);
    file.insert(file.end(), {0, 1});
  } else {
    file.insert(file.end(), indices.begin(), indices.end());
  }
  file[0] = 'B', file[1] = 'M';
  Put32(&file, 2, static_cast<std::uint32_t>(file.size()));
  Put32(&file, 10, static_cast<std::uint32_t>(offset));
  const std::uint32_t header[] = {
      40,   kSide, kSide, 1 | 8 << 16, rle ? 1u : 0u, static_cast<std::uint32_t>(file.size() - offset), 2835,
      2835, 256,   0};
  for (size_t i = 0; i < 10; ++i) Put32(&file, 14 + 4 * i, header[i]);
  return file;
}

void BM_BMPDecode(benchmark::State& state, std::vector<char> (*make)(), unsigned decoded_bytes_per_pixel) {
  const std::vector<char> file = make();
  im::bench::DecodeVsStb(state, im::ImageFormat::BMP, file,
                         static_cast<unsigned long long>(kSide) * kSide * decoded_bytes_per_pixel);
}

const bool kRegistered = [] {
  im::bench::RegisterMemcpy(static_cast<unsigned long long>(kSide) * kSide * 3);
  im::bench::RegisterMemcpy(static_cast<unsigned long long>(kSide) * kSide * 4);
  const struct {
    const char* name;
    std::vector<char> (*make)();
    unsigned decoded_bytes_per_pixel;
  } cases[] = {
      {"BMPDecode/rgb24", [] { return Written(im::formats::R8G8B8); }, 3},
      {"BMPDecode/argb32", [] { return Written(im::formats::A8R8G8B8); }, 4},
      {"BMPDecode/pal8", [] { return Palette8(false); }, 4},
      {"BMPDecode/rle8", [] { return Palette8(true); }, 4},
  };
  for (const auto& c : cases) {
    benchmark::RegisterBenchmark(c.name, BM_BMPDecode, c.make, c.decoded_bytes_per_pixel)
        ->Unit(benchmark::kMillisecond)
        ->UseManualTime();
  }
  return true;
}();

}  // namespace
