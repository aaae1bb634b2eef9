// ETC1, ETC2 and EAC blocks, decoded by the public Khronos definitions of
// these formats.
//
// ETC1 data decodes through the ETC2 colour decoder: ETC2 is a superset, and
// the differential blocks whose base colour leaves the 5-bit range (which
// ETC1 leaves undefined) decode as the T, H or planar blocks ETC2 hardware
// sees in them. Every other bit pattern has exactly one meaning, so there is
// no reserved case to guard.
#include <cstdint>
#include <cstring>

#include "blocks/block_kit.h"

namespace lumo::image::blocks::detail {
namespace {

// clang-format off
// Intensity modifiers of ETC1/ETC2 individual and differential blocks: the
// small and the large step of each table (pixel indices 0 and 1; 2 and 3 negate them).
constexpr int kColourModifiers[8][2] = {
    {2, 8}, {5, 17}, {9, 29}, {13, 42}, {18, 60}, {24, 80}, {33, 106}, {47, 183}};
// Distances of the T and H modes.
constexpr int kDistances[8] = {3, 6, 11, 16, 23, 32, 41, 64};
// EAC modifier tables (8-bit alpha and 11-bit channels alike).
constexpr int kEacModifiers[16][8] = {
    {-3, -6,  -9, -15, 2, 5, 8, 14}, {-3, -7, -10, -13, 2, 6, 9, 12},
    {-2, -5,  -8, -13, 1, 4, 7, 12}, {-2, -4,  -6, -13, 1, 3, 5, 12},
    {-3, -6,  -8, -12, 2, 5, 7, 11}, {-3, -7,  -9, -11, 2, 6, 8, 10},
    {-4, -7,  -8, -11, 3, 6, 7, 10}, {-3, -5,  -8, -11, 2, 4, 7, 10},
    {-2, -6,  -8, -10, 1, 5, 7,  9}, {-2, -5,  -8, -10, 1, 4, 7,  9},
    {-2, -4,  -8, -10, 1, 3, 7,  9}, {-2, -5,  -7, -10, 1, 4, 6,  9},
    {-3, -4,  -7, -10, 2, 3, 6,  9}, {-1, -2,  -3, -10, 0, 1, 2,  9},
    {-4, -6,  -8,  -9, 3, 5, 7,  8}, {-3, -5,  -7,  -9, 2, 4, 6,  8}};
// clang-format on

inline std::uint64_t LoadBE64(const std::uint8_t* p) {
  std::uint64_t v = 0;
  for (int i = 0; i < 8; ++i) v = v << 8 | p[i];
  return v;
}

inline std::uint8_t Clamp255(int v) { return static_cast<std::uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v); }
inline int Extend4(std::uint32_t v) { return static_cast<int>(v << 4 | v); }
inline int Extend5(std::uint32_t v) { return static_cast<int>(v << 3 | v >> 2); }
inline int Extend6(std::uint32_t v) { return static_cast<int>(v << 2 | v >> 4); }
inline int Extend7(std::uint32_t v) { return static_cast<int>(v << 1 | v >> 6); }
inline int SignExtend3(std::uint32_t v) { return static_cast<int>(v & 3) - static_cast<int>(v & 4); }

inline void Put(std::uint8_t* out, std::size_t stride, unsigned x, unsigned y, int r, int g, int b, std::uint8_t a) {
  std::uint8_t* p = out + y * stride + x * 4;
  p[0] = Clamp255(r);
  p[1] = Clamp255(g);
  p[2] = Clamp255(b);
  p[3] = a;
}

// Pixel p (x * 4 + y, the blocks' column-major order) indexes with its bit p
// of the low word as least and bit p + 16 as most significant bit.
inline unsigned PixelIndex(std::uint32_t lo, unsigned p) { return (lo >> (p + 16) & 1u) << 1 | (lo >> p & 1u); }

// Individual and differential blocks: two sub-blocks (2x4 side by side, or
// 4x2 stacked when flipped), each a base colour moved by one modifier table.
// Punch-through blocks without the opaque bit make index 2 transparent black
// and index 0 the unmodified base colour.
void DecodeSubBlocks(const int base[2][3], std::uint32_t hi, std::uint32_t lo, bool transparent_index2,
                     std::uint8_t* out, std::size_t stride) {
  const bool flip = (hi & 1u) != 0;
  const unsigned tables[2] = {hi >> 5 & 7u, hi >> 2 & 7u};
  for (unsigned x = 0; x < 4; ++x) {
    for (unsigned y = 0; y < 4; ++y) {
      const unsigned sub = flip ? y >> 1 : x >> 1;
      const unsigned index = PixelIndex(lo, x * 4 + y);
      const int* step = kColourModifiers[tables[sub]];
      int modifier = (index & 1u) != 0 ? step[1] : step[0];
      if (index & 2u) modifier = -modifier;
      if (transparent_index2) {
        if (index == 2) {
          Put(out, stride, x, y, 0, 0, 0, 0);
          continue;
        }
        if (index == 0) modifier = 0;
      }
      const int* c = base[sub];
      Put(out, stride, x, y, c[0] + modifier, c[1] + modifier, c[2] + modifier, 255);
    }
  }
}

// T and H blocks: each pixel picks one of four paint colours.
void DecodePaint(const int paint[4][3], std::uint32_t lo, bool transparent_index2, std::uint8_t* out,
                 std::size_t stride) {
  for (unsigned x = 0; x < 4; ++x) {
    for (unsigned y = 0; y < 4; ++y) {
      const unsigned index = PixelIndex(lo, x * 4 + y);
      if (transparent_index2 && index == 2) {
        Put(out, stride, x, y, 0, 0, 0, 0);
        continue;
      }
      Put(out, stride, x, y, paint[index][0], paint[index][1], paint[index][2], 255);
    }
  }
}

// One 8-byte ETC2 colour block (ETC1 blocks included). With `punch_through`
// (ETC2 RGB8A1) bit 33 is the opaque flag instead of the differential flag:
// such blocks are always differential, T, H or planar.
void DecodeColourBlock(const std::uint8_t* block, bool punch_through, std::uint8_t* out, std::size_t stride) {
  const std::uint64_t bits = LoadBE64(block);
  const auto hi = static_cast<std::uint32_t>(bits >> 32);
  const auto lo = static_cast<std::uint32_t>(bits);
  const bool flag = (hi & 2u) != 0;

  if (!punch_through && !flag) {  // individual: two 4-bit colours
    const int base[2][3] = {{Extend4(hi >> 28), Extend4(hi >> 20 & 15u), Extend4(hi >> 12 & 15u)},
                            {Extend4(hi >> 24 & 15u), Extend4(hi >> 16 & 15u), Extend4(hi >> 8 & 15u)}};
    DecodeSubBlocks(base, hi, lo, false, out, stride);
    return;
  }
  const bool transparent_index2 = punch_through && !flag;

  // Differential: a 5-bit colour and a 3-bit signed offset per channel. An
  // offset leaving 0..31 in red selects T, in green H, in blue planar.
  const std::uint32_t r = hi >> 27, g = hi >> 19 & 31u, b = hi >> 11 & 31u;
  const int r2 = static_cast<int>(r) + SignExtend3(hi >> 24);
  const int g2 = static_cast<int>(g) + SignExtend3(hi >> 16);
  const int b2 = static_cast<int>(b) + SignExtend3(hi >> 8);

  if (r2 < 0 || r2 > 31) {  // T: colour 1, and colour 2 with a distance either side
    const std::uint32_t r1 = (hi >> 27 & 3u) << 2 | (hi >> 24 & 3u);
    const int c1[3] = {Extend4(r1), Extend4(hi >> 20 & 15u), Extend4(hi >> 16 & 15u)};
    const int c2[3] = {Extend4(hi >> 12 & 15u), Extend4(hi >> 8 & 15u), Extend4(hi >> 4 & 15u)};
    const int d = kDistances[(hi >> 2 & 3u) << 1 | (hi & 1u)];
    const int paint[4][3] = {{c1[0], c1[1], c1[2]},
                             {c2[0] + d, c2[1] + d, c2[2] + d},
                             {c2[0], c2[1], c2[2]},
                             {c2[0] - d, c2[1] - d, c2[2] - d}};
    DecodePaint(paint, lo, transparent_index2, out, stride);
    return;
  }
  if (g2 < 0 || g2 > 31) {  // H: two colours, each with a distance either side
    const std::uint32_t g1 = (hi >> 24 & 7u) << 1 | (hi >> 20 & 1u);
    const std::uint32_t b1 = (hi >> 19 & 1u) << 3 | (hi >> 15 & 7u);
    const int c1[3] = {Extend4(hi >> 27 & 15u), Extend4(g1), Extend4(b1)};
    const int c2[3] = {Extend4(hi >> 11 & 15u), Extend4(hi >> 7 & 15u), Extend4(hi >> 3 & 15u)};
    // The distance's lowest bit is the order of the two colours.
    const int v1 = c1[0] << 16 | c1[1] << 8 | c1[2];
    const int v2 = c2[0] << 16 | c2[1] << 8 | c2[2];
    const int d = kDistances[(hi >> 2 & 1u) << 2 | (hi & 1u) << 1 | (v1 >= v2 ? 1u : 0u)];
    const int paint[4][3] = {{c1[0] + d, c1[1] + d, c1[2] + d},
                             {c1[0] - d, c1[1] - d, c1[2] - d},
                             {c2[0] + d, c2[1] + d, c2[2] + d},
                             {c2[0] - d, c2[1] - d, c2[2] - d}};
    DecodePaint(paint, lo, transparent_index2, out, stride);
    return;
  }
  if (b2 < 0 || b2 > 31) {  // planar: colours at origin, right and down, extrapolated; always opaque
    const int o[3] = {Extend6(hi >> 25 & 63u), Extend7((hi >> 24 & 1u) << 6 | (hi >> 17 & 63u)),
                      Extend6((hi >> 16 & 1u) << 5 | (hi >> 11 & 3u) << 3 | (hi >> 7 & 7u))};
    const int h[3] = {Extend6((hi >> 2 & 31u) << 1 | (hi & 1u)), Extend7(lo >> 25), Extend6(lo >> 19 & 63u)};
    const int v[3] = {Extend6(lo >> 13 & 63u), Extend7(lo >> 6 & 127u), Extend6(lo & 63u)};
    for (unsigned y = 0; y < 4; ++y) {
      for (unsigned x = 0; x < 4; ++x) {
        const int px = static_cast<int>(x), py = static_cast<int>(y);
        int c[3];
        for (int k = 0; k < 3; ++k) c[k] = (px * (h[k] - o[k]) + py * (v[k] - o[k]) + 4 * o[k] + 2) >> 2;
        Put(out, stride, x, y, c[0], c[1], c[2], 255);
      }
    }
    return;
  }
  const int base[2][3] = {{Extend5(r), Extend5(g), Extend5(b)},
                          {Extend5(static_cast<std::uint32_t>(r2)), Extend5(static_cast<std::uint32_t>(g2)),
                           Extend5(static_cast<std::uint32_t>(b2))}};
  DecodeSubBlocks(base, hi, lo, transparent_index2, out, stride);
}

// The 48 index bits of an EAC block, first pixel (x = 0, y = 0) in the top three.
inline std::uint64_t EacIndices(const std::uint8_t* block) { return LoadBE64(block) & 0xFFFFFFFFFFFFull; }

// ETC2 RGBA8 alpha: base + modifier x multiplier, clamped (multiplier 0 gives the base everywhere).
void DecodeAlphaBlock(const std::uint8_t* block, std::uint8_t* out, std::size_t stride) {
  const int base = block[0];
  const int multiplier = block[1] >> 4;
  const int* table = kEacModifiers[block[1] & 15u];
  const std::uint64_t indices = EacIndices(block);
  for (unsigned p = 0; p < 16; ++p) {
    const int modifier = table[indices >> (45 - 3 * p) & 7u];
    out[(p & 3u) * stride + (p >> 2) * 4 + 3] = Clamp255(base + modifier * multiplier);
  }
}

// One 11-bit EAC channel into 16-bit values (stored at out[p], p = x * 4 + y).
// Multiplier 0 adds the modifier itself, unscaled. The widening to 16 bits is
// the bit replication the public Khronos definition gives for reading
// as 16-bit: the extremes map to 65535 and +-32767, and signed values widen
// by their magnitude so the range stays symmetric.
template <bool Signed>
void DecodeEac11(const std::uint8_t* block, std::uint16_t* values) {
  int base = Signed ? static_cast<int>(static_cast<std::int8_t>(block[0])) : static_cast<int>(block[0]);
  // A signed base of -128 is read as -127, keeping the range symmetric.
  if (Signed && base == -128) base = -127;
  const int multiplier = block[1] >> 4;
  const int* table = kEacModifiers[block[1] & 15u];
  const std::uint64_t indices = EacIndices(block);
  for (unsigned p = 0; p < 16; ++p) {
    const int modifier = table[indices >> (45 - 3 * p) & 7u];
    const int offset = multiplier != 0 ? modifier * multiplier * 8 : modifier;
    if (Signed) {
      int v = base * 8 + offset;
      v = v < -1023 ? -1023 : v > 1023 ? 1023 : v;
      const int magnitude = v < 0 ? -v : v;
      const int wide = magnitude << 5 | magnitude >> 5;
      values[p] = static_cast<std::uint16_t>(static_cast<std::int16_t>(v < 0 ? -wide : wide));
    } else {
      int v = base * 8 + 4 + offset;
      v = v < 0 ? 0 : v > 2047 ? 2047 : v;
      values[p] = static_cast<std::uint16_t>(v << 5 | v >> 6);
    }
  }
}

// R11 or RG11 (`Channels` 1 or 2) into R16G16B16A16 pixels: blue 0, alpha opaque.
template <bool Signed, unsigned Channels>
void DecodeEac(const std::uint8_t* block, std::uint8_t* out, std::size_t stride) {
  std::uint16_t values[2][16] = {};
  DecodeEac11<Signed>(block, values[0]);
  if (Channels == 2) DecodeEac11<Signed>(block + 8, values[1]);
  const std::uint16_t opaque = Signed ? 32767 : 65535;
  for (unsigned p = 0; p < 16; ++p) {
    const std::uint16_t pixel[4] = {values[0][p], values[1][p], 0, opaque};
    std::memcpy(out + (p & 3u) * stride + (p >> 2) * 8, pixel, sizeof pixel);
  }
}

}  // namespace

