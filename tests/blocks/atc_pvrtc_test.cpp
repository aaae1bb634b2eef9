// ATC and PVRTC version 1 decoding. No independent decoder of either is at
// hand, so the tests hold to what is known without one: blocks whose pixels
// are the stored endpoints or fixed weights of them, ATC alpha against the
// DXT3/DXT5 decoders (the same alpha blocks), single bright blocks seen at
// their centres, and a shift of the block grid shifting the picture.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "blocks/block_refs.h"
#include "lumo/image/blocks.h"

namespace lumo::image::blocks {
namespace {

using testing::Block;
using testing::Compressed;
using testing::DecodesTo;
using testing::DecodeValues;
using F = CompressFormat;

void PutLE32(std::uint8_t* p, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<std::uint8_t>(v >> (8 * i));
}

// Colour 0 is R5 G5 B5 (top bit: palette), colour 1 R5 G6 B5; indices E4 put
// 0-3 along the top row, index 0 elsewhere.
TEST(AtcBlocks, DecodeToTheirPalette) {
  // Palette 0: colour 0, thirds, colour 1.
  EXPECT_TRUE(DecodesTo(
      Compressed(F::ATC_RGB), {0x00, 0x7C, 0x1F, 0x00, 0xE4, 0, 0, 0}, 4, 4,
      {{0, 255, 0, 0, 255}, {1, 170, 0, 85, 255}, {2, 85, 0, 170, 255}, {3, 0, 0, 255, 255}, {15, 255, 0, 0, 255}}));
  // Palette 1: black, colour 0 (132,66,33) minus a quarter of colour 1 (66,65,255), colour 0, colour 1.
  EXPECT_TRUE(DecodesTo(
      Compressed(F::ATC_RGB), {0x04, 0xC1, 0x1F, 0x42, 0xE4, 0, 0, 0}, 4, 4,
      {{0, 0, 0, 0, 255}, {1, 116, 50, 0, 255}, {2, 132, 66, 33, 255}, {3, 66, 65, 255, 255}, {15, 0, 0, 0, 255}}));
}

// ATC's alpha blocks are DXT3's and DXT5's: the same bytes give the same
// alpha through the BC decoders, and the colour half is the ATC_RGB block.
TEST(AtcBlocks, AlphaMatchesTheDxtAlphaBlocks) {
  std::mt19937 rng(7);
  for (int round = 0; round < 100; ++round) {
    Block block(16);
    for (auto& b : block) b = static_cast<std::uint8_t>(rng());
    if (round % 2) std::swap(block[0], block[1]);  // both alpha palettes
    const auto rgb = DecodeValues(Compressed(F::ATC_RGB), Block(block.begin() + 8, block.end()), 4, 4);
    const auto dxt3 = DecodeValues(Compressed(F::DXT3), block, 4, 4);
    const auto dxt5 = DecodeValues(Compressed(F::DXT5), block, 4, 4);
    const auto explicit_alpha = DecodeValues(Compressed(F::ATC_RGBA_EXPLICIT_ALPHA), block, 4, 4);
    const auto interpolated = DecodeValues(Compressed(F::ATC_RGBA_INTERPOLATED_ALPHA), block, 4, 4);
    for (unsigned i = 0; i < 64; ++i) {
      ASSERT_EQ(explicit_alpha[i], (i & 3) == 3 ? dxt3[i] : rgb[i]) << i;
      ASSERT_EQ(interpolated[i], (i & 3) == 3 ? dxt5[i] : rgb[i]) << i;
    }
  }
}

// A 16 x 8 picture of identical blocks (modulation word, colour word).
Block Uniform(F f, std::uint32_t modulation, std::uint32_t colours) {
  Block blocks(BytesTotal(Compressed(f), 16, 8, 0));
  for (std::size_t i = 0; i + 8 <= blocks.size(); i += 8)
    PutLE32(&blocks[i], modulation), PutLE32(&blocks[i + 4], colours);
  return blocks;
}

// Colour A = colour B: every modulation gives that colour, widened by bit
// replication, over the whole picture.
TEST(PvrtcBlocks, EqualColoursGiveThatColour) {
  const struct {
    F format;
    std::uint32_t colours;
    int rgba[4];
  } cases[] = {
      {F::PVRTC_4bpp_RGBA, 0xFFFFFFFE, {255, 255, 255, 255}},
      {F::PVRTC_4bpp_RGBA, 0xC108C108, {132, 66, 66, 255}},  // R 16, G 8, B 8 (A stores blue in 4 bits: 4)
      {F::PVRTC_2bpp_RGB, 0xC108C108, {132, 66, 66, 255}},
      {F::PVRTC_4bpp_RGBA, 0x7F0F7F0E, {255, 0, 255, 238}},  // translucent: alpha 7 of 3 bits reads 14 of 4
      {F::PVRTC_2bpp_RGBA, 0x7F0F7F0E, {255, 0, 255, 238}},
      {F::PVRTC_4bpp_RGBA, 0x0F0F0F0E, {255, 0, 255, 0}},
      {F::PVRTC_4bpp_RGB, 0x0F0F0F0E, {255, 0, 255, 255}},  // the RGB formats read opaque whatever is stored
      {F::PVRTC_2bpp_RGB, 0x7F0F7F0E, {255, 0, 255, 255}},
  };
  for (const auto& c : cases)
    for (const std::uint32_t modulation : {0x00000000u, 0xFFFFFFFFu, 0x12345678u}) {
      const std::vector<int> px = DecodeValues(Compressed(c.format), Uniform(c.format, modulation, c.colours), 16, 8);
      ASSERT_EQ(px.size(), 16u * 8 * 4);
      for (std::size_t i = 0; i < px.size(); ++i)
        ASSERT_EQ(px[i], c.rgba[i % 4]) << int(c.format) << " " << std::hex << c.colours << " " << modulation;
    }
}

// Black to white (colour A opaque black, B opaque white, | 1 sets the mode
// bit); {pixel index in 16 x 8, r, g, b, a}. Weights 0, 3, 5, 8 (of 8) give 0,
// 95, 159, 255; weight 4 gives 127, weight 2 63. Every block alike, so each
// pixel is also checked 8 columns and 4 rows on.
TEST(PvrtcBlocks, ModulationModesWeighTheColours) {
  const struct {
    const char* what;
    F format;
    std::uint32_t modulation, colours;
    std::vector<std::vector<int>> pixels;
  } cases[] = {
      // clang-format off
      // Pixel (x, y) holds index x.
      {"4 bpp", F::PVRTC_4bpp_RGBA, 0xE4E4E4E4, 0xFFFF8000,
       {{0, 0, 0, 0, 255}, {17, 95, 95, 95, 255}, {34, 159, 159, 159, 255}, {51, 255, 255, 255, 255}}},
      // Mode bit: index 1 is half way, index 2 half way and transparent.
      {"4 bpp punch-through", F::PVRTC_4bpp_RGBA, 0xE4E4E4E4, 0xFFFF8001,
       {{0, 0, 0, 0, 255}, {17, 127, 127, 127, 255}, {34, 127, 127, 127, 0}, {51, 255, 255, 255, 255}}},
      // One bit per pixel: odd columns white.
      {"2 bpp direct", F::PVRTC_2bpp_RGBA, 0xAAAAAAAA, 0xFFFF8000,
       {{0, 0, 0, 0, 255}, {1, 255, 255, 255, 255}, {54, 0, 0, 0, 255}, {55, 255, 255, 255, 255}}},
      // Stored weight 8 at (0,0) only, left-right means: (1,0) and (7,0), whose
      // right neighbour is the next block's (0,0), are half way.
      {"2 bpp horizontal", F::PVRTC_2bpp_RGBA, 0x00000003, 0xFFFF8001,
       {{0, 255, 255, 255, 255}, {1, 127, 127, 127, 255}, {2, 0, 0, 0, 255}, {7, 127, 127, 127, 255}, {16, 0, 0, 0, 255}}},
      // Stored weight 8 at (1,1) only, up-down means: (1,0), whose upper
      // neighbour is the block above's (1,3), and (1,2) are half way.
      {"2 bpp vertical", F::PVRTC_2bpp_RGBA, 0x00100301, 0xFFFF8001,
       {{17, 255, 255, 255, 255}, {1, 127, 127, 127, 255}, {33, 127, 127, 127, 255}, {16, 0, 0, 0, 255},
        {18, 0, 0, 0, 255}, {0, 0, 0, 0, 255}}},
      // Stored weight 8 at (1,1) only, four-neighbour means: its neighbours a quarter.
      {"2 bpp both", F::PVRTC_2bpp_RGBA, 0x00000300, 0xFFFF8001,
       {{17, 255, 255, 255, 255}, {16, 63, 63, 63, 255}, {1, 63, 63, 63, 255}, {18, 63, 63, 63, 255},
        {33, 63, 63, 63, 255}, {51, 0, 0, 0, 255}}},
      // clang-format on
  };
  for (const auto& c : cases) {
    std::vector<std::vector<int>> want = c.pixels;
    for (const auto& p : c.pixels) want.push_back({p[0] + 4 * 16 + 8, p[1], p[2], p[3], p[4]});
    EXPECT_TRUE(DecodesTo(Compressed(c.format), Uniform(c.format, c.modulation, c.colours), 16, 8, want)) << c.what;
  }
}

// Block (x, y) of a power-of-two grid: Morton order, row bit lowest.
std::size_t MortonIndex(unsigned x, unsigned y, unsigned nx, unsigned ny) {
  std::size_t index = 0;
  unsigned level = 0;
  for (unsigned bit = 1; bit < (nx < ny ? nx : ny); bit <<= 1, ++level)
    index |= std::size_t{(y & bit) ? 1u : 0u} << (2 * level) | std::size_t{(x & bit) ? 2u : 0u} << (2 * level);
  return index | std::size_t{(nx < ny ? y : x) >> level} << (2 * level);
}

// One white block among black ones (4 bpp, modulation 0: colour A only). Its
// centre pixel is white, the colour falls off linearly to the centres around
// it, and the falloff wraps around the picture's edges.
TEST(PvrtcBlocks, SingleBlockIsSeenAtItsCentre) {
  struct Grid {
    unsigned w, h, bx, by;
    std::size_t index;  // where the white block is stored
  };
  for (const Grid g : {Grid{8, 8, 0, 0, 0}, Grid{16, 8, 1, 0, 2}, Grid{16, 8, 2, 0, 4}, Grid{16, 8, 0, 1, 1},
                       Grid{8, 16, 1, 2, 6}, Grid{12, 8, 1, 0, 1} /* 3 x 2 blocks: row by row */}) {
    Block blocks(BytesTotal(Compressed(F::PVRTC_4bpp_RGBA), g.w, g.h, 0));
    for (std::size_t i = 0; i < blocks.size(); i += 8)
      PutLE32(&blocks[i + 4], i / 8 == g.index ? 0xFFFFFFFE : 0x80008000);
    const unsigned cx = g.bx * 4 + 2, cy = g.by * 4 + 2;
    const auto at = [&g](unsigned x, unsigned y, int v) { return std::vector<int>{int(y * g.w + x), v, v, v, 255}; };
    // Half way to the next centres: 31 * 8 of 16 -> 127; diagonally one pixel: 31 * 9 of 16 -> 143.
    EXPECT_TRUE(DecodesTo(Compressed(F::PVRTC_4bpp_RGBA), blocks, g.w, g.h,
                          {at(cx, cy, 255), at((cx + 2) % g.w, cy, 127), at((cx + g.w - 2) % g.w, cy, 127),
                           at(cx, (cy + g.h - 2) % g.h, 127), at(cx + 1, cy + 1, 143), at((cx + 4) % g.w, cy, 0)}))
        << g.w << "x" << g.h << " block " << g.bx << "," << g.by;
  }
}

// Random blocks on a power-of-two grid, and the same grid turned by one block
// column and two block rows: the pictures differ by the same turn.
TEST(PvrtcBlocks, ShiftingTheGridShiftsThePicture) {
  std::mt19937 rng(11);
  for (const F f : {F::PVRTC_4bpp_RGBA, F::PVRTC_2bpp_RGBA}) {
    const unsigned bw = f == F::PVRTC_2bpp_RGBA ? 8 : 4;
    const unsigned nx = 4, ny = 8, w = nx * bw, h = ny * 4;
    Block blocks(nx * ny * 8), turned(blocks.size());
    for (auto& b : blocks) b = static_cast<std::uint8_t>(rng());
    for (unsigned y = 0; y < ny; ++y)
      for (unsigned x = 0; x < nx; ++x)
        std::memcpy(&turned[MortonIndex(x, y, nx, ny) * 8],
                    &blocks[MortonIndex((x + 1) % nx, (y + 2) % ny, nx, ny) * 8], 8);
    const auto a = DecodeValues(Compressed(f), blocks, w, h), b = DecodeValues(Compressed(f), turned, w, h);
    for (unsigned y = 0; y < h; ++y)
      for (unsigned x = 0; x < w; ++x)
        for (unsigned c = 0; c < 4; ++c)
          ASSERT_EQ(b[(y * w + x) * 4 + c], a[(((y + 8) % h) * w + (x + bw) % w) * 4 + c])
              << int(f) << " pixel " << x << "," << y;
  }
}

TEST(PvrtcBlocks, Version2IsNotDecoded) {
  EXPECT_FALSE(CanDecode(Compressed(F::PVRTC2_2bpp)));
  EXPECT_FALSE(CanDecode(Compressed(F::PVRTC2_4bpp)));
}

}  // namespace
}  // namespace lumo::image::blocks
