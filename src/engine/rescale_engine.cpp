// The built-in rescale engine: argument checks, the choice of arithmetic rule
// and of the pass order, and the resampling passes.
//
// The rule's kernels are picked once per call: templates on element type and
// channel count, with hand-vectorised versions for 8-bit channels and for
// four-channel and whole-row floating passes, and an AVX2 build of each that
// is used when the processor has it. Vertical kernels produce one destination
// row from the span's source rows, walking the rows in order; horizontal
// kernels run the span loop per pixel over its channels. Every sum adds its
// terms in span order starting from zero (integer sums in any order, which
// gives the same value), so all paths give the same bits.
//
// When both sides change, the first pass is streamed into the second instead
// of filling a whole intermediate image: rows of the first pass are made as
// the second needs them and kept in a small ring (or a single row), with the
// row sizes of the full intermediate image. The values and so the results are
// those of running the passes one after the other.
#include "engine/rescale_engine.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include "lumo/image/half.h"
#include "lumo/image/surface_data.h"
#include "lumo/log/log.h"

#if defined(__x86_64__) && defined(__GNUC__)
#  define LMIMAGE_RESCALE_X86 1
#  include <immintrin.h>
#else
#  define LMIMAGE_RESCALE_X86 0
#endif

#if defined(__BYTE_ORDER__) && defined(__ORDER_LITTLE_ENDIAN__)
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "pixel elements are read natively as little-endian");
#endif

namespace lumo::image {
namespace {

using Byte = unsigned char;
using half_float::half;
using Table = RescaleWeightTable;

template <typename T>
inline T Load(const Byte* p) noexcept {
  T v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

template <typename T>
inline void Store(Byte* p, T v) noexcept {
  std::memcpy(p, &v, sizeof v);
}

// ---- Format plans and passes ----

// How the general rule decodes and encodes one bit field.
enum class FieldKind : std::uint8_t {
  Unorm,     // v / (2^b - 1)
  Uint,      // v
  Snorm,     // sign-extended v / (2^(b-1) - 1)
  Sint,      // sign-extended v
  Half,      // IEEE binary16
  Single,    // IEEE binary32
  Double,    // IEEE binary64
  UFloat10,  // 5-bit exponent, 5-bit mantissa, no sign
  UFloat11,  // 5-bit exponent, 6-bit mantissa, no sign
  Zero,      // a float of any other width: reads and writes 0
};

struct Field {
  unsigned shift;  // lowest bit of the field within the pixel
  unsigned bits;
  FieldKind kind;
};

struct Plan;

// One pass: the plan, the weight table and scratch memory that the kernel's
// Prepare sizes once, so that the per-row calls do not allocate.
struct Pass {
  const Plan* plan = nullptr;
  const Table* table = nullptr;
  std::size_t source = 0;  // samples of a line before the pass
  std::size_t width = 0;   // pixels per row of a vertical pass
  std::vector<float> floats_in, floats_out;
  std::vector<half> halves;
  std::vector<double> doubles_in, doubles_out;
  std::vector<std::int32_t> pairs;
  std::vector<std::uint32_t> starts;
  std::size_t pair_stride = 0;
  std::size_t window = 0;  // taps read per destination pixel, 0 for the exact spans
  bool wide = false;       // weights laid out for the 256-bit kernel
};

using PrepareFn = void (*)(Pass&);
// One row of a horizontal pass: the source row to the destination row.
using HorizontalFn = void (*)(Pass&, const Byte* src, Byte* dst);
// Destination row u of a vertical pass from the rows of its span.
using VerticalFn = void (*)(Pass&, const Byte* const* rows, std::size_t u, Byte* dst);

struct HorizontalKernel {
  PrepareFn prepare = nullptr;
  HorizontalFn row = nullptr;
};

struct VerticalKernel {
  PrepareFn prepare = nullptr;
  VerticalFn row = nullptr;
};

// The kernels of a rule by the arithmetic a weight table allows: madd16 needs
// every fixed-point weight within int16 and every sum within int32, sum32
// every sum within int32, sum64 is always exact. Rules without that choice
// put one kernel in all three.
template <typename K>
struct KernelSet {
  K madd16, sum32, sum64;
};

struct Plan {
  unsigned bits_per_pixel = 0;
  unsigned channels = 0;
  Field fields[4] = {};         // in order of increasing shift (last component first)
  std::uint64_t max_value = 0;  // largest channel value of the fixed-point rule; 0 otherwise
  KernelSet<HorizontalKernel> horizontal;
  KernelSet<VerticalKernel> vertical;
  HorizontalKernel pairs;  // for tables of uniform two-tap spans [2u, 2u + 2), when available
};

// ---- Instruction set dispatch ----
//
// A kernel is a struct with a static Prepare and a static Row that is forced
// inline. Row is compiled twice: for the baseline and, on x86, for AVX2, where
// the compiler vectorises the same code twice as wide.

#define LMIMAGE_KERNEL inline __attribute__((always_inline))

struct NoPrepare {
  static void Prepare(Pass&) {}
};

template <typename K>
void HorizontalBaseline(Pass& pass, const Byte* src, Byte* dst) {
  K::Row(pass, src, dst);
}

template <typename K>
void VerticalBaseline(Pass& pass, const Byte* const* rows, std::size_t u, Byte* dst) {
  K::Row(pass, rows, u, dst);
}

#if LMIMAGE_RESCALE_X86
template <typename K>
__attribute__((target("avx2"))) void HorizontalAvx2(Pass& pass, const Byte* src, Byte* dst) {
  K::Row(pass, src, dst);
}

template <typename K>
__attribute__((target("avx2"))) void VerticalAvx2(Pass& pass, const Byte* const* rows, std::size_t u, Byte* dst) {
  K::Row(pass, rows, u, dst);
}

struct CpuFeatures {
  bool avx2;
  bool f16c;
};

const CpuFeatures& Cpu() {
  static const CpuFeatures features = [] {
    __builtin_cpu_init();
    return CpuFeatures{__builtin_cpu_supports("avx2") != 0, detail::HalfPathSupported(detail::HalfPath::F16c)};
  }();
  return features;
}
#endif

template <typename K>
HorizontalKernel PickHorizontal() {
#if LMIMAGE_RESCALE_X86
  if (Cpu().avx2) return {K::Prepare, HorizontalAvx2<K>};
#endif
  return {K::Prepare, HorizontalBaseline<K>};
}

template <typename K>
VerticalKernel PickVertical() {
#if LMIMAGE_RESCALE_X86
  if (Cpu().avx2) return {K::Prepare, VerticalAvx2<K>};
#endif
  return {K::Prepare, VerticalBaseline<K>};
}

// ---- Fixed-point rule ----

template <typename Acc, typename T>
inline T FixedResult(Acc sum) noexcept {
  const Acc r = static_cast<Acc>((sum + 1024) >> 11);
  constexpr Acc kMax = static_cast<Acc>(std::numeric_limits<T>::max());
  return static_cast<T>(r < 0 ? 0 : (r > kMax ? kMax : r));
}

template <typename Acc>
inline std::uint32_t FixedField(Acc sum, std::uint32_t max) noexcept {
  const Acc r = static_cast<Acc>((sum + 1024) >> 11);
  return static_cast<std::uint32_t>(r < 0 ? 0 : (r > static_cast<Acc>(max) ? static_cast<Acc>(max) : r));
}

// Elements per block of a vertical row: the accumulators stay in L1 while
// the span's rows stream past.
constexpr std::size_t kBlock = 1024;

template <typename T, int C, typename Acc>
struct FixedHorizontal : NoPrepare {
  static LMIMAGE_KERNEL void Row(Pass& pass, const Byte* s, Byte* o) {
    const Table& t = *pass.table;
    const std::size_t cap = t.capacity;
    const std::size_t out = t.spans.size();
    for (std::size_t u = 0; u < out; ++u) {
      const Table::Span span = t.spans[u];
      const std::int32_t* w = t.fixed.data() + u * cap;
      const Byte* p = s + static_cast<std::size_t>(span.first) * C * sizeof(T);
      const std::size_t n = span.last - span.first;
      Acc acc[C] = {};
      for (std::size_t k = 0; k < n; ++k) {
        const Acc wk = w[k];
        for (int c = 0; c < C; ++c) acc[c] += wk * static_cast<Acc>(Load<T>(p + (k * C + c) * sizeof(T)));
      }
      for (int c = 0; c < C; ++c) Store<T>(o + (u * C + c) * sizeof(T), FixedResult<Acc, T>(acc[c]));
    }
  }
};

template <typename T, typename Acc>
struct FixedVertical : NoPrepare {
  static LMIMAGE_KERNEL void Row(Pass& pass, const Byte* const* rows, std::size_t u, Byte* o) {
    const Table& t = *pass.table;
    const Table::Span span = t.spans[u];
    const std::int32_t* w = t.fixed.data() + u * t.capacity;
    const std::size_t n = span.last - span.first;
    const std::size_t elements = pass.width * pass.plan->channels;
    alignas(64) Acc acc[kBlock];
    for (std::size_t j0 = 0; j0 < elements; j0 += kBlock) {
      const std::size_t m = std::min(kBlock, elements - j0);
      for (std::size_t j = 0; j < m; ++j) acc[j] = 0;
      for (std::size_t k = 0; k < n; ++k) {
        const Byte* r = rows[k] + j0 * sizeof(T);
        const Acc wk = w[k];
        for (std::size_t j = 0; j < m; ++j) acc[j] += wk * static_cast<Acc>(Load<T>(r + j * sizeof(T)));
      }
      Byte* oj = o + j0 * sizeof(T);
      for (std::size_t j = 0; j < m; ++j) Store<T>(oj + j * sizeof(T), FixedResult<Acc, T>(acc[j]));
    }
  }
};

#if LMIMAGE_RESCALE_X86

// 8-bit channels with pmaddwd: values and weights as int16, two taps per
// multiply-add. Integer sums do not depend on the order of their terms, and
// the plan picks these only when no weight leaves int16 and no sum int32, so
// the results equal the 64-bit rule.

inline __m128i Bytes16(const Byte* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline __m128i Bytes8(const Byte* p) { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)); }

inline std::int32_t WeightPair(std::int32_t lo, std::int32_t hi) noexcept {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<std::uint16_t>(lo)) |
                                   (static_cast<std::uint32_t>(static_cast<std::uint16_t>(hi)) << 16));
}

