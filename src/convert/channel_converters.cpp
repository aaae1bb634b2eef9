#include "convert/channel_converters.h"

#include "format/checked_size.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace lumo::image {
namespace detail {
namespace {

// ---- Byte shuffles known by layout ----

using PickFn = RowFn (*)(SimdLevel) noexcept;

struct KnownShuffle {
  int src_bytes;
  int dst_bytes;
  std::array<int, 8> from;
  PickFn pick;
};

template <int Src, int Dst, int... From>
constexpr KnownShuffle Known(const ByteShuffle<Src, Dst, From...>*) {
  return {Src, Dst, {{From...}}, &ByteShuffle<Src, Dst, From...>::Pick};
}

template <typename Shuffle>
constexpr KnownShuffle Known() {
  return Known(static_cast<const Shuffle*>(nullptr));
}

// The layouts that the swap and redirect converters of the registered
// conversions produce; anything else runs RowByteMap.
constexpr KnownShuffle kKnownShuffles[] = {
    Known<ShuffleSwap888_0_2>(),      Known<ShuffleSwap8888_1_3>(),    Known<ShuffleSetAlpha8888>(),
    Known<ShuffleSetAlpha8888Swap>(), Known<ShuffleStripAlpha8888>(),  Known<ShuffleStripAlpha8888Swap>(),
    Known<ShuffleAddAlpha888>(),      Known<ShuffleAddAlpha888Swap>(), Known<ShuffleRevert8888>(),
    Known<ShuffleSwap16_2_0_1>(),     Known<ShuffleSwap16_3_0_2>(),    Known<ShuffleSwap16_4_1_3>(),
};

template <std::size_t Bytes>
void RowCopyBytes(const unsigned char* s, unsigned char* d, std::size_t w) noexcept {
  RowCopy(s, d, w, Bytes);
}

template <std::size_t... Bytes>
constexpr std::array<RowFn, sizeof...(Bytes)> MakeCopyKernels(std::index_sequence<Bytes...>) {
  return {{&RowCopyBytes<Bytes + 1>...}};
}

// Entry n copies pixels of n + 1 bytes.
constexpr std::array<RowFn, kMaxPixelBytes> kCopyKernels = MakeCopyKernels(std::make_index_sequence<kMaxPixelBytes>());

bool Matches(const KnownShuffle& known, const ByteMap& map) {
  if (known.src_bytes != map.src_bytes || known.dst_bytes != map.dst_bytes) return false;
  for (int k = 0; k < map.dst_bytes; ++k) {
    if (known.from[k] != map.from[k]) return false;
  }
  return true;
}

bool IsPlainCopy(const ByteMap& map) {
  if (map.src_bytes != map.dst_bytes) return false;
  for (int k = 0; k < map.dst_bytes; ++k) {
    if (map.from[k] != k) return false;
  }
  return true;
}

// Converts through `map`, whose sizes are between 1 and kMaxPixelBytes.
std::shared_ptr<SurfaceData> ConvertByteMap(const SurfaceData* source, const PixelFormatDescriptor& target,
                                            const ByteMap& map) {
  if (!RowsHold(source, target, map.src_bytes, map.dst_bytes)) return SurfaceData::Null;
  if (const RowFn row = FindByteShuffle(map, CpuSimdLevel())) return ConvertRows(source, target, row);
  return ConvertRows(source, target,
                     [&map](const unsigned char* s, unsigned char* d, std::size_t w) { RowByteMap(s, d, w, map); });
}

// Pixel sizes of the format-sized converters; 0 when a format does not have
// whole-byte pixels that a ByteMap can describe.
int PixelBytes(const PixelFormatDescriptor& format) {
  const unsigned long long bytes = WholeBytesPerPixel(format);
  return bytes <= static_cast<unsigned long long>(kMaxPixelBytes) ? static_cast<int>(bytes) : 0;
}

// Swap of two elements of `element` bytes after a copy of the whole pixel.
std::shared_ptr<SurfaceData> ConvertSwap(const SurfaceData* source, const PixelFormatDescriptor& target, int count,
                                         int first, int second, int element) {
  if (source == nullptr) return SurfaceData::Null;
  ByteMap map;
  map.src_bytes = PixelBytes(source->Format());
  map.dst_bytes = PixelBytes(target);
  if (map.src_bytes == 0 || map.dst_bytes == 0) return SurfaceData::Null;
  const int common = std::min(map.src_bytes, map.dst_bytes);
  // A target pixel wider than the source's keeps zeros beyond the copy.
  for (int k = 0; k < map.dst_bytes; ++k) map.from[k] = k < common ? k : kByte00;
  const long long a = static_cast<long long>(count) - 1 - first;
  const long long b = static_cast<long long>(count) - 1 - second;
  const long long elements = common / element;
  if (a < 0 || b < 0 || a >= elements || b >= elements) return SurfaceData::Null;
  for (int i = 0; i < element; ++i) std::swap(map.from[a * element + i], map.from[b * element + i]);
  return ConvertByteMap(source, target, map);
}

// ---- Sub-byte alpha, written to a tightly packed buffer of their own ----

template <typename Row>
std::shared_ptr<SurfaceData> ConvertSubByte(const SurfaceData* source, const PixelFormatDescriptor& target,
                                            unsigned bits, unsigned long long dst_pixel, Row row) {
  if (source == nullptr) return SurfaceData::Null;
  PixelFormatMeta meta{};
  if (!ParseFormat(target, &meta)) return SurfaceData::Null;
  const unsigned long long width = source->Width(), height = source->Height();
  const unsigned long long dst_row = lumo::image::BytesPerRow(meta, width, 0);
  unsigned long long written = 0, size = 0;
  if (dst_row == 0 || checked::MulOverflows(width, dst_pixel, &written) || dst_row < written) {
    return SurfaceData::Null;
  }
  if (checked::MulOverflows(dst_row, height, &size) || size > std::numeric_limits<std::size_t>::max()) {
    return SurfaceData::Null;
  }
  const unsigned per_byte = 8 / bits;
  const unsigned long long src_row = width / per_byte + (width % per_byte != 0 ? 1 : 0);
  const unsigned long long src_pitch = source->BytesPerRow();
  if (height != 0 && src_pitch < src_row) return SurfaceData::Null;

  std::shared_ptr<char> buffer(new char[static_cast<std::size_t>(size)], array_deleter());
  const auto* src = reinterpret_cast<const unsigned char*>(source->Buffer());
  auto* dst = reinterpret_cast<unsigned char*>(buffer.get());
  for (unsigned long long y = 0; y < height; ++y) {
    row(src + y * src_pitch, dst + y * dst_row, static_cast<std::size_t>(width));
  }
  return SurfaceDataSharedMemory::Create(buffer, 0, target, width, height, 0);
}

// ---- Linear <-> sRGB ----

std::shared_ptr<SurfaceData> ConvertGamma(const SurfaceData* source, const PixelFormatDescriptor& target,
                                          double exponent, PixelFormatDescriptor alpha_first) {
  if (!RowsHold(source, target, 4, 4)) return SurfaceData::Null;
  const GammaTable table = MakeGammaTable(exponent);
  const SimdLevel level = CpuSimdLevel();
  const GammaRowFn row = source->Format() == alpha_first ? Gamma8888<0>::Pick(level) : Gamma8888<3>::Pick(level);
  return ConvertRows(source, target,
                     [row, &table](const unsigned char* s, unsigned char* d, std::size_t w) { row(s, d, w, table); });
}

}  // namespace

RowFn FindByteShuffle(const ByteMap& map, SimdLevel level) noexcept {
  if (map.src_bytes < 1 || map.src_bytes > kMaxPixelBytes || map.dst_bytes < 1 || map.dst_bytes > kMaxPixelBytes) {
    return nullptr;
  }
  if (IsPlainCopy(map)) return kCopyKernels[static_cast<std::size_t>(map.src_bytes - 1)];
  for (const KnownShuffle& known : kKnownShuffles) {
    if (Matches(known, map)) return known.pick(level);
  }
  return nullptr;
}

void RowByteMap(const unsigned char* s, unsigned char* d, std::size_t w, const ByteMap& map) noexcept {
  const auto src = static_cast<std::size_t>(map.src_bytes), dst = static_cast<std::size_t>(map.dst_bytes);
  for (std::size_t x = 0; x < w; ++x, s += src, d += dst) {
    for (std::size_t k = 0; k < dst; ++k) {
      const int from = map.from[k];
      d[k] = from >= 0 ? s[from] : (from == kByteFF ? 0xFF : 0x00);
    }
  }
}

}  // namespace detail

