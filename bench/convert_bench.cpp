// Pixel conversion on 4096 x 4096 surfaces, two ways per pair:
//   Kernel/<pair>:      the row kernel alone into a destination that exists and
//                       has been written once (the cost of the inner loop);
//   ConvertCopy/<pair>: the whole SurfaceData::ConvertCopy, result allocation
//                       and first touch of its memory included.
// Each is reported next to memcpy of the same number of output bytes measured
// earlier in the same run: "vs_memcpy" is the time ratio (1.0 = memcpy speed).
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "bench_util.h"
#include "convert/channel_converters.h"
#include "convert/numeric_converters.h"
#include "lumo/image/half.h"
#include "lumo/image/surface_data.h"

namespace {

namespace im = lumo::image;
using namespace lumo::image::bench;
namespace fmt = lumo::image::formats;

constexpr unsigned long long kSide = 4096;

using RowKernel = void (*)(const unsigned char*, unsigned char*, std::size_t);

struct Pair {
  const char* name;
  im::PixelFormatDescriptor from, to;
  RowKernel kernel;
};

const im::detail::GammaTable& LinearToSrgb() {
  static const im::detail::GammaTable table = im::detail::MakeGammaTable(im::detail::kLinearToSrgbExponent);
  return table;
}

void RowLinearToSrgb(const unsigned char* s, unsigned char* d, std::size_t w) {
  im::detail::RowGamma8888<3>(s, d, w, LinearToSrgb());
}

const Pair kPairs[] = {
    {"R8G8B8->A8R8G8B8", fmt::R8G8B8, fmt::A8R8G8B8, &im::detail::RowAddAlpha888},
    {"A8R8G8B8->A8B8G8R8", fmt::A8R8G8B8, fmt::A8B8G8R8, &im::detail::RowSwap8888_1_3},
    {"R5G6B5->R8G8B8", fmt::R5G6B5, fmt::R8G8B8, &im::detail::Row565To888},
    {"A16fB16fG16fR16f->A32fB32fG32fR32f", fmt::A16fB16fG16fR16f, fmt::A32fB32fG32fR32f,
     &im::numeric::Row4HalfTo4Float},
    {"A8B8G8R8->s_A8B8G8R8", fmt::A8B8G8R8, fmt::s_A8B8G8R8, &RowLinearToSrgb},
};

std::shared_ptr<im::SurfaceDataBitmap> Source(const Pair& pair) {
  auto surface = im::SurfaceDataBitmap::Create(kSide, kSide, pair.from, 2);
  std::mt19937 rng(1);
  auto* bytes = reinterpret_cast<unsigned char*>(surface->Buffer());
  if (pair.from == fmt::A16fB16fG16fR16f) {
    // Halves in [0, 1], the range textures hold.
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    auto* halves = reinterpret_cast<half_float::half*>(bytes);
    for (unsigned long long i = 0; i < surface->Size() / 2; ++i) halves[i] = unit(rng);
  } else {
    for (unsigned long long i = 0; i < surface->Size(); ++i) bytes[i] = static_cast<unsigned char>(rng());
  }
  return surface;
}

unsigned long long OutputBytes(const Pair& pair) { return im::BytesTotal(pair.to, kSide, kSide, 2); }

void BM_Kernel(benchmark::State& state, const Pair* pair) {
  const auto source = Source(*pair);
  const auto target = im::SurfaceDataBitmap::Create(kSide, kSide, pair->to, 2);
  std::memset(target->Buffer(), 0, target->Size());
  const auto* src = reinterpret_cast<const unsigned char*>(source->Buffer());
  auto* dst = reinterpret_cast<unsigned char*>(target->Buffer());
  const double seconds = SecondsPerIteration(state, [&] {
    for (unsigned long long y = 0; y < kSide; ++y) {
      pair->kernel(src + y * source->BytesPerRow(), dst + y * target->BytesPerRow(), kSide);
    }
    benchmark::DoNotOptimize(dst);
  });
  ReportVsMemcpy(state, target->Size(), seconds);
}

void BM_ConvertCopy(benchmark::State& state, const Pair* pair) {
  const auto source = Source(*pair);
  const double seconds = SecondsPerIteration(state, [&] {
    auto result = source->ConvertCopy(pair->to);
    benchmark::DoNotOptimize(result.get());
  });
  ReportVsMemcpy(state, OutputBytes(*pair), seconds);
}

// Memcpy baselines first, so every ratio has its baseline from this run.
[[maybe_unused]] const bool kRegistered = [] {
  for (const Pair& pair : kPairs) RegisterMemcpy(OutputBytes(pair));
  for (const Pair& pair : kPairs) {
    benchmark::RegisterBenchmark((std::string("Kernel/") + pair.name).c_str(), BM_Kernel, &pair)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
  }
  for (const Pair& pair : kPairs) {
    benchmark::RegisterBenchmark((std::string("ConvertCopy/") + pair.name).c_str(), BM_ConvertCopy, &pair)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
  }
  return true;
}();

}  // namespace