// Four 8-bit channels per pixel. Every destination pixel reads the same
// number of source pixels (the longest span, rounded up to whole pairs), its
// weights placed at their offset in that window and zero elsewhere, so the
// loop has no data-dependent branches; windows at the end of the row are
// moved left to stay inside it. A row shorter than the window takes the spans
// as they are.
struct Rgba8HorizontalMadd {
  static void Prepare(Pass& pass) {
    const Table& t = *pass.table;
    const std::size_t out = t.spans.size();
    std::size_t longest = 0;
    for (const Table::Span& span : t.spans) longest = std::max<std::size_t>(longest, span.last - span.first);
    const std::size_t window = (longest + 1) & ~std::size_t{1};
    pass.window = window <= pass.source ? window : 0;
    pass.pair_stride = pass.window != 0 ? window / 2 : (t.capacity + 1) / 2;
    pass.pairs.assign(out * pass.pair_stride, 0);
    pass.starts.assign(out, 0);
    for (std::size_t u = 0; u < out; ++u) {
      const Table::Span span = t.spans[u];
      const std::int32_t* w = t.fixed.data() + u * t.capacity;
      const std::size_t n = span.last - span.first;
      std::size_t start = span.first;
      if (pass.window != 0) start = std::min<std::size_t>(start, pass.source - pass.window);
      const std::size_t offset = span.first - start;
      auto weight = [&](std::size_t k) { return k >= offset && k - offset < n ? w[k - offset] : 0; };
      for (std::size_t q = 0; q < pass.pair_stride; ++q) {
        pass.pairs[u * pass.pair_stride + q] = WeightPair(weight(2 * q), weight(2 * q + 1));
      }
      pass.starts[u] = static_cast<std::uint32_t>(start);
    }
  }

  // Four taps: pixels 0 2 1 3, then the bytes of pixels 0/1 and of 2/3
  // interleaved, each pair against its weight pair.
  static LMIMAGE_KERNEL void Four(const Byte* p, const std::int32_t* pw, __m128i& acc0, __m128i& acc1) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i a = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)), 0xd8);
    const __m128i x = _mm_unpacklo_epi8(a, _mm_srli_si128(a, 8));
    acc0 = _mm_add_epi32(acc0, _mm_madd_epi16(_mm_unpacklo_epi8(x, zero), _mm_set1_epi32(pw[0])));
    acc1 = _mm_add_epi32(acc1, _mm_madd_epi16(_mm_unpackhi_epi8(x, zero), _mm_set1_epi32(pw[1])));
  }

  static LMIMAGE_KERNEL void Two(const Byte* p, const std::int32_t* pw, __m128i& acc) {
    const __m128i a = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
    const __m128i x = _mm_unpacklo_epi8(a, _mm_srli_si128(a, 4));
    acc = _mm_add_epi32(acc, _mm_madd_epi16(_mm_unpacklo_epi8(x, _mm_setzero_si128()), _mm_set1_epi32(pw[0])));
  }

  // (sum + 1024) >> 11 of the four channels, clamped by the saturating packs.
  static LMIMAGE_KERNEL void Finish(__m128i acc, Byte* dst) {
    __m128i r = _mm_srai_epi32(_mm_add_epi32(acc, _mm_set1_epi32(1024)), 11);
    r = _mm_packs_epi32(r, r);
    Store<std::int32_t>(dst, _mm_cvtsi128_si32(_mm_packus_epi16(r, r)));
  }

  // Destination pixel u of a window pass.
  static LMIMAGE_KERNEL void Window(const Pass& pass, const Byte* s, std::size_t u, Byte* o) {
    const Byte* p = s + static_cast<std::size_t>(pass.starts[u]) * 4;
    const std::int32_t* pw = pass.pairs.data() + u * pass.pair_stride;
    __m128i acc0 = _mm_setzero_si128(), acc1 = _mm_setzero_si128();
    for (std::size_t i = 0; i < pass.window / 4; ++i, p += 16, pw += 2) Four(p, pw, acc0, acc1);
    if ((pass.window & 2) != 0) Two(p, pw, acc0);
    Finish(_mm_add_epi32(acc0, acc1), o + u * 4);
  }

  // The spans as they are, for rows shorter than the window.
  static LMIMAGE_KERNEL void Exact(const Pass& pass, const Byte* s, Byte* o) {
    const Table& t = *pass.table;
    const __m128i zero = _mm_setzero_si128();
    for (std::size_t u = 0; u < t.spans.size(); ++u) {
      const Table::Span span = t.spans[u];
      const Byte* p = s + static_cast<std::size_t>(span.first) * 4;
      const std::int32_t* pw = pass.pairs.data() + u * pass.pair_stride;
      const std::size_t n = span.last - span.first;
      __m128i acc0 = zero, acc1 = zero;
      std::size_t k = 0;
      for (; k + 4 <= n; k += 4, p += 16, pw += 2) Four(p, pw, acc0, acc1);
      if (k + 2 <= n) {
        Two(p, pw, acc0);
        k += 2;
        p += 8;
        ++pw;
      }
      if (k < n) {
        const __m128i x = _mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(Load<std::int32_t>(p)), zero), zero);
        acc1 = _mm_add_epi32(acc1, _mm_madd_epi16(x, _mm_set1_epi32(pw[0])));
      }
      Finish(_mm_add_epi32(acc0, acc1), o + u * 4);
    }
  }

  // Destination pixels u and u + 1 of a two-tap window, one per register half.
  static LMIMAGE_KERNEL void TwoByTwo(const Pass& pass, const Byte* s, std::size_t u, Byte* o) {
    const __m128i zero = _mm_setzero_si128();
    const Byte* p0 = s + std::size_t{pass.starts[u]} * 4;
    const Byte* p1 = s + std::size_t{pass.starts[u + 1]} * 4;
    const __m128i a = _mm_shuffle_epi32(_mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p0)),
                                                           _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p1))),
                                        0xd8);
    const __m128i x = _mm_unpacklo_epi8(a, _mm_srli_si128(a, 8));
    const __m128i round = _mm_set1_epi32(1024);
    const __m128i r0 = _mm_madd_epi16(_mm_unpacklo_epi8(x, zero), _mm_set1_epi32(pass.pairs[u]));
    const __m128i r1 = _mm_madd_epi16(_mm_unpackhi_epi8(x, zero), _mm_set1_epi32(pass.pairs[u + 1]));
    const __m128i r =
        _mm_packs_epi32(_mm_srai_epi32(_mm_add_epi32(r0, round), 11), _mm_srai_epi32(_mm_add_epi32(r1, round), 11));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(o + u * 4), _mm_packus_epi16(r, r));
  }

  static LMIMAGE_KERNEL void Row(Pass& pass, const Byte* s, Byte* o) {
    if (pass.window == 0) {
      Exact(pass, s, o);
      return;
    }
    const std::size_t out = pass.table->spans.size();
    std::size_t u = 0;
    if (pass.window == 2) {
      for (; u + 2 <= out; u += 2) TwoByTwo(pass, s, u, o);
    }
    for (; u < out; ++u) Window(pass, s, u, o);
  }
};

// The window pass with AVX2. A byte shuffle puts two taps of a pixel's
// channels side by side as 16-bit values, so one multiply-add covers two taps
// of four channels. Each 128-bit lane holds 16 source bytes: four taps of one
// destination pixel, or, for two-tap windows, the two taps of two pixels. The
// weights are laid out in Prepare lane by lane as the multiply-adds read them.
struct Rgba8HorizontalMaddAvx2 {
  // Pixels per group: four for two-tap windows, else two.
  static std::size_t Group(const Pass& pass) { return pass.window == 2 ? 4 : 2; }

  static void Prepare(Pass& pass) {
    const Table& t = *pass.table;
    const std::size_t out = t.spans.size();
    std::size_t longest = 0;
    for (const Table::Span& span : t.spans) longest = std::max<std::size_t>(longest, span.last - span.first);
    const std::size_t window = longest <= 2 ? 2 : (longest + 3) & ~std::size_t{3};
    pass.wide = window <= pass.source && out != 0;
    if (!pass.wide) {
      Rgba8HorizontalMadd::Prepare(pass);  // rows shorter than the window: the 128-bit kernel
      return;
    }
    pass.window = window;
    pass.starts.assign(out, 0);
    // Per group and step two vectors of eight int32, one per multiply-add
    // (h = 0 for the low, 1 for the high shuffle); lane l of a vector holds,
    // four times, the weight pair that the lane multiplies with.
    const std::size_t group = Group(pass);
    const std::size_t steps = window == 2 ? 1 : window / 4;
    pass.pair_stride = steps * 16;
    pass.pairs.assign((out + group - 1) / group * pass.pair_stride, 0);
    std::vector<std::int32_t> weights(window, 0);
    for (std::size_t u = 0; u < pass.pairs.size() / pass.pair_stride * group; ++u) {
      const std::size_t v = std::min(u, out - 1);  // a short last group repeats its last pixel
      const Table::Span span = t.spans[v];
      const std::int32_t* w = t.fixed.data() + v * t.capacity;
      const std::size_t n = span.last - span.first;
      const std::size_t start = std::min<std::size_t>(span.first, pass.source - window);
      const std::size_t offset = span.first - start;
      if (u < out) pass.starts[u] = static_cast<std::uint32_t>(start);
      for (std::size_t k = 0; k < window; ++k) weights[k] = k >= offset && k - offset < n ? w[k - offset] : 0;
      std::int32_t* g = pass.pairs.data() + u / group * pass.pair_stride;
      const std::size_t slot = u % group;
      auto put = [&](std::size_t step, std::size_t h, std::size_t lane, std::size_t tap) {
        std::fill_n(g + step * 16 + h * 8 + lane * 4, 4, WeightPair(weights[tap], weights[tap + 1]));
      };
      if (window == 2) {
        put(0, slot % 2, slot / 2, 0);  // two pixels per lane: the first is read by the low shuffle
      } else {
        for (std::size_t step = 0; step < steps; ++step) {
          put(step, 0, slot, step * 4);
          put(step, 1, slot, step * 4 + 2);
        }
      }
    }
  }
};

__attribute__((target("avx2"), always_inline)) inline __m256i Vector8(const std::int32_t* p) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

