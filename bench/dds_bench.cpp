// Loading a 4096 x 4096 A8R8G8B8 DDS file with its full mip chain (13
// levels) through ImageFactory::Create from a shared buffer. The file is
// written once, outside the timing, by the plugin's own writer. Loading only
// makes views over the buffer, so it is reported next to memcpy of the file's
// bytes measured earlier in the same run: "vs_memcpy" is the time ratio (1.0 =
// memcpy speed) and should be a tiny fraction.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <vector>

#include "bench_util.h"
#include "lumo/image/formats.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/mipmaps.h"
#include "lumo/image/pyramid.h"
#include "lumo/image/surface_data.h"

namespace {

namespace im = lumo::image;
using namespace lumo::image::bench;

constexpr unsigned long long kSide = 4096;
const im::PixelFormatDescriptor kFormat = im::formats::A8R8G8B8;

// Header plus every level with tight rows, as the file stores them.
unsigned long long FileBytes() {
  unsigned long long bytes = 128;
  for (unsigned long long side = kSide; side >= 1; side /= 2) bytes += im::BytesTotal(kFormat, side, side, 0);
  return bytes;
}

struct File {
  std::shared_ptr<char> data;
  size_t size = 0;
};

File MakeFile() {
  std::vector<std::shared_ptr<im::Mipmap>> levels;
  for (unsigned long long side = kSide; side >= 1; side /= 2) {
    auto data = im::SurfaceDataBitmap::Create(side, side, kFormat, 2);
    std::memset(data->Buffer(), static_cast<int>(side & 0xFF), data->Size());
    levels.push_back(std::make_shared<im::Surface>(data));
  }
  const auto pyramid = im::Pyramid::Make(levels, im::ImageOrigin::TopDown);
  File file;
  file.data = im::ImageFactory::Instance()->Serialize(im::ImageFormat::DDS, pyramid.get(), &file.size, 0);
  return file;
}

void BM_LoadDDS(benchmark::State& state) {
  const File file = MakeFile();
  if (!file.data || file.size != FileBytes()) {
    state.SkipWithError("the DDS writer did not produce the expected file");
    return;
  }
  const auto check = im::ImageFactory::Instance()->Create(file.data, file.size);
  if (!check || check->GetPyramid(false)->LevelsCurrent() != 13) {
    state.SkipWithError("the file did not load with its 13 levels");
    return;
  }
  const double seconds = SecondsPerIteration(state, [&] {
    auto image = im::ImageFactory::Instance()->Create(file.data, file.size);
    benchmark::DoNotOptimize(image.get());
  });
  ReportVsMemcpy(state, file.size, seconds);
}

// Memcpy baseline first, so the ratio has its baseline from this run.
[[maybe_unused]] const bool kRegistered = [] {
  RegisterMemcpy(FileBytes());
  benchmark::RegisterBenchmark("LoadDDS/A8R8G8B8_4096_full_chain", BM_LoadDDS)
      ->Unit(benchmark::kMicrosecond)
      ->UseRealTime();
  return true;
}();

}  // namespace
