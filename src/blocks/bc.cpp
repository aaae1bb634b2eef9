// BC1-BC7 (DXT1-DXT5, BC4-BC7) blocks, decoded as Microsoft's Direct3D 10/11
// "Texture Block Compression" documentation defines them.
//
// Palette rounding of BC1-BC5: colour endpoints widen from 5/6 bits by bit
// replication, then the interpolated entries are (2a + b) / 3, (a + b) / 2,
// (6a + b) / 7 and (4a + b) / 5 in integers, truncated. The documentation
// describes these entries in floating point and leaves the rounding to the
// implementation; truncation is what the common reference tool (nvdecompress)
// produces, so textures decode to the same bytes as there. Signed BC4/BC5
// use the same integer arithmetic, which truncates toward zero and so stays
// symmetric about zero. BC2/BC3 colour always interpolates four entries,
// whatever the order of its endpoints, as the documentation defines it
// (nvdecompress applies BC1's three-colour rule there).
//
// Every bit pattern decodes to something defined: the reserved BC7 mode
// (first byte 0) gives transparent black and the four reserved BC6H mode
// codes give zeros (alpha 1.0), the values the documentation prescribes.
// BC6H follows the documented integer pipeline to the end, so a signed
// 16-bit endpoint of -32768 can yield negative infinity; no bit pattern
// yields a NaN.
#include <cstdint>
#include <cstring>

#include "blocks/block_kit.h"

