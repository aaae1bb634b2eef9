// Encoders: round trips of a photo-like picture with a PSNR floor per format
// and effort, alpha rules, edge blocks, and independence from the thread
// count. Blocks are read back with the library's decoders, which bc_test.cpp
// and astc_test.cpp check against independent ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "blocks/block_refs.h"
#include "lumo/image/blocks.h"

namespace lumo::image::blocks {
namespace {

using Pixels = std::vector<std::uint8_t>;

using testing::Compressed;
using F = CompressFormat;

// Gradients, a little noise, hard-edged shapes and an alpha ramp with a
// cut-out: deterministic, the same on every machine.
Pixels Photo(std::uint32_t w, std::uint32_t h) {
  Pixels p(std::size_t{w} * h * 4);
  std::uint32_t seed = 12345;
  auto noise = [&seed] {
    seed = seed * 1664525u + 1013904223u;
    return static_cast<int>(seed >> 28) - 8;  // -8..7
  };
  for (std::uint32_t y = 0; y < h; ++y)
    for (std::uint32_t x = 0; x < w; ++x) {
      const double u = double(x) / w, v = double(y) / h;
      int r = int(255 * u), g = int(128 + 100 * std::sin(6.0 * v + 3.0 * u)), b = int(255 * (1 - v) * (0.5 + 0.5 * u));
      if ((x / 24 + y / 16) % 5 == 0) r = 255 - r, b = 40;                                 // tiles
      if ((u - 0.6) * (u - 0.6) + (v - 0.4) * (v - 0.4) < 0.04) r = 250, g = 220, b = 30;  // disc
      std::uint8_t* px = &p[(std::size_t{y} * w + x) * 4];
      px[0] = static_cast<std::uint8_t>(std::clamp(r + noise(), 0, 255));
      px[1] = static_cast<std::uint8_t>(std::clamp(g + noise(), 0, 255));
      px[2] = static_cast<std::uint8_t>(std::clamp(b + noise(), 0, 255));
      px[3] = (x > w / 3 && x < w / 2 && y > h / 4) ? 0 : static_cast<std::uint8_t>(255 * (1 - 0.7 * u));
    }
  return p;
}

std::vector<std::uint8_t> Encode(PixelFormatDescriptor format, const Pixels& px, std::uint32_t w, std::uint32_t h,
                                 Quality q, std::size_t pitch = 0) {
  std::vector<std::uint8_t> out(BytesTotal(format, w, h, 0), 0xEE);
  if (!EncodeBlocks(format, px.data(), px.size(), pitch ? pitch : std::size_t{w} * 4, w, h, out.data(), out.size(), q))
    out.clear();
  return out;
}

// The library's decode of `blocks` as bytes; signed channels come back as
// value + 128, so -127..127 reads 1..255.
Pixels Decode(PixelFormatDescriptor f, const std::vector<std::uint8_t>& blocks, std::uint32_t w, std::uint32_t h) {
  const std::vector<int> v = testing::DecodeValues(f, blocks, w, h);
  const int offset = IsSignedCompressFormat(f) ? 128 : 0;
  Pixels out;
  for (const int x : v) out.push_back(static_cast<std::uint8_t>(x + offset));
  return out;
}

// What each format should give back: the source, premultiplied for DXT2 and
// DXT4, the signed range's clamp for BC4/BC5 signed.
Pixels Expected(F f, Pixels px) {
  for (std::size_t i = 0; i < px.size(); i += 4) {
    if (f == F::DXT2 || f == F::DXT4)
      for (int c = 0; c < 3; ++c) px[i + c] = static_cast<std::uint8_t>((px[i + c] * px[i + 3] + 127) / 255);
    if (f == F::BC4_signed || f == F::BC5_signed)
      for (int c = 0; c < 2; ++c) px[i + c] = std::max<std::uint8_t>(px[i + c], 1);
  }
  return px;
}

const Quality kQualities[] = {Quality::Fast, Quality::Normal, Quality::Best};

// Every encoder at every effort: a PSNR floor, measured on this picture less
// about a decibel, and a step from one effort to the next (BC4/BC5 use one fit
// for every effort; the ASTC efforts must reach distinct presets).
TEST(Encode, RoundTripPSNR) {
  const struct {
    F format;
    bool srgb;
    unsigned channels;
    double floor[3];  // Fast, Normal, Best
    double step;      // least gain from one effort to the next
  } cases[] = {
      {F::DXT1, false, 0x7, {33.5, 35.0, 35.0}, -0.05},
      {F::DXT2, false, 0xF, {35.5, 36.5, 36.5}, -0.05},
      {F::DXT3, false, 0xF, {33.5, 34.5, 34.5}, -0.05},
      {F::DXT4, false, 0xF, {38.0, 39.5, 39.5}, -0.05},
      {F::DXT5, false, 0xF, {34.5, 36.0, 36.0}, -0.05},
      {F::BC4_unsigned, false, 0x1, {45.5, 45.5, 45.5}, -0.05},
      {F::BC4_signed, false, 0x1, {45.5, 45.5, 45.5}, -0.05},
      {F::BC5_unsigned, false, 0x3, {44.0, 44.0, 44.0}, -0.05},
      {F::BC5_signed, false, 0x3, {44.0, 44.0, 44.0}, -0.05},
      {F::ASTC_RGBA_4x4, false, 0xF, {37.0, 38.0, 38.5}, 0.05},
      {F::ASTC_RGBA_4x4, true, 0xF, {37.0, 38.0, 38.5}, 0.05},
      {F::ASTC_RGBA_5x4, false, 0xF, {35.5, 37.0, 37.0}, 0.05},
      {F::ASTC_RGBA_5x5, false, 0xF, {35.0, 35.5, 36.0}, 0.05},
      {F::ASTC_RGBA_6x5, false, 0xF, {34.0, 35.0, 35.5}, 0.05},
      {F::ASTC_RGBA_6x6, false, 0xF, {33.5, 34.5, 35.0}, 0.05},
      {F::ASTC_RGBA_8x5, false, 0xF, {33.0, 34.0, 34.5}, 0.05},
      {F::ASTC_RGBA_8x6, false, 0xF, {32.5, 33.5, 34.0}, 0.05},
      {F::ASTC_RGBA_8x8, false, 0xF, {31.5, 32.5, 33.5}, 0.05},
      {F::ASTC_RGBA_8x8, true, 0xF, {31.5, 32.5, 33.5}, 0.05},
      {F::ASTC_RGBA_10x5, false, 0xF, {32.0, 33.0, 33.5}, 0.05},
      {F::ASTC_RGBA_10x6, false, 0xF, {30.5, 31.5, 32.5}, 0.05},
      {F::ASTC_RGBA_10x8, false, 0xF, {29.0, 30.5, 31.0}, 0.05},
      {F::ASTC_RGBA_10x10, false, 0xF, {27.0, 28.5, 29.5}, 0.05},
      {F::ASTC_RGBA_12x10, false, 0xF, {27.0, 28.0, 29.5}, 0.05},
      {F::ASTC_RGBA_12x12, false, 0xF, {26.5, 28.0, 29.5}, 0.05},
  };
  const Pixels bc_photo = Photo(160, 96), astc_photo = Photo(96, 80);
  for (const auto& c : cases) {
    const bool astc = c.format >= F::ASTC_RGBA_4x4;
    const std::uint32_t w = astc ? 96 : 160, h = astc ? 80 : 96;
    const Pixels& photo = astc ? astc_photo : bc_photo;
    const PixelFormatDescriptor format = testing::Compressed(c.format, c.srgb);
    ASSERT_TRUE(CanEncode(format)) << ToString(format);
    const Pixels expected = Expected(c.format, photo);
    double previous = 0;
    for (int q = 0; q < 3; ++q) {
      SCOPED_TRACE(::testing::Message() << ToString(format) << " effort " << q);
      const std::vector<std::uint8_t> blocks = Encode(format, photo, w, h, kQualities[q]);
      ASSERT_FALSE(blocks.empty());
      const double psnr = testing::Compare(Decode(format, blocks, w, h), expected, c.channels).psnr;
      std::printf("    %-28s effort %d PSNR %.2f dB\n", ToString(format).c_str(), q, psnr);
      EXPECT_GE(psnr, c.floor[q]);
      if (q > 0) {
        EXPECT_GE(psnr, previous + c.step) << "more effort, too little gain";
      }
      previous = psnr;
    }
  }
}

// DXT1 is opaque whatever the alpha: no block may use the transparent entry
// (read as DXT1_A1 so that it would show). DXT1_A1 makes exactly the pixels
// with alpha below 128 transparent.
TEST(Encode, DXT1AlphaRules) {
  const std::uint32_t w = 64, h = 48;
  const Pixels photo = Photo(w, h);
  for (const Quality q : kQualities) {
    const Pixels opaque = Decode(formats::DXT1_A1, Encode(formats::DXT1, photo, w, h, q), w, h);
    const Pixels cut = Decode(formats::DXT1_A1, Encode(formats::DXT1_A1, photo, w, h, q), w, h);
    ASSERT_EQ(opaque.size(), photo.size());
    int transparent = 0;
    for (std::size_t i = 3; i < photo.size(); i += 4) {
      ASSERT_EQ(opaque[i], 255) << "pixel " << i / 4;
      ASSERT_EQ(cut[i], photo[i] < 128 ? 0 : 255) << "pixel " << i / 4 << " alpha " << int{photo[i]};
      transparent += photo[i] < 128;
    }
    EXPECT_GT(transparent, 100);
  }
}

// Edge blocks: pixels outside the picture (here garbage around it in a wider
// buffer, the last row ending at the picture) change nothing, and a single
// pixel comes back close (over the channels the format keeps).
TEST(Encode, OddSizesIgnoreWhatLiesOutside) {
  const std::pair<F, unsigned> formats[] = {
      {F::DXT1, 0x7},          {F::DXT1_A1, 0xF},       {F::DXT3, 0xF},
      {F::DXT5, 0xF},          {F::BC4_unsigned, 0x1},  {F::BC5_signed, 0x3},
      {F::ASTC_RGBA_4x4, 0xF}, {F::ASTC_RGBA_5x4, 0xF}, {F::ASTC_RGBA_12x12, 0xF}};
  for (const auto& [f, channels] : formats)
    for (const std::uint32_t w : {1u, 5u, 17u}) {
      const std::uint32_t h = (w + 1) / 2;
      SCOPED_TRACE(::testing::Message() << "format " << int(f) << ' ' << w << 'x' << h);
      const Pixels tight = Photo(w, h);
      const std::size_t pitch = (std::size_t{w} + 7) * 4;
      Pixels wide(pitch * (h - 1) + w * 4);
      std::uint32_t seed = 99;
      for (std::uint8_t& b : wide) b = static_cast<std::uint8_t>((seed = seed * 69069u + 1u) >> 24);
      for (std::uint32_t y = 0; y < h; ++y) std::copy_n(&tight[y * w * 4], w * 4, &wide[y * pitch]);
      const std::vector<std::uint8_t> a = Encode(Compressed(f), tight, w, h, Quality::Normal);
      ASSERT_FALSE(a.empty());
      EXPECT_EQ(Encode(Compressed(f), wide, w, h, Quality::Normal, pitch), a);
      if (w == 1) {
        EXPECT_LE(testing::Compare(Decode(Compressed(f), a, w, h), Expected(f, tight), channels).max,
                  f == F::DXT3 ? 8 : 4);
      }
    }
}

// Bands of block rows (BC) and astcenc's work queue (ASTC) give the same
// bytes with one thread and with several, including uneven band splits.
TEST(Encode, SameBlocksWhateverTheThreadCount) {
  const struct {
    CompressFormat format;
    std::uint32_t w, h;
  } cases[] = {{F::DXT5, 520, 452}, {F::BC5_unsigned, 520, 452}, {F::ASTC_RGBA_6x6, 200, 150}};
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << "format " << int(c.format));
    const Pixels photo = Photo(c.w, c.h);
    std::vector<std::uint8_t> one;
    for (const int n : {1, 2, 3, 7}) {
      setenv("LMIMAGE_BLOCKS_THREADS", std::to_string(n).c_str(), 1);
      const std::vector<std::uint8_t> blocks = Encode(Compressed(c.format), photo, c.w, c.h, Quality::Fast);
      if (n == 1) one = blocks;
      EXPECT_TRUE(!one.empty() && blocks == one) << n << " threads";
    }
    unsetenv("LMIMAGE_BLOCKS_THREADS");
  }
}

TEST(Encode, RefusesWhatItCannotEncode) {
  const Pixels px = Photo(8, 8);
  std::vector<std::uint8_t> out(1024);
  for (const CompressFormat f : {F::BC7, F::ETC1, F::ASTC_RGBA_4x4x4}) {
    EXPECT_FALSE(CanEncode(Compressed(f)));
    EXPECT_FALSE(EncodeBlocks(Compressed(f), px.data(), px.size(), 32, 8, 8, out.data(), out.size(), Quality::Fast));
  }
  EXPECT_FALSE(EncodeBlocks(Compressed(F::DXT1), px.data(), px.size(), 32, 8, 8, out.data(), out.size(),
                            static_cast<Quality>(3)));
}

}  // namespace
}  // namespace lumo::image::blocks