// ---- Channel selection and reordering ----

std::shared_ptr<SurfaceData> ConverterSwapChannel::Convert(const SurfaceData* source,
                                                           const PixelFormatDescriptor& target) {
  return detail::ConvertSwap(source, target, count_, first_, second_, 1);
}

std::shared_ptr<SurfaceData> ConverterSwapChannelOf16BitsChannel::Convert(const SurfaceData* source,
                                                                          const PixelFormatDescriptor& target) {
  return detail::ConvertSwap(source, target, count_, first_, second_, 2);
}

std::shared_ptr<SurfaceData> ConverterRedirectChannel::Convert(const SurfaceData* source,
                                                               const PixelFormatDescriptor& target) {
  if (source == nullptr) return SurfaceData::Null;
  detail::ByteMap map;
  map.src_bytes = detail::PixelBytes(source->Format());
  map.dst_bytes = detail::PixelBytes(target);
  if (map.src_bytes == 0 || map.dst_bytes == 0) return SurfaceData::Null;
  if (count_ < 0 || count_ > static_cast<int>(map_.size()) || count_ > map.dst_bytes) return SurfaceData::Null;
  // Target bytes beyond the redirected components are left 0.
  for (int k = 0; k < map.dst_bytes; ++k) map.from[k] = detail::kByte00;
  for (int k = 0; k < count_; ++k) {
    const int component = map_[static_cast<std::size_t>(k)];
    if (component >= map.src_bytes) return SurfaceData::Null;
    map.from[count_ - 1 - k] = component < 0 ? detail::kByteFF : map.src_bytes - 1 - component;
  }
  return detail::ConvertByteMap(source, target, map);
}

