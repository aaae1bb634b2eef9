#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "lumo/image/compressed_formats.h"
#include "lumo/image/formats.h"
#include "support/descriptors.h"

namespace lumo::image {
namespace {

using ull = unsigned long long;
using testing::D;
CompressFormat CF(unsigned v) { return static_cast<CompressFormat>(v); }

// Channels present are given as e.g. "RG--"; partner is the signed partner of an unsigned
// format and vice versa; filler is a letter of kFillers. 0 = none.
struct Row {
  std::string name;
  unsigned w, h, d, bytes, min_w, min_h;
  const char* rgba;
  unsigned partner;
  char filler;
};

// Formats 1..30, in number order; the ASTC rows (31..54) follow from their names.
const Row kRows[] = {
    {"DXT1", 4, 4, 1, 8, 1, 1, "RGB-", 0, 'A'},           {"DXT1_A1", 4, 4, 1, 8, 1, 1, "RGBA", 0, 'A'},
    {"DXT2", 4, 4, 1, 16, 1, 1, "RGBA", 0, 'B'},          {"DXT3", 4, 4, 1, 16, 1, 1, "RGBA", 0, 'B'},
    {"DXT4", 4, 4, 1, 16, 1, 1, "RGBA", 0, 'C'},          {"DXT5", 4, 4, 1, 16, 1, 1, "RGBA", 0, 'C'},
    {"PVRTC_2bpp_RGB", 8, 4, 1, 8, 16, 8, "RGB-", 0, 'D'}, {"PVRTC_2bpp_RGBA", 8, 4, 1, 8, 16, 8, "RGBA", 0, 'D'},
    {"PVRTC_4bpp_RGB", 4, 4, 1, 8, 8, 8, "RGB-", 0, 'E'},  {"PVRTC_4bpp_RGBA", 4, 4, 1, 8, 8, 8, "RGBA", 0, 'E'},
    {"PVRTC2_2bpp", 8, 4, 1, 8, 1, 1, "RGBA", 0, 0},       {"PVRTC2_4bpp", 4, 4, 1, 8, 1, 1, "RGBA", 0, 0},
    {"ETC1", 4, 4, 1, 8, 1, 1, "RGB-", 0, 'F'},           {"ETC2_RGB8", 4, 4, 1, 8, 1, 1, "RGB-", 0, 'F'},
    {"ETC2_RGBA8", 4, 4, 1, 16, 1, 1, "RGBA", 0, 'G'},    {"ETC2_RGB8A1", 4, 4, 1, 8, 1, 1, "RGBA", 0, 'H'},
    {"EAC_R11", 4, 4, 1, 8, 1, 1, "R---", 18, 'I'},       {"EAC_SIGNED_R11", 4, 4, 1, 8, 1, 1, "R---", 17, 'J'},
    {"EAC_RG11", 4, 4, 1, 16, 1, 1, "RG--", 20, 'I'},     {"EAC_SIGNED_RG11", 4, 4, 1, 16, 1, 1, "RG--", 19, 'J'},
    {"ATC_RGB", 4, 4, 1, 8, 1, 1, "RGB-", 0, 0},          {"ATC_RGBA_EXPLICIT_ALPHA", 4, 4, 1, 16, 1, 1, "RGBA", 0, 0},
    {"ATC_RGBA_INTERPOLATED_ALPHA", 4, 4, 1, 16, 1, 1, "RGBA", 0, 0},
    {"BC4_unsigned", 4, 4, 1, 8, 1, 1, "R---", 25, 'K'},  {"BC4_signed", 4, 4, 1, 8, 1, 1, "R---", 24, 'L'},
    {"BC5_unsigned", 4, 4, 1, 16, 1, 1, "RG--", 27, 'K'}, {"BC5_signed", 4, 4, 1, 16, 1, 1, "RG--", 26, 'L'},
    {"BC6H_unsigned", 4, 4, 1, 16, 1, 1, "RGB-", 29, 'M'}, {"BC6H_signed", 4, 4, 1, 16, 1, 1, "RGB-", 28, 'N'},
    {"BC7", 4, 4, 1, 16, 1, 1, "RGBA", 0, 'O'},
};
const char* const kASTC[] = {"4x4",   "5x4",   "5x5",   "6x5",   "6x6",   "8x5",   "8x6",   "8x8",
                             "10x5",  "10x6",  "10x8",  "10x10", "12x10", "12x12", "3x3x3", "4x3x3",
                             "4x4x3", "4x4x4", "5x4x4", "5x5x4", "5x5x5", "6x5x5", "6x6x5", "6x6x6"};

std::vector<Row> AllRows() {
  std::vector<Row> rows(std::begin(kRows), std::end(kRows));
  for (const char* dims : kASTC) {
    Row r{std::string("ASTC_RGBA_") + dims, 0, 0, 1, 16, 1, 1, "RGBA", 0, 0};
    std::sscanf(dims, "%ux%ux%u", &r.w, &r.h, &r.d);
    r.filler = r.d == 1 ? 'P' : 0;
    rows.push_back(r);
  }
  return rows;
}

// Filler blocks by letter, 16 bytes each; 8-byte formats use the first half.
const char* const kFillers[] = {
    "FFFFFFFF00000000", "FFFFFFFFFFFFFFFFFFFFFFFF00000000", "FFFF000000000000FFFFFFFF00000000",  // A B C
    "FFFFFFFFFEFFFFFF", "AAAAAAAAFEFFFFFF", "F8F8F80200000000",                                  // D E F
    "FF00000000000000F8F8F80200000000", "F8F8F80000000000",                                      // G H
    "2EF0FFFFFFFFFFFF2EF0FFFFFFFFFFFF", "AEF0FFFFFFFFFFFFAEF0FFFFFFFFFFFF",                      // I J
    "FF00000000000000FF00000000000000", "7F810000000000007F81000000000000",                      // K L
    "E0BDF7DE030000000000000000000000", "E2BDF7DE030000000000000000000000",                      // M N
    "E1FFFFFFFFFFFFFFFFFF070000000000", "FCFDFFFFFFFFFFFFFFFFFFFFFFFFFFFF",                      // O P
};

std::string Hex(const char* block, ull size) {
  std::string out;
  char byte[3];
  for (ull i = 0; block != nullptr && i < size; ++i) {
    std::snprintf(byte, sizeof byte, "%02X", static_cast<unsigned char>(block[i]));
    out += byte;
  }
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

// "bytes min-size channels signed-partner unsigned-partner filler-size filler-bytes" of a format.
std::string Facts(CompressFormat f) {
  ull w2 = 99, h2 = 99, w = 99, h = 99, d = 99, size = 99;
  const char* block = CompressFormatDummyBlock(f, &size);
  CompressFormatMinimumSize(f, &w2, &h2);
  CompressFormatMinimumSize(f, &w, &h, &d);
  std::ostringstream o;
  o << CompressFormatBytesPerBlock(f) << ' ' << w2 << 'x' << h2 << '/' << w << 'x' << h << 'x' << d << " R"
    << (CompressHasGreen(f) ? 'G' : '-') << (CompressHasBlue(f) ? 'B' : '-') << (CompressHasAlpha(f) ? 'A' : '-')
    << ' ' << static_cast<unsigned>(GetSignedCompressFormat(f)) << ' '
    << static_cast<unsigned>(GetUnsignedCompressFormat(f)) << ' ' << size << ' ' << Hex(block, size)
    << (CompressFormatDummyBlock(f, nullptr) == block ? "" : " (differs without size)");
  return o.str();
}

TEST(CompressedFormat, EveryTableRow) {
  const std::vector<Row> rows = AllRows();
  ASSERT_EQ(rows.size(), 54u);
  for (unsigned value = 1; value <= 54; ++value) {
    const Row& r = rows[value - 1];
    SCOPED_TRACE(r.name);
    const CompressFormat f = CF(value);
    const bool astc = value >= 31, astc3d = r.d > 1, is_signed = r.partner != 0 && r.partner < value;
    const unsigned w2 = astc3d ? 1 : r.w, h2 = astc3d ? 1 : r.h;  // 2-D footprint
    std::ostringstream dims, facts;
    dims << w2 << 'x' << h2 << ' ' << r.w << 'x' << r.h << 'x' << r.d << ' ' << (astc && !astc3d ? r.w : 0) << 'x'
         << (astc && !astc3d ? r.h : 0) << ' ' << (astc ? r.w : 0) << 'x' << (astc ? r.h : 0) << 'x' << r.d;
    facts << r.bytes << ' ' << r.min_w << 'x' << r.min_h << '/' << r.min_w << 'x' << r.min_h << "x1 " << r.rgba
          << ' ' << (is_signed ? 0 : r.partner) << ' ' << (is_signed ? r.partner : value) << ' ' << r.bytes << ' '
          << (r.filler ? std::string(kFillers[r.filler - 'A']).substr(0, 2 * r.bytes) : "");
    EXPECT_EQ(Dims(f), dims.str());
    EXPECT_EQ(Facts(f), facts.str());

    // Descriptor forms ignore the sRGB and unnormalized flags; names round-trip.
    for (ull flags : {0ull, 2ull, 4ull, 6ull}) {
      const PixelFormatDescriptor desc = D((value << 8) | flags | 1);
      EXPECT_EQ(GetCompressFormat(desc), f);
      EXPECT_EQ(Dims(desc), dims.str());
      EXPECT_EQ(CompressFormatBytesPerBlock(desc), r.bytes);
      EXPECT_EQ(std::make_tuple(IsASTC(desc), IsPVRTCv1(desc), IsSignedCompressFormat(desc)),
                std::make_tuple(astc, value >= 7 && value <= 10, is_signed));
      std::string has;
      for (PixelComponent k : {PixelComponent::R, PixelComponent::G, PixelComponent::B, PixelComponent::A})
        has += HasComponent(desc, k) ? "RGBA"[has.size()] : '-';
      EXPECT_EQ(has, r.rgba);
      EXPECT_EQ(std::make_tuple(HasAlpha(desc), HasAlphaOrDummy(desc), HasFloatComponent(desc)),
                std::make_tuple(r.rgba[3] == 'A', r.rgba[3] == 'A', (flags & 4) != 0));
      const std::string name = std::string(flags & 2 ? "s_" : "") + (flags & 4 ? "u_" : "") + r.name;
      EXPECT_EQ(ToString(desc), name);
      PixelFormatDescriptor back{};
      EXPECT_TRUE(FromString(name, &back));
      EXPECT_EQ(static_cast<ull>(back), static_cast<ull>(desc));
    }
  }
}

TEST(CompressedFormat, OutsideTheTable) {
  // Formats 55 and above take the 3-D ASTC branch of the three-output footprint.
  const std::tuple<unsigned, const char*, const char*> formats[] = {
      {0, "1x1 1x1x1 0x0 0x0x1", "0 1x1/1x1x1 R--- 0 0 0 "},
      {55, "1x1 0x0x1 0x0 0x0x1", "0 1x1/1x1x1 RGB- 0 55 0 "},
      {255, "1x1 0x0x1 0x0 0x0x1", "0 1x1/1x1x1 RGB- 0 255 0 "},
  };
  for (const auto& [value, dims, facts] : formats) {
    EXPECT_EQ(Dims(CF(value)), dims) << value;
    EXPECT_EQ(Facts(CF(value)), facts) << value;
  }
  // Uncompressed descriptors whose bits 8-15 look like format numbers (S8, ChromR8,
  // an invalid kind 47) give format 0; bits 16 and up are not part of the number.
  const std::pair<ull, unsigned> descs[] = {{0x20700, 0}, {0x21200, 0}, {0x22F00, 0}, {0x1, 0},
                                            {0x3701, 55}, {0x3801, 0},  {0xFF01, 0},  {0xFF0601, 6}};
  for (const auto& [value, format] : descs) {
    SCOPED_TRACE(::testing::Message() << std::hex << value);
    const PixelFormatDescriptor desc = D(value);
    EXPECT_EQ(GetCompressFormat(desc), CF(format));
    EXPECT_EQ(Dims(desc), Dims(CF(format)));
    EXPECT_EQ(CompressFormatBytesPerBlock(desc), format == 6 ? 16u : 0u);
    EXPECT_FALSE(IsASTC(desc) || IsPVRTCv1(desc) || IsSignedCompressFormat(desc));
  }
}

}  // namespace
}  // namespace lumo::image
