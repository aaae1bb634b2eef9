// Converters that move, widen or relabel whole channels: selection and
// reordering, alpha added or dropped, packed 16-bit formats widened to bytes,
// gray, sub-byte alpha, linear <-> sRGB and relabelling of compressed data.
//
// Each converter picks its row kernel once per Convert call; the kernels are
// exposed here so that tests and benchmarks can run them on raw rows. Kernels
// never read or write outside `width` pixels of the rows they are given.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>

#include "convert/converter_frame.h"
#include "data/unaligned.h"
#include "lumo/image/converters.h"
#include "lumo/image/formats.h"
#include "lumo/image/surface_data.h"

#if (defined(__x86_64__) || defined(__i386__)) && defined(__GNUC__)
#  define LMIMAGE_CHANNEL_X86 1
#  include <immintrin.h>
#  define LMIMAGE_CHANNEL_TARGET(isa) __attribute__((target(isa)))
#else
#  define LMIMAGE_CHANNEL_X86 0
#endif

namespace lumo::image {
namespace detail {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "the word-wise kernels read and write pixels as little-endian words");

using RowFn = void (*)(const unsigned char* src, unsigned char* dst, std::size_t width);

// ---------------------------------------------------------------------------
// Instruction set of the running CPU, detected once. The library is built for
// baseline x86-64, so faster paths are chosen at run time.

enum class SimdLevel : int { Scalar = 0, Ssse3 = 1, Avx2 = 2, Avx512Vbmi = 3 };

inline SimdLevel DetectSimdLevel() noexcept {
#if LMIMAGE_CHANNEL_X86
  __builtin_cpu_init();
  // Each level implies the ones below it on every CPU that has it.
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vbmi")) {
    return SimdLevel::Avx512Vbmi;
  }
  if (__builtin_cpu_supports("avx2")) return SimdLevel::Avx2;
  if (__builtin_cpu_supports("ssse3")) return SimdLevel::Ssse3;
#endif
  return SimdLevel::Scalar;
}

inline SimdLevel CpuSimdLevel() noexcept {
  static const SimdLevel level = DetectSimdLevel();
  return level;
}

inline void RowCopy(const unsigned char* s, unsigned char* d, std::size_t w, std::size_t pixel_bytes) noexcept {
  if (w != 0) std::memcpy(d, s, w * pixel_bytes);
}

// ---------------------------------------------------------------------------
// Byte shuffles: every converter that only moves bytes within a pixel (channel
// selection, swaps, redirection, alpha added or dropped, replication, byte
// reversal). Destination byte k of a pixel is source byte From[k], or 0xFF for
// kByteFF, or 0 for kByte00.

inline constexpr int kByteFF = -1;
inline constexpr int kByte00 = -2;

struct ShuffleMasks {
  unsigned char shuffle[16];  // pshufb control; 0x80 yields zero
  unsigned char fill[16];     // OR-ed in afterwards: the 0xFF constants
};

template <int Src, int Dst, int... From>
constexpr ShuffleMasks MakeShuffleMasks() {
  constexpr int from[] = {From...};
  constexpr int step = 16 / (Src > Dst ? Src : Dst);
  ShuffleMasks m{};
  for (int i = 0; i < 16; ++i) m.shuffle[i] = 0x80;
  for (int p = 0; p < step; ++p) {
    for (int k = 0; k < Dst; ++k) {
      const int i = p * Dst + k;
      if (from[k] >= 0) m.shuffle[i] = static_cast<unsigned char>(p * Src + from[k]);
      if (from[k] == kByteFF) m.fill[i] = 0xFF;
    }
  }
  return m;
}

template <int Src, int Dst, int... From>
struct ByteShuffle {
  static_assert(Src >= 1 && Src <= 16 && Dst >= 1 && Dst <= 16, "a pixel must fit one vector");
  static_assert(sizeof...(From) == static_cast<std::size_t>(Dst), "one source per destination byte");
  static_assert(((From >= kByte00 && From < Src) && ...), "source byte out of the pixel");

  static void Pixel(const unsigned char* s, unsigned char* d) noexcept {
    constexpr int from[] = {From...};
    for (int k = 0; k < Dst; ++k) {
      d[k] = from[k] >= 0 ? s[from[k]] : (from[k] == kByteFF ? 0xFF : 0x00);
    }
  }

