// GIF files built by hand for layouts the writer never makes (small colour
// tables, no table, extensions, interlacing, sub images, odd code sizes), and
// the seeds of the hostile-input suite.
#pragma once

#include <string>
#include <vector>

#include "lumo/image/formats.h"
#include "support/bytes.h"
#include "support/files.h"
#include "support/surfaces.h"

namespace lumo::image::testing {

// LZW codes packed least significant bit first, each with the size that a
// decoder reads it with (it grows when the next free code reaches a power of
// two, a clear code resets it).
inline std::string LzwBits(int min_size, const std::vector<int>& codes) {
  const int clear = 1 << min_size;
  int size = min_size + 1, next = clear + 2, count = 0;
  bool prev = false;
  unsigned long long bits = 0;
  std::string out;
  for (const int code : codes) {
    bits |= static_cast<unsigned long long>(code) << count;
    for (count += size; count >= 8; count -= 8, bits >>= 8) out.push_back(static_cast<char>(bits & 0xFF));
    if (code == clear) {
      size = min_size + 1, next = clear + 2, prev = false;
      continue;
    }
    if (prev && next < 4096 && ++next < 4096 && (next & (next - 1)) == 0) ++size;
    prev = true;
  }
  if (count > 0) out.push_back(static_cast<char>(bits & 0xFF));
  return out;
}

// A clear code, each index as a code of its own, the end code.
inline std::vector<int> Literal(int min_size, const std::vector<int>& indices) {
  std::vector<int> codes = {1 << min_size};
  codes.insert(codes.end(), indices.begin(), indices.end());
  codes.push_back((1 << min_size) + 1);
  return codes;
}

struct GifImage {
  int left = 0, top = 0, width = 1, height = 1;
  bool interlaced = false;
  std::string local_table;  // R, G, B per entry, 2 << n entries
  int min_size = 2;
  std::vector<int> codes;
};

// Size exponent n of a colour table of 2 << n entries.
inline int TableBits(const std::string& table) {
  int n = 0;
  while ((6 << n) < static_cast<int>(table.size())) ++n;
  return n;
}

inline std::string Le16(int v) { return {static_cast<char>(v & 0xFF), static_cast<char>((v >> 8) & 0xFF)}; }

// Header, screen, global table, `extensions` as given, the image, trailer.
inline Bytes GifFile(int width, int height, const std::string& global_table, const std::string& extensions,
                     const GifImage& image, const std::string& version = "89a", int background = 0) {
  std::string f = "GIF" + version + Le16(width) + Le16(height);
  f += static_cast<char>(global_table.empty() ? 0 : 0x80 | TableBits(global_table));
  f += static_cast<char>(background) + std::string(1, '\0') + global_table + extensions + '\x2C';
  f += Le16(image.left) + Le16(image.top) + Le16(image.width) + Le16(image.height);
  f += static_cast<char>((image.local_table.empty() ? 0 : 0x80 | TableBits(image.local_table)) |
                         (image.interlaced ? 0x40 : 0));
  f += image.local_table + static_cast<char>(image.min_size);
  const std::string data = LzwBits(image.min_size, image.codes);
  for (size_t at = 0; at < data.size(); at += 255) {
    const std::string block = data.substr(at, 255);
    f += static_cast<char>(block.size()) + block;
  }
  f += std::string("\0\x3B", 2);
  return Bytes(f.begin(), f.end());
}

// One extension of each kind the reader skips.
inline const std::string kGifExtensions = std::string("\x21\xF9\x04\x01\x05\x00\x02\x00", 8) +         // control
                                          std::string("\x21\xFE\x03hi!\x00", 7) +                      // comment
                                          std::string("\x21\xFF\x0BNETSCAPE2.0\x03\x01\x00\x00\x00", 19) +  // app
                                          std::string("\x21\x01\x0C", 3) + std::string(12, '\x01') +   // text
                                          std::string("\x02xy\x00", 4) + std::string("\x21\x42\x01z\x00", 5);

inline const std::string kGifTable4("\x00\x00\x00\xFF\x00\x00\x00\xFF\x00\x00\x00\xFF", 12);

// Files that reach every decoding path of the GIF reader, for the hostile-input suite.
inline std::vector<Bytes> GIFHostileSeeds() {
  GifImage kwkwk;  // strings that repeat themselves, code size growth, a clear in the middle
  kwkwk.width = 5, kwkwk.height = 3;
  kwkwk.codes = {4, 1, 6, 7, 2, 4, 3, 3, 6, 7, 1, 5};  // 14 of the 15 pixels
  GifImage sub;  // an interlaced sub image with its own table over a background
  sub.left = 1, sub.top = 2, sub.width = 3, sub.height = 9, sub.interlaced = true;
  sub.local_table = "0123456789abcdefghijklmn";
  sub.min_size = 3;
  std::vector<int> rows;
  for (int i = 0; i < 27; ++i) rows.push_back(i % 8);
  sub.codes = Literal(3, rows);
  GifImage grey;  // no colour table at all
  grey.width = 4, grey.height = 2, grey.min_size = 8;
  grey.codes = Literal(8, {0, 255, 17, 17, 200, 1, 2, 3});
  GifImage wide;  // clear code 4096: no string is ever added
  wide.width = 3, wide.height = 2, wide.min_size = 12;
  wide.codes = {4096, 1, 300, 2, 7, 4097};
  // Written: two colours in blocks, so strings grow long and are copied from far back.
  const auto blocks = SurfaceDataBitmap::Create(24, 10, formats::R8G8B8, 2);
  for (unsigned i = 0; i < blocks->Size(); ++i) {
    blocks->Buffer()[i] = static_cast<char>((i % blocks->BytesPerRow() / 18 + i / blocks->BytesPerRow() / 5) % 2 * 99);
  }
  const Bytes written =
      Encode(*Pyramid::Make(std::make_shared<Surface>(blocks), ImageOrigin::TopDown), ImageFormat::GIF);
  return {written, GifFile(5, 3, kGifTable4, kGifExtensions, kwkwk), GifFile(6, 12, kGifTable4, "", sub, "89a", 2),
          GifFile(4, 2, "", "", grey, "87a"), GifFile(3, 2, kGifTable4, "", wide)};
}

}  // namespace lumo::image::testing
