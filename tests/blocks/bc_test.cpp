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
  } files[] = {// clang-format off
      {"dds/nv_bc1_mips.dds", 0xF}, {"dds/nv_bc1_npot.dds", 0xF}, {"dds/nv_bc1a.dds", 0x7},
      {"dds/nv_bc1a.dds", 0xF, true}, {"dds/nv_cube_bc1_mips.dds", 0xF}, {"dds/pillow_bc1_typeless.dds", 0xF},
      {"dds/py_dx10_array3_bc1.dds", 0xF}, {"pvr/v2_dxt1_mips.pvr", 0xF}, {"pvr/v3_dxt1_mips.pvr", 0xF},
      {"dds/nv_bc2_mips.dds", 0xF}, {"dds/pillow_dxt3-argb-8bbp-explicitalpha_MipMaps-1.dds", 0xF},
      {"dds/nv_bc3_mips.dds", 0xF}, {"dds/nv_bc3_npot.dds", 0xF}, {"dds/nv_bc3n.dds", 0xF},
      {"dds/im_dxt5_mips.dds", 0xF}, {"pvr/v3_dxt5.pvr", 0xF}, {"ktx/py_array2_dxt5.ktx", 0xF},
      {"dds/nv_bc4.dds", 0x9}, {"dds/pillow_ati1.dds", 0x9}, {"dds/pillow_bc4_unorm.dds", 0x9},
      {"dds/nv_bc5_mips.dds", 0xF}, {"dds/pillow_bc5u.dds", 0xF}};
  // clang-format on
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

float HalfToFloat(std::uint16_t h) {
  const int e = (h >> 10) & 31, m = h & 1023;
  const float v = e == 0 ? std::ldexp(static_cast<float>(m), -24) : std::ldexp(static_cast<float>(m | 1024), e - 25);
  return (h & 0x8000) ? -v : v;
}

// Files no command-line tool here decodes: FNV-1a hashes of level 0 from an
// independent decoder, run once. BC7 as the decoded RGBA bytes (the sRGB file
// must not pass a colour conversion); BC6H as that decoder gives it: 8-bit RGB,
// each half clamped to [0, 1], times 255, truncated. Both BC6H files use all 14
// modes; in the listed samples (3 * pixel + channel, all in blocks with 11- or
// 12-bit endpoints) the reference is one below ours: it unquantises those
// endpoints with its own rounding, this decoder with the usual formula (which
// the hand-made blocks pin down).
TEST(BCFiles, MatchIndependentDecoderHashes) {
  struct File {
    const char* file;
    std::uint64_t fnv1a;
    std::vector<unsigned> one_below;
  };
  // clang-format off
  const File files[] = {
      {"dds/pillow_bc7-argb-8bpp_MipMaps-1.dds", 0x3d277c7baa3732f7ull, {}},
      {"dds/pillow_DXGI_FORMAT_BC7_UNORM_SRGB.dds", 0xf6159e61475beb25ull, {}},
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
    const std::shared_ptr<SurfaceData> ours = blocks::DecodeCopy(*pyramid->GetSurface(0, 0)->Data());
    ASSERT_TRUE(ours);
    std::string bytes = Tight(*ours);
    if (ours->Format() == formats::A16fB16fG16fR16f) {
      const std::vector<int> v = Values(*ours);
      bytes.clear();
      for (std::size_t i = 0; i < v.size(); ++i) {
        const float x = HalfToFloat(static_cast<std::uint16_t>(v[i]));
        if (i % 4 == 3) {
          ASSERT_EQ(v[i], 0x3C00);
        } else {
          bytes.push_back(static_cast<char>(static_cast<int>((x < 0 ? 0 : x > 1 ? 1 : x) * 255.0f)));
        }
      }
      for (const unsigned i : f.one_below) --bytes[i];
    }
    EXPECT_EQ(Fnv1a(bytes), f.fnv1a) << f.file;
  }
}

