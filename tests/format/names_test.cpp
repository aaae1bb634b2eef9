#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <stdexcept>
#include <string>

#include "lumo/image/formats.h"

namespace lumo::image {
namespace {

using ull = unsigned long long;

PixelFormatDescriptor D(ull v) { return static_cast<PixelFormatDescriptor>(v); }
ull V(PixelFormatDescriptor d) { return static_cast<ull>(d); }

const char* const kKindNames[] = {"",  "X", "R", "G", "B", "A", "D", "S", "Sat", "I", "H",
                                  "C", "M", "Y", "K", "P", "L", "ChromB", "ChromR", "E", "IntZ"};

TEST(Names, WorkedExamplesBothWays) {
  const std::pair<ull, const char*> cases[] = {
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
  for (const auto& [desc, text] : cases) {
    EXPECT_EQ(ToString(D(desc)), text);
    PixelFormatDescriptor out = D(0xDEAD);
    EXPECT_TRUE(FromString(text, &out)) << text;
    EXPECT_EQ(V(out), desc) << text;
  }
}

TEST(Names, ParsesThatDoNotRoundTrip) {
  const std::pair<std::string, ull> cases[] = {
      {"R08", 0x20200},
      {"R0000000008", 0x20200},
      {std::string("R8\0G8", 5), 0x20200},  // the text ends at the first NUL
      {std::string("DXT1\0R8", 7), 0x101},
      {"", 0x0},
      {"s_", 0x3},  // compressed format 0
      {"u_", 0x5},
      {"s_u_", 0x7},
      {"R0", 0x0},  // slot with no bits: encoding stops there
  };
  for (const auto& [text, want] : cases) {
    PixelFormatDescriptor out = D(0xDEAD);
    EXPECT_TRUE(FromString(text, &out)) << text;
    EXPECT_EQ(V(out), want) << text;
  }
  EXPECT_EQ(ToString(D(0x3)), "INVALID_PIXEL_FORMAT");
}

TEST(Names, RejectedTextsLeaveTheDescriptorAlone) {
  const char* const bad[] = {
      "r8",     "Q8",     "R",          "R8G8B8A8X8", "R8 ",   " R8",    "R8fs",   "R8ss",  "R8s8",
      "u_s_R8", "s_s_R8", "DXT1R8",     "dxt1",       "s_dxt1", "DXT5 ", "ASTC_RGBA_4x4x", "R64",
      "R100",   "Rs8",    "Chrom8",     "ChromB",     "R8G",   "R8_",    "8",      "_",     "s",
      "R-8",    "INVALID_PIXEL_FORMAT",
  };
  for (const char* text : bad) {
    PixelFormatDescriptor out = D(0xDEAD);
    EXPECT_FALSE(FromString(text, &out)) << text;
    EXPECT_EQ(V(out), 0xDEADu) << text;
  }
}

TEST(Names, MetaParsingStartsFromZero) {
  PixelFormatMeta m;
  std::memset(static_cast<void*>(&m), 0xCD, sizeof m);
  ASSERT_TRUE(FromString("R8", &m));
  EXPECT_FALSE(m.compressed || m.srgb || m.unnormalized);
  EXPECT_EQ(m.components[0].component, PixelComponent::R);
  EXPECT_EQ(m.components[0].bits, 8u);
  for (int i = 1; i < 4; ++i) {
    EXPECT_EQ(m.components[i].component, PixelComponent::None);
    EXPECT_EQ(m.components[i].bits, 0u);
    EXPECT_FALSE(m.components[i].is_signed || m.components[i].is_float);
  }
  ASSERT_TRUE(FromString("u_BC7", &m));
  EXPECT_TRUE(m.compressed && m.unnormalized && !m.srgb);
  EXPECT_EQ(m.compress_format, CompressFormat::BC7);
  // A failed parse keeps what it had read.
  EXPECT_FALSE(FromString("s_R8Q8", &m));
  EXPECT_TRUE(m.srgb);
  EXPECT_EQ(m.components[0].component, PixelComponent::R);
  EXPECT_EQ(m.components[0].bits, 8u);
}

TEST(Names, UndecodableAndOddMetas) {
  // Nothing, compressed 0, flags only, formats 55/56, invalid slot 0, no bits.
  for (ull d : {0x0ull, 0x1ull, 0x2ull, 0x3701ull, 0x3801ull, 0xFF01ull, 0x22F00ull, 0x200ull})
    EXPECT_EQ(ToString(D(d)), "INVALID_PIXEL_FORMAT") << std::hex << d;
  // Slot 1 empty: whatever slots 2 and 3 hold is not named. Reserved bits are not named either.
  EXPECT_EQ(ToString(D(0x81a205080020200)), "R8");
  EXPECT_EQ(ToString(D(0x202F8)), "R8");

  PixelFormatMeta m{};
  EXPECT_EQ(ToString(m), "INVALID_PIXEL_FORMAT");
  m.unnormalized = true;
  EXPECT_EQ(ToString(m), "u_");
  m = PixelFormatMeta{};
  m.components[0] = {PixelComponent::R, 100, true, false};  // the meta form does not range-check bits
  EXPECT_EQ(ToString(m), "R100s");
  m.components[0].component = static_cast<PixelComponent>(21);
  EXPECT_THROW(ToString(m), std::out_of_range);
  m = PixelFormatMeta{};
  m.compressed = true;
  m.srgb = true;
  EXPECT_EQ(ToString(m), "s_");
  m.compress_format = CompressFormat::ASTC_RGBA_6x6x6;
  EXPECT_EQ(ToString(m), "s_ASTC_RGBA_6x6x6");
  m.compress_format = static_cast<CompressFormat>(55);
  EXPECT_THROW(ToString(m), std::out_of_range);
}

TEST(Names, EveryCompressedFormatRoundTrips) {
  for (ull f = 1; f <= 54; ++f) {
    for (ull flags : {0ull, 2ull, 4ull, 6ull}) {
      const ull desc = (f << 8) | flags | 1;
      const std::string text = ToString(D(desc));
      EXPECT_EQ(text.rfind(std::string(flags & 2 ? "s_" : "") + (flags & 4 ? "u_" : ""), 0), 0u) << text;
      PixelFormatMeta m{};
      ASSERT_TRUE(ParseFormat(D(desc), &m));
      EXPECT_EQ(ToString(m), text);
      PixelFormatDescriptor back{};
      EXPECT_TRUE(FromString(text, &back)) << text;
      EXPECT_EQ(V(back), desc) << text;
    }
  }
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
    // Dirty copy: reserved bits, an invalid slot after the last used one, junk above it.
    ull dirty = clean | (pick(0, 31) << 3);
    if (used < 4) {
      const ull invalid[] = {pick(0, 0x3FFF) & ~0xFC0ull, pick(21, 63) | pick(0, 0xFF) << 6};
      dirty |= invalid[pick(0, 1)] << (8 + 14 * used);
      if (used < 3) dirty |= (rng() & ((1ull << (14 * (3 - used))) - 1)) << (8 + 14 * (used + 1));
    }
    ASSERT_EQ(ToString(D(clean)), want) << std::hex << clean;
    ASSERT_EQ(ToString(D(dirty)), want) << std::hex << dirty;
    PixelFormatDescriptor back{};
    ASSERT_TRUE(FromString(want, &back)) << want;
    ASSERT_EQ(V(back), clean) << want;
  }
}

TEST(Names, EveryKindName) {
  for (unsigned k = 1; k <= 20; ++k) {
    const ull desc = (k | 8 << 6 | 1 << 12) << 8;
    EXPECT_EQ(ToString(D(desc)), std::string(kKindNames[k]) + "8s");
    PixelFormatDescriptor back{};
    EXPECT_TRUE(FromString(std::string(kKindNames[k]) + "8s", &back));
    EXPECT_EQ(V(back), desc);
  }
}

TEST(Names, NamedDescriptorsCarryTheirOwnNames) {
  const std::pair<PixelFormatDescriptor, const char*> named[] = {
      {formats::DXT1, "DXT1"},
      {formats::DXT1_A1, "DXT1_A1"},
      {formats::A1, "A1"},
      {formats::A2, "A2"},
      {formats::A4, "A4"},
      {formats::R8, "R8"},
      {formats::G8, "G8"},
      {formats::A8, "A8"},
      {formats::L8, "L8"},
      {formats::R16, "R16"},
      {formats::G16, "G16"},
      {formats::A16, "A16"},
      {formats::L16, "L16"},
      {formats::R8s, "R8s"},
      {formats::A8s, "A8s"},
      {formats::R16s, "R16s"},
      {formats::A16s, "A16s"},
      {formats::R16f, "R16f"},
      {formats::R32f, "R32f"},
      {formats::G8R8, "G8R8"},
      {formats::R8G8, "R8G8"},
      {formats::A8L8, "A8L8"},
      {formats::G16R16, "G16R16"},
      {formats::R16G16, "R16G16"},
      {formats::A16L16, "A16L16"},
      {formats::G8sR8s, "G8sR8s"},
      {formats::R8sG8s, "R8sG8s"},
      {formats::G16sR16s, "G16sR16s"},
      {formats::R16sG16s, "R16sG16s"},
      {formats::G16fR16f, "G16fR16f"},
      {formats::B5G6R5, "B5G6R5"},
      {formats::R5G6B5, "R5G6B5"},
      {formats::B8G8R8, "B8G8R8"},
      {formats::R8G8B8, "R8G8B8"},
      {formats::B16G16R16, "B16G16R16"},
      {formats::R16G16B16, "R16G16B16"},
      {formats::B16fG16fR16f, "B16fG16fR16f"},
      {formats::R16fG16fB16f, "R16fG16fB16f"},
      {formats::B32fG32fR32f, "B32fG32fR32f"},
      {formats::R32fG32fB32f, "R32fG32fB32f"},
      {formats::A4B4G4R4, "A4B4G4R4"},
      {formats::A4R4G4B4, "A4R4G4B4"},
      {formats::B4G4R4A4, "B4G4R4A4"},
      {formats::R4G4B4A4, "R4G4B4A4"},
      {formats::A1B5G5R5, "A1B5G5R5"},
      {formats::A1R5G5B5, "A1R5G5B5"},
      {formats::X8B8G8R8, "X8B8G8R8"},
      {formats::A8B8G8R8, "A8B8G8R8"},
      {formats::s_A8B8G8R8, "s_A8B8G8R8"},
      {formats::X8R8G8B8, "X8R8G8B8"},
      {formats::s_X8R8G8B8, "s_X8R8G8B8"},
      {formats::A8R8G8B8, "A8R8G8B8"},
      {formats::s_A8R8G8B8, "s_A8R8G8B8"},
      {formats::B8G8R8A8, "B8G8R8A8"},
      {formats::R8G8B8A8, "R8G8B8A8"},
      {formats::s_R8G8B8A8, "s_R8G8B8A8"},
      {formats::A16B16G16R16, "A16B16G16R16"},
      {formats::A16R16G16B16, "A16R16G16B16"},
      {formats::B16G16R16A16, "B16G16R16A16"},
      {formats::R16G16B16A16, "R16G16B16A16"},
      {formats::A8sB8sG8sR8s, "A8sB8sG8sR8s"},
      {formats::A8sR8sG8sB8s, "A8sR8sG8sB8s"},
      {formats::A16sB16sG16sR16s, "A16sB16sG16sR16s"},
      {formats::A16sR16sG16sB16s, "A16sR16sG16sB16s"},
      {formats::A16fB16fG16fR16f, "A16fB16fG16fR16f"},
      {formats::u_A16fB16fG16fR16f, "u_A16fB16fG16fR16f"},
      {formats::A16fR16fG16fB16f, "A16fR16fG16fB16f"},
      {formats::u_A16fR16fG16fB16f, "u_A16fR16fG16fB16f"},
      {formats::B16fG16fR16fA16f, "B16fG16fR16fA16f"},
      {formats::R16fG16fB16fA16f, "R16fG16fB16fA16f"},
      {formats::A32fB32fG32fR32f, "A32fB32fG32fR32f"},
      {formats::u_A32fB32fG32fR32f, "u_A32fB32fG32fR32f"},
      {formats::A32fR32fG32fB32f, "A32fR32fG32fB32f"},
      {formats::u_A32fR32fG32fB32f, "u_A32fR32fG32fB32f"},
  };
  for (const auto& [descriptor, name] : named) EXPECT_EQ(ToString(descriptor), name);
}

}  // namespace
}  // namespace lumo::image