namespace lumo::image::blocks::detail {
namespace {

using u8 = std::uint8_t;
using u64 = std::uint64_t;

inline u64 LoadLE64(const u8* p) {
  u64 v = 0;
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  std::memcpy(&v, p, 8);  // one load; the byte loop is not always merged
#else
  for (int i = 7; i >= 0; --i) v = v << 8 | p[i];
#endif
  return v;
}

// ---------------------------------------------------------------------------
// BC1-BC5

// Entry 3 of a three-colour block: opaque black for DXT1, transparent black
// for DXT1_A1. BC2/BC3 colour always interpolates four colours.
enum class ColourMode { Opaque, PunchThrough, FourAlways };

inline void Expand565(unsigned c, u8* rgba) {
  const unsigned r = c >> 11, g = (c >> 5) & 63, b = c & 31;
  rgba[0] = static_cast<u8>(r << 3 | r >> 2);
  rgba[1] = static_cast<u8>(g << 2 | g >> 4);
  rgba[2] = static_cast<u8>(b << 3 | b >> 2);
  rgba[3] = 255;
}

// The colour half of BC1-BC3: four RGBA entries, then 2-bit indices per pixel.
template <ColourMode Mode>
void DecodeColour(const u8* b, u8* out, std::size_t stride) {
  const unsigned c0 = b[0] | unsigned{b[1]} << 8, c1 = b[2] | unsigned{b[3]} << 8;
  u8 pal[4][4];
  Expand565(c0, pal[0]);
  Expand565(c1, pal[1]);
  if (Mode == ColourMode::FourAlways || c0 > c1) {
    for (int ch = 0; ch < 3; ++ch) {
      pal[2][ch] = static_cast<u8>((2 * pal[0][ch] + pal[1][ch]) / 3);
      pal[3][ch] = static_cast<u8>((pal[0][ch] + 2 * pal[1][ch]) / 3);
    }
    pal[2][3] = pal[3][3] = 255;
  } else {
    for (int ch = 0; ch < 3; ++ch) {
      pal[2][ch] = static_cast<u8>((pal[0][ch] + pal[1][ch]) / 2);
      pal[3][ch] = 0;
    }
    pal[2][3] = 255;
    pal[3][3] = Mode == ColourMode::PunchThrough ? 0 : 255;
  }
  for (unsigned y = 0; y < 4; ++y) {
    u8* row = out + y * stride;
    const unsigned bits = b[4 + y];
    std::memcpy(row + 0, pal[bits & 3], 4);
    std::memcpy(row + 4, pal[(bits >> 2) & 3], 4);
    std::memcpy(row + 8, pal[(bits >> 4) & 3], 4);
    std::memcpy(row + 12, pal[bits >> 6], 4);
  }
}

// BC2 alpha: 4 bits per pixel, widened by replication (x * 17).
void DecodeExplicitAlpha(const u8* b, u8* out, std::size_t stride) {
  for (unsigned y = 0; y < 4; ++y) {
    u8* row = out + y * stride + 3;
    const unsigned bits = b[2 * y] | unsigned{b[2 * y + 1]} << 8;
    for (unsigned x = 0; x < 4; ++x) row[4 * x] = static_cast<u8>(((bits >> (4 * x)) & 15) * 17);
  }
}

// One BC3-alpha/BC4 channel into byte `Channel` of 4-byte pixels. Signed
// blocks hold two's complement endpoints (-128 reads as -127; the mode test
// compares the stored bytes), and the six-entry mode's extremes are -127/127.
template <bool Signed, unsigned Channel>
void DecodeChannel(const u8* b, u8* out, std::size_t stride) {
  int a0, a1, lo, hi;
  bool eight;
  if (Signed) {
    const int s0 = static_cast<std::int8_t>(b[0]), s1 = static_cast<std::int8_t>(b[1]);
    eight = s0 > s1;
    a0 = s0 < -127 ? -127 : s0;
    a1 = s1 < -127 ? -127 : s1;
    lo = -127;
    hi = 127;
  } else {
    a0 = b[0];
    a1 = b[1];
    eight = a0 > a1;
    lo = 0;
    hi = 255;
  }
  u8 pal[8];
  pal[0] = static_cast<u8>(a0);
  pal[1] = static_cast<u8>(a1);
  if (eight) {
    for (int i = 1; i < 7; ++i) pal[i + 1] = static_cast<u8>(((7 - i) * a0 + i * a1) / 7);
  } else {
    for (int i = 1; i < 5; ++i) pal[i + 1] = static_cast<u8>(((5 - i) * a0 + i * a1) / 5);
    pal[6] = static_cast<u8>(lo);
    pal[7] = static_cast<u8>(hi);
  }
  u64 bits = LoadLE64(b) >> 16;
  for (unsigned y = 0; y < 4; ++y) {
    u8* row = out + y * stride + Channel;
    row[0] = pal[bits & 7];
    row[4] = pal[(bits >> 3) & 7];
    row[8] = pal[(bits >> 6) & 7];
    row[12] = pal[(bits >> 9) & 7];
    bits >>= 12;
  }
}

// BC4/BC5 channels the format lacks: green/blue 0, alpha opaque.
template <bool Signed, bool HasGreen>
void FillMissing(u8* out, std::size_t stride) {
  const u8 alpha = Signed ? 127 : 255;
  for (unsigned y = 0; y < 4; ++y) {
    u8* row = out + y * stride;
    for (unsigned x = 0; x < 4; ++x) {
      if (!HasGreen) row[4 * x + 1] = 0;
      row[4 * x + 2] = 0;
      row[4 * x + 3] = alpha;
    }
  }
}

// A BC4 (one channel) or BC5 (two channels, 8 bytes each) block.
template <bool Signed, bool HasGreen>
void DecodeRedGreen(const u8* b, u8* out, std::size_t stride) {
  DecodeChannel<Signed, 0>(b, out, stride);
  if (HasGreen) DecodeChannel<Signed, 1>(b + 8, out, stride);
  FillMissing<Signed, HasGreen>(out, stride);
}

// ---------------------------------------------------------------------------
// Shared by BC6H and BC7: the 128-bit block read from bit 0 upwards.

struct BitReader {
  u64 lo, hi;
  explicit BitReader(const u8* b) : lo(LoadLE64(b)), hi(LoadLE64(b + 8)) {}
  // The next n bits, 0 <= n <= 63 (two shifts keep n = 0 defined).
  unsigned long long Take(unsigned n) {
    const u64 v = lo & ((u64{1} << n) - 1);
    lo = lo >> n | (hi << 1) << (63 - n);
    hi >>= n;
    return v;
  }
  unsigned Bit() { return static_cast<unsigned>(Take(1)); }
};

// Index fields leave out the top bit of each anchor pixel's index (it is 0).
// Putting those zeros back gives `bits`-wide indices at fixed places.
inline u64 InsertZero(u64 v, unsigned pos) {
  const u64 low = v & ((u64{1} << pos) - 1);
  return low | (v >> pos) << (pos + 1);
}

// clang-format off
// Subset of each pixel (bit i = pixel i) for the 64 two-subset partitions.
constexpr std::uint16_t kPartition2[64] = {
    0xCCCC, 0x8888, 0xEEEE, 0xECC8, 0xC880, 0xFEEC, 0xFEC8, 0xEC80,
    0xC800, 0xFFEC, 0xFE80, 0xE800, 0xFFE8, 0xFF00, 0xFFF0, 0xF000,
    0xF710, 0x008E, 0x7100, 0x08CE, 0x008C, 0x7310, 0x3100, 0x8CCE,
    0x088C, 0x3110, 0x6666, 0x366C, 0x17E8, 0x0FF0, 0x718E, 0x399C,
    0xAAAA, 0xF0F0, 0x5A5A, 0x33CC, 0x3C3C, 0x55AA, 0x9696, 0xA55A,
    0x73CE, 0x13C8, 0x324C, 0x3BDC, 0x6996, 0xC33C, 0x9966, 0x0660,
    0x0272, 0x04E4, 0x4E40, 0x2720, 0xC936, 0x936C, 0x39C6, 0x639C,
    0x9336, 0x9CC6, 0x817E, 0xE718, 0xCCF0, 0x0FCC, 0x7744, 0xEE22};
// Three-subset partitions: 2 bits per pixel, pixel 0 lowest.
constexpr std::uint32_t kPartition3[64] = {
    0xAA685050, 0x6A5A5040, 0x5A5A4200, 0x5450A0A8, 0xA5A50000, 0xA0A05050, 0x5555A0A0, 0x5A5A5050,
    0xAA550000, 0xAA555500, 0xAAAA5500, 0x90909090, 0x94949494, 0xA4A4A4A4, 0xA9A59450, 0x2A0A4250,
    0xA5945040, 0x0A425054, 0xA5A5A500, 0x55A0A0A0, 0xA8A85454, 0x6A6A4040, 0xA4A45000, 0x1A1A0500,
    0x0050A4A4, 0xAAA59090, 0x14696914, 0x69691400, 0xA08585A0, 0xAA821414, 0x50A4A450, 0x6A5A0200,
    0xA9A58000, 0x5090A0A8, 0xA8A09050, 0x24242424, 0x00AA5500, 0x24924924, 0x24499224, 0x50A50A50,
    0x500AA550, 0xAAAA4444, 0x66660000, 0xA5A0A5A0, 0x50A050A0, 0x69286928, 0x44AAAA44, 0x66666600,
    0xAA444444, 0x54A854A8, 0x95809580, 0x96969600, 0xA85454A8, 0x80959580, 0xAA141414, 0x96960000,
    0xAAAA1414, 0xA05050A0, 0xA0A5A5A0, 0x96000000, 0x40804080, 0xA9A8A9A8, 0xAAAAAA44, 0x2A4A5254};
// Anchor pixel of subset 1 (two subsets), and of subsets 1 and 2 (three).
constexpr u8 kAnchor2[64] = {
    15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15,
    15,  2,  8,  2,  2,  8,  8, 15,  2,  8,  2,  2,  8,  8,  2,  2,
    15, 15,  6,  8,  2,  8, 15, 15,  2,  8,  2,  2,  2, 15, 15,  6,
     6,  2,  6,  8, 15, 15,  2,  2, 15, 15, 15, 15, 15,  2,  2, 15};
constexpr u8 kAnchor3a[64] = {
     3,  3, 15, 15,  8,  3, 15, 15,  8,  8,  6,  6,  6,  5,  3,  3,
     3,  3,  8, 15,  3,  3,  6, 10,  5,  8,  8,  6,  8,  5, 15, 15,
     8, 15,  3,  5,  6, 10,  8, 15, 15,  3, 15,  5, 15, 15, 15, 15,
     3, 15,  5,  5,  5,  8,  5, 10,  5, 10,  8, 13, 15, 12,  3,  3};
constexpr u8 kAnchor3b[64] = {
    15,  8,  8,  3, 15, 15,  3,  8, 15, 15, 15, 15, 15, 15, 15,  8,
    15,  8, 15,  3, 15,  8, 15,  8,  3, 15,  6, 10, 15, 15, 10,  8,
    15,  3, 15, 10, 10,  8,  9, 10,  6, 15,  8, 15,  3,  6,  6,  8,
    15,  3, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15,  3, 15, 15,  8};
// Interpolation weights (of 64) for 2-, 3- and 4-bit indices.
constexpr u8 kWeights[3][16] = {
    {0, 21, 43, 64},
    {0, 9, 18, 27, 37, 46, 55, 64},
    {0, 4, 9, 13, 17, 21, 26, 30, 34, 38, 43, 47, 51, 55, 60, 64}};
// clang-format on

inline const u8* Weights(unsigned index_bits) { return kWeights[index_bits - 2]; }

// Puts back the anchor zeros of 1-3 subsets (anchor 0 is pixel 0).
inline u64 ExpandIndices(u64 v, unsigned bits, unsigned subsets, unsigned partition) {
  v = InsertZero(v, bits - 1);
  if (subsets == 2) {
    v = InsertZero(v, kAnchor2[partition] * bits + bits - 1);
  } else if (subsets == 3) {
    unsigned a = kAnchor3a[partition], b = kAnchor3b[partition];
    if (a > b) {
      const unsigned t = a;
      a = b;
      b = t;
    }
    v = InsertZero(v, a * bits + bits - 1);
    v = InsertZero(v, b * bits + bits - 1);
  }
  return v;
}

// ---------------------------------------------------------------------------
// BC7

struct BC7Mode {
  u8 subsets, partition_bits, rotation_bits, selector_bits, colour_bits, alpha_bits;
  u8 pbits;  // 0 none, 1 one per endpoint, 2 one shared by a subset's endpoints
  u8 index_bits, index2_bits;
};
constexpr BC7Mode kBC7Modes[8] = {{3, 4, 0, 0, 4, 0, 1, 3, 0}, {2, 6, 0, 0, 6, 0, 2, 3, 0}, {3, 6, 0, 0, 5, 0, 0, 2, 0},
                                  {2, 6, 0, 0, 7, 0, 1, 2, 0}, {1, 0, 2, 1, 5, 6, 0, 2, 3}, {1, 0, 2, 0, 7, 8, 0, 2, 2},
                                  {1, 0, 0, 0, 7, 7, 1, 4, 0}, {2, 6, 0, 0, 5, 5, 1, 2, 0}};

inline u8 Interpolate8(unsigned a, unsigned b, unsigned w) { return static_cast<u8>(((64 - w) * a + w * b + 32) >> 6); }

// One mode with its field widths known at compile time.
template <unsigned M>
void DecodeBC7Mode(const u8* block, u8* out, std::size_t stride) {
  constexpr BC7Mode mode = kBC7Modes[M];
  BitReader r(block);
  r.Take(M + 1);
  const auto partition = static_cast<unsigned>(r.Take(mode.partition_bits));
  const auto rotation = static_cast<unsigned>(r.Take(mode.rotation_bits));
  const auto selector = static_cast<unsigned>(r.Take(mode.selector_bits));

  const unsigned endpoints = 2u * mode.subsets;
  unsigned ep[6][4];
  for (unsigned ch = 0; ch < 3; ++ch)
    for (unsigned e = 0; e < endpoints; ++e) ep[e][ch] = static_cast<unsigned>(r.Take(mode.colour_bits));
  for (unsigned e = 0; e < endpoints; ++e)
    ep[e][3] = mode.alpha_bits ? static_cast<unsigned>(r.Take(mode.alpha_bits)) : 255;
  unsigned cbits = mode.colour_bits, abits = mode.alpha_bits;
  if (mode.pbits != 0) {
    for (unsigned e = 0; e < endpoints; ++e) {
      // Mode 1 shares one bit between a subset's two endpoints.
      const unsigned p = mode.pbits == 2 && (e & 1u) ? (ep[e - 1][0] & 1u) : r.Bit();
      for (unsigned ch = 0; ch < (mode.alpha_bits ? 4u : 3u); ++ch) ep[e][ch] = ep[e][ch] << 1 | p;
    }
    ++cbits;
    if (abits) ++abits;
  }
  // Widen to 8 bits by replicating the top bits.
  for (unsigned e = 0; e < endpoints; ++e) {
    for (unsigned ch = 0; ch < 3; ++ch) ep[e][ch] = ep[e][ch] << (8 - cbits) | ep[e][ch] >> (2 * cbits - 8);
    if (abits) ep[e][3] = ep[e][3] << (8 - abits) | ep[e][3] >> (2 * abits - 8);
  }

  const unsigned ib = mode.index_bits;
  const u64 idx = ExpandIndices(r.Take(16 * ib - mode.subsets), ib, mode.subsets, partition);
  const unsigned imask = (1u << ib) - 1;

  if constexpr (mode.index2_bits == 0) {
    // Modes 0-3, 6, 7: one index per pixel selects an RGBA palette entry.
    u8 pal[3][16][4];
    const u8* w = Weights(ib);
    for (unsigned s = 0; s < mode.subsets; ++s)
      for (unsigned i = 0; i <= imask; ++i)
        for (unsigned ch = 0; ch < 4; ++ch) pal[s][i][ch] = Interpolate8(ep[2 * s][ch], ep[2 * s + 1][ch], w[i]);
    // Subset of each pixel: `shift` bits of the partition's map per pixel.
    std::uint32_t map = mode.subsets == 3 ? kPartition3[partition] : mode.subsets == 2 ? kPartition2[partition] : 0;
    constexpr unsigned shift = mode.subsets == 3 ? 2 : 1, smask = mode.subsets == 3 ? 3 : 1;
    u64 ix = idx;
    for (unsigned y = 0; y < 4; ++y) {
      u8* row = out + y * stride;
      for (unsigned x = 0; x < 4; ++x, ix >>= ib, map >>= shift)
        std::memcpy(row + 4 * x, pal[map & smask][ix & imask], 4);
    }
    return;
  }

  // Modes 4 and 5: separate colour and alpha indices, then the rotation.
  const unsigned ib2 = mode.index2_bits != 0 ? mode.index2_bits : ib;
  const u64 idx2 = mode.index2_bits != 0 ? InsertZero(r.Take(16 * ib2 - 1), ib2 - 1) : idx;
  const u64 cidx = selector ? idx2 : idx, aidx = selector ? idx : idx2;
  const unsigned cb = selector ? ib2 : ib, ab = selector ? ib : ib2;
  u8 cpal[8][4], apal[8];
  const u8* cw = Weights(cb);
  const u8* aw = Weights(ab);
  for (unsigned i = 0; i < (1u << cb); ++i)
    for (unsigned ch = 0; ch < 3; ++ch) cpal[i][ch] = Interpolate8(ep[0][ch], ep[1][ch], cw[i]);
  for (unsigned i = 0; i < (1u << ab); ++i) apal[i] = Interpolate8(ep[0][3], ep[1][3], aw[i]);
  const unsigned cm = (1u << cb) - 1, am = (1u << ab) - 1;
  // Rotation 1-3 swaps alpha with red, green or blue.
  const unsigned swap = rotation == 0 ? 3 : rotation - 1;
  for (unsigned i = 0; i < 16; ++i) {
    u8 px[4];
    std::memcpy(px, cpal[(cidx >> (cb * i)) & cm], 3);
    px[3] = apal[(aidx >> (ab * i)) & am];
    const u8 t = px[3];
    px[3] = px[swap];
    px[swap] = t;
    std::memcpy(out + (i >> 2) * stride + (i & 3) * 4, px, 4);
  }
}

void DecodeBC7(const u8* block, u8* out, std::size_t stride) {
  // The mode is the position of the lowest set bit of the first byte.
  switch (block[0] & (0u - block[0])) {
    case 1:
      return DecodeBC7Mode<0>(block, out, stride);
    case 2:
      return DecodeBC7Mode<1>(block, out, stride);
    case 4:
      return DecodeBC7Mode<2>(block, out, stride);
    case 8:
      return DecodeBC7Mode<3>(block, out, stride);
    case 16:
      return DecodeBC7Mode<4>(block, out, stride);
    case 32:
      return DecodeBC7Mode<5>(block, out, stride);
    case 64:
      return DecodeBC7Mode<6>(block, out, stride);
    case 128:
      return DecodeBC7Mode<7>(block, out, stride);
    default:  // reserved mode
      for (unsigned y = 0; y < 4; ++y) std::memset(out + y * stride, 0, 16);
  }
}

// ---------------------------------------------------------------------------
// BC6H

inline int SignExtend(unsigned v, unsigned bits) {
  const int m = 1 << (bits - 1);
  return (static_cast<int>(v & ((1u << bits) - 1)) ^ m) - m;
}

// Endpoint value of `bits` bits to the 16-bit interpolation range.
inline int Unquantize(int c, unsigned bits, bool is_signed) {
  if (!is_signed) {
    if (bits >= 15 || c == 0) return c;
    if (c == (1 << bits) - 1) return 0xFFFF;
    return ((c << 16) + 0x8000) >> bits;
  }
  if (bits >= 16) return c;
  const bool negative = c < 0;
  const int a = negative ? -c : c;
  int u;
  if (a == 0)
    u = 0;
  else if (a >= (1 << (bits - 1)) - 1)
    u = 0x7FFF;
  else
    u = ((a << 15) + 0x4000) >> (bits - 1);
  return negative ? -u : u;
}

// The interpolated value scaled to a half's bit pattern (31/64 of the
// unsigned range, 31/32 of the signed magnitude).
inline std::uint16_t FinishUnquantize(int v, bool is_signed) {
  if (!is_signed) return static_cast<std::uint16_t>((v * 31) >> 6);
  if (v < 0) return static_cast<std::uint16_t>(0x8000 | ((-v * 31) >> 5));
  return static_cast<std::uint16_t>((v * 31) >> 5);
}

// Endpoint fields: w/x are subset 0's endpoints, y/z subset 1's.
enum Field { RW, GW, BW, RX, GX, BX, RY, GY, BY, RZ, GZ, BZ };

struct BC6HFields {
  BitReader& r;
  unsigned e[12] = {};
  // The next n bits are bits lsb..lsb+n-1 of field f.
  void Run(Field f, unsigned lsb, unsigned n) { e[f] |= static_cast<unsigned>(r.Take(n)) << lsb; }
  // The next n bits are bits msb, msb-1, ... of field f (reversed runs).
  void Reversed(Field f, unsigned msb, unsigned n) {
    for (unsigned i = 0; i < n; ++i) e[f] |= r.Bit() << (msb - i);
  }
  void Bases(unsigned n) {
    Run(RW, 0, n);
    Run(GW, 0, n);
    Run(BW, 0, n);
  }
};

template <bool is_signed>
void DecodeBC6H(const u8* block, u8* out, std::size_t stride) {
  BitReader r(block);
  unsigned code = static_cast<unsigned>(r.Take(2));
  if (code >= 2) code |= static_cast<unsigned>(r.Take(3)) << 2;
  BC6HFields f{r};
  unsigned base = 0, dr = 0, dg = 0, db = 0;  // endpoint bits, delta bits
  bool transformed = true, two = true;
  // Field layouts of the 14 modes (Direct3D 11 BC6H table), by mode code.
  switch (code) {
    case 0x00:  // mode 1: 10.555
      f.Run(GY, 4, 1), f.Run(BY, 4, 1), f.Run(BZ, 4, 1), f.Bases(10), f.Run(RX, 0, 5), f.Run(GZ, 4, 1);
      f.Run(GY, 0, 4), f.Run(GX, 0, 5), f.Run(BZ, 0, 1), f.Run(GZ, 0, 4), f.Run(BX, 0, 5), f.Run(BZ, 1, 1);
      f.Run(BY, 0, 4), f.Run(RY, 0, 5), f.Run(BZ, 2, 1), f.Run(RZ, 0, 5), f.Run(BZ, 3, 1);
      base = 10, dr = dg = db = 5;
      break;
    case 0x01:  // mode 2: 7.666
      f.Run(GY, 5, 1), f.Run(GZ, 4, 2), f.Run(RW, 0, 7), f.Run(BZ, 0, 2), f.Run(BY, 4, 1), f.Run(GW, 0, 7);
      f.Run(BY, 5, 1), f.Run(BZ, 2, 1), f.Run(GY, 4, 1), f.Run(BW, 0, 7), f.Run(BZ, 3, 1), f.Run(BZ, 5, 1);
      f.Run(BZ, 4, 1), f.Run(RX, 0, 6), f.Run(GY, 0, 4), f.Run(GX, 0, 6), f.Run(GZ, 0, 4), f.Run(BX, 0, 6);
      f.Run(BY, 0, 4), f.Run(RY, 0, 6), f.Run(RZ, 0, 6);
      base = 7, dr = dg = db = 6;
      break;
    case 0x02:  // mode 3: 11.544
      f.Bases(10), f.Run(RX, 0, 5), f.Run(RW, 10, 1), f.Run(GY, 0, 4), f.Run(GX, 0, 4), f.Run(GW, 10, 1);
      f.Run(BZ, 0, 1), f.Run(GZ, 0, 4), f.Run(BX, 0, 4), f.Run(BW, 10, 1), f.Run(BZ, 1, 1), f.Run(BY, 0, 4);
      f.Run(RY, 0, 5), f.Run(BZ, 2, 1), f.Run(RZ, 0, 5), f.Run(BZ, 3, 1);
      base = 11, dr = 5, dg = db = 4;
      break;
    case 0x06:  // mode 4: 11.454
      f.Bases(10), f.Run(RX, 0, 4), f.Run(RW, 10, 1), f.Run(GZ, 4, 1), f.Run(GY, 0, 4), f.Run(GX, 0, 5);
      f.Run(GW, 10, 1), f.Run(GZ, 0, 4), f.Run(BX, 0, 4), f.Run(BW, 10, 1), f.Run(BZ, 1, 1), f.Run(BY, 0, 4);
      f.Run(RY, 0, 4), f.Run(BZ, 0, 1), f.Run(BZ, 2, 1), f.Run(RZ, 0, 4), f.Run(GY, 4, 1), f.Run(BZ, 3, 1);
      base = 11, dg = 5, dr = db = 4;
      break;
    case 0x0A:  // mode 5: 11.445
      f.Bases(10), f.Run(RX, 0, 4), f.Run(RW, 10, 1), f.Run(BY, 4, 1), f.Run(GY, 0, 4), f.Run(GX, 0, 4);
      f.Run(GW, 10, 1), f.Run(BZ, 0, 1), f.Run(GZ, 0, 4), f.Run(BX, 0, 5), f.Run(BW, 10, 1), f.Run(BY, 0, 4);
      f.Run(RY, 0, 4), f.Run(BZ, 1, 2), f.Run(RZ, 0, 4), f.Run(BZ, 4, 1), f.Run(BZ, 3, 1);
      base = 11, db = 5, dr = dg = 4;
      break;
    case 0x0E:  // mode 6: 9.555
      f.Run(RW, 0, 9), f.Run(BY, 4, 1), f.Run(GW, 0, 9), f.Run(GY, 4, 1), f.Run(BW, 0, 9), f.Run(BZ, 4, 1);
      f.Run(RX, 0, 5), f.Run(GZ, 4, 1), f.Run(GY, 0, 4), f.Run(GX, 0, 5), f.Run(BZ, 0, 1), f.Run(GZ, 0, 4);
      f.Run(BX, 0, 5), f.Run(BZ, 1, 1), f.Run(BY, 0, 4), f.Run(RY, 0, 5), f.Run(BZ, 2, 1), f.Run(RZ, 0, 5);
      f.Run(BZ, 3, 1);
      base = 9, dr = dg = db = 5;
      break;
    case 0x12:  // mode 7: 8.655
      f.Run(RW, 0, 8), f.Run(GZ, 4, 1), f.Run(BY, 4, 1), f.Run(GW, 0, 8), f.Run(BZ, 2, 1), f.Run(GY, 4, 1);
      f.Run(BW, 0, 8), f.Run(BZ, 3, 2), f.Run(RX, 0, 6), f.Run(GY, 0, 4), f.Run(GX, 0, 5), f.Run(BZ, 0, 1);
      f.Run(GZ, 0, 4), f.Run(BX, 0, 5), f.Run(BZ, 1, 1), f.Run(BY, 0, 4), f.Run(RY, 0, 6), f.Run(RZ, 0, 6);
      base = 8, dr = 6, dg = db = 5;
      break;
    case 0x16:  // mode 8: 8.565
      f.Run(RW, 0, 8), f.Run(BZ, 0, 1), f.Run(BY, 4, 1), f.Run(GW, 0, 8), f.Run(GY, 5, 1), f.Run(GY, 4, 1);
      f.Run(BW, 0, 8), f.Run(GZ, 5, 1), f.Run(BZ, 4, 1), f.Run(RX, 0, 5), f.Run(GZ, 4, 1), f.Run(GY, 0, 4);
      f.Run(GX, 0, 6), f.Run(GZ, 0, 4), f.Run(BX, 0, 5), f.Run(BZ, 1, 1), f.Run(BY, 0, 4), f.Run(RY, 0, 5);
      f.Run(BZ, 2, 1), f.Run(RZ, 0, 5), f.Run(BZ, 3, 1);
      base = 8, dg = 6, dr = db = 5;
      break;
    case 0x1A:  // mode 9: 8.556
      f.Run(RW, 0, 8), f.Run(BZ, 1, 1), f.Run(BY, 4, 1), f.Run(GW, 0, 8), f.Run(BY, 5, 1), f.Run(GY, 4, 1);
      f.Run(BW, 0, 8), f.Run(BZ, 5, 1), f.Run(BZ, 4, 1), f.Run(RX, 0, 5), f.Run(GZ, 4, 1), f.Run(GY, 0, 4);
      f.Run(GX, 0, 5), f.Run(BZ, 0, 1), f.Run(GZ, 0, 4), f.Run(BX, 0, 6), f.Run(BY, 0, 4), f.Run(RY, 0, 5);
      f.Run(BZ, 2, 1), f.Run(RZ, 0, 5), f.Run(BZ, 3, 1);
      base = 8, db = 6, dr = dg = 5;
      break;
    case 0x1E:  // mode 10: 6.6.6.6, endpoints stored whole
      f.Run(RW, 0, 6), f.Run(GZ, 4, 1), f.Run(BZ, 0, 2), f.Run(BY, 4, 1), f.Run(GW, 0, 6), f.Run(GY, 5, 1);
      f.Run(BY, 5, 1), f.Run(BZ, 2, 1), f.Run(GY, 4, 1), f.Run(BW, 0, 6), f.Run(GZ, 5, 1), f.Run(BZ, 3, 1);
      f.Run(BZ, 5, 1), f.Run(BZ, 4, 1), f.Run(RX, 0, 6), f.Run(GY, 0, 4), f.Run(GX, 0, 6), f.Run(GZ, 0, 4);
      f.Run(BX, 0, 6), f.Run(BY, 0, 4), f.Run(RY, 0, 6), f.Run(RZ, 0, 6);
      base = dr = dg = db = 6, transformed = false;
      break;
    case 0x03:  // mode 11: 10.10, one subset stored whole
      f.Bases(10), f.Run(RX, 0, 10), f.Run(GX, 0, 10), f.Run(BX, 0, 10);
      base = dr = dg = db = 10, transformed = false, two = false;
      break;
    case 0x07:  // mode 12: 11.9
      f.Bases(10), f.Run(RX, 0, 9), f.Run(RW, 10, 1), f.Run(GX, 0, 9), f.Run(GW, 10, 1), f.Run(BX, 0, 9);
      f.Run(BW, 10, 1);
      base = 11, dr = dg = db = 9, two = false;
      break;
    case 0x0B:  // mode 13: 12.8, the high base bits stored reversed
      f.Bases(10), f.Run(RX, 0, 8), f.Reversed(RW, 11, 2), f.Run(GX, 0, 8), f.Reversed(GW, 11, 2);
      f.Run(BX, 0, 8), f.Reversed(BW, 11, 2);
      base = 12, dr = dg = db = 8, two = false;
      break;
    case 0x0F:  // mode 14: 16.4, the high base bits stored reversed
      f.Bases(10), f.Run(RX, 0, 4), f.Reversed(RW, 15, 6), f.Run(GX, 0, 4), f.Reversed(GW, 15, 6);
      f.Run(BX, 0, 4), f.Reversed(BW, 15, 6);
      base = 16, dr = dg = db = 4, two = false;
      break;
    default: {  // reserved mode codes
      const std::uint16_t zero[4] = {0, 0, 0, 0x3C00};
      for (unsigned i = 0; i < 16; ++i) std::memcpy(out + (i >> 2) * stride + (i & 3) * 8, zero, 8);
      return;
    }
  }
  const unsigned partition = two ? static_cast<unsigned>(r.Take(5)) : 0;

  const unsigned endpoints = two ? 4 : 2;
  const unsigned delta_bits[3] = {dr, dg, db};
  int ep[4][3];
  for (unsigned c = 0; c < 3; ++c) {
    const unsigned w = f.e[RW + c];
    ep[0][c] = is_signed ? SignExtend(w, base) : static_cast<int>(w);
    for (unsigned e = 1; e < endpoints; ++e) {
      const unsigned v = f.e[RW + 3 * e + c];
      if (transformed) {
        const unsigned sum = (w + static_cast<unsigned>(SignExtend(v, delta_bits[c]))) & ((1u << base) - 1);
        ep[e][c] = is_signed ? SignExtend(sum, base) : static_cast<int>(sum);
      } else {
        ep[e][c] = is_signed ? SignExtend(v, base) : static_cast<int>(v);
      }
    }
  }
  for (unsigned e = 0; e < endpoints; ++e)
    for (unsigned c = 0; c < 3; ++c) ep[e][c] = Unquantize(ep[e][c], base, is_signed);

  const unsigned ib = two ? 3 : 4;
  const unsigned subsets = two ? 2 : 1;
  const u64 idx = ExpandIndices(r.Take(16 * ib - subsets), ib, subsets, partition);
  const unsigned imask = (1u << ib) - 1;
  const u8* w = Weights(ib);
  std::uint16_t pal[2][16][4];
  for (unsigned s = 0; s < subsets; ++s) {
    for (unsigned i = 0; i <= imask; ++i) {
      for (unsigned c = 0; c < 3; ++c) {
        const int a = ep[2 * s][c], b = ep[2 * s + 1][c];
        const int wi = w[i];
        // Floor division by 64 written without shifting a negative value.
        const int sum = a * (64 - wi) + b * wi + 32;
        const int v = sum >= 0 ? sum >> 6 : -((-sum + 63) >> 6);
        pal[s][i][c] = FinishUnquantize(v, is_signed);
      }
      pal[s][i][3] = 0x3C00;
    }
  }
  const std::uint16_t map = two ? kPartition2[partition] : 0;
  for (unsigned i = 0; i < 16; ++i)
    std::memcpy(out + (i >> 2) * stride + (i & 3) * 8, pal[(map >> i) & 1u][(idx >> (ib * i)) & imask], 8);
}

}  // namespace

bool BCDecodes(CompressFormat format) {
  switch (format) {
    case CompressFormat::DXT1:
    case CompressFormat::DXT1_A1:
    case CompressFormat::DXT2:
    case CompressFormat::DXT3:
    case CompressFormat::DXT4:
    case CompressFormat::DXT5:
    case CompressFormat::BC4_unsigned:
    case CompressFormat::BC4_signed:
    case CompressFormat::BC5_unsigned:
    case CompressFormat::BC5_signed:
    case CompressFormat::BC6H_unsigned:
    case CompressFormat::BC6H_signed:
    case CompressFormat::BC7:
      return true;
    default:
      return false;
  }
}

bool DecodeBC(const BlockSource& src, const PixelTarget& dst) {
  using S = std::size_t;
  switch (src.format) {
    case CompressFormat::DXT1:
      ForEachBlock<4, 4, 4>(src, 8, dst, [](const u8* b, u8* o, S s) { DecodeColour<ColourMode::Opaque>(b, o, s); });
      return true;
    case CompressFormat::DXT1_A1:
      ForEachBlock<4, 4, 4>(src, 8, dst,
                            [](const u8* b, u8* o, S s) { DecodeColour<ColourMode::PunchThrough>(b, o, s); });
      return true;
    case CompressFormat::DXT2:
    case CompressFormat::DXT3:
      ForEachBlock<4, 4, 4>(src, 16, dst, [](const u8* b, u8* o, S s) {
        DecodeColour<ColourMode::FourAlways>(b + 8, o, s);
        DecodeExplicitAlpha(b, o, s);
      });
      return true;
    case CompressFormat::DXT4:
    case CompressFormat::DXT5:
      ForEachBlock<4, 4, 4>(src, 16, dst, [](const u8* b, u8* o, S s) {
        DecodeColour<ColourMode::FourAlways>(b + 8, o, s);
        DecodeChannel<false, 3>(b, o, s);
      });
      return true;
    case CompressFormat::BC4_unsigned:
      ForEachBlock<4, 4, 4>(src, 8, dst, DecodeRedGreen<false, false>);
      return true;
    case CompressFormat::BC4_signed:
      ForEachBlock<4, 4, 4>(src, 8, dst, DecodeRedGreen<true, false>);
      return true;
    case CompressFormat::BC5_unsigned:
      ForEachBlock<4, 4, 4>(src, 16, dst, DecodeRedGreen<false, true>);
      return true;
    case CompressFormat::BC5_signed:
      ForEachBlock<4, 4, 4>(src, 16, dst, DecodeRedGreen<true, true>);
      return true;
    case CompressFormat::BC6H_unsigned:
      ForEachBlock<8, 4, 4>(src, 16, dst, DecodeBC6H<false>);
      return true;
    case CompressFormat::BC6H_signed:
      ForEachBlock<8, 4, 4>(src, 16, dst, DecodeBC6H<true>);
      return true;
    case CompressFormat::BC7:
      ForEachBlock<4, 4, 4>(src, 16, dst, DecodeBC7);
      return true;
    default:
      return false;
  }
}

}  // namespace lumo::image::blocks::detail