__attribute__((target("avx2"))) void Rgba8HorizontalRowAvx2(Pass& pass, const Byte* s, Byte* o) {
  if (!pass.wide) {
    Rgba8HorizontalMadd::Row(pass, s, o);
    return;
  }
  const std::size_t out = pass.table->spans.size();
  const std::uint32_t* starts = pass.starts.data();
  const std::int32_t* weights = pass.pairs.data();
  const __m256i round = _mm256_set1_epi32(1024);
  // 16-bit values of taps 0/1 (lo) and 2/3 (hi) of the lane's four pixels,
  // channel by channel.
  const __m256i lo = _mm256_setr_epi8(0, -1, 4, -1, 1, -1, 5, -1, 2, -1, 6, -1, 3, -1, 7, -1,  //
                                      0, -1, 4, -1, 1, -1, 5, -1, 2, -1, 6, -1, 3, -1, 7, -1);
  const __m256i hi = _mm256_setr_epi8(8, -1, 12, -1, 9, -1, 13, -1, 10, -1, 14, -1, 11, -1, 15, -1,  //
                                      8, -1, 12, -1, 9, -1, 13, -1, 10, -1, 14, -1, 11, -1, 15, -1);
  if (pass.window == 2) {
    for (std::size_t u = 0; u < out; u += 4, weights += pass.pair_stride) {
      auto at = [&](std::size_t v) { return s + std::size_t{starts[std::min(v, out - 1)]} * 4; };
      const __m128i a01 = _mm_unpacklo_epi64(Bytes8(at(u)), Bytes8(at(u + 1)));
      const __m128i a23 = _mm_unpacklo_epi64(Bytes8(at(u + 2)), Bytes8(at(u + 3)));
      const __m256i a = _mm256_inserti128_si256(_mm256_castsi128_si256(a01), a23, 1);
      const __m256i r0 = _mm256_madd_epi16(_mm256_shuffle_epi8(a, lo), Vector8(weights));
      const __m256i r1 = _mm256_madd_epi16(_mm256_shuffle_epi8(a, hi), Vector8(weights + 8));
      __m256i r = _mm256_packs_epi32(_mm256_srai_epi32(_mm256_add_epi32(r0, round), 11),
                                     _mm256_srai_epi32(_mm256_add_epi32(r1, round), 11));
      r = _mm256_permute4x64_epi64(_mm256_packus_epi16(r, r), 0x08);
      alignas(16) Byte four[16];
      Byte* d = u + 4 <= out ? o + u * 4 : four;
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm256_castsi256_si128(r));
      if (d == four) std::memcpy(o + u * 4, four, (out - u) * 4);
    }
    return;
  }
  const std::size_t steps = pass.window / 4;
  for (std::size_t u = 0; u < out; u += 2, weights += pass.pair_stride) {
    const Byte* p0 = s + std::size_t{starts[u]} * 4;
    const Byte* p1 = s + std::size_t{starts[std::min(u + 1, out - 1)]} * 4;
    const std::int32_t* w = weights;
    __m256i acc0 = _mm256_setzero_si256(), acc1 = _mm256_setzero_si256();
    for (std::size_t i = 0; i < steps; ++i, p0 += 16, p1 += 16, w += 16) {
      const __m256i a = _mm256_inserti128_si256(_mm256_castsi128_si256(Bytes16(p0)), Bytes16(p1), 1);
      acc0 = _mm256_add_epi32(acc0, _mm256_madd_epi16(_mm256_shuffle_epi8(a, lo), Vector8(w)));
      acc1 = _mm256_add_epi32(acc1, _mm256_madd_epi16(_mm256_shuffle_epi8(a, hi), Vector8(w + 8)));
    }
    __m256i r = _mm256_srai_epi32(_mm256_add_epi32(_mm256_add_epi32(acc0, acc1), round), 11);
    r = _mm256_packs_epi32(r, r);
    r = _mm256_packus_epi16(r, r);
    Store<std::int32_t>(o + u * 4, _mm256_cvtsi256_si32(r));
    if (u + 1 < out) Store<std::int32_t>(o + u * 4 + 4, _mm256_extract_epi32(r, 4));
  }
}

// Every span u is [2u, 2u + 2) with the same two weights, as in an exact
// 2:1 shrink: the row is read contiguously, without per-pixel starts or
// weights. Used for 1, 2 and 4 channels of 8 bits, where a 16-byte lane holds
// whole destination pixels.
struct U8PairsAvx2 {
  // Whether the table is of that kind, with weights within int16 so that pmaddwd is exact.
  static bool Applies(const Table& t) {
    if (t.spans.empty() || t.capacity < 2) return false;
    const std::int32_t w0 = t.fixed[0], w1 = t.fixed[1];
    constexpr std::int32_t kLo = std::numeric_limits<std::int16_t>::min();
    constexpr std::int32_t kHi = std::numeric_limits<std::int16_t>::max();
    if (w0 < kLo || w0 > kHi || w1 < kLo || w1 > kHi) return false;
    for (std::size_t u = 0; u < t.spans.size(); ++u) {
      const Table::Span span = t.spans[u];
      const std::int32_t* w = t.fixed.data() + u * t.capacity;
      if (span.first != 2 * u || span.last != 2 * u + 2 || w[0] != w0 || w[1] != w1) return false;
    }
    return true;
  }

  static void Prepare(Pass& pass) {
    const Table& t = *pass.table;
    pass.pairs.assign({WeightPair(t.fixed[0], t.fixed[1]), t.fixed[0], t.fixed[1]});
  }
};

// Byte shuffle that puts channel i of a lane's destination bytes (i = first
// .. first + 3) and the same channel of the next source pixel side by side as
// 16-bit values.
template <int C>
__attribute__((target("avx2"), always_inline)) inline __m256i PairShuffle(int first) {
  alignas(32) std::int8_t m[32];
  for (int i = 0; i < 4; ++i) {
    const int a = 2 * C * ((first + i) / C) + (first + i) % C;
    m[4 * i] = static_cast<std::int8_t>(a);
    m[4 * i + 1] = -1;
    m[4 * i + 2] = static_cast<std::int8_t>(a + C);
    m[4 * i + 3] = -1;
  }
  std::memcpy(m + 16, m, 16);
  return _mm256_load_si256(reinterpret_cast<const __m256i*>(m));
}

// 32 source bytes to their 16 results as int16, in order within each lane.
__attribute__((target("avx2"), always_inline)) inline __m256i PairSixteen(const Byte* p, __m256i lo, __m256i hi,
                                                                          __m256i w, __m256i round) {
  const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
  const __m256i r0 = _mm256_madd_epi16(_mm256_shuffle_epi8(a, lo), w);
  const __m256i r1 = _mm256_madd_epi16(_mm256_shuffle_epi8(a, hi), w);
  return _mm256_packs_epi32(_mm256_srai_epi32(_mm256_add_epi32(r0, round), 11),
                            _mm256_srai_epi32(_mm256_add_epi32(r1, round), 11));
}

template <int C>
__attribute__((target("avx2"))) void U8PairsRowAvx2(Pass& pass, const Byte* s, Byte* o) {
  static_assert(16 % (2 * C) == 0, "a lane holds whole source pixel pairs");
  const std::size_t n = pass.table->spans.size() * C;  // destination bytes
  const __m256i w = _mm256_set1_epi32(pass.pairs[0]);
  const __m256i round = _mm256_set1_epi32(1024);
  const __m256i lo = PairShuffle<C>(0), hi = PairShuffle<C>(4);
  std::size_t j = 0;
  for (; j + 32 <= n; j += 32) {
    const __m256i r =
        _mm256_packus_epi16(PairSixteen(s + 2 * j, lo, hi, w, round), PairSixteen(s + 2 * j + 32, lo, hi, w, round));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(o + j), _mm256_permute4x64_epi64(r, 0xd8));
  }
  if (j + 16 <= n) {
    const __m256i a = PairSixteen(s + 2 * j, lo, hi, w, round);
    const __m256i r = _mm256_permute4x64_epi64(_mm256_packus_epi16(a, a), 0x08);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(o + j), _mm256_castsi256_si128(r));
    j += 16;
  }
  const std::int32_t w0 = pass.pairs[1], w1 = pass.pairs[2];
  for (; j < n; ++j) {
    const Byte* p = s + 2 * C * (j / C) + j % C;
    o[j] = FixedResult<std::int32_t, std::uint8_t>(w0 * std::int32_t{p[0]} + w1 * std::int32_t{p[C]});
  }
}

// Any number of 8-bit channels: two source rows per multiply-add, 32 bytes
// of the row per step with the sums in registers across the whole span.
struct U8VerticalMadd {
  static void Prepare(Pass& pass) { pass.pairs.assign((pass.table->capacity + 1) / 2, 0); }

  // The pairs of span u; an odd span pairs its last row with a zero weight.
  static void Pairs(Pass& pass, std::size_t u) {
    const Table& t = *pass.table;
    const std::int32_t* w = t.fixed.data() + u * t.capacity;
    const std::size_t n = t.spans[u].last - t.spans[u].first;
    for (std::size_t k = 0; k < n; k += 2) pass.pairs[k / 2] = WeightPair(w[k], k + 1 < n ? w[k + 1] : 0);
  }

  static void Tail(const Pass& pass, const Byte* const* rows, std::size_t u, std::size_t j, Byte* o) {
    const Table& t = *pass.table;
    const std::int32_t* w = t.fixed.data() + u * t.capacity;
    const std::size_t n = t.spans[u].last - t.spans[u].first;
    const std::size_t elements = pass.width * pass.plan->channels;
    for (; j < elements; ++j) {
      std::int32_t acc = 0;
      for (std::size_t k = 0; k < n; ++k) acc += w[k] * static_cast<std::int32_t>(rows[k][j]);
      o[j] = FixedResult<std::int32_t, std::uint8_t>(acc);
    }
  }

  // (sum + 1024) >> 11 of four vectors of sums, clamped to 0..255 by the two
  // saturating packs.
  static LMIMAGE_KERNEL __m128i Results(__m128i a, __m128i b, __m128i c, __m128i e) {
    const __m128i round = _mm_set1_epi32(1024);
    a = _mm_srai_epi32(_mm_add_epi32(a, round), 11);
    b = _mm_srai_epi32(_mm_add_epi32(b, round), 11);
    c = _mm_srai_epi32(_mm_add_epi32(c, round), 11);
    e = _mm_srai_epi32(_mm_add_epi32(e, round), 11);
    return _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_packs_epi32(c, e));
  }

  // Elements [j, end) of the row, 32 at a time while whole steps fit; returns
  // where it stopped.
  static LMIMAGE_KERNEL std::size_t Steps(const Byte* const* rows, const std::int32_t* pairs, std::size_t n,
                                          std::size_t j, std::size_t end, Byte* o) {
    const __m128i zero = _mm_setzero_si128();
    for (; j + 32 <= end; j += 32) {
      __m128i acc[8] = {zero, zero, zero, zero, zero, zero, zero, zero};
      for (std::size_t k = 0; k < n; k += 2) {
        const __m128i wv = _mm_set1_epi32(pairs[k / 2]);
        const __m128i a0 = Bytes16(rows[k] + j);
        const __m128i a1 = Bytes16(rows[k] + j + 16);
        const __m128i b0 = k + 1 < n ? Bytes16(rows[k + 1] + j) : zero;
        const __m128i b1 = k + 1 < n ? Bytes16(rows[k + 1] + j + 16) : zero;
        const __m128i l0 = _mm_unpacklo_epi8(a0, b0), h0 = _mm_unpackhi_epi8(a0, b0);
        const __m128i l1 = _mm_unpacklo_epi8(a1, b1), h1 = _mm_unpackhi_epi8(a1, b1);
        acc[0] = _mm_add_epi32(acc[0], _mm_madd_epi16(_mm_unpacklo_epi8(l0, zero), wv));
        acc[1] = _mm_add_epi32(acc[1], _mm_madd_epi16(_mm_unpackhi_epi8(l0, zero), wv));
        acc[2] = _mm_add_epi32(acc[2], _mm_madd_epi16(_mm_unpacklo_epi8(h0, zero), wv));
        acc[3] = _mm_add_epi32(acc[3], _mm_madd_epi16(_mm_unpackhi_epi8(h0, zero), wv));
        acc[4] = _mm_add_epi32(acc[4], _mm_madd_epi16(_mm_unpacklo_epi8(l1, zero), wv));
        acc[5] = _mm_add_epi32(acc[5], _mm_madd_epi16(_mm_unpackhi_epi8(l1, zero), wv));
        acc[6] = _mm_add_epi32(acc[6], _mm_madd_epi16(_mm_unpacklo_epi8(h1, zero), wv));
        acc[7] = _mm_add_epi32(acc[7], _mm_madd_epi16(_mm_unpackhi_epi8(h1, zero), wv));
      }
      _mm_storeu_si128(reinterpret_cast<__m128i*>(o + j), Results(acc[0], acc[1], acc[2], acc[3]));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(o + j + 16), Results(acc[4], acc[5], acc[6], acc[7]));
    }
    return j;
  }

  static LMIMAGE_KERNEL void Row(Pass& pass, const Byte* const* rows, std::size_t u, Byte* o) {
    Pairs(pass, u);
    const std::size_t n = pass.table->spans[u].last - pass.table->spans[u].first;
    const std::size_t j = Steps(rows, pass.pairs.data(), n, 0, pass.width * pass.plan->channels, o);
    Tail(pass, rows, u, j, o);
  }
};

