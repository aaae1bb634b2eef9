// PVRTC version 1 (2 and 4 bits per pixel). Each 64-bit block holds two
// low-resolution colours and per-pixel modulation; the two colour images are
// upscaled bilinearly between block centres, wrapping around the picture's
// edges, and blended by the modulation. A pixel therefore depends on the
// 3 x 3 blocks around its own, so decoding walks the grid itself instead of
// using ForEachBlock. PVRTC version 2 is not decoded.
//
// Block order: Morton order with the block row's bit below the column's at
// each level, the longer side's remaining bits on top, for grids whose sides
// are powers of two (the only ones the format defines). Other grids, which
// the format leaves undefined, are read row by row. The grid is the one the
// blocks' byte count is made of: whole blocks covering at least the format's
// minimum size (16 x 8 pixels for 2 bpp, 8 x 8 for 4 bpp).
#include <cstdint>
#include <cstring>

#include "blocks/block_kit.h"

namespace lumo::image::blocks::detail {
namespace {

inline std::uint32_t Load32(const std::uint8_t* p) {
  return p[0] | std::uint32_t{p[1]} << 8 | std::uint32_t{p[2]} << 16 | std::uint32_t{p[3]} << 24;
}

bool IsPowerOfTwo(std::uint32_t v) { return v != 0 && (v & (v - 1)) == 0; }

struct Grid {
  std::uint32_t nx, ny;
  bool morton;

  std::size_t Index(std::uint32_t x, std::uint32_t y) const {
    if (!morton) return std::size_t{y} * nx + x;
    const std::uint32_t shorter = nx < ny ? nx : ny;
    std::size_t index = 0;
    unsigned level = 0;
    for (std::uint32_t bit = 1; bit < shorter; bit <<= 1, ++level) {
      if (y & bit) index |= std::size_t{1} << (2 * level);
      if (x & bit) index |= std::size_t{2} << (2 * level);
    }
    return index | std::size_t{(nx < ny ? y : x) >> level} << (2 * level);
  }
};

// The two colours of a block at the decoder's working precision: red, green,
// blue in 5 bits, alpha in 4. The top bit of each half-word selects opaque
// (A: R5 G5 B4, B: R5 G5 B5; alpha 15) or translucent (A: A3 R4 G4 B3,
// B: A3 R4 G4 B4; alpha widened with a zero bit) storage.
struct Colours {
  int a[4], b[4];
};

Colours UnpackColours(std::uint32_t word) {
  Colours c;
  const std::uint32_t lo = word & 0xFFFFu, hi = word >> 16;
  if (lo & 0x8000u) {
    c.a[0] = static_cast<int>(lo >> 10 & 31u);
    c.a[1] = static_cast<int>(lo >> 5 & 31u);
    const std::uint32_t b4 = lo >> 1 & 15u;
    c.a[2] = static_cast<int>(b4 << 1 | b4 >> 3);
    c.a[3] = 15;
  } else {
    const std::uint32_t r = lo >> 8 & 15u, g = lo >> 4 & 15u, b = lo >> 1 & 7u;
    c.a[0] = static_cast<int>(r << 1 | r >> 3);
    c.a[1] = static_cast<int>(g << 1 | g >> 3);
    c.a[2] = static_cast<int>(b << 2 | b >> 1);
    c.a[3] = static_cast<int>((lo >> 12 & 7u) << 1);
  }
  if (hi & 0x8000u) {
    c.b[0] = static_cast<int>(hi >> 10 & 31u);
    c.b[1] = static_cast<int>(hi >> 5 & 31u);
    c.b[2] = static_cast<int>(hi & 31u);
    c.b[3] = 15;
  } else {
    const std::uint32_t r = hi >> 8 & 15u, g = hi >> 4 & 15u, b = hi & 15u;
    c.b[0] = static_cast<int>(r << 1 | r >> 3);
    c.b[1] = static_cast<int>(g << 1 | g >> 3);
    c.b[2] = static_cast<int>(b << 1 | b >> 3);
    c.b[3] = static_cast<int>((hi >> 12 & 7u) << 1);
  }
  return c;
}

constexpr int kWeights[4] = {0, 3, 5, 8};
// 4 bpp blocks with the mode bit: index 2 is weight 4 with alpha 0.
constexpr int kPunchThrough = -1;
constexpr int kPunchThroughWeights[4] = {0, 4, kPunchThrough, 8};

// 2 bpp modulation of one 8 x 4 block as weights 0-8. Without the mode bit
// each pixel has one bit (weight 0 or 8). With it, the pixels where x + y is
// even store 2-bit weights and the others take the mean of their stored
// neighbours (all four, or left and right, or above and below: `mode` 1, 2,
// 3), which may lie in the neighbouring blocks.
struct Modulation2 {
  int stored[4][8];  // weights of the stored pixels (all pixels without the mode bit)
  int mode;          // 0: none interpolated
};

Modulation2 UnpackModulation2(std::uint32_t bits, std::uint32_t colour_word) {
  Modulation2 m{};
  if ((colour_word & 1u) == 0) {
    for (unsigned p = 0; p < 32; ++p) m.stored[p >> 3][p & 7u] = (bits >> p & 1u) ? 8 : 0;
    return m;
  }
  // Bit 0 chooses between all four neighbours and one direction, given by
  // bit 20; the weights in bits 0-1 and 20-21 then repeat their upper bit.
  if (bits & 1u) {
    m.mode = (bits & (1u << 20)) ? 3 : 2;
    bits = (bits & ~(1u << 20)) | (bits >> 1 & (1u << 20));
  } else {
    m.mode = 1;
  }
  bits = (bits & ~1u) | (bits >> 1 & 1u);
  unsigned shift = 0;
  for (unsigned y = 0; y < 4; ++y)
    for (unsigned x = y & 1u; x < 8; x += 2, shift += 2) m.stored[y][x] = kWeights[bits >> shift & 3u];
  return m;
}

template <bool TwoBpp>
class Decoder {
 public:
  static constexpr unsigned kW = TwoBpp ? 8 : 4, kH = 4;

