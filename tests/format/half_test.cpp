#include "lumo/image/half.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <type_traits>
#include <utility>
#include <vector>

#if defined(__SSE__)
#  include <xmmintrin.h>
#endif

namespace {

using half_float::half;
using lumo::image::detail::HalfPath;
namespace detail = lumo::image::detail;

template <typename To, typename From>
To Cast(From v) {
  To t;
  std::memcpy(&t, &v, sizeof t);
  return t;
}
float Float(std::uint32_t u) { return Cast<float>(u); }
std::uint32_t Raw(float f) { return Cast<std::uint32_t>(f); }
std::uint16_t Raw(half h) { return h.bits(); }

#if defined(__FLT16_MAX__)
// The compiler's own conversions are the independent reference.
std::uint32_t Ref(half h) { return Raw(static_cast<float>(Cast<_Float16>(h.bits()))); }
std::uint16_t Ref(float f) { return Cast<std::uint16_t>(static_cast<_Float16>(f)); }
#endif

// Every way to convert: element by element, the default row functions and
// each back end the CPU supports.
struct Converter {
  const char* name;
  void (*to_float)(const half*, float*, std::size_t);
  void (*to_half)(const float*, half*, std::size_t);
  void Run(const half* s, float* d, std::size_t n) const { to_float(s, d, n); }
  void Run(const float* s, half* d, std::size_t n) const { to_half(s, d, n); }
};

std::vector<Converter> Converters() {
  std::vector<Converter> all = {
      {"scalar",
       [](const half* s, float* d, std::size_t n) { for (std::size_t i = 0; i < n; ++i) d[i] = s[i]; },
       [](const float* s, half* d, std::size_t n) { for (std::size_t i = 0; i < n; ++i) d[i] = s[i]; }},
      {"default", lumo::image::HalfToFloat, lumo::image::FloatToHalf},
      {"portable",
       [](const half* s, float* d, std::size_t n) { detail::HalfToFloat(HalfPath::Portable, s, d, n); },
       [](const float* s, half* d, std::size_t n) { detail::FloatToHalf(HalfPath::Portable, s, d, n); }}};
  if (detail::HalfPathSupported(HalfPath::F16c)) {
    all.push_back({"f16c",
                   [](const half* s, float* d, std::size_t n) { detail::HalfToFloat(HalfPath::F16c, s, d, n); },
                   [](const float* s, half* d, std::size_t n) { detail::FloatToHalf(HalfPath::F16c, s, d, n); }});
  }
  return all;
}

// Hosts built with fast-math flags run with flush-to-zero and
// denormals-are-zero set; half subnormals must come out right either way.
template <typename Fn>
void WithAndWithoutFlush(Fn fn) {
#if defined(__SSE__)
  const unsigned int saved = _mm_getcsr();
  _mm_setcsr(saved | 0x8040u);
  fn("flushed");
  _mm_setcsr(saved);
#endif
  fn("default mode");
}

// Converts (input, expected bits) pairs one way with every converter, in both
// modes; the reference must agree with the expectations first.
template <typename In, typename Bits>
void Check(const std::vector<std::pair<In, Bits>>& cases) {
  std::vector<In> in;
  for (const auto& [value, want] : cases) {
    in.push_back(value);
#if defined(__FLT16_MAX__)
    ASSERT_EQ(Ref(value), want) << "reference, input " << std::hex << Raw(value);
#endif
  }
  for (const Converter& c : Converters()) {
    WithAndWithoutFlush([&](const char* mode) {
      std::vector<std::conditional_t<std::is_same_v<In, half>, float, half>> out(in.size());
      c.Run(in.data(), out.data(), in.size());
      for (std::size_t i = 0; i < in.size(); ++i) {
        ASSERT_EQ(Raw(out[i]), cases[i].second) << c.name << ", " << mode << ", input " << std::hex << Raw(in[i]);
      }
    });
  }
}

static_assert(half::FromBits(0xabcd).bits() == 0xabcd, "raw bits round-trip at compile time");

// Every half against sign * significand * 2^exponent; NaNs keep sign and
// payload and come back quiet. Narrowing again restores the bits.
TEST(HalfTest, AllHalves) {
  std::vector<std::pair<half, std::uint32_t>> cases;
  for (std::uint32_t h = 0; h <= 0xffffu; ++h) {
    const std::uint32_t e = (h >> 10) & 0x1fu, m = h & 0x3ffu;
    const bool nan = e == 0x1fu && m != 0;
    float mag = e == 0x1fu ? std::numeric_limits<float>::infinity()
                : e == 0   ? std::ldexp(static_cast<float>(m), -24)
                           : std::ldexp(static_cast<float>(m | 0x400u), static_cast<int>(e) - 25);
    const half in = half::FromBits(static_cast<std::uint16_t>(h));
    cases.emplace_back(in, nan ? ((h & 0x8000u) << 16) | 0x7fc00000u | (m << 13) : Raw((h & 0x8000u) ? -mag : mag));
    ASSERT_EQ(half(static_cast<float>(in)).bits(), nan ? (h | 0x200u) : h) << std::hex << h;
  }
  Check(cases);
}

// Around each pair of neighbouring halves lo < hi, both signs: lo, the
// midpoint and the floats either side of it. Below the midpoint gives lo,
// above it hi, on it the even one. Above 65504 hi is 65536, which is
// infinity's bit pattern; below 2^-24 lo is zero.
TEST(HalfTest, RoundingBoundaries) {
  std::vector<std::pair<float, std::uint16_t>> cases;
  for (std::uint32_t h = 0; h < 0x7c00u; ++h) {
    const float lo = half::FromBits(static_cast<std::uint16_t>(h));
    const float hi = h == 0x7bffu ? 65536.0f : static_cast<float>(half::FromBits(static_cast<std::uint16_t>(h + 1)));
    const float mid = lo + (hi - lo) / 2;  // exact: 11 significant bits
    const float inputs[] = {lo, mid, std::nextafter(mid, 0.0f), std::nextafter(mid, hi)};
    const std::uint32_t outputs[] = {h, h + (h & 1u), h, h + 1};
    for (std::uint32_t sign : {0u, 0x8000u}) {
      for (int i = 0; i < 4; ++i) cases.emplace_back(sign ? -inputs[i] : inputs[i], outputs[i] | sign);
    }
  }
  Check(cases);
}

TEST(HalfTest, SpecialFloats) {
  const float inf = std::numeric_limits<float>::infinity(), denorm = std::numeric_limits<float>::denorm_min();
  Check(std::vector<std::pair<float, std::uint16_t>>{
      // inputs the boundary walk never meets: between neighbours, past 65536, below 2^-25
      {0.1f, 0x2e66}, {65536.0f, 0x7c00}, {-1e5f, 0xfc00}, {1e10f, 0x7c00},
      {std::numeric_limits<float>::max(), 0x7c00}, {inf, 0x7c00}, {-inf, 0xfc00},
      {0x1p-26f, 0x0000}, {denorm, 0x0000}, {-denorm, 0x8000},
      // NaNs: sign and top payload bits kept, quiet bit set
      {Float(0x7fc00000u), 0x7e00}, {Float(0xffc00000u), 0xfe00}, {Float(0x7f800001u), 0x7e00},
      {Float(0xff800001u), 0xfe00}, {Float(0x7fa00000u), 0x7f00}, {Float(0x7f802000u), 0x7e01},
      {Float(0x7fffffffu), 0x7fff},
  });
}

// Every float exponent, both signs, a spread of mantissas and NaN payloads;
// the scalar result is the expectation, vouched for by the reference.
TEST(HalfTest, FloatSweep) {
  std::vector<std::pair<float, std::uint16_t>> cases;
  for (std::uint64_t u = 0; u <= 0xffffffffu; u += 4093) {
    cases.emplace_back(Float(static_cast<std::uint32_t>(u)), half(Float(static_cast<std::uint32_t>(u))).bits());
  }
  Check(cases);
}

// Rows whose length and start are not multiples of the vector width; the
// element after each row must stay untouched.
TEST(HalfTest, RowTailsAndOffsets) {
  std::mt19937 rng(1234);
  for (const Converter& c : Converters()) {
    for (std::size_t n : {0, 1, 3, 7, 8, 9, 15, 16, 17, 23, 31, 33, 1003}) {
      for (std::size_t offset : {0, 1, 3}) {
        SCOPED_TRACE(::testing::Message() << c.name << " n=" << n << " offset=" << offset);
        std::vector<half> hs(offset + n + 1), narrow(hs.size(), half::FromBits(0x1234));
        std::vector<float> fs(offset + n + 1), wide(fs.size(), -3.0f);
        for (std::size_t i = 0; i < hs.size(); ++i) {
          hs[i] = half::FromBits(static_cast<std::uint16_t>(rng()));
          fs[i] = Float(static_cast<std::uint32_t>(rng()));
        }
        c.to_float(hs.data() + offset, wide.data() + offset, n);
        c.to_half(fs.data() + offset, narrow.data() + offset, n);
        for (std::size_t i = offset; i < offset + n; ++i) {
          ASSERT_EQ(Raw(wide[i]), Raw(static_cast<float>(hs[i]))) << i;
          ASSERT_EQ(narrow[i].bits(), half(fs[i]).bits()) << i;
        }
        EXPECT_EQ(wide[offset + n], -3.0f);
        EXPECT_EQ(narrow[offset + n].bits(), 0x1234u);
      }
    }
  }
}

}  // namespace
