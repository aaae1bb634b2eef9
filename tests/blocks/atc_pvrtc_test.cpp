// ATC and PVRTC version 1 decoding. No independent decoder of either is at
// hand, so the tests hold to what can be known without one: blocks whose
// pixels are the stored endpoints exactly, ATC alpha against the DXT3/DXT5
// decoders (the same alpha blocks), PVRTC pictures of identical blocks (the
// upscaled colour images are then constant), single bright blocks seen at
// their centres, the wrap-around seen as a shift of the block grid shifting
// the picture, and random blocks at odd sizes.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <ostream>
#include <random>
#include <utility>
#include <vector>

#include "lumo/image/blocks.h"
#include "lumo/image/formats.h"

namespace lumo::image::blocks {
namespace {

PixelFormatDescriptor Descriptor(CompressFormat f) {
  return static_cast<PixelFormatDescriptor>(static_cast<unsigned long long>(f) << 8 | 1u);
}

std::vector<std::uint8_t> Decode(CompressFormat f, const std::vector<std::uint8_t>& blocks, unsigned w, unsigned h) {
  std::vector<std::uint8_t> out(std::size_t{w} * h * 4);
  EXPECT_TRUE(DecodeBlocks(Descriptor(f), blocks.data(), blocks.size(), w, h, 1, out.data(), out.size(), w * 4));
  return out;
}

struct Rgba {
  int r, g, b, a;
};

::testing::AssertionResult PixelIs(const std::vector<std::uint8_t>& px, unsigned w, unsigned x, unsigned y, Rgba want) {
  const std::uint8_t* p = &px[(std::size_t{y} * w + x) * 4];
  if (p[0] == want.r && p[1] == want.g && p[2] == want.b && p[3] == want.a) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "pixel (" << x << "," << y << ") is " << int{p[0]} << "," << int{p[1]} << ","
                                       << int{p[2]} << "," << int{p[3]} << ", expected " << want.r << "," << want.g
                                       << "," << want.b << "," << want.a;
}

void PutLE32(std::uint8_t* p, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<std::uint8_t>(v >> (8 * i));
}

// ---- ATC ----

struct AtcCase {
  const char* name;
  std::vector<std::uint8_t> block;  // colour block
  Rgba pixels[4];                   // (0,0) to (3,0): indices 0 to 3
};
void PrintTo(const AtcCase& c, std::ostream* os) { *os << c.name; }

// Colour 0 is R5 G5 B5 (top bit: palette), colour 1 R5 G6 B5; indices E4 put 0-3 along the top row.
const AtcCase kAtcCases[] = {
    // Palette 0: colour 0, thirds, colour 1.
    {"Thirds",
     {0x00, 0x7C, 0x1F, 0x00, 0xE4, 0, 0, 0},
     {{255, 0, 0, 255}, {170, 0, 85, 255}, {85, 0, 170, 255}, {0, 0, 255, 255}}},
    // Palette 1: black, colour 0 (132,66,33) minus a quarter of colour 1 (66,65,255), colour 0, colour 1.
    {"BlackAndQuarter",
     {0x04, 0xC1, 0x1F, 0x42, 0xE4, 0, 0, 0},
     {{0, 0, 0, 255}, {116, 50, 0, 255}, {132, 66, 33, 255}, {66, 65, 255, 255}}},
};

class AtcBlocks : public ::testing::TestWithParam<AtcCase> {};

TEST_P(AtcBlocks, DecodeToTheirPalette) {
  const AtcCase& c = GetParam();
  const std::vector<std::uint8_t> px = Decode(CompressFormat::ATC_RGB, c.block, 4, 4);
  for (unsigned x = 0; x < 4; ++x) EXPECT_TRUE(PixelIs(px, 4, x, 0, c.pixels[x]));
  for (unsigned y = 1; y < 4; ++y) EXPECT_TRUE(PixelIs(px, 4, 3, y, c.pixels[0]));
}

INSTANTIATE_TEST_SUITE_P(Palettes, AtcBlocks, ::testing::ValuesIn(kAtcCases),
                         [](const ::testing::TestParamInfo<AtcCase>& info) { return info.param.name; });

// ATC's alpha blocks are DXT3's and DXT5's: the same bytes give the same
// alpha through the BC decoders, and the colour half is the ATC_RGB block.
TEST(AtcBlocksAlpha, MatchesTheDxtAlphaBlocks) {
  if (!CanDecode(Descriptor(CompressFormat::DXT3)) || !CanDecode(Descriptor(CompressFormat::DXT5)))
    GTEST_SKIP() << "no DXT3/DXT5 decoder";
  std::mt19937 rng(7);
  for (int round = 0; round < 200; ++round) {
    std::vector<std::uint8_t> block(16);
    for (auto& b : block) b = static_cast<std::uint8_t>(rng());
    if (round % 2) std::swap(block[0], block[1]);  // both alpha palettes
    const std::vector<std::uint8_t> colour(block.begin() + 8, block.end());
    const auto rgb = Decode(CompressFormat::ATC_RGB, colour, 4, 4);
    const auto dxt3 = Decode(CompressFormat::DXT3, block, 4, 4);
    const auto dxt5 = Decode(CompressFormat::DXT5, block, 4, 4);
    const auto explicit_alpha = Decode(CompressFormat::ATC_RGBA_EXPLICIT_ALPHA, block, 4, 4);
    const auto interpolated = Decode(CompressFormat::ATC_RGBA_INTERPOLATED_ALPHA, block, 4, 4);
    for (unsigned i = 0; i < 64; ++i) {
      ASSERT_EQ(explicit_alpha[i], (i & 3) == 3 ? dxt3[i] : rgb[i]) << i;
      ASSERT_EQ(interpolated[i], (i & 3) == 3 ? dxt5[i] : rgb[i]) << i;
    }
  }
}

// ---- PVRTC ----

constexpr std::uint32_t kBlackWhite = 0xFFFF8000;  // colour A opaque black, B opaque white

// A w x h picture of identical blocks.
std::vector<std::uint8_t> Uniform(CompressFormat f, unsigned w, unsigned h, std::uint32_t modulation,
                                  std::uint32_t colours) {
  std::vector<std::uint8_t> blocks(BytesTotal(Descriptor(f), w, h, 0));
  for (std::size_t i = 0; i + 8 <= blocks.size(); i += 8) {
    PutLE32(&blocks[i], modulation);
    PutLE32(&blocks[i + 4], colours);
  }
  return Decode(f, blocks, w, h);
}

struct PvrtcConstant {
  const char* name;
  CompressFormat format;
  std::uint32_t colours;
  Rgba pixel;
};
void PrintTo(const PvrtcConstant& c, std::ostream* os) { *os << c.name; }

// Colour A = colour B: every modulation gives that colour, widened by bit replication.
const PvrtcConstant kPvrtcConstants[] = {
    {"OpaqueWhite4", CompressFormat::PVRTC_4bpp_RGBA, 0xFFFFFFFE, {255, 255, 255, 255}},
    {"OpaqueWhite2", CompressFormat::PVRTC_2bpp_RGBA, 0xFFFFFFFE, {255, 255, 255, 255}},
    // R 16, G 8, B 8 (A stores blue in 4 bits: 4).
    {"OpaqueMid4", CompressFormat::PVRTC_4bpp_RGBA, 0xC108C108, {132, 66, 66, 255}},
    {"OpaqueMid2", CompressFormat::PVRTC_2bpp_RGB, 0xC108C108, {132, 66, 66, 255}},
    // Translucent storage: alpha 7 of 3 bits reads 14 of 4 bits (238).
    {"Translucent4", CompressFormat::PVRTC_4bpp_RGBA, 0x7F0F7F0E, {255, 0, 255, 238}},
    {"Translucent2", CompressFormat::PVRTC_2bpp_RGBA, 0x7F0F7F0E, {255, 0, 255, 238}},
    {"Clear4", CompressFormat::PVRTC_4bpp_RGBA, 0x0F0F0F0E, {255, 0, 255, 0}},
    // The RGB formats read opaque whatever the blocks hold.
    {"ClearAsRgb4", CompressFormat::PVRTC_4bpp_RGB, 0x0F0F0F0E, {255, 0, 255, 255}},
};

class PvrtcConstants : public ::testing::TestWithParam<PvrtcConstant> {};

TEST_P(PvrtcConstants, DecodeToTheirColour) {
  const PvrtcConstant& c = GetParam();
  for (const std::uint32_t modulation : {0x00000000u, 0xFFFFFFFFu, 0x12345678u}) {
    const auto px = Uniform(c.format, 16, 8, modulation, c.colours);
    for (unsigned y = 0; y < 8; ++y)
      for (unsigned x = 0; x < 16; ++x) ASSERT_TRUE(PixelIs(px, 16, x, y, c.pixel)) << std::hex << modulation;
  }
}

INSTANTIATE_TEST_SUITE_P(Colours, PvrtcConstants, ::testing::ValuesIn(kPvrtcConstants),
                         [](const ::testing::TestParamInfo<PvrtcConstant>& info) { return info.param.name; });

struct PvrtcModulation {
  const char* name;
  CompressFormat format;
  std::uint32_t modulation, colours;
  std::vector<std::pair<std::pair<unsigned, unsigned>, Rgba>> pixels;
};
void PrintTo(const PvrtcModulation& c, std::ostream* os) { *os << c.name; }

// Black to white: weights 0, 3, 5, 8 (of 8) give 0, 95, 159, 255; weight 4 gives 127, weight 2 63.
const PvrtcModulation kPvrtcModulations[] = {
    // Pixel (x, y) holds index x.
    {"FourBpp",
     CompressFormat::PVRTC_4bpp_RGBA,
     0xE4E4E4E4,
     kBlackWhite,
     {{{0, 0}, {0, 0, 0, 255}},
      {{1, 1}, {95, 95, 95, 255}},
      {{2, 2}, {159, 159, 159, 255}},
      {{3, 3}, {255, 255, 255, 255}}}},
    // Mode bit: index 1 is half way, index 2 half way and transparent.
    {"FourBppPunchThrough",
     CompressFormat::PVRTC_4bpp_RGBA,
     0xE4E4E4E4,
     kBlackWhite | 1,
     {{{0, 0}, {0, 0, 0, 255}},
      {{1, 1}, {127, 127, 127, 255}},
      {{2, 2}, {127, 127, 127, 0}},
      {{3, 3}, {255, 255, 255, 255}}}},
    // One bit per pixel: odd columns white.
    {"TwoBppDirect",
     CompressFormat::PVRTC_2bpp_RGBA,
     0xAAAAAAAA,
     kBlackWhite,
     {{{0, 0}, {0, 0, 0, 255}},
      {{1, 0}, {255, 255, 255, 255}},
      {{6, 3}, {0, 0, 0, 255}},
      {{7, 3}, {255, 255, 255, 255}}}},
    // Stored weight 8 at (0,0) only, left-right means: (1,0) and (7,0), whose
    // right neighbour is the next block's (0,0), are half way.
    {"TwoBppHorizontal",
     CompressFormat::PVRTC_2bpp_RGBA,
     0x00000003,
     kBlackWhite | 1,
     {{{0, 0}, {255, 255, 255, 255}},
      {{1, 0}, {127, 127, 127, 255}},
      {{2, 0}, {0, 0, 0, 255}},
      {{7, 0}, {127, 127, 127, 255}},
      {{0, 1}, {0, 0, 0, 255}}}},
    // Stored weight 8 at (1,1) only, up-down means: (1,0), whose upper
    // neighbour is the block above's (1,3), and (1,2) are half way.
    {"TwoBppVertical",
     CompressFormat::PVRTC_2bpp_RGBA,
     0x00100301,
     kBlackWhite | 1,
     {{{1, 1}, {255, 255, 255, 255}},
      {{1, 0}, {127, 127, 127, 255}},
      {{1, 2}, {127, 127, 127, 255}},
      {{0, 1}, {0, 0, 0, 255}},
      {{2, 1}, {0, 0, 0, 255}},
      {{0, 0}, {0, 0, 0, 255}}}},
    // Stored weight 8 at (1,1) only, four-neighbour means: its neighbours a quarter.
    {"TwoBppBoth",
     CompressFormat::PVRTC_2bpp_RGBA,
     0x00000300,
     kBlackWhite | 1,
     {{{1, 1}, {255, 255, 255, 255}},
      {{0, 1}, {63, 63, 63, 255}},
      {{1, 0}, {63, 63, 63, 255}},
      {{2, 1}, {63, 63, 63, 255}},
      {{1, 2}, {63, 63, 63, 255}},
      {{3, 3}, {0, 0, 0, 255}}}},
};

class PvrtcModulations : public ::testing::TestWithParam<PvrtcModulation> {};

TEST_P(PvrtcModulations, WeighTheColours) {
  const PvrtcModulation& c = GetParam();
  const auto px = Uniform(c.format, 16, 8, c.modulation, c.colours);
  for (const auto& [at, want] : c.pixels) {
    EXPECT_TRUE(PixelIs(px, 16, at.first, at.second, want));
    EXPECT_TRUE(PixelIs(px, 16, at.first + 8, at.second + 4, want));  // every block alike
  }
}

INSTANTIATE_TEST_SUITE_P(Modes, PvrtcModulations, ::testing::ValuesIn(kPvrtcModulations),
                         [](const ::testing::TestParamInfo<PvrtcModulation>& info) { return info.param.name; });

// Block (x, y) of a power-of-two grid: Morton order, row bit lowest.
std::size_t MortonIndex(unsigned x, unsigned y, unsigned nx, unsigned ny) {
  std::size_t index = 0;
  unsigned level = 0;
  for (unsigned bit = 1; bit < (nx < ny ? nx : ny); bit <<= 1, ++level)
    index |= std::size_t{(y & bit) ? 1u : 0u} << (2 * level) | std::size_t{(x & bit) ? 2u : 0u} << (2 * level);
  return index | std::size_t{(nx < ny ? y : x) >> level} << (2 * level);
}

// One white block among black ones (4 bpp, modulation 0: colour A only).
// Its centre pixel is white, the colour falls off linearly to the centres
// around it, and the falloff wraps around the picture's edges.
TEST(PvrtcBlocks, SingleBlockIsSeenAtItsCentre) {
  struct Grid {
    unsigned w, h, bx, by;
    std::size_t index;  // where the white block is stored
  };
  for (const Grid g : {Grid{8, 8, 0, 0, 0}, Grid{16, 8, 1, 0, 2}, Grid{16, 8, 2, 0, 4}, Grid{16, 8, 0, 1, 1},
                       Grid{8, 16, 1, 2, 6}, Grid{12, 8, 1, 0, 1} /* 3 x 2 blocks: row by row */}) {
    std::vector<std::uint8_t> blocks(BytesTotal(Descriptor(CompressFormat::PVRTC_4bpp_RGBA), g.w, g.h, 0));
    for (std::size_t i = 0; i < blocks.size(); i += 8)
      PutLE32(&blocks[i + 4], i / 8 == g.index ? 0xFFFFFFFE : 0x80008000);
    const auto px = Decode(CompressFormat::PVRTC_4bpp_RGBA, blocks, g.w, g.h);
    const unsigned cx = g.bx * 4 + 2, cy = g.by * 4 + 2;
    SCOPED_TRACE(::testing::Message() << g.w << "x" << g.h << " block " << g.bx << "," << g.by);
    EXPECT_TRUE(PixelIs(px, g.w, cx, cy, {255, 255, 255, 255}));
    // Half way to the next centres: 31 * 8 of 16 -> 127; diagonally one pixel: 31 * 9 of 16 -> 143.
    EXPECT_TRUE(PixelIs(px, g.w, (cx + 2) % g.w, cy, {127, 127, 127, 255}));
    EXPECT_TRUE(PixelIs(px, g.w, (cx + g.w - 2) % g.w, cy, {127, 127, 127, 255}));
    EXPECT_TRUE(PixelIs(px, g.w, cx, (cy + g.h - 2) % g.h, {127, 127, 127, 255}));
    EXPECT_TRUE(PixelIs(px, g.w, cx + 1, cy + 1, {143, 143, 143, 255}));
    EXPECT_TRUE(PixelIs(px, g.w, (cx + 4) % g.w, cy, {0, 0, 0, 255}));
  }
}

// Random blocks on a power-of-two grid, and the same grid turned by one
// block column and two block rows: the pictures differ by the same turn.
TEST(PvrtcBlocks, ShiftingTheGridShiftsThePicture) {
  std::mt19937 rng(11);
  for (const CompressFormat f : {CompressFormat::PVRTC_4bpp_RGBA, CompressFormat::PVRTC_2bpp_RGBA}) {
    const unsigned bw = f == CompressFormat::PVRTC_2bpp_RGBA ? 8 : 4;
    const unsigned nx = 4, ny = 8, w = nx * bw, h = ny * 4;
    std::vector<std::uint8_t> blocks(nx * ny * 8), turned(blocks.size());
    for (auto& b : blocks) b = static_cast<std::uint8_t>(rng());
    for (unsigned y = 0; y < ny; ++y)
      for (unsigned x = 0; x < nx; ++x)
        std::memcpy(&turned[MortonIndex(x, y, nx, ny) * 8],
                    &blocks[MortonIndex((x + 1) % nx, (y + 2) % ny, nx, ny) * 8], 8);
    const auto a = Decode(f, blocks, w, h), b = Decode(f, turned, w, h);
    for (unsigned y = 0; y < h; ++y)
      for (unsigned x = 0; x < w; ++x)
        ASSERT_EQ(std::memcmp(&b[(y * w + x) * 4], &a[(((y + 8) % h) * w + (x + bw) % w) * 4], 4), 0)
            << static_cast<int>(f) << " pixel " << x << "," << y;
  }
}

// Random blocks at sizes below the minimum and cutting edge blocks, into
// pixel buffers of exactly the needed size (the sanitizer build polices it).
TEST(AtcPvrtcBlocks, RandomBlocksAtOddSizes) {
  std::mt19937 rng(5);
  for (const CompressFormat f :
       {CompressFormat::ATC_RGB, CompressFormat::ATC_RGBA_EXPLICIT_ALPHA, CompressFormat::ATC_RGBA_INTERPOLATED_ALPHA,
        CompressFormat::PVRTC_2bpp_RGB, CompressFormat::PVRTC_2bpp_RGBA, CompressFormat::PVRTC_4bpp_RGB,
        CompressFormat::PVRTC_4bpp_RGBA}) {
    const bool opaque = !CompressHasAlpha(f);
    for (const auto& size : {std::pair<unsigned, unsigned>{1, 1}, {5, 3}, {17, 9}, {33, 20}}) {
      std::vector<std::uint8_t> blocks(BytesTotal(Descriptor(f), size.first, size.second, 0));
      for (int round = 0; round < 20; ++round) {
        for (auto& b : blocks) b = static_cast<std::uint8_t>(rng());
        const auto px = Decode(f, blocks, size.first, size.second);
        for (std::size_t i = 3; opaque && i < px.size(); i += 4) ASSERT_EQ(px[i], 255) << static_cast<int>(f);
      }
    }
  }
}

TEST(AtcPvrtcBlocks, PvrtcVersion2IsNotDecoded) {
  EXPECT_FALSE(CanDecode(Descriptor(CompressFormat::PVRTC2_2bpp)));
  EXPECT_FALSE(CanDecode(Descriptor(CompressFormat::PVRTC2_4bpp)));
}

}  // namespace
}  // namespace lumo::image::blocks