  // `opaque`: the RGB formats, whose alpha reads 255 whatever the blocks hold.
  Decoder(const BlockSource& src, const Grid& grid, bool opaque) : src_(src), grid_(grid), opaque_(opaque) {}

  const std::uint8_t* Block(std::int64_t x, std::int64_t y) const {
    const auto wx = static_cast<std::uint32_t>((x + grid_.nx) % grid_.nx);
    const auto wy = static_cast<std::uint32_t>((y + grid_.ny) % grid_.ny);
    return src_.data + grid_.Index(wx, wy) * 8;
  }

  void DecodeBlock(std::uint32_t bx, std::uint32_t by, const PixelTarget& dst) const {
    // Colours of the 3 x 3 neighbourhood.
    Colours colours[3][3];
    for (int dy = 0; dy < 3; ++dy)
      for (int dx = 0; dx < 3; ++dx)
        colours[dy][dx] = UnpackColours(Load32(Block(std::int64_t{bx} + dx - 1, std::int64_t{by} + dy - 1) + 4));

    // Weights of the block's pixels.
    int weights[kH][kW];
    const std::uint8_t* own = Block(bx, by);
    const std::uint32_t bits = Load32(own), colour_word = Load32(own + 4);
    if (TwoBpp) {
      // The block and a one-pixel border from its neighbours.
      int window[kH + 2][kW + 2] = {};
      for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) {
          const std::uint8_t* b = Block(std::int64_t{bx} + dx, std::int64_t{by} + dy);
          const Modulation2 m = UnpackModulation2(Load32(b), Load32(b + 4));
          for (int y = 0; y < static_cast<int>(kH); ++y)
            for (int x = 0; x < static_cast<int>(kW); ++x) {
              const int wx = x + dx * static_cast<int>(kW) + 1, wy = y + dy * static_cast<int>(kH) + 1;
              if (wx >= 0 && wx < static_cast<int>(kW) + 2 && wy >= 0 && wy < static_cast<int>(kH) + 2)
                window[wy][wx] = m.stored[y][x];
            }
        }
      const Modulation2 m = UnpackModulation2(bits, colour_word);
      for (unsigned y = 0; y < kH; ++y)
        for (unsigned x = 0; x < kW; ++x) {
          const int* up = &window[y][x + 1];
          const int* mid = &window[y + 1][x + 1];
          const int* down = &window[y + 2][x + 1];
          if (m.mode == 0 || ((x ^ y) & 1u) == 0)
            weights[y][x] = mid[0];
          else if (m.mode == 1)
            weights[y][x] = (mid[-1] + mid[1] + up[0] + down[0] + 2) / 4;
          else if (m.mode == 2)
            weights[y][x] = (mid[-1] + mid[1] + 1) / 2;
          else
            weights[y][x] = (up[0] + down[0] + 1) / 2;
        }
    } else {
      const bool punch_through = (colour_word & 1u) != 0;
      for (unsigned p = 0; p < 16; ++p) {
        const unsigned v = bits >> (2 * p) & 3u;
        weights[p >> 2][p & 3u] = punch_through ? kPunchThroughWeights[v] : kWeights[v];
      }
    }

