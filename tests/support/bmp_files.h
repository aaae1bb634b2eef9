// BMP files for the tests and the hostile-input suite.
#pragma once

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "lumo/image/formats.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/pyramid.h"
#include "support/bytes.h"
#include "support/files.h"
#include "support/surfaces.h"

namespace lumo::image::testing {

inline Bytes BMPBytes(const std::string& s) { return Bytes(s.begin(), s.end()); }

inline Bytes BMPWords(std::initializer_list<std::uint32_t> words) {
  Bytes b(4 * words.size());
  size_t at = 0;
  for (std::uint32_t w : words) Put32(&b, 4 * at++, w);
  return b;
}

struct BMPLayout {
  std::uint32_t header_bytes = 40;     // 12: OS/2 core header, 64: OS/2 2.x
  std::int32_t width = 1, height = 1;  // a negative height stores rows top-down
  std::uint16_t bits = 24;
  std::uint32_t compression = 0;
  std::uint32_t colors_used = 0;
  Bytes masks;    // from offset 54: inside a 52- or 56-byte header, right after a 40-byte one
  Bytes palette;  // after the header and masks
  Bytes pixels;   // from the data offset
};

// Sized first and filled with std::copy: GCC 12 flags vector::insert here with a false -Warray-bounds.
inline Bytes BMPFile(const BMPLayout& l) {
  const size_t offset =
      (l.masks.empty() ? 14 + l.header_bytes : std::max<size_t>(14 + l.header_bytes, 54 + l.masks.size())) +
      l.palette.size();
  Bytes b(offset + l.pixels.size(), 0);
  std::copy(l.masks.begin(), l.masks.end(), b.begin() + 54);
  std::copy(l.palette.begin(), l.palette.end(), b.begin() + static_cast<long>(offset - l.palette.size()));
  std::copy(l.pixels.begin(), l.pixels.end(), b.begin() + static_cast<long>(offset));
  b[0] = 'B', b[1] = 'M';
  Put32(&b, 2, static_cast<std::uint32_t>(b.size()));
  Put32(&b, 10, static_cast<std::uint32_t>(offset));
  Put32(&b, 14, l.header_bytes);
  if (l.header_bytes == 12) {
    Put16(&b, 18, static_cast<std::uint32_t>(l.width));
    Put16(&b, 20, static_cast<std::uint32_t>(l.height));
    Put16(&b, 22, 1);
    Put16(&b, 24, l.bits);
    return b;
  }
  Put32(&b, 18, static_cast<std::uint32_t>(l.width));
  Put32(&b, 22, static_cast<std::uint32_t>(l.height));
  Put16(&b, 26, 1);
  Put16(&b, 28, l.bits);
  Put32(&b, 30, l.compression);
  Put32(&b, 34, static_cast<std::uint32_t>(l.pixels.size()));
  Put32(&b, 46, l.colors_used);
  return b;
}

// RLE8: runs, an odd absolute run and its pad byte, end of line, a delta, and
// a run past the last row, which ends decoding. 6 x 4 pixels.
inline BMPLayout BMPRle8Layout() {
  return {40, 6, 4, 8, 1, 4, {}, BMPWords({0x00000000, 0x000000FF, 0x0000FF00, 0x00FF0000}),
          BMPBytes(std::string("\x03\x01\x00\x03\x02\x03\x01\x00\x00\x00\x00\x02\x01\x01\x02\x02\x00\x00"
                               "\x09\x03",
                               20))};
}

// RLE4: the same codes, a run starting on an odd pixel, end of bitmap; 7 x 3 pixels of 16
// three-byte colours (entry i is i, i, i).
inline BMPLayout BMPRle4Layout() {
  Bytes palette(48);
  for (size_t i = 0; i < palette.size(); ++i) palette[i] = static_cast<char>(i / 3);
  return {40, 7, 3, 4, 2, 0, {}, palette,
          BMPBytes(std::string("\x05\x12\x00\x03\x34\x50\x00\x00\x00\x02\x03\x01\x03\xab\x00\x01", 16))};
}

// 1-bit OS/2 core file, 9 x 2 pixels, two 3-byte entries.
inline BMPLayout BMPCoreLayout() {
  return {12, 9, 2, 1, 0, 0, {}, BMPBytes(std::string("\x10\x20\x30\x40\x50\x60", 6)),
          BMPBytes(std::string("\xa5\x80\x00\x00\x5a\x00\x00\x00", 8))};
}

// 32-bit pixels stored R, G, B, A from the high byte down (a 52-byte header's
// masks), 2 x 2 top-down.
inline BMPLayout BMPRotatedLayout() {
  return {52, 2, -2, 32, 3, 0, BMPWords({0xFF000000, 0xFF0000, 0xFF00}), {},
          BMPBytes(std::string("\x80\x01\x02\x03\x00\x04\x05\x06\x00\x07\x08\x09\x40\x0a\x0b\x0c", 16))};
}

// OS/2 2.x 4-bit palette whose two 5-byte entries come from an odd data
// offset; 3 x 2 top-down.
inline BMPLayout BMPOddEntriesLayout() {
  return {64, 3, -2, 4, 0, 2, {}, BMPBytes(std::string("\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a", 10)),
          BMPBytes(std::string("\x01\x00\x00\x00\x10\x10\x00\x00", 8))};
}

// Files that reach every decoding path of the BMP reader, for the hostile-input suite.
inline std::vector<Bytes> BMPHostileSeeds() {
  auto written = [](PixelFormatDescriptor format, unsigned long long width, unsigned long long height) {
    return Encode(*Chain(MipmapType::Surface, width, height, 1, format, 1), ImageFormat::BMP);
  };
  return {written(formats::B8G8R8, 5, 3),   written(formats::R5G6B5, 3, 2), written(formats::A8R8G8B8, 4, 3),
          BMPFile(BMPRle8Layout()),         BMPFile(BMPRle4Layout()),       BMPFile(BMPCoreLayout()),
          BMPFile(BMPRotatedLayout()),      BMPFile(BMPOddEntriesLayout())};
}

}  // namespace lumo::image::testing
