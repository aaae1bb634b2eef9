#include "engine/builtin_engines.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#if defined(__SSE2__)
#  include <emmintrin.h>
#endif

#include "format/checked_size.h"
#include "lumo/image/export.h"
#include "lumo/image/formats.h"
#include "lumo/image/surface_data.h"
#include "lumo/log/log.h"

namespace lumo::image {
namespace {

using u64 = unsigned long long;

// Bytes of one pixel, or 0 when the pixels do not each fill whole bytes:
// sub-byte formats (two 4-bit pixels per byte) and block-compressed ones
// (8 bits per pixel on average, yet no pixel owns a byte of its own).
u64 WholeBytesPerPixel(const PixelFormatDescriptor& format) {
  if (IsCompressed(format)) return 0;
  u64 pixels = 0;
  const u64 bytes = BytesPerPixel(format, &pixels);
  return (bytes != 0 && pixels == 1) ? bytes : 0;
}

// ---- Row primitives ----
// Horizontal reversal works on 16-byte blocks: a block read at one end of a
// row holds whole pixels (16 is a multiple of 1, 2, 4 and 8), and reversing
// the order of its pixel lanes gives the block for the mirrored position.
// Rows may start at any address (shared views have arbitrary offsets), so
// every access is unaligned.

#if defined(__SSE2__)

using Block = __m128i;

Block LoadBlock(const char* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
void StoreBlock(char* p, Block v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

template <unsigned B>
Block ReverseLanes(Block v) {
  static_assert(B == 1 || B == 2 || B == 4 || B == 8, "lane size");
  if constexpr (B == 8) {
    return _mm_shuffle_epi32(v, _MM_SHUFFLE(1, 0, 3, 2));
  } else if constexpr (B == 4) {
    return _mm_shuffle_epi32(v, _MM_SHUFFLE(0, 1, 2, 3));
  } else if constexpr (B == 2) {
    v = _mm_shufflelo_epi16(v, _MM_SHUFFLE(0, 1, 2, 3));
    v = _mm_shufflehi_epi16(v, _MM_SHUFFLE(0, 1, 2, 3));
    return _mm_shuffle_epi32(v, _MM_SHUFFLE(1, 0, 3, 2));
  } else {
    // Swap the bytes of each 16-bit lane, then reverse the lanes.
    return ReverseLanes<2>(_mm_or_si128(_mm_slli_epi16(v, 8), _mm_srli_epi16(v, 8)));
  }
}

#else

struct Block {
  std::uint64_t first, second;  // memory order
};

Block LoadBlock(const char* p) {
  Block v;
  std::memcpy(&v.first, p, 8);
  std::memcpy(&v.second, p + 8, 8);
  return v;
}

void StoreBlock(char* p, Block v) {
  std::memcpy(p, &v.first, 8);
  std::memcpy(p + 8, &v.second, 8);
}

// Lane order in a register matches memory order on either endianness.
template <unsigned B>
std::uint64_t ReverseWordLanes(std::uint64_t v) {
  static_assert(B == 1 || B == 2 || B == 4 || B == 8, "lane size");
  if constexpr (B == 1) {
    return __builtin_bswap64(v);
  } else if constexpr (B == 2) {
    v = (v >> 32) | (v << 32);
    return ((v >> 16) & 0x0000FFFF0000FFFFULL) | ((v & 0x0000FFFF0000FFFFULL) << 16);
  } else if constexpr (B == 4) {
    return (v >> 32) | (v << 32);
  } else {
    return v;
  }
}

template <unsigned B>
Block ReverseLanes(Block v) {
  return {ReverseWordLanes<B>(v.second), ReverseWordLanes<B>(v.first)};
}

#endif

template <unsigned B>
void SwapPixel(char* p, char* q) {
  char a[B], z[B];
  std::memcpy(a, p, B);
  std::memcpy(z, q, B);
  std::memcpy(p, z, B);
  std::memcpy(q, a, B);
}

// Reverses w pixels of B bytes in place: a block from each end per step,
// then the short middle pixel by pixel.
template <unsigned B>
void ReverseRow(char* row, u64 w) {
  char* lo = row;
  char* hi = row + w * B;
  while (hi - lo >= 32) {
    hi -= 16;
    const Block l = LoadBlock(lo), h = LoadBlock(hi);
    StoreBlock(lo, ReverseLanes<B>(h));
    StoreBlock(hi, ReverseLanes<B>(l));
    lo += 16;
  }
  while (hi - lo >= 2 * static_cast<long long>(B)) {
    hi -= B;
    SwapPixel<B>(lo, hi);
    lo += B;
  }
}

// Any other pixel size: the b bytes of the two pixels are exchanged one by one.
void ReverseRowBytes(char* row, u64 w, u64 b) {
  for (u64 j = 0; j < w / 2; ++j) {
    char* p = row + j * b;
    char* q = row + (w - 1 - j) * b;
    for (u64 k = 0; k < b; ++k) std::swap(p[k], q[k]);
  }
}

// dst pixel w-1-j = src pixel j: the block at src offset i lands reversed at
// dst offset n-16-i.
template <unsigned B>
void ReverseRowCopy(const char* src, char* dst, u64 w) {
  const u64 n = w * B;
  u64 i = 0;
  for (; i + 16 <= n; i += 16) StoreBlock(dst + n - 16 - i, ReverseLanes<B>(LoadBlock(src + i)));
  for (; i < n; i += B) std::memcpy(dst + n - B - i, src + i, B);
}

void ReverseRowCopyBytes(const char* src, char* dst, u64 w, u64 b) {
  for (u64 j = 0; j < w; ++j) {
    const char* s = src + j * b;
    char* d = dst + (w - 1 - j) * b;
    for (u64 k = 0; k < b; ++k) d[k] = s[k];
  }
}

// Mirrors rows: source row y, reversed, into destination row y (mirror_rows
// false) or row h-1-y (true, which makes a half turn). The pixel size picks
// its path once, outside the row loop.
void MirrorRowsCopy(const SurfaceData& source, SurfaceData& destination, u64 b, bool mirror_rows) {
  const u64 w = source.Width(), h = source.Height();
  const u64 sbpr = source.BytesPerRow(), dbpr = destination.BytesPerRow();
  const char* s = source.Buffer();
  char* d = destination.Buffer();
  const auto run = [&](auto row_fn) {
    for (u64 y = 0; y < h; ++y) row_fn(s + y * sbpr, d + (mirror_rows ? h - 1 - y : y) * dbpr);
  };
  switch (b) {
    case 1:
      run([w](const char* sr, char* dr) { ReverseRowCopy<1>(sr, dr, w); });
      break;
    case 2:
      run([w](const char* sr, char* dr) { ReverseRowCopy<2>(sr, dr, w); });
      break;
    case 4:
      run([w](const char* sr, char* dr) { ReverseRowCopy<4>(sr, dr, w); });
      break;
    case 8:
      run([w](const char* sr, char* dr) { ReverseRowCopy<8>(sr, dr, w); });
      break;
    default:
      run([w, b](const char* sr, char* dr) { ReverseRowCopyBytes(sr, dr, w, b); });
      break;
  }
}

// Exchanges two byte ranges a few blocks at a time: two loads and two stores
// per block, where a swap through a temporary buffer would copy every byte
// three times.
void SwapRanges(char* a, char* z, u64 n) {
  u64 i = 0;
  for (; i + 32 <= n; i += 32) {
    const Block a0 = LoadBlock(a + i), a1 = LoadBlock(a + i + 16);
    const Block z0 = LoadBlock(z + i), z1 = LoadBlock(z + i + 16);
    StoreBlock(a + i, z0);
    StoreBlock(a + i + 16, z1);
    StoreBlock(z + i, a0);
    StoreBlock(z + i + 16, a1);
  }
  for (; i < n; ++i) std::swap(a[i], z[i]);
}

// Writes count copies of one b-byte pixel, doubling the written run each
// time so that wide borders cost a few block copies whatever b is.
void RepeatPixel(char* d, const char* pixel, u64 b, u64 count) {
  if (count == 0) return;
  std::memcpy(d, pixel, b);
  const u64 total = b * count;
  for (u64 done = b; done < total;) {
    const u64 n = std::min(done, total - done);
    std::memcpy(d + done, d, n);
    done += n;
  }
}

// ---- Quarter turns ----
// Tiles of kTileRows source rows by kTileColumns source columns. Within a tile
// each destination row receives a contiguous run of kTileRows pixels, while the
// kTileRows source rows being read stay in cache. Writing contiguously matters
// most: scattering single pixels across destination rows costs several times
// more. Measured on 1- to 16-byte pixels; larger tiles lose to cache conflicts
// of power-of-two row strides.
constexpr u64 kTileRows = 16;
constexpr u64 kTileColumns = 32;

// Copies one pixel of compile-time size N, or of the runtime size b when N is 0.
template <unsigned N>
struct PixelCopy {
  static constexpr u64 size() { return N; }
  void operator()(char* d, const char* s) const { std::memcpy(d, s, N); }
};
template <>
struct PixelCopy<0> {
  u64 b;
  u64 size() const { return b; }
  void operator()(char* d, const char* s) const { std::memcpy(d, s, b); }
};

// Clockwise: source (x, y) goes to destination (h-1-y, x); otherwise to (y, w-1-x).
template <bool Clockwise, typename Copy>
void QuarterTurn(const char* src, u64 sbpr, char* dst, u64 dbpr, u64 w, u64 h, Copy copy) {
  const u64 b = copy.size();
  for (u64 y0 = 0; y0 < h; y0 += kTileRows) {
    const u64 y1 = std::min(h, y0 + kTileRows);
    for (u64 x0 = 0; x0 < w; x0 += kTileColumns) {
      const u64 x1 = std::min(w, x0 + kTileColumns);
      for (u64 x = x0; x < x1; ++x) {
        const char* column = src + x * b;
        char* row = dst + (Clockwise ? x : w - 1 - x) * dbpr;
        for (u64 y = y0; y < y1; ++y) copy(row + (Clockwise ? h - 1 - y : y) * b, column + y * sbpr);
      }
    }
  }
}

template <bool Clockwise>
void QuarterTurn(const SurfaceData& source, SurfaceData& destination, u64 b) {
  const char* s = source.Buffer();
  char* d = destination.Buffer();
  const u64 sbpr = source.BytesPerRow(), dbpr = destination.BytesPerRow();
  const u64 w = source.Width(), h = source.Height();
  switch (b) {
    case 1:
      QuarterTurn<Clockwise>(s, sbpr, d, dbpr, w, h, PixelCopy<1>{});
      break;
    case 2:
      QuarterTurn<Clockwise>(s, sbpr, d, dbpr, w, h, PixelCopy<2>{});
      break;
    case 3:
      QuarterTurn<Clockwise>(s, sbpr, d, dbpr, w, h, PixelCopy<3>{});
      break;
    case 4:
      QuarterTurn<Clockwise>(s, sbpr, d, dbpr, w, h, PixelCopy<4>{});
      break;
    case 6:
      QuarterTurn<Clockwise>(s, sbpr, d, dbpr, w, h, PixelCopy<6>{});
      break;
    case 8:
      QuarterTurn<Clockwise>(s, sbpr, d, dbpr, w, h, PixelCopy<8>{});
      break;
    case 12:
      QuarterTurn<Clockwise>(s, sbpr, d, dbpr, w, h, PixelCopy<12>{});
      break;
    case 16:
      QuarterTurn<Clockwise>(s, sbpr, d, dbpr, w, h, PixelCopy<16>{});
      break;
    default:
      QuarterTurn<Clockwise>(s, sbpr, d, dbpr, w, h, PixelCopy<0>{b});
      break;
  }
}

bool SameShape(const SurfaceData& a, const SurfaceData& b) {
  return a.Format() == b.Format() && a.Width() == b.Width() && a.Height() == b.Height();
}

}  // namespace

// ---- Flip ----

bool BuiltInFlipEngine::FlipVertical(const SurfaceData* source, SurfaceData* destination) {
  if (!SameShape(*source, *destination) || IsCompressed(source->Format())) return false;
  const u64 h = source->Height();
  const u64 sbpr = source->BytesPerRow(), dbpr = destination->BytesPerRow();
  const u64 n = std::min(sbpr, dbpr);
  const char* s = source->Buffer();
  char* d = destination->Buffer();
  for (u64 i = 0; i < h; ++i) std::memcpy(d + (h - 1 - i) * dbpr, s + i * sbpr, n);
  return true;
}

bool BuiltInFlipEngine::FlipVertical(SurfaceData* data) {
  if (IsCompressed(data->Format())) return false;
  const u64 h = data->Height();
  if (h < 2) return true;
  // Rows move whole, so sub-byte formats are fine here.
  const u64 bpr = data->BytesPerRow();
  char* base = data->Buffer();
  for (u64 i = 0; i < h / 2; ++i) SwapRanges(base + i * bpr, base + (h - 1 - i) * bpr, bpr);
  return true;
}

bool BuiltInFlipEngine::FlipHorizontal(const SurfaceData* source, SurfaceData* destination) {
  const u64 b = WholeBytesPerPixel(source->Format());
  if (b == 0 || !SameShape(*source, *destination)) return false;
  MirrorRowsCopy(*source, *destination, b, false);
  return true;
}

bool BuiltInFlipEngine::FlipHorizontal(SurfaceData* data) {
  const u64 b = WholeBytesPerPixel(data->Format());
  if (b == 0) return false;
  const u64 w = data->Width(), h = data->Height(), bpr = data->BytesPerRow();
  char* base = data->Buffer();
  const auto run = [&](auto row_fn) {
    for (u64 y = 0; y < h; ++y) row_fn(base + y * bpr);
  };
  switch (b) {
    case 1:
      run([w](char* row) { ReverseRow<1>(row, w); });
      break;
    case 2:
      run([w](char* row) { ReverseRow<2>(row, w); });
      break;
    case 4:
      run([w](char* row) { ReverseRow<4>(row, w); });
      break;
    case 8:
      run([w](char* row) { ReverseRow<8>(row, w); });
      break;
    default:
      run([w, b](char* row) { ReverseRowBytes(row, w, b); });
      break;
  }
  return true;
}

// ---- Crop ----

bool BuiltInCropEngine::Crop(const SurfaceData* source, unsigned long long x, unsigned long long y,
                             SurfaceData* destination) {
  const PixelFormatDescriptor format = source->Format();
  if (IsCompressed(format) || destination->Format() != format) return false;
  const u64 b = WholeBytesPerPixel(format);
  if (b == 0 || x >= source->Width() || y >= source->Height()) return false;

  const u64 row_bytes = std::min(destination->Width(), source->Width() - x) * b;
  const u64 rows = std::min(destination->Height(), source->Height() - y);
  const u64 sbpr = source->BytesPerRow(), dbpr = destination->BytesPerRow();
  const char* s = source->Buffer() + y * sbpr + x * b;
  char* d = destination->Buffer();
  for (u64 i = 0; i < rows; ++i, s += sbpr, d += dbpr) std::memcpy(d, s, row_bytes);
  return true;
}

// ---- Extrude ----

bool BuiltInExtrudeEngine::Extrude(const SurfaceData* source, unsigned long long left, unsigned long long right,
                                   unsigned long long top, unsigned long long bottom, SurfaceData* destination) {
  const PixelFormatDescriptor format = source->Format();
  const u64 b = WholeBytesPerPixel(format);
  if (b == 0) {
    lumo::log::LogError(LogChannel,
                        "[BuiltInExtrudeEngine::Extrude]Is available for bytes aligned pixel format but not %s",
                        ToString(format).c_str());
    return false;
  }
  // The right border runs to the destination's width, whatever right says.
  static_cast<void>(right);

  const u64 w = source->Width(), h = source->Height();
  const u64 dw = destination->Width(), dh = destination->Height(), dbpr = destination->BytesPerRow();
  // The caller sizes the destination; these tests only keep a mis-sized one
  // from being written outside its rows, and an empty source (no edge pixel
  // to repeat) from being read.
  if (dw == 0 || dh == 0) return true;
  u64 inner_right = 0, rows = 0, dw_bytes = 0;
  if (w == 0 || h == 0 || checked::AddOverflows(left, w, &inner_right) || checked::AddOverflows(top, h, &rows) ||
      checked::AddOverflows(rows, bottom, &rows) || checked::MulOverflows(dw, b, &dw_bytes) || dw < inner_right ||
      dh < rows || dbpr < dw_bytes) {
    return false;
  }

  const u64 sbpr = source->BytesPerRow();
  const char* s = source->Buffer();
  char* d = destination->Buffer();
  const u64 row_bytes = w * b;
  for (u64 y = 0; y < h; ++y, s += sbpr) {
    char* dr = d + (top + y) * dbpr;
    RepeatPixel(dr, s, b, left);
    std::memcpy(dr + left * b, s, row_bytes);
    RepeatPixel(dr + inner_right * b, s + row_bytes - b, b, dw - inner_right);
  }
  const char* first = d + top * dbpr;
  for (u64 r = 0; r < top; ++r) std::memcpy(d + r * dbpr, first, dbpr);
  const char* last = d + (top + h - 1) * dbpr;
  for (u64 r = top + h; r < rows; ++r) std::memcpy(d + r * dbpr, last, dbpr);
  return true;
}

// ---- Rotate ----

bool BuiltInRotateEngine::Rotate(const SurfaceData* source, int degrees, SurfaceData* destination) {
  if (degrees % 90 != 0) return false;
  const int r = degrees >= 0 ? degrees % 360 : (degrees % 360 + 360) % 360;
  const PixelFormatDescriptor format = source->Format();
  if (destination->Format() != format) return false;
  const u64 b = WholeBytesPerPixel(format);
  if (b == 0) return false;

  const u64 w = source->Width(), h = source->Height();
  const bool quarter = (r == 90 || r == 270);
  if (destination->Width() != (quarter ? h : w) || destination->Height() != (quarter ? w : h)) return false;

  switch (r) {
    case 0: {
      const u64 sbpr = source->BytesPerRow(), dbpr = destination->BytesPerRow();
      const u64 n = std::min(sbpr, dbpr);
      const char* s = source->Buffer();
      char* d = destination->Buffer();
      for (u64 y = 0; y < h; ++y) std::memcpy(d + y * dbpr, s + y * sbpr, n);
      break;
    }
    case 90:
      QuarterTurn<true>(*source, *destination, b);
      break;
    case 180:
      MirrorRowsCopy(*source, *destination, b, true);
      break;
    default:
      QuarterTurn<false>(*source, *destination, b);
      break;
  }
  return true;
}

}  // namespace lumo::image
