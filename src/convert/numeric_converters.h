// Converters that change the numeric type of channels: 8 <-> 16 bits, integers
// <-> half and single floats, two's complement <-> offset binary, and the
// 0..255 ("u_") float scale.
//
// Each class's Convert walks the rows once and hands each row to one of the
// row kernels below. The kernels are inline so that benchmarks can run them on
// raw row pointers; they take (source row, destination row, width in pixels),
// accept any alignment, and must not be given overlapping rows.
//
// Exact arithmetic (these are the results callers rely on bit for bit):
//   byte -> float     (float)((double)b / 255.0)
//   float -> byte     NaN -> 0, +-inf -> 1.0, x = f * 255.0f, clamp to [0, 255],
//                     truncate; the 16-bit target does the same with 65535
//   16-bit -> half    half((float)u / 65535.0f)
//   half <-> float    half_float::half, round to nearest even
//   signed sources    the top bit is flipped first (two's complement -> offset)
//   16 -> 8 bits      the high byte; 8 -> 16 bits b * 257
// Pixels are little-endian in memory and elements are read natively.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>

#include "data/unaligned.h"
#include "lumo/image/converters.h"
#include "lumo/image/half.h"

#if defined(__BYTE_ORDER__) && defined(__ORDER_LITTLE_ENDIAN__)
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "pixel elements are read natively as little-endian");
#endif

