// ATC blocks: a colour block like DXT1's but with a 5:5:5 first colour whose
// top bit picks the palette, alone (ATC_RGB) or after an alpha block stored
// like DXT3's (explicit) or DXT5's (interpolated). Every bit pattern has one
// meaning; there is no reserved case.
#include <cstdint>
#include <cstring>

#include "blocks/block_kit.h"

namespace lumo::image::blocks::detail {
namespace {

inline unsigned Load16(const std::uint8_t* p) { return p[0] | unsigned{p[1]} << 8; }
inline std::uint32_t Load32(const std::uint8_t* p) { return Load16(p) | std::uint32_t{Load16(p + 2)} << 16; }
inline std::uint64_t Load64(const std::uint8_t* p) { return Load32(p) | std::uint64_t{Load32(p + 4)} << 32; }
inline int Extend5(unsigned v) { return static_cast<int>(v << 3 | v >> 2); }
inline int Extend6(unsigned v) { return static_cast<int>(v << 2 | v >> 4); }

// Colour block: colour 0 (R5 G5 B5, top bit the palette choice), colour 1
// (R5 G6 B5), then 2-bit indices row by row. Palette 0 runs from colour 0 to
// colour 1 in thirds; palette 1 is black, colour 0 minus a quarter of colour
// 1 (clamped at 0), colour 0, colour 1.
void DecodeColour(const std::uint8_t* block, std::uint8_t* out, std::size_t stride) {
  const unsigned c0 = Load16(block), c1 = Load16(block + 2);
  const int a[3] = {Extend5(c0 >> 10 & 31u), Extend5(c0 >> 5 & 31u), Extend5(c0 & 31u)};
  const int b[3] = {Extend5(c1 >> 11), Extend6(c1 >> 5 & 63u), Extend5(c1 & 31u)};
  std::uint8_t palette[4][4];
  for (int k = 0; k < 3; ++k) {
    int p[4];
    if ((c0 & 0x8000u) == 0) {
      p[0] = a[k];
      p[1] = (2 * a[k] + b[k] + 1) / 3;
      p[2] = (a[k] + 2 * b[k] + 1) / 3;
      p[3] = b[k];
    } else {
      p[0] = 0;
      p[1] = a[k] - b[k] / 4 < 0 ? 0 : a[k] - b[k] / 4;
      p[2] = a[k];
      p[3] = b[k];
    }
    for (int i = 0; i < 4; ++i) palette[i][k] = static_cast<std::uint8_t>(p[i]);
  }
  for (int i = 0; i < 4; ++i) palette[i][3] = 255;
  const std::uint32_t indices = Load32(block + 4);
  for (unsigned y = 0; y < 4; ++y)
    for (unsigned x = 0; x < 4; ++x)
      std::memcpy(out + y * stride + x * 4, palette[indices >> (2 * (y * 4 + x)) & 3u], 4);
}

// 4-bit alpha per pixel, row by row, widened by replication.
void DecodeExplicitAlpha(const std::uint8_t* block, std::uint8_t* out, std::size_t stride) {
  const std::uint64_t bits = Load64(block);
  for (unsigned p = 0; p < 16; ++p)
    out[(p >> 2) * stride + (p & 3u) * 4 + 3] = static_cast<std::uint8_t>((bits >> (4 * p) & 15u) * 17);
}

// Two alpha endpoints and 3-bit indices: eight steps when the first is
// greater, else six steps plus 0 and 255 (divisions truncate).
void DecodeInterpolatedAlpha(const std::uint8_t* block, std::uint8_t* out, std::size_t stride) {
  const int a0 = block[0], a1 = block[1];
  int palette[8] = {a0, a1};
  if (a0 > a1) {
    for (int i = 1; i < 7; ++i) palette[i + 1] = ((7 - i) * a0 + i * a1) / 7;
  } else {
    for (int i = 1; i < 5; ++i) palette[i + 1] = ((5 - i) * a0 + i * a1) / 5;
    palette[6] = 0;
    palette[7] = 255;
  }
  const std::uint64_t bits = Load64(block) >> 16;
  for (unsigned p = 0; p < 16; ++p)
    out[(p >> 2) * stride + (p & 3u) * 4 + 3] = static_cast<std::uint8_t>(palette[bits >> (3 * p) & 7u]);
}

}  // namespace

bool ATCDecodes(CompressFormat format) {
  return format == CompressFormat::ATC_RGB || format == CompressFormat::ATC_RGBA_EXPLICIT_ALPHA ||
         format == CompressFormat::ATC_RGBA_INTERPOLATED_ALPHA;
}

bool DecodeATC(const BlockSource& src, const PixelTarget& dst) {
  switch (src.format) {
    case CompressFormat::ATC_RGB:
      ForEachBlock<4, 4, 4>(src, 8, dst, [](const std::uint8_t* block, std::uint8_t* out, std::size_t stride) {
        DecodeColour(block, out, stride);
      });
      return true;
    case CompressFormat::ATC_RGBA_EXPLICIT_ALPHA:
      ForEachBlock<4, 4, 4>(src, 16, dst, [](const std::uint8_t* block, std::uint8_t* out, std::size_t stride) {
        DecodeColour(block + 8, out, stride);
        DecodeExplicitAlpha(block, out, stride);
      });
      return true;
    case CompressFormat::ATC_RGBA_INTERPOLATED_ALPHA:
      ForEachBlock<4, 4, 4>(src, 16, dst, [](const std::uint8_t* block, std::uint8_t* out, std::size_t stride) {
        DecodeColour(block + 8, out, stride);
        DecodeInterpolatedAlpha(block, out, stride);
      });
      return true;
    default:
      return false;
  }
}

}  // namespace lumo::image::blocks::detail
