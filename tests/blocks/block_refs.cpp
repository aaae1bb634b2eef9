#include "blocks/block_refs.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "lumo/image/blocks.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/mipmaps.h"
#include "support/files.h"

namespace lumo::image::testing {

bool ToolAvailable(const std::string& tool) {
  return std::system(("command -v '" + tool + "' >/dev/null 2>&1").c_str()) == 0;
}

bool RunCommand(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

std::string ScratchPath(const std::string& name) {
  const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
  std::string test = info != nullptr ? std::string(info->test_suite_name()) + "_" + info->name() : "blocks";
  for (char& c : test)
    if (c == '/') c = '_';
  return ::testing::TempDir() + "lmimage_" + test + "_" + name;
}

std::shared_ptr<Pyramid> LoadPyramid(const std::string& path) {
  const std::optional<Bytes> bytes = ReadFile(path);
  if (!bytes) return Pyramid::Null;
  const std::shared_ptr<Image> image = Decode(*bytes);
  if (!image) return Pyramid::Null;
  return image->GetPyramid(false);
}

std::shared_ptr<SurfaceData> ToRGBA8(const Pyramid& pyramid, unsigned long long level, unsigned long long index) {
  const std::shared_ptr<Surface> surface = pyramid.GetSurface(level, index);
  if (!surface || !surface->Data()) return SurfaceData::Null;
  std::shared_ptr<SurfaceData> data = surface->Data();
  if (IsCompressed(data->Format())) data = blocks::DecodeCopy(*data);
  if (!data) return SurfaceData::Null;
  if (data == surface->Data()) data = data->CropCopy(0, 0, data->Width(), data->Height());  // own copy to change
  // Stored values are compared: an sRGB label is dropped, not converted to linear.
  if (data && IsSRGB(data->Format()) && !data->Reinterpret(SetSRGB(data->Format(), false))) return SurfaceData::Null;
  if (data && data->Format() != formats::A8B8G8R8) data = data->ConvertCopy(formats::A8B8G8R8);
  if (data && pyramid.Origin() == ImageOrigin::BottomUp && !data->FlipVertical()) return SurfaceData::Null;
  return data;
}

std::shared_ptr<SurfaceData> LoadRGBA8(const std::string& path, unsigned long long level, unsigned long long index) {
  const std::shared_ptr<Pyramid> pyramid = LoadPyramid(path);
  return pyramid ? ToRGBA8(*pyramid, level, index) : SurfaceData::Null;
}

Difference Compare(const SurfaceData& a, const SurfaceData& b, unsigned channels) {
  Difference d;
  if (a.Width() != b.Width() || a.Height() != b.Height() || a.Format() != formats::A8B8G8R8 ||
      b.Format() != formats::A8B8G8R8)
    return d;
  d.comparable = true;
  double sum = 0, squares = 0;
  unsigned long long n = 0;
  for (unsigned long long y = 0; y < a.Height(); ++y) {
    const auto* pa = reinterpret_cast<const std::uint8_t*>(a.Buffer() + y * a.BytesPerRow());
    const auto* pb = reinterpret_cast<const std::uint8_t*>(b.Buffer() + y * b.BytesPerRow());
    for (unsigned long long i = 0; i < a.Width() * 4; ++i) {
      if (((channels >> (i & 3)) & 1u) == 0) continue;
      const int diff = std::abs(int{pa[i]} - int{pb[i]});
      if (diff > d.max) d.max = diff;
      sum += diff;
      squares += double(diff) * diff;
      ++n;
    }
  }
  if (n == 0) return d;
  d.mean = sum / double(n);
  d.psnr = squares == 0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 * double(n) / squares);
  return d;
}

}  // namespace lumo::image::testing