namespace lumo::image {

class SurfaceData;

namespace numeric {

using Byte = unsigned char;
using half_float::half;

// Elements per pass of the kernels that stage values in a stack buffer: small
// enough to stay in L1, large enough that the bulk half calls are cheap.
constexpr std::size_t kChunk = 512;

using detail::Load;
using detail::Store;

inline std::uint32_t FloatBits(float f) noexcept {
  std::uint32_t u;
  std::memcpy(&u, &f, sizeof u);
  return u;
}

inline float BitsFloat(std::uint32_t u) noexcept {
  float f;
  std::memcpy(&f, &u, sizeof f);
  return f;
}

// NaN -> +0, +-inf -> 1.0, anything else unchanged. Masks from integer
// compares on the magnitude (which fits in a signed int): loops over this and
// the clamps below vectorise, which they do not with selects.
inline float FiniteOrOne(float f) noexcept {
  const std::uint32_t bits = FloatBits(f);
  const std::int32_t magnitude = static_cast<std::int32_t>(bits & 0x7fffffffu);
  const std::uint32_t nan = 0u - static_cast<std::uint32_t>(magnitude > 0x7f800000);
  const std::uint32_t inf = 0u - static_cast<std::uint32_t>(magnitude == 0x7f800000);
  return BitsFloat((bits & ~(nan | inf)) | (0x3f800000u & inf));
}

// Float to an unsigned integer of range [0, Max]: sanitised, scaled in single
// precision, clamped, truncated toward zero.
template <int Max>
inline std::int32_t FloatToUnorm(float f) noexcept {
  float x = FiniteOrOne(f) * static_cast<float>(Max);
  x = x > static_cast<float>(Max) ? static_cast<float>(Max) : x;
  x = x < 0.0f ? 0.0f : x;
  return static_cast<std::int32_t>(x);
}

// Bytes to float. Float division gives the same value as dividing in double
// and rounding to float for every byte (checked at compile time in the .cpp),
// and it vectorises.
constexpr float ByteToFloat(Byte b) noexcept { return static_cast<float>(b) / 255.0f; }

// ---- Bulk half <-> float on n <= kChunk elements: the half side may have
// any alignment, the float side must be aligned ----

inline void LoadHalves(const Byte* src, float* out, std::size_t n) noexcept {
  if (reinterpret_cast<std::uintptr_t>(src) % alignof(half) == 0) {
    ::lumo::image::HalfToFloat(reinterpret_cast<const half*>(src), out, n);
  } else {
    half staged[kChunk];
    std::memcpy(staged, src, n * sizeof(half));
    ::lumo::image::HalfToFloat(staged, out, n);
  }
}

inline void StoreHalves(const float* in, Byte* dst, std::size_t n) noexcept {
  if (reinterpret_cast<std::uintptr_t>(dst) % alignof(half) == 0) {
    ::lumo::image::FloatToHalf(in, reinterpret_cast<half*>(dst), n);
  } else {
    half staged[kChunk];
    ::lumo::image::FloatToHalf(in, staged, n);
    std::memcpy(dst, staged, n * sizeof(half));
  }
}

// True when any of n halves is an infinity or NaN (exponent all ones). A max
// over the magnitudes, which fit in int16, vectorises with plain SSE2.
inline bool AnyHalfNonFinite(const Byte* src, std::size_t n) noexcept {
  std::int16_t top = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const auto magnitude = static_cast<std::int16_t>(Load<std::uint16_t>(src + 2 * i) & 0x7fffu);
    top = magnitude > top ? magnitude : top;
  }
  return top >= 0x7c00;
}

inline void MakeFiniteOrOne(float* values, std::size_t n) noexcept {
  for (std::size_t i = 0; i < n; ++i) values[i] = FiniteOrOne(values[i]);
}

// ---- Element loops (n elements) ----

inline void BytesToShorts(const Byte* src, Byte* dst, std::size_t n) noexcept {
  for (std::size_t i = 0; i < n; ++i) Store<std::uint16_t>(dst + 2 * i, static_cast<std::uint16_t>(src[i] * 257u));
}

// High byte of each 16-bit element; flip is 0x80 for signed sources, which is
// the offset to unsigned applied before taking the high byte.
inline void ShortsToHighBytes(const Byte* src, Byte* dst, std::size_t n, Byte flip) noexcept {
  for (std::size_t i = 0; i < n; ++i) dst[i] = static_cast<Byte>(src[2 * i + 1] ^ flip);
}

// flip is 0x8000 for signed sources.
inline void ShortsToHalves(const Byte* src, Byte* dst, std::size_t n, std::uint16_t flip) noexcept {
  alignas(32) float staged[kChunk];
  for (std::size_t i = 0; i < n; i += kChunk) {
    const std::size_t m = std::min(kChunk, n - i);
    const Byte* s = src + 2 * i;
    for (std::size_t k = 0; k < m; ++k) {
      const auto u = static_cast<std::uint16_t>(Load<std::uint16_t>(s + 2 * k) ^ flip);
      staged[k] = static_cast<float>(u) / 65535.0f;
    }
    StoreHalves(staged, dst + 2 * i, m);
  }
}

inline void HalvesToShorts(const Byte* src, Byte* dst, std::size_t n) noexcept {
  alignas(32) float staged[kChunk];
  for (std::size_t i = 0; i < n; i += kChunk) {
    const std::size_t m = std::min(kChunk, n - i);
    LoadHalves(src + 2 * i, staged, m);
    Byte* d = dst + 2 * i;
    for (std::size_t k = 0; k < m; ++k) {
      Store<std::uint16_t>(d + 2 * k, static_cast<std::uint16_t>(FloatToUnorm<65535>(staged[k])));
    }
  }
}

inline void HalvesToFloats(const Byte* src, Byte* dst, std::size_t n) noexcept {
  if (reinterpret_cast<std::uintptr_t>(dst) % alignof(float) == 0) {
    for (std::size_t i = 0; i < n; i += kChunk) {
      LoadHalves(src + 2 * i, reinterpret_cast<float*>(dst + 4 * i), std::min(kChunk, n - i));
    }
    return;
  }
  alignas(32) float staged[kChunk];
  for (std::size_t i = 0; i < n; i += kChunk) {
    const std::size_t m = std::min(kChunk, n - i);
    LoadHalves(src + 2 * i, staged, m);
    std::memcpy(dst + 4 * i, staged, m * sizeof(float));
  }
}

inline void FloatsToHalves(const Byte* src, Byte* dst, std::size_t n) noexcept {
  if (reinterpret_cast<std::uintptr_t>(src) % alignof(float) == 0) {
    for (std::size_t i = 0; i < n; i += kChunk) {
      StoreHalves(reinterpret_cast<const float*>(src + 4 * i), dst + 2 * i, std::min(kChunk, n - i));
    }
    return;
  }
  alignas(32) float staged[kChunk];
  for (std::size_t i = 0; i < n; i += kChunk) {
    const std::size_t m = std::min(kChunk, n - i);
    std::memcpy(staged, src + 4 * i, m * sizeof(float));
    StoreHalves(staged, dst + 2 * i, m);
  }
}

// Half to float with NaN -> 0 and +-inf -> 1.0. Converts straight into the
// destination and repairs a chunk only when its halves hold a non-finite
// value, which costs a read of the (cached) halves instead of a second pass
// over the floats.
inline void HalvesToFiniteFloats(const Byte* src, Byte* dst, std::size_t n) noexcept {
  const bool aligned = reinterpret_cast<std::uintptr_t>(dst) % alignof(float) == 0;
  alignas(32) float staged[kChunk];
  for (std::size_t i = 0; i < n; i += kChunk) {
    const std::size_t m = std::min(kChunk, n - i);
    const Byte* s = src + 2 * i;
    float* out = aligned ? reinterpret_cast<float*>(dst + 4 * i) : staged;
    LoadHalves(s, out, m);
    if (AnyHalfNonFinite(s, m)) MakeFiniteOrOne(out, m);
    if (!aligned) std::memcpy(dst + 4 * i, staged, m * sizeof(float));
  }
}

// NaN -> 0 and +-inf -> 1.0 before rounding to half; finite values too large
// for a half still become infinity.
inline void FiniteFloatsToHalves(const Byte* src, Byte* dst, std::size_t n) noexcept {
  alignas(32) float staged[kChunk];
  for (std::size_t i = 0; i < n; i += kChunk) {
    const std::size_t m = std::min(kChunk, n - i);
    const Byte* s = src + 4 * i;
    for (std::size_t k = 0; k < m; ++k) staged[k] = FiniteOrOne(Load<float>(s + 4 * k));
    StoreHalves(staged, dst + 2 * i, m);
  }
}

inline void BytesToFloats(const Byte* src, Byte* dst, std::size_t n) noexcept {
  for (std::size_t i = 0; i < n; ++i) Store<float>(dst + 4 * i, ByteToFloat(src[i]));
}

inline void BytesToHalves(const Byte* src, Byte* dst, std::size_t n) noexcept {
  alignas(32) float staged[kChunk];
  for (std::size_t i = 0; i < n; i += kChunk) {
    const std::size_t m = std::min(kChunk, n - i);
    for (std::size_t k = 0; k < m; ++k) staged[k] = ByteToFloat(src[i + k]);
    StoreHalves(staged, dst + 2 * i, m);
  }
}

inline void FloatsToBytes(const Byte* src, Byte* dst, std::size_t n) noexcept {
  for (std::size_t i = 0; i < n; ++i) dst[i] = static_cast<Byte>(FloatToUnorm<255>(Load<float>(src + 4 * i)));
}

inline void HalvesToBytes(const Byte* src, Byte* dst, std::size_t n) noexcept {
  alignas(32) float staged[kChunk];
  for (std::size_t i = 0; i < n; i += kChunk) {
    const std::size_t m = std::min(kChunk, n - i);
    LoadHalves(src + 2 * i, staged, m);
    Byte* d = dst + i;
    for (std::size_t k = 0; k < m; ++k) d[k] = static_cast<Byte>(FloatToUnorm<255>(staged[k]));
  }
}

// Multiplies (Up) or divides by 255 in single precision.
template <bool Up>
inline float Rescale255(float f) noexcept {
  return Up ? f * 255.0f : f / 255.0f;
}

template <bool Up>
inline void RescaleFloats(const Byte* src, Byte* dst, std::size_t n) noexcept {
  for (std::size_t i = 0; i < n; ++i) Store<float>(dst + 4 * i, Rescale255<Up>(Load<float>(src + 4 * i)));
}

template <bool Up>
inline void RescaleHalves(const Byte* src, Byte* dst, std::size_t n) noexcept {
  alignas(32) float staged[kChunk];
  for (std::size_t i = 0; i < n; i += kChunk) {
    const std::size_t m = std::min(kChunk, n - i);
    LoadHalves(src + 2 * i, staged, m);
    for (std::size_t k = 0; k < m; ++k) staged[k] = Rescale255<Up>(staged[k]);
    StoreHalves(staged, dst + 2 * i, m);
  }
}

// ---- Row kernels, one per converter: (source row, destination row, pixels) ----

template <int Count>
inline void RowUByteToUShort(const Byte* src, Byte* dst, std::size_t width) noexcept {
  BytesToShorts(src, dst, width * Count);
}

template <bool SignedSource>
inline void RowShortToUbyte(const Byte* src, Byte* dst, std::size_t width) noexcept {
  ShortsToHighBytes(src, dst, width, SignedSource ? 0x80 : 0);
}

inline void Row3ShortTo3Byte(const Byte* src, Byte* dst, std::size_t width) noexcept {
  ShortsToHighBytes(src, dst, width * 3, 0);
}

inline void Row4ShortTo4Byte(const Byte* src, Byte* dst, std::size_t width) noexcept {
  ShortsToHighBytes(src, dst, width * 4, 0);
}

template <bool SignedSource>
inline void Row2ShortTo3Ubyte(const Byte* src, Byte* dst, std::size_t width) noexcept {
  constexpr Byte flip = SignedSource ? 0x80 : 0;
  for (std::size_t x = 0; x < width; ++x) {
    dst[3 * x] = static_cast<Byte>(src[4 * x + 1] ^ flip);
    dst[3 * x + 1] = static_cast<Byte>(src[4 * x + 3] ^ flip);
    dst[3 * x + 2] = 255;
  }
}

template <bool SignedTarget>
inline void Row3UbyteTo2Short(const Byte* src, Byte* dst, std::size_t width) noexcept {
  constexpr Byte flip = SignedTarget ? 0x80 : 0;
  for (std::size_t x = 0; x < width; ++x) {
    const std::uint32_t low = static_cast<Byte>(src[3 * x] ^ flip);
    const std::uint32_t high = static_cast<Byte>(src[3 * x + 1] ^ flip);
    Store<std::uint32_t>(dst + 4 * x, low << 8 | high << 24);
  }
}

template <bool SignedSource>
inline void RowShortToHalf(const Byte* src, Byte* dst, std::size_t width) noexcept {
  ShortsToHalves(src, dst, width, SignedSource ? 0x8000 : 0);
}

template <bool SignedSource>
inline void Row2ShortTo2Half(const Byte* src, Byte* dst, std::size_t width) noexcept {
  ShortsToHalves(src, dst, width * 2, SignedSource ? 0x8000 : 0);
}

inline void Row3ShortTo3Half(const Byte* src, Byte* dst, std::size_t width) noexcept {
  ShortsToHalves(src, dst, width * 3, 0);
}

inline void RowHalfToShort(const Byte* src, Byte* dst, std::size_t width) noexcept { HalvesToShorts(src, dst, width); }

inline void Row3HalfTo3Short(const Byte* src, Byte* dst, std::size_t width) noexcept {
  HalvesToShorts(src, dst, width * 3);
}

inline void RowHalfToFloat(const Byte* src, Byte* dst, std::size_t width) noexcept { HalvesToFloats(src, dst, width); }

inline void RowFloatToHalf(const Byte* src, Byte* dst, std::size_t width) noexcept { FloatsToHalves(src, dst, width); }

inline void Row4HalfTo4Float(const Byte* src, Byte* dst, std::size_t width) noexcept {
  HalvesToFiniteFloats(src, dst, width * 4);
}

inline void Row4FloatTo4Half(const Byte* src, Byte* dst, std::size_t width) noexcept {
  FiniteFloatsToHalves(src, dst, width * 4);
}

// F is the target element type.
template <typename F>
inline void Row4ByteTo4Float(const Byte* src, Byte* dst, std::size_t width) noexcept {
  if constexpr (std::is_same_v<F, half>) {
    BytesToHalves(src, dst, width * 4);
  } else {
    static_assert(std::is_same_v<F, float>, "float or half_float::half");
    BytesToFloats(src, dst, width * 4);
  }
}

// F is the source element type.
template <typename F>
inline void Row4FloatTo4Byte(const Byte* src, Byte* dst, std::size_t width) noexcept {
  if constexpr (std::is_same_v<F, half>) {
    HalvesToBytes(src, dst, width * 4);
  } else {
    static_assert(std::is_same_v<F, float>, "float or half_float::half");
    FloatsToBytes(src, dst, width * 4);
  }
}

inline void Row3FloatTo4Float(const Byte* src, Byte* dst, std::size_t width) noexcept {
  for (std::size_t x = 0; x < width; ++x) {
    for (std::size_t c = 0; c < 3; ++c) Store<float>(dst + 16 * x + 4 * c, Load<float>(src + 12 * x + 4 * c));
    Store<float>(dst + 16 * x + 12, 1.0f);
  }
}

inline void Row4FloatTo3Float(const Byte* src, Byte* dst, std::size_t width) noexcept {
  if (width == 0) return;
  // Whole 16-byte pixels; the fourth float lands where the next pixel goes
  // and is overwritten by it.
  for (std::size_t x = 0; x + 1 < width; ++x) std::memcpy(dst + 12 * x, src + 16 * x, 16);
  std::memcpy(dst + 12 * (width - 1), src + 16 * (width - 1), 12);
}

// U is the unsigned element type; its top bit is inverted in every element.
template <typename U, int Count>
inline void RowSigned(const Byte* src, Byte* dst, std::size_t width) noexcept {
  const std::size_t n = width * Count;
  if constexpr (std::is_same_v<U, unsigned short>) {
    for (std::size_t i = 0; i < n; ++i) {
      Store<std::uint16_t>(dst + 2 * i, static_cast<std::uint16_t>(Load<std::uint16_t>(src + 2 * i) ^ 0x8000u));
    }
  } else {
    static_assert(std::is_same_v<U, unsigned char>, "8 or 16-bit elements");
    for (std::size_t i = 0; i < n; ++i) dst[i] = static_cast<Byte>(src[i] ^ 0x80u);
  }
}

template <typename F, bool Up, int Count>
inline void RowRescale255(const Byte* src, Byte* dst, std::size_t width) noexcept {
  if constexpr (std::is_same_v<F, half>) {
    RescaleHalves<Up>(src, dst, width * Count);
  } else {
    static_assert(std::is_same_v<F, float>, "float or half_float::half");
    RescaleFloats<Up>(src, dst, width * Count);
  }
}

template <typename F, int Count>
inline void RowFloatToUnormFloat(const Byte* src, Byte* dst, std::size_t width) noexcept {
  RowRescale255<F, true, Count>(src, dst, width);
}

template <typename F, int Count>
inline void RowUnormFloatToFloat(const Byte* src, Byte* dst, std::size_t width) noexcept {
  RowRescale255<F, false, Count>(src, dst, width);
}

}  // namespace numeric

