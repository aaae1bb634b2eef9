// Loading GPU texture files (DDS, KTX, PVR) with full mip chains through
// ImageFactory::Create from a shared buffer. Each file is written once,
// outside the timing, by the plugin's own writer. Loading only makes views
// over the buffer, so the time should not grow with the picture: each case is
// reported next to memcpy of the file's bytes measured earlier in the same run
// ("vs_memcpy", the time ratio; a tiny fraction that shrinks as files grow).
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <string>
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

const im::PixelFormatDescriptor kFormat = im::formats::A8R8G8B8;
constexpr unsigned long long kSides[] = {1024, 4096};

struct File {
  std::shared_ptr<char> data;
  size_t size = 0;
  unsigned long long levels = 0;
};

File MakeFile(im::ImageFormat container, unsigned long long side) {
  std::vector<std::shared_ptr<im::Mipmap>> levels;
  for (unsigned long long s = side; s >= 1; s /= 2) {
    auto data = im::SurfaceDataBitmap::Create(s, s, kFormat, 2);
    std::memset(data->Buffer(), static_cast<int>(s & 0xFF), data->Size());
    levels.push_back(std::make_shared<im::Surface>(data));
  }
  const auto pyramid = im::Pyramid::Make(levels, im::ImageOrigin::TopDown);
  File file;
  file.levels = levels.size();
  file.data = im::ImageFactory::Instance()->Serialize(container, pyramid.get(), &file.size, 0);
  return file;
}

void BM_Load(benchmark::State& state, im::ImageFormat container, unsigned long long side) {
  const File file = MakeFile(container, side);
  if (!file.data) {
    state.SkipWithError("the writer refused the chain");
    return;
  }
  const auto check = im::ImageFactory::Instance()->Create(file.data, file.size);
  if (!check || check->Format() != container || check->GetPyramid(false)->LevelsCurrent() != file.levels) {
    state.SkipWithError("the file did not load with all its levels");
    return;
  }
  const double seconds = SecondsPerIteration(state, [&] {
    auto image = im::ImageFactory::Instance()->Create(file.data, file.size);
    benchmark::DoNotOptimize(image.get());
  });
  ReportVsMemcpy(state, file.size, seconds);
}

// Memcpy baselines first (of each file's exact size), so every ratio has its
// baseline from this run.
[[maybe_unused]] const bool kRegistered = [] {
  const im::ImageFormat containers[] = {im::ImageFormat::DDS, im::ImageFormat::KTX, im::ImageFormat::PVR};
  for (const im::ImageFormat container : containers) {
    for (const unsigned long long side : kSides) RegisterMemcpy(MakeFile(container, side).size);
  }
  for (const im::ImageFormat container : containers) {
    for (const unsigned long long side : kSides) {
      const std::string name = std::string("Load") + im::ImageFactory::FormatToString(container) + "/A8R8G8B8_" +
                               std::to_string(side) + "_full_chain";
      benchmark::RegisterBenchmark(name.c_str(), BM_Load, container, side)
          ->Unit(benchmark::kMicrosecond)
          ->UseRealTime();
    }
  }
  return true;
}();

}  // namespace
