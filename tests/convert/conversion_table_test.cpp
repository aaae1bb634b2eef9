// The built-in conversion table: exactly these pairs are direct, each produces
// a surface of the right shape, and every converter family writes exact bytes.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "lumo/image/converters.h"
#include "lumo/image/formats.h"
#include "lumo/image/surface_data.h"
#include "support/descriptors.h"
#include "support/log_capture.h"
#include "support/surfaces.h"

namespace lumo::image {
namespace {

using ull = unsigned long long;
using testing::LogCapture;
using testing::Named;
using testing::Tight;
using Bytes = std::vector<std::uint8_t>;

// The 214 registered pairs: each source with its direct targets.
constexpr const char* kPairs =
    "R8G8B8>A8R8G8B8,X8R8G8B8,A8B8G8R8,X8B8G8R8,B8G8R8,R8,G8,R8G8,G8R8,L8,R16G16B16 "
    "B8G8R8>A8B8G8R8,X8B8G8R8,A8R8G8B8,X8R8G8B8,R8G8B8,R8,G8,G8R8,R8G8,L8,B16G16R16,G16R16,G16sR16s "
    "A8R8G8B8>R8G8B8,B8G8R8,X8R8G8B8,X8B8G8R8,A8B8G8R8,A8,R8,G8 "
    "A8R8G8B8>R8G8,G8R8,A8L8,A16R16G16B16,A32fR32fG32fB32f,A16fR16fG16fB16f,A8sR8sG8sB8s,s_A8R8G8B8 "
    "A8B8G8R8>B8G8R8,R8G8B8,X8B8G8R8,X8R8G8B8,A8R8G8B8,R8G8B8A8,A8,R8 "
    "A8B8G8R8>G8,G8R8,R8G8,A8L8,A16B16G16R16,A32fB32fG32fR32f,A16fB16fG16fR16f,A8sB8sG8sR8s,s_A8B8G8R8 "
    "X8R8G8B8>A8R8G8B8,A8B8G8R8,R8G8B8,B8G8R8,X8B8G8R8,s_X8R8G8B8 X8B8G8R8>A8B8G8R8,A8R8G8B8,B8G8R8,R8G8B8,X8R8G8B8 "
    "G16R16>R16G16,B8G8R8,G16fR16f,G16sR16s R16G16>G16R16,R16sG16s R16sG16s>G16sR16s,R16G16 "
    "G16sR16s>R16sG16s,B8G8R8,G16fR16f,G16R16 B16G16R16>R16G16B16,G16,R16,G16R16,R16G16,L16,B8G8R8,B16fG16fR16f "
    "R16G16B16>B16G16R16,R16,G16,R16G16,G16R16,L16,R8G8B8,R16fG16fB16f B16fG16fR16f>R16fG16fB16f,B16G16R16 "
    "R16fG16fB16f>B16fG16fR16f,R16G16B16 "
    "A16B16G16R16>A16R16G16B16,A16,R16,G16R16,R16G16,A16L16,A8B8G8R8,A16sB16sG16sR16s "
    "A16R16G16B16>A16B16G16R16,A16,R16,G16,R16G16,G16R16,A16L16,A8R8G8B8,A16sR16sG16sB16s "
    "A16fB16fG16fR16f>A16fR16fG16fB16f,A8B8G8R8,A32fB32fG32fR32f,u_A16fB16fG16fR16f "
    "A16fR16fG16fB16f>A16fB16fG16fR16f,A8R8G8B8,A32fR32fG32fB32f,u_A16fR16fG16fB16f R8G8B8A8>A8B8G8R8,s_R8G8B8A8 "
    "R4G4B4A4>A4B4G4R4,A4R4G4B4,R8G8B8A8 A4B4G4R4>R4G4B4A4,A8B8G8R8 A4R4G4B4>R4G4B4A4,A8R8G8B8 B4G4R4A4>B8G8R8A8 "
    "R5G6B5>R8G8B8 B5G6R5>B8G8R8 A1R5G5B5>A8R8G8B8,A8B8G8R8 A1B5G5R5>A8B8G8R8,A8R8G8B8 "
    "A8>A8B8G8R8,A8R8G8B8,B8G8R8,R8G8B8,A16,A8s L8>A8B8G8R8,A8R8G8B8,B8G8R8,R8G8B8 "
    "R8>A8B8G8R8,A8R8G8B8,B8G8R8,R8G8B8,R8s A8L8>A8R8G8B8,A8B8G8R8,G16R16 A1>A8,A8B8G8R8,A8R8G8B8 A2>A8 A4>A8 "
    "G8R8>G16R16,G8sR8s R16>R8,R16f,R16s A16>A8,R16f,A16s R16s>R8,R16f,R16 A16s>A8,R16f,A16 R16G16B16A16>R8G8B8A8 "
    "B16G16R16A16>B8G8R8A8 R16f>R16,R32f R32f>R16f R16fG16fB16fA16f>R8G8B8A8 B16fG16fR16fA16f>B8G8R8A8 "
    "A32fB32fG32fR32f>A8B8G8R8,A16fB16fG16fR16f,B32fG32fR32f,u_A32fB32fG32fR32f "
    "A32fR32fG32fB32f>A8R8G8B8,A16fR16fG16fB16f,R32fG32fB32f,u_A32fR32fG32fB32f R32fG32fB32f>A32fR32fG32fB32f "
    "B32fG32fR32f>A32fB32fG32fR32f u_A32fB32fG32fR32f>A32fB32fG32fR32f u_A32fR32fG32fB32f>A32fR32fG32fB32f "
    "u_A16fB16fG16fR16f>A16fB16fG16fR16f u_A16fR16fG16fB16f>A16fR16fG16fB16f A8s>A8 R8s>R8 R8sG8s>R8G8 G8sR8s>G8R8 "
    "R8G8>R8sG8s A8sB8sG8sR8s>A8B8G8R8 A8sR8sG8sB8s>A8R8G8B8 A16sB16sG16sR16s>A16B16G16R16 "
    "A16sR16sG16sB16s>A16R16G16B16 s_A8B8G8R8>A8B8G8R8 s_A8R8G8B8>A8R8G8B8 s_X8R8G8B8>X8R8G8B8 s_R8G8B8A8>R8G8B8A8 "
    "DXT1>DXT1_A1 DXT1_A1>DXT1";

std::vector<std::pair<std::string, std::string>> Pairs() {
  std::vector<std::pair<std::string, std::string>> pairs;
  std::istringstream in(kPairs);
  for (std::string item; in >> item;) {
    const auto gt = item.find('>');
    std::istringstream targets(item.substr(gt + 1));
    for (std::string to; std::getline(targets, to, ',');) pairs.emplace_back(item.substr(0, gt), to);
  }
  return pairs;
}

// Sub-byte alpha and the DXT1 relabelling return tight rows in a buffer of their own.
bool OwnBuffer(const std::string& from) {
  return from == "A1" || from == "A2" || from == "A4" || from == "DXT1" || from == "DXT1_A1";
}

template <typename ByteContainer>
std::string Hex(const ByteContainer& b) {
  std::ostringstream o;
  o << std::hex;
  for (const auto c : b) {
    const unsigned v = static_cast<std::uint8_t>(c);
    o << (v < 16 ? " 0" : " ") << v;
  }
  return o.str();
}

// A surface holding `pixels` (tight rows), its row padding filled with junk.
std::shared_ptr<SurfaceDataBitmap> MakeSource(PixelFormatDescriptor f, ull w, ull h, const Bytes& pixels, ull align) {
  auto s = SurfaceDataBitmap::Create(w, h, f, align);
  if (!s) return s;
  std::memset(s->Buffer(), 0xA7, s->Size());
  if (IsCompressed(f)) {
    std::memcpy(s->Buffer(), pixels.data(), std::min<size_t>(pixels.size(), s->Size()));
    return s;
  }
  const ull row = BytesPerRow(f, w, 0);
  for (ull y = 0; y < h && (y + 1) * row <= pixels.size(); ++y)
    std::memcpy(s->Buffer() + y * s->BytesPerRow(), pixels.data() + y * row, row);
  return s;
}

TEST(ConversionTable, EveryListedPairIsDirectAndShapesItsResult) {
  const auto pairs = Pairs();
  ASSERT_EQ(pairs.size(), 214u);  // a duplicate or a missing pair fails NoOtherPairIsDirect
  LogCapture log;
  std::mt19937 rng(7);
  for (const auto& [from_name, to_name] : pairs) {
    SCOPED_TRACE(from_name + " to " + to_name);
    const PixelFormatDescriptor from = Named(from_name), to = Named(to_name);
    const auto converter = ConverterManager::Instance()->GetConverter(from, to);
    ASSERT_TRUE(converter);
    EXPECT_EQ(dynamic_cast<ConverterSequence*>(converter.get()), nullptr);
    for (const auto& [w, h] : {std::pair<ull, ull>{5, 3}, {1, 1}, {7, 2}}) {
      Bytes pixels(BytesTotal(from, w, h, 0));
      for (auto& b : pixels) b = static_cast<std::uint8_t>(rng());
      std::string first;
      for (ull align : {0ull, 2ull}) {
        const auto src = MakeSource(from, w, h, pixels, align);
        ASSERT_TRUE(src);
        const auto dst = src->ConvertCopy(to);
        ASSERT_TRUE(dst) << "align " << align;
        const ull align_out = OwnBuffer(from_name) ? 0 : 2;
        EXPECT_EQ(std::make_tuple(dst->Format(), dst->Width(), dst->Height(), dst->BytesPerRow(), dst->Size()),
                  std::make_tuple(to, w, h, BytesPerRow(to, w, align_out), BytesTotal(to, w, h, align_out)));
        // The pixels must not depend on the source's row padding.
        if (align == 0) first = Tight(*dst);
        else EXPECT_EQ(Hex(Tight(*dst)), Hex(first)) << w << "x" << h;
      }
    }
  }
  EXPECT_TRUE(log.lines.empty()) << log.All();  // no lookup searched, no conversion logged
}

TEST(ConversionTable, NoOtherPairIsDirect) {
  const auto pairs = Pairs();
  const std::set<std::pair<std::string, std::string>> listed(pairs.begin(), pairs.end());
  std::set<std::string> names;
  for (const auto& [from, to] : pairs) names.insert({from, to});
  LogCapture log;
  for (const auto& a : names) {
    EXPECT_EQ(ConverterManager::Instance()->GetConverter(Named(a), Named(a)), Converter::Null) << a;
    for (const auto& b : names) {
      if (listed.count({a, b})) continue;
      log.lines.clear();
      const auto c = ConverterManager::Instance()->GetConverter(Named(a), Named(b));
      if (!c) {
        EXPECT_TRUE(log.lines.empty()) << a << " to " << b;
        continue;
      }
      const auto* seq = dynamic_cast<ConverterSequence*>(c.get());
      ASSERT_NE(seq, nullptr) << a << " to " << b << " is direct but not listed";
      EXPECT_GE(seq->Steps().size(), 2u) << a << " to " << b;
      EXPECT_EQ(log.lines.size(), seq->Steps().size()) << a << " to " << b;
    }
  }
}

// ---- Exact bytes per family ----

template <typename T>
Bytes Pack(std::initializer_list<T> values) {
  Bytes out(values.size() * sizeof(T));
  std::memcpy(out.data(), values.begin(), out.size());
  return out;
}
Bytes U8(std::initializer_list<std::uint8_t> v) { return Pack(v); }
Bytes U16(std::initializer_list<std::uint16_t> v) { return Pack(v); }
Bytes F32(std::initializer_list<float> v) { return Pack(v); }

struct Case {
  const char *from, *to;
  Bytes in, out;
  ull w = 1, h = 1;  // of the source; most rows convert one pixel
};

void RunCases(const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    for (ull align : {0ull, 2ull}) {
      SCOPED_TRACE(std::string(c.from) + " to " + c.to + " align " + std::to_string(align) + " in" + Hex(c.in));
      const auto src = MakeSource(Named(c.from), c.w, c.h, c.in, align);
      ASSERT_TRUE(src);
      const auto dst = src->ConvertCopy(Named(c.to));
      ASSERT_TRUE(dst);
      EXPECT_EQ(Hex(Tight(*dst)), Hex(c.out));
    }
  }
}

const float kNaN = std::numeric_limits<float>::quiet_NaN();
const float kInf = std::numeric_limits<float>::infinity();

TEST(ConverterBytes, ChannelOrderSelectionAndSwaps) {
  const Bytes b123 = U8({1, 2, 3}), b1234 = U8({1, 2, 3, 4}), w123 = U16({1, 2, 3}), w1234 = U16({1, 2, 3, 4});
  RunCases({
      // alpha or padding added at byte 3 or stripped; swap exchanges bytes 0 and 2
      {"R8G8B8", "A8R8G8B8", U8({1, 2, 3, 4, 5, 6}), U8({1, 2, 3, 255, 4, 5, 6, 255}), 2},
      {"R8G8B8", "A8B8G8R8", b123, U8({3, 2, 1, 255})}, {"A8R8G8B8", "R8G8B8", b1234, b123},
      {"A8R8G8B8", "B8G8R8", b1234, U8({3, 2, 1})},
      // redirected channels
      {"A8R8G8B8", "X8R8G8B8", b1234, b1234}, {"A8R8G8B8", "X8B8G8R8", b1234, U8({3, 2, 1, 4})},
      {"X8R8G8B8", "A8R8G8B8", b1234, U8({1, 2, 3, 255})}, {"X8B8G8R8", "A8R8G8B8", b1234, U8({3, 2, 1, 255})},
      {"X8R8G8B8", "R8G8B8", b1234, b123}, {"X8R8G8B8", "B8G8R8", b1234, U8({3, 2, 1})},
      // swaps and reversals of 8-bit, 16-bit and 4-bit fields
      {"R8G8B8", "B8G8R8", b123, U8({3, 2, 1})}, {"A8R8G8B8", "A8B8G8R8", b1234, U8({3, 2, 1, 4})},
      {"R8G8B8A8", "A8B8G8R8", b1234, U8({4, 3, 2, 1})}, {"G16R16", "R16G16", U16({1, 2}), U16({2, 1})},
      {"B16G16R16", "R16G16B16", w123, U16({3, 2, 1})}, {"A16B16G16R16", "A16R16G16B16", w1234, U16({3, 2, 1, 4})},
      {"R4G4B4A4", "A4B4G4R4", U16({0x1234}), U16({0x4321})}, {"R4G4B4A4", "A4R4G4B4", U16({0x1234}), U16({0x4123})},
      {"A4R4G4B4", "R4G4B4A4", U16({0x1234}), U16({0x2341})},
      // one channel: component i of n is element n-1-i
      {"R8G8B8", "R8", U8({1, 2, 3, 4, 5, 6, 7, 8, 9}), U8({3, 6, 9}), 3}, {"B8G8R8", "R8", b123, U8({1})},
      {"R8G8B8", "G8", b123, U8({2})}, {"A8R8G8B8", "A8", b1234, U8({4})}, {"A8R8G8B8", "R8", b1234, U8({3})},
      {"A8B8G8R8", "R8", b1234, U8({1})}, {"A8R8G8B8", "G8", b1234, U8({2})}, {"R16G16B16", "R16", w123, U16({3})},
      {"A16R16G16B16", "G16", w1234, U16({2})}, {"A16B16G16R16", "A16", w1234, U16({4})},
      {"R16G16B16", "G16", w123, U16({2})}, {"B16G16R16", "R16", w123, U16({1})},
      {"A16R16G16B16", "R16", w1234, U16({3})}, {"A16B16G16R16", "R16", w1234, U16({1})},
      // two channels: target component 0 is element 1
      {"R8G8B8", "R8G8", b123, U8({2, 3})}, {"R8G8B8", "G8R8", b123, U8({3, 2})}, {"B8G8R8", "G8R8", b123, U8({1, 2})},
      {"A8R8G8B8", "R8G8", b1234, U8({2, 3})}, {"A8B8G8R8", "R8G8", b1234, U8({2, 1})},
      {"A16R16G16B16", "G16R16", w1234, U16({3, 2})}, {"B16G16R16", "R16G16", w123, U16({2, 1})},
      {"B8G8R8", "R8G8", b123, U8({2, 1})}, {"A8R8G8B8", "G8R8", b1234, U8({3, 2})},
      {"A8B8G8R8", "G8R8", b1234, U8({1, 2})}, {"R16G16B16", "R16G16", w123, U16({2, 3})},
      {"R16G16B16", "G16R16", w123, U16({3, 2})}, {"B16G16R16", "G16R16", w123, U16({1, 2})},
      {"A16R16G16B16", "R16G16", w1234, U16({2, 3})}, {"A16B16G16R16", "G16R16", w1234, U16({1, 2})},
      {"A16B16G16R16", "R16G16", w1234, U16({2, 1})},
  });
}

TEST(ConverterBytes, PackedGrayAndReplication) {
  RunCases({
      {"R5G6B5", "R8G8B8", U16({0xFFFF, 0x0000, 0x07E0}), U8({255, 255, 255, 0, 0, 0, 0, 255, 0}), 3},
      // bit replication of the 5- and 6-bit fields
      {"R5G6B5", "R8G8B8", U16({0x0001, 0x0020, 0x0800}), U8({8, 0, 0, 0, 4, 0, 0, 0, 8}), 3},
      {"B5G6R5", "B8G8R8", U16({0x8010}), U8({0x84, 0, 0x84})},
      {"A1R5G5B5", "A8R8G8B8", U16({0x8000, 0x7FFF}), U8({0, 0, 0, 255, 255, 255, 255, 0}), 2},
      {"A1R5G5B5", "A8R8G8B8", U16({0x0001, 0x0020, 0x0400}), U8({8, 0, 0, 0, 0, 8, 0, 0, 0, 0, 8, 0}), 3},
      {"A1R5G5B5", "A8B8G8R8", U16({0x0001, 0x0400}), U8({0, 0, 8, 0, 8, 0, 0, 0}), 2},
      {"A4R4G4B4", "A8R8G8B8", U16({0x1234}), U8({0x44, 0x33, 0x22, 0x11})},
      {"B4G4R4A4", "B8G8R8A8", U16({0xF0A5}), U8({0x55, 0xAA, 0x00, 0xFF})},
      // gray: (299 R + 587 G + 114 B) / 1000, truncated
      {"R8G8B8", "L8", U8({255, 255, 255, 0, 0, 255, 0, 255, 0, 255, 0, 0}), U8({255, 76, 149, 29}), 4},
      {"B8G8R8", "L8", U8({255, 0, 0}), U8({76})}, {"A8R8G8B8", "A8L8", U8({0, 0, 255, 0x80}), U8({76, 0x80})},
      {"A8B8G8R8", "A8L8", U8({255, 0, 0, 0x81}), U8({76, 0x81})},
      {"R16G16B16", "L16", U16({0, 0, 65535}), U16({19594})},
      {"A16B16G16R16", "A16L16", U16({65535, 0, 0, 0x1234}), U16({19594, 0x1234})},
      {"B16G16R16", "L16", U16({65535, 0, 0}), U16({19594})},
      {"A16R16G16B16", "A16L16", U16({0, 0, 65535, 0x1234}), U16({19594, 0x1234})},
      // one channel replicated, alpha included
      {"L8", "R8G8B8", U8({0x5A, 7}), U8({0x5A, 0x5A, 0x5A, 7, 7, 7}), 2},
      {"A8", "A8R8G8B8", U8({0x5A}), U8({0x5A, 0x5A, 0x5A, 0x5A})},
      {"A8L8", "A8R8G8B8", U8({0x11, 0x22}), U8({0x11, 0x11, 0x11, 0x22})},
  });
}

TEST(ConverterBytes, SubByteAlphaReadsPartialLastBytes) {
  RunCases({
      // bits beyond the width are junk and must be ignored
      {"A1", "A8", U8({0xA5, 0xFE, 0x01, 0x01}),
       U8({255, 0, 255, 0, 0, 255, 0, 255, 0, 255, 255, 0, 0, 0, 0, 0, 0, 0, 255, 0}), 10, 2},
      {"A2", "A8", U8({0xE4, 0xFD}), U8({0, 85, 170, 255, 85}), 5},
      {"A4", "A8", U8({0x8F, 0xF1, 0x10, 0x0E}), U8({255, 136, 17, 0, 17, 238}), 3, 2},
      {"A1", "A8R8G8B8", U8({0xFD}), U8({255, 255, 255, 255, 0, 0, 0, 255, 255, 255, 255, 255}), 3},
      {"A1", "A8B8G8R8", U8({0x00}), U8({0, 0, 0, 255})},
  });
}

TEST(ConverterBytes, EightAndSixteenBits) {
  RunCases({
      {"A8", "A16", U8({0x12, 0xFF}), U16({0x1212, 0xFFFF}), 2},
      {"R8G8B8", "R16G16B16", U8({1, 2, 3}), U16({0x0101, 0x0202, 0x0303})},
      {"G8R8", "G16R16", U8({0x80, 0x01}), U16({0x8080, 0x0101})}, {"R16", "R8", U16({0xABCD}), U8({0xAB})},
      {"R16s", "R8", U16({0x8000, 0x0000, 0x7FFF}), U8({0, 128, 255}), 3}, {"A16s", "A8", U16({0xFF00}), U8({0x7F})},
      {"R16G16B16", "R8G8B8", U16({0x1234, 0x5678, 0x9ABC}), U8({0x12, 0x56, 0x9A})},
      {"R16G16B16A16", "R8G8B8A8", U16({0x1234, 0x5678, 0x9ABC, 0xDEF0}), U8({0x12, 0x56, 0x9A, 0xDE})},
      {"G16R16", "B8G8R8", U16({0x1234, 0xABCD}), U8({0x12, 0xAB, 0xFF})},
      {"G16sR16s", "B8G8R8", U16({0x8000, 0x0000}), U8({0x00, 0x80, 0xFF})},
      {"B8G8R8", "G16R16", U8({0x12, 0x34, 0x56}), U16({0x1200, 0x3400})},
      {"B8G8R8", "G16sR16s", U8({0x00, 0xFF, 0x12}), U16({0x8000, 0x7F00})},
      // signed <-> unsigned flips the top bit of every element
      {"R8", "R8s", U8({0x00, 0x7F}), U8({0x80, 0xFF}), 2}, {"R8s", "R8", U8({0x80, 0x7F}), U8({0x00, 0xFF}), 2},
      {"R8G8", "R8sG8s", U8({0x01, 0x81}), U8({0x81, 0x01})},
      {"A8B8G8R8", "A8sB8sG8sR8s", U8({0x00, 0x7F, 0x80, 0xFF}), U8({0x80, 0xFF, 0x00, 0x7F})},
      {"R16", "R16s", U16({0x1234}), U16({0x9234})},
      {"A16sR16sG16sB16s", "A16R16G16B16", U16({0, 0x8000, 0x7FFF, 0xFFFF}), U16({0x8000, 0, 0xFFFF, 0x7FFF})},
  });
}

TEST(ConverterBytes, HalfFloatAndIntegerRules) {
  RunCases({
      // 16-bit to half: u / 65535, signed sources offset first
      {"R16", "R16f", U16({65535, 0, 32768}), U16({0x3C00, 0x0000, 0x3800}), 3},
      {"R16s", "R16f", U16({0x8000, 0x7FFF}), U16({0x0000, 0x3C00}), 2}, {"A16", "R16f", U16({65535}), U16({0x3C00})},
      {"G16sR16s", "G16fR16f", U16({0x8000, 0x7FFF}), U16({0x0000, 0x3C00})},
      {"R16G16B16", "R16fG16fB16f", U16({65535, 0, 65535}), U16({0x3C00, 0, 0x3C00})},
      // half to 16-bit: x 65535, clamped, NaN 0, either infinity 65535
      {"R16f", "R16", U16({0x3C00, 0x3800, 0x7E00, 0x7C00, 0xFC00, 0xB800, 0x4000}),
       U16({65535, 32767, 0, 65535, 65535, 0, 65535}), 7},
      {"R16fG16fB16f", "R16G16B16", U16({0x3C00, 0x3800, 0x7E00}), U16({65535, 32767, 0})},
      // half <-> float, rounding to nearest even, subnormals kept
      {"R16f", "R32f", U16({0x3C00, 0x0001, 0x7C00, 0xFC00, 0x8000}),
       F32({1.0f, std::ldexp(1.0f, -24), kInf, -kInf, -0.0f}), 5},
      {"R32f", "R16f",
       F32({1.0f, 65504.0f, 65520.0f, std::ldexp(1.0f, -25), std::ldexp(1.5f, -25), -0.0f, 1.0f + std::ldexp(1.0f, -11),
            1.0f + std::ldexp(3.0f, -11), -1e9f}),
       U16({0x3C00, 0x7BFF, 0x7C00, 0x0000, 0x0001, 0x8000, 0x3C00, 0x3C02, 0xFC00}), 9},
      // four halves to floats: NaN 0, infinities 1
      {"A16fR16fG16fB16f", "A32fR32fG32fB32f", U16({0x3C00, 0x7E00, 0x7C00, 0xFC00}), F32({1.0f, 0.0f, 1.0f, 1.0f})},
      {"A32fB32fG32fR32f", "A16fB16fG16fR16f", F32({kNaN, kInf, -kInf, 0.5f, 1e6f, -2.0f, 0.0f, 1.0f}),
       U16({0x0000, 0x3C00, 0x3C00, 0x3800, 0x7C00, 0xC000, 0x0000, 0x3C00}), 2},
      // float to byte
      {"A32fR32fG32fB32f", "A8R8G8B8", F32({1.5f, -0.25f, kNaN, -kInf, 0.999f, 0.5f, 1.0f, kInf}),
       U8({255, 0, 0, 255, 254, 127, 255, 255}), 2},
      {"A16fB16fG16fR16f", "A8B8G8R8", U16({0x3E00, 0xB400, 0x7E00, 0xFC00}), U8({255, 0, 0, 255})},
      {"A8B8G8R8", "A16fB16fG16fR16f", U8({0, 255, 128, 51}), U16({0x0000, 0x3C00, 0x3804, 0x3266})},
      {"A8R8G8B8", "A32fR32fG32fB32f", U8({0, 255, 128, 1}),
       F32({0.0f, 1.0f, static_cast<float>(128 / 255.0), static_cast<float>(1 / 255.0)})},
      // three floats gain an alpha of 1 at element 3 and lose it again
      {"R32fG32fB32f", "A32fR32fG32fB32f", F32({1, 2, 3}), F32({1, 2, 3, 1.0f})},
      {"A32fR32fG32fB32f", "R32fG32fB32f", F32({1, 2, 3, 4}), F32({1, 2, 3})},
      // unnormalized floats on the 0..255 scale
      {"A32fR32fG32fB32f", "u_A32fR32fG32fB32f", F32({1.0f, 0.5f, 0.0f, 2.0f}), F32({255, 127.5f, 0, 510})},
      {"u_A32fB32fG32fR32f", "A32fB32fG32fR32f", F32({255, 51, 0, 127.5f}), F32({1.0f, 51.0f / 255.0f, 0.0f, 0.5f})},
      {"A16fR16fG16fB16f", "u_A16fR16fG16fB16f", U16({0x3C00, 0x3800, 0, 0xBC00}), U16({0x5BF8, 0x57F8, 0, 0xDBF8})},
      {"u_A16fB16fG16fR16f", "A16fB16fG16fR16f", U16({0x5BF8, 0x57F8, 0, 0x7C00}), U16({0x3C00, 0x3800, 0, 0x7C00})},
  });
}

// The sRGB converters' table, built from its definition.
std::uint8_t SrgbEntry(int i, double exponent) {
  const float x = (static_cast<float>(i) + 0.5f) * 0.00390625f;
  const double v = std::pow(static_cast<double>(x), exponent);
  const float e = static_cast<float>(v) * 256.0f - 0.5f;
  return static_cast<std::uint8_t>(static_cast<int>(e));
}

TEST(ConverterBytes, SrgbMapsColourBytesAndKeepsAlpha) {
  const double to_srgb = 0.45454545454545453, to_linear = 2.2;
  const auto entries = [](double e) { return U8({SrgbEntry(0, e), SrgbEntry(128, e), SrgbEntry(255, e)}); };
  ASSERT_EQ(entries(to_srgb), U8({14, 186, 255}));
  ASSERT_EQ(entries(to_linear), U8({0, 55, 254}));
  struct Dir {
    const char *from, *to;
    double exponent;
    int alpha_byte;
  };
  const Dir dirs[] = {{"A8R8G8B8", "s_A8R8G8B8", to_srgb, 3},   {"A8B8G8R8", "s_A8B8G8R8", to_srgb, 3},
                      {"X8R8G8B8", "s_X8R8G8B8", to_srgb, 3},   {"R8G8B8A8", "s_R8G8B8A8", to_srgb, 0},
                      {"s_A8R8G8B8", "A8R8G8B8", to_linear, 3}, {"s_R8G8B8A8", "R8G8B8A8", to_linear, 0}};
  std::vector<Case> cases;
  for (const Dir& d : dirs) {
    Bytes in, out;
    for (int i = 0; i < 256; ++i)
      for (int k = 0; k < 4; ++k) {
        const int v = (i + 85 * k) & 255;
        in.push_back(static_cast<std::uint8_t>(v));
        out.push_back(k == d.alpha_byte ? static_cast<std::uint8_t>(v) : SrgbEntry(v, d.exponent));
      }
    cases.push_back({d.from, d.to, in, out, 64, 4});
  }
  RunCases(cases);
}

TEST(ConverterBytes, CompressedRelabellingCopiesBytes) {
  Bytes blocks(32);
  for (size_t i = 0; i < blocks.size(); ++i) blocks[i] = static_cast<std::uint8_t>(i * 37 + 1);
  const Bytes half(blocks.begin(), blocks.begin() + 16);
  RunCases({{"DXT1", "DXT1_A1", blocks, blocks, 5, 5}, {"DXT1_A1", "DXT1", half, half, 8, 3}});
}

}  // namespace
}  // namespace lumo::image
