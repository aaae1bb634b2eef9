// PNG files built by hand, chunk by chunk, for layouts the writer never makes:
// every colour type and depth, tRNS and gAMA chunks, iTXt in odd places, and
// headers that declare more than the file holds.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "support/bytes.h"

namespace lumo::image::testing {

inline std::uint32_t Crc32(const char* data, size_t n) {
  std::uint32_t crc = 0xFFFFFFFFu;
  for (size_t i = 0; i < n; ++i) {
    crc ^= static_cast<unsigned char>(data[i]);
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

// Length, type, data and the CRC of type and data.
inline Bytes PngChunk(const std::string& type, const std::string& data) {
  const std::string body = type + data;
  Bytes c(4 + body.size() + 4);
  Put32BE(&c, 0, static_cast<std::uint32_t>(data.size()));
  std::copy(body.begin(), body.end(), c.begin() + 4);
  Put32BE(&c, 4 + body.size(), Crc32(body.data(), body.size()));
  return c;
}

// Big-endian bytes of a value, for chunk data.
inline std::string BE(std::uint32_t v, int bytes) {
  std::string s;
  for (int i = bytes - 1; i >= 0; --i) s.push_back(static_cast<char>(v >> (8 * i)));
  return s;
}

inline std::string IhdrData(std::uint32_t width, std::uint32_t height, int depth, int color, int interlace = 0) {
  return BE(width, 4) + BE(height, 4) + BE(depth, 1) + BE(color, 1) + BE(0, 1) + BE(0, 1) + BE(interlace, 1);
}

// A zlib stream of stored (uncompressed) blocks.
inline std::string ZlibStored(const std::string& raw) {
  std::string z = "\x78\x01";
  size_t at = 0;
  do {
    const size_t n = std::min<size_t>(raw.size() - at, 65535);
    z.push_back(at + n == raw.size() ? 1 : 0);  // final block?, stored
    for (const size_t v : {n, ~n}) {            // LEN and NLEN, little-endian
      z.push_back(static_cast<char>(v & 0xFF));
      z.push_back(static_cast<char>((v >> 8) & 0xFF));
    }
    z += raw.substr(at, n);
    at += n;
  } while (at < raw.size());
  std::uint32_t a = 1, b = 0;
  for (const char c : raw) {
    a = (a + static_cast<unsigned char>(c)) % 65521;
    b = (b + a) % 65521;
  }
  return z + BE(b << 16 | a, 4);
}

inline const std::string kPngSignature("\x89PNG\r\n\x1a\n", 8);

// A PNG of one IDAT: IHDR, then `chunks` (PLTE, tRNS, ...), the rows (each
// given without its filter byte; filter 0 is added), IEND.
inline Bytes PngFile(std::uint32_t width, std::uint32_t height, int depth, int color,
                     const std::vector<std::string>& rows, const std::vector<Bytes>& chunks = {}) {
  Bytes file(kPngSignature.begin(), kPngSignature.end());
  auto add = [&](const Bytes& c) { file.insert(file.end(), c.begin(), c.end()); };
  add(PngChunk("IHDR", IhdrData(width, height, depth, color)));
  for (const Bytes& c : chunks) add(c);
  std::string raw;
  for (const std::string& row : rows) raw += '\0' + row;
  add(PngChunk("IDAT", ZlibStored(raw)));
  add(PngChunk("IEND", ""));
  return file;
}

// Where each chunk of a PNG starts (after the signature), up to the end of the bytes.
inline std::vector<size_t> PngChunkOffsets(const Bytes& png) {
  std::vector<size_t> offsets;
  // In size_t: a length near 2^32 must step past the end, not wrap to a step of 0.
  for (size_t at = 8; at + 12 <= png.size(); at += 12 + size_t{Get32BE(png, at)}) offsets.push_back(at);
  return offsets;
}

// `png` with `chunk` inserted before its chunk number `index` (0 is IHDR).
inline Bytes WithChunk(Bytes png, size_t index, const Bytes& chunk) {
  const std::vector<size_t> offsets = PngChunkOffsets(png);
  const size_t at = index < offsets.size() ? offsets[index] : png.size();
  png.insert(png.begin() + static_cast<std::ptrdiff_t>(at), chunk.begin(), chunk.end());
  return png;
}

// Recomputes the CRC of every whole chunk of a PNG file in place (anything
// else is left alone), so that damage inside chunks reaches the decoder.
inline void SetPngCrcs(char* data, size_t size) {
  static const char kSignature[] = "\x89PNG\r\n\x1a\n";
  if (size < 8 || std::memcmp(data, kSignature, 8) != 0) return;
  const Bytes png(data, data + size);
  for (const size_t at : PngChunkOffsets(png)) {
    const size_t end = at + 8 + Get32BE(png, at);
    if (end + 4 > size) break;
    const std::uint32_t crc = Crc32(data + at + 4, end - at - 4);
    for (int i = 0; i < 4; ++i) data[end + i] = static_cast<char>(crc >> (24 - 8 * i));
  }
}

// The fuzz target's rule: inputs of even length get their CRCs made right, so
// mutations reach libpng's decoder; those of odd length keep the CRC checks
// in the fuzzer's reach.
inline void FixPngCrcs(char* data, size_t size) {
  if (size % 2 == 0) SetPngCrcs(data, size);
}

}  // namespace lumo::image::testing