  // Plain loop; GCC vectorises the 4-byte forms with SSE2 on its own.
  static void Scalar(const unsigned char* s, unsigned char* d, std::size_t w) noexcept {
    for (std::size_t x = 0; x < w; ++x) Pixel(s + Src * x, d + Dst * x);
  }

#if LMIMAGE_CHANNEL_X86
  // Whole pixels per 16-byte vector, and the pixels that must remain so that a
  // full 16-byte load and store stay inside the row.
  static constexpr int kStep = 16 / (Src > Dst ? Src : Dst);
  static constexpr std::size_t kSpan = static_cast<std::size_t>(std::max((16 + Src - 1) / Src, (16 + Dst - 1) / Dst));

  LMIMAGE_CHANNEL_TARGET("ssse3")
  static void Ssse3(const unsigned char* s, unsigned char* d, std::size_t w) noexcept {
    static constexpr ShuffleMasks kMasks = MakeShuffleMasks<Src, Dst, From...>();
    const __m128i shuffle = _mm_loadu_si128(reinterpret_cast<const __m128i*>(kMasks.shuffle));
    const __m128i fill = _mm_loadu_si128(reinterpret_cast<const __m128i*>(kMasks.fill));
    std::size_t x = 0;
    // Each store writes kStep pixels and some bytes beyond them, which the
    // next step (or the tail) overwrites.
    for (; x + kSpan <= w; x += kStep) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + Src * x));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d + Dst * x), _mm_or_si128(_mm_shuffle_epi8(v, shuffle), fill));
    }
    for (; x < w; ++x) Pixel(s + Src * x, d + Dst * x);
  }
#endif

  static RowFn Pick(SimdLevel level) noexcept {
#if LMIMAGE_CHANNEL_X86
    if (level >= SimdLevel::Ssse3) return &Ssse3;
#endif
    (void)level;
    return &Scalar;
  }

  static void Row(const unsigned char* s, unsigned char* d, std::size_t w) noexcept { Pick(CpuSimdLevel())(s, d, w); }
};

// Named shuffles of the registered conversions (R8G8B8 holds B, G, R in bytes 0-2).
// ConverterMSBAlpha: R8G8B8 -> A8R8G8B8 (and the swapped form, R8G8B8 -> A8B8G8R8).
using ShuffleAddAlpha888 = ByteShuffle<3, 4, 0, 1, 2, kByteFF>;
using ShuffleAddAlpha888Swap = ByteShuffle<3, 4, 2, 1, 0, kByteFF>;
// ConverterStripMSBAlpha.
using ShuffleStripAlpha8888 = ByteShuffle<4, 3, 0, 1, 2>;
using ShuffleStripAlpha8888Swap = ByteShuffle<4, 3, 2, 1, 0>;
// ConverterSwapChannel (3; 0, 2) and (4; 1, 3); the latter is also the
// redirection A8R8G8B8 -> X8B8G8R8.
using ShuffleSwap888_0_2 = ByteShuffle<3, 3, 2, 1, 0>;
using ShuffleSwap8888_1_3 = ByteShuffle<4, 4, 2, 1, 0, 3>;
// ConverterRedirectChannel X8R8G8B8 -> A8R8G8B8, and with R and B exchanged.
using ShuffleSetAlpha8888 = ByteShuffle<4, 4, 0, 1, 2, kByteFF>;
using ShuffleSetAlpha8888Swap = ByteShuffle<4, 4, 2, 1, 0, kByteFF>;
// ConverterRevert8888.
using ShuffleRevert8888 = ByteShuffle<4, 4, 3, 2, 1, 0>;
// ConverterSwapChannelOf16BitsChannel (2; 0, 1), (3; 0, 2), (4; 1, 3).
using ShuffleSwap16_2_0_1 = ByteShuffle<4, 4, 2, 3, 0, 1>;
using ShuffleSwap16_3_0_2 = ByteShuffle<6, 6, 4, 5, 2, 3, 0, 1>;
using ShuffleSwap16_4_1_3 = ByteShuffle<8, 8, 4, 5, 2, 3, 0, 1, 6, 7>;
// Converter8To888, Converter8To8888, ConverterA8X8ToA8X8X8X8.
using ShuffleReplicate8To888 = ByteShuffle<1, 3, 0, 0, 0>;
using ShuffleReplicate8To8888 = ByteShuffle<1, 4, 0, 0, 0, 0>;
using ShuffleA8X8ToA8X8X8X8 = ByteShuffle<2, 4, 0, 0, 0, 1>;

