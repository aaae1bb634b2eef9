// The BMP plugin: the format each header and bit count reads as, palettes and
// both run-length codes, refusals and their log lines, and the writer's
// headers and channel order.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "lumo/image/formats.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/pyramid.h"
#include "support/bmp_files.h"
#include "support/bytes.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/surfaces.h"

namespace lumo::image {
namespace {

using testing::BMPBytes;
using testing::BMPFile;
using testing::BMPLayout;
using testing::BMPWords;
using testing::Bytes;

// Pixels of `indices` (one hex digit each) in the colours of `palette`.
std::string Pixels(const std::vector<std::string>& palette, const std::string& indices) {
  std::string out;
  for (char c : indices) out += palette.at(static_cast<size_t>(std::stoi(std::string(1, c), nullptr, 16)));
  return out;
}

TEST(BMPRead, FormatAndPixelsOfEveryLayout) {
  const std::string top = "\x11\x12\x13\x14\x15\x16", bottom = "\1\2\3\4\5\6", pad(2, '\0');
  std::vector<std::string> greys;
  for (int i = 0; i < 16; ++i) greys.push_back(std::string(3, static_cast<char>(i)));
  const struct {
    const char* name;
    BMPLayout layout;
    PixelFormatDescriptor format;
    std::string pixels;  // top row first, rows without padding
  } cases[] = {
      // clang-format off
      {"24-bit bottom-up", {40, 2, 2, 24, 0, 0, {}, {}, BMPBytes(bottom + pad + top + pad)}, formats::R8G8B8, top + bottom},
      {"24-bit top-down", {40, 2, -2, 24, 0, 0, {}, {}, BMPBytes(top + pad + bottom + pad)}, formats::R8G8B8, top + bottom},
      {"32-bit, fourth bytes 0", {40, 1, 2, 32, 0, 0, {}, {}, BMPWords({0x030201, 0x060504})}, formats::X8R8G8B8,
       std::string("\4\5\6\0\1\2\3\0", 8)},
      {"32-bit, one alpha", {40, 1, 2, 32, 0, 0, {}, {}, BMPWords({0x030201, 0x07060504})}, formats::A8R8G8B8,
       std::string("\4\5\6\7\1\2\3\0", 8)},
      {"32-bit, R G B A masks", testing::BMPRotatedLayout(), formats::A8R8G8B8,
       std::string("\1\2\3\x80\4\5\6\0\7\x08\x09\0\x0a\x0b\x0c\x40", 16)},
      {"palette, reserved bytes 0", {40, 2, 1, 8, 0, 2, {}, BMPWords({0x112233, 0x445566}), BMPWords({1})},
       formats::A8R8G8B8, "\x66\x55\x44\xff\x33\x22\x11\xff"},
      {"palette with alpha", {40, 2, 1, 8, 0, 2, {}, BMPWords({0x80112233, 0}), BMPWords({1})}, formats::A8R8G8B8,
       std::string("\0\0\0\0\x33\x22\x11\x80", 8)},
      {"16-bit, 5-6-5 masks", {40, 1, 1, 16, 3, 0, BMPWords({0xF800, 0x7E0, 0x1F}), {}, BMPWords({0x1234})},
       formats::R5G6B5, "\x34\x12"},
      {"16-bit, no masks", {40, 1, 1, 16, 0, 0, {}, {}, BMPWords({0x1234})}, formats::A1R5G5B5, "\x34\x12"},
      {"OS/2 core, 1-bit", testing::BMPCoreLayout(), formats::R8G8B8,
       Pixels({"\x10\x20\x30", "\x40\x50\x60"}, "010110100101001011")},
      {"OS/2 2.x, 5-byte entries", testing::BMPOddEntriesLayout(), formats::R8G8B8,
       Pixels({"\1\2\3", "\6\7\x08"}, "010101")},
      {"RLE8", testing::BMPRle8Layout(), formats::A8R8G8B8,
       Pixels({std::string("\0\0\0\xff", 4), std::string("\xff\0\0\xff", 4), std::string("\0\xff\0\xff", 4),
               std::string("\0\0\xff\xff", 4)},
              "333333022000000000111231")},
      {"RLE4", testing::BMPRle4Layout(), formats::R8G8B8, Pixels(greys, "000aba000000001212134")},
      // clang-format on
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Bytes file = BMPFile(c.layout);
    for (char second : {'M', 'A'}) {  // "BA" files read as plain bitmaps
      file[1] = second;
      const auto image = testing::Decode(file);
      ASSERT_TRUE(image);
      const auto data = image->GetPyramid(false)->GetSurface(0)->Data();
      EXPECT_EQ(ToString(data->Format()), ToString(c.format));
      EXPECT_EQ(testing::Tight(*data), c.pixels);
    }
  }
}

TEST(BMPRead, RefusalsAndTheirLogLines) {
  const struct {
    const char* name;
    BMPLayout layout;
    const char* logged;
  } cases[] = {
      {"header size 20", {20, 1, 1, 24, 0, 0, {}, {}, Bytes(16)}, ""},
      {"core, 7 bits", {12, 1, 1, 7, 0, 0, {}, {}, Bytes(4)}, "Unsupport "},
      {"Windows, 7 bits", {40, 1, 1, 7, 0, 0, {}, {}, Bytes(4)}, ""},
      {"palette, compression 5", {40, 1, 1, 8, 5, 0, {}, Bytes(1024), Bytes(4)}, "Unknown compression"},
      {"no pixel data", {40, 1, 1, 24, 0, 0, {}, {}, {}}, ""},
      {"zero width", {40, 0, 1, 24, 0, 0, {}, {}, Bytes(4)}, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    testing::LogCapture log;
    EXPECT_EQ(testing::Decode(BMPFile(c.layout)), Image::Null);
    EXPECT_TRUE(log.OnlyLineContains(c.logged));
  }
}

Bytes Write(const SurfaceData& surface, int flags = ISF_BMP_DEFAULT) {
  size_t size = 0;
  const auto file = ImageFactory::Instance()->Serialize(ImageFormat::BMP, &surface, &size, flags);
  return file ? Bytes(file.get(), file.get() + size) : Bytes();
}

TEST(BMPWrite, HeadersChannelOrderAndReadBack) {
  const struct {
    PixelFormatDescriptor format;
    std::string in, out;  // one pixel
    Bytes masks;
    PixelFormatDescriptor read_as;
  } cases[] = {
      {formats::B5G6R5, "\x34\x12", "\x22\xa2", BMPWords({0xF800, 0x7E0, 0x1F}), formats::R5G6B5},
      {formats::A1B5G5R5, "\x34\x92", "\x24\xd2", BMPWords({0x7C00, 0x3E0, 0x1F}), formats::A1R5G5B5},
      {formats::R5G6B5, "\x34\x12", "\x34\x12", BMPWords({0xF800, 0x7E0, 0x1F}), formats::R5G6B5},
      {formats::B8G8R8, "\1\2\3", "\3\2\1", {}, formats::R8G8B8},
      {formats::X8B8G8R8, "\1\2\3\4", "\3\2\1\4", {}, formats::A8R8G8B8},
      {formats::s_X8R8G8B8, std::string("\1\2\3\0", 4), std::string("\1\2\3\0", 4), {}, formats::X8R8G8B8},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(ToString(c.format));
    auto s = SurfaceDataBitmap::Create(2, 1, c.format, 2);
    std::copy(c.in.begin(), c.in.end(), s->Buffer());
    std::copy(c.in.begin(), c.in.end(), s->Buffer() + c.in.size());
    const Bytes file = Write(*s);
    const size_t offset = 54 + c.masks.size(), row = (2 * c.in.size() + 3) / 4 * 4;
    ASSERT_EQ(file.size(), offset + row);
    EXPECT_EQ(std::make_tuple(testing::Get32(file, 10), testing::Get16(file, 28), testing::Get32(file, 30)),
              std::make_tuple(offset, 8 * c.in.size(), c.masks.empty() ? 0u : 3u));
    EXPECT_EQ(Bytes(file.begin() + 54, file.begin() + static_cast<long>(offset)), c.masks);
    EXPECT_EQ(std::string(file.data() + offset, row), (c.out + c.out).append(row - 2 * c.out.size(), '\0'));
    EXPECT_EQ(Write(*s, ISF_BMP_SAVE_RLE), file);
    EXPECT_EQ(testing::Decode(file)->GetPyramid(false)->GetSurface(0)->Data()->Format(), c.read_as);
  }
}

TEST(BMPWrite, SwappedTwinsGiveOneFileAndOtherFormatsAreRefused) {
  const auto rgb = testing::Filled(5, 3, formats::R8G8B8, 9)->Data();
  auto bgr = SurfaceDataBitmap::Create(5, 3, formats::B8G8R8, 2);
  for (unsigned long long y = 0; y < 3; ++y) {
    for (unsigned long long i = y * 16; i < y * 16 + 15; ++i) {
      bgr->Buffer()[i] = rgb->Buffer()[i + 2 - 2 * (i % 16 % 3)];
    }
  }
  EXPECT_EQ(Write(*bgr), Write(*rgb));
  EXPECT_TRUE(testing::RoundTrips(*Pyramid::Make(testing::Filled(7, 5, formats::R8G8B8, 3), ImageOrigin::TopDown),
                                  ImageFormat::BMP));

  testing::LogCapture log;
  EXPECT_TRUE(Write(*SurfaceDataBitmap::Create(2, 2, formats::A8, 2)).empty());
  EXPECT_TRUE(log.OnlyLineContains("Can not serialize format A8 to bmp"));
}

}  // namespace
}  // namespace lumo::image
