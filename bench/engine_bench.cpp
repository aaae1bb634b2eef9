// Built-in flip and rotate engines on 4-byte pixels, reported next to memcpy
// of the same number of output bytes measured earlier in the same run:
// "vs_memcpy" is the time ratio (1.0 = memcpy speed), left out when the memcpy
// benchmarks are filtered out.
#include <benchmark/benchmark.h>

#include <memory>

#include "bench_util.h"
#include "lumo/image/engines.h"
#include "lumo/image/formats.h"
#include "lumo/image/surface_data.h"

namespace {

namespace im = lumo::image;
using namespace lumo::image::bench;

constexpr unsigned long long kFlipSide = 4096;
constexpr unsigned long long kRotateSide = 2048;
const im::PixelFormatDescriptor kFormat = im::formats::A8R8G8B8;

// Bytes of a surface as the library lays it out, known before any is made so
// the baselines can be registered up front.
unsigned long long SurfaceBytes(unsigned long long side) { return im::BytesTotal(kFormat, side, side, 2); }

std::shared_ptr<im::SurfaceData> MakeSurface(unsigned long long side) {
  auto s = im::SurfaceDataBitmap::Create(side, side, kFormat, 2);
  // Distinct bytes, and every page touched before timing starts.
  for (unsigned long long i = 0; i < s->Size(); ++i) s->Buffer()[i] = static_cast<char>(i * 131 >> 3);
  return s;
}

void BM_FlipHorizontalInPlace(benchmark::State& state) {
  auto s = MakeSurface(kFlipSide);
  im::FlipEngine* engine = im::DefaultFlipEngine();
  const double seconds = SecondsPerIteration(state, [&] { benchmark::DoNotOptimize(engine->FlipHorizontal(s.get())); });
  ReportVsMemcpy(state, s->Size(), seconds);
}

void BM_FlipVerticalInPlace(benchmark::State& state) {
  auto s = MakeSurface(kFlipSide);
  im::FlipEngine* engine = im::DefaultFlipEngine();
  const double seconds = SecondsPerIteration(state, [&] { benchmark::DoNotOptimize(engine->FlipVertical(s.get())); });
  ReportVsMemcpy(state, s->Size(), seconds);
}

void BM_Rotate(benchmark::State& state) {
  const int degrees = static_cast<int>(state.range(0));
  auto src = MakeSurface(kRotateSide);
  auto dst = MakeSurface(kRotateSide);
  im::RotateEngine* engine = im::DefaultRotateEngine();
  const double seconds =
      SecondsPerIteration(state, [&] { benchmark::DoNotOptimize(engine->Rotate(src.get(), degrees, dst.get())); });
  ReportVsMemcpy(state, dst->Size(), seconds);
}

// Memcpy baselines first, so every ratio has its baseline from this run.
[[maybe_unused]] const bool kRegistered = [] {
  RegisterMemcpy(SurfaceBytes(kFlipSide));
  RegisterMemcpy(SurfaceBytes(kRotateSide));
  benchmark::RegisterBenchmark("BM_FlipHorizontalInPlace", BM_FlipHorizontalInPlace)
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
  benchmark::RegisterBenchmark("BM_FlipVerticalInPlace", BM_FlipVerticalInPlace)
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
  benchmark::RegisterBenchmark("BM_Rotate", BM_Rotate)
      ->Arg(90)
      ->Arg(270)
      ->Arg(180)
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
  return true;
}();

}  // namespace
