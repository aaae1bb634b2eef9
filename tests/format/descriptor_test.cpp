#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "lumo/image/formats.h"
#include "support/descriptors.h"

namespace lumo::image {
namespace {

using PC = PixelComponent;
using ull = unsigned long long;

using testing::D;
using testing::V;

ComponentMeta C(PC k, ull bits, bool s = false, bool f = false) { return {k, bits, s, f}; }
// Uncompressed (U) and compressed (Z) metas.
PixelFormatMeta U(std::vector<ComponentMeta> slots, bool srgb = false, bool unorm = false) {
  PixelFormatMeta m{false, srgb, unorm, {}};
  for (size_t i = 0; i < slots.size(); ++i) m.components[i] = slots[i];
  return m;
}
PixelFormatMeta Z(unsigned format, bool srgb = false, bool unorm = false) {
  PixelFormatMeta m{true, srgb, unorm, {}};
  m.compress_format = static_cast<CompressFormat>(format);
  return m;
}
std::string Dump(const PixelFormatMeta& m) {  // reads only the active member of the union
  std::ostringstream o;
  o << m.compressed << m.srgb << m.unnormalized;
  if (m.compressed) o << " fmt" << static_cast<unsigned>(m.compress_format);
  for (size_t i = 0; i < 4 && !m.compressed; ++i)
    o << ' ' << static_cast<unsigned>(m.components[i].component) << '/' << m.components[i].bits
      << (m.components[i].is_signed ? "s" : "") << (m.components[i].is_float ? "f" : "");
  return o.str();
}

// Named descriptors used across the tables below.
constexpr ull kR8 = 0x20200, kA8R8G8B8 = 0x810203080820500, kX8R8G8B8 = 0x810203080820100,
              kR8G8B8 = 0x204080c20200, kR5G6B5 = 0x144060c14200, kR4G4B4 = 0x104040c10200,
              kR5G5B5 = 0x144050c14200, kL4 = 0x11000, kP2 = 0x8f00, kR6 = 0x18200, kX1 = 0x4100,
              kA32f4 = 0xa00a803a01280500, kD24S8 = 0x81c60600, kD32fS8 = 0x81e80600, kIntZ32 = 0x81400,
              kS8 = 0x20700, kP8 = 0x20f00, kR16f = 0x240200,
              // R8, then an empty slot (kind 0, 8 bits), then A8f and D8 that must be ignored.
              kR8Junk = 0x81a205080020200;
constexpr ull kDXT1 = 0x101, kDXT5 = 0x601, kPVRTC2 = 0x701, kPVRTC4 = 0x901, kPVRTCv2 = 0xB01,
              kASTC5x4 = 0x2001, kASTC12x12 = 0x2C01, kASTC333 = 0x2D01, kASTC443 = 0x2F01, kASTC444 = 0x3001,
              kASTC665 = 0x3501, kASTC666 = 0x3601, kFormat55 = 0x3701;

TEST(Descriptor, ParseFormatAndMakeDescriptor) {
  // descriptor, decodes?, decoded meta, MakeDescriptor of that meta
  const PC R = PC::R, G = PC::G, B = PC::B, A = PC::A;
  const std::tuple<ull, bool, PixelFormatMeta, ull> cases[] = {
      {kR8, true, U({C(R, 8)}), kR8},        {kR8 | 0xF8, true, U({C(R, 8)}), kR8},  // reserved bits ignored
      {0x85420200, true, U({C(R, 8)}), kR8},  // slot 1 has kind 21
      {0x203000c20200, true, U({C(R, 8)}), kR8},  // slot 1 has no bits; slot 2 ignored
      {kR8Junk, true, U({C(R, 8)}), kR8},     {0xfff00, false, U({}), 0},  {0x2, false, U({}, true), 0},
      {0x80821500, false, U({}), 0},          {0x321500, false, U({}), 0},  // slot 0 invalid (kind 21), slot 1 valid
      {kA8R8G8B8, true, U({C(A, 8), C(R, 8), C(G, 8), C(B, 8)}), kA8R8G8B8},
      {0x6009803601180504, true, U({C(A, 32, 1), C(B, 32, 1), C(G, 32, 1), C(R, 32, 1)}, false, true),
       0x6009803601180504},
      {0x22c28b0e28400, true, U({C(B, 10, 0, 1), C(G, 11, 0, 1), C(R, 11, 0, 1)}), 0x22c28b0e28400},
      {0x320206, true, U({C(R, 8, 1, 1)}, true, true), 0x320206},
      {0x603, true, Z(6, true), 0x603}, {0x3605, true, Z(54, false, true), 0x3605}, {kFormat55, true, Z(55), kFormat55},
      {0x1, false, Z(0), 0},            {0x3801, false, Z(0), 0},                  {0xFF07, false, Z(0, 1, 1), 0},
      {0x0, false, U({}), 0},           {0xFF01, false, Z(0), 0},                  {0x22F00, false, U({}), 0},
      {0x200, false, U({}), 0},
  };
  for (const auto& [desc, ok, want, encoded] : cases) {
    SCOPED_TRACE(::testing::Message() << std::hex << desc);
    PixelFormatMeta m;
    std::memset(static_cast<void*>(&m), 0xCD, sizeof m);  // every field must be written
    EXPECT_EQ(ParseFormat(D(desc), &m), ok);
    EXPECT_EQ(Dump(m), Dump(want));
    if (ok) {
      EXPECT_EQ(V(MakeDescriptor(m)), encoded);
    }
  }
  // Metas that do not come from a descriptor.
  const PC Max = static_cast<PC>(63);
  const std::pair<PixelFormatMeta, ull> metas[] = {
      {U({C(PC::None, 8), C(R, 8)}), 0x80820000},  // stops at zero bits, not at kind 0
      {U({C(R, 0), C(G, 8)}), 0x0},          {U({}, true, true), 0x6},              {Z(0), 0x1},
      {U({C(Max, 63)}), 0xfff00},            {U({C(Max, 63, true, true)}), 0x3fff00},
      // kinds and bit counts above 63 cannot be encoded
      {U({C(static_cast<PC>(64), 8)}), 0},   {U({C(R, 64)}), 0},   {U({C(R, 8), C(G, 8), C(B, 8), C(A, 100)}, true), 0},
  };
  for (const auto& [meta, want] : metas) EXPECT_EQ(V(MakeDescriptor(meta)), want) << Dump(meta);
}

TEST(Descriptor, ParseComponent) {
  const std::tuple<ull, ull, bool, ComponentMeta> cases[] = {
      {kA8R8G8B8, 0, true, C(PC::A, 8)},       {kA8R8G8B8, 3, true, C(PC::B, 8)},
      {0x6009803601180504, 2, true, C(PC::G, 32, true)}, {0x22c28b0e28400, 0, true, C(PC::B, 10, false, true)},
      {0x80821500, 1, true, C(PC::R, 8)},      {0x80821500, 0, false, {}}, {0x321500, 0, false, {}},
      {kA8R8G8B8, 4, false, {}},               {kA8R8G8B8, 1ull << 40, false, {}}, {0x603, 0, false, {}},
      {kR8, 1, false, {}},
  };
  for (const auto& [desc, slot, ok, want] : cases) {
    SCOPED_TRACE(::testing::Message() << std::hex << desc << " slot " << slot);
    ComponentMeta got{PC::K, 99, true, true};  // must be cleared even on failure
    EXPECT_EQ(ParseComponent(D(desc), slot, &got), ok);
    EXPECT_EQ(Dump(U({got})), Dump(U({want})));
  }
}

TEST(Descriptor, FlagsAndPredicates) {
  // (input, set sRGB?, value) -> SetSRGB, and the same for SetUnormalized; nothing is validated.
  const std::tuple<ull, bool, ull, ull> setters[] = {
      {kR8, true, 0x20202, 0x20204}, {0x20206, true, 0x20206, 0x20206}, {0x607, false, 0x605, 0x603},
      {0x0, true, 0x2, 0x4},         {~0ull, false, ~0ull - 2, ~0ull - 4},
  };
  for (const auto& [in, on, srgb, unorm] : setters) {
    EXPECT_EQ(V(SetSRGB(D(in), on)), srgb) << std::hex << in;
    EXPECT_EQ(V(SetUnormalized(D(in), on)), unorm) << std::hex << in;
  }
  for (ull d : {0x0ull, 0xF8ull, 0x1ull, 0x2ull, 0x4ull, 0x7ull, ~0ull})
    EXPECT_EQ(IsCompressed(D(d)) | IsSRGB(D(d)) << 1 | IsUnormalized(D(d)) << 2, int(d & 7)) << std::hex << d;
  // alpha, alpha-or-dummy, depth, stencil, depth-or-stencil, palette, float
  const std::pair<ull, const char*> predicates[] = {
      {0x0, "-------"},     {0x2, "-------"},      {kA8R8G8B8, "AA-----"}, {kX8R8G8B8, "-A-----"},
      {kD24S8, "--DSO--"},  {kIntZ32, "--D----"},  {kS8, "---SO--"},       {kD32fS8, "--DSO-F"},
      {kP8, "-----P-"},     {kR16f, "------F"},    {kR8Junk, "-------"},   {0x22c28b0e28400, "------F"},
      {0x3801, "-------"},  {0x3805, "------F"},  // compressed: float follows bit 2 alone
      {0x1, "-------"},     {0xFF01, "-------"},   {0x22F00, "-------"},   {0x200, "-------"},  // undecodable
  };
  for (const auto& [d, want] : predicates) {
    const PixelFormatDescriptor x = D(d);
    const bool has[] = {HasAlpha(x),        HasAlphaOrDummy(x), HasDepth(x),         HasStencil(x),
                        HasDepthOrStencil(x), HasPalette(x),    HasFloatComponent(x)};
    std::string got;
    for (size_t i = 0; i < std::size(has); ++i) got += has[i] ? "AADSOPF"[i] : '-';
    EXPECT_EQ(got, want) << std::hex << d;
  }
  const std::tuple<ull, PC, bool> has[] = {
      {kDXT1, PC::D, false},        {kDXT1, PC::X, false},     {kDXT1, PC::None, false}, {0x3801, PC::G, false},
      {kA8R8G8B8, PC::B, true},     {kA8R8G8B8, PC::L, false}, {kA8R8G8B8, PC::None, false}, {0x80820300, PC::B, false},
      {kR8Junk, PC::A, false},      {kIntZ32, PC::D, false},   {kIntZ32, PC::IntZ, true}, {0x22F00, PC::R, false},
  };
  for (const auto& [d, kind, want] : has)
    EXPECT_EQ(HasComponent(D(d), kind), want) << std::hex << d << " kind " << std::dec << int(kind);
}

TEST(Descriptor, MetaCountsWalkTheirOwnWay) {
  // ChannelCount looks for the highest non-empty slot, BitsPerPixel sums all
  // four bit counts, HasFloatComponent stops at the first empty slot.
  const PC R = PC::R, G = PC::G, None = PC::None;
  const std::tuple<PixelFormatMeta, ull, ull, bool> cases[] = {
      {U({C(R, 8), C(None, 0), C(G, 8, false, true)}), 3, 16, false}, {U({C(R, 8), C(G, 8, false, true)}), 2, 16, true},
      {U({{}, {}, {}, C(PC::A, 4)}), 4, 4, false}, {U({}), 0, 0, false}, {Z(28), 0, 8, false},
      {Z(28, 0, 1), 0, 8, true},
  };
  for (const auto& [meta, channels, bits, is_float] : cases) {
    EXPECT_EQ(ChannelCount(meta), channels) << Dump(meta);
    EXPECT_EQ(BitsPerPixel(meta, nullptr), bits) << Dump(meta);
    EXPECT_EQ(HasFloatComponent(meta), is_float) << Dump(meta);
  }
}

// Calls a size function on the descriptor and, if it decodes, on its meta; the two must agree.
template <class F>
auto Both(ull desc, F fn) {
  PixelFormatMeta m{};
  const auto from_desc = fn(D(desc));
  if (ParseFormat(D(desc), &m)) {
    EXPECT_EQ(fn(m), from_desc) << "meta overload, " << std::hex << desc;
  }
  return from_desc;
}

TEST(Descriptor, PixelSizes) {
  // "bits/divisor bytes/divisor channels"; a trailing '!' if passing no divisor changes a result.
  const std::pair<ull, const char*> cases[] = {
      {kR8, "8/1 1/1 1"},         {kA8R8G8B8, "32/1 4/1 4"},  {kR5G6B5, "16/1 2/1 3"},  {kR8G8B8, "24/1 3/1 3"},
      {kR4G4B4, "12/1 3/2 3"},    {kL4, "4/1 1/2 1"},         {kR5G5B5, "15/1 15/8 3"}, {kP2, "2/1 1/4 1"},
      {kR6, "6/1 3/4 1"},         {0x28200, "10/1 5/4 1"},    {kX1, "1/1 1/8 1"},       {kA32f4, "128/1 16/1 4"},
      {kR8Junk, "8/1 1/1 1"},     {kDXT1, "4/1 1/2 0"},       {kDXT5 | 2, "8/1 1/1 0"}, {kPVRTC2, "2/1 1/4 0"},
      {kASTC5x4, "128/20 16/20 0"}, {kASTC12x12, "128/144 16/144 0"}, {kASTC333, "128/1 16/1 0"},
      {kFormat55, "0/0 0/0 0"},
      // undecodable (nothing, compressed 0, flags only, formats 56 and 255, kind 47, no bits): the bit
      // divisor is cleared before decoding, the byte divisor left alone
      {0x0, "0/0 0/77 0"},        {0x1, "0/0 0/77 0"},        {0x2, "0/0 0/77 0"},      {0x3801, "0/0 0/77 0"},
      {0xFF01, "0/0 0/77 0"},     {0x22F00, "0/0 0/77 0"},    {0x200, "0/0 0/77 0"},
  };
  for (const auto& [desc, want] : cases) {
    EXPECT_EQ(Both(desc, [](const auto& x) {
      ull bits_div = 77, bytes_div = 77;
      const ull bits = BitsPerPixel(x, &bits_div), bytes = BytesPerPixel(x, &bytes_div);
      const bool same = BitsPerPixel(x, nullptr) == bits && BytesPerPixel(x, nullptr) == bytes;
      return std::to_string(bits) + '/' + std::to_string(bits_div) + ' ' + std::to_string(bytes) + '/' +
             std::to_string(bytes_div) + ' ' + std::to_string(ChannelCount(x)) + (same ? "" : "!");
    }), want) << std::hex << desc;
  }
}

TEST(Descriptor, RowAndImageSizes) {
  // height N: BytesPerRow(width, alignment); depth N: BytesTotal without depth.
  const ull N = ~0ull, k31 = 1ull << 31, k32 = 1ull << 32, k21 = 1ull << 21, k22 = 1ull << 22;
  const ull cases[][6] = {
      // desc, width, height, depth, alignment, bytes
      {kR8, 3, N, N, 2, 4}, {kR8, 3, N, N, 0, 3}, {kR8, 0, N, N, 2, 0}, {kR8, 5, N, N, 3, 8},
      {kR8, 7, N, N, 4, 16}, {kA8R8G8B8, 5, N, N, 3, 24}, {kR5G6B5, 3, N, N, 2, 8}, {kR4G4B4, 3, N, N, 0, 5},
      {kL4, 3, N, N, 0, 2}, {kL4, 1, N, N, 0, 1}, {kR5G5B5, 3, N, N, 0, 6}, {kR5G5B5, 8, N, N, 0, 15},
      {kP2, 5, N, N, 0, 2}, {kR6, 3, N, N, 0, 3}, {kX1, 9, N, N, 0, 2}, {kX1, 8, N, N, 0, 1},
      {kDXT1, 16, N, N, 0, 0},
      {kDXT1, 1, 1, N, 0, 8}, {kDXT1, 0, 0, N, 0, 8}, {kDXT1, 5, 5, N, 4, 32}, {kDXT1, 8, 4, N, 0, 16},
      {kPVRTC2, 1, 1, N, 0, 32}, {kPVRTC2, 17, 9, N, 0, 72}, {kPVRTC4, 1, 1, N, 0, 32}, {kPVRTC4, 12, 8, N, 0, 48},
      {kPVRTCv2, 1, 1, N, 0, 8}, {kPVRTCv2, 9, 1, N, 0, 16}, {kASTC5x4, 6, 5, N, 0, 64}, {kASTC12x12, 13, 1, N, 0, 32},
      {kASTC333, 2, 3, N, 0, 96}, {kASTC333, 0, 0, N, 0, 16}, {kFormat55, 4, 4, N, 0, 0}, {kR8G8B8, 3, 2, N, 2, 24},
      {kR8, 0, 5, N, 0, 0}, {kR8, 5, 0, N, 0, 0}, {kR4G4B4, 3, 3, N, 0, 15},
      {kASTC443, 8, 8, 6, 5, 128}, {kASTC665, 6, 6, 5, 0, 16}, {kASTC333, 4, 4, 4, 0, 128}, {kASTC333, 0, 4, 4, 0, 0},
      {kASTC333, 4, 4, 0, 0, 0}, {kASTC444, 1, 1, 1, 0, 16}, {kASTC666, 7, 6, 6, 0, 32}, {kFormat55, 4, 4, 4, 0, 0},
      {kDXT1, 5, 5, 3, 0, 96}, {kDXT1, 1, 1, 0, 0, 0}, {kR8, 3, 2, 4, 2, 32}, {kPVRTC2, 1, 1, 2, 0, 64},
      {kASTC5x4, 6, 5, 2, 0, 128},
      // near 64 bits: results that just fit, and 0 for those that do not
      {kA32f4, 1ull << 61, N, N, 0, 0}, {kR8, N, N, N, 0, N}, {kR8, N, N, N, 2, 0},
      {kL4, N, N, N, 0, 1ull << 63},    // the rounding-up must not wrap
      {kR6, 1ull << 63, N, N, 0, 3ull << 61},  // fits, although 3 * width does not
      {kR8, k32, k31, N, 0, 1ull << 63}, {kR8, k32, k32, N, 0, 0}, {kR8, k32, k31, 2, 0, 0},
      {kDXT1, k32, k32, N, 0, 1ull << 63}, {kDXT5, 1ull << 34, 1ull << 34, N, 0, 0}, {kDXT1, N, 1, N, 0, 0},
      {kASTC444, k21, k21, k21, 0, 1ull << 61}, {kASTC444, k22, k22, k22, 0, 0},
      // undecodable
      {0x0, 16, N, N, 2, 0}, {0x3801, 16, 16, N, 2, 0}, {0x22F00, 16, 16, 4, 2, 0}, {0x200, 16, N, N, 2, 0},
      {0x1, 16, 16, N, 2, 0}, {0xFF01, 16, 16, 4, 2, 0}, {0x2, 16, 16, 4, 2, 0},
  };
  for (const auto& [desc, w, h, d, align, want] : cases) {
    EXPECT_EQ(Both(desc, [&, w = w, h = h, d = d, align = align](const auto& x) -> ull {
      return h == N ? BytesPerRow(x, w, align) : d == N ? BytesTotal(x, w, h, align) : BytesTotal(x, w, h, d, align);
    }), want) << std::hex << desc << std::dec << " " << w << "x" << h << "x" << d << " a" << align;
  }
}

TEST(Descriptor, CompleteMipCount) {
  const unsigned cases[][4] = {{0, 0, 0, 1},   {1, 1, 1, 1},      {2, 1, 1, 2},       {3, 3, 1, 2},
                               {256, 1, 1, 9}, {300, 200, 1, 9},  {1024, 512, 1, 11}, {1, 1024, 1, 11},
                               {4, 4, 16, 5},  {1, 1024, 2, 11},  {0xFFFFFFFFu, 0, 0, 32}, {0, 0, 0x80000000u, 32}};
  for (const auto& [w, h, d, want] : cases) {
    EXPECT_EQ(CalcCompleteMipCount(w, h, d), want) << w << "x" << h << "x" << d;
    if (d <= 1) {
      EXPECT_EQ(CalcCompleteMipCount(w, h), want) << w << "x" << h;
    }
  }
}

}  // namespace
}  // namespace lumo::image