// ---- Converters ----
// Each reads pixels of a fixed size and writes pixels of a fixed size. Convert
// returns SurfaceData::Null when the target's pixel size differs from the one
// the class writes (an invalid target included) or when the source's rows are
// too short for `width` source pixels; it does not otherwise check formats.

template <int Count>
class ConverterUByteToUShort : public Converter {
  static_assert(Count >= 1 && Count <= 4, "1 to 4 channels");

 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

class ConverterShortToUbyte : public Converter {
 public:
  explicit ConverterShortToUbyte(bool signedSource) : signed_source_(signedSource) {}
  bool SignedSource() const { return signed_source_; }
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;

 private:
  bool signed_source_;
};

class ConverterShortToHalf : public Converter {
 public:
  explicit ConverterShortToHalf(bool signedSource) : signed_source_(signedSource) {}
  bool SignedSource() const { return signed_source_; }
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;

 private:
  bool signed_source_;
};

class Converter2ShortTo3Ubyte : public Converter {
 public:
  explicit Converter2ShortTo3Ubyte(bool signedSource) : signed_source_(signedSource) {}
  bool SignedSource() const { return signed_source_; }
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;

 private:
  bool signed_source_;
};

class Converter2ShortTo2Half : public Converter {
 public:
  explicit Converter2ShortTo2Half(bool signedSource) : signed_source_(signedSource) {}
  bool SignedSource() const { return signed_source_; }
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;

