// 16-bit IEEE binary16 value type and bulk row conversions to and from float.
//
// The type only stores and converts; pixels are widened to float for any
// arithmetic. Conversions:
//   half -> float  exact; a NaN keeps sign and payload and comes back quiet.
//   float -> half  round to nearest, ties to even, subnormals included;
//                  overflow gives a signed infinity, underflow a signed zero;
//                  a NaN keeps sign and the top 10 payload bits, quiet bit set.
// Both are integer-only (apart from an exact subtraction), so they do not
// depend on the FPU rounding mode or on flush-to-zero settings, and the bulk
// functions give the same bits whichever back end they run on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "lumo/image/export.h"

namespace half_float {

namespace detail {

constexpr std::uint16_t FloatBitsToHalfBits(std::uint32_t x) noexcept {
  const std::uint32_t sign = (x >> 16) & 0x8000u;
  const std::uint32_t a = x & 0x7fffffffu;

  // Normal range: rebias the exponent and round on the 13 dropped bits. Adding
  // 0xfff plus the kept lsb carries exactly when the rest is above half or is
  // a tie with an odd lsb; a carry out of the mantissa bumps the exponent,
  // which also turns 65520 and up into 0x7c00 (infinity).
  const std::uint32_t normal = (a - 0x38000000u + 0xfffu + ((a >> 13) & 1u)) >> 13;

  // Below 2^-14: shift the full significand down to units of 2^-24, rounding
  // the same way. The shift, 126 - e, is 14 or more here and anything from 25
  // on gives zero, so it is clamped into [1, 31]; that keeps every shift
  // defined, also for inputs whose result is not selected below.
  const std::uint32_t e = a >> 23;
  const std::uint32_t m = (a & 0x7fffffu) | 0x800000u;
  const std::uint32_t t = 125u - e;  // shift - 1, wraps for e > 125
  const std::uint32_t s = (t < 30u ? t : 30u) + 1u;
  const std::uint32_t sub = (m + ((1u << (s - 1u)) - 1u) + ((m >> s) & 1u)) >> s;

  const std::uint32_t nan = 0x7e00u | ((a >> 13) & 0x3ffu);

  // Plain selections: the compiler may branch, which on pixel data predicts
  // well and measured faster than mask selection, since that pays for the
  // subnormal path's variable shifts on every value.
  std::uint32_t r = a < 0x38800000u ? sub : normal;
  r = a >= 0x47800000u ? 0x7c00u : r;  // 65536 and up, before rounding
  r = a > 0x7f800000u ? nan : r;
  return static_cast<std::uint16_t>(r | sign);
}

inline std::uint32_t HalfBitsToFloatBits(std::uint16_t h) noexcept {
  // Every case is cheap, so all are computed and picked with masks: no
  // branches, and row loops over this vectorise.
  const std::uint32_t sign = (h & 0x8000u) << 16;
  const std::uint32_t em = h & 0x7fffu;
  const std::uint32_t is_sub = 0u - static_cast<std::uint32_t>(em < 0x0400u);
  const std::uint32_t is_special = 0u - static_cast<std::uint32_t>(em >= 0x7c00u);
  const std::uint32_t is_nan = static_cast<std::uint32_t>(em > 0x7c00u);

  // Normal: rebias the exponent. Inf/NaN: take it on to 255; NaNs leave quiet.
  const std::uint32_t normal = (em << 13) + ((127u - 15u) << 23);
  const std::uint32_t wide = (normal + (((128u - 16u) << 23) & is_special)) | (is_nan << 22);

  // Zero/subnormal: build 2^-14 * (1 + m/1024) and remove the implicit 2^-14.
  // The result m * 2^-24 is a normal float, so the subtraction is exact under
  // every rounding and flush mode.
  const std::uint32_t biased = (em << 13) + (113u << 23);
  float f;
  std::memcpy(&f, &biased, sizeof f);
  f -= 6.103515625e-05f;  // 2^-14
  std::uint32_t sub;
  std::memcpy(&sub, &f, sizeof sub);

  return (sub & is_sub) | (wide & ~is_sub) | sign;
}

}  // namespace detail

// IEEE binary16. Default construction leaves the value indeterminate like a
// float; value-initialisation (half h{};) gives +0.
class half {
 public:
  half() = default;

  half(float f) noexcept {  // NOLINT(google-explicit-constructor): converts like float
    std::uint32_t x;
    std::memcpy(&x, &f, sizeof x);
    bits_ = detail::FloatBitsToHalfBits(x);
  }

  operator float() const noexcept {
    const std::uint32_t x = detail::HalfBitsToFloatBits(bits_);
    float f;
    std::memcpy(&f, &x, sizeof f);
    return f;
  }

  static constexpr half FromBits(std::uint16_t bits) noexcept {
    half h{};
    h.bits_ = bits;
    return h;
  }

  constexpr std::uint16_t bits() const noexcept { return bits_; }

 private:
  std::uint16_t bits_;
};

static_assert(sizeof(half) == 2, "half must be exactly 16 bits");
static_assert(std::is_trivially_copyable_v<half>, "half is copied as raw bytes");
static_assert(std::is_trivially_default_constructible_v<half>,
              "large half buffers must not be zero-filled on construction");

}  // namespace half_float

namespace lumo::image {

// Row conversions, element for element identical to the scalar ones above.
// They use the CPU's half conversion instructions when available. src and dst
// must not overlap.
LUMO_IMAGE_API void HalfToFloat(const half_float::half* src, float* dst, std::size_t count) noexcept;
LUMO_IMAGE_API void FloatToHalf(const float* src, half_float::half* dst, std::size_t count) noexcept;

namespace detail {

// Back ends of the row conversions, for tests and benchmarks that need to pin
// one. Asking for an unsupported back end runs the portable one.
enum class HalfPath { Portable, F16c };

LUMO_IMAGE_API bool HalfPathSupported(HalfPath path) noexcept;
LUMO_IMAGE_API void HalfToFloat(HalfPath path, const half_float::half* src, float* dst, std::size_t count) noexcept;
LUMO_IMAGE_API void FloatToHalf(HalfPath path, const float* src, half_float::half* dst, std::size_t count) noexcept;

}  // namespace detail

}  // namespace lumo::image