// The same with 256-bit registers, 64 bytes per step. Unpacks and packs work
// within 128-bit lanes, so each lane is the 128-bit kernel on its own 16
// bytes and the bytes come out in order.
__attribute__((target("avx2"))) inline __m256i U8ResultsAvx2(__m256i a, __m256i b, __m256i c, __m256i e) {
  const __m256i round = _mm256_set1_epi32(1024);
  a = _mm256_srai_epi32(_mm256_add_epi32(a, round), 11);
  b = _mm256_srai_epi32(_mm256_add_epi32(b, round), 11);
  c = _mm256_srai_epi32(_mm256_add_epi32(c, round), 11);
  e = _mm256_srai_epi32(_mm256_add_epi32(e, round), 11);
  return _mm256_packus_epi16(_mm256_packs_epi32(a, b), _mm256_packs_epi32(c, e));
}

__attribute__((target("avx2"))) void U8VerticalMaddAvx2(Pass& pass, const Byte* const* rows, std::size_t u, Byte* o) {
  U8VerticalMadd::Pairs(pass, u);
  const std::size_t n = pass.table->spans[u].last - pass.table->spans[u].first;
  const std::size_t elements = pass.width * pass.plan->channels;
  const std::int32_t* pairs = pass.pairs.data();
  const __m256i zero = _mm256_setzero_si256();
  std::size_t j = 0;
  for (; j + 64 <= elements; j += 64) {
    __m256i acc[8] = {zero, zero, zero, zero, zero, zero, zero, zero};
    for (std::size_t k = 0; k < n; k += 2) {
      const __m256i wv = _mm256_set1_epi32(pairs[k / 2]);
      const __m256i a0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(rows[k] + j));
      const __m256i a1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(rows[k] + j + 32));
      const __m256i b0 = k + 1 < n ? _mm256_loadu_si256(reinterpret_cast<const __m256i*>(rows[k + 1] + j)) : zero;
      const __m256i b1 = k + 1 < n ? _mm256_loadu_si256(reinterpret_cast<const __m256i*>(rows[k + 1] + j + 32)) : zero;
      const __m256i l0 = _mm256_unpacklo_epi8(a0, b0), h0 = _mm256_unpackhi_epi8(a0, b0);
      const __m256i l1 = _mm256_unpacklo_epi8(a1, b1), h1 = _mm256_unpackhi_epi8(a1, b1);
      acc[0] = _mm256_add_epi32(acc[0], _mm256_madd_epi16(_mm256_unpacklo_epi8(l0, zero), wv));
      acc[1] = _mm256_add_epi32(acc[1], _mm256_madd_epi16(_mm256_unpackhi_epi8(l0, zero), wv));
      acc[2] = _mm256_add_epi32(acc[2], _mm256_madd_epi16(_mm256_unpacklo_epi8(h0, zero), wv));
      acc[3] = _mm256_add_epi32(acc[3], _mm256_madd_epi16(_mm256_unpackhi_epi8(h0, zero), wv));
      acc[4] = _mm256_add_epi32(acc[4], _mm256_madd_epi16(_mm256_unpacklo_epi8(l1, zero), wv));
      acc[5] = _mm256_add_epi32(acc[5], _mm256_madd_epi16(_mm256_unpackhi_epi8(l1, zero), wv));
      acc[6] = _mm256_add_epi32(acc[6], _mm256_madd_epi16(_mm256_unpacklo_epi8(h1, zero), wv));
      acc[7] = _mm256_add_epi32(acc[7], _mm256_madd_epi16(_mm256_unpackhi_epi8(h1, zero), wv));
    }
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(o + j), U8ResultsAvx2(acc[0], acc[1], acc[2], acc[3]));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(o + j + 32), U8ResultsAvx2(acc[4], acc[5], acc[6], acc[7]));
  }
  j = U8VerticalMadd::Steps(rows, pairs, n, j, elements, o);
  U8VerticalMadd::Tail(pass, rows, u, j, o);
}

#endif  // LMIMAGE_RESCALE_X86

// Packed layouts: component bit counts B0..B3 from the most significant field
// down (B3 = 0 for three components), in a 16- or 32-bit pixel.
template <typename P, int B0, int B1, int B2, int B3>
struct Packed {
  using Pixel = P;
  static constexpr int kCount = B3 == 0 ? 3 : 4;
  static constexpr int kBits[4] = {B0, B1, B2, B3};
  static constexpr int Shift(int c) {
    int s = 0;
    for (int i = c + 1; i < kCount; ++i) s += kBits[i];
    return s;
  }
  static constexpr std::uint32_t Max(int c) { return (1u << kBits[c]) - 1u; }
  static std::uint32_t Get(P pixel, int c) { return (static_cast<std::uint32_t>(pixel) >> Shift(c)) & Max(c); }
};

template <typename L, typename Acc>
inline void PackedStore(Byte* o, const Acc* acc) noexcept {
  std::uint32_t pixel = 0;
  for (int c = 0; c < L::kCount; ++c) pixel |= FixedField<Acc>(acc[c], L::Max(c)) << L::Shift(c);
  Store<typename L::Pixel>(o, static_cast<typename L::Pixel>(pixel));
}

template <typename L, typename Acc>
struct PackedHorizontal : NoPrepare {
  static LMIMAGE_KERNEL void Row(Pass& pass, const Byte* s, Byte* o) {
    using P = typename L::Pixel;
    constexpr int C = L::kCount;
    const Table& t = *pass.table;
    const std::size_t cap = t.capacity;
    const std::size_t out = t.spans.size();
    for (std::size_t u = 0; u < out; ++u) {
      const Table::Span span = t.spans[u];
      const std::int32_t* w = t.fixed.data() + u * cap;
      const Byte* p = s + static_cast<std::size_t>(span.first) * sizeof(P);
      const std::size_t n = span.last - span.first;
      Acc acc[C] = {};
      for (std::size_t k = 0; k < n; ++k) {
        const Acc wk = w[k];
        const P pixel = Load<P>(p + k * sizeof(P));
        for (int c = 0; c < C; ++c) acc[c] += wk * static_cast<Acc>(L::Get(pixel, c));
      }
      PackedStore<L, Acc>(o + u * sizeof(P), acc);
    }
  }
};

template <typename L, typename Acc>
struct PackedVertical : NoPrepare {
  static LMIMAGE_KERNEL void Row(Pass& pass, const Byte* const* rows, std::size_t u, Byte* o) {
    using P = typename L::Pixel;
    constexpr int C = L::kCount;
    constexpr std::size_t kPixels = kBlock / 4;
    const Table& t = *pass.table;
    const std::int32_t* w = t.fixed.data() + u * t.capacity;
    const std::size_t n = t.spans[u].last - t.spans[u].first;
    alignas(64) Acc acc[kPixels * C];
    for (std::size_t x0 = 0; x0 < pass.width; x0 += kPixels) {
      const std::size_t m = std::min(kPixels, pass.width - x0);
      for (std::size_t j = 0; j < m * C; ++j) acc[j] = 0;
      for (std::size_t k = 0; k < n; ++k) {
        const Byte* r = rows[k] + x0 * sizeof(P);
        const Acc wk = w[k];
        for (std::size_t x = 0; x < m; ++x) {
          const P pixel = Load<P>(r + x * sizeof(P));
          for (int c = 0; c < C; ++c) acc[x * C + c] += wk * static_cast<Acc>(L::Get(pixel, c));
        }
      }
      for (std::size_t x = 0; x < m; ++x) PackedStore<L, Acc>(o + (x0 + x) * sizeof(P), acc + x * C);
    }
  }
};

// ---- Floating rule ----

// The type a pass reads: halves are widened to float first.
template <typename T>
struct FloatLane {
  using Value = T;
};
template <>
struct FloatLane<half> {
  using Value = float;
};

// n halves (any alignment) to floats.
inline void HalvesToFloats(const Byte* src, float* out, std::size_t n, half* staging) noexcept {
  if (reinterpret_cast<std::uintptr_t>(src) % alignof(half) == 0) {
    HalfToFloat(reinterpret_cast<const half*>(src), out, n);
  } else {
    std::memcpy(staging, src, n * sizeof(half));
    HalfToFloat(staging, out, n);
  }
}

inline void FloatsToHalves(const float* in, Byte* dst, std::size_t n, half* staging) noexcept {
  if (reinterpret_cast<std::uintptr_t>(dst) % alignof(half) == 0) {
    FloatToHalf(in, reinterpret_cast<half*>(dst), n);
  } else {
    FloatToHalf(in, staging, n);
    std::memcpy(dst, staging, n * sizeof(half));
  }
}

// Scratch of a horizontal floating pass: half rows are widened into a float
// row and the results gathered in a float row before narrowing.
template <typename T, int C>
struct FloatRows {
  static void Prepare(Pass& pass) {
    if constexpr (std::is_same_v<T, half>) {
      const std::size_t in = pass.source * C;
      const std::size_t out = pass.table->spans.size() * C;
      pass.floats_in.resize(in);
      pass.floats_out.resize(out);
      pass.halves.resize(std::max(in, out));
    }
  }
};

// Destination pixels resampled together: their sums are independent, which
// hides the latency of the additions within one sum.
constexpr std::size_t kGroup = 4;