 private:
  bool signed_source_;
};

class Converter3UbyteTo2Short : public Converter {
 public:
  explicit Converter3UbyteTo2Short(bool signedTarget) : signed_target_(signedTarget) {}
  bool SignedTarget() const { return signed_target_; }
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;

 private:
  bool signed_target_;
};

class ConverterHalfToShort : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

class ConverterHalfToFloat : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

class ConverterFloatToHalf : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

class Converter3HalfTo3Short : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

class Converter3ShortTo3Half : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

class Converter3ShortTo3Byte : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

class Converter4ShortTo4Byte : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

// F: float or half_float::half, the element type of the target.
template <typename F>
class Converter4ByteTo4Float : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

// F: float or half_float::half, the element type of the source.
template <typename F>
class Converter4FloatTo4Byte : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

class Converter4HalfTo4Float : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

class Converter4FloatTo4Half : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

class Converter3FloatTo4Float : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

class Converter4FloatTo3Float : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

// Both directions between S (two's complement) and U (offset binary).
template <typename S, typename U, int Count>
class ConverterSigned : public Converter {
  static_assert(sizeof(S) == sizeof(U), "matching element sizes");

 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

template <typename F, int Count>
class ConverterFloatToUnormFloat : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

template <typename F, int Count>
class ConverterUnormFloatToFloat : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

// The instances that exist; their members are compiled in numeric_converters.cpp.
extern template class ConverterUByteToUShort<1>;
extern template class ConverterUByteToUShort<2>;
extern template class ConverterUByteToUShort<3>;
extern template class ConverterUByteToUShort<4>;
extern template class Converter4ByteTo4Float<float>;
extern template class Converter4ByteTo4Float<half_float::half>;
extern template class Converter4FloatTo4Byte<float>;
extern template class Converter4FloatTo4Byte<half_float::half>;
extern template class ConverterSigned<signed char, unsigned char, 1>;
extern template class ConverterSigned<signed char, unsigned char, 2>;
extern template class ConverterSigned<signed char, unsigned char, 4>;
extern template class ConverterSigned<short, unsigned short, 1>;
extern template class ConverterSigned<short, unsigned short, 2>;
extern template class ConverterSigned<short, unsigned short, 4>;
extern template class ConverterFloatToUnormFloat<float, 4>;
extern template class ConverterFloatToUnormFloat<half_float::half, 4>;
extern template class ConverterUnormFloatToFloat<float, 4>;
extern template class ConverterUnormFloatToFloat<half_float::half, 4>;

}  // namespace lumo::image