bool ETCDecodes(CompressFormat format) {
  switch (format) {
    case CompressFormat::ETC1:
    case CompressFormat::ETC2_RGB8:
    case CompressFormat::ETC2_RGBA8:
    case CompressFormat::ETC2_RGB8A1:
    case CompressFormat::EAC_R11:
    case CompressFormat::EAC_SIGNED_R11:
    case CompressFormat::EAC_RG11:
    case CompressFormat::EAC_SIGNED_RG11:
      return true;
    default:
      return false;
  }
}

bool DecodeETC(const BlockSource& src, const PixelTarget& dst) {
  switch (src.format) {
    case CompressFormat::ETC1:
    case CompressFormat::ETC2_RGB8:
      ForEachBlock<4, 4, 4>(src, 8, dst, [](const std::uint8_t* block, std::uint8_t* out, std::size_t stride) {
        DecodeColourBlock(block, false, out, stride);
      });
      return true;
    case CompressFormat::ETC2_RGB8A1:
      ForEachBlock<4, 4, 4>(src, 8, dst, [](const std::uint8_t* block, std::uint8_t* out, std::size_t stride) {
        DecodeColourBlock(block, true, out, stride);
      });
      return true;
    case CompressFormat::ETC2_RGBA8:
      ForEachBlock<4, 4, 4>(src, 16, dst, [](const std::uint8_t* block, std::uint8_t* out, std::size_t stride) {
        DecodeColourBlock(block + 8, false, out, stride);
        DecodeAlphaBlock(block, out, stride);
      });
      return true;
    case CompressFormat::EAC_R11:
      ForEachBlock<8, 4, 4>(src, 8, dst, DecodeEac<false, 1>);
      return true;
    case CompressFormat::EAC_RG11:
      ForEachBlock<8, 4, 4>(src, 16, dst, DecodeEac<false, 2>);
      return true;
    case CompressFormat::EAC_SIGNED_R11:
      ForEachBlock<8, 4, 4>(src, 8, dst, DecodeEac<true, 1>);
      return true;
    case CompressFormat::EAC_SIGNED_RG11:
      ForEachBlock<8, 4, 4>(src, 16, dst, DecodeEac<true, 2>);
      return true;
    default:
      return false;
  }
}

}  // namespace lumo::image::blocks::detail
