#include <gtest/gtest.h>

#include <iterator>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "lumo/image/format_tables.h"
#include "lumo/image/formats.h"
#include "support/bytes.h"
#include "support/descriptors.h"

namespace lumo::image {
namespace {

using ull = unsigned long long;
using ToFn = unsigned int (*)(const PixelFormatDescriptor&);
using FromFn = PixelFormatDescriptor (*)(unsigned int);

using testing::FourCC;
using testing::Named;
using testing::V;

// GL enums used below.
constexpr unsigned kRed = 0x1903, kRgb = 0x1907, kRgba = 0x1908, kBgra = 0x80E1, kLuminance = 0x1909;
constexpr unsigned kByte = 0x1400, kUByte = 0x1401, kShort = 0x1402, kUShort = 0x1403, kFloat = 0x1406;
constexpr unsigned kHalf = 5131, kHalfOES = 36193;

struct Api {
  const char* name;
  ToFn to;
  FromFn from;
};
const Api kDX9{"DX9", ToDX9Format, FromDX9Format}, kDXGI{"DXGI", ToDXGIFormat, FromDXGIFormat},
    kGLC{"GLC", ToGLCompressedFormat, FromGLCompressedFormat}, kMetal{"Metal", ToMETALFormat, FromMETALFormat},
    kLumo{"Lumo", ToLumoFormat, FromLumoFormat}, kVulkan{"Vulkan", ToVulkanFormat, FromVulkanFormat};

// Every listed code reads as a format that writes back as the same code, apart
// from the rows whose format an earlier row already claims. This also proves
// that every descriptor name in the tables parses.
TEST(FormatTables, EveryRowIsReachable) {
  using Ranges = std::vector<std::pair<unsigned, unsigned>>;
  const std::map<unsigned, unsigned> shadowed_dx9{{82, 71}, {70, 80}, {83, 75}}, shadowed_dxgi{{21, 20}}, none;
  const struct {
    Api api;
    Ranges codes;
    size_t rows;
    const std::map<unsigned, unsigned>& shadowed;
  } tables[] = {
      {kDX9, {{20, 36}, {50, 52}, {70, 71}, {73, 73}, {75, 75}, {77, 77}, {79, 83}, {111, 116}, {118, 118},
              {FourCC("DXT1"), FourCC("DXT1")}, {FourCC("DXT2"), FourCC("DXT2")}, {FourCC("DXT3"), FourCC("DXT3")},
              {FourCC("DXT4"), FourCC("DXT4")}, {FourCC("DXT5"), FourCC("DXT5")}, {FourCC("ATI1"), FourCC("ATI1")},
              {FourCC("ATI2"), FourCC("ATI2")}, {FourCC("INTZ"), FourCC("INTZ")}}, 45, shadowed_dx9},
      {kDXGI, {{2, 4}, {6, 8}, {10, 14}, {16, 18}, {20, 22}, {24, 26}, {28, 32}, {34, 38}, {40, 43}, {45, 47},
               {49, 52}, {54, 59}, {61, 67}, {71, 72}, {74, 75}, {77, 78}, {80, 81}, {83, 88}, {91, 91}, {93, 93},
               {95, 96}, {98, 99}, {113, 115}, {134, 135}, {138, 139}, {142, 143}, {146, 147}, {150, 151},
               {154, 155}, {158, 159}, {162, 163}, {166, 167}, {170, 171}, {174, 175}, {178, 179}, {182, 183},
               {186, 187}}, 105, shadowed_dxgi},
      {kGLC, {{33776, 33779}, {34798, 34798}, {35412, 35415}, {35840, 35843}, {35916, 35919}, {35986, 35987},
              {36196, 36196}, {36283, 36286}, {36492, 36495}, {37175, 37176}, {37488, 37497}, {37808, 37821},
              {37824, 37833}, {37840, 37853}, {37856, 37865}}, 88, none},
      {kMetal, {{1, 1}, {10, 14}, {20, 20}, {22, 25}, {30, 34}, {40, 43}, {53, 55}, {60, 60}, {62, 65}, {70, 74},
                {80, 81}, {90, 93}, {103, 105}, {110, 110}, {112, 115}, {123, 125}, {160, 167}, {170, 170},
                {172, 172}, {174, 174}, {176, 176}, {178, 183}, {186, 190}, {192, 200}, {204, 208}, {210, 218},
                {250, 250}, {252, 253}, {255, 255}, {260, 260}}, 101, none},
      {kLumo, {{1, 62}}, 62, none},
      {kVulkan, {{1, 10}, {13, 17}, {20, 24}, {27, 31}, {34, 38}, {41, 45}, {48, 50}, {58, 59}, {62, 65},
                 {68, 71}, {74, 78}, {81, 85}, {88, 92}, {95, 109}, {122, 127}, {129, 184},
                 {1000340000, 1000340001}}, 142, none},
  };
  for (const auto& t : tables) {
    size_t rows = 0;
    for (const auto& [lo, hi] : t.codes) {
      for (unsigned code = lo; code <= hi; ++code, ++rows) {
        const PixelFormatDescriptor d = t.api.from(code);
        if (V(d) == 0) {
          ADD_FAILURE() << t.api.name << " " << code << " reads as no format";
          continue;
        }
        const auto s = t.shadowed.find(code);
        EXPECT_EQ(t.api.to(d), s == t.shadowed.end() ? code : s->second) << t.api.name << " " << code;
      }
    }
    EXPECT_EQ(rows, t.rows) << t.api.name;
  }
}

TEST(FormatTables, SampleAndOneWayRows) {
  enum Way { kBoth, kRead, kWrite };
  struct Row {
    Api api;
    unsigned code;
    const char* name;
    Way way = kBoth;
  };
  const Row rows[] = {
      {kDX9, 20, "R8G8B8"}, {kDX9, 36, "A16B16G16R16"}, {kDX9, 71, "D32f"}, {kDX9, 80, "D16"},
      {kDX9, 116, "A32fB32fG32fR32f"}, {kDX9, FourCC("DXT1"), "DXT1"}, {kDX9, FourCC("ATI2"), "BC5_unsigned"},
      {kDX9, FourCC("INTZ"), "IntZ32"}, {kDXGI, 2, "A32fB32fG32fR32f"}, {kDXGI, 28, "A8B8G8R8"},
      {kDXGI, 67, "E5fB9fG9fR9f"}, {kDXGI, 71, "DXT1"}, {kDXGI, 85, "R5G6B5"}, {kDXGI, 114, "P8A8"},
      {kDXGI, 187, "s_ASTC_RGBA_12x12"}, {kGLC, 36196, "ETC1"}, {kGLC, 33777, "DXT1_A1"},
      {kGLC, 36283, "BC4_unsigned"}, {kGLC, 35843, "PVRTC_2bpp_RGBA"}, {kGLC, 37865, "s_ASTC_RGBA_6x6x6"},
      {kMetal, 1, "A8"}, {kMetal, 71, "s_A8B8G8R8"}, {kMetal, 81, "s_A8R8G8B8"}, {kMetal, 180, "ETC2_RGB8"},
      {kMetal, 204, "ASTC_RGBA_4x4"}, {kMetal, 260, "D32fS8"}, {kLumo, 1, "R8G8B8"}, {kLumo, 26, "A4"},
      {kLumo, 37, "D32fS8"}, {kLumo, 62, "BC7"}, {kVulkan, 1, "R4G4"}, {kVulkan, 37, "A8B8G8R8"},
      {kVulkan, 59, "A2sR10sG10sB10s"}, {kVulkan, 147, "ETC2_RGB8"}, {kVulkan, 184, "s_ASTC_RGBA_12x12"},
      {kVulkan, 1000340001, "A4B4G4R4"},
      // Read-only rows whose format an earlier row owns (which code it writes as is checked above).
      {kDX9, 82, "D32f", kRead}, {kDX9, 83, "D24S8", kRead}, {kDXGI, 21, "D32fS8", kRead},
      // DXGI retries with the next code (typeless -> first typed variant), once.
      {kDXGI, 27, "A8B8G8R8", kRead}, {kDXGI, 90, "s_A8R8G8B8", kRead}, {kDXGI, 70, "DXT1", kRead},
      {kDXGI, 1, "A32fB32fG32fR32f", kRead}, {kDXGI, 0, "", kRead}, {kDXGI, 100, "", kRead},
      {kDXGI, 0xFFFFFFFFu, "", kRead},
      // AMD codes only read.
      {kGLC, 34809, "BC4_unsigned", kRead}, {kGLC, 34810, "BC5_unsigned", kRead}, {kGLC, 34811, "", kRead},
      // Vulkan 51..57 read as 37..43 (below); the edges stay unlisted.
      {kVulkan, 57, "s_A8B8G8R8", kRead}, {kVulkan, 50, "s_A8R8G8B8", kRead}, {kVulkan, 58, "A2R10G10B10", kRead},
      {kVulkan, 11, "", kRead},
      // DXT1_A1 writes as plain BC1 in DX9 and DXGI; ETC1 as ETC2 RGB8 on Metal and Vulkan, and only there.
      {kDX9, FourCC("DXT1"), "DXT1_A1", kWrite}, {kDX9, 0, "s_DXT1_A1", kWrite}, {kDXGI, 71, "DXT1_A1", kWrite},
      {kDXGI, 72, "s_DXT1_A1", kWrite}, {kMetal, 180, "ETC1", kWrite}, {kVulkan, 147, "ETC1", kWrite},
      {kMetal, 0, "s_ETC1", kWrite}, {kDXGI, 0, "ETC1", kWrite},
  };
  for (const Row& r : rows) {
    if (r.way != kWrite) {
      EXPECT_EQ(V(r.api.from(r.code)), V(Named(r.name))) << r.api.name << " reads " << r.code;
    }
    if (r.way != kRead) {
      EXPECT_EQ(r.api.to(Named(r.name)), r.code) << r.api.name << " writes " << r.name;
    }
  }
  for (unsigned code = 51; code <= 57; ++code) EXPECT_EQ(V(FromVulkanFormat(code)), V(FromVulkanFormat(code - 14)));
  // Full 64-bit compare: a reserved bit makes a miss; 0 is no format anywhere.
  const PixelFormatDescriptor reserved{V(Named("A8R8G8B8")) | 0x8};
  for (const Api& api : {kDX9, kDXGI, kGLC, kMetal, kLumo, kVulkan}) {
    EXPECT_EQ(api.to(reserved), 0u) << api.name;
    EXPECT_EQ(api.to(PixelFormatDescriptor{}), 0u) << api.name;
    EXPECT_EQ(V(api.from(0)), 0u) << api.name;
  }
}

TEST(FormatTables, ToGLFormat) {
  const char* const names[] = {
      "R8", "R8s", "R16", "R16s", "G8R8", "G8sR8s", "G16R16", "G16sR16s", "R3G3B2", "R4G4B4X4", "R5G6B5", "B5G6R5",
      "B8G8R8", "R8G8B8", "B8sG8sR8s", "R8sG8sB8s", "B16G16R16", "R16G16B16", "B16sG16sR16s", "R16sG16sB16s",
      "R4G4B4A4", "A4R4G4B4", "R5G5B5A1", "A1R5G5B5", "A8B8G8R8", "A8R8G8B8", "A8sB8sG8sR8s", "A8sR8sG8sB8s",
      "R10G10B10A2", "A2R10G10B10", "u_R10G10B10A2", "u_A2R10G10B10", "A16B16G16R16", "A16R16G16B16",
      "A16sB16sG16sR16s", "A16sR16sG16sB16s", "s_B8G8R8", "s_R8G8B8", "s_A8B8G8R8", "s_A8R8G8B8", "R16f",
      "G16fR16f", "B16fG16fR16f", "A16fB16fG16fR16f", "R32f", "G32fR32f", "B32fG32fR32f", "A32fB32fG32fR32f",
      "B10fG11fR11f", "u_R8s", "u_R8", "u_R16s", "u_R16", "u_R32s", "u_R32", "u_G8R8", "u_G8sR8s", "u_G16R16",
      "u_G16sR16s", "u_G32R32", "u_G32sR32s", "u_B8G8R8", "u_B8sG8sR8s", "u_B16G16R16", "u_B16sG16sR16s",
      "u_B32G32R32", "u_B32sG32sR32s", "u_R8G8B8", "u_R8sG8sB8s", "u_R16G16B16", "u_R16sG16sB16s", "u_R32G32B32",
      "u_R32sG32sB32s", "u_A8B8G8R8", "u_A8sB8sG8sR8s", "u_A16B16G16R16", "u_A16sB16sG16sR16s", "u_A32B32G32R32",
      "u_A32sB32sG32sR32s", "u_A8R8G8B8", "u_A8sR8sG8sB8s", "u_A16R16G16B16", "u_A16sR16sG16sB16s",
      "u_A32R32G32B32", "u_A32sR32sG32sB32s", "D16", "D24X8", "D24S8", "X24S8", "D32f", "D32fS8", "X32S8", "S8",
      "S16", "L8", "A8", "A8L8"};
  EXPECT_EQ(std::size(names), 97u);
  for (const char* name : names) {
    unsigned f = 0, t = 0;
    EXPECT_TRUE(ToGLFormat(Named(name), f, t, nullptr)) << name;
  }
  // name, format, type, internal format
  const std::tuple<const char*, unsigned, unsigned, unsigned> rows[] = {
      {"R8", kRed, kUByte, 0x8229},          {"s_R8", kRed, kUByte, 0x8229},  // borrows the linear row
      {"s_A8B8G8R8", kRgba, kUByte, 0x8C43}, {"A8R8G8B8", kBgra, kUByte, 0x8058},
      {"R16f", kRed, kHalf, 0x822D},         {"D32fS8", 0x84F9, 0x8DAD, 0x8CAD},  // the first of its two rows
      {"L8", kLuminance, kUByte, 0x8040},    {"X32S8", 0x1901, 0x8DAD, 0x8CAC},
  };
  for (const auto& [name, format, type, internal] : rows) {
    unsigned f = 0, t = 0, i = 0;
    ASSERT_TRUE(ToGLFormat(Named(name), f, t, &i)) << name;
    EXPECT_EQ(std::make_tuple(f, t, i), std::make_tuple(format, type, internal)) << name;
  }
  for (const char* miss : {"s_DXT1", "DXT1", "A8L8s", "s_X8B8G8R8"}) {
    unsigned f = 7, t = 8, i = 9;
    PixelFormatDescriptor d{};
    FromString(miss, &d);
    EXPECT_FALSE(ToGLFormat(d, f, t, &i)) << miss;
    EXPECT_EQ(f + t + i, 24u) << miss;  // outputs untouched
  }
}

TEST(FormatTables, SetGLHalfOESSwapsOnlyHalfTypes) {
  const auto type_of = [](const char* name) {
    unsigned f = 0, t = 0;
    EXPECT_TRUE(ToGLFormat(Named(name), f, t, nullptr)) << name;
    return t;
  };
  SetGLHalfOES(true);
  for (const char* name : {"R16f", "G16fR16f", "B16fG16fR16f", "A16fB16fG16fR16f"}) {
    EXPECT_EQ(type_of(name), kHalfOES) << name;
  }
  EXPECT_EQ(type_of("R32f"), kFloat);
  EXPECT_EQ(V(FromGLFormat(kRed, kHalf)), V(Named("R16f")));  // both half types read in either mode
  SetGLHalfOES(true);  // idempotent
  SetGLHalfOES(false);
  EXPECT_EQ(type_of("A16fB16fG16fR16f"), kHalf);
}

TEST(FormatTables, FromGLFormatDecisionList) {
  const std::tuple<unsigned, unsigned, const char*> cases[] = {
      {0x1901, kUByte, "S8"}, {0x1901, 0x84FA, "D24S8"}, {0x1902, 0x1405, "D32f"}, {0x1902, kFloat, "D32f"},
      {0x1902, 0x8DAD, "D32fS8"}, {kRed, kByte, "R8s"}, {kRed, kShort, ""}, {kRed, kHalfOES, "R16f"},
      {kRgb, kByte, "B8G8R8"}, {kRgb, 0x1404, "B32G32R32"}, {kRgb, 0x8362, "B2G3R3"},
      {kRgb, 35898, "R11fG11fB10f"}, {kRgb, 0x8C3B, "B10fG11fR11f"}, {kRgba, kByte, "A8B8G8R8"},
      {kRgba, 0x8367, "A8B8G8R8"}, {kRgba, 0x8035, "R8G8B8A8"}, {kRgba, 0x8366, "A1B5G5R5"},
      {0x80E0, kShort, "R16G16B16"}, {0x80E0, 0x8363, "B5G6R5"}, {0x80E0, 0x8364, "R5G6B5"},
      {kBgra, kHalf, "A16fR16fG16fB16f"}, {kBgra, 0x8036, "B10G10R10A2"}, {kBgra, 0x1404, ""},
      {0x8227, kUShort, "G16R16"}, {0x8227, kByte, ""}, {0x8228, kByte, "u_G8R8"}, {0x84F9, 0x84FA, "D24S8"},
      {0x8D94, 0x1405, "u_R32"}, {0x8D99, kShort, "u_A16B16G16R16"}, {kLuminance, kUByte, ""},
      {0x1906, kUByte, ""}, {0x190A, kUByte, ""}, {0x8D98, kUByte, ""}, {0x8D9A, kUByte, ""},
      {0x8D9B, kUByte, ""}, {0, 0, ""}, {kRgba, 0, ""},
  };
  for (const auto& [format, type, name] : cases) {
    EXPECT_EQ(V(FromGLFormat(format, type)), V(Named(name))) << std::hex << format << " " << type;
  }
}

}  // namespace
}  // namespace lumo::image
