// BC1-BC7 decoding: corpus files against nvdecompress and stored hashes of an
// independent decoder, hand-made blocks whose pixels follow from the format
// definitions, and random blocks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "blocks/block_refs.h"
#include "lumo/image/blocks.h"
#include "lumo/image/mipmaps.h"
#include "support/files.h"
#include "support/surfaces.h"

namespace lumo::image::testing {
namespace {

using Bytes8 = std::vector<std::uint8_t>;
using F = CompressFormat;

std::uint64_t Fnv1a(const std::string& bytes) {
  std::uint64_t h = 0xcbf29ce484222325ull;
  for (const char c : bytes) h = (h ^ static_cast<std::uint8_t>(c)) * 0x100000001b3ull;
  return h;
}

// nvdecompress reads the colour half of BC2/BC3 like BC1 (three colours when
// c0 <= c1), the format always four: c0 < c1 gets its endpoints swapped and
// each index's low bit flipped, c0 == c1 index 0 everywhere (same pixels).
void FourColourBlocks(std::string& data) {
  for (std::size_t at = 8; at + 8 <= data.size(); at += 16) {
    auto* b = reinterpret_cast<unsigned char*>(&data[at]);
    const unsigned c0 = b[0] | b[1] << 8, c1 = b[2] | b[3] << 8;
    if (c0 == c1) std::memset(b + 4, 0, 4);
    if (c0 >= c1) continue;
    std::swap(b[0], b[2]);
    std::swap(b[1], b[3]);
    for (int i = 4; i < 8; ++i) b[i] ^= 0x55;
  }
}

// nvdecompress's picture of `blocks` (wrapped in a legacy DDS with `fourcc`)
// as top-down RGBA8; Null when anything fails.
std::shared_ptr<SurfaceData> NvDecompress(std::string blocks, unsigned long long w, unsigned long long h,
                                          const std::string& fourcc, const std::string& tag) {
  if (fourcc == "DXT3" || fourcc == "DXT5") FourColourBlocks(blocks);
  std::string head(128, '\0');
  const auto put = [&head](std::size_t at, unsigned long long v) {
    for (int i = 0; i < 4; ++i) head[at + i] = static_cast<char>(v >> (8 * i));
  };
  head.replace(0, 4, "DDS ");
  put(4, 124);
  put(8, 0x1 | 0x2 | 0x4 | 0x1000 | 0x80000);  // caps, height, width, pixel format, linear size
  put(12, h), put(16, w), put(20, blocks.size()), put(76, 32), put(80, 0x4);  // FourCC pixel format
  head.replace(84, 4, fourcc);
  put(108, 0x1000);
  const std::string dds = ScratchPath(tag + ".dds"), tga = ScratchPath(tag + ".tga");
  std::ofstream(dds, std::ios::binary) << head << blocks;
  std::shared_ptr<SurfaceData> picture;
  if (RunCommand("nvdecompress '" + dds + "'")) picture = LoadRGBA8(tga);
  std::remove(dds.c_str());
  std::remove(tga.c_str());
  return picture;
}

std::string FourCCOf(F f) {
  if (f <= F::DXT1_A1) return "DXT1";
  if (f <= F::DXT3) return "DXT3";
  if (f <= F::DXT5) return "DXT5";
  return f == F::BC4_unsigned ? "ATI1" : f == F::BC5_unsigned ? "ATI2" : "";
}

// Every level and face of each file, through the file loader here and through
// nvdecompress from the same blocks. The punch-through file is also read as
// DXT1_A1, where nvdecompress's transparent black must match too.
TEST(BCFiles, MatchNvdecompress) {
  if (!ToolAvailable("nvdecompress")) GTEST_SKIP() << "nvdecompress (libnvtt-bin) is not installed";
  const struct {
    const char* file;
    unsigned channels;  // bit 0 red ... bit 3 alpha (nvdecompress shows BC4 as grey)
    bool a1 = false;
  } files[] = {{"dds/nv_bc1_mips.dds", 0xF},
               {"dds/nv_bc1_npot.dds", 0xF},
               {"dds/nv_bc1a.dds", 0x7},
               {"dds/nv_bc1a.dds", 0xF, true},
               {"dds/nv_cube_bc1_mips.dds", 0xF},
               {"dds/pillow_bc1_typeless.dds", 0xF},
               {"dds/py_dx10_array3_bc1.dds", 0xF},
               {"pvr/v2_dxt1_mips.pvr", 0xF},
               {"pvr/v3_dxt1_mips.pvr", 0xF},
               {"dds/nv_bc2_mips.dds", 0xF},
               {"dds/pillow_dxt3-argb-8bbp-explicitalpha_MipMaps-1.dds", 0xF},
               {"dds/nv_bc3_mips.dds", 0xF},
               {"dds/nv_bc3_npot.dds", 0xF},
               {"dds/nv_bc3n.dds", 0xF},
               {"dds/im_dxt5_mips.dds", 0xF},
               {"pvr/v3_dxt5.pvr", 0xF},
               {"ktx/py_array2_dxt5.ktx", 0xF},
               {"dds/nv_bc4.dds", 0x9},
               {"dds/pillow_ati1.dds", 0x9},
               {"dds/pillow_bc4_unorm.dds", 0x9},
               {"dds/nv_bc5_mips.dds", 0xF},
               {"dds/pillow_bc5u.dds", 0xF}};
  for (const auto& file : files) {
    SCOPED_TRACE(file.file);
    const std::shared_ptr<Pyramid> pyramid = LoadPyramid(CorpusDir() + "/" + file.file);
    if (!pyramid) GTEST_SKIP() << "corpus file missing or unreadable: " << file.file;
    int transparent = 0;
    for (unsigned long long level = 0; level < pyramid->LevelsCurrent(); ++level) {
      for (unsigned long long index = 0; index < pyramid->GetMipmap(level)->GetSurfaceCount(); ++index) {
        const std::shared_ptr<SurfaceData> blocks = pyramid->GetSurface(level, index)->Data();
        if (file.a1) {
          ASSERT_TRUE(blocks->Reinterpret(formats::DXT1_A1));
        }
        const std::string fourcc = FourCCOf(GetCompressFormat(blocks->Format()));
        ASSERT_FALSE(fourcc.empty()) << ToString(blocks->Format());
        const std::shared_ptr<SurfaceData> theirs =
            NvDecompress(std::string(blocks->Buffer(), blocks->Size()), blocks->Width(), blocks->Height(), fourcc,
                         std::to_string(level) + "_" + std::to_string(index));
        const std::shared_ptr<SurfaceData> ours = ToRGBA8(*pyramid, level, index);
        ASSERT_TRUE(theirs && ours);
        if (pyramid->Origin() == ImageOrigin::BottomUp) {
          ASSERT_TRUE(theirs->FlipVertical());
        }
        const Difference d = Compare(*ours, *theirs, file.channels);
        ASSERT_TRUE(d.comparable);
        EXPECT_EQ(d.max, 0) << "level " << level << " surface " << index << " mean " << d.mean;
        const std::string tight = Tight(*ours);
        for (std::size_t i = 3; i < tight.size(); i += 4) transparent += tight[i] == 0;
      }
    }
    if (file.a1) {
      EXPECT_GT(transparent, 0) << "the file should hold punch-through pixels";
    }
  }
}

// nvdecompress has no signed BC5. Flipping the top bit of every endpoint byte
// makes the unsigned block whose values are all 128 higher (same order, same
// mode). Ours minus (theirs - 128) is then 0, or 1 where a negative entry
// truncates toward zero rather than down and where -128 reads as -127.
TEST(BCFiles, SignedBC5AgainstShiftedUnsigned) {
  if (!ToolAvailable("nvdecompress")) GTEST_SKIP() << "nvdecompress (libnvtt-bin) is not installed";
  const std::shared_ptr<Pyramid> pyramid = LoadPyramid(CorpusDir() + "/dds/pillow_bc5_snorm.dds");
  if (!pyramid) GTEST_SKIP() << "corpus file dds/pillow_bc5_snorm.dds missing or unreadable";
  for (unsigned long long level = 0; level < pyramid->LevelsCurrent(); ++level) {
    const std::shared_ptr<SurfaceData> blocks = pyramid->GetSurface(level, 0)->Data();
    ASSERT_EQ(GetCompressFormat(blocks->Format()), F::BC5_signed);
    const auto ours = blocks::DecodeCopy(*blocks);
    std::string shifted(blocks->Buffer(), blocks->Size());
    for (std::size_t at = 0; at + 1 < shifted.size(); at += 8) shifted[at] ^= '\x80', shifted[at + 1] ^= '\x80';
    const auto theirs = NvDecompress(shifted, blocks->Width(), blocks->Height(), "ATI2", std::to_string(level));
    ASSERT_TRUE(ours && theirs);
    const std::vector<int> mine = Values(*ours), ref = Values(*theirs);
    ASSERT_EQ(mine.size(), ref.size());
    for (std::size_t i = 0; i < mine.size(); ++i)
      if (i % 4 < 2) {
        ASSERT_TRUE(mine[i] == ref[i] - 128 || mine[i] == ref[i] - 127) << level << " value " << i;
      }
  }
}

// Files no command-line tool here decodes: the hashes (FNV-1a over tight
// level-0 rows) and pixels come from an independent decoder, run once.
TEST(BCFiles, BC7MatchesIndependentDecoder) {
  const struct {
    const char* file;
    std::uint64_t fnv1a;               // of the RGBA bytes
    std::vector<std::vector<int>> px;  // {index, r, g, b, a}
  } files[] = {
      {"dds/pillow_bc7-argb-8bpp_MipMaps-1.dds",
       0x3d277c7baa3732f7ull,
       {{0, 255, 255, 255, 0},
        {85 * 256 + 128, 242, 251, 3, 255},
        {255 * 256 + 255, 56, 60, 65, 255},
        {253 * 256 + 51, 252, 221, 174, 255}}},
      {"dds/pillow_DXGI_FORMAT_BC7_UNORM_SRGB.dds",
       0xf6159e61475beb25ull,
       {{0, 255, 255, 255, 0}, {5 * 16 + 8, 0, 0, 0, 255}, {255, 255, 255, 255, 0}, {13 * 16 + 3, 0, 0, 0, 255}}}};
  for (const auto& f : files) {
    const std::shared_ptr<Pyramid> pyramid = LoadPyramid(CorpusDir() + "/" + f.file);
    if (!pyramid) GTEST_SKIP() << "corpus file missing or unreadable: " << f.file;
    // The decoded bytes themselves: the sRGB picture must not pass a colour conversion.
    const std::shared_ptr<SurfaceData> ours = blocks::DecodeCopy(*pyramid->GetSurface(0, 0)->Data());
    ASSERT_TRUE(ours);
    const std::vector<int> v = Values(*ours);
    for (const auto& p : f.px)
      for (unsigned ch = 0; ch < 4; ++ch) EXPECT_EQ(v[4 * p[0] + ch], p[1 + ch]) << f.file << " " << p[0];
    EXPECT_EQ(Fnv1a(Tight(*ours)), f.fnv1a) << f.file;
  }
}

float HalfToFloat(std::uint16_t h) {
  const int e = (h >> 10) & 31, m = h & 1023;
  const float v = e == 0 ? std::ldexp(static_cast<float>(m), -24) : std::ldexp(static_cast<float>(m | 1024), e - 25);
  return (h & 0x8000) ? -v : v;
}

// The reference gives 8-bit RGB: each half clamped to [0, 1], times 255,
// truncated. Both files use all 14 modes. In the listed samples (3 * pixel +
// channel, all in blocks with 11- or 12-bit endpoints) the reference is one
// below ours: it unquantises those endpoints with its own rounding, this
// decoder with the usual formula (which the hand-made blocks pin down).
TEST(BCFiles, BC6HMatchesIndependentDecoder) {
  struct File {
    const char* file;
    std::uint64_t fnv1a;
    std::vector<unsigned> one_below;
  };
  // clang-format off
  const File files[] = {
      {"dds/pillow_bc6h.dds", 0xded67eeba5a4c468ull,
       {3784, 6889, 6892, 6895, 6898, 7273, 7276, 7660, 9979, 16032, 16418, 16421, 16424, 16427, 17646, 18030, 18033,
        18414, 18417, 18766, 18782, 19166, 19169, 20281, 20665, 20671, 21052, 21877, 22205, 22261, 22264, 22651, 22896,
        23038, 23708, 23710, 23717, 23737, 23740, 24089, 24101, 24107, 24127, 24130, 24469, 24485, 24491, 24514, 24896,
        25277, 25280, 25664, 26426, 26833, 26836, 26839, 27197, 27223, 27226, 27584, 27610, 28731, 32618, 33002, 33389}},
      {"dds/pillow_bc6h_sf.dds", 0x6064c9d5580ccdc3ull,
       {242, 314, 317, 626, 704, 707, 1016, 1085, 1088, 1091, 1121, 1469, 1472, 1475, 1862, 1865, 1868, 2639, 3020,
        3385, 3388, 3775, 3778, 4216, 4600, 4910, 4922, 5291, 5294, 5309, 5666, 5687, 5693, 5744, 6071, 6077, 6128,
        6455, 6830, 6833, 6836, 6889, 6892, 6895, 6898, 6902, 7220, 7223, 7244, 7273, 7276, 7574, 7580, 7625, 7628,
        7660, 11700, 11703, 11706, 11709, 11882, 12610, 13334, 13340, 13397, 13400, 13727, 14534, 14537, 14540, 14918,
        14924, 15308, 17653, 17656, 17659, 17662, 18037, 18040, 18424, 18427, 18430, 19933, 19936, 20347, 20350, 20880,
        22556, 23220, 23451, 23604, 23694, 23702, 23804, 23997, 24078, 24086, 24092, 24846, 25995, 26776, 26814, 27163,
        29503, 29890, 31446, 31466, 32237, 33379, 33398, 33401, 33782, 36475, 40315, 40696, 40702, 41470, 43177, 44331,
        44333}}};
  // clang-format on
  for (const File& f : files) {
    const std::shared_ptr<Pyramid> pyramid = LoadPyramid(CorpusDir() + "/" + f.file);
    if (!pyramid) GTEST_SKIP() << "corpus file missing or unreadable: " << f.file;
    const std::shared_ptr<SurfaceData> halves = blocks::DecodeCopy(*pyramid->GetSurface(0, 0)->Data());
    ASSERT_TRUE(halves);
    ASSERT_EQ(halves->Format(), formats::A16fB16fG16fR16f);
    const std::vector<int> v = Values(*halves);
    std::string rgb;
    for (std::size_t i = 0; i < v.size(); ++i) {
      if (i % 4 == 3) {
        ASSERT_EQ(v[i], 0x3C00);
        continue;
      }
      const float x = HalfToFloat(static_cast<std::uint16_t>(v[i]));
      rgb.push_back(static_cast<char>(static_cast<int>((x < 0 ? 0 : x > 1 ? 1 : x) * 255.0f)));
    }
    for (const unsigned i : f.one_below) --rgb[i];
    EXPECT_EQ(Fnv1a(rgb), f.fnv1a) << f.file;
  }
}

// Hand-made blocks. 5/6-bit colours widen by replication; BC1-BC5 palette
// entries truncate (as nvdecompress's do).

// n-bit indices of row 0, pixel 0 lowest, from byte `at` on.
Bytes8 Half(std::uint8_t e0, std::uint8_t e1, std::uint8_t e2, std::uint8_t e3, std::size_t at, unsigned bits,
            std::vector<unsigned> row0) {
  Bytes8 b{e0, e1, e2, e3, 0, 0, 0, 0};
  for (std::size_t i = 0; i < row0.size(); ++i)
    for (unsigned k = 0; k < bits; ++k)
      if ((row0[i] >> k) & 1u) b[at + (i * bits + k) / 8] |= static_cast<std::uint8_t>(1u << ((i * bits + k) % 8));
  return b;
}
Bytes8 Colour(unsigned c0, unsigned c1, std::vector<unsigned> row0) {
  return Half(c0 & 255, c0 >> 8, c1 & 255, c1 >> 8, 4, 2, row0);
}
Bytes8 Channel(int a0, int a1, std::vector<unsigned> row0) {
  return Half(static_cast<std::uint8_t>(a0), static_cast<std::uint8_t>(a1), 0, 0, 2, 3, row0);
}
Bytes8 Cat(Bytes8 a, const Bytes8& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

TEST(BCBlocks, PalettesOfBC1ToBC5) {
  const Bytes8 four = Colour(0x0800, 0x001F, {0, 1, 2, 3});   // (8,0,0) and (0,0,255)
  const Bytes8 three = Colour(0x001F, 0xF800, {0, 1, 2, 3});  // blue, red: c0 <= c1
  const Bytes8 nibbles = {0xF0, 0x18, 0, 0, 0, 0, 0, 0};      // alphas 0, 15, 8, 1 (x 17)
  const Bytes8 eight = Channel(200, 100, {0, 1, 2, 7}), six = Channel(100, 200, {2, 5, 6, 7});
  const Bytes8 s_eight = Channel(100, -100, {0, 1, 2, 7}), s_six = Channel(-128, 127, {0, 2, 6, 7});
  struct Case {
    const char* what;
    F format;
    Bytes8 block;
    std::vector<std::vector<int>> row0;  // pixels 0..3 (signed formats as signed values)
  };
  // clang-format off
  const Case cases[] = {
      // (2*8 + 0)/3 = 5.3 -> 5, (8 + 0)/3 = 2.7 -> 2, 255/3 = 85, 510/3 = 170
      {"four colours", F::DXT1, four, {{8, 0, 0, 255}, {0, 0, 255, 255}, {5, 0, 85, 255}, {2, 0, 170, 255}}},
      {"three, opaque", F::DXT1, three, {{0, 0, 255, 255}, {255, 0, 0, 255}, {127, 0, 127, 255}, {0, 0, 0, 255}}},
      {"three, punch-through", F::DXT1_A1, three, {{0, 0, 255, 255}, {255, 0, 0, 255}, {127, 0, 127, 255}, {0, 0, 0, 0}}},
      // BC2/BC3 colour interpolates four entries even when c0 <= c1; DXT2/DXT4 as stored.
      {"BC2", F::DXT3, Cat(nibbles, three), {{0, 0, 255, 0}, {255, 0, 0, 255}, {85, 0, 170, 136}, {170, 0, 85, 17}}},
      {"DXT2", F::DXT2, Cat(nibbles, three), {{0, 0, 255, 0}, {255, 0, 0, 255}, {85, 0, 170, 136}, {170, 0, 85, 17}}},
      // (6*200 + 100)/7 = 185.7 -> 185, (200 + 6*100)/7 = 114.3 -> 114
      {"BC3 eight", F::DXT5, Cat(eight, four), {{8, 0, 0, 200}, {0, 0, 255, 100}, {5, 0, 85, 185}, {2, 0, 170, 114}}},
      {"DXT4", F::DXT4, Cat(eight, four), {{8, 0, 0, 200}, {0, 0, 255, 100}, {5, 0, 85, 185}, {2, 0, 170, 114}}},
      // (4*100 + 200)/5 = 120, (100 + 4*200)/5 = 180, then 0 and 255
      {"BC3 six", F::DXT5, Cat(six, four), {{8, 0, 0, 120}, {0, 0, 255, 180}, {5, 0, 85, 0}, {2, 0, 170, 255}}},
      {"BC4 eight", F::BC4_unsigned, eight, {{200, 0, 0, 255}, {100, 0, 0, 255}, {185, 0, 0, 255}, {114, 0, 0, 255}}},
      {"BC4 six", F::BC4_unsigned, six, {{120, 0, 0, 255}, {180, 0, 0, 255}, {0, 0, 0, 255}, {255, 0, 0, 255}}},
      // -128 reads -127, but the stored bytes compare -128 <= 127: six values.
      // (4*-127 + 127)/5 = -76.2 -> -76 (toward zero), then -127 and 127.
      {"BC4s six", F::BC4_signed, s_six, {{-127, 0, 0, 127}, {-76, 0, 0, 127}, {-127, 0, 0, 127}, {127, 0, 0, 127}}},
      // (6*100 - 100)/7 = 71.4 -> 71, and its mirror -71
      {"BC4s eight", F::BC4_signed, s_eight, {{100, 0, 0, 127}, {-100, 0, 0, 127}, {71, 0, 0, 127}, {-71, 0, 0, 127}}},
      {"BC5", F::BC5_unsigned, Cat(eight, six), {{200, 120, 0, 255}, {100, 180, 0, 255}, {185, 0, 0, 255}, {114, 255, 0, 255}}},
      {"BC5s", F::BC5_signed, Cat(s_eight, s_six), {{100, -127, 0, 127}, {-100, -76, 0, 127}, {71, -127, 0, 127}, {-71, 127, 0, 127}}}};
  // clang-format on
  for (const Case& c : cases) {
    const std::vector<int> v = DecodeValues(Compressed(c.format), c.block, 4, 4);
    ASSERT_EQ(v.size(), 64u) << c.what;
    for (unsigned i = 0; i < 16; ++i)
      EXPECT_EQ(v[i], c.row0[i / 4][i % 4]) << c.what << ", pixel " << i / 4 << ", channel " << i % 4;
  }
}

// Fields from bit 0 upwards, as BC6H and BC7 blocks store them.
struct BitWriter {
  Bytes8 b = Bytes8(16);
  unsigned pos = 0;
  BitWriter& Put(unsigned value, unsigned n) {
    for (unsigned k = 0; k < n; ++k, ++pos)
      if ((value >> k) & 1u) b[pos / 8] |= static_cast<std::uint8_t>(1u << (pos % 8));
    return *this;
  }
  // Channel-major endpoints, `bits` per channel value.
  BitWriter& Endpoints(const std::vector<std::vector<unsigned>>& ep, unsigned bits) {
    for (std::size_t ch = 0; ch < ep[0].size(); ++ch)
      for (const auto& e : ep) Put(e[ch], bits);
    return *this;
  }
  // 16 indices, 0 but for the listed {pixel, index}; anchor pixels store one bit less.
  BitWriter& Indices(std::vector<std::pair<unsigned, unsigned>> set, unsigned bits, std::vector<unsigned> anchors) {
    std::vector<unsigned> idx(16, 0);
    for (auto [i, v] : set) idx[i] = v;
    for (unsigned i = 0; i < 16; ++i)
      Put(idx[i], std::find(anchors.begin(), anchors.end(), i) != anchors.end() ? bits - 1 : bits);
    return *this;
  }
};

// Every BC7 mode once. Partition 8 of three subsets is rows 0-1 / row 2 / row
// 3 (anchors 0, 8, 15); partition 13 of two is rows 0-1 / rows 2-3 (anchors
// 0, 15). Weights of 64: 2-bit {0,21,43,64}, 3-bit {0,9,18,27,...}, 4-bit
// {0,4,9,13,17,21,...}; entries are ((64-w)*a + w*b + 32) >> 6.
TEST(BCBlocks, EveryBC7Mode) {
  struct Case {
    const char* what;
    BitWriter block;
    std::vector<std::vector<int>> pixels;  // {pixel, r, g, b, a}
  };
  std::vector<Case> cases;
  // clang-format off
  // 4-bit RGB + p-bit per endpoint: (255,8,8) (0,247,0) | (8,8,255) (115,115,115) | (24,41,57) (255,255,255)
  cases.push_back({"mode 0", BitWriter().Put(1, 1).Put(8, 4)
      .Endpoints({{15, 0, 0}, {0, 15, 0}, {0, 0, 15}, {7, 7, 7}, {1, 2, 3}, {15, 15, 15}}, 4).Put(0b110101, 6)
      .Indices({{1, 7}, {2, 3}, {9, 7}, {12, 7}, {15, 3}}, 3, {0, 8, 15}),
      {{0, 255, 8, 8, 255}, {1, 0, 247, 0, 255}, {2, 147, 109, 5, 255}, {8, 8, 8, 255, 255}, {9, 115, 115, 115, 255},
       {12, 255, 255, 255, 255}, {15, 121, 131, 141, 255}}});
  // 6-bit RGB, one p-bit per subset: (255,2,131) (2,255,6) | (40,80,120) (253,253,253)
  cases.push_back({"mode 1", BitWriter().Put(2, 2).Put(13, 6)
      .Endpoints({{63, 0, 32}, {0, 63, 1}, {10, 20, 30}, {63, 63, 63}}, 6).Put(0b01, 2)
      .Indices({{3, 7}, {15, 3}}, 3, {0, 15}),
      {{0, 255, 2, 131, 255}, {3, 2, 255, 6, 255}, {8, 40, 80, 120, 255}, {15, 130, 153, 176, 255}}});
  // 5-bit RGB, three subsets: 16 -> 132
  cases.push_back({"mode 2", BitWriter().Put(4, 3).Put(8, 6)
      .Endpoints({{31, 0, 0}, {0, 31, 0}, {0, 0, 31}, {16, 16, 16}, {1, 2, 3}, {31, 31, 31}}, 5)
      .Indices({{1, 3}, {2, 1}, {9, 3}, {15, 1}}, 2, {0, 8, 15}),
      {{0, 255, 0, 0, 255}, {1, 0, 255, 0, 255}, {2, 171, 84, 0, 255}, {8, 0, 0, 255, 255}, {9, 132, 132, 132, 255},
       {15, 89, 94, 100, 255}}});
  // 7-bit RGB + p-bit per endpoint: exactly 8 bits
  cases.push_back({"mode 3", BitWriter().Put(8, 4).Put(13, 6)
      .Endpoints({{127, 0, 64}, {0, 127, 1}, {5, 6, 7}, {100, 100, 100}}, 7).Put(0b0110, 4)
      .Indices({{1, 3}, {15, 1}}, 2, {0, 15}),
      {{0, 254, 0, 128, 255}, {1, 1, 255, 3, 255}, {8, 11, 13, 15, 255}, {15, 73, 74, 76, 255}}});
  // rotation 1 (alpha <-> red), selector 1 (colour takes the 3-bit indices):
  // colour (255,0,66)..(0,255,132), alpha 255..0
  cases.push_back({"mode 4", BitWriter().Put(16, 5).Put(1, 2).Put(1, 1).Endpoints({{31, 0, 8}, {0, 31, 16}}, 5)
      .Put(63, 6).Put(0, 6).Indices({{2, 3}, {3, 1}}, 2, {0}).Indices({{1, 7}, {3, 2}}, 3, {0}),
      {{0, 255, 0, 66, 255}, {1, 255, 255, 132, 0}, {2, 0, 0, 66, 255}, {3, 171, 72, 85, 183}}});
  // rotation 2 (alpha <-> green), 7-bit colour (64 -> 129), 8-bit alpha
  cases.push_back({"mode 5", BitWriter().Put(32, 6).Put(2, 2).Endpoints({{127, 0, 0}, {0, 127, 64}}, 7)
      .Put(10, 8).Put(250, 8).Indices({{1, 3}, {2, 1}}, 2, {0}).Indices({{1, 3}, {2, 2}}, 2, {0}),
      {{0, 255, 10, 0, 0}, {1, 0, 250, 129, 255}, {2, 171, 171, 42, 84}}});
  // 7-bit RGBA + p-bit per endpoint, 4-bit indices
  cases.push_back({"mode 6", BitWriter().Put(64, 7).Endpoints({{127, 0, 64, 127}, {0, 127, 1, 0}}, 7).Put(0b01, 2)
      .Indices({{1, 15}, {2, 5}}, 4, {0}),
      {{0, 255, 1, 129, 255}, {1, 0, 254, 2, 0}, {2, 171, 84, 87, 171}}});
  // 5-bit RGBA + p-bit per endpoint: (255,4,4,255) (0,251,0,0) | (0,0,251,130) (134,134,134,255)
  cases.push_back({"mode 7", BitWriter().Put(128, 8).Put(13, 6)
      .Endpoints({{31, 0, 0, 31}, {0, 31, 0, 0}, {0, 0, 31, 16}, {16, 16, 16, 31}}, 5).Put(0b1001, 4)
      .Indices({{1, 3}, {15, 1}}, 2, {0, 15}),
      {{0, 255, 4, 4, 255}, {1, 0, 251, 0, 0}, {8, 0, 0, 251, 130}, {15, 44, 44, 213, 171}}});
  // clang-format on
  cases.push_back({"reserved", BitWriter().Put(0, 8).Put(0xFFFFFF, 24), {{0, 0, 0, 0, 0}, {15, 0, 0, 0, 0}}});
  for (const Case& c : cases) EXPECT_TRUE(DecodesTo(Compressed(F::BC7), c.block.b, 4, 4, c.pixels)) << c.what;
}

// BC6H blocks built field by field from the mode tables, halves worked out
// from the unquantisation: unsigned 10-bit c -> ((c << 16) + 0x8000) >> 10,
// then * 31 >> 6; signed magnitudes ((c << 15) + 0x4000) >> 9, then * 31 >> 5;
// the top code saturates (0xFFFF / 0x7FFF).
TEST(BCBlocks, BC6HModes) {
  struct Case {
    const char* what;
    bool is_signed;
    Bytes8 block;
    std::vector<std::vector<int>> pixels;  // {pixel, r, g, b} as half bit patterns
  };
  std::vector<Case> cases;
  // clang-format off
  // mode 1 (code 00): 10-bit base (512, 256, 0), rx +15, ry = rz = -16, partition 13:
  // 512 -> 32800 -> 0x3E0F, 256 -> 0x1F0F, 527 -> 0x3FE0, 496 -> 0x3C1F
  cases.push_back({"mode 1", false, BitWriter().Put(0, 5).Put(512, 10).Put(256, 10).Put(0, 10).Put(15, 5).Put(0, 25)
      .Put(0b10000, 5).Put(0, 1).Put(0b10000, 5).Put(0, 1).Put(13, 5).Indices({{1, 7}}, 3, {0, 15}).b,
      {{0, 0x3E0F, 0x1F0F, 0}, {1, 0x3FE0, 0x1F0F, 0}, {8, 0x3C1F, 0x1F0F, 0}, {15, 0x3C1F, 0x1F0F, 0}}});
  // mode 11 (code 00011), signed, two whole 10-bit endpoints: -1 -> -96 -> 0x805D, 1 -> 0x005D,
  // 511 and -512 saturate to +-0x7FFF -> 0x7BFF / 0xFBFF. Index 8 (weight 34) floors:
  // R (-96*30 + 32767*34 + 32) >> 6 = 17362 -> 0x41B3, G -982978 >> 6 = -15360 -> 0xBA20, B -17362 -> 0xC1B3
  cases.push_back({"mode 11", true, BitWriter().Put(0b00011, 5).Put(0x3FF, 10).Put(0x200, 10).Put(1, 10)
      .Put(0x1FF, 10).Put(0, 10).Put(0x201, 10).Indices({{1, 15}, {2, 8}}, 4, {0}).b,
      {{0, 0x805D, 0xFBFF, 0x005D}, {1, 0x7BFF, 0, 0xFBFF}, {2, 0x41B3, 0xBA20, 0xC1B3}}});
  // clang-format on
  // mode 14 (code 01111): 16-bit base, bits 15..10 stored after each delta in
  // reverse order. R 0x5FCB, G 31711, B 0xFFFF, deltas 0. Unsigned v * 31 >> 6:
  // 0x2E66 (0.1), 0x3C00 (1.0), 0x7BFF; signed v * 31 >> 5: 0x5CCC, 0x7800, -1 -> 0x8000.
  for (const bool is_signed : {false, true}) {
    const unsigned base[3] = {0x5FCB, 31711, 0xFFFF};
    BitWriter w;
    w.Put(0b01111, 5).Put(base[0] & 1023, 10).Put(base[1] & 1023, 10).Put(base[2] & 1023, 10);
    for (const unsigned v : base) {
      w.Put(0, 4);
      for (int bit = 15; bit >= 10; --bit) w.Put(v >> bit, 1);
    }
    const int r = is_signed ? 0x5CCC : 0x2E66, g = is_signed ? 0x7800 : 0x3C00, b = is_signed ? 0x8000 : 0x7BFF;
    cases.push_back({"mode 14", is_signed, w.b, {{0, r, g, b}, {9, r, g, b}}});
  }
  for (const unsigned code : {0x13u, 0x17u, 0x1Bu, 0x1Fu}) {  // reserved: zeros
    Bytes8 block(16, 0xA5);
    block[0] = static_cast<std::uint8_t>(0xA0 | code);
    cases.push_back({"reserved", false, block, {{0, 0, 0, 0}, {15, 0, 0, 0}}});
    cases.push_back({"reserved", true, block, {{0, 0, 0, 0}, {15, 0, 0, 0}}});
  }
  for (Case& c : cases) {
    for (auto& p : c.pixels) p.push_back(0x3C00);
    EXPECT_TRUE(DecodesTo(Compressed(c.is_signed ? F::BC6H_signed : F::BC6H_unsigned), c.block, 4, 4, c.pixels))
        << c.what << (c.is_signed ? " signed" : "");
  }
}

// Random blocks at sizes with partial edge blocks: every bit pattern decodes,
// BC4/BC5 keep their fixed channels and never give -128, BC6H never NaN.
TEST(BCBlocks, RandomBlocksKeepTheirRanges) {
  for (const F f : {F::DXT1, F::DXT1_A1, F::DXT3, F::DXT5, F::BC4_unsigned, F::BC4_signed, F::BC5_unsigned,
                    F::BC5_signed, F::BC6H_unsigned, F::BC6H_signed, F::BC7}) {
    const bool is_signed = f == F::BC4_signed || f == F::BC5_signed;
    const auto ok = [f, is_signed](const int* p) {
      if (f >= F::BC4_unsigned && f <= F::BC5_signed)
        return p[2] == 0 && p[3] == (is_signed ? 127 : 255) && p[0] != -128 && p[1] != -128;
      if (f != F::BC6H_unsigned && f != F::BC6H_signed) return true;
      for (int c = 0; c < 4; ++c)
        if ((p[c] & 0x7FFF) > (f == F::BC6H_unsigned ? 0x7BFF : 0x7C00)) return false;
      return true;
    };
    for (const auto& size : {std::pair<unsigned, unsigned>{5, 3}, {17, 9}, {64, 64}})
      EXPECT_TRUE(RandomBlocksDecode(Compressed(f), size.first, size.second, 1, 1, ok));
  }
}

}  // namespace
}  // namespace lumo::image::testing
