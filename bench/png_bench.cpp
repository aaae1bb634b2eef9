// PNG decoding and encoding through the plugin next to the same work done
// with bare libpng calls on the same bytes, in the same run. The picture is
// 2048 x 2048 RGBA of smooth gradients with a little noise. Every iteration
// runs the bare case and the plugin one after the other, each timed on its
// own, so that both see the same machine; the counters give the medians (ms)
// and their ratio "vs_libpng" (1.0 = no overhead). The reported time is the
// plugin's.
//
// Decoding reads the plugin's own default-level file. Bare libpng writes its
// RGBA rows into a picture that is malloc'd and freed on every decode, which
// the C library hands back warm from the previous decode; the plugin's
// picture is a new SurfaceDataBitmap that it returns, whose pages are fresh.
// "vs_libpng_same_memory" compares with bare libpng decoding into a new
// SurfaceDataBitmap, which separates the plugin's own work from the memory.
//
// Encoding writes at the default level and at levels 1 and 9, libpng with its
// defaults apart from the level; "png_bytes" and "libpng_bytes" are the two
// output sizes.
#include <benchmark/benchmark.h>

#include <png.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "lumo/image/formats.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/surface_data.h"

namespace {

namespace im = lumo::image;

constexpr png_uint_32 kSide = 2048;

// A8R8G8B8 (bytes B, G, R, A): a gradient in every channel, alpha included,
// plus noise of a few levels in the colours, as in a rendered texture.
const std::shared_ptr<im::SurfaceDataBitmap>& Picture() {
  static const std::shared_ptr<im::SurfaceDataBitmap> picture = [] {
    auto s = im::SurfaceDataBitmap::Create(kSide, kSide, im::formats::A8R8G8B8, 2);
    unsigned seed = 12345;
    for (png_uint_32 y = 0; y < kSide; ++y) {
      auto* row = reinterpret_cast<unsigned char*>(s->Buffer() + y * s->BytesPerRow());
      for (png_uint_32 x = 0; x < kSide; ++x) {
        seed = seed * 1103515245u + 12345u;
        const int noise = static_cast<int>((seed >> 16) % 7) - 3;
        const int base[4] = {static_cast<int>((x + y) * 100 / kSide) + 30, static_cast<int>(y * 180 / kSide) + 40,
                             static_cast<int>(x * 200 / kSide) + 20, 255 - static_cast<int>(x * 64 / kSide)};
        for (int c = 0; c < 4; ++c) row[x * 4 + c] = static_cast<unsigned char>(base[c] + (c < 3 ? noise : 0));
      }
    }
    return s;
  }();
  return picture;
}

// The same pixels in libpng's order (R, G, B, A), for the bare encoder.
const std::vector<unsigned char>& PictureRGBA() {
  static const std::vector<unsigned char> rgba = [] {
    const auto& s = Picture();
    std::vector<unsigned char> out(size_t{kSide} * kSide * 4);
    for (png_uint_32 y = 0; y < kSide; ++y) {
      const auto* row = reinterpret_cast<const unsigned char*>(s->Buffer() + y * s->BytesPerRow());
      for (png_uint_32 x = 0; x < kSide; ++x) {
        const unsigned char* p = row + x * 4;
        unsigned char* q = out.data() + (size_t{y} * kSide + x) * 4;
        q[0] = p[2], q[1] = p[1], q[2] = p[0], q[3] = p[3];
      }
    }
    return out;
  }();
  return rgba;
}

const std::vector<char>& File() {
  static const std::vector<char> file = [] {
    size_t size = 0;
    const auto bytes = im::ImageFactory::Instance()->Serialize(im::ImageFormat::PNG, Picture().get(), &size, 0);
    return bytes ? std::vector<char>(bytes.get(), bytes.get() + size) : std::vector<char>();
  }();
  return file;
}

template <typename Fn>
double Seconds(Fn&& fn) {
  const auto start = std::chrono::steady_clock::now();
  fn();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v.size() % 2 == 1 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

// ---- Bare libpng ----

struct Cursor {
  const char* next;
  size_t left;
};

void ReadBytes(png_structp png, png_bytep out, png_size_t n) {
  auto* c = static_cast<Cursor*>(png_get_io_ptr(png));
  if (n > c->left) png_error(png, "short file");
  std::memcpy(out, c->next, n);
  c->next += n;
  c->left -= n;
}

// libpng's defaults, RGBA rows straight into a malloc'd picture or a new
// SurfaceDataBitmap; the file is known to be good.
void BareDecode(const std::vector<char>& file, bool into_surface) {
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  Cursor cursor{file.data(), file.size()};
  png_set_read_fn(png, &cursor, ReadBytes);
  png_read_info(png, info);
  png_read_update_info(png, info);
  const png_uint_32 width = png_get_image_width(png, info), height = png_get_image_height(png, info);
  std::shared_ptr<im::SurfaceDataBitmap> surface;
  unsigned char* pixels = nullptr;
  size_t pitch = png_get_rowbytes(png, info);
  if (into_surface) {
    surface = im::SurfaceDataBitmap::Create(width, height, im::formats::A8B8G8R8, 2);
    pixels = reinterpret_cast<unsigned char*>(surface->Buffer());
    pitch = surface->BytesPerRow();
  } else {
    pixels = static_cast<unsigned char*>(std::malloc(pitch * height));
  }
  for (png_uint_32 y = 0; y < height; ++y) png_read_row(png, pixels + y * pitch, nullptr);
  png_read_end(png, nullptr);
  png_destroy_read_struct(&png, &info, nullptr);
  benchmark::DoNotOptimize(pixels);
  if (!into_surface) std::free(pixels);
}

void AppendBytes(png_structp png, png_bytep bytes, png_size_t n) {
  auto* out = static_cast<std::vector<char>*>(png_get_io_ptr(png));
  out->insert(out->end(), bytes, bytes + n);
}
void NoFlush(png_structp) {}

// libpng's defaults apart from the level (-1: its default), into a vector.
size_t BareEncode(int level) {
  const std::vector<unsigned char>& rgba = PictureRGBA();
  std::vector<char> out;
  out.reserve(rgba.size() / 2);
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_set_write_fn(png, &out, AppendBytes, NoFlush);
  if (level >= 0) png_set_compression_level(png, level);
  png_set_IHDR(png, info, kSide, kSide, 8, PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (png_uint_32 y = 0; y < kSide; ++y) png_write_row(png, rgba.data() + size_t{y} * kSide * 4);
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  benchmark::DoNotOptimize(out.data());
  return out.size();
}

// ---- Cases ----

void BM_PngDecode(benchmark::State& state) {
  const std::vector<char>& file = File();
  if (file.empty()) return state.SkipWithError("the plugin wrote no file");
  std::vector<double> bare, bare_surface, plugin;
  for (auto _ : state) {
    bare.push_back(Seconds([&] { BareDecode(file, false); }));
    bare_surface.push_back(Seconds([&] { BareDecode(file, true); }));
    plugin.push_back(Seconds([&] {
      const auto image = im::ImageFactory::Instance()->Create(file.data(), file.size());
      if (!image) state.SkipWithError("the file did not load");
      benchmark::DoNotOptimize(image.get());
    }));
    state.SetIterationTime(plugin.back());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * kSide * kSide * 4);
  state.counters["libpng_ms"] = Median(bare) * 1e3;
  state.counters["libpng_same_memory_ms"] = Median(bare_surface) * 1e3;
  state.counters["plugin_ms"] = Median(plugin) * 1e3;
  state.counters["vs_libpng"] = Median(plugin) / Median(bare);
  state.counters["vs_libpng_same_memory"] = Median(plugin) / Median(bare_surface);
}

// flags: the plugin's save flags; their level is what the bare case sets.
void BM_PngEncode(benchmark::State& state, int flags) {
  const auto& picture = Picture();
  PictureRGBA();
  std::vector<double> bare, plugin;
  size_t bare_size = 0, plugin_size = 0;
  for (auto _ : state) {
    bare.push_back(Seconds([&] { bare_size = BareEncode(flags == 0 ? -1 : flags); }));
    plugin.push_back(Seconds([&] {
      const auto file =
          im::ImageFactory::Instance()->Serialize(im::ImageFormat::PNG, picture.get(), &plugin_size, flags);
      if (!file) state.SkipWithError("the plugin refused the picture");
      benchmark::DoNotOptimize(file.get());
    }));
    state.SetIterationTime(plugin.back());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * kSide * kSide * 4);
  state.counters["libpng_ms"] = Median(bare) * 1e3;
  state.counters["plugin_ms"] = Median(plugin) * 1e3;
  state.counters["vs_libpng"] = Median(plugin) / Median(bare);
  state.counters["libpng_bytes"] = static_cast<double>(bare_size);
  state.counters["png_bytes"] = static_cast<double>(plugin_size);
}

[[maybe_unused]] const bool kRegistered = [] {
  benchmark::RegisterBenchmark("PngDecode/A8R8G8B8_2048", BM_PngDecode)
      ->Unit(benchmark::kMillisecond)
      ->UseManualTime()
      ->Iterations(25);
  const struct {
    int flags;
    const char* name;
    int iterations;
  } levels[] = {{0, "default", 5}, {1, "level1", 9}, {9, "level9", 1}};
  for (const auto& l : levels) {
    benchmark::RegisterBenchmark((std::string("PngEncode/A8R8G8B8_2048/") + l.name).c_str(), BM_PngEncode, l.flags)
        ->Unit(benchmark::kMillisecond)
        ->UseManualTime()
        ->Iterations(l.iterations);
  }
  return true;
}();

}  // namespace
