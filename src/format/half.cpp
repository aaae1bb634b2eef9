// Row conversions between half and float. The x86 half conversion
// instructions are picked once at run time, so the library needs no -march
// flags and still runs on CPUs without them.
#include "lumo/image/half.h"

#include <cstring>

#if (defined(__x86_64__) || defined(__i386__)) && defined(__GNUC__)
#  define LMIMAGE_HALF_X86 1
#  include <cpuid.h>
#  include <immintrin.h>
#else
#  define LMIMAGE_HALF_X86 0
#endif

namespace lumo::image {
namespace {

using half_float::half;

void HalfToFloatPortable(const half* src, float* dst, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t x = half_float::detail::HalfBitsToFloatBits(src[i].bits());
    std::memcpy(dst + i, &x, sizeof x);
  }
}

void FloatToHalfPortable(const float* src, half* dst, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) {
    std::uint32_t x;
    std::memcpy(&x, src + i, sizeof x);
    dst[i] = half::FromBits(half_float::detail::FloatBitsToHalfBits(x));
  }
}

#if LMIMAGE_HALF_X86

// The instructions match the portable conversions bit for bit: both quiet a
// signalling NaN and keep its top payload bits, rounding is fixed to nearest
// even by the immediate rather than taken from MXCSR, and half subnormals are
// produced and read regardless of MXCSR flush-to-zero / denormals-are-zero
// (float subnormals become signed zero either way).

__attribute__((target("f16c,avx"))) void HalfToFloatF16c(const half* src, float* dst, std::size_t count) noexcept {
  std::size_t i = 0;
  for (; i + 16 <= count; i += 16) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i + 8));
    _mm256_storeu_ps(dst + i, _mm256_cvtph_ps(a));
    _mm256_storeu_ps(dst + i + 8, _mm256_cvtph_ps(b));
  }
  for (; i + 8 <= count; i += 8) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    _mm256_storeu_ps(dst + i, _mm256_cvtph_ps(a));
  }
  if (i < count) {
    // Tail through a zero-padded block so it takes the same instruction.
    const std::size_t rest = count - i;
    alignas(16) std::uint16_t in[8] = {};
    alignas(32) float out[8];
    std::memcpy(in, src + i, rest * sizeof(half));
    _mm256_store_ps(out, _mm256_cvtph_ps(_mm_load_si128(reinterpret_cast<const __m128i*>(in))));
    std::memcpy(dst + i, out, rest * sizeof(float));
  }
}

__attribute__((target("f16c,avx"))) void FloatToHalfF16c(const float* src, half* dst, std::size_t count) noexcept {
  constexpr int kRound = _MM_FROUND_TO_NEAREST_INT;
  std::size_t i = 0;
  for (; i + 16 <= count; i += 16) {
    const __m128i a = _mm256_cvtps_ph(_mm256_loadu_ps(src + i), kRound);
    const __m128i b = _mm256_cvtps_ph(_mm256_loadu_ps(src + i + 8), kRound);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), a);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i + 8), b);
  }
  for (; i + 8 <= count; i += 8) {
    const __m128i a = _mm256_cvtps_ph(_mm256_loadu_ps(src + i), kRound);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), a);
  }
  if (i < count) {
    const std::size_t rest = count - i;
    alignas(32) float in[8] = {};
    alignas(16) std::uint16_t out[8];
    std::memcpy(in, src + i, rest * sizeof(float));
    _mm_store_si128(reinterpret_cast<__m128i*>(out), _mm256_cvtps_ph(_mm256_load_ps(in), kRound));
    std::memcpy(dst + i, out, rest * sizeof(half));
  }
}

bool DetectF16c() noexcept {
#  if defined(__F16C__) && defined(__AVX__)
  return true;
#  else
  unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
  if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx)) return false;
  const unsigned need = bit_OSXSAVE | bit_AVX | bit_F16C;
  if ((ecx & need) != need) return false;
  // The OS must also save the SSE and AVX register state on context switches.
  unsigned xcr0 = 0, xcr0_high = 0;
  __asm__("xgetbv" : "=a"(xcr0), "=d"(xcr0_high) : "c"(0));
  return (xcr0 & 0x6u) == 0x6u;
#  endif
}

#endif  // LMIMAGE_HALF_X86

bool HasF16c() noexcept {
#if LMIMAGE_HALF_X86
  static const bool has = DetectF16c();
  return has;
#else
  return false;
#endif
}

}  // namespace

void HalfToFloat(const half* src, float* dst, std::size_t count) noexcept {
#if LMIMAGE_HALF_X86
  if (HasF16c()) return HalfToFloatF16c(src, dst, count);
#endif
  HalfToFloatPortable(src, dst, count);
}

void FloatToHalf(const float* src, half* dst, std::size_t count) noexcept {
#if LMIMAGE_HALF_X86
  if (HasF16c()) return FloatToHalfF16c(src, dst, count);
#endif
  FloatToHalfPortable(src, dst, count);
}

namespace detail {

bool HalfPathSupported(HalfPath path) noexcept { return path == HalfPath::Portable || HasF16c(); }

void HalfToFloat(HalfPath path, const half* src, float* dst, std::size_t count) noexcept {
#if LMIMAGE_HALF_X86
  if (path == HalfPath::F16c && HasF16c()) return HalfToFloatF16c(src, dst, count);
#endif
  static_cast<void>(path);
  HalfToFloatPortable(src, dst, count);
}

void FloatToHalf(HalfPath path, const float* src, half* dst, std::size_t count) noexcept {
#if LMIMAGE_HALF_X86
  if (path == HalfPath::F16c && HasF16c()) return FloatToHalfF16c(src, dst, count);
#endif
  static_cast<void>(path);
  FloatToHalfPortable(src, dst, count);
}

}  // namespace detail
}  // namespace lumo::image
