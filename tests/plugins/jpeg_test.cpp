// The JPEG plugin: what each writable layout turns into, the quality flags,
// the refusals, and how hostile headers and corrupt data end.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "lumo/image/formats.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/pyramid.h"
#include "lumo/image/surface_data.h"
#include "support/bytes.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/surfaces.h"

namespace lumo::image {
namespace {

using testing::Bytes;
using ull = unsigned long long;

constexpr ull kW = 37, kH = 21;  // odd sizes: partial blocks and padded rows

// The test picture's R, G, B at (x, y): gradients with a little texture.
void Rgb(ull x, ull y, unsigned char rgb[3]) {
  rgb[0] = static_cast<unsigned char>(x * 6 + (y & 3) * 9);
  rgb[1] = static_cast<unsigned char>(y * 11 + (x % 5) * 7);
  rgb[2] = static_cast<unsigned char>(40 + x * 3 + y * 4 + ((x * y) & 7));
}

// How a writable format stores the picture: bytes per pixel, bits of red and
// blue, of green, and whether red is in byte 0 (or bits 0-4).
struct Layout {
  PixelFormatDescriptor format;
  unsigned bytes, bits, green_bits;
  bool red_low;
};
const Layout kRGB{formats::B8G8R8, 3, 8, 8, true};

// The picture with each channel cut to the bits of `cut` (kept high), stored as `layout`.
std::shared_ptr<SurfaceDataBitmap> Picture(const Layout& layout, const Layout& cut) {
  const auto s = SurfaceDataBitmap::Create(kW, kH, layout.format, 2);
  for (ull y = 0; y < kH; ++y) {
    auto* p = reinterpret_cast<unsigned char*>(s->Buffer() + y * s->BytesPerRow());
    for (ull x = 0; x < kW; ++x, p += layout.bytes) {
      unsigned char c[3];
      Rgb(x, y, c);
      const unsigned g = c[1] >> (8 - cut.green_bits) << (8 - cut.green_bits);
      const unsigned r = c[0] >> (8 - cut.bits) << (8 - cut.bits), b = c[2] >> (8 - cut.bits) << (8 - cut.bits);
      const unsigned low = layout.red_low ? r : b, high = layout.red_low ? b : r;
      if (layout.bytes == 2) {
        const unsigned v = low >> 3 | (g >> (8 - layout.green_bits)) << 5 | (high >> 3) << (5 + layout.green_bits);
        p[0] = static_cast<unsigned char>(v);
        p[1] =
            static_cast<unsigned char>(v >> 8 | (layout.green_bits == 5 ? x & 1 : 0) << 7);  // 1-5-5-5 alpha: dropped
        continue;
      }
      p[0] = static_cast<unsigned char>(low);
      p[1] = static_cast<unsigned char>(g);
      p[2] = static_cast<unsigned char>(high);
      if (layout.bytes == 4) p[3] = static_cast<unsigned char>(x * 31 + y);  // alpha or filler, dropped
    }
  }
  return s;
}

Bytes Write(const SurfaceData& s, int flags = 0) {
  size_t size = 0;
  const std::shared_ptr<char> file = ImageFactory::Instance()->Serialize(ImageFormat::JPG, &s, &size, flags);
  return file ? Bytes(file.get(), file.get() + size) : Bytes();
}

TEST(JPEG, EveryWritableLayoutWritesTheFileOfItsRGBPicture) {
  // 5-bit fields are written shifted up with their low bits clear; alpha and filler bytes drop.
  const Layout rows[] = {
      {formats::R8G8B8, 3, 8, 8, false},     {formats::B8G8R8, 3, 8, 8, true},
      {formats::A8R8G8B8, 4, 8, 8, false},   {formats::A8B8G8R8, 4, 8, 8, true},
      {formats::X8R8G8B8, 4, 8, 8, false},   {formats::X8B8G8R8, 4, 8, 8, true},
      {formats::s_X8R8G8B8, 4, 8, 8, false}, {formats::s_A8B8G8R8, 4, 8, 8, true},
      {formats::s_A8R8G8B8, 4, 8, 8, false}, {formats::A1R5G5B5, 2, 5, 5, false},
      {formats::A1B5G5R5, 2, 5, 5, true},    {formats::R5G6B5, 2, 5, 6, false},
      {formats::B5G6R5, 2, 5, 6, true},
  };
  testing::LogCapture log;
  for (const Layout& row : rows) {
    SCOPED_TRACE(ToString(row.format));
    const Bytes expected = Write(*Picture(kRGB, row));
    ASSERT_FALSE(expected.empty());
    EXPECT_TRUE(Write(*Picture(row, row)) == expected);
  }
  EXPECT_TRUE(log.lines.empty()) << log.All();
}

TEST(JPEG, QualityFlags) {
  const auto picture = Picture(kRGB, kRGB);
  const Bytes normal = Write(*picture, ISF_JPEG_QUALITYNORMAL);
  // Anything but exactly one flag is normal quality.
  for (int flags : {0, ISF_JPEG_QUALITYGOOD | ISF_JPEG_QUALITYBAD, 1, ISF_PNG_INTERLACED | 0x1000}) {
    EXPECT_TRUE(Write(*picture, flags) == normal) << flags;
  }
  // Better settings keep more: strictly larger files from worst to best.
  size_t smaller = 0;
  for (int flags : {ISF_JPEG_QUALITYBAD, ISF_JPEG_QUALITYAVERAGE, ISF_JPEG_QUALITYNORMAL, ISF_JPEG_QUALITYGOOD,
                    ISF_JPEG_QUALITYSUPERB}) {
    const size_t size = Write(*picture, flags).size();
    EXPECT_GT(size, smaller) << flags;
    smaller = size;
  }
}

TEST(JPEG, RefusesWhatItCannotWrite) {
  for (const PixelFormatDescriptor format : {formats::R16, formats::A16R16G16B16, formats::A4R4G4B4}) {
    testing::LogCapture log;
    size_t size = 77;
    const auto surface = SurfaceDataBitmap::Create(4, 4, format, 2);
    EXPECT_FALSE(ImageFactory::Instance()->Serialize(ImageFormat::JPG, surface.get(), &size, 0));
    EXPECT_EQ(size, 77u);
    EXPECT_TRUE(log.OnlyLineContains("Can not convert format " + ToString(format) + " to jpg"));
  }
}

// The offset of the first marker FF `code` (0 when there is none).
size_t Marker(const Bytes& file, unsigned code) {
  for (size_t i = 2; i + 9 < file.size(); ++i) {
    if (static_cast<unsigned char>(file[i]) == 0xFF && static_cast<unsigned char>(file[i + 1]) == code) return i;
  }
  return 0;
}

// The file with its frame header (baseline or progressive) declaring `width` x `height`.
Bytes WithSize(Bytes file, unsigned width, unsigned height) {
  const size_t at = Marker(file, 0xC0) != 0 ? Marker(file, 0xC0) : Marker(file, 0xC2);
  EXPECT_NE(at, 0u) << "no frame header";
  testing::Put16BE(&file, at + 5, height);  // after the marker, its length and the precision
  testing::Put16BE(&file, at + 7, width);
  return file;
}

TEST(JPEG, HostileHeadersAndCorruptDataEndInOneLine) {
  const Bytes file = Write(*Picture(kRGB, kRGB));
  // Markers all over the coded data: libjpeg recovers each time, far too
  // often to trust the picture, and the warnings are not repeated.
  Bytes markers = Write(*testing::Filled(128, 128, formats::B8G8R8, 5)->Data());
  for (size_t i = Marker(markers, 0xDA) + 20; i + 4 < markers.size(); i += 3) {
    markers[i] = '\xFF', markers[i + 1] = '\xD0';
  }
  // A progressive file declaring 16000 x 16000 (within the decode limit) would
  // need 768 MB of coefficients before any data is read: libjpeg's own memory is bounded.
  const auto progressive = testing::ReadFile(testing::CorpusDir() + "/jpeg/cjpeg_progressive.jpg");
  const struct {
    const char* name;
    Bytes file;  // empty: the corpus is missing
    const char* logged;
  } cases[] = {
      {"60000 x 60000", WithSize(file, 60000, 60000), "JPEG image of 60000 x 60000 pixels exceeds the decode limit"},
      {"progressive 16000 x 16000", progressive ? WithSize(*progressive, 16000, 16000) : Bytes(), "JPEG Error: "},
      {"markers in the coded data", markers, "too many warnings"},
      {"cut in the header", Bytes(file.begin(), file.begin() + 20), "JPEG Error: "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.file.empty()) continue;
    testing::LogCapture log;
    EXPECT_FALSE(testing::Decode(c.file, ImageFormat::JPG));
    EXPECT_TRUE(log.OnlyLineContains(c.logged));
  }
}

TEST(JPEG, CutShortLoadsWithOneWarning) {
  const Bytes file = Write(*Picture(kRGB, kRGB));
  const size_t middle = (Marker(file, 0xDA) + file.size()) / 2;  // half way into the coded data
  // Read as JPG, as detection wants the end marker: the rest is grey, one warning.
  testing::LogCapture log;
  const auto image = testing::Decode(Bytes(file.begin(), file.begin() + static_cast<long>(middle)), ImageFormat::JPG);
  ASSERT_TRUE(image);
  ASSERT_EQ(log.lines.size(), 1u) << log.All();
  EXPECT_EQ(log.lines[0].severity, log::Severity::Warning);
  // B8G8R8 rows of 37 pixels are padded by one byte, which is cleared.
  const auto data = image->GetPyramid(false)->GetSurface(0)->Data();
  ASSERT_EQ(std::make_tuple(data->Format(), data->BytesPerRow()), std::make_tuple(formats::B8G8R8, kW * 3 + 1));
  for (ull y = 0; y < kH; ++y) EXPECT_EQ(data->Buffer()[y * data->BytesPerRow() + kW * 3], 0) << y;
}

}  // namespace
}  // namespace lumo::image