template <typename T, int C>
struct FloatHorizontal : FloatRows<T, C> {
  static LMIMAGE_KERNEL void Row(Pass& pass, const Byte* s, Byte* o) {
    using V = typename FloatLane<T>::Value;
    constexpr bool kHalf = std::is_same_v<T, half>;
    const Table& t = *pass.table;
    const std::size_t cap = t.capacity;
    const std::size_t out = t.spans.size();
    if constexpr (kHalf) {
      HalvesToFloats(s, pass.floats_in.data(), pass.source * C, pass.halves.data());
      s = reinterpret_cast<const Byte*>(pass.floats_in.data());
    }
    auto store = [&](std::size_t u, const double* acc) {
      if constexpr (kHalf) {
        for (int c = 0; c < C; ++c) pass.floats_out[u * C + c] = static_cast<float>(acc[c]);
      } else {
        for (int c = 0; c < C; ++c) Store<T>(o + (u * C + c) * sizeof(T), static_cast<T>(acc[c]));
      }
    };
    std::size_t u = 0;
    for (; u + kGroup <= out; u += kGroup) {
      const Byte* p[kGroup];
      const double* w[kGroup];
      std::size_t n[kGroup];
      std::size_t common = ~std::size_t{0};
      for (std::size_t q = 0; q < kGroup; ++q) {
        const Table::Span span = t.spans[u + q];
        p[q] = s + static_cast<std::size_t>(span.first) * C * sizeof(V);
        w[q] = t.weights.data() + (u + q) * cap;
        n[q] = span.last - span.first;
        common = std::min(common, n[q]);
      }
      double acc[kGroup][C] = {};
      for (std::size_t k = 0; k < common; ++k) {
        for (std::size_t q = 0; q < kGroup; ++q) {
          const double wk = w[q][k];
          for (int c = 0; c < C; ++c) acc[q][c] += wk * static_cast<double>(Load<V>(p[q] + (k * C + c) * sizeof(V)));
        }
      }
      for (std::size_t q = 0; q < kGroup; ++q) {
        for (std::size_t k = common; k < n[q]; ++k) {
          const double wk = w[q][k];
          for (int c = 0; c < C; ++c) acc[q][c] += wk * static_cast<double>(Load<V>(p[q] + (k * C + c) * sizeof(V)));
        }
        store(u + q, acc[q]);
      }
    }
    for (; u < out; ++u) {
      const Table::Span span = t.spans[u];
      const double* w = t.weights.data() + u * cap;
      const Byte* p = s + static_cast<std::size_t>(span.first) * C * sizeof(V);
      const std::size_t n = span.last - span.first;
      double acc[C] = {};
      for (std::size_t k = 0; k < n; ++k) {
        const double wk = w[k];
        for (int c = 0; c < C; ++c) acc[c] += wk * static_cast<double>(Load<V>(p + (k * C + c) * sizeof(V)));
      }
      store(u, acc);
    }
    if constexpr (kHalf) FloatsToHalves(pass.floats_out.data(), o, out * C, pass.halves.data());
  }
};

#if LMIMAGE_RESCALE_X86

// Four float (or widened half) channels per pixel: the pixel's four sums in
// two 128-bit registers (one 256-bit register in the AVX2 kernel), groups of
// pixels side by side. Lane by lane these are the scalar operations.
template <typename T>
struct Float4Horizontal : FloatRows<T, 4> {
  static LMIMAGE_KERNEL void Row(Pass& pass, const Byte* s, Byte* o) {
    constexpr bool kHalf = std::is_same_v<T, half>;
    const Table& t = *pass.table;
    const std::size_t cap = t.capacity;
    const std::size_t out = t.spans.size();
    const float* in = reinterpret_cast<const float*>(s);
    float* result = reinterpret_cast<float*>(o);
    if constexpr (kHalf) {
      HalvesToFloats(s, pass.floats_in.data(), pass.source * 4, pass.halves.data());
      in = pass.floats_in.data();
      result = pass.floats_out.data();
    }
    auto tap = [&](const float* p, double w, __m128d& lo, __m128d& hi) {
      const __m128 v = _mm_loadu_ps(p);
      const __m128d wv = _mm_set1_pd(w);
      lo = _mm_add_pd(lo, _mm_mul_pd(wv, _mm_cvtps_pd(v)));
      hi = _mm_add_pd(hi, _mm_mul_pd(wv, _mm_cvtps_pd(_mm_movehl_ps(v, v))));
    };
    auto store = [&](std::size_t u, __m128d lo, __m128d hi) {
      _mm_storeu_ps(result + u * 4, _mm_movelh_ps(_mm_cvtpd_ps(lo), _mm_cvtpd_ps(hi)));
    };
    std::size_t u = 0;
    for (; u + kGroup <= out; u += kGroup) {
      const float* p[kGroup];
      const double* w[kGroup];
      std::size_t n[kGroup];
      std::size_t common = ~std::size_t{0};
      for (std::size_t q = 0; q < kGroup; ++q) {
        const Table::Span span = t.spans[u + q];
        p[q] = in + static_cast<std::size_t>(span.first) * 4;
        w[q] = t.weights.data() + (u + q) * cap;
        n[q] = span.last - span.first;
        common = std::min(common, n[q]);
      }
      __m128d lo[kGroup], hi[kGroup];
      for (std::size_t q = 0; q < kGroup; ++q) lo[q] = hi[q] = _mm_setzero_pd();
      for (std::size_t k = 0; k < common; ++k) {
        for (std::size_t q = 0; q < kGroup; ++q) tap(p[q] + k * 4, w[q][k], lo[q], hi[q]);
      }
      for (std::size_t q = 0; q < kGroup; ++q) {
        for (std::size_t k = common; k < n[q]; ++k) tap(p[q] + k * 4, w[q][k], lo[q], hi[q]);
        store(u + q, lo[q], hi[q]);
      }
    }
    for (; u < out; ++u) {
      const Table::Span span = t.spans[u];
      const float* p = in + static_cast<std::size_t>(span.first) * 4;
      const double* w = t.weights.data() + u * cap;
      __m128d lo = _mm_setzero_pd(), hi = _mm_setzero_pd();
      for (std::size_t k = 0; k < span.last - span.first; ++k) tap(p + k * 4, w[k], lo, hi);
      store(u, lo, hi);
    }
    if constexpr (kHalf) FloatsToHalves(pass.floats_out.data(), o, out * 4, pass.halves.data());
  }
};

// acc + w x the four halves or floats at p, lane by lane.
template <typename T>
__attribute__((target("avx2,f16c"), always_inline)) inline __m256d Float4TapAvx2(__m256d acc, const Byte* p, double w) {
  __m128 v;
  if constexpr (std::is_same_v<T, half>) {
    v = _mm_cvtph_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
  } else {
    v = _mm_loadu_ps(reinterpret_cast<const float*>(p));
  }
  return _mm256_add_pd(acc, _mm256_mul_pd(_mm256_set1_pd(w), _mm256_cvtps_pd(v)));
}

// Two pixels' sums rounded to float, then to half for halves.
template <typename T>
__attribute__((target("avx2,f16c"), always_inline)) inline void Float4StoreAvx2(Byte* p, __m256d a, __m256d b) {
  const __m256 f = _mm256_set_m128(_mm256_cvtpd_ps(b), _mm256_cvtpd_ps(a));
  if constexpr (std::is_same_v<T, half>) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm256_cvtps_ph(f, _MM_FROUND_TO_NEAREST_INT));
  } else {
    _mm256_storeu_ps(reinterpret_cast<float*>(p), f);
  }
}

// With AVX2 and F16C, halves are widened tap by tap as they are read and the
// results narrowed as they are stored, with no row buffers.
template <typename T>
__attribute__((target("avx2,f16c"))) void Float4HorizontalAvx2(Pass& pass, const Byte* s, Byte* o) {
  constexpr std::size_t kPixel = 4 * sizeof(T);
  const Table& t = *pass.table;
  const std::size_t cap = t.capacity;
  const std::size_t out = t.spans.size();
  const auto tap = Float4TapAvx2<T>;
  // Four pixels at a time, each sum in its own register.
  std::size_t u = 0;
  for (; u + 4 <= out; u += 4) {
    const Table::Span s0 = t.spans[u], s1 = t.spans[u + 1], s2 = t.spans[u + 2], s3 = t.spans[u + 3];
    const Byte* p0 = s + s0.first * kPixel;
    const Byte* p1 = s + s1.first * kPixel;
    const Byte* p2 = s + s2.first * kPixel;
    const Byte* p3 = s + s3.first * kPixel;
    const double* w0 = t.weights.data() + u * cap;
    const double* w1 = w0 + cap;
    const double* w2 = w1 + cap;
    const double* w3 = w2 + cap;
    const std::size_t n0 = s0.last - s0.first, n1 = s1.last - s1.first;
    const std::size_t n2 = s2.last - s2.first, n3 = s3.last - s3.first;
    const std::size_t common = std::min(std::min(n0, n1), std::min(n2, n3));
    __m256d a0 = _mm256_setzero_pd(), a1 = _mm256_setzero_pd();
    __m256d a2 = _mm256_setzero_pd(), a3 = _mm256_setzero_pd();
    for (std::size_t k = 0; k < common; ++k) {
      a0 = tap(a0, p0 + k * kPixel, w0[k]);
      a1 = tap(a1, p1 + k * kPixel, w1[k]);
      a2 = tap(a2, p2 + k * kPixel, w2[k]);
      a3 = tap(a3, p3 + k * kPixel, w3[k]);
    }
    for (std::size_t k = common; k < n0; ++k) a0 = tap(a0, p0 + k * kPixel, w0[k]);
    for (std::size_t k = common; k < n1; ++k) a1 = tap(a1, p1 + k * kPixel, w1[k]);
    for (std::size_t k = common; k < n2; ++k) a2 = tap(a2, p2 + k * kPixel, w2[k]);
    for (std::size_t k = common; k < n3; ++k) a3 = tap(a3, p3 + k * kPixel, w3[k]);
    Float4StoreAvx2<T>(o + u * kPixel, a0, a1);
    Float4StoreAvx2<T>(o + (u + 2) * kPixel, a2, a3);
  }
  for (; u < out; ++u) {
    const Table::Span span = t.spans[u];
    const Byte* p = s + span.first * kPixel;
    const double* w = t.weights.data() + u * cap;
    __m256d acc = _mm256_setzero_pd();
    for (std::size_t k = 0; k < span.last - span.first; ++k) acc = tap(acc, p + k * kPixel, w[k]);
    const __m128 f = _mm256_cvtpd_ps(acc);
    if constexpr (std::is_same_v<T, half>) {
      _mm_storel_epi64(reinterpret_cast<__m128i*>(o + u * kPixel), _mm_cvtps_ph(f, _MM_FROUND_TO_NEAREST_INT));
    } else {
      _mm_storeu_ps(reinterpret_cast<float*>(o + u * kPixel), f);
    }
  }
}

#endif  // LMIMAGE_RESCALE_X86

