#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "lumo/image/formats.h"
#include "support/descriptors.h"

namespace lumo::image {
namespace {

using ull = unsigned long long;

using testing::D;
using testing::V;

const char* const kKindNames[] = {"",  "X", "R", "G", "B", "A", "D", "S", "Sat", "I", "H",
                                  "C", "M", "Y", "K", "P", "L", "ChromB", "ChromR", "E", "IntZ"};

TEST(Names, TextsBothWays) {
  // Worked examples name their descriptor and parse back to it.
  const std::pair<ull, const char*> worked[] = {
      {0x20200, "R8"}, {0x120200, "R8s"}, {0x20204, "u_R8"}, {0x120204, "u_R8s"}, {0x80820300, "G8R8"},
      {0x810203080820500, "A8R8G8B8"}, {0x808203081020500, "A8B8G8R8"}, {0x808203081020502, "s_A8B8G8R8"},
      {0x810203080820100, "X8R8G8B8"}, {0x144060c14200, "R5G6B5"}, {0xa082830a1008500, "A2B10G10R10"},
      {0x900a403901240500, "A16fB16fG16fR16f"}, {0xa00a803a01280500, "A32fB32fG32fR32f"},
      {0x6009803601180504, "u_A32sB32sG32sR32s"}, {0x22c28b0e28400, "B10fG11fR11f"},
      {0x890a243891215300, "E5fB9fG9fR9f"}, {0x84020500, "A8L8"}, {0x81c60600, "D24S8"}, {0x81e80600, "D32fS8"},
      {0x81400, "IntZ32"}, {0x101, "DXT1"}, {0x603, "s_DXT5"}, {0x1f03, "s_ASTC_RGBA_4x4"},
      {0x814204080c20200, "R8G8B8A8"}, {0x81421000, "L8A8"}, {0x320200, "R8sf"}, {0x84821100, "ChromB8ChromR8"},
      {0x20206, "s_u_R8"}, {0x607, "s_u_DXT5"}, {0x105, "u_DXT1"}, {0xfc200, "R63"},
  };
  // Accepted texts whose descriptor is named differently; a rejected text leaves the output alone.
  const ull kUntouched = 0xDEAD;
  std::vector<std::pair<std::string, ull>> parses = {
      {"R08", 0x20200}, {"R0000000008", 0x20200}, {std::string("R8\0G8", 5), 0x20200},  // text ends at a NUL
      {std::string("DXT1\0R8", 7), 0x101}, {"", 0x0}, {"s_", 0x3}, {"u_", 0x5}, {"s_u_", 0x7},  // s_: format 0
      {"R0", 0x0},  // slot with no bits: encoding stops there
  };
  const char* const rejected[] = {
      "r8",     "Q8",     "R",          "R8G8B8A8X8", "R8 ",   " R8",    "R8fs",   "R8ss",  "R8s8",
      "u_s_R8", "s_s_R8", "DXT1R8",     "dxt1",       "s_dxt1", "DXT5 ", "ASTC_RGBA_4x4x", "R64",
      "R100",   "Rs8",    "Chrom8",     "ChromB",     "R8G",   "R8_",    "8",      "_",     "s",
      "R-8",    "INVALID_PIXEL_FORMAT",
  };
  for (const auto& [desc, text] : worked) {
    EXPECT_EQ(ToString(D(desc)), text);
    parses.emplace_back(text, desc);
  }
  for (const char* text : rejected) parses.emplace_back(text, kUntouched);
  for (const auto& [text, want] : parses) {
    PixelFormatDescriptor out = D(kUntouched);
    EXPECT_EQ(FromString(text, &out), want != kUntouched) << text;
    EXPECT_EQ(V(out), want) << text;
  }
}

TEST(Names, MetaParsingStartsFromZero) {
  PixelFormatMeta m;
  std::memset(static_cast<void*>(&m), 0xCD, sizeof m);
  ASSERT_TRUE(FromString("R8", &m));
  EXPECT_EQ(ToString(m), "R8");  // flags, kinds and sign/float marks were cleared
  EXPECT_EQ(V(MakeDescriptor(m)), 0x20200u);  // and the bit counts
  ASSERT_TRUE(FromString("u_BC7", &m));
  EXPECT_TRUE(m.compressed && m.unnormalized && !m.srgb);
  EXPECT_EQ(m.compress_format, CompressFormat::BC7);
  // A failed parse keeps what it had read.
  EXPECT_FALSE(FromString("s_R8Q8", &m));
  EXPECT_EQ(ToString(m), "s_R8");
}

TEST(Names, UndecodableAndOddMetas) {
  // Nothing, compressed 0, flags only, sRGB format 0, formats 55/56, invalid slot 0, no bits.
  for (ull d : {0x0ull, 0x1ull, 0x2ull, 0x3ull, 0x3701ull, 0x3801ull, 0xFF01ull, 0x22F00ull, 0x200ull})
    EXPECT_EQ(ToString(D(d)), "INVALID_PIXEL_FORMAT") << std::hex << d;
  // Slot 1 empty: whatever slots 2 and 3 hold is not named. Reserved bits are not named either.
  EXPECT_EQ(ToString(D(0x81a205080020200)), "R8");
  EXPECT_EQ(ToString(D(0x202F8)), "R8");

  // Metas: the text form does not range-check bit counts, but unknown kinds and formats throw.
  const auto name = [](bool compressed, bool srgb, bool unorm, unsigned format, ComponentMeta slot0) {
    PixelFormatMeta m{compressed, srgb, unorm, {}};
    m.components[0] = slot0;
    if (compressed) m.compress_format = static_cast<CompressFormat>(format);
    return ToString(m);
  };
  const ComponentMeta none{}, r100{PixelComponent::R, 100, true, false};
  EXPECT_EQ(name(false, false, false, 0, none), "INVALID_PIXEL_FORMAT");
  EXPECT_EQ(name(false, false, true, 0, none), "u_");
  EXPECT_EQ(name(false, false, false, 0, r100), "R100s");
  EXPECT_THROW(name(false, false, false, 0, {static_cast<PixelComponent>(21), 8, false, false}), std::out_of_range);
  EXPECT_EQ(name(true, true, false, 0, none), "s_");
  EXPECT_EQ(name(true, true, false, 54, none), "s_ASTC_RGBA_6x6x6");
  EXPECT_THROW(name(true, false, false, 55, none), std::out_of_range);
}

TEST(Names, RandomUncompressedDescriptorsRoundTrip) {
  std::mt19937_64 rng(20240611);
  auto pick = [&](ull lo, ull hi) { return std::uniform_int_distribution<ull>(lo, hi)(rng); };
  for (int iter = 0; iter < 5000; ++iter) {
    const ull flags = pick(0, 3) << 1;
    const ull used = pick(1, 4);
    ull clean = flags;
    std::string want = std::string(flags & 2 ? "s_" : "") + (flags & 4 ? "u_" : "");
    for (ull i = 0; i < used; ++i) {
      const ull kind = pick(1, 20), bits = pick(1, 63), s = pick(0, 1), f = pick(0, 1);
      clean |= (kind | bits << 6 | s << 12 | f << 13) << (8 + 14 * i);
      want += kKindNames[kind] + std::to_string(bits) + (s ? "s" : "") + (f ? "f" : "");
    }
    ASSERT_EQ(ToString(D(clean)), want) << std::hex << clean;
    PixelFormatDescriptor back{};
    ASSERT_TRUE(FromString(want, &back)) << want;
    ASSERT_EQ(V(back), clean) << want;
  }
}

}  // namespace
}  // namespace lumo::image
