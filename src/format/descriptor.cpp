#include "lumo/image/formats.h"

#include "format/checked_size.h"

namespace lumo::image {
namespace {

constexpr unsigned long long kCompressedBit = 1;
constexpr unsigned long long kSRGBBit = 2;
constexpr unsigned long long kUnnormalizedBit = 4;
constexpr unsigned kSlotCount = 4;
constexpr unsigned kSlotBits = 14;
constexpr unsigned kMaxKind = 20;

unsigned long long Value(const PixelFormatDescriptor& d) { return static_cast<unsigned long long>(d); }

// Decoded slots of an uncompressed descriptor; false when it is compressed or
// slot 0 does not decode.
bool ParseUncompressed(const PixelFormatDescriptor& d, PixelFormatMeta* meta) {
  return ParseFormat(d, meta) && !meta->compressed;
}

template <typename Predicate>
bool AnySlot(const PixelFormatMeta& meta, Predicate predicate) {
  for (const ComponentMeta& slot : meta.components) {
    if (slot.component == PixelComponent::None) break;
    if (predicate(slot)) return true;
  }
  return false;
}

bool AnyKind(const PixelFormatDescriptor& d, PixelComponent a, PixelComponent b) {
  PixelFormatMeta meta{};
  if (!ParseUncompressed(d, &meta)) return false;
  return AnySlot(meta, [&](const ComponentMeta& slot) { return slot.component == a || slot.component == b; });
}

// ceil(a / b) for b > 0, without the overflow of a + b - 1.
unsigned long long CeilDiv(unsigned long long a, unsigned long long b) { return a / b + (a % b != 0 ? 1 : 0); }

// Round up to a multiple of 2^exponent; 0 when that does not fit.
unsigned long long AlignUp(unsigned long long value, unsigned long long exponent) {
  if (exponent >= 64) return 0;
  const unsigned long long mask = (1ULL << exponent) - 1;
  if (value > ~0ULL - mask) return 0;
  return (value + mask) & ~mask;
}

}  // namespace

bool ParseComponent(const PixelFormatDescriptor& d, unsigned long long slot, ComponentMeta* out) {
  if (out == nullptr) return false;
  *out = ComponentMeta{};
  const unsigned long long value = Value(d);
  if ((value & kCompressedBit) != 0 || slot >= kSlotCount) return false;
  const unsigned long long field = (value >> (8 + kSlotBits * slot)) & 0x3FFF;
  const unsigned long long kind = field & 0x3F;
  const unsigned long long bits = (field >> 6) & 0x3F;
  if (kind == 0 || kind > kMaxKind || bits == 0) return false;
  out->component = static_cast<PixelComponent>(kind);
  out->bits = bits;
  out->is_signed = (field & 0x1000) != 0;
  out->is_float = (field & 0x2000) != 0;
  return true;
}

bool ParseFormat(const PixelFormatDescriptor& d, PixelFormatMeta* out) {
  if (out == nullptr) return false;
  *out = PixelFormatMeta{};
  const unsigned long long value = Value(d);
  out->compressed = (value & kCompressedBit) != 0;
  out->srgb = (value & kSRGBBit) != 0;
  out->unnormalized = (value & kUnnormalizedBit) != 0;
  if (out->compressed) {
    out->compress_format = GetCompressFormat(d);
    return out->compress_format != CompressFormat::None;
  }
  unsigned slot = 0;
  while (slot < kSlotCount && ParseComponent(d, slot, &out->components[slot])) ++slot;
  return slot > 0;
}

PixelFormatDescriptor MakeDescriptor(const PixelFormatMeta& meta) {
  unsigned long long result = (meta.srgb ? kSRGBBit : 0) | (meta.unnormalized ? kUnnormalizedBit : 0);
  if (meta.compressed) {
    const auto format = static_cast<unsigned long long>(meta.compress_format);
    if (format > 0xFF) return PixelFormatDescriptor{};
    return PixelFormatDescriptor{(format << 8) | result | kCompressedBit};
  }
  for (unsigned slot = 0; slot < kSlotCount && meta.components[slot].bits != 0; ++slot) {
    const ComponentMeta& c = meta.components[slot];
    const auto kind = static_cast<unsigned long long>(c.component);
    // Out-of-range fields would silently spill into the neighbouring slot.
    if (kind > 0x3F || c.bits > 0x3F) return PixelFormatDescriptor{};
    unsigned long long field = c.bits << 6 | kind;
    if (c.is_signed) field |= 0x1000;
    if (c.is_float) field |= 0x2000;
    result |= field << (8 + kSlotBits * slot);
  }
  return PixelFormatDescriptor{result};
}

PixelFormatDescriptor SetSRGB(const PixelFormatDescriptor& d, bool on) {
  return PixelFormatDescriptor{on ? Value(d) | kSRGBBit : Value(d) & ~kSRGBBit};
}

PixelFormatDescriptor SetUnormalized(const PixelFormatDescriptor& d, bool on) {
  return PixelFormatDescriptor{on ? Value(d) | kUnnormalizedBit : Value(d) & ~kUnnormalizedBit};
}

bool IsCompressed(const PixelFormatDescriptor& d) { return (Value(d) & kCompressedBit) != 0; }
bool IsSRGB(const PixelFormatDescriptor& d) { return (Value(d) & kSRGBBit) != 0; }
bool IsUnormalized(const PixelFormatDescriptor& d) { return (Value(d) & kUnnormalizedBit) != 0; }

bool HasAlpha(const PixelFormatDescriptor& d) {
  if (IsCompressed(d)) return CompressHasAlpha(GetCompressFormat(d));
  return AnyKind(d, PixelComponent::A, PixelComponent::A);
}

bool HasAlphaOrDummy(const PixelFormatDescriptor& d) {
  if (IsCompressed(d)) return CompressHasAlpha(GetCompressFormat(d));
  return AnyKind(d, PixelComponent::A, PixelComponent::X);
}

bool HasComponent(const PixelFormatDescriptor& d, PixelComponent kind) {
  if (IsCompressed(d)) {
    const CompressFormat format = GetCompressFormat(d);
    switch (kind) {
      case PixelComponent::R:
        return true;
      case PixelComponent::G:
        return CompressHasGreen(format);
      case PixelComponent::B:
        return CompressHasBlue(format);
      case PixelComponent::A:
        return CompressHasAlpha(format);
      default:
        return false;
    }
  }
  return AnyKind(d, kind, kind);
}

bool HasDepth(const PixelFormatDescriptor& d) { return AnyKind(d, PixelComponent::D, PixelComponent::IntZ); }
bool HasStencil(const PixelFormatDescriptor& d) { return AnyKind(d, PixelComponent::S, PixelComponent::S); }
bool HasDepthOrStencil(const PixelFormatDescriptor& d) { return AnyKind(d, PixelComponent::D, PixelComponent::S); }
bool HasPalette(const PixelFormatDescriptor& d) { return AnyKind(d, PixelComponent::P, PixelComponent::P); }

bool HasFloatComponent(const PixelFormatDescriptor& d) {
  // Compressed data carries no component list; bit 2 marks the float block formats.
  if (IsCompressed(d)) return IsUnormalized(d);
  PixelFormatMeta meta{};
  return ParseUncompressed(d, &meta) && HasFloatComponent(meta);
}

bool HasFloatComponent(const PixelFormatMeta& meta) {
  if (meta.compressed) return meta.unnormalized;
  return AnySlot(meta, [](const ComponentMeta& slot) { return slot.is_float; });
}

unsigned long long ChannelCount(const PixelFormatMeta& meta) {
  if (meta.compressed) return 0;
  for (unsigned slot = kSlotCount; slot > 0; --slot) {
    if (meta.components[slot - 1].component != PixelComponent::None) return slot;
  }
  return 0;
}

unsigned long long ChannelCount(const PixelFormatDescriptor& d) {
  PixelFormatMeta meta{};
  return ParseFormat(d, &meta) ? ChannelCount(meta) : 0;
}

unsigned long long BitsPerPixel(const PixelFormatMeta& meta, unsigned long long* divisor) {
  unsigned long long result = 0, div = 1;
  if (!meta.compressed) {
    for (const ComponentMeta& slot : meta.components) {
      if (checked::AddOverflows(result, slot.bits, &result)) {
        result = 0;
        div = 0;
        break;
      }
    }
  } else {
    unsigned char w = 0, h = 0;
    CompressFormatBlockDimension(meta.compress_format, &w, &h);
    const unsigned long long bits = 8 * CompressFormatBytesPerBlock(meta.compress_format);
    const unsigned long long area = static_cast<unsigned long long>(w) * h;
    if (bits == 0 || area == 0) {
      div = 0;
    } else if (bits % area == 0) {
      result = bits / area;
    } else {
      result = bits;
      div = area;
    }
  }
  if (divisor != nullptr) *divisor = div;
  return result;
}

unsigned long long BitsPerPixel(const PixelFormatDescriptor& d, unsigned long long* divisor) {
  if (divisor != nullptr) *divisor = 0;
  PixelFormatMeta meta{};
  return ParseFormat(d, &meta) ? BitsPerPixel(meta, divisor) : 0;
}

unsigned long long BytesPerPixel(const PixelFormatMeta& meta, unsigned long long* divisor) {
  unsigned long long div = 0;
  const unsigned long long bits = BitsPerPixel(meta, &div);
  unsigned long long result = 0;
  if (bits == 0) {
    div = 0;
  } else if (bits % 8 == 0) {
    result = bits / 8;
  } else {
    switch (bits % 8) {
      case 2:
      case 6:
        div *= 4;
        result = bits / 2;
        break;
      case 4:
        div *= 2;
        result = bits / 4;
        break;
      default:  // odd
        div *= 8;
        result = bits;
        break;
    }
  }
  if (divisor != nullptr) *divisor = div;
  return result;
}

unsigned long long BytesPerPixel(const PixelFormatDescriptor& d, unsigned long long* divisor) {
  PixelFormatMeta meta{};
  return ParseFormat(d, &meta) ? BytesPerPixel(meta, divisor) : 0;
}

unsigned long long BytesPerRow(const PixelFormatMeta& meta, unsigned long long width, unsigned long long alignment) {
  if (meta.compressed) return 0;
  unsigned long long d = 0;
  const unsigned long long n = BytesPerPixel(meta, &d);
  if (n == 0 || d == 0) return 0;
  // ceil(n * width / d) without overflowing on the intermediate product.
  unsigned long long row = 0;
  if (checked::MulOverflows(width / d, n, &row)) return 0;
  if (checked::AddOverflows(row, CeilDiv(width % d * n, d), &row)) return 0;
  return AlignUp(row, alignment);
}

unsigned long long BytesPerRow(const PixelFormatDescriptor& d, unsigned long long width, unsigned long long alignment) {
  PixelFormatMeta meta{};
  return ParseFormat(d, &meta) ? BytesPerRow(meta, width, alignment) : 0;
}

unsigned long long BytesTotal(const PixelFormatMeta& meta, unsigned long long width, unsigned long long height,
                              unsigned long long alignment) {
  unsigned long long total = 0;
  if (!meta.compressed) {
    return checked::MulOverflows(BytesPerRow(meta, width, alignment), height, &total) ? 0 : total;
  }
  unsigned char w = 0, h = 0;
  CompressFormatBlockDimension(meta.compress_format, &w, &h);
  const unsigned long long block = CompressFormatBytesPerBlock(meta.compress_format);
  if (w == 0 || h == 0 || block == 0) return 0;
  unsigned long long min_w = 1, min_h = 1;
  CompressFormatMinimumSize(meta.compress_format, &min_w, &min_h);
  const unsigned long long blocks_x = CeilDiv(width > min_w ? width : min_w, w);
  const unsigned long long blocks_y = CeilDiv(height > min_h ? height : min_h, h);
  unsigned long long blocks = 0;
  if (checked::MulOverflows(blocks_x > 0 ? blocks_x : 1, blocks_y > 0 ? blocks_y : 1, &blocks)) return 0;
  return checked::MulOverflows(blocks, block, &total) ? 0 : total;
}

unsigned long long BytesTotal(const PixelFormatDescriptor& d, unsigned long long width, unsigned long long height,
                              unsigned long long alignment) {
  PixelFormatMeta meta{};
  return ParseFormat(d, &meta) ? BytesTotal(meta, width, height, alignment) : 0;
}

unsigned long long BytesTotal(const PixelFormatMeta& meta, unsigned long long width, unsigned long long height,
                              unsigned long long depth, unsigned long long alignment) {
  unsigned long long total = 0;
  if (meta.compressed) {
    const CompressFormat format = meta.compress_format;
    const auto number = static_cast<unsigned>(format);
    if (number >= 45 && number <= 54) {
      unsigned char w = 0, h = 0, dz = 0;
      ASTCBlockDimension(format, &w, &h, &dz);
      unsigned long long blocks = 0;
      if (checked::MulOverflows(CeilDiv(width, w), CeilDiv(height, h), &blocks) ||
          checked::MulOverflows(blocks, CeilDiv(depth, dz), &blocks) || checked::MulOverflows(blocks, 16, &total)) {
        return 0;
      }
      return total;
    }
    if (number >= 45) return 0;
  }
  return checked::MulOverflows(BytesTotal(meta, width, height, alignment), depth, &total) ? 0 : total;
}

unsigned long long BytesTotal(const PixelFormatDescriptor& d, unsigned long long width, unsigned long long height,
                              unsigned long long depth, unsigned long long alignment) {
  PixelFormatMeta meta{};
  return ParseFormat(d, &meta) ? BytesTotal(meta, width, height, depth, alignment) : 0;
}

unsigned int CalcCompleteMipCount(unsigned int width, unsigned int height) {
  return CalcCompleteMipCount(width, height, 1);
}

unsigned int CalcCompleteMipCount(unsigned int width, unsigned int height, unsigned int depth) {
  unsigned int m = width > height ? width : height;
  if (depth > m) m = depth;
  unsigned int count = 1;
  while (m >= 2) {
    m >>= 1;
    ++count;
  }
  return count;
}

}  // namespace lumo::image