// Row kernels of the benchmarked pairs.
inline void RowAddAlpha888(const unsigned char* s, unsigned char* d, std::size_t w) noexcept {
  ShuffleAddAlpha888::Row(s, d, w);
}
inline void RowSwap8888_1_3(const unsigned char* s, unsigned char* d, std::size_t w) noexcept {
  ShuffleSwap8888_1_3::Row(s, d, w);
}

// Channel selection as shuffles: component i of a Count-element pixel is
// element Count - 1 - i.
template <typename T, int Index, int Count>
struct SelectShuffle;
template <int Index, int Count>
struct SelectShuffle<unsigned char, Index, Count> {
  using type = ByteShuffle<Count, 1, Count - 1 - Index>;
};
template <int Index, int Count>
struct SelectShuffle<unsigned short, Index, Count> {
  static constexpr int kAt = 2 * (Count - 1 - Index);
  using type = ByteShuffle<2 * Count, 2, kAt, kAt + 1>;
};

// Target element 1 is component First, element 0 component Second.
template <typename T, int First, int Second, int Count>
struct Select2Shuffle;
template <int First, int Second, int Count>
struct Select2Shuffle<unsigned char, First, Second, Count> {
  using type = ByteShuffle<Count, 2, Count - 1 - Second, Count - 1 - First>;
};
template <int First, int Second, int Count>
struct Select2Shuffle<unsigned short, First, Second, Count> {
  static constexpr int kLow = 2 * (Count - 1 - Second);
  static constexpr int kHigh = 2 * (Count - 1 - First);
  using type = ByteShuffle<2 * Count, 4, kLow, kLow + 1, kHigh, kHigh + 1>;
};

// A shuffle described at run time (swap and redirect converters, whose
// members decide the layout).
inline constexpr int kMaxPixelBytes = 32;  // four components of up to 63 bits

struct ByteMap {
  int src_bytes = 0;
  int dst_bytes = 0;
  std::array<int, kMaxPixelBytes> from{};  // as the From of ByteShuffle
};

// The specialised kernel for `map`, or null when there is none; FindByteShuffle
// knows the layouts of the registered conversions and every plain copy.
RowFn FindByteShuffle(const ByteMap& map, SimdLevel level) noexcept;
// Slow path for layouts a caller made up.
void RowByteMap(const unsigned char* s, unsigned char* d, std::size_t w, const ByteMap& map) noexcept;

// ---------------------------------------------------------------------------
// 16-bit word kernels; GCC vectorises these loops with baseline SSE2.

// The four nibbles in reverse order.
inline void RowRevert4444(const unsigned char* s, unsigned char* d, std::size_t w) noexcept {
  for (std::size_t x = 0; x < w; ++x) {
    const std::uint32_t v = Load<std::uint16_t>(s + 2 * x);
    Store(d + 2 * x,
          static_cast<std::uint16_t>(((v & 0xFu) << 12) | ((v & 0xF0u) << 4) | ((v >> 4) & 0xF0u) | (v >> 12)));
  }
}

template <typename T, int Left>
inline void RowRotateLeft(const unsigned char* s, unsigned char* d, std::size_t w) noexcept {
  static_assert(std::is_unsigned_v<T>, "rotation of unsigned words");
  constexpr int kBits = static_cast<int>(sizeof(T) * 8);
  static_assert(Left >= 0 && Left < kBits, "rotation below the word size");
  if constexpr (Left == 0) {
    RowCopy(s, d, w, sizeof(T));
  } else {
    for (std::size_t x = 0; x < w; ++x) {
      const T v = Load<T>(s + sizeof(T) * x);
      Store(d + sizeof(T) * x, static_cast<T>((v << Left) | (v >> (kBits - Left))));
    }
  }
}

template <typename T, std::size_t... Left>
constexpr std::array<RowFn, sizeof...(Left)> MakeRotateKernels(std::index_sequence<Left...>) {
  return {{&RowRotateLeft<T, static_cast<int>(Left)>...}};
}

// Kernel i rotates left by i bits.
template <typename T>
inline constexpr std::array<RowFn, sizeof(T) * 8> kRotateKernels =
    MakeRotateKernels<T>(std::make_index_sequence<sizeof(T) * 8>());

// Left rotation equal to the converter's rule: left by `rotation` when it is
// positive, right by its magnitude otherwise.
inline int LeftRotation(int rotation, int bits) noexcept {
  const long long r = static_cast<long long>(rotation) % bits;
  return static_cast<int>(r > 0 ? r : (bits + r) % bits);
}

