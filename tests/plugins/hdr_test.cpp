// The HDR plugin.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "lumo/image/formats.h"
#include "lumo/image/half.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/pyramid.h"
#include "support/files.h"
#include "support/hdr_files.h"
#include "support/log_capture.h"
#include "support/surfaces.h"

namespace lumo::image {
namespace {

using testing::Bytes;
using testing::HDRFile;
using namespace std::string_literals;  // "..."s keeps embedded zeros

std::string Flat(int pixels, const std::string& rgbe) {
  std::string s;
  for (int i = 0; i < pixels; ++i) s += rgbe;
  return s;
}

// The decoded halves of pixel i: R, G, B, A.
std::vector<float> Pixel(Image& image, size_t i) {
  const auto data = image.GetPyramid(false)->GetSurface(0)->Data();
  std::vector<float> v;
  for (size_t c = 0; c < 4; ++c) {
    std::uint16_t bits = 0;
    const size_t x = i % data->Width(), y = i / data->Width();
    std::memcpy(&bits, data->Buffer() + y * data->BytesPerRow() + x * 8 + c * 2, 2);
    v.push_back(half_float::half::FromBits(bits));
  }
  return v;
}

TEST(HDR, SignatureNeedsAKnownMagicLineAndSixteenBytes) {
  for (const std::string magic : {"#?RADIANCE\n", "#?RGBE\n", "#?AUTOPANO\n", "#?RADIANCE "}) {
    const std::string file = magic + "FORMAT=32-bit_rle_rgbe\n";
    EXPECT_EQ(ImageFactory::Instance()->GetFormat(file.data(), file.size()) == ImageFormat::HDR, magic.back() == '\n');
    EXPECT_FALSE(ImageFactory::Instance()->CheckFormat(ImageFormat::HDR, file.data(), 15));
  }
}

// Header lines and scanlines: what the first pixel decodes to, or the message.
TEST(HDR, HeadersAndScanlines) {
  const std::string one = "\x80\x80\x80\x81", ones = Flat(8, one);  // 1.0 in each colour
  const std::string rle = testing::HDRRleRow(8, "\x88\x80\x88\x80\x88\x80\x88\x81");
  const std::string rgbe = "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n";
  struct Case {
    std::string header, resolution, scanlines;
    float red;            // of the first pixel when it loads
    const char* message;  // when refused
  } cases[] = {
      {rgbe, "-Y 4 +X 8", Flat(32, one), 1.0f, nullptr},
      {rgbe, "+Y 4 +X 8", Flat(32, one), 1.0f, nullptr},
      {rgbe + "EXPOSURE=2\n", "-Y 1 +X 8", ones, 0.5f, nullptr},
      {rgbe + "EXPOSURE=0\n", "-Y 1 +X 8", ones, 1.0f, nullptr},
      {rgbe + "EXPOSURE=2\nEXPOSURE=4\nGAMMA=1\n", "-Y 1 +X 8", ones, 0.25f, nullptr},
      {rgbe, "-Y 2 +X 8", rle + rle, 1.0f, nullptr},
      {rgbe, "-Y 1 +X 8", "\x02\x02\x00\x09"s + Flat(7, one), 0, nullptr},  // another width: a flat pixel
      {"#?RADIANCE\n\n", "-Y 1 +X 8", ones, 0, "Unsupported hdr image format 32-bit_rle_xyze"},
      {"#?RADIANCE\nFORMAT=32-bit_rle_xyze\n", "-Y 1 +X 8", ones, 0, "Unsupported hdr image format"},
      {"#?RADIANCE\nFORMAT=32-bit_rle_rgbe\r\n", "-Y 1 +X 8", ones, 0, "Unsupported hdr image format"},
      {rgbe + "GAMMA=2.2\n", "-Y 1 +X 8", ones, 0, "gamma currently not support in hdr image format"},
      {rgbe, "-Y 1 +X", ones, 0, "Invalid Image size"},
      {rgbe, "-Y 1 +X 0", "", 0, "Invalid Image size"},
      {rgbe, "Y 1 X 8", ones, 0, "Invalid Image size"},
      {rgbe, "-Y 1 +X 8", testing::HDRRleRow(8, "\0\x88\x80\x88\x80\x88\x80\x88\x81"s), 0, "rle scanline error"},
      {rgbe, "-Y 1 +X 8", testing::HDRRleRow(8, "\x89\x80\x88\x80\x88\x80\x88\x81"), 0, "rle scanline error"},
      {rgbe, "-Y 1 +X 8", testing::HDRRleRow(8, "\x09" + Flat(9, "\x80")), 0, "rle scanline error"},
      {rgbe, "-Y 2 +X 8", Flat(15, one), 0, "unexpected end of data"},
      {rgbe, "-Y 1 +X 8", rle.substr(0, 10), 0, "unexpected end of data"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.header + c.resolution);
    testing::LogCapture log;
    const auto image = testing::Decode(HDRFile(c.header, c.resolution, c.scanlines));
    if (c.message != nullptr) {
      EXPECT_EQ(image, Image::Null);
      EXPECT_TRUE(log.OnlyLineContains(std::string("Read .hdr file failed. Error message: ") + c.message));
      continue;
    }
    ASSERT_NE(image, Image::Null) << log.All();
    EXPECT_EQ(image->GetPyramid(false)->Format(), formats::A16fB16fG16fR16f);
    EXPECT_EQ(Pixel(*image, 0), (std::vector<float>{c.red, c.red, c.red, 1.0f}));
  }
}

// Every mantissa at exponents across the half range, against the nearest
// half (ties to even) of m * 2^(e-136) / exposure. A half midpoint times the
// exposure is exact in a double, so the comparison is too.
TEST(HDR, PixelsAreTheNearestHalf) {
  const int exponents[] = {1, 100, 111, 112, 113, 121, 122, 128, 136, 143, 151, 152, 153, 160};
  for (const float exposure : {1.0f, 3.0f, 0.7f, 1e-3f}) {
    SCOPED_TRACE(exposure);
    std::string rows;
    for (const int e : exponents) {
      for (int m = 0; m < 256; ++m)
        rows += std::string{static_cast<char>(m), 0, static_cast<char>(m), static_cast<char>(e)};
    }
    const auto image =
        testing::Decode(HDRFile("#?RADIANCE\nFORMAT=32-bit_rle_rgbe\nEXPOSURE=" + std::to_string(exposure) + "\n",
                                "-Y " + std::to_string(std::size(exponents)) + " +X 256", rows));
    ASSERT_NE(image, Image::Null);
    const float x = std::stof(std::to_string(exposure));  // as the file states it
    for (size_t i = 0; i < rows.size() / 4; ++i) {
      const std::vector<float> p = Pixel(*image, i);
      const double exact = std::ldexp(static_cast<double>(i % 256), exponents[i / 256] - 136);  // times exposure
      ASSERT_EQ(p[1], 0.0f);
      ASSERT_EQ(p[0], p[2]);
      const auto bits = half_float::half(p[0]).bits();
      const auto at = [](int b) {  // infinity where rounding sees it: 2^16
        return b >= 0x7C00 ? 65536.0 : static_cast<double>(half_float::half::FromBits(static_cast<std::uint16_t>(b)));
      };
      const double below = bits == 0 ? -1.0 : (at(bits - 1) + at(bits)) / 2 * x;
      const double above = bits >= 0x7C00 ? INFINITY : (at(bits) + at(bits + 1)) / 2 * x;
      const bool even = bits % 2 == 0;
      ASSERT_TRUE((even ? below <= exact : below < exact) && (even ? exact <= above : exact < above))
          << "pixel " << i << ": " << p[0];
    }
  }
}

// Run packets of 4 to 127 equal bytes; a lone short run before one as a run
// packet of its own; everything else in literal packets.
TEST(HDR, RunLengthPlanesAreExact) {
  std::vector<float> rgb;
  for (const int r : {129, 129, 130, 131, 131, 131, 131, 131, 132, 133, 133, 134}) {
    rgb.insert(rgb.end(), {static_cast<float>(r) / 256, 0.0f, 0.0f});
  }
  const Bytes file = testing::WriteHDR(*testing::RgbSurface(12, 1, rgb), ISF_HDR_RLE);
  const std::string header = "#?RADIANCE\nPRIMARIES=0 0 0 0 0 0 0 0\nFORMAT=32-bit_rle_rgbe\n\n-Y 1 +X 12\n";
  EXPECT_EQ(std::string(file.begin(), file.end()),
            header + testing::HDRRleRow(12, "\x03\x81\x81\x82\x85\x83\x04\x84\x85\x85\x86\x8c\x00\x8c\x00\x8c\x80"s));

  std::vector<float> runs;  // a short run then a long one, and a run longer than a packet
  for (int i = 0; i < 300; ++i) runs.insert(runs.end(), {i < 3 ? 0.75f : 0.5f, i < 200 ? 1.0f : 2.0f, 0.0f});
  const Bytes rle = testing::WriteHDR(*testing::RgbSurface(300, 1, runs), ISF_HDR_RLE);
  const std::string planes =
      "\x83\x60\xff\x40\xc6\x40\xe4\x20"
      "\xff\x80\xff\x80\xae\x80"
      "\xff\x00\xff\x00\xae\x00"
      "\xff\x81\xc9\x81\xe4\x82"s;
  EXPECT_EQ(std::string(rle.end() - 30, rle.end()), testing::HDRRleRow(300, planes));
}

TEST(HDR, WritesFloatSurfacesOfOneToFourChannels) {
  struct Case {
    const char* format;
    std::vector<float> values;  // the pixel's components in memory order
    std::vector<float> rgb;     // as read back
  } cases[] = {
      {"R16f", {2.0f}, {2, 2, 2}},
      {"G16fR16f", {0.5f, 4.0f}, {0.5f, 4, 0}},
      {"R32fG32f", {4.0f, 0.5f}, {0.5f, 4, 0}},
      {"B16fG16fR16f", {1, 2, 4}, {1, 2, 4}},
      {"R32fG32fB32f", {1, 2, 4}, {4, 2, 1}},
      {"A16fR16fG16fB16f", {1, 2, 4, 0.25f}, {4, 2, 1}},
      {"A32fB32fG32fR32f", {1, 2, 4, 0.25f}, {1, 2, 4}},
      // Beyond RGBE: NaN and negatives give 0, huge values the largest code.
      {"A32fB32fG32fR32f", {NAN, -1, INFINITY, 0}, {0, 0, INFINITY}},
      {"A32fB32fG32fR32f", {1e-33f, 1e-33f, 1e-33f, 0}, {0, 0, 0}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.format);
    PixelFormatDescriptor format{};
    ASSERT_TRUE(FromString(c.format, &format));
    const bool wide = std::string(c.format).find("32") != std::string::npos;
    auto surface = SurfaceDataBitmap::Create(8, 1, format, 2);
    for (size_t i = 0; i < 8 * c.values.size(); ++i) {
      const float v = c.values[i % c.values.size()];
      const half_float::half h(v);
      std::memcpy(surface->Buffer() + i * (wide ? 4 : 2), wide ? static_cast<const void*>(&v) : &h, wide ? 4 : 2);
    }
    for (const int flags : {ISF_HDR_NOCOMPRESS, ISF_HDR_RLE}) {
      const Bytes file = testing::WriteHDR(*surface, flags);
      EXPECT_TRUE(flags != 0 || file.size() == 71 + 8 * 4);  // header and pixels
      const auto image = testing::Decode(file);
      ASSERT_NE(image, Image::Null);
      EXPECT_EQ(Pixel(*image, 7), (std::vector<float>{c.rgb[0], c.rgb[1], c.rgb[2], 1.0f}));
    }
  }
  testing::LogCapture log;
  EXPECT_TRUE(testing::WriteHDR(*SurfaceDataBitmap::Create(4, 4, formats::R32f, 2), 0).empty());
  EXPECT_TRUE(log.OnlyLineContains("Can not convert format R32f to hdr"));
}

}  // namespace
}  // namespace lumo::image
