// JPEG decoding and encoding through the plugin next to the same work done
// with bare libjpeg calls on the same bytes, in the same run. The picture is
// 2048 x 2048 of smooth gradients with a little noise, written 4:2:0 at
// quality 90 (ISF_JPEG_QUALITYGOOD). Each plugin case reports "vs_libjpeg",
// its time over the bare case's (1.0 = no overhead).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <jpeglib.h>

#include "bench_util.h"
#include "lumo/image/formats.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/surface_data.h"

namespace {

namespace im = lumo::image;
using namespace lumo::image::bench;

constexpr JDIMENSION kSide = 2048;
constexpr int kQuality = 90;  // what ISF_JPEG_QUALITYGOOD stands for
constexpr JDIMENSION kBatch = 16;

// B8G8R8 (bytes R, G, B): gradients in every channel plus noise of a few levels.
const std::shared_ptr<im::SurfaceDataBitmap>& Picture() {
  static const std::shared_ptr<im::SurfaceDataBitmap> picture = [] {
    auto s = im::SurfaceDataBitmap::Create(kSide, kSide, im::formats::B8G8R8, 2);
    unsigned seed = 12345;
    for (JDIMENSION y = 0; y < kSide; ++y) {
      auto* row = reinterpret_cast<unsigned char*>(s->Buffer() + y * s->BytesPerRow());
      for (JDIMENSION x = 0; x < kSide; ++x) {
        seed = seed * 1103515245u + 12345u;
        const int noise = static_cast<int>((seed >> 16) % 9) - 4;
        const int base[3] = {static_cast<int>(x * 200 / kSide) + 20, static_cast<int>(y * 180 / kSide) + 40,
                             static_cast<int>((x + y) * 100 / kSide) + 30};
        for (int c = 0; c < 3; ++c) row[x * 3 + c] = static_cast<unsigned char>(base[c] + noise);
      }
    }
    return s;
  }();
  return picture;
}

const std::vector<char>& File() {
  static const std::vector<char> file = [] {
    size_t size = 0;
    const auto bytes =
        im::ImageFactory::Instance()->Serialize(im::ImageFormat::JPG, Picture().get(), &size, im::ISF_JPEG_QUALITYGOOD);
    return bytes ? std::vector<char>(bytes.get(), bytes.get() + size) : std::vector<char>();
  }();
  return file;
}

std::map<std::string, double>& BareSeconds() {
  static std::map<std::string, double> seconds;
  return seconds;
}

void Report(benchmark::State& state, const char* kind, double seconds) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * kSide * kSide * 3);
  const auto bare = BareSeconds().find(kind);
  if (bare != BareSeconds().end()) state.counters["vs_libjpeg"] = seconds / bare->second;
}

// The bare decoder: the same rows a call, into one malloc'd picture.
void BareDecode(const std::vector<char>& file) {
  jpeg_decompress_struct cinfo;
  jpeg_error_mgr err;
  cinfo.err = jpeg_std_error(&err);
  jpeg_create_decompress(&cinfo);
  jpeg_mem_src(&cinfo, reinterpret_cast<const unsigned char*>(file.data()), file.size());
  jpeg_read_header(&cinfo, TRUE);
  jpeg_start_decompress(&cinfo);
  const size_t pitch = (cinfo.output_width * 3 + 3) & ~size_t{3};
  auto* pixels = static_cast<unsigned char*>(std::malloc(pitch * cinfo.output_height));
  JSAMPROW rows[kBatch];
  while (cinfo.output_scanline < cinfo.output_height) {
    const JDIMENSION first = cinfo.output_scanline;
    const JDIMENSION n = cinfo.output_height - first < kBatch ? cinfo.output_height - first : kBatch;
    for (JDIMENSION i = 0; i < n; ++i) rows[i] = pixels + (first + i) * pitch;
    jpeg_read_scanlines(&cinfo, rows, n);
  }
  jpeg_finish_decompress(&cinfo);
  jpeg_destroy_decompress(&cinfo);
  benchmark::DoNotOptimize(pixels);
  std::free(pixels);
}

void BareEncode(const im::SurfaceData& picture) {
  jpeg_compress_struct cinfo;
  jpeg_error_mgr err;
  cinfo.err = jpeg_std_error(&err);
  jpeg_create_compress(&cinfo);
  unsigned char* out = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&cinfo, &out, &size);
  cinfo.image_width = kSide;
  cinfo.image_height = kSide;
  cinfo.input_components = 3;
  cinfo.in_color_space = JCS_RGB;
  jpeg_set_defaults(&cinfo);
  jpeg_set_quality(&cinfo, kQuality, TRUE);
  jpeg_start_compress(&cinfo, TRUE);
  JSAMPROW rows[kBatch];
  while (cinfo.next_scanline < kSide) {
    const JDIMENSION first = cinfo.next_scanline;
    const JDIMENSION n = kSide - first < kBatch ? kSide - first : kBatch;
    for (JDIMENSION i = 0; i < n; ++i) {
      rows[i] = reinterpret_cast<JSAMPROW>(const_cast<char*>(picture.Buffer() + (first + i) * picture.BytesPerRow()));
    }
    jpeg_write_scanlines(&cinfo, rows, n);
  }
  jpeg_finish_compress(&cinfo);
  jpeg_destroy_compress(&cinfo);
  benchmark::DoNotOptimize(out);
  std::free(out);
}

void BM_JpegDecodeBareLibjpeg(benchmark::State& state) {
  const std::vector<char>& file = File();
  if (file.empty()) return state.SkipWithError("the plugin wrote no file");
  const double seconds = SecondsPerIteration(state, [&] { BareDecode(file); });
  BareSeconds()["decode"] = seconds;
  Report(state, "", seconds);
}

void BM_JpegDecodePlugin(benchmark::State& state) {
  const std::vector<char>& file = File();
  if (file.empty()) return state.SkipWithError("the plugin wrote no file");
  const double seconds = SecondsPerIteration(state, [&] {
    const auto image = im::ImageFactory::Instance()->Create(file.data(), file.size());
    if (!image) state.SkipWithError("the file did not load");
    benchmark::DoNotOptimize(image.get());
  });
  Report(state, "decode", seconds);
}

void BM_JpegEncodeBareLibjpeg(benchmark::State& state) {
  const double seconds = SecondsPerIteration(state, [&] { BareEncode(*Picture()); });
  BareSeconds()["encode"] = seconds;
  Report(state, "", seconds);
}

void BM_JpegEncodePlugin(benchmark::State& state) {
  const auto& picture = Picture();
  const double seconds = SecondsPerIteration(state, [&] {
    size_t size = 0;
    const auto file =
        im::ImageFactory::Instance()->Serialize(im::ImageFormat::JPG, picture.get(), &size, im::ISF_JPEG_QUALITYGOOD);
    if (!file) state.SkipWithError("the plugin refused the picture");
    benchmark::DoNotOptimize(file.get());
  });
  Report(state, "encode", seconds);
}

// Bare first: each plugin case divides by the figure its bare case left.
BENCHMARK(BM_JpegDecodeBareLibjpeg)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_JpegDecodePlugin)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_JpegEncodeBareLibjpeg)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_JpegEncodePlugin)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