// Bit replication of 4-, 5- and 6-bit fields to 8 bits.
constexpr std::uint32_t Widen5(std::uint32_t v) noexcept { return (v << 3) | (v >> 2); }
constexpr std::uint32_t Widen6(std::uint32_t v) noexcept { return (v << 2) | (v >> 4); }

// Nibble k to byte k, each nibble replicated.
inline void Row4444To8888(const unsigned char* s, unsigned char* d, std::size_t w) noexcept {
  for (std::size_t x = 0; x < w; ++x) {
    const std::uint32_t v = Load<std::uint16_t>(s + 2 * x);
    const std::uint32_t spread = (v & 0xFu) | ((v & 0xF0u) << 4) | ((v & 0xF00u) << 8) | ((v & 0xF000u) << 12);
    Store(d + 4 * x, spread | (spread << 4));
  }
}

// Alpha from bit 15; with Swap the 5-bit fields at bits 0 and 10 trade bytes.
template <bool Swap>
inline void Row1555To8888(const unsigned char* s, unsigned char* d, std::size_t w) noexcept {
  for (std::size_t x = 0; x < w; ++x) {
    const std::uint32_t v = Load<std::uint16_t>(s + 2 * x);
    const std::uint32_t low = Widen5(v & 31u), mid = Widen5((v >> 5) & 31u), high = Widen5((v >> 10) & 31u);
    const std::uint32_t alpha = (0u - (v >> 15)) << 24;
    Store(d + 4 * x, (Swap ? high | (low << 16) : low | (high << 16)) | (mid << 8) | alpha);
  }
}

// ---------------------------------------------------------------------------
// R5G6B5 -> R8G8B8: bits 0-4 to byte 0, 5-10 to byte 1, 11-15 to byte 2.

inline void Pixel565To888(const unsigned char* s, unsigned char* d) noexcept {
  const std::uint32_t v = Load<std::uint16_t>(s);
  d[0] = static_cast<unsigned char>(Widen5(v & 31u));
  d[1] = static_cast<unsigned char>(Widen6((v >> 5) & 63u));
  d[2] = static_cast<unsigned char>(Widen5(v >> 11));
}

inline void Row565To888Scalar(const unsigned char* s, unsigned char* d, std::size_t w) noexcept {
  for (std::size_t x = 0; x < w; ++x) Pixel565To888(s + 2 * x, d + 3 * x);
}

#if LMIMAGE_CHANNEL_X86
LMIMAGE_CHANNEL_TARGET("ssse3")
inline void Row565To888Ssse3(const unsigned char* s, unsigned char* d, std::size_t w) noexcept {
  // Bit replication as one multiply-high per field: a 5-bit field f moved to
  // bits 11-15 times (33 << 3), high half, is f * 33 >> 2 = (f << 3) | (f >> 2);
  // green masked in place (bits 5-10) times (65 << 7) is (f << 2) | (f >> 4).
  const __m128i mask_g = _mm_set1_epi16(0x07E0), mask_r = _mm_set1_epi16(static_cast<short>(0xF800));
  const __m128i mul_b = _mm_set1_epi16(33 << 3), mul_g = _mm_set1_epi16(65 << 7), mul_r = _mm_set1_epi16(33 << 3);
  // B, G, R, 0 words of four pixels -> their 12 colour bytes.
  const __m128i pack = _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -128, -128, -128, -128);
  std::size_t x = 0;
  for (; x + 8 <= w; x += 8) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 2 * x));
    const __m128i b8 = _mm_mulhi_epu16(_mm_slli_epi16(v, 11), mul_b);
    const __m128i g8 = _mm_mulhi_epu16(_mm_and_si128(v, mask_g), mul_g);
    const __m128i r8 = _mm_mulhi_epu16(_mm_and_si128(v, mask_r), mul_r);
    const __m128i bg = _mm_or_si128(b8, _mm_slli_epi16(g8, 8));
    const __m128i first = _mm_shuffle_epi8(_mm_unpacklo_epi16(bg, r8), pack);
    const __m128i second = _mm_shuffle_epi8(_mm_unpackhi_epi16(bg, r8), pack);
    // 24 bytes exactly: 12 + 4 in one store, the other 8 in a second.
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 3 * x), _mm_or_si128(first, _mm_slli_si128(second, 12)));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(d + 3 * x + 16), _mm_srli_si128(second, 4));
  }
  for (; x < w; ++x) Pixel565To888(s + 2 * x, d + 3 * x);
}
#endif

