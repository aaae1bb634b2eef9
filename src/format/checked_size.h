// Size arithmetic that reports overflow instead of wrapping. Every size,
// offset and count computed from untrusted values (file headers, caller
// arguments) goes through these; the compiler builtins live here only.
#pragma once

#include <cstdint>

namespace lumo::image::checked {

// Each returns true when the exact result does not fit in *out; *out is then
// unspecified. Operand and result types may differ: the check is on the
// mathematical value.
template <typename A, typename B, typename R>
constexpr bool AddOverflows(A a, B b, R* out) {
  return __builtin_add_overflow(a, b, out);
}

template <typename A, typename B, typename R>
constexpr bool MulOverflows(A a, B b, R* out) {
  return __builtin_mul_overflow(a, b, out);
}

// a * b + c.
template <typename A, typename B, typename C, typename R>
constexpr bool MulAddOverflows(A a, B b, C c, R* out) {
  R product{};
  return __builtin_mul_overflow(a, b, &product) || __builtin_add_overflow(product, c, out);
}

// Whether the range [offset, offset + n) lies inside a buffer of `size` bytes.
constexpr bool RangeFits(std::uint64_t offset, std::uint64_t n, std::uint64_t size) {
  return offset <= size && n <= size - offset;
}

}  // namespace lumo::image::checked
