#include "blocks/block_refs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>

#include "lumo/image/blocks.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/mipmaps.h"
#include "support/files.h"
#include "support/surfaces.h"

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
  if (a.Width() != b.Width() || a.Height() != b.Height() || a.Format() != formats::A8B8G8R8 ||
      b.Format() != formats::A8B8G8R8)
    return {};
  const std::string ta = Tight(a), tb = Tight(b);
  return Compare(std::vector<std::uint8_t>(ta.begin(), ta.end()), std::vector<std::uint8_t>(tb.begin(), tb.end()),
                 channels);
}

Difference Compare(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b, unsigned channels) {
  Difference d;
  if (a.size() != b.size()) return d;
  d.comparable = true;
  double sum = 0, squares = 0;
  unsigned long long n = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (((channels >> (i & 3)) & 1u) == 0) continue;
    const int diff = std::abs(int{a[i]} - int{b[i]});
    d.max = std::max(d.max, diff);
    sum += diff;
    squares += double(diff) * diff;
    ++n;
  }
  if (n == 0) return d;
  d.mean = sum / double(n);
  d.psnr = squares == 0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 * double(n) / squares);
  return d;
}

PixelFormatDescriptor Compressed(CompressFormat f, bool srgb) {
  return SetSRGB(static_cast<PixelFormatDescriptor>((static_cast<unsigned long long>(f) << 8) | 1u), srgb);
}

namespace {
std::vector<int> ValuesOf(PixelFormatDescriptor decoded, const char* px, std::size_t pitch, std::size_t w,
                          std::size_t rows, bool bottom_up) {
  decoded = SetSRGB(decoded, false);
  const bool wide =
      decoded == formats::A16B16G16R16 || decoded == formats::A16sB16sG16sR16s || decoded == formats::A16fB16fG16fR16f;
  std::vector<int> v(w * rows * 4);
  for (std::size_t y = 0; y < rows; ++y) {
    const char* row = px + (bottom_up ? rows - 1 - y : y) * pitch;
    for (std::size_t i = 0; i < w * 4; ++i) {
      std::uint16_t u = 0;
      if (wide) std::memcpy(&u, row + 2 * i, 2);
      v[y * w * 4 + i] = decoded == formats::A8sB8sG8sR8s       ? static_cast<std::int8_t>(row[i])
                         : !wide                                ? static_cast<std::uint8_t>(row[i])
                         : decoded == formats::A16sB16sG16sR16s ? static_cast<std::int16_t>(u)
                                                                : u;
    }
  }
  return v;
}
}  // namespace

std::vector<int> DecodeValues(PixelFormatDescriptor f, const Block& blocks, unsigned w, unsigned h, unsigned d) {
  unsigned long long divisor = 0;
  const std::size_t pitch = w * BytesPerPixel(blocks::DecodedFormat(f), &divisor);
  std::vector<char> out(pitch * h * d);
  if (!blocks::DecodeBlocks(f, blocks.data(), blocks.size(), w, h, d, out.data(), out.size(), pitch)) return {};
  return ValuesOf(blocks::DecodedFormat(f), out.data(), pitch, w, std::size_t{h} * d, false);
}

std::vector<int> Values(const SurfaceData& decoded, bool bottom_up) {
  return ValuesOf(decoded.Format(), decoded.Buffer(), decoded.BytesPerRow(), decoded.Width(), decoded.Height(),
                  bottom_up);
}

::testing::AssertionResult DecodesTo(PixelFormatDescriptor f, const Block& blocks, unsigned w, unsigned h,
                                     const std::vector<std::vector<int>>& want) {
  const std::vector<int> v = DecodeValues(f, blocks, w, h);
  if (v.empty()) return ::testing::AssertionFailure() << "decode failed";
  for (const auto& p : want)
    for (int c = 0; c < 4; ++c)
      if (v[4 * p[0] + c] != p[1 + c])
        return ::testing::AssertionFailure()
               << "pixel " << p[0] << " channel " << c << " is " << v[4 * p[0] + c] << ", expected " << p[1 + c];
  return ::testing::AssertionSuccess();
}

::testing::AssertionResult RandomBlocksDecode(PixelFormatDescriptor f, unsigned w, unsigned h, unsigned d, int rounds,
                                              const std::function<bool(const int* rgba)>& ok) {
  std::mt19937 rng(static_cast<unsigned>(static_cast<unsigned long long>(f) >> 8) * 7919u + w);
  Block blocks(d > 1 ? BytesTotal(f, w, h, d, 0) : BytesTotal(f, w, h, 0));
  for (int round = 0; round < rounds; ++round) {
    for (auto& b : blocks) b = static_cast<std::uint8_t>(rng());
    const std::vector<int> v = DecodeValues(f, blocks, w, h, d);
    if (v.empty()) return ::testing::AssertionFailure() << ToString(f) << " " << w << "x" << h << " does not decode";
    for (std::size_t i = 0; ok && i < v.size(); i += 4)
      if (!ok(&v[i]))
        return ::testing::AssertionFailure() << ToString(f) << " " << w << "x" << h << " pixel " << i / 4 << ": "
                                             << v[i] << "," << v[i + 1] << "," << v[i + 2] << "," << v[i + 3];
  }
  return ::testing::AssertionSuccess();
}

}  // namespace lumo::image::testing