inline RowFn Pick565To888(SimdLevel level) noexcept {
#if LMIMAGE_CHANNEL_X86
  if (level >= SimdLevel::Ssse3) return &Row565To888Ssse3;
#endif
  (void)level;
  return &Row565To888Scalar;
}

inline void Row565To888(const unsigned char* s, unsigned char* d, std::size_t w) noexcept {
  Pick565To888(CpuSimdLevel())(s, d, w);
}

// ---------------------------------------------------------------------------
// Gray: (299 R + 587 G + 114 B) / 1000, truncated; with AlphaOut >= 0 the
// alpha element is copied to target element AlphaOut. Strides are in bytes.

template <typename T, int R, int G, int B, int A, int AlphaOut>
struct GrayLayout {
  static constexpr int kSrcElements = std::max({R, G, B, AlphaOut >= 0 ? A : 0}) + 1;
  static constexpr int kDstElements = AlphaOut >= 0 ? std::max(AlphaOut, 0) + 1 : 1;
};

template <typename T, int R, int G, int B, int A, int AlphaOut>
inline void RowGray(const unsigned char* s, unsigned char* d, std::size_t w, std::size_t src_stride,
                    std::size_t dst_stride) noexcept {
  // The weighted sum of the widest element stays below 2^32, so 32-bit
  // arithmetic gives the same quotient as 64-bit and vectorises better.
  static_assert(1000ull * static_cast<T>(~T{0}) < (1ull << 32), "sum must fit 32 bits");
  constexpr std::size_t e = sizeof(T);
  for (std::size_t x = 0; x < w; ++x) {
    const unsigned char* p = s + src_stride * x;
    unsigned char* q = d + dst_stride * x;
    const std::uint32_t sum = 299u * Load<T>(p + e * R) + 587u * Load<T>(p + e * G) + 114u * Load<T>(p + e * B);
    Store(q, static_cast<T>(sum / 1000u));
    if constexpr (AlphaOut >= 0) Store(q + e * AlphaOut, Load<T>(p + e * A));
  }
}

// ---------------------------------------------------------------------------
// Sub-byte alpha to bytes. Pixel x of a row is in byte x / (8 / bits) at bit
// (x mod (8 / bits)) * bits; a row reads exactly (w * bits + 7) / 8 bytes.

// The 8 bits of b to 8 bytes of 0x00 / 0xFF, bit j to byte j.
constexpr std::uint64_t Spread1To8(std::uint32_t b) noexcept {
  const std::uint64_t bits = (b * 0x0101010101010101ull) & 0x8040201008040201ull;
  // Adding 0x7F sets bit 7 of every byte that holds its bit; nothing carries.
  return (((bits + 0x7F7F7F7F7F7F7F7Full) >> 7) & 0x0101010101010101ull) * 0xFF;
}

// Four 2-bit fields to four bytes of 0, 85, 170 or 255.
constexpr std::uint32_t Spread2To8(std::uint32_t b) noexcept {
  return ((b & 0x03u) | ((b & 0x0Cu) << 6) | ((b & 0x30u) << 12) | ((b & 0xC0u) << 18)) * 85u;
}

// Two nibbles to two bytes of v * 17.
constexpr std::uint32_t Spread4To8(std::uint32_t b) noexcept { return ((b & 0x0Fu) | ((b & 0xF0u) << 4)) * 17u; }

inline void Row1To8(const unsigned char* s, unsigned char* d, std::size_t w) noexcept {
  const std::size_t whole = w / 8, rest = w % 8;
  for (std::size_t i = 0; i < whole; ++i) Store(d + 8 * i, Spread1To8(s[i]));
  if (rest != 0) {
    const std::uint64_t v = Spread1To8(s[whole]);
    std::memcpy(d + 8 * whole, &v, rest);
  }
}

inline void Row2To8(const unsigned char* s, unsigned char* d, std::size_t w) noexcept {
  const std::size_t whole = w / 4, rest = w % 4;
  for (std::size_t i = 0; i < whole; ++i) Store(d + 4 * i, Spread2To8(s[i]));
  if (rest != 0) {
    const std::uint32_t v = Spread2To8(s[whole]);
    std::memcpy(d + 4 * whole, &v, rest);
  }
}

inline void Row4To8(const unsigned char* s, unsigned char* d, std::size_t w) noexcept {
  const std::size_t whole = w / 2;
  for (std::size_t i = 0; i < whole; ++i) Store(d + 2 * i, static_cast<std::uint16_t>(Spread4To8(s[i])));
  if (w % 2 != 0) d[2 * whole] = static_cast<unsigned char>((s[whole] & 0x0Fu) * 17u);
}