std::shared_ptr<SurfaceData> ConverterMSBAlpha::Convert(const SurfaceData* source,
                                                        const PixelFormatDescriptor& target) {
  const detail::SimdLevel level = detail::CpuSimdLevel();
  const detail::RowFn row =
      swap_ ? detail::ShuffleAddAlpha888Swap::Pick(level) : detail::ShuffleAddAlpha888::Pick(level);
  return detail::ConvertWith(source, target, 3, 4, row);
}

std::shared_ptr<SurfaceData> ConverterStripMSBAlpha::Convert(const SurfaceData* source,
                                                             const PixelFormatDescriptor& target) {
  const detail::SimdLevel level = detail::CpuSimdLevel();
  const detail::RowFn row =
      swap_ ? detail::ShuffleStripAlpha8888Swap::Pick(level) : detail::ShuffleStripAlpha8888::Pick(level);
  return detail::ConvertWith(source, target, 4, 3, row);
}

std::shared_ptr<SurfaceData> ConverterRevert8888::Convert(const SurfaceData* source,
                                                          const PixelFormatDescriptor& target) {
  return detail::ConvertWith(source, target, 4, 4, detail::ShuffleRevert8888::Pick(detail::CpuSimdLevel()));
}

std::shared_ptr<SurfaceData> ConverterRevert4444::Convert(const SurfaceData* source,
                                                          const PixelFormatDescriptor& target) {
  return detail::ConvertWith(source, target, 2, 2, &detail::RowRevert4444);
}

// ---- Packed formats widened ----

std::shared_ptr<SurfaceData> Converter565To888::Convert(const SurfaceData* source,
                                                        const PixelFormatDescriptor& target) {
  return detail::ConvertWith(source, target, 2, 3, detail::Pick565To888(detail::CpuSimdLevel()));
}

std::shared_ptr<SurfaceData> Converter4444To8888::Convert(const SurfaceData* source,
                                                          const PixelFormatDescriptor& target) {
  return detail::ConvertWith(source, target, 2, 4, &detail::Row4444To8888);
}

std::shared_ptr<SurfaceData> Converter1555To8888::Convert(const SurfaceData* source,
                                                          const PixelFormatDescriptor& target) {
  const detail::RowFn row = swap_ ? &detail::Row1555To8888<true> : &detail::Row1555To8888<false>;
  return detail::ConvertWith(source, target, 2, 4, row);
}