// Hand-made blocks; {pixel, r, g, b, a}, signed formats as signed values,
// BC6H as half bit patterns. 5/6-bit colours widen by replication; BC1-BC5
// palette entries truncate (as nvdecompress's do).
struct HandBlock {
  const char* what;
  F format;
  Bytes8 block;
  std::vector<std::vector<int>> pixels;
};

Bytes8 Cat(Bytes8 a, const Bytes8& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// BC1-BC3 colour indices 0, 1, 2, 3 along row 0, 0 elsewhere.
TEST(BCBlocks, HandBlocksOfEveryMode) {
  const Bytes8 four = {0x00, 0x08, 0x1F, 0x00, 0xE4, 0, 0, 0};   // (8,0,0) and (0,0,255)
  const Bytes8 three = {0x1F, 0x00, 0x00, 0xF8, 0xE4, 0, 0, 0};  // blue, red: c0 <= c1
  const Bytes8 nibbles = {0xF0, 0x18, 0, 0, 0, 0, 0, 0};         // alphas 0, 15, 8, 1 (x 17)
  const Bytes8 eight = {200, 100, 0x88, 0x0E, 0, 0, 0, 0};       // indices 0, 1, 2, 7
  const Bytes8 six = {100, 200, 0xAA, 0x0F, 0, 0, 0, 0};         // indices 2, 5, 6, 7
  const Bytes8 s_eight = {100, 0x9C, 0x88, 0x0E, 0, 0, 0, 0};    // 100, -100; indices 0, 1, 2, 7
  const Bytes8 s_six = {0x80, 0x7F, 0x90, 0x0F, 0, 0, 0, 0};     // -128, 127; indices 0, 2, 6, 7
  // clang-format off
  const HandBlock cases[] = {
      // (2*8 + 0)/3 = 5.3 -> 5, (8 + 0)/3 = 2.7 -> 2, 255/3 = 85, 510/3 = 170
      {"four colours", F::DXT1, four, {{0, 8, 0, 0, 255}, {1, 0, 0, 255, 255}, {2, 5, 0, 85, 255}, {3, 2, 0, 170, 255}}},
      {"three, opaque", F::DXT1, three, {{0, 0, 0, 255, 255}, {1, 255, 0, 0, 255}, {2, 127, 0, 127, 255}, {3, 0, 0, 0, 255}}},
      {"three, punch-through", F::DXT1_A1, three, {{0, 0, 0, 255, 255}, {1, 255, 0, 0, 255}, {2, 127, 0, 127, 255}, {3, 0, 0, 0, 0}}},
      // BC2/BC3 colour interpolates four entries even when c0 <= c1; DXT2/DXT4 as stored.
      {"BC2", F::DXT3, Cat(nibbles, three), {{0, 0, 0, 255, 0}, {1, 255, 0, 0, 255}, {2, 85, 0, 170, 136}, {3, 170, 0, 85, 17}}},
      {"DXT2", F::DXT2, Cat(nibbles, three), {{0, 0, 0, 255, 0}, {1, 255, 0, 0, 255}, {2, 85, 0, 170, 136}, {3, 170, 0, 85, 17}}},
      // (6*200 + 100)/7 = 185.7 -> 185, (200 + 6*100)/7 = 114.3 -> 114
      {"BC3 eight", F::DXT5, Cat(eight, four), {{0, 8, 0, 0, 200}, {1, 0, 0, 255, 100}, {2, 5, 0, 85, 185}, {3, 2, 0, 170, 114}}},
      {"DXT4", F::DXT4, Cat(eight, four), {{0, 8, 0, 0, 200}, {1, 0, 0, 255, 100}, {2, 5, 0, 85, 185}, {3, 2, 0, 170, 114}}},
      // (4*100 + 200)/5 = 120, (100 + 4*200)/5 = 180, then 0 and 255
      {"BC3 six", F::DXT5, Cat(six, four), {{0, 8, 0, 0, 120}, {1, 0, 0, 255, 180}, {2, 5, 0, 85, 0}, {3, 2, 0, 170, 255}}},
      {"BC4 eight", F::BC4_unsigned, eight, {{0, 200, 0, 0, 255}, {1, 100, 0, 0, 255}, {2, 185, 0, 0, 255}, {3, 114, 0, 0, 255}}},
      {"BC4 six", F::BC4_unsigned, six, {{0, 120, 0, 0, 255}, {1, 180, 0, 0, 255}, {2, 0, 0, 0, 255}, {3, 255, 0, 0, 255}}},
      // -128 reads -127, but the stored bytes compare -128 <= 127: six values.
      // (4*-127 + 127)/5 = -76.2 -> -76 (toward zero), then -127 and 127.
      {"BC4s six", F::BC4_signed, s_six, {{0, -127, 0, 0, 127}, {1, -76, 0, 0, 127}, {2, -127, 0, 0, 127}, {3, 127, 0, 0, 127}}},
      // (6*100 - 100)/7 = 71.4 -> 71, and its mirror -71
      {"BC4s eight", F::BC4_signed, s_eight, {{0, 100, 0, 0, 127}, {1, -100, 0, 0, 127}, {2, 71, 0, 0, 127}, {3, -71, 0, 0, 127}}},
      {"BC5", F::BC5_unsigned, Cat(eight, six), {{0, 200, 120, 0, 255}, {1, 100, 180, 0, 255}, {2, 185, 0, 0, 255}, {3, 114, 255, 0, 255}}},
      {"BC5s", F::BC5_signed, Cat(s_eight, s_six), {{0, 100, -127, 0, 127}, {1, -100, -76, 0, 127}, {2, 71, -127, 0, 127}, {3, -71, 127, 0, 127}}},

      // BC7, every mode (fields from bit 0 up). Partition 8 of three subsets is
      // rows 0-1 / row 2 / row 3 (anchors 0, 8, 15); partition 13 of two is rows
      // 0-1 / rows 2-3 (anchors 0, 15). Weights of 64: 2-bit {0,21,43,64}, 3-bit
      // {0,9,18,27,...}, 4-bit {0,4,9,13,...}; entries ((64-w)*a + w*b + 32) >> 6.
      // Mode 0, partition 8, 4-bit RGB + p-bit per endpoint: (255,8,8) (0,247,0) | (8,8,255) (115,115,115) |
      // (24,41,57) (255,255,255); indices 1:7 2:3 9:7 12:7 15:3
      {"BC7 mode 0", F::BC7, {0xF1, 0x01, 0x2E, 0x1E, 0x1E, 0x4E, 0x1E, 0xE0, 0x6F, 0xBE, 0xE6, 0x03, 0x00, 0x70, 0xE0, 0xC0},
       {{0, 255, 8, 8, 255}, {1, 0, 247, 0, 255}, {2, 147, 109, 5, 255}, {8, 8, 8, 255, 255}, {9, 115, 115, 115, 255},
        {12, 255, 255, 255, 255}, {15, 121, 131, 141, 255}}},
      // Mode 1, partition 13, 6-bit RGB, p-bit per subset: (255,2,131) (2,255,6) | (40,80,120) (253,253,253); 3:7 15:3
      {"BC7 mode 1", F::BC7, {0x36, 0x3F, 0xA0, 0xFC, 0xC0, 0x4F, 0xFD, 0x60, 0xE0, 0xFD, 0x01, 0x1C, 0x00, 0x00, 0x00, 0xC0},
       {{0, 255, 2, 131, 255}, {3, 2, 255, 6, 255}, {8, 40, 80, 120, 255}, {15, 130, 153, 176, 255}}},
      // Mode 2, partition 8, 5-bit RGB: red, green | blue, 16 -> 132 | (1,2,3), white; 1:3 2:1 9:3 15:1
      {"BC7 mode 2", F::BC7, {0x44, 0x3E, 0x00, 0x30, 0x7C, 0xF0, 0x01, 0x14, 0x1F, 0x80, 0x0F, 0xC7, 0x77, 0x00, 0x18, 0x80},
       {{0, 255, 0, 0, 255}, {1, 0, 255, 0, 255}, {2, 171, 84, 0, 255}, {8, 0, 0, 255, 255}, {9, 132, 132, 132, 255},
        {15, 89, 94, 100, 255}}},
      // Mode 3, partition 13, 7-bit RGB + p-bit per endpoint (exactly 8 bits); 1:3 15:1
      {"BC7 mode 3", F::BC7, {0xD8, 0xFC, 0x01, 0x05, 0x32, 0xE0, 0x6F, 0x20, 0x03, 0x03, 0x07, 0xB2, 0x19, 0x00, 0x00, 0x80},
       {{0, 254, 0, 128, 255}, {1, 1, 255, 3, 255}, {8, 11, 13, 15, 255}, {15, 73, 74, 76, 255}}},
      // Mode 4, rotation 1 (alpha <-> red), selector 1 (colour takes the 3-bit
      // indices): colour (255,0,66)..(0,255,132), alpha 255..0
      {"BC7 mode 4", F::BC7, {0xB0, 0x1F, 0x80, 0x8F, 0xE0, 0x0F, 0xE0, 0x00, 0x00, 0x00, 0x38, 0x04, 0, 0, 0, 0},
       {{0, 255, 0, 66, 255}, {1, 255, 255, 132, 0}, {2, 0, 0, 66, 255}, {3, 171, 72, 85, 183}}},
      // Mode 5, rotation 2 (alpha <-> green), 7-bit colour (64 -> 129), 8-bit alpha 10..250
      {"BC7 mode 5", F::BC7, {0xA0, 0x7F, 0x00, 0xE0, 0x0F, 0x00, 0x2A, 0xE8, 0x3B, 0x00, 0x00, 0x00, 0x2C, 0, 0, 0},
       {{0, 255, 10, 0, 0}, {1, 0, 250, 129, 255}, {2, 171, 171, 42, 84}}},
      // Mode 6, 7-bit RGBA + p-bit per endpoint, 4-bit indices 1:15 2:5
      {"BC7 mode 6", F::BC7, {0xC0, 0x3F, 0x00, 0xF0, 0x07, 0x06, 0xFE, 0x80, 0xF0, 0x05, 0, 0, 0, 0, 0, 0},
       {{0, 255, 1, 129, 255}, {1, 0, 254, 2, 0}, {2, 171, 84, 87, 171}}},
      // Mode 7, partition 13, 5-bit RGBA + p-bit per endpoint: (255,4,4,255) (0,251,0,0) | (0,0,251,130) (134,134,134,255)
      {"BC7 mode 7", F::BC7, {0x80, 0xCD, 0x07, 0x00, 0x82, 0x0F, 0x20, 0x00, 0x1F, 0x7E, 0x00, 0x7F, 0x1A, 0x00, 0x00, 0x80},
       {{0, 255, 4, 4, 255}, {1, 0, 251, 0, 0}, {8, 0, 0, 251, 130}, {15, 44, 44, 213, 171}}},
      {"BC7 reserved", F::BC7, {0x00, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {{0, 0, 0, 0, 0}, {15, 0, 0, 0, 0}}},

      // BC6H, halves from the unquantisation: unsigned 10-bit c -> ((c << 16) +
      // 0x8000) >> 10, then * 31 >> 6; signed magnitudes ((c << 15) + 0x4000) >> 9,
      // then * 31 >> 5; the top code saturates (0xFFFF / 0x7FFF). Alpha is 1.0.
      // Mode 1 (code 00): 10-bit base (512, 256, 0), rx +15, ry = rz = -16, partition 13, index 1:7:
      // 512 -> 32800 -> 0x3E0F, 256 -> 0x1F0F, 527 -> 0x3FE0, 496 -> 0x3C1F
      {"BC6H mode 1", F::BC6H_unsigned, {0x00, 0x40, 0x80, 0x00, 0x78, 0, 0, 0, 0x20, 0xA8, 0x71, 0, 0, 0, 0, 0},
       {{0, 0x3E0F, 0x1F0F, 0, 0x3C00}, {1, 0x3FE0, 0x1F0F, 0, 0x3C00}, {8, 0x3C1F, 0x1F0F, 0, 0x3C00}, {15, 0x3C1F, 0x1F0F, 0, 0x3C00}}},
      // Mode 11 (code 00011), signed, endpoints (-1, -512, 1) (511, 0, -511), indices 1:15 2:8.
      // -1 -> -96 -> 0x805D, 1 -> 0x005D, 511 and -512 saturate to +-0x7FFF -> 0x7BFF / 0xFBFF.
      // Index 8 (weight 34) floors: R (-96*30 + 32767*34 + 32) >> 6 = 17362 -> 0x41B3,
      // G -982978 >> 6 = -15360 -> 0xBA20, B -17362 -> 0xC1B3
      {"BC6H mode 11", F::BC6H_signed, {0xE3, 0x7F, 0x00, 0x03, 0xF8, 0x0F, 0x80, 0x00, 0xF1, 0x08, 0, 0, 0, 0, 0, 0},
       {{0, 0x805D, 0xFBFF, 0x005D, 0x3C00}, {1, 0x7BFF, 0, 0xFBFF, 0x3C00}, {2, 0x41B3, 0xBA20, 0xC1B3, 0x3C00}}},
      // Mode 14 (code 01111): 16-bit base R 0x5FCB, G 31711, B 0xFFFF (bits 15..10 after each zero delta,
      // reversed). Unsigned v * 31 >> 6: 0x2E66 (0.1), 0x3C00 (1.0), 0x7BFF; signed v * 31 >> 5: 0x5CCC, 0x7800,
      // -1 -> 0x8000.
      {"BC6H mode 14", F::BC6H_unsigned, {0x6F, 0xF9, 0xEF, 0xFF, 0x07, 0x1D, 0x3C, 0xF8, 0x01, 0, 0, 0, 0, 0, 0, 0},
       {{0, 0x2E66, 0x3C00, 0x7BFF, 0x3C00}, {9, 0x2E66, 0x3C00, 0x7BFF, 0x3C00}}},
      {"BC6H mode 14 signed", F::BC6H_signed, {0x6F, 0xF9, 0xEF, 0xFF, 0x07, 0x1D, 0x3C, 0xF8, 0x01, 0, 0, 0, 0, 0, 0, 0},
       {{0, 0x5CCC, 0x7800, 0x8000, 0x3C00}, {9, 0x5CCC, 0x7800, 0x8000, 0x3C00}}}};
  // clang-format on
  for (const HandBlock& c : cases) EXPECT_TRUE(DecodesTo(Compressed(c.format), c.block, 4, 4, c.pixels)) << c.what;
  // Reserved BC6H mode codes decode to zeros in both signs.
  for (const unsigned code : {0x13u, 0x17u, 0x1Bu, 0x1Fu}) {
    Bytes8 block(16, 0xA5);
    block[0] = static_cast<std::uint8_t>(0xA0 | code);
    for (const F f : {F::BC6H_unsigned, F::BC6H_signed})
      EXPECT_TRUE(DecodesTo(Compressed(f), block, 4, 4, {{0, 0, 0, 0, 0x3C00}, {15, 0, 0, 0, 0x3C00}})) << code;
  }
}

// Random BC6H blocks never give NaN or (unsigned) infinity.
TEST(BCBlocks, RandomBC6HBlocksStayFinite) {
  for (const F f : {F::BC6H_unsigned, F::BC6H_signed})
    EXPECT_TRUE(RandomBlocksDecode(Compressed(f), 64, 64, 1, 4, [f](const int* p) {
      return std::all_of(p, p + 4, [f](int v) { return (v & 0x7FFF) <= (f == F::BC6H_unsigned ? 0x7BFF : 0x7C00); });
    }));
}

}  // namespace
}  // namespace lumo::image::testing