// A set bit gives 0xFFFFFFFF, a clear one opaque black 0xFF000000.
inline void Row1To8888(const unsigned char* s, unsigned char* d, std::size_t w) noexcept {
  for (std::size_t x = 0; x < w; ++x) {
    const std::uint32_t bit = (s[x / 8] >> (x % 8)) & 1u;
    Store(d + 4 * x, 0xFF000000u | ((0u - bit) & 0x00FFFFFFu));
  }
}

// ---------------------------------------------------------------------------
// Linear <-> sRGB through a 256-entry table rebuilt on every call.

inline constexpr double kLinearToSrgbExponent = 0.45454545454545453;
inline constexpr double kSrgbToLinearExponent = 2.2;

struct GammaTable {
  unsigned char map[256];
  // For the pshufb lookup: the table as 16 rows of 16, each row XOR-ed with
  // the next row of its half (the last row of each half kept). XOR-ing the
  // rows from a value's high nibble to the end of its half telescopes to the
  // value's own row.
  unsigned char chain[16][16];
};

inline GammaTable MakeGammaTable(double exponent) noexcept {
  GammaTable t{};
  for (int i = 0; i < 256; ++i) {
    // Exact steps of the rule: single precision around a double pow, and
    // truncation toward zero. The float products are exact (powers of two),
    // so contracting them into a fused multiply-add changes nothing.
    const float x = (static_cast<float>(i) + 0.5f) * 0.00390625f;
    const double v = std::pow(static_cast<double>(x), exponent);
    const float entry = static_cast<float>(v) * 256.0f - 0.5f;
    t.map[i] = static_cast<unsigned char>(static_cast<int>(entry));
  }
  for (int row = 0; row < 16; ++row) {
    const bool last_of_half = row % 8 == 7;
    for (int j = 0; j < 16; ++j) {
      const unsigned char next = last_of_half ? 0 : t.map[16 * (row + 1) + j];
      t.chain[row][j] = static_cast<unsigned char>(t.map[16 * row + j] ^ next);
    }
  }
  return t;
}

using GammaRowFn = void (*)(const unsigned char* s, unsigned char* d, std::size_t w, const GammaTable& t);

// Bytes of a 4-byte pixel other than AlphaByte go through the table; the
// AlphaByte is copied.
template <int AlphaByte>
struct Gamma8888 {
  static_assert(AlphaByte == 0 || AlphaByte == 3, "alpha is the first or the last byte");