// ---- One channel replicated ----

std::shared_ptr<SurfaceData> Converter8To888::Convert(const SurfaceData* source, const PixelFormatDescriptor& target) {
  return detail::ConvertWith(source, target, 1, 3, detail::ShuffleReplicate8To888::Pick(detail::CpuSimdLevel()));
}

std::shared_ptr<SurfaceData> Converter8To8888::Convert(const SurfaceData* source, const PixelFormatDescriptor& target) {
  return detail::ConvertWith(source, target, 1, 4, detail::ShuffleReplicate8To8888::Pick(detail::CpuSimdLevel()));
}

std::shared_ptr<SurfaceData> ConverterA8X8ToA8X8X8X8::Convert(const SurfaceData* source,
                                                              const PixelFormatDescriptor& target) {
  return detail::ConvertWith(source, target, 2, 4, detail::ShuffleA8X8ToA8X8X8X8::Pick(detail::CpuSimdLevel()));
}

// ---- Sub-byte alpha ----

std::shared_ptr<SurfaceData> Converter1To8::Convert(const SurfaceData* source, const PixelFormatDescriptor& target) {
  return detail::ConvertSubByte(source, target, 1, 1, &detail::Row1To8);
}

std::shared_ptr<SurfaceData> Converter2To8::Convert(const SurfaceData* source, const PixelFormatDescriptor& target) {
  return detail::ConvertSubByte(source, target, 2, 1, &detail::Row2To8);
}

std::shared_ptr<SurfaceData> Converter4To8::Convert(const SurfaceData* source, const PixelFormatDescriptor& target) {
  return detail::ConvertSubByte(source, target, 4, 1, &detail::Row4To8);
}

std::shared_ptr<SurfaceData> Converter1To8888::Convert(const SurfaceData* source, const PixelFormatDescriptor& target) {
  return detail::ConvertSubByte(source, target, 1, 4, &detail::Row1To8888);
}

// ---- Linear and sRGB ----

std::shared_ptr<SurfaceData> ConverterRGBToSRGB::Convert(const SurfaceData* source,
                                                         const PixelFormatDescriptor& target) {
  return detail::ConvertGamma(source, target, detail::kLinearToSrgbExponent, formats::R8G8B8A8);
}

std::shared_ptr<SurfaceData> ConverterSRGBToRGB::Convert(const SurfaceData* source,
                                                         const PixelFormatDescriptor& target) {
  return detail::ConvertGamma(source, target, detail::kSrgbToLinearExponent, formats::s_R8G8B8A8);
}

// ---- Relabelling ----

std::shared_ptr<SurfaceData> ConverterReinterpret::Convert(const SurfaceData* source,
                                                           const PixelFormatDescriptor& target) {
  if (source == nullptr) return SurfaceData::Null;
  PixelFormatMeta meta{};
  if (!ParseFormat(target, &meta)) return SurfaceData::Null;
  const unsigned long long width = source->Width(), height = source->Height();
  const unsigned long long size = source->Size();
  const unsigned long long pitch = source->BytesPerRow();
  // Rows of the new view keep the alignment that the source's rows have.
  const unsigned long long alignment = pitch == 0 ? 0 : std::min(__builtin_ctzll(pitch), 4);
  // The view must not claim more bytes than the copy holds.
  unsigned long long view_size = 0;
  if (meta.compressed) {
    view_size = BytesTotal(meta, width, height, 0);
  } else if (checked::MulOverflows(lumo::image::BytesPerRow(meta, width, alignment), height, &view_size)) {
    return SurfaceData::Null;
  }
  if (view_size > size || size > std::numeric_limits<std::size_t>::max()) return SurfaceData::Null;
  if (size != 0 && source->Buffer() == nullptr) return SurfaceData::Null;

  std::shared_ptr<char> buffer(new char[static_cast<std::size_t>(size)], array_deleter());
  if (size != 0) std::memcpy(buffer.get(), source->Buffer(), static_cast<std::size_t>(size));
  return SurfaceDataSharedMemory::Create(buffer, 0, target, width, height, alignment);
}

}  // namespace lumo::image
