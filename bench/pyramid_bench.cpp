// Mip-chain generation from a 4096 x 4096 A8R8G8B8 surface with the box
// filter, two ways:
//   MakeComplete/...: Pyramid::MakeComplete on a fresh one-level pyramid over
//                     the same level 0 (made outside the timing), so the whole
//                     chain is computed each time, allocation and first touch
//                     of every new level included;
//   EngineChain/...:  the current rescale engine alone, halving level by level
//                     into destinations made and touched once (the filter's
//                     own cost, for comparison).
// Both are reported next to memcpy of the whole chain's bytes (every level,
// level 0 included) measured earlier in the same run: "vs_memcpy" is the time
// ratio (1.0 = memcpy speed).
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench_util.h"
#include "lumo/image/engines.h"
#include "lumo/image/formats.h"
#include "lumo/image/mipmaps.h"
#include "lumo/image/pyramid.h"
#include "lumo/image/surface_data.h"

namespace {

namespace im = lumo::image;
using namespace lumo::image::bench;
namespace fmt = lumo::image::formats;

constexpr unsigned long long kSide = 4096;
const im::PixelFormatDescriptor kFormat = fmt::A8R8G8B8;
constexpr im::FilterType kFilter = im::FilterType::Box;

// Sides of the full chain, 4096 down to 1.
std::vector<unsigned long long> ChainSides() {
  std::vector<unsigned long long> sides;
  for (unsigned long long side = kSide; side >= 1; side /= 2) sides.push_back(side);
  return sides;
}

// Bytes of every level as the library lays them out (rows padded to four bytes).
unsigned long long ChainBytes() {
  unsigned long long bytes = 0;
  for (const unsigned long long side : ChainSides()) bytes += im::BytesTotal(kFormat, side, side, 2);
  return bytes;
}

std::shared_ptr<im::SurfaceDataBitmap> Bitmap(unsigned long long side, bool fill) {
  auto bitmap = im::SurfaceDataBitmap::Create(side, side, kFormat, 2);
  if (!bitmap) return bitmap;
  if (fill) {
    // Four bytes per draw: a byte per draw costs more than the benchmark itself.
    std::mt19937 rng(5);
    char* bytes = bitmap->Buffer();
    const unsigned long long size = bitmap->Size();
    for (unsigned long long i = 0; i < size; i += 4) {
      const std::uint32_t word = static_cast<std::uint32_t>(rng());
      std::memcpy(bytes + i, &word, size - i < 4 ? size - i : 4);
    }
  } else {
    std::memset(bitmap->Buffer(), 0, bitmap->Size());
  }
  return bitmap;
}

void BM_MakeComplete(benchmark::State& state) {
  const auto level0 = Bitmap(kSide, true);
  if (!level0) {
    state.SkipWithError("level 0 not created");
    return;
  }
  const std::shared_ptr<im::Mipmap> base = std::make_shared<im::Surface>(level0);
  const unsigned long long expected_levels = ChainSides().size();
  double total = 0.0;
  for (auto _ : state) {
    // Fresh pyramid, previous chain released, outside the timed region.
    state.PauseTiming();
    std::shared_ptr<im::Pyramid> pyramid = im::Pyramid::Make(base, im::ImageOrigin::TopDown);
    state.ResumeTiming();
    const auto start = std::chrono::steady_clock::now();
    const bool done = pyramid->MakeComplete(kFilter);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    total += elapsed.count();
    benchmark::DoNotOptimize(pyramid.get());
    if (!done || pyramid->LevelsCurrent() != expected_levels) {
      state.SkipWithError("MakeComplete did not build the chain");
      return;
    }
    state.PauseTiming();
    pyramid.reset();
    state.ResumeTiming();
  }
  ReportVsMemcpy(state, ChainBytes(), total / static_cast<double>(state.iterations()));
}

void BM_EngineChain(benchmark::State& state) {
  const std::vector<unsigned long long> sides = ChainSides();
  std::vector<std::shared_ptr<im::SurfaceDataBitmap>> chain;
  for (std::size_t i = 0; i < sides.size(); ++i) chain.push_back(Bitmap(sides[i], i == 0));
  for (const auto& level : chain) {
    if (!level) {
      state.SkipWithError("level not created");
      return;
    }
  }
  im::RescaleEngine* engine = im::GetRescaleEngine();
  const auto run = [&] {
    bool ok = true;
    for (std::size_t i = 1; i < chain.size(); ++i) {
      ok = engine->Rescale(chain[i - 1].get(), chain[i].get(), kFilter) && ok;
    }
    return ok;
  };
  if (!run()) {
    state.SkipWithError("rescale refused");
    return;
  }
  const double seconds = SecondsPerIteration(state, [&] { benchmark::DoNotOptimize(run()); });
  ReportVsMemcpy(state, ChainBytes(), seconds);
}

// Memcpy baseline first, so the ratios have their baseline from this run.
[[maybe_unused]] const bool kRegistered = [] {
  RegisterMemcpy(ChainBytes());
  const std::string suffix = "/A8R8G8B8/" + std::to_string(kSide) + "/Box";
  benchmark::RegisterBenchmark(("MakeComplete" + suffix).c_str(), BM_MakeComplete)
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
  benchmark::RegisterBenchmark(("EngineChain" + suffix).c_str(), BM_EngineChain)
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
  return true;
}();

}  // namespace