  static void Scalar(const unsigned char* s, unsigned char* d, std::size_t w, const GammaTable& t) noexcept {
    constexpr std::uint64_t kKeep = (0xFFull << (8 * AlphaByte)) | (0xFFull << (8 * AlphaByte + 32));
    std::size_t x = 0;
    for (; x + 2 <= w; x += 2) {
      const std::uint64_t v = Load<std::uint64_t>(s + 4 * x);
      std::uint64_t r = v & kKeep;
      for (int b = 0; b < 8; ++b) {
        if (b % 4 != AlphaByte) r |= std::uint64_t{t.map[(v >> (8 * b)) & 0xFF]} << (8 * b);
      }
      Store(d + 4 * x, r);
    }
    if (x < w) {
      for (int b = 0; b < 4; ++b) d[4 * x + b] = b == AlphaByte ? s[4 * x + b] : t.map[s[4 * x + b]];
    }
  }

#if LMIMAGE_CHANNEL_X86
  LMIMAGE_CHANNEL_TARGET("avx2")
  static void Avx2(const unsigned char* s, unsigned char* d, std::size_t w, const GammaTable& t) noexcept {
    __m256i chain[16];
    for (int k = 0; k < 16; ++k) {
      chain[k] = _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(t.chain[k])));
    }
    const __m256i keep = _mm256_set1_epi32(AlphaByte == 3 ? static_cast<int>(0xFF000000u) : 0xFF);
    const __m256i top = _mm256_set1_epi8(static_cast<char>(0x80));
    std::size_t x = 0;
    for (; x + 8 <= w; x += 8) {
      const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 4 * x));
      const __m256i upper = _mm256_xor_si256(v, top);  // values >= 128 as 0..127, the rest >= 128
      __m256i r = _mm256_setzero_si256();
      for (int k = 0; k < 8; ++k) {
        // Saturating add: a byte stays below 0x80 (pshufb looks it up) exactly
        // when its high nibble is at most k; the low nibble is kept.
        const __m256i bias = _mm256_set1_epi8(static_cast<char>(0x70 - 16 * k));
        r = _mm256_xor_si256(r, _mm256_shuffle_epi8(chain[k], _mm256_adds_epu8(v, bias)));
        r = _mm256_xor_si256(r, _mm256_shuffle_epi8(chain[8 + k], _mm256_adds_epu8(upper, bias)));
      }
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + 4 * x), _mm256_blendv_epi8(r, v, keep));
    }
    Scalar(s + 4 * x, d + 4 * x, w - x, t);
  }

  LMIMAGE_CHANNEL_TARGET("avx2,avx512f,avx512bw,avx512vbmi")
  static __m512i Lookup64(__m512i v, const __m512i (&table)[4]) noexcept {
    constexpr __mmask64 kKeep = AlphaByte == 3 ? 0x8888888888888888ull : 0x1111111111111111ull;
    const __m512i low = _mm512_permutex2var_epi8(table[0], v, table[1]);   // entries 0-127
    const __m512i high = _mm512_permutex2var_epi8(table[2], v, table[3]);  // entries 128-255
    const __m512i r = _mm512_mask_blend_epi8(_mm512_movepi8_mask(v), low, high);
    return _mm512_mask_blend_epi8(kKeep, r, v);
  }

  LMIMAGE_CHANNEL_TARGET("avx2,avx512f,avx512bw,avx512vbmi")
  static void Avx512Vbmi(const unsigned char* s, unsigned char* d, std::size_t w, const GammaTable& t) noexcept {
    const __m512i table[4] = {_mm512_loadu_si512(t.map), _mm512_loadu_si512(t.map + 64),
                              _mm512_loadu_si512(t.map + 128), _mm512_loadu_si512(t.map + 192)};
    std::size_t x = 0;
    for (; x + 16 <= w; x += 16) {
      _mm512_storeu_si512(d + 4 * x, Lookup64(_mm512_loadu_si512(s + 4 * x), table));
    }
    if (x < w) {
      // Masked tail: bytes outside the mask are neither read nor written.
      const __mmask64 m = (1ull << (4 * (w - x))) - 1;
      _mm512_mask_storeu_epi8(d + 4 * x, m, Lookup64(_mm512_maskz_loadu_epi8(m, s + 4 * x), table));
    }
  }
#endif

  static GammaRowFn Pick(SimdLevel level) noexcept {
#if LMIMAGE_CHANNEL_X86
    if (level >= SimdLevel::Avx512Vbmi) return &Avx512Vbmi;
    if (level >= SimdLevel::Avx2) return &Avx2;
#endif
    (void)level;
    return &Scalar;
  }
};

// ConverterRGBToSRGB of an A8B8G8R8 row (alpha in byte 3) with
// MakeGammaTable(kLinearToSrgbExponent).
template <int AlphaByte>
inline void RowGamma8888(const unsigned char* s, unsigned char* d, std::size_t w, const GammaTable& t) noexcept {
  Gamma8888<AlphaByte>::Pick(CpuSimdLevel())(s, d, w, t);
}

}  // namespace detail

// ---------------------------------------------------------------------------
// Converters. Their exact output is documented with the kernels above.

template <typename T, int Index, int Count>
class ConverterSelect : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override {
    using Shuffle = typename detail::SelectShuffle<T, Index, Count>::type;
    return detail::ConvertWith(source, target, sizeof(T) * Count, sizeof(T), Shuffle::Pick(detail::CpuSimdLevel()));
  }
};

template <typename T, int First, int Second, int Count>
class ConverterSelect2 : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override {
    using Shuffle = typename detail::Select2Shuffle<T, First, Second, Count>::type;
    return detail::ConvertWith(source, target, sizeof(T) * Count, 2 * sizeof(T), Shuffle::Pick(detail::CpuSimdLevel()));
  }
};

// Copies each pixel (sizes from the formats) and exchanges the bytes of
// components `first` and `second` of a `count`-component pixel.
class ConverterSwapChannel : public Converter {
 public:
  ConverterSwapChannel(int count, int first, int second) : count_(count), first_(first), second_(second) {}
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;

 private:
  int count_;
  int first_;
  int second_;
};

// The same with 16-bit elements.
class ConverterSwapChannelOf16BitsChannel : public Converter {
 public:
  ConverterSwapChannelOf16BitsChannel(int count, int first, int second)
      : count_(count), first_(first), second_(second) {}
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;