    // Bilinear colours between the centres around each pixel, then the blend.
    const std::uint32_t x0 = bx * kW, y0 = by * kH;
    const unsigned cols = src_.width - x0 < kW ? src_.width - x0 : kW;
    const unsigned rows = src_.height - y0 < kH ? src_.height - y0 : kH;
    for (unsigned y = 0; y < rows; ++y) {
      const int top = y < kH / 2 ? 0 : 1;
      const int fy = static_cast<int>(y) + (y < kH / 2 ? static_cast<int>(kH / 2) : -static_cast<int>(kH / 2));
      std::uint8_t* row = dst.data + (y0 + y) * dst.bytes_per_row + std::size_t{x0} * 4;
      for (unsigned x = 0; x < cols; ++x) {
        const int left = x < kW / 2 ? 0 : 1;
        const int fx = static_cast<int>(x) + (x < kW / 2 ? static_cast<int>(kW / 2) : -static_cast<int>(kW / 2));
        const Colours& p = colours[top][left];
        const Colours& q = colours[top][left + 1];
        const Colours& r = colours[top + 1][left];
        const Colours& s = colours[top + 1][left + 1];
        const int wp = (static_cast<int>(kW) - fx) * (static_cast<int>(kH) - fy), wq = fx * (static_cast<int>(kH) - fy),
                  wr = (static_cast<int>(kW) - fx) * fy, ws = fx * fy;
        int weight = weights[y][x];
        const bool transparent = weight == kPunchThrough;
        if (transparent) weight = 4;
        for (int k = 0; k < 4; ++k) {
          // Sums are scaled by kW * kH (16 or 32); widen 5-bit (4-bit alpha) values to 8 bits.
          const int va = p.a[k] * wp + q.a[k] * wq + r.a[k] * wr + s.a[k] * ws;
          const int vb = p.b[k] * wp + q.b[k] * wq + r.b[k] * wr + s.b[k] * ws;
          int a8, b8;
          if (k < 3) {
            a8 = TwoBpp ? (va >> 2) + (va >> 7) : (va >> 1) + (va >> 6);
            b8 = TwoBpp ? (vb >> 2) + (vb >> 7) : (vb >> 1) + (vb >> 6);
          } else {
            a8 = TwoBpp ? (va >> 1) + (va >> 5) : va + (va >> 4);
            b8 = TwoBpp ? (vb >> 1) + (vb >> 5) : vb + (vb >> 4);
          }
          row[x * 4 + k] = static_cast<std::uint8_t>((a8 * (8 - weight) + b8 * weight) / 8);
        }
        if (transparent) row[x * 4 + 3] = 0;
        if (opaque_) row[x * 4 + 3] = 255;
      }
    }
  }

 private:
  const BlockSource& src_;
  Grid grid_;
  bool opaque_;
};

template <bool TwoBpp>
bool Decode(const BlockSource& src, const PixelTarget& dst) {
  constexpr unsigned kW = Decoder<TwoBpp>::kW, kH = Decoder<TwoBpp>::kH;
  const std::uint32_t min_w = TwoBpp ? 16 : 8, min_h = 8;
  const std::uint32_t w = src.width < min_w ? min_w : src.width, h = src.height < min_h ? min_h : src.height;
  Grid grid{(w + kW - 1) / kW, (h + kH - 1) / kH, false};
  grid.morton = IsPowerOfTwo(grid.nx) && IsPowerOfTwo(grid.ny);
  // The front end has checked the blocks against this grid; a mismatch here
  // would mean the two disagree on the grid, so nothing is read.
  if (std::uint64_t{grid.nx} * grid.ny * 8 > src.size) return false;
  const bool opaque = src.format == CompressFormat::PVRTC_2bpp_RGB || src.format == CompressFormat::PVRTC_4bpp_RGB;
  const Decoder<TwoBpp> decoder(src, grid, opaque);
  const std::uint32_t visible_x = (src.width + kW - 1) / kW, visible_y = (src.height + kH - 1) / kH;
  for (std::uint32_t by = 0; by < visible_y; ++by)
    for (std::uint32_t bx = 0; bx < visible_x; ++bx) decoder.DecodeBlock(bx, by, dst);
  return true;
}

}  // namespace

bool PVRTCDecodes(CompressFormat format) {
  switch (format) {
    case CompressFormat::PVRTC_2bpp_RGB:
    case CompressFormat::PVRTC_2bpp_RGBA:
    case CompressFormat::PVRTC_4bpp_RGB:
    case CompressFormat::PVRTC_4bpp_RGBA:
      return true;
    default:
      return false;
  }
}

bool DecodePVRTC(const BlockSource& src, const PixelTarget& dst) {
  switch (src.format) {
    case CompressFormat::PVRTC_2bpp_RGB:
    case CompressFormat::PVRTC_2bpp_RGBA:
      return Decode<true>(src, dst);
    case CompressFormat::PVRTC_4bpp_RGB:
    case CompressFormat::PVRTC_4bpp_RGBA:
      return Decode<false>(src, dst);
    default:
      return false;
  }
}

}  // namespace lumo::image::blocks::detail