// Whole rows in blocks; two source rows per sweep of the block keep the
// accumulators' loads and stores down, each element still adding its terms
// in span order.
template <typename T>
struct FloatVertical : NoPrepare {
  static LMIMAGE_KERNEL void Row(Pass& pass, const Byte* const* rows, std::size_t u, Byte* o) {
    constexpr bool kHalf = std::is_same_v<T, half>;
    constexpr std::size_t kFloats = kHalf ? kBlock : 1;
    const Table& t = *pass.table;
    const double* w = t.weights.data() + u * t.capacity;
    const std::size_t n = t.spans[u].last - t.spans[u].first;
    const std::size_t elements = pass.width * pass.plan->channels;
    alignas(64) double acc[kBlock];
    alignas(64) float a[kFloats];
    alignas(64) float b[kFloats];
    alignas(64) half staging[kFloats];
    for (std::size_t j0 = 0; j0 < elements; j0 += kBlock) {
      const std::size_t m = std::min(kBlock, elements - j0);
      for (std::size_t j = 0; j < m; ++j) acc[j] = 0.0;
      std::size_t k = 0;
      for (; k + 2 <= n; k += 2) {
        const Byte* r0 = rows[k] + j0 * sizeof(T);
        const Byte* r1 = rows[k + 1] + j0 * sizeof(T);
        const double w0 = w[k], w1 = w[k + 1];
        if constexpr (kHalf) {
          HalvesToFloats(r0, a, m, staging);
          HalvesToFloats(r1, b, m, staging);
          for (std::size_t j = 0; j < m; ++j) {
            acc[j] = (acc[j] + w0 * static_cast<double>(a[j])) + w1 * static_cast<double>(b[j]);
          }
        } else {
          for (std::size_t j = 0; j < m; ++j) {
            acc[j] = (acc[j] + w0 * static_cast<double>(Load<T>(r0 + j * sizeof(T)))) +
                     w1 * static_cast<double>(Load<T>(r1 + j * sizeof(T)));
          }
        }
      }
      if (k < n) {
        const Byte* r0 = rows[k] + j0 * sizeof(T);
        const double w0 = w[k];
        if constexpr (kHalf) {
          HalvesToFloats(r0, a, m, staging);
          for (std::size_t j = 0; j < m; ++j) acc[j] += w0 * static_cast<double>(a[j]);
        } else {
          for (std::size_t j = 0; j < m; ++j) acc[j] += w0 * static_cast<double>(Load<T>(r0 + j * sizeof(T)));
        }
      }
      Byte* oj = o + j0 * sizeof(T);
      if constexpr (kHalf) {
        for (std::size_t j = 0; j < m; ++j) a[j] = static_cast<float>(acc[j]);
        FloatsToHalves(a, oj, m, staging);
      } else {
        for (std::size_t j = 0; j < m; ++j) Store<T>(oj + j * sizeof(T), static_cast<T>(acc[j]));
      }
    }
  }
};

#if LMIMAGE_RESCALE_X86

// Eight halves or floats at p as floats.
template <typename T>
__attribute__((target("avx2,f16c"), always_inline)) inline __m256 Load8Avx2(const Byte* p) {
  if constexpr (std::is_same_v<T, half>) {
    return _mm256_cvtph_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
  } else {
    return _mm256_loadu_ps(reinterpret_cast<const float*>(p));
  }
}

// Eight sums (lo: the first four) rounded to float, then to half for halves.
template <typename T>
__attribute__((target("avx2,f16c"), always_inline)) inline void Store8Avx2(Byte* p, __m256d lo, __m256d hi) {
  const __m256 f = _mm256_set_m128(_mm256_cvtpd_ps(hi), _mm256_cvtpd_ps(lo));
  if constexpr (std::is_same_v<T, half>) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm256_cvtps_ph(f, _MM_FROUND_TO_NEAREST_INT));
  } else {
    _mm256_storeu_ps(reinterpret_cast<float*>(p), f);
  }
}

// Half and float rows with AVX2 (and F16C for halves): 16 elements per step,
// their sums in registers across the whole span.
template <typename T>
__attribute__((target("avx2,f16c"))) void FloatVerticalAvx2(Pass& pass, const Byte* const* rows, std::size_t u,
                                                            Byte* o) {
  const Table& t = *pass.table;
  const double* w = t.weights.data() + u * t.capacity;
  const std::size_t n = t.spans[u].last - t.spans[u].first;
  const std::size_t elements = pass.width * pass.plan->channels;
  const auto load8 = Load8Avx2<T>;
  const auto store8 = Store8Avx2<T>;
  std::size_t j = 0;
  for (; j + 16 <= elements; j += 16) {
    __m256d acc0 = _mm256_setzero_pd(), acc1 = _mm256_setzero_pd();
    __m256d acc2 = _mm256_setzero_pd(), acc3 = _mm256_setzero_pd();
    for (std::size_t k = 0; k < n; ++k) {
      const Byte* r = rows[k] + j * sizeof(T);
      const __m256d wv = _mm256_set1_pd(w[k]);
      const __m256 f0 = load8(r);
      const __m256 f1 = load8(r + 8 * sizeof(T));
      acc0 = _mm256_add_pd(acc0, _mm256_mul_pd(wv, _mm256_cvtps_pd(_mm256_castps256_ps128(f0))));
      acc1 = _mm256_add_pd(acc1, _mm256_mul_pd(wv, _mm256_cvtps_pd(_mm256_extractf128_ps(f0, 1))));
      acc2 = _mm256_add_pd(acc2, _mm256_mul_pd(wv, _mm256_cvtps_pd(_mm256_castps256_ps128(f1))));
      acc3 = _mm256_add_pd(acc3, _mm256_mul_pd(wv, _mm256_cvtps_pd(_mm256_extractf128_ps(f1, 1))));
    }
    store8(o + j * sizeof(T), acc0, acc1);
    store8(o + (j + 8) * sizeof(T), acc2, acc3);
  }
  for (; j < elements; ++j) {
    double acc = 0.0;
    for (std::size_t k = 0; k < n; ++k) {
      acc += w[k] * static_cast<double>(static_cast<float>(Load<T>(rows[k] + j * sizeof(T))));
    }
    Store<T>(o + j * sizeof(T), static_cast<T>(static_cast<float>(acc)));
  }
}

#endif  // LMIMAGE_RESCALE_X86

// ---- General rule ----

inline std::uint64_t LowMask(unsigned bits) noexcept { return bits >= 64 ? ~0ULL : (1ULL << bits) - 1; }

// bits (1..64) of a line, from bit position pos, least significant first.
inline std::uint64_t ReadBits(const Byte* line, std::uint64_t pos, unsigned bits) noexcept {
  const Byte* p = line + (pos >> 3);
  unsigned offset = static_cast<unsigned>(pos & 7);
  std::uint64_t v = 0;
  unsigned done = 0;
  while (done < bits) {
    const unsigned take = std::min(8u - offset, bits - done);
    v |= static_cast<std::uint64_t>((*p >> offset) & ((1u << take) - 1u)) << done;
    done += take;
    offset = 0;
    ++p;
  }
  return v;
}

// Writes bit fields in increasing bit order from the start of a line: a byte
// is cleared when the first bit goes into it and or-ed into afterwards, so
// the bits past the last field of a byte end up 0.
class BitWriter {
 public:
  explicit BitWriter(Byte* line) noexcept : line_(line) {}

  void Write(std::uint64_t v, unsigned bits) noexcept {
    if ((pos_ & 7) == 0 && (bits & 7) == 0) {  // whole bytes on a byte boundary
      Byte* p = line_ + (pos_ >> 3);
      for (unsigned i = 0; i < bits; i += 8) *p++ = static_cast<Byte>(v >> i);
      pos_ += bits;
      return;
    }
    while (bits != 0) {
      Byte& b = line_[pos_ >> 3];
      const unsigned offset = static_cast<unsigned>(pos_ & 7);
      const unsigned take = std::min(8u - offset, bits);
      if (offset == 0) b = 0;
      b = static_cast<Byte>(b | ((v & ((1u << take) - 1u)) << offset));
      v = take >= 64 ? 0 : v >> take;
      bits -= take;
      pos_ += take;
    }
  }

 private:
  Byte* line_;
  std::uint64_t pos_ = 0;
};

inline double BitsToDouble(std::uint64_t v) noexcept {
  double d;
  std::memcpy(&d, &v, sizeof d);
  return d;
}

inline float BitsToFloat(std::uint32_t v) noexcept {
  float f;
  std::memcpy(&f, &v, sizeof f);
  return f;
}

inline std::int64_t SignExtend(std::uint64_t v, unsigned bits) noexcept {
  if (bits >= 64) return static_cast<std::int64_t>(v);
  const std::uint64_t sign = 1ULL << (bits - 1);
  return static_cast<std::int64_t>((v ^ sign) - sign);
}

double DecodeField(std::uint64_t v, const Field& f) noexcept {
  switch (f.kind) {
    case FieldKind::Unorm:
      return static_cast<double>(v) / static_cast<double>(LowMask(f.bits));
    case FieldKind::Uint:
      return static_cast<double>(v);
    case FieldKind::Snorm:
      // A 1-bit field divides by 0: 0 -> NaN, -1 -> -inf; both encode as 0.
      return static_cast<double>(SignExtend(v, f.bits)) / static_cast<double>(LowMask(f.bits - 1));
    case FieldKind::Sint:
      return static_cast<double>(SignExtend(v, f.bits));
    case FieldKind::Half:
      return static_cast<double>(static_cast<float>(half::FromBits(static_cast<std::uint16_t>(v))));
    case FieldKind::Single:
      return static_cast<double>(BitsToFloat(static_cast<std::uint32_t>(v)));
    case FieldKind::Double:
      return BitsToDouble(v);
    case FieldKind::UFloat10:
      return std::ldexp(1.0 + static_cast<double>(v & 31) / 32.0, static_cast<int>(v >> 5) - 15);
    case FieldKind::UFloat11:
      return std::ldexp(1.0 + static_cast<double>(v & 63) / 64.0, static_cast<int>(v >> 6) - 15);
    case FieldKind::Zero:
      break;
  }
  return 0.0;
}

// round(r) already applied; r >= 0 or NaN. Largest value for r at or above max.
inline std::uint64_t UnsignedFromRounded(double r, std::uint64_t max) noexcept {
  if (!(r > 0.0)) return 0;
  if (r >= static_cast<double>(max)) return max;
  return static_cast<std::uint64_t>(r);
}

// r integral or NaN; clamped to the b-bit two's complement range and kept in b bits.
inline std::uint64_t SignedFromRounded(double r, unsigned bits) noexcept {
  if (r != r) return 0;
  const std::int64_t hi = static_cast<std::int64_t>(LowMask(bits - 1));
  const std::int64_t lo = -hi - 1;
  std::int64_t i;
  if (r <= static_cast<double>(lo)) {
    i = lo;
  } else if (r >= static_cast<double>(hi)) {
    i = hi;
  } else {
    i = static_cast<std::int64_t>(r);
  }
  return static_cast<std::uint64_t>(i) & LowMask(bits);
}

// Unsigned small floats: exponent and truncated mantissa straight from the
// double; sums below 2^-15 (the smallest value, stored as 0) give 0.
inline std::uint64_t EncodeSmallFloat(double sum, unsigned mantissa_bits, double largest) noexcept {
  const std::uint64_t max_code = (30ULL << mantissa_bits) | LowMask(mantissa_bits);
  if (sum > largest) return max_code;
  if (!(sum >= 0x1p-15)) return 0;
  std::uint64_t bits;
  std::memcpy(&bits, &sum, sizeof bits);
  const std::uint64_t exponent = ((bits >> 52) & 0x7ff) - 1023 + 15;
  const std::uint64_t mantissa = (bits >> (52 - mantissa_bits)) & LowMask(mantissa_bits);
  return (exponent << mantissa_bits) | mantissa;
}

