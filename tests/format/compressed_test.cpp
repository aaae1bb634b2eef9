#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "lumo/image/compressed_formats.h"
#include "lumo/image/formats.h"

namespace lumo::image {
namespace {

PixelFormatDescriptor D(unsigned long long v) { return static_cast<PixelFormatDescriptor>(v); }
CompressFormat CF(unsigned v) { return static_cast<CompressFormat>(v); }

struct Row {
  unsigned value;
  const char* name;
  unsigned w, h, d, bytes, min_w, min_h;
  bool alpha, green, blue;
  unsigned signed_partner, unsigned_partner;  // 0 = none
  char filler;                                // 0 = none
};

// One row per format, transcribed from the format table.
const Row kRows[] = {
    {1, "DXT1", 4, 4, 1, 8, 1, 1, 0, 1, 1, 0, 0, 'A'},
    {2, "DXT1_A1", 4, 4, 1, 8, 1, 1, 1, 1, 1, 0, 0, 'A'},
    {3, "DXT2", 4, 4, 1, 16, 1, 1, 1, 1, 1, 0, 0, 'B'},
    {4, "DXT3", 4, 4, 1, 16, 1, 1, 1, 1, 1, 0, 0, 'B'},
    {5, "DXT4", 4, 4, 1, 16, 1, 1, 1, 1, 1, 0, 0, 'C'},
    {6, "DXT5", 4, 4, 1, 16, 1, 1, 1, 1, 1, 0, 0, 'C'},
    {7, "PVRTC_2bpp_RGB", 8, 4, 1, 8, 16, 8, 0, 1, 1, 0, 0, 'D'},
    {8, "PVRTC_2bpp_RGBA", 8, 4, 1, 8, 16, 8, 1, 1, 1, 0, 0, 'D'},
    {9, "PVRTC_4bpp_RGB", 4, 4, 1, 8, 8, 8, 0, 1, 1, 0, 0, 'E'},
    {10, "PVRTC_4bpp_RGBA", 4, 4, 1, 8, 8, 8, 1, 1, 1, 0, 0, 'E'},
    {11, "PVRTC2_2bpp", 8, 4, 1, 8, 1, 1, 1, 1, 1, 0, 0, 0},
    {12, "PVRTC2_4bpp", 4, 4, 1, 8, 1, 1, 1, 1, 1, 0, 0, 0},
    {13, "ETC1", 4, 4, 1, 8, 1, 1, 0, 1, 1, 0, 0, 'F'},
    {14, "ETC2_RGB8", 4, 4, 1, 8, 1, 1, 0, 1, 1, 0, 0, 'F'},
    {15, "ETC2_RGBA8", 4, 4, 1, 16, 1, 1, 1, 1, 1, 0, 0, 'G'},
    {16, "ETC2_RGB8A1", 4, 4, 1, 8, 1, 1, 1, 1, 1, 0, 0, 'H'},
    {17, "EAC_R11", 4, 4, 1, 8, 1, 1, 0, 0, 0, 18, 0, 'I'},
    {18, "EAC_SIGNED_R11", 4, 4, 1, 8, 1, 1, 0, 0, 0, 0, 17, 'J'},
    {19, "EAC_RG11", 4, 4, 1, 16, 1, 1, 0, 1, 0, 20, 0, 'I'},
    {20, "EAC_SIGNED_RG11", 4, 4, 1, 16, 1, 1, 0, 1, 0, 0, 19, 'J'},
    {21, "ATC_RGB", 4, 4, 1, 8, 1, 1, 0, 1, 1, 0, 0, 0},
    {22, "ATC_RGBA_EXPLICIT_ALPHA", 4, 4, 1, 16, 1, 1, 1, 1, 1, 0, 0, 0},
    {23, "ATC_RGBA_INTERPOLATED_ALPHA", 4, 4, 1, 16, 1, 1, 1, 1, 1, 0, 0, 0},
    {24, "BC4_unsigned", 4, 4, 1, 8, 1, 1, 0, 0, 0, 25, 0, 'K'},
    {25, "BC4_signed", 4, 4, 1, 8, 1, 1, 0, 0, 0, 0, 24, 'L'},
    {26, "BC5_unsigned", 4, 4, 1, 16, 1, 1, 0, 1, 0, 27, 0, 'K'},
    {27, "BC5_signed", 4, 4, 1, 16, 1, 1, 0, 1, 0, 0, 26, 'L'},
    {28, "BC6H_unsigned", 4, 4, 1, 16, 1, 1, 0, 1, 1, 29, 0, 'M'},
    {29, "BC6H_signed", 4, 4, 1, 16, 1, 1, 0, 1, 1, 0, 28, 'N'},
    {30, "BC7", 4, 4, 1, 16, 1, 1, 1, 1, 1, 0, 0, 'O'},
    {31, "ASTC_RGBA_4x4", 4, 4, 1, 16, 1, 1, 1, 1, 1, 0, 0, 'P'},
    {32, "ASTC_RGBA_5x4", 5, 4, 1, 16, 1, 1, 1, 1, 1, 0, 0, 'P'},
    {33, "ASTC_RGBA_5x5", 5, 5, 1, 16, 1, 1, 1, 1, 1, 0, 0, 'P'},
    {34, "ASTC_RGBA_6x5", 6, 5, 1, 16, 1, 1, 1, 1, 1, 0, 0, 'P'},
    {35, "ASTC_RGBA_6x6", 6, 6, 1, 16, 1, 1, 1, 1, 1, 0, 0, 'P'},
    {36, "ASTC_RGBA_8x5", 8, 5, 1, 16, 1, 1, 1, 1, 1, 0, 0, 'P'},
    {37, "ASTC_RGBA_8x6", 8, 6, 1, 16, 1, 1, 1, 1, 1, 0, 0, 'P'},
    {38, "ASTC_RGBA_8x8", 8, 8, 1, 16, 1, 1, 1, 1, 1, 0, 0, 'P'},
    {39, "ASTC_RGBA_10x5", 10, 5, 1, 16, 1, 1, 1, 1, 1, 0, 0, 'P'},
    {40, "ASTC_RGBA_10x6", 10, 6, 1, 16, 1, 1, 1, 1, 1, 0, 0, 'P'},
    {41, "ASTC_RGBA_10x8", 10, 8, 1, 16, 1, 1, 1, 1, 1, 0, 0, 'P'},
    {42, "ASTC_RGBA_10x10", 10, 10, 1, 16, 1, 1, 1, 1, 1, 0, 0, 'P'},
    {43, "ASTC_RGBA_12x10", 12, 10, 1, 16, 1, 1, 1, 1, 1, 0, 0, 'P'},
    {44, "ASTC_RGBA_12x12", 12, 12, 1, 16, 1, 1, 1, 1, 1, 0, 0, 'P'},
    {45, "ASTC_RGBA_3x3x3", 3, 3, 3, 16, 1, 1, 1, 1, 1, 0, 0, 0},
    {46, "ASTC_RGBA_4x3x3", 4, 3, 3, 16, 1, 1, 1, 1, 1, 0, 0, 0},
    {47, "ASTC_RGBA_4x4x3", 4, 4, 3, 16, 1, 1, 1, 1, 1, 0, 0, 0},
    {48, "ASTC_RGBA_4x4x4", 4, 4, 4, 16, 1, 1, 1, 1, 1, 0, 0, 0},
    {49, "ASTC_RGBA_5x4x4", 5, 4, 4, 16, 1, 1, 1, 1, 1, 0, 0, 0},
    {50, "ASTC_RGBA_5x5x4", 5, 5, 4, 16, 1, 1, 1, 1, 1, 0, 0, 0},
    {51, "ASTC_RGBA_5x5x5", 5, 5, 5, 16, 1, 1, 1, 1, 1, 0, 0, 0},
    {52, "ASTC_RGBA_6x5x5", 6, 5, 5, 16, 1, 1, 1, 1, 1, 0, 0, 0},
    {53, "ASTC_RGBA_6x6x5", 6, 6, 5, 16, 1, 1, 1, 1, 1, 0, 0, 0},
    {54, "ASTC_RGBA_6x6x6", 6, 6, 6, 16, 1, 1, 1, 1, 1, 0, 0, 0},
};

std::vector<unsigned char> Filler(char letter) {
  static const char* const kHex[] = {
      "FFFFFFFF00000000", "FFFFFFFFFFFFFFFFFFFFFFFF00000000", "FFFF000000000000FFFFFFFF00000000",  // A B C
      "FFFFFFFFFEFFFFFF", "AAAAAAAAFEFFFFFF", "F8F8F80200000000",                                  // D E F
      "FF00000000000000F8F8F80200000000", "F8F8F80000000000",                                      // G H
      "2EF0FFFFFFFFFFFF2EF0FFFFFFFFFFFF", "AEF0FFFFFFFFFFFFAEF0FFFFFFFFFFFF",                      // I J
      "FF00000000000000FF00000000000000", "7F810000000000007F81000000000000",                      // K L
      "E0BDF7DE030000000000000000000000", "E2BDF7DE030000000000000000000000",                      // M N
      "E1FFFFFFFFFFFFFFFFFF070000000000", "FCFDFFFFFFFFFFFFFFFFFFFFFFFFFFFF",                      // O P
  };
  const std::string hex = kHex[letter - 'A'];
  std::vector<unsigned char> out;
  for (size_t i = 0; i < hex.size(); i += 2) out.push_back(std::stoi(hex.substr(i, 2), nullptr, 16));
  return out;
}

// "2-D footprint | 3-D footprint | 2-D ASTC | 3-D ASTC", for a format or a descriptor.
template <class T>
std::string Dims(T f) {
  unsigned char v[10];
  std::memset(v, 99, sizeof v);
  CompressFormatBlockDimension(f, &v[0], &v[1]);
  CompressFormatBlockDimension(f, &v[2], &v[3], &v[4]);
  ASTCBlockDimension(f, &v[5], &v[6]);
  ASTCBlockDimension(f, &v[7], &v[8], &v[9]);
  std::ostringstream o;
  o << +v[0] << 'x' << +v[1] << ' ' << +v[2] << 'x' << +v[3] << 'x' << +v[4] << ' ' << +v[5] << 'x' << +v[6] << ' '
    << +v[7] << 'x' << +v[8] << 'x' << +v[9];
  return o.str();
}

// "bytes min-size alpha/green/blue signed-partner unsigned-partner" of a format.
std::string Facts(CompressFormat f) {
  unsigned long long w2 = 99, h2 = 99, w = 99, h = 99, d = 99;
  CompressFormatMinimumSize(f, &w2, &h2);
  CompressFormatMinimumSize(f, &w, &h, &d);
  std::ostringstream o;
  o << CompressFormatBytesPerBlock(f) << ' ' << w2 << 'x' << h2 << '/' << w << 'x' << h << 'x' << d << ' '
    << CompressHasAlpha(f) << CompressHasGreen(f) << CompressHasBlue(f) << ' '
    << static_cast<unsigned>(GetSignedCompressFormat(f)) << ' ' << static_cast<unsigned>(GetUnsignedCompressFormat(f));
  return o.str();
}

TEST(CompressedFormat, EveryTableRow) {
  ASSERT_EQ(std::size(kRows), 54u);
  for (const Row& r : kRows) {
    SCOPED_TRACE(r.name);
    const CompressFormat f = CF(r.value);
    const bool astc = std::string(r.name).rfind("ASTC_", 0) == 0, astc3d = astc && r.d > 1;
    const unsigned w2 = astc3d ? 1 : r.w, h2 = astc3d ? 1 : r.h;  // 2-D footprint
    std::ostringstream dims, facts;
    dims << w2 << 'x' << h2 << ' ' << r.w << 'x' << r.h << 'x' << r.d << ' ' << (astc && !astc3d ? r.w : 0) << 'x'
         << (astc && !astc3d ? r.h : 0) << ' ' << (astc ? r.w : 0) << 'x' << (astc ? r.h : 0) << 'x' << r.d;
    facts << r.bytes << ' ' << r.min_w << 'x' << r.min_h << '/' << r.min_w << 'x' << r.min_h << "x1 " << r.alpha
          << r.green << r.blue << ' ' << r.signed_partner << ' ' << (r.unsigned_partner ? r.unsigned_partner : r.value);
    EXPECT_EQ(Dims(f), dims.str());
    EXPECT_EQ(Facts(f), facts.str());

    unsigned long long size = 0;
    const char* block = CompressFormatDummyBlock(f, &size);
    EXPECT_EQ(size, r.bytes);
    EXPECT_EQ(CompressFormatDummyBlock(f, nullptr), block);
    if (r.filler == 0) {
      EXPECT_EQ(block, nullptr);
    } else {
      const auto want = Filler(r.filler);
      ASSERT_NE(block, nullptr);
      EXPECT_EQ(std::vector<unsigned char>(block, block + r.bytes),
                std::vector<unsigned char>(want.begin(), want.begin() + r.bytes))
          << "filler " << r.filler;
    }

    // Descriptor forms ignore the sRGB and unnormalized flags.
    for (unsigned long long flags : {0ull, 2ull, 4ull, 6ull}) {
      const PixelFormatDescriptor desc = D((r.value << 8) | flags | 1);
      EXPECT_EQ(GetCompressFormat(desc), f);
      EXPECT_EQ(Dims(desc), dims.str());
      EXPECT_EQ(CompressFormatBytesPerBlock(desc), r.bytes);
      EXPECT_EQ(IsASTC(desc), astc);
      EXPECT_EQ(IsPVRTCv1(desc), std::string(r.name).rfind("PVRTC_", 0) == 0);
      EXPECT_EQ(IsSignedCompressFormat(desc), r.unsigned_partner != 0);
      EXPECT_EQ(HasAlpha(desc), r.alpha);
      EXPECT_EQ(HasAlphaOrDummy(desc), r.alpha);
      EXPECT_EQ(HasComponent(desc, PixelComponent::R), true);
      EXPECT_EQ(HasComponent(desc, PixelComponent::G), r.green);
      EXPECT_EQ(HasComponent(desc, PixelComponent::B), r.blue);
      EXPECT_EQ(HasComponent(desc, PixelComponent::A), r.alpha);
      EXPECT_EQ(HasFloatComponent(desc), (flags & 4) != 0);
      EXPECT_EQ(ToString(desc), std::string(flags & 2 ? "s_" : "") + (flags & 4 ? "u_" : "") + r.name);

      // Bits per pixel from the 2-D footprint, as an unreduced fraction.
      const unsigned long long bits = 8ull * r.bytes, area = w2 * h2;
      unsigned long long div = 0;
      EXPECT_EQ(BitsPerPixel(desc, &div), bits % area ? bits : bits / area);
      EXPECT_EQ(div, bits % area ? area : 1u);
    }
  }
}

TEST(CompressedFormat, ValuesOutsideTheTable) {
  // 55 and above take the 3-D ASTC branch of the three-output footprint.
  const std::tuple<unsigned, const char*, const char*> cases[] = {
      {0, "1x1 1x1x1 0x0 0x0x1", "0 1x1/1x1x1 000 0 0"},
      {55, "1x1 0x0x1 0x0 0x0x1", "0 1x1/1x1x1 011 0 55"},
      {56, "1x1 0x0x1 0x0 0x0x1", "0 1x1/1x1x1 011 0 56"},
      {255, "1x1 0x0x1 0x0 0x0x1", "0 1x1/1x1x1 011 0 255"},
  };
  for (const auto& [value, dims, facts] : cases) {
    const CompressFormat f = CF(value);
    EXPECT_EQ(Dims(f), dims) << value;
    EXPECT_EQ(Facts(f), facts) << value;
    unsigned long long size = 99;
    EXPECT_EQ(CompressFormatDummyBlock(f, &size), nullptr);
    EXPECT_EQ(size, 0u);
  }
}

TEST(CompressedFormat, DescriptorsThatAreNotTableFormats) {
  // Uncompressed descriptors whose bits 8-15 look like format numbers (S8 has
  // 7 there, ChromR8 18, an invalid kind 47) behave as format 0; bits 16 and up
  // of a compressed descriptor are not part of the number.
  const std::tuple<unsigned long long, unsigned, const char*> cases[] = {
      {0x20700, 0, "1x1 1x1x1 0x0 0x0x1"}, {0x21200, 0, "1x1 1x1x1 0x0 0x0x1"},
      {0x22F00, 0, "1x1 1x1x1 0x0 0x0x1"}, {0x1, 0, "1x1 1x1x1 0x0 0x0x1"},
      {0x3701, 55, "1x1 0x0x1 0x0 0x0x1"}, {0x3801, 0, "1x1 1x1x1 0x0 0x0x1"},
      {0xFF01, 0, "1x1 1x1x1 0x0 0x0x1"},  {0xFF0601, 6, "4x4 4x4x1 0x0 0x0x1"},
  };
  for (const auto& [value, format, dims] : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << value);
    const PixelFormatDescriptor desc = D(value);
    EXPECT_EQ(GetCompressFormat(desc), CF(format));
    EXPECT_EQ(Dims(desc), dims);
    EXPECT_EQ(CompressFormatBytesPerBlock(desc), format == 6 ? 16u : 0u);
    EXPECT_FALSE(IsASTC(desc) || IsPVRTCv1(desc) || IsSignedCompressFormat(desc));
  }
}

}  // namespace
}  // namespace lumo::image
