// The built-in rescale engine on 8-bit RGBA (A8B8G8R8) and four half floats
// (A16fB16fG16fR16f): shrink 2048^2 -> 512^2, enlarge 512^2 -> 2048^2 and
// halve 2048^2 -> 1024^2 (one mip level) with the box, bilinear, bicubic and
// Lanczos 3 filters. bytes_per_second counts destination bytes. Each is
// reported next to memcpy of the destination's bytes measured earlier in the
// same run: "vs_memcpy" is the time ratio (10 = ten memcpys of the result),
// left out when the memcpy benchmarks are filtered out. The engine is called
// directly on surfaces made once, so the time is the engine's own work, its
// weight tables and intermediate buffer included.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>

#include "bench_util.h"
#include "lumo/image/engines.h"
#include "lumo/image/formats.h"
#include "lumo/image/half.h"
#include "lumo/image/surface_data.h"

namespace {

namespace im = lumo::image;
using namespace lumo::image::bench;

struct Format {
  const char* name;
  im::PixelFormatDescriptor descriptor;
  bool half;
};

const Format kFormats[] = {
    {"RGBA8", im::formats::A8B8G8R8, false},
    {"RGBA16F", im::formats::A16fB16fG16fR16f, true},
};

struct Size {
  unsigned long long from, to;
};

const Size kSizes[] = {{2048, 512}, {512, 2048}, {2048, 1024}};

struct Filter {
  const char* name;
  im::FilterType type;
};

const Filter kFilters[] = {
    {"Box", im::FilterType::Box},
    {"Bilinear", im::FilterType::Bilinear},
    {"Bicubic", im::FilterType::Bicubic},
    {"Lanczos3", im::FilterType::Lanczos3},
};

// Destination bytes as the library lays them out, known before any surface is
// made so the baselines can be registered up front.
unsigned long long OutputBytes(const Format& format, const Size& size) {
  return im::BytesTotal(format.descriptor, size.to, size.to, 2);
}

std::shared_ptr<im::SurfaceDataBitmap> MakeSurface(const Format& format, unsigned long long side, bool fill) {
  auto surface = im::SurfaceDataBitmap::Create(side, side, format.descriptor, 2);
  if (!surface || !fill) return surface;
  std::mt19937 rng(11);
  char* p = surface->Buffer();
  if (format.half) {
    // Values in [0, 1), as textures hold; the work does not depend on them.
    std::uniform_real_distribution<float> dist(0.0f, 1.0f);
    for (unsigned long long i = 0; i + 2 <= surface->Size(); i += 2) {
      const half_float::half h(dist(rng));
      std::memcpy(p + i, &h, sizeof h);
    }
  } else {
    for (unsigned long long i = 0; i < surface->Size(); ++i) p[i] = static_cast<char>(rng());
  }
  return surface;
}

void BM_Rescale(benchmark::State& state, const Format& format, Size size, im::FilterType filter) {
  const auto src = MakeSurface(format, size.from, true);
  const auto dst = MakeSurface(format, size.to, false);
  if (!src || !dst) {
    state.SkipWithError("surface not created");
    return;
  }
  im::RescaleEngine* engine = im::DefaultRescaleEngine();
  if (!engine->Rescale(src.get(), dst.get(), filter)) {  // also the first touch of dst
    state.SkipWithError("rescale refused");
    return;
  }
  const double seconds =
      SecondsPerIteration(state, [&] { benchmark::DoNotOptimize(engine->Rescale(src.get(), dst.get(), filter)); });
  ReportVsMemcpy(state, dst->Size(), seconds);
  state.counters["pixels_per_second"] = benchmark::Counter(
      static_cast<double>(state.iterations()) * static_cast<double>(size.to * size.to), benchmark::Counter::kIsRate);
}

// Memcpy baselines first, so every ratio has its baseline from this run.
[[maybe_unused]] const bool kRegistered = [] {
  for (const Format& format : kFormats) {
    for (const Size& size : kSizes) RegisterMemcpy(OutputBytes(format, size));
  }
  for (const Format& format : kFormats) {
    for (const Size& size : kSizes) {
      for (const Filter& filter : kFilters) {
        const std::string name = std::string("BM_Rescale/") + format.name + "/" + std::to_string(size.from) + "to" +
                                 std::to_string(size.to) + "/" + filter.name;
        benchmark::RegisterBenchmark(name.c_str(), BM_Rescale, format, size, filter.type)
            ->Unit(benchmark::kMicrosecond)
            ->UseRealTime();
      }
    }
  }
  return true;
}();

}  // namespace
