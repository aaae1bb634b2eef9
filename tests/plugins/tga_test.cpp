// The TGA plugin: detection, the format of every header, orientation, colour
// maps, short files, and the writer's exact packets and channel swaps.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "lumo/image/formats.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/pyramid.h"
#include "lumo/image/surface_data.h"
#include "support/bytes.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/surfaces.h"
#include "support/tga_files.h"

namespace lumo::image {
namespace {

using testing::Bytes;
using testing::Str;
using testing::TGAFile;
using testing::TGARaw;
using testing::TGARun;

// "FORMAT:tight pixels" of a file decoded as TGA, or "Null".
std::string Pixels(const Bytes& file) {
  const auto image = testing::Decode(file, ImageFormat::TGA);
  if (!image) return "Null";
  const auto data = image->GetPyramid(false)->GetSurface(0)->Data();
  return ToString(data->Format()) + ":" + testing::Tight(*data);
}

TEST(TGA, DetectsByHeaderOrFooter) {
  ImageFactory* f = ImageFactory::Instance();
  const auto check = [&](const Bytes& b) { return f->CheckFormat(ImageFormat::TGA, b.data(), b.size()); };
  EXPECT_TRUE(check(TGAFile({2, 24}, "", "abc")));
  EXPECT_TRUE(check(TGAFile({11, 8}, "", "ab")));
  EXPECT_FALSE(check(TGAFile({2, 15}, "", "ab")));  // read all the same when asked to (below)
  EXPECT_FALSE(check(TGAFile({4, 24}, "", "abc")));
  EXPECT_TRUE(check(TGAFile({0x7f, 5}, "", "abc", true)));
  EXPECT_FALSE(check(Bytes(17, 2)));
}

TEST(TGA, FormatOfEveryHeader) {
  // clang-format off
  const struct { testing::TGAHeader h; const char* format; } cases[] = {
      {{2, 24}, "R8G8B8"}, {{2, 32}, "A8R8G8B8"}, {{2, 16}, "A1R5G5B5"}, {{3, 8}, "A8"}, {{3, 16}, "R16"},
      {{3, 32}, "R32"}, {{2, 15}, "A1R5G5B5"}, {{2, 8}, "Null"}, {{3, 24}, "Null"}, {{3, 15}, "Null"}, {{2, 24, 0, 0, 1}, "Null"},
      {{1, 16, 0, 1, 1, 0, 1, 24}, "Null"},  // 16-bit indices
      {{1, 8, 0, 1, 1, 0, 1, 8}, "Null"}};   // 8-bit map entries
  // clang-format on
  for (const auto& c : cases) {
    const std::string got = Pixels(TGAFile(c.h, "mmmm", "abcd"));
    EXPECT_EQ(got.substr(0, got.find(':')), c.format) << c.h.type << "/" << c.h.depth;
  }
}

// One 3 x 2 picture (top row a b c, bottom row d e f) stored every way.
TEST(TGA, EveryOrientationAndPacketingGivesThePicture) {
  const std::string top = "aaabbbccc", bottom = "dddeeefff";
  auto mirror = [](const std::string& row) { return row.substr(6, 3) + row.substr(3, 3) + row.substr(0, 3); };
  for (int descriptor : {0x00, 0x10, 0x20, 0x30}) {
    const bool mirrored = (descriptor & 0x10) != 0;
    const std::string t = mirrored ? mirror(top) : top, b = mirrored ? mirror(bottom) : bottom;
    const std::string stored = (descriptor & 0x20) != 0 ? t + b : b + t;
    // raw, and one run-length stream whose packets cross the row end
    const std::string rle = TGARaw(stored.substr(0, 6), 3) + TGARaw(stored.substr(6, 12), 3);
    EXPECT_EQ(Pixels(TGAFile({2, 24, descriptor, 3, 2}, "", stored)), "R8G8B8:" + top + bottom);
    EXPECT_EQ(Pixels(TGAFile({10, 24, descriptor, 3, 2}, "", rle)), "R8G8B8:" + top + bottom);
  }
  EXPECT_EQ(Pixels(TGAFile({11, 8, 0x30, 3, 2}, "", TGARun(5, "x") + TGARaw("y", 1))), "A8:xxxyxx");
}

TEST(TGA, ColourMapsPlaceEntriesFromTheFirstIndex) {
  // Entries for indices 2 and 3; index 0 and 200 have none and read as zero.
  const Bytes map24 = TGAFile({1, 8, 0, 4, 1, 2, 2, 24}, "RGBrgb", Str("\x02\x03\x00\xc8"));
  EXPECT_EQ(Pixels(map24), "R8G8B8:RGBrgb" + std::string(6, '\0'));
  // 15-bit entries are opaque; 16-bit ones too unless alpha bits are declared; run-length indices.
  const std::string entries = Str("\x1f\x00\xe0\x03");
  EXPECT_EQ(Pixels(TGAFile({9, 8, 0, 3, 1, 0, 2, 15}, entries, TGARun(2, Str("\x01")) + TGARaw(Str("\x00"), 1))),
            "A1R5G5B5:" + Str("\xe0\x83\xe0\x83\x1f\x80"));
  EXPECT_EQ(Pixels(TGAFile({1, 8, 0, 2, 1, 0, 2, 16}, entries, Str("\x01\x00"))),
            "A1R5G5B5:" + Str("\xe0\x83\x1f\x80"));
  EXPECT_EQ(Pixels(TGAFile({1, 8, 1, 2, 1, 0, 2, 16}, entries, Str("\x01\x00"))),
            "A1R5G5B5:" + Str("\xe0\x03\x1f\x00"));
  EXPECT_EQ(Pixels(TGAFile({1, 8, 0, 2, 1, 0, 2, 32}, "abcd", "")), "Null");  // map cut short
}

TEST(TGA, ShortDataKeepsWhatArrivedAndLogs) {
  const struct {
    Bytes file;
    std::string want, log;
  } cases[] = {
      {TGAFile({10, 24, 0x20, 2, 2}, "", TGARun(3, "abc") + TGARaw("de", 3)), "abcabcabc" + std::string(3, '\0'),
       "ImageTGA decompress RLE failed: source data out of memory"},
      {TGAFile({3, 8, 0x20, 2, 2}, "", "abc"), "abc" + std::string(1, '\0'), "ImageTGA read failed"},
      {TGAFile({3, 8, 0x00, 2, 2}, "", "abc"), std::string("c\0ab", 4), "ImageTGA read failed"},
  };
  for (const auto& c : cases) {
    testing::LogCapture log;
    const std::string got = Pixels(c.file);
    EXPECT_EQ(got.substr(got.find(':') + 1), c.want);
    EXPECT_TRUE(log.OnlyLineContains(c.log));
  }
}

Bytes Write(const SurfaceData& s, int flags) {
  size_t size = 0;
  const auto file = ImageFactory::Instance()->Serialize(ImageFormat::TGA, &s, &size, flags);
  return file ? Bytes(file.get(), file.get() + size) : Bytes();
}

std::shared_ptr<SurfaceDataBitmap> Row(const std::string& pixels, PixelFormatDescriptor format, size_t bytes) {
  auto s = SurfaceDataBitmap::Create(pixels.size() / bytes, 1, format, 2);
  pixels.copy(s->Buffer(), pixels.size());
  return s;
}

// Bytes from hex pairs separated by spaces.
std::string Hex(const std::string& text) {
  std::string out;
  for (size_t at = 0; at + 1 < text.size(); at += 3)
    out += static_cast<char>(std::stoi(text.substr(at, 2), nullptr, 16));
  return out;
}

TEST(TGA, WriterPacketsFollowTheRule) {
  std::string distinct;
  for (int i = 0; i < 130; ++i) distinct += static_cast<char>(i);
  const struct {
    std::string row, packets;
  } cases[] = {
      {std::string(200, 'z'), Hex("ff 7a c7 7a")},
      {"AABCCCD", Hex("81 41 01 42 43 81 43 00 44")},  // the first of two equal pixels ends a raw packet
      {"Q", Hex("80 51")},
      {distinct, Hex("80 00 7f") + distinct.substr(1, 128) + Hex("80 81")},
  };
  for (const auto& c : cases) {
    const Bytes file = Write(*Row(c.row, formats::A8, 1), ISF_TARGA_SAVE_RLE);
    const std::string size = Hex("00 01 00").insert(0, 1, static_cast<char>(c.row.size()));
    EXPECT_EQ(std::string(file.begin(), file.end()),
              Hex("00 00 0b 00 00 00 00 00 00 00 00 00") + size + Hex("08 08") + c.packets);
  }
}

TEST(TGA, WriterSwapsRedAndBlueOrders) {
  const std::string bgra = "\x10\x20\x30\x40\x50\x60\x70\x80", rgba = "\x30\x20\x10\x40\x70\x60\x50\x80";
  for (int flags : {0, ISF_TARGA_SAVE_RLE}) {
    EXPECT_EQ(Write(*Row(rgba, formats::A8B8G8R8, 4), flags), Write(*Row(bgra, formats::A8R8G8B8, 4), flags));
    EXPECT_EQ(Write(*Row(rgba.substr(0, 3), formats::B8G8R8, 3), flags),
              Write(*Row(bgra.substr(0, 3), formats::R8G8B8, 3), flags));
    EXPECT_EQ(Write(*Row(Str("\x1f\x80"), formats::A1B5G5R5, 2), flags),
              Write(*Row(Str("\x00\xfc"), formats::A1R5G5B5, 2), flags));
  }
  testing::LogCapture log;
  EXPECT_TRUE(Write(*Row("ab", formats::R5G6B5, 2), 0).empty());
  EXPECT_TRUE(log.OnlyLineContains("Can not convert format R5G6B5 to tga"));
}

TEST(TGA, RunLengthPicturesReadBack) {
  for (PixelFormatDescriptor format : {formats::R8G8B8, formats::A8R8G8B8, formats::R16}) {
    const auto picture = testing::Filled(13, 7, format, 5);
    const unsigned long long bpp = BytesPerPixel(format, nullptr);
    for (int i = 1; i < 4; ++i) std::memcpy(picture->Buffer() + i * bpp, picture->Buffer(), bpp);  // a run
    const auto image = testing::Decode(Write(*picture->Data(), ISF_TARGA_SAVE_RLE));
    ASSERT_TRUE(image);
    EXPECT_EQ(testing::Tight(*image->GetPyramid(false)->GetSurface(0)->Data()), testing::Tight(*picture->Data()));
  }
}

}  // namespace
}  // namespace lumo::image