 private:
  int count_;
  int first_;
  int second_;
};

// Target component k (k < count) is source component map[k], or 255 where
// map[k] is negative; pixel sizes from the formats.
class ConverterRedirectChannel : public Converter {
 public:
  ConverterRedirectChannel(std::array<int, 4> map, int count) : map_(map), count_(count) {}
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;

 private:
  std::array<int, 4> map_;
  int count_;
};

// 3 bytes to 4, the new most significant byte 255; swap exchanges bytes 0 and 2.
class ConverterMSBAlpha : public Converter {
 public:
  explicit ConverterMSBAlpha(bool swap) : swap_(swap) {}
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;

 private:
  bool swap_;
};

// 4 bytes to 3, the most significant byte dropped; swap exchanges bytes 0 and 2.
class ConverterStripMSBAlpha : public Converter {
 public:
  explicit ConverterStripMSBAlpha(bool swap) : swap_(swap) {}
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;

 private:
  bool swap_;
};

class ConverterRevert8888 : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

class ConverterRevert4444 : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

// Each word rotated left by `rotation` when positive, right by its magnitude
// otherwise (-4 turns R4G4B4A4 into A4R4G4B4).
template <typename T>
class ConverterShift : public Converter {
 public:
  explicit ConverterShift(int rotation) : rotation_(rotation) {}
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override {
    constexpr int kBits = static_cast<int>(sizeof(T) * 8);
    const detail::RowFn row = detail::kRotateKernels<T>[detail::LeftRotation(rotation_, kBits)];
    return detail::ConvertWith(source, target, sizeof(T), sizeof(T), row);
  }

 private:
  int rotation_;
};

class Converter565To888 : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

class Converter4444To8888 : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

class Converter1555To8888 : public Converter {
 public:
  explicit Converter1555To8888(bool swap) : swap_(swap) {}
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;

 private:
  bool swap_;
};

// Pixel sizes from the formats; R, G, B, A are element indices of the source.
template <typename T, int R, int G, int B, int A, int AlphaOut>
class ConverterGray : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override {
    using Layout = detail::GrayLayout<T, R, G, B, A, AlphaOut>;
    constexpr std::size_t kSrc = sizeof(T) * Layout::kSrcElements;
    constexpr std::size_t kDst = sizeof(T) * Layout::kDstElements;
    if (source == nullptr) return SurfaceData::Null;
    const unsigned long long src = detail::WholeBytesPerPixel(source->Format());
    const unsigned long long dst = detail::WholeBytesPerPixel(target);
    if (src < kSrc || dst < kDst || !detail::RowsHold(source, target, src, dst)) return SurfaceData::Null;
    if (src == kSrc && dst == kDst) {
      return detail::ConvertRows(source, target, [](const unsigned char* s, unsigned char* d, std::size_t w) {
        detail::RowGray<T, R, G, B, A, AlphaOut>(s, d, w, kSrc, kDst);
      });
    }
    // Wider pixels than the converter needs: the bytes it does not set are 0.
    return detail::ConvertRows(source, target, [src, dst](const unsigned char* s, unsigned char* d, std::size_t w) {
      if (dst != kDst) std::memset(d, 0, w * dst);
      detail::RowGray<T, R, G, B, A, AlphaOut>(s, d, w, src, dst);
    });
  }
};

// The source byte in all three target bytes.
class Converter8To888 : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

// The source byte in all four target bytes, the alpha byte included.
class Converter8To8888 : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

// Byte 0 to bytes 0-2, byte 1 (alpha) to byte 3.
class ConverterA8X8ToA8X8X8X8 : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

// The sub-byte converters write a tightly packed buffer of their own and
// return a SurfaceDataSharedMemory over it (row alignment exponent 0).
class Converter1To8 : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

class Converter2To8 : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

class Converter4To8 : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

class Converter1To8888 : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

// Colour bytes through the linear-to-sRGB table; the alpha (byte 0 when the
// source is R8G8B8A8, byte 3 otherwise) is copied.
class ConverterRGBToSRGB : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

// The same with the sRGB-to-linear table; byte 0 is the alpha for s_R8G8B8A8.
class ConverterSRGBToRGB : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

// A copy of the source's bytes under the target's name, in a buffer of its own.
class ConverterReinterpret : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;
};

}  // namespace lumo::image

#if LMIMAGE_CHANNEL_X86
#  undef LMIMAGE_CHANNEL_TARGET
#endif
#undef LMIMAGE_CHANNEL_X86