std::uint64_t EncodeField(double sum, const Field& f) noexcept {
  switch (f.kind) {
    case FieldKind::Unorm: {
      const std::uint64_t max = LowMask(f.bits);
      const double s = sum > 0.0 ? sum : 0.0;
      return UnsignedFromRounded(std::round(s * static_cast<double>(max)), max);
    }
    case FieldKind::Uint: {
      const double s = sum > 0.0 ? sum : 0.0;
      return UnsignedFromRounded(std::round(s), LowMask(f.bits));
    }
    case FieldKind::Snorm:
      return SignedFromRounded(std::round(sum * static_cast<double>(LowMask(f.bits - 1))), f.bits);
    case FieldKind::Sint:
      return SignedFromRounded(std::trunc(sum), f.bits);
    case FieldKind::Half:
      return half(static_cast<float>(sum)).bits();
    case FieldKind::Single: {
      const float v = static_cast<float>(sum);
      std::uint32_t bits;
      std::memcpy(&bits, &v, sizeof bits);
      return bits;
    }
    case FieldKind::Double: {
      std::uint64_t bits;
      std::memcpy(&bits, &sum, sizeof bits);
      return bits;
    }
    case FieldKind::UFloat10:
      return EncodeSmallFloat(sum, 5, 64512.0);
    case FieldKind::UFloat11:
      return EncodeSmallFloat(sum, 6, 65024.0);
    case FieldKind::Zero:
      break;
  }
  return 0;
}

// Decodes pixels [x0, x0 + count) of a line to doubles, fields in plan order.
void DecodePixels(const Plan& plan, const Byte* line, std::size_t x0, std::size_t count, double* out) {
  const unsigned c = plan.channels;
  std::uint64_t pos = static_cast<std::uint64_t>(x0) * plan.bits_per_pixel;
  for (std::size_t x = 0; x < count; ++x, pos += plan.bits_per_pixel) {
    for (unsigned i = 0; i < c; ++i) {
      const Field& f = plan.fields[i];
      out[x * c + i] = DecodeField(ReadBits(line, pos + f.shift, f.bits), f);
    }
  }
}

void EncodePixels(const Plan& plan, const double* in, std::size_t count, BitWriter& writer) {
  const unsigned c = plan.channels;
  for (std::size_t x = 0; x < count; ++x) {
    for (unsigned i = 0; i < c; ++i) writer.Write(EncodeField(in[x * c + i], plan.fields[i]), plan.fields[i].bits);
  }
}

struct GeneralHorizontal {
  static void Prepare(Pass& pass) {
    pass.doubles_in.resize(pass.source * pass.plan->channels);
    pass.doubles_out.resize(pass.table->spans.size() * pass.plan->channels);
  }

  static void Row(Pass& pass, const Byte* s, Byte* o) {
    const Plan& plan = *pass.plan;
    const unsigned c = plan.channels;
    const Table& t = *pass.table;
    const std::size_t cap = t.capacity;
    const std::size_t out = t.spans.size();
    DecodePixels(plan, s, 0, pass.source, pass.doubles_in.data());
    for (std::size_t u = 0; u < out; ++u) {
      const Table::Span span = t.spans[u];
      const double* w = t.weights.data() + u * cap;
      const double* p = pass.doubles_in.data() + static_cast<std::size_t>(span.first) * c;
      const std::size_t n = span.last - span.first;
      double acc[4] = {0.0, 0.0, 0.0, 0.0};
      for (std::size_t k = 0; k < n; ++k) {
        for (unsigned i = 0; i < c; ++i) acc[i] += w[k] * p[k * c + i];
      }
      for (unsigned i = 0; i < c; ++i) pass.doubles_out[u * c + i] = acc[i];
    }
    BitWriter writer(o);
    EncodePixels(plan, pass.doubles_out.data(), out, writer);
  }
};

struct GeneralVertical {
  static constexpr std::size_t kPixels = kBlock / 4;

  static void Prepare(Pass& pass) {
    pass.doubles_in.resize(kPixels * pass.plan->channels);
    pass.doubles_out.resize(kPixels * pass.plan->channels);
  }

  static void Row(Pass& pass, const Byte* const* rows, std::size_t u, Byte* o) {
    const Plan& plan = *pass.plan;
    const unsigned c = plan.channels;
    const Table& t = *pass.table;
    const double* w = t.weights.data() + u * t.capacity;
    const std::size_t n = t.spans[u].last - t.spans[u].first;
    double* acc = pass.doubles_out.data();
    double* decoded = pass.doubles_in.data();
    BitWriter writer(o);
    for (std::size_t x0 = 0; x0 < pass.width; x0 += kPixels) {
      const std::size_t m = std::min(kPixels, pass.width - x0);
      std::fill(acc, acc + m * c, 0.0);
      for (std::size_t k = 0; k < n; ++k) {
        DecodePixels(plan, rows[k], x0, m, decoded);
        const double wk = w[k];
        for (std::size_t j = 0; j < m * c; ++j) acc[j] += wk * decoded[j];
      }
      EncodePixels(plan, acc, m, writer);
    }
  }
};

// ---- Choosing the rule ----

template <typename T, int C>
void SetFixed(Plan& plan) {
  using Narrow = std::conditional_t<(sizeof(T) < 4), std::int32_t, std::int64_t>;
  plan.horizontal.sum32 = PickHorizontal<FixedHorizontal<T, C, Narrow>>();
  plan.vertical.sum32 = PickVertical<FixedVertical<T, Narrow>>();
  plan.horizontal.sum64 = PickHorizontal<FixedHorizontal<T, C, std::int64_t>>();
  plan.vertical.sum64 = PickVertical<FixedVertical<T, std::int64_t>>();
  plan.horizontal.madd16 = plan.horizontal.sum32;
  plan.vertical.madd16 = plan.vertical.sum32;
#if LMIMAGE_RESCALE_X86
  if constexpr (sizeof(T) == 1) {
    if constexpr (C == 4) {
      plan.horizontal.madd16 = PickHorizontal<Rgba8HorizontalMadd>();
      if (Cpu().avx2) plan.horizontal.madd16 = {Rgba8HorizontalMaddAvx2::Prepare, Rgba8HorizontalRowAvx2};
    }
    plan.vertical.madd16 = PickVertical<U8VerticalMadd>();
    if (Cpu().avx2) plan.vertical.madd16.row = U8VerticalMaddAvx2;
    if constexpr (16 % (2 * C) == 0) {
      if (Cpu().avx2) plan.pairs = {U8PairsAvx2::Prepare, U8PairsRowAvx2<C>};
    }
  }
#endif
  plan.max_value = std::numeric_limits<T>::max();
}

template <typename T>
void SetFixedChannels(Plan& plan, unsigned channels) {
  switch (channels) {
    case 1:
      SetFixed<T, 1>(plan);
      break;
    case 2:
      SetFixed<T, 2>(plan);
      break;
    case 3:
      SetFixed<T, 3>(plan);
      break;
    default:
      SetFixed<T, 4>(plan);
      break;
  }
}

template <typename L>
void SetPacked(Plan& plan) {
  plan.horizontal.madd16 = plan.horizontal.sum32 = PickHorizontal<PackedHorizontal<L, std::int32_t>>();
  plan.vertical.madd16 = plan.vertical.sum32 = PickVertical<PackedVertical<L, std::int32_t>>();
  plan.horizontal.sum64 = PickHorizontal<PackedHorizontal<L, std::int64_t>>();
  plan.vertical.sum64 = PickVertical<PackedVertical<L, std::int64_t>>();
  plan.max_value = 1023;  // the widest packed field
}

template <typename T, int C>
void SetFloat(Plan& plan) {
  HorizontalKernel horizontal = PickHorizontal<FloatHorizontal<T, C>>();
  VerticalKernel vertical = PickVertical<FloatVertical<T>>();
#if LMIMAGE_RESCALE_X86
  if constexpr (!std::is_same_v<T, double>) {
    if constexpr (C == 4) {
      horizontal = PickHorizontal<Float4Horizontal<T>>();
      if (Cpu().avx2 && Cpu().f16c) horizontal = {NoPrepare::Prepare, Float4HorizontalAvx2<T>};
    }
    if (Cpu().avx2 && Cpu().f16c) vertical.row = FloatVerticalAvx2<T>;
  }
#endif
  plan.horizontal.madd16 = plan.horizontal.sum32 = plan.horizontal.sum64 = horizontal;
  plan.vertical.madd16 = plan.vertical.sum32 = plan.vertical.sum64 = vertical;
}

template <typename T>
void SetFloatChannels(Plan& plan, unsigned channels) {
  switch (channels) {
    case 1:
      SetFloat<T, 1>(plan);
      break;
    case 2:
      SetFloat<T, 2>(plan);
      break;
    case 3:
      SetFloat<T, 3>(plan);
      break;
    default:
      SetFloat<T, 4>(plan);
      break;
  }
}

bool SetPackedLayout(Plan& plan, const unsigned (&bits)[4], unsigned channels) {
  auto is = [&](unsigned b0, unsigned b1, unsigned b2, unsigned b3) {
    return channels == (b3 == 0 ? 3u : 4u) && bits[0] == b0 && bits[1] == b1 && bits[2] == b2 &&
           (b3 == 0 || bits[3] == b3);
  };
  if (is(5, 6, 5, 0)) {
    SetPacked<Packed<std::uint16_t, 5, 6, 5, 0>>(plan);
  } else if (is(1, 5, 5, 5)) {
    SetPacked<Packed<std::uint16_t, 1, 5, 5, 5>>(plan);
  } else if (is(4, 4, 4, 4)) {
    SetPacked<Packed<std::uint16_t, 4, 4, 4, 4>>(plan);
  } else if (is(5, 5, 5, 1)) {
    SetPacked<Packed<std::uint16_t, 5, 5, 5, 1>>(plan);
  } else if (is(2, 10, 10, 10)) {
    SetPacked<Packed<std::uint32_t, 2, 10, 10, 10>>(plan);
  } else if (is(10, 10, 10, 2)) {
    SetPacked<Packed<std::uint32_t, 10, 10, 10, 2>>(plan);
  } else {
    return false;
  }
  return true;
}

