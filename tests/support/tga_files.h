// TGA files built by hand (colour maps, orientations and packet layouts the
// writer never makes) for the tests and the hostile-input suite.
#pragma once

#include <string>
#include <vector>

#include "support/bytes.h"

namespace lumo::image::testing {

struct TGAHeader {
  int type = 2, depth = 24, descriptor = 0;
  int width = 1, height = 1;
  int map_first = 0, map_length = 0, map_bits = 0;
};

// Header, colour map and pixel data, optionally followed by the 2.0 footer.
// Built as a string: GCC 12 flags vector inserts here with a false -Warray-bounds.
inline Bytes TGAFile(const TGAHeader& h, const std::string& map, const std::string& data, bool footer = false) {
  std::string b(18, '\0');
  auto put16 = [&](size_t at, int v) {
    b[at] = static_cast<char>(v & 0xFF);
    b[at + 1] = static_cast<char>((v >> 8) & 0xFF);
  };
  b[1] = static_cast<char>(h.map_length != 0 ? 1 : 0);
  b[2] = static_cast<char>(h.type);
  put16(3, h.map_first);
  put16(5, h.map_length);
  b[7] = static_cast<char>(h.map_bits);
  put16(12, h.width);
  put16(14, h.height);
  b[16] = static_cast<char>(h.depth);
  b[17] = static_cast<char>(h.descriptor);
  b += map + data;
  if (footer) b += std::string(8, '\0') + std::string("TRUEVISION-XFILE.", 18);
  return Bytes(b.begin(), b.end());
}

// A literal with its embedded zeros.
template <size_t N>
std::string Str(const char (&s)[N]) {
  return std::string(s, N - 1);
}

// Run-length packets: a run of `count` copies of `pixel`, or the pixels raw.
inline std::string TGARun(int count, const std::string& pixel) {
  return std::string(1, static_cast<char>(0x80 + count - 1)) + pixel;
}
inline std::string TGARaw(const std::string& pixels, int pixel_bytes) {
  return std::string(1, static_cast<char>(pixels.size() / pixel_bytes - 1)) + pixels;
}

// Files that reach every decoding path of the TGA reader, for the hostile-input suite.
inline std::vector<Bytes> TGAHostileSeeds() {
  const std::string rgb = Str("\x10\x20\x30\x40\x50\x60\x70\x80\x90\xa0\xb0\xc0");
  const std::string rgba = Str("\x01\x02\x03\x04\x05\x06\x07\x08");
  return {
      // raw 24-bit, bottom-up, 4 x 3
      TGAFile({2, 24, 0x00, 4, 3}, "", rgb + rgb + rgb),
      // run-length 32-bit, top-down and mirrored, packets across rows
      TGAFile({10, 32, 0x38, 3, 3}, "",
              TGARun(4, Str("\x11\x22\x33\x44")) + TGARaw(rgba, 4) + TGARun(3, Str("\xff\0\0\x80")), true),
      // run-length 16-bit colour, mirrored rows
      TGAFile({10, 16, 0x11, 5, 2}, "", TGARaw(Str("\x01\x80\x02\x80\x03\x00"), 2) + TGARun(7, Str("\x1f\x7c"))),
      // raw and run-length grey of each depth
      TGAFile({3, 16, 0x20, 3, 2}, "", Str("\x00\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b")),
      TGAFile({11, 8, 0x08, 6, 4}, "",
              TGARun(10, Str("\x7f")) + TGARaw(Str("\x01\x02\x03\x04\x05"), 1) + TGARun(9, Str("\xee"))),
      TGAFile({3, 32, 0x00, 2, 2}, "", std::string(16, '\x5a')),
      // colour maps: 24-bit raw (first index 1), 15-bit run-length mirrored, 32-bit raw top-down
      TGAFile({1, 8, 0x00, 4, 2, 1, 3, 24}, rgb.substr(0, 9), Str("\x01\x02\x03\x00\x03\x02\x01\x09")),
      TGAFile({9, 8, 0x10, 4, 3, 0, 2, 15}, Str("\x1f\x00\xe0\x03"),
              TGARun(5, Str("\x01")) + TGARaw(Str("\x00\x01\x00"), 1) + TGARun(4, Str("\x00"))),
      TGAFile({1, 8, 0x20, 3, 1, 0, 2, 32}, rgba, Str("\x01\x00\x01")),
  };
}

}  // namespace lumo::image::testing
