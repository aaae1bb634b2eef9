// The GIF plugin: the written code stream against a plain reading of the
// format's LZW rules, palette limits, byte orders, and hand-made files.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "lumo/image/formats.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/surface_data.h"
#include "support/files.h"
#include "support/gif_files.h"
#include "support/log_capture.h"
#include "support/surfaces.h"

namespace lumo::image {
namespace {

using testing::Bytes;
constexpr size_t kCodesAt = 1568;  // the first sub-block of a written file

// A picture whose pixel i has colour `colours[i]` (bytes 0, 1, 2; more bytes are noise).
std::shared_ptr<SurfaceDataBitmap> Picture(PixelFormatDescriptor format, unsigned width, unsigned height,
                                           const std::vector<unsigned>& colours) {
  auto s = SurfaceDataBitmap::Create(width, height, format, 2);
  const unsigned bytes = static_cast<unsigned>(BitsPerPixel(format, nullptr) / 8);
  for (unsigned i = 0; i < width * height; ++i) {
    char* p = s->Buffer() + (i / width) * s->BytesPerRow() + (i % width) * bytes;
    for (unsigned b = 0; b < bytes; ++b) p[b] = static_cast<char>(b < 3 ? colours[i] >> (8 * b) : i * 7);
  }
  return s;
}

Bytes Write(const SurfaceData& s) {
  size_t size = 0;
  const auto file = ImageFactory::Instance()->Serialize(ImageFormat::GIF, &s, &size, 0);
  return file ? Bytes(file.get(), file.get() + size) : Bytes();
}

// The code stream as the rules read: a table of 4096 x 256 codes cleared at every reset.
std::string ReferenceCodes(const std::vector<unsigned>& colours) {
  std::map<unsigned, int> slot;
  std::vector<int> table(4096 * 256, -1), codes = {256};
  int prefix = slot.emplace(colours[0], 0).first->second, next = 258, size = 9;
  std::vector<int> sizes = {9};
  for (size_t i = 1; i < colours.size(); ++i) {
    const int p = slot.emplace(colours[i], static_cast<int>(slot.size())).first->second;
    if (table[prefix * 256 + p] >= 0) {
      prefix = table[prefix * 256 + p];
      continue;
    }
    codes.push_back(prefix), sizes.push_back(size);
    table[prefix * 256 + p] = next;
    if (next == 1 << size) ++size;
    if (++next == 4096) {
      codes.push_back(256), sizes.push_back(size);
      table.assign(table.size(), -1), next = 258, size = 9;
    }
    prefix = p;
  }
  codes.insert(codes.end(), {prefix, 257}), sizes.insert(sizes.end(), {size, size});
  std::string out;
  unsigned long long bits = 0;
  int count = 0;
  for (size_t i = 0; i < codes.size(); ++i) {
    bits |= static_cast<unsigned long long>(codes[i]) << count;
    for (count += sizes[i]; count >= 8; count -= 8, bits >>= 8) out.push_back(static_cast<char>(bits));
  }
  return count > 0 ? out + static_cast<char>(bits) : out;
}

TEST(GIFWriter, CodeStreamFollowsTheRulesAndRoundTrips) {
  std::mt19937 rng(7);
  std::vector<unsigned> noise(301 * 203), bands(64 * 64);
  for (unsigned& c : noise) c = (rng() % 256) * 0x010203u;  // several table resets
  for (size_t i = 0; i < bands.size(); ++i) bands[i] = static_cast<unsigned>((i % 64 + i / 64) / 20) * 0x404040u;
  const struct Case {
    unsigned width, height;
    std::vector<unsigned> colours;
  } cases[] = {{1, 1, {0x1E140A}}, {301, 203, noise}, {64, 64, bands}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.width);
    const auto picture = Picture(formats::B8G8R8, c.width, c.height, c.colours);
    const Bytes file = Write(*picture);
    ASSERT_GT(file.size(), kCodesAt + 2);
    std::string codes;
    size_t at = kCodesAt;
    for (size_t n; (n = static_cast<unsigned char>(file.at(at))) != 0; at += n + 1) {
      EXPECT_TRUE(n == 255 || file.at(at + n + 1) == 0) << "a short sub-block before the last";
      codes.append(&file[at + 1], n);
    }
    EXPECT_EQ(at + 2, file.size());
    EXPECT_EQ(codes, ReferenceCodes(c.colours));
    const auto back = testing::Decode(file);
    ASSERT_TRUE(back);
    EXPECT_EQ(testing::Tight(*back->GetPyramid(false)->GetSurface(0)->Data()), testing::Tight(*picture));
    if (c.width != 1) continue;
    // One pixel: header, graphic control and image descriptor; then clear, the pixel, end, nine bits each.
    EXPECT_EQ(std::string(file.begin(), file.begin() + 16),
              std::string("GIF89a\x01\x00\x01\x00\xF7\x00\x00\x0A\x14\x1E", 16));
    EXPECT_EQ(std::string(file.begin() + 781, file.begin() + 799),
              std::string("\x21\xF9\x04\x00\x05\x00\x00\x00\x2C\0\0\0\0\x01\x00\x01\x00\x87", 18));
    EXPECT_EQ(std::string(file.begin() + 1567, file.end()), std::string("\x08\x04\x00\x01\x04\x04\x00\x3B", 8));
  }
}

TEST(GIFWriter, PaletteLimitsByteOrdersAndRefusedFormats) {
  const std::string overflow = "Can not convert format R8G8B8 to gif. ERROR: Color palette overflow ";
  const struct Case {
    unsigned colours;
    std::string logged;  // empty: written
  } cases[] = {{256, ""}, {257, overflow + "257"}, {1001, overflow + " > 1000"}, {5000, overflow + " > 1000"}};
  for (const Case& c : cases) {
    std::vector<unsigned> colours(c.colours * 2);
    for (unsigned i = 0; i < colours.size(); ++i) colours[i] = i % c.colours;
    const auto picture = Picture(formats::R8G8B8, c.colours, 2, colours);
    testing::LogCapture log;
    size_t size = 12345;
    const auto file = ImageFactory::Instance()->Serialize(ImageFormat::GIF, picture.get(), &size, 0);
    EXPECT_EQ(file == nullptr, !c.logged.empty()) << c.colours;
    EXPECT_TRUE(log.OnlyLineContains(c.logged));
    EXPECT_EQ(size == 12345u, !c.logged.empty());
  }
  // Every byte order of the same colours gives one file.
  std::vector<unsigned> rgb(40 * 9), bgr(rgb.size());
  for (size_t i = 0; i < rgb.size(); ++i) {
    rgb[i] = static_cast<unsigned>(i % 7 * 30 | (i % 5 * 50) << 8 | (i % 3 * 80) << 16);
    bgr[i] = (rgb[i] & 0xFF) << 16 | (rgb[i] & 0xFF00) | rgb[i] >> 16;
  }
  const Bytes file = Write(*Picture(formats::B8G8R8, 40, 9, rgb));
  EXPECT_FALSE(file.empty());
  EXPECT_EQ(Write(*Picture(formats::R8G8B8, 40, 9, bgr)), file);
  EXPECT_EQ(Write(*Picture(formats::A8R8G8B8, 40, 9, bgr)), file);
  EXPECT_EQ(Write(*Picture(formats::A8B8G8R8, 40, 9, rgb)), file);
  testing::LogCapture log;
  EXPECT_TRUE(Write(*SurfaceDataBitmap::Create(4, 4, formats::R5G6B5, 2)).empty());
  EXPECT_TRUE(log.OnlyLineContains("Can not convert format R5G6B5 to gif"));
}

// R, G, B of each index through a table, or the pixel as given when negative (-1 - value).
std::string Rgb(const std::string& table, const std::vector<int>& pixels) {
  std::string out;
  for (const int i : pixels) out += i < 0 ? std::string(3, static_cast<char>(-1 - i)) : table.substr(3 * i, 3);
  return out;
}

TEST(GIFReader, HandMadeFiles) {
  const std::vector<Bytes> seeds = testing::GIFHostileSeeds();
  const std::string table = testing::kGifTable4, local = "0123456789abcdefghijklmn";
  const char* const range = "Can not load gif image. ERROE: Sub image out of range";
  // The sub image's rows in natural order, and its surroundings in background colour 2.
  std::vector<int> sub_rows;
  testing::GifImage plain{1, 2, 3, 9, false, local, 3, {}};
  const int pass_of_row[9] = {0, 5, 3, 6, 2, 7, 4, 8, 1};  // interlaced slot of each row of 9
  for (int y = 0; y < 9; ++y) {
    for (int x = 0; x < 3; ++x) sub_rows.push_back((pass_of_row[y] * 3 + x) % 8);
  }
  plain.codes = testing::Literal(3, sub_rows);
  std::string want_sub;
  for (int y = 0; y < 12; ++y) {
    for (int x = 0; x < 6; ++x) {
      const bool in = x >= 1 && x < 4 && y >= 2 && y < 11;
      want_sub += in ? local.substr(3 * sub_rows[(y - 2) * 3 + x - 1], 3) : table.substr(6, 3);
    }
  }
  const struct Case {
    const char* name;
    Bytes file;
    std::string pixels;  // empty: refused
    const char* logged;
  } cases[] = {
      {"extensions, repeating strings", seeds[1], Rgb(table, {1, 1, 1, 1, 1, 1, 2, 3, 3, 3, 3, 3, 3, 1, 0}), ""},
      {"interlaced sub image", seeds[2], want_sub, ""},
      {"its plain twin", testing::GifFile(6, 12, table, "", plain, "89a", 2), want_sub, ""},
      {"87a without a table: grey", seeds[3], Rgb("", {-1, -256, -18, -18, -201, -2, -3, -4}), ""},
      {"clear code 4096", seeds[4], Rgb(table, {1, -1, 2, -1, 0, 0}), ""},  // past the table: black
      {"sub image too wide", testing::GifFile(4, 4, table, "", {2, 0, 3, 1, false, "", 2, {4, 1, 5}}), "", range},
      {"sub image too high", testing::GifFile(4, 4, table, "", {0, 3, 1, 2, false, "", 2, {4, 1, 5}}), "", range},
      {"not a gif", Bytes{'G', 'I', 'X', '8', '9', 'a'}, "", "Can not load gif image. ERROE: Not gif image"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    testing::LogCapture log;
    const auto image = ImageFactory::Instance()->Create(ImageFormat::GIF, testing::Shared(c.file), c.file.size());
    EXPECT_TRUE(log.OnlyLineContains(c.logged));
    ASSERT_EQ(image == nullptr, c.pixels.empty());
    if (!image) continue;
    const auto data = image->GetPyramid(false)->GetSurface(0)->Data();
    EXPECT_EQ(data->Format(), formats::B8G8R8);
    EXPECT_EQ(testing::Tight(*data), c.pixels);
  }
}

}  // namespace
}  // namespace lumo::image