Plan MakePlan(const PixelFormatMeta& meta) {
  Plan plan;
  unsigned channels = 0;
  unsigned bits[4] = {};
  while (channels < 4 && meta.components[channels].component != PixelComponent::None &&
         meta.components[channels].bits != 0) {
    bits[channels] = static_cast<unsigned>(meta.components[channels].bits);
    plan.bits_per_pixel += bits[channels];
    ++channels;
  }
  plan.channels = channels;

  // Fields in increasing bit order: the last component holds the lowest bits.
  unsigned shift = 0;
  for (unsigned i = 0; i < channels; ++i) {
    const ComponentMeta& m = meta.components[channels - 1 - i];
    Field& f = plan.fields[i];
    f.shift = shift;
    f.bits = bits[channels - 1 - i];
    shift += f.bits;
    if (m.is_float) {
      f.kind = f.bits == 16   ? FieldKind::Half
               : f.bits == 32 ? FieldKind::Single
               : f.bits == 64 ? FieldKind::Double
               : f.bits == 10 ? FieldKind::UFloat10
               : f.bits == 11 ? FieldKind::UFloat11
                              : FieldKind::Zero;
    } else if (m.is_signed) {
      f.kind = meta.unnormalized ? FieldKind::Sint : FieldKind::Snorm;
    } else {
      f.kind = meta.unnormalized ? FieldKind::Uint : FieldKind::Unorm;
    }
  }

  bool all_unsigned = true, all_float = true, same_width = true;
  for (unsigned i = 0; i < channels; ++i) {
    const ComponentMeta& m = meta.components[i];
    all_unsigned = all_unsigned && !m.is_signed && !m.is_float;
    all_float = all_float && m.is_float;
    same_width = same_width && bits[i] == bits[0];
  }
  if (plan.bits_per_pixel % 8 == 0) {
    if (all_unsigned && same_width && bits[0] == 8) {
      SetFixedChannels<std::uint8_t>(plan, channels);
      return plan;
    }
    if (all_unsigned && same_width && bits[0] == 16) {
      SetFixedChannels<std::uint16_t>(plan, channels);
      return plan;
    }
    if (all_unsigned && same_width && bits[0] == 32) {
      SetFixedChannels<std::uint32_t>(plan, channels);
      return plan;
    }
    if (all_unsigned && SetPackedLayout(plan, bits, channels)) return plan;
    if (all_float && same_width && bits[0] == 16) {
      SetFloatChannels<half>(plan, channels);
      return plan;
    }
    if (all_float && same_width && bits[0] == 32) {
      SetFloatChannels<float>(plan, channels);
      return plan;
    }
    if (all_float && same_width && bits[0] == 64) {
      SetFloatChannels<double>(plan, channels);
      return plan;
    }
  }
  const HorizontalKernel horizontal{GeneralHorizontal::Prepare, GeneralHorizontal::Row};
  const VerticalKernel vertical{GeneralVertical::Prepare, GeneralVertical::Row};
  plan.horizontal.madd16 = plan.horizontal.sum32 = plan.horizontal.sum64 = horizontal;
  plan.vertical.madd16 = plan.vertical.sum32 = plan.vertical.sum64 = vertical;
  return plan;
}

// The narrowest arithmetic in which no weight of the table and no sum
// (|weights| x largest value, plus the rounding term) overflows.
template <typename K>
const K& Choose(const KernelSet<K>& kernels, const Plan& plan, const Table& table) {
  if (plan.max_value == 0) return kernels.sum64;
  const auto bound = static_cast<std::uint64_t>(table.max_fixed_abs_sum);
  constexpr std::uint64_t kInt32Room = static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max()) - 1024;
  if (bound != 0 && plan.max_value > kInt32Room / bound) return kernels.sum64;
  return table.max_fixed_abs <= std::numeric_limits<std::int16_t>::max() ? kernels.madd16 : kernels.sum32;
}

// ---- Passes ----

// A pass with its weight table, its kernel and the kernel's scratch; Row
// resamples one row (horizontal) or makes one destination row (vertical).
class HorizontalPass {
 public:
  HorizontalPass(const Plan& plan, const BuiltInFilter& filter, std::uint32_t source, std::uint32_t destination) {
    table_.Build(filter, source, destination);
    pass_.plan = &plan;
    pass_.table = &table_;
    pass_.source = source;
    kernel_ = Choose(plan.horizontal, plan, table_);
#if LMIMAGE_RESCALE_X86
    if (plan.pairs.row != nullptr && U8PairsAvx2::Applies(table_)) kernel_ = plan.pairs;
#endif
    kernel_.prepare(pass_);
  }
  HorizontalPass(const HorizontalPass&) = delete;
  HorizontalPass& operator=(const HorizontalPass&) = delete;

  void Row(const Byte* src, Byte* dst) { kernel_.row(pass_, src, dst); }

 private:
  Table table_;
  Pass pass_;
  HorizontalKernel kernel_;
};

class VerticalPass {
 public:
  VerticalPass(const Plan& plan, const BuiltInFilter& filter, std::uint32_t source, std::uint32_t destination,
               std::size_t width) {
    table_.Build(filter, source, destination);
    pass_.plan = &plan;
    pass_.table = &table_;
    pass_.source = source;
    pass_.width = width;
    kernel_ = Choose(plan.vertical, plan, table_);
    kernel_.prepare(pass_);
    rows_.resize(table_.capacity);
  }
  VerticalPass(const VerticalPass&) = delete;
  VerticalPass& operator=(const VerticalPass&) = delete;

  const Table& table() const { return table_; }

  // Destination row u; row(i) gives the address of source row i of its span.
  template <typename RowAt>
  void Row(std::size_t u, RowAt&& row, Byte* dst) {
    const Table::Span span = table_.spans[u];
    for (std::uint32_t i = span.first; i < span.last; ++i) rows_[i - span.first] = row(i);
    kernel_.row(pass_, rows_.data(), u, dst);
  }

 private:
  Table table_;
  Pass pass_;
  VerticalKernel kernel_;
  std::vector<const Byte*> rows_;
};

void CopySameSize(const SurfaceData* source, SurfaceData* destination) {
  const std::size_t height = source->Height();
  const std::size_t src_stride = source->BytesPerRow();
  const std::size_t dst_stride = destination->BytesPerRow();
  const char* s = source->Buffer();
  char* o = destination->Buffer();
  if (src_stride == dst_stride) {
    if (height * src_stride != 0 && s != o) std::memmove(o, s, height * src_stride);
    return;
  }
  const std::size_t n = std::min(src_stride, dst_stride);
  if (n == 0) return;
  for (std::size_t y = 0; y < height; ++y) std::memmove(o + y * dst_stride, s + y * src_stride, n);
}

// Rows of the intermediate image that a horizontal-first resample must hold at
// once: from the first row of each span up to the furthest row made so far.
// A span that starts before an earlier one (which the table does not
// produce) falls back to keeping every row.
std::size_t RingRows(const Table& rows, std::size_t source_rows) {
  std::size_t ring = 1;
  std::uint32_t made = 0, first = 0;
  for (const Table::Span& span : rows.spans) {
    if (span.first < first) return source_rows;
    first = span.first;
    made = std::max(made, span.last);
    ring = std::max<std::size_t>(ring, made - span.first);
  }
  return std::min(ring, source_rows);
}

void Resample(const BuiltInFilter& filter, const PixelFormatMeta& meta, const SurfaceData* source,
              SurfaceData* destination) {
  const Plan plan = MakePlan(meta);
  const auto sw = static_cast<std::uint32_t>(source->Width());
  const auto sh = static_cast<std::uint32_t>(source->Height());
  const auto dw = static_cast<std::uint32_t>(destination->Width());
  const auto dh = static_cast<std::uint32_t>(destination->Height());
  const auto* src = reinterpret_cast<const Byte*>(source->Buffer());
  auto* dst = reinterpret_cast<Byte*>(destination->Buffer());
  const std::size_t src_stride = source->BytesPerRow();
  const std::size_t dst_stride = destination->BytesPerRow();
  auto source_row = [&](std::uint32_t i) { return src + i * src_stride; };

  if (sw == dw) {
    VerticalPass vertical(plan, filter, sh, dh, sw);
    for (std::size_t u = 0; u < dh; ++u) vertical.Row(u, source_row, dst + u * dst_stride);
    return;
  }
  if (sh == dh) {
    HorizontalPass horizontal(plan, filter, sw, dw);
    for (std::size_t y = 0; y < sh; ++y) horizontal.Row(src + y * src_stride, dst + y * dst_stride);
    return;
  }

  // Both sides change. The vertical pass runs on the narrower width: first
  // when growing, into rows of the source's row size; second when shrinking,
  // from rows of the destination's row size.
  if (dw >= sw) {
    VerticalPass vertical(plan, filter, sh, dh, sw);
    HorizontalPass horizontal(plan, filter, sw, dw);
    std::vector<Byte> middle(src_stride);
    for (std::size_t u = 0; u < dh; ++u) {
      vertical.Row(u, source_row, middle.data());
      horizontal.Row(middle.data(), dst + u * dst_stride);
    }
    return;
  }
  HorizontalPass horizontal(plan, filter, sw, dw);
  VerticalPass vertical(plan, filter, sh, dh, dw);
  const std::size_t ring = RingRows(vertical.table(), sh);
  std::vector<Byte> middle(ring * dst_stride);
  std::size_t made = 0;
  auto middle_row = [&](std::uint32_t i) { return middle.data() + (i % ring) * dst_stride; };
  for (std::size_t u = 0; u < dh; ++u) {
    for (; made < vertical.table().spans[u].last; ++made) {
      horizontal.Row(src + made * src_stride, middle.data() + (made % ring) * dst_stride);
    }
    vertical.Row(u, middle_row, dst + u * dst_stride);
  }
}

}  // namespace

const BuiltInFilter* BuiltInRescaleEngine::Filter(FilterType filter) const {
  switch (filter) {
    case FilterType::Box:
      return &box_;
    case FilterType::Bicubic:
      return &bicubic_;
    case FilterType::Bilinear:
      return &bilinear_;
    case FilterType::BSpline:
      return &bspline_;
    case FilterType::CatmullRom:
      return &catmull_rom_;
    case FilterType::Lanczos3:
      return &lanczos3_;
    case FilterType::Point:
      return &point_;
  }
  return nullptr;
}

bool BuiltInRescaleEngine::Rescale(const SurfaceData* source, SurfaceData* destination, FilterType filter) {
  if (source == nullptr || destination == nullptr) return false;
  const PixelFormatDescriptor format = source->Format();
  if (IsCompressed(format)) {
    lumo::log::CLogError(LogChannel, "DefaultRescaleEngine: Compress format not support!");
    return false;
  }
  if (destination->Format() != format) {
    lumo::log::CLogError(LogChannel, "DefaultRescaleEngine: Pixel format mismatch!");
    return false;
  }
  PixelFormatMeta meta{};
  if (!ParseFormat(format, &meta)) {
    lumo::log::CLogError(LogChannel, "DefaultRescaleEngine: Parse format failed!");
    return false;
  }
  const unsigned long long sw = source->Width(), sh = source->Height();
  const unsigned long long dw = destination->Width(), dh = destination->Height();
  if (sw == dw && sh == dh) {
    CopySameSize(source, destination);
    return true;
  }
  const BuiltInFilter* kernel = Filter(filter);
  if (kernel == nullptr) {
    lumo::log::LogError(LogChannel, "DefaultRescaleEngine: Unsupport filter type %d.", static_cast<int>(filter));
    return false;
  }
  if (dw == 0 || dh == 0) return true;   // nothing to write
  if (sw == 0 || sh == 0) return false;  // nothing to sample
  constexpr unsigned long long kMaxSamples = std::numeric_limits<std::uint32_t>::max();
  if (sw > kMaxSamples || sh > kMaxSamples || dw > kMaxSamples || dh > kMaxSamples) return false;
  // Rows must hold their pixels (a surface over foreign memory may claim less).
  if (source->Buffer() == nullptr || destination->Buffer() == nullptr ||
      source->BytesPerRow() < BytesPerRow(meta, sw, 0) || destination->BytesPerRow() < BytesPerRow(meta, dw, 0)) {
    return false;
  }
  try {
    Resample(*kernel, meta, source, destination);
  } catch (const std::bad_alloc&) {
    return false;
  } catch (const std::length_error&) {  // a scratch size beyond what a vector can hold
    return false;
  }
  return true;
}

}  // namespace lumo::image
