#include "lumo/image/surface_data.h"

#include <cstring>
#include <utility>

#include "data/pixel_memory.h"
#include "data/reinterpret.h"
#include "format/checked_size.h"
#include "lumo/image/converters.h"

namespace lumo::image {
namespace {

// Bits per pixel as (bits, pixels they cover).
struct BitsPair {
  unsigned long long bits;
  unsigned long long pixels;
};

BitsPair PixelBits(const PixelFormatDescriptor& format) {
  unsigned long long pixels = 0;
  const unsigned long long bits = BitsPerPixel(format, &pixels);
  return {bits, pixels};
}

// Rows of compressed data are rows of blocks, which a per-row size cannot express.
unsigned long long CompressedSize(const PixelFormatDescriptor& format, unsigned long long width,
                                  unsigned long long height) {
  return BytesTotal(format, width, height, 0);
}

unsigned long long RowsTimes(unsigned long long bytes_per_row, unsigned long long height) {
  unsigned long long size = 0;
  return checked::MulOverflows(bytes_per_row, height, &size) ? 0 : size;
}

}  // namespace

bool detail::SameBitsPerPixel(const PixelFormatDescriptor& a, const PixelFormatDescriptor& b) {
  const BitsPair x = PixelBits(a), y = PixelBits(b);
  // A format without a pixel size (undecodable) matches nothing.
  if (x.bits == 0 || y.bits == 0) return false;
  // Cross-multiplied so that fractional sizes (ASTC 5x4: 128 bits per 20
  // pixels) compare exactly; both factors are small, so nothing overflows.
  return x.bits * y.pixels == y.bits * x.pixels;
}

const std::shared_ptr<SurfaceData> SurfaceData::Null;
const std::shared_ptr<SurfaceDataBitmap> SurfaceDataBitmap::Null;
const std::shared_ptr<SurfaceDataSharedMemory> SurfaceDataSharedMemory::Null;

// ---- SurfaceData ----

SurfaceData::~SurfaceData() = default;

bool SurfaceData::IsCompressed() const { return lumo::image::IsCompressed(Format()); }

bool SurfaceData::IsSizePowerOfTwo() const {
  const unsigned long long w = Width(), h = Height();
  return (w & (0 - w)) == w && (h & (0 - h)) == h;
}

std::shared_ptr<SurfaceData> SurfaceData::ConvertCopy(const PixelFormatDescriptor& format) const {
  const std::shared_ptr<Converter> converter = ConverterManager::Instance()->GetConverter(Format(), format);
  return converter ? converter->Convert(this, format) : SurfaceData::Null;
}

std::shared_ptr<SurfaceData> SurfaceData::ConvertCopy(Converter* converter) const {
  return converter != nullptr ? converter->Convert(this, PixelFormatDescriptor{}) : SurfaceData::Null;
}

// ---- SurfaceDataBitmap ----

std::shared_ptr<SurfaceDataBitmap> SurfaceDataBitmap::Create(unsigned long long width, unsigned long long height,
                                                             const PixelFormatDescriptor& format,
                                                             unsigned long long alignment) {
  PixelFormatMeta meta{};
  if (!ParseFormat(format, &meta)) return Null;
  unsigned long long bytes_per_row = 0, size = 0;
  if (meta.compressed) {
    // A compressed surface has at least one block, but no pixel rows to divide it by.
    if (height == 0) return Null;
    size = BytesTotal(meta, width, height, alignment);
    if (size == 0) return Null;
    bytes_per_row = size / height;
  } else {
    bytes_per_row = lumo::image::BytesPerRow(meta, width, alignment);
    if (bytes_per_row == 0) return Null;
    if (checked::MulOverflows(bytes_per_row, height, &size)) return Null;
  }
  std::shared_ptr<SurfaceDataBitmap> bitmap(new SurfaceDataBitmap());
  bitmap->buffer_ = detail::AllocatePixels(size);
  bitmap->format_ = format;
  bitmap->bytes_per_row_ = bytes_per_row;
  bitmap->width_ = width;
  bitmap->height_ = height;
  bitmap->size_ = size;
  return bitmap;
}

SurfaceDataBitmap::~SurfaceDataBitmap() { detail::FreePixels(buffer_); }

SurfaceDataBitmap::SurfaceDataBitmap(const SurfaceDataBitmap& other)
    : SurfaceData(other),
      format_(other.format_),
      bytes_per_row_(other.bytes_per_row_),
      width_(other.width_),
      height_(other.height_),
      size_(other.size_),
      buffer_(detail::AllocatePixels(other.size_)) {
  if (size_ != 0) std::memcpy(buffer_, other.buffer_, size_);
}

SurfaceDataBitmap& SurfaceDataBitmap::operator=(const SurfaceDataBitmap& other) {
  if (this == &other) return *this;
  char* pixels = detail::AllocatePixels(other.size_);
  if (other.size_ != 0) std::memcpy(pixels, other.buffer_, other.size_);
  detail::FreePixels(buffer_);
  buffer_ = pixels;
  format_ = other.format_;
  bytes_per_row_ = other.bytes_per_row_;
  width_ = other.width_;
  height_ = other.height_;
  size_ = other.size_;
  return *this;
}

bool SurfaceDataBitmap::Reinterpret(const PixelFormatDescriptor& format) {
  if (!detail::SameBitsPerPixel(format_, format)) return false;
  format_ = format;
  return true;
}

// ---- SurfaceDataSharedMemory ----

std::shared_ptr<SurfaceDataSharedMemory> SurfaceDataSharedMemory::Create(
    const std::shared_ptr<char>& buffer, unsigned long long start, const PixelFormatDescriptor& format,
    unsigned long long width, unsigned long long height, unsigned long long alignment) {
  std::shared_ptr<SurfaceDataSharedMemory> view(new SurfaceDataSharedMemory());
  view->buffer_ = buffer;
  view->start_ = start;
  view->format_ = format;
  view->width_ = width;
  view->height_ = height;
  if (lumo::image::IsCompressed(format)) {
    view->size_ = CompressedSize(format, width, height);
    view->bytes_per_row_ = 0;
  } else {
    view->bytes_per_row_ = lumo::image::BytesPerRow(format, width, alignment);
    view->size_ = RowsTimes(view->bytes_per_row_, height);
  }
  return view;
}

SurfaceDataSharedMemory::~SurfaceDataSharedMemory() = default;

bool SurfaceDataSharedMemory::Reinterpret(const PixelFormatDescriptor& format) {
  if (!detail::SameBitsPerPixel(format_, format)) return false;
  format_ = format;
  return true;
}

void SurfaceDataSharedMemory::ReplaceBuffer(const std::shared_ptr<char>& buffer, unsigned long long start) {
  buffer_ = buffer;
  start_ = start;
}

std::shared_ptr<SurfaceDataSharedMemory> SurfaceDataSharedMemory::ReinterpretCopy(
    const PixelFormatDescriptor& format) const {
  std::shared_ptr<SurfaceDataSharedMemory> copy(new SurfaceDataSharedMemory(*this));
  copy->format_ = format;
  if (!detail::SameBitsPerPixel(format_, format)) {
    const BitsPair bits = PixelBits(format);
    // New-format pixels in one existing row; 0 when the row size or the format says nothing.
    unsigned long long row_bits = 0;
    const bool overflow = checked::MulOverflows(bytes_per_row_, 8 * bits.pixels, &row_bits);
    copy->width_ = bits.bits == 0 || overflow ? 0 : row_bits / bits.bits;
  }
  return copy;
}

// ---- SurfaceDataNakedMemory ----

SurfaceDataNakedMemory::SurfaceDataNakedMemory(const PixelFormatDescriptor& format, unsigned long long width,
                                               unsigned long long height, unsigned long long bytes_per_row)
    : width_(width), height_(height), bytes_per_row_(bytes_per_row), format_(format) {
  if (lumo::image::IsCompressed(format)) {
    size_ = CompressedSize(format, width, height);
    bytes_per_row_ = 0;
  } else {
    size_ = RowsTimes(bytes_per_row, height);
  }
}

SurfaceDataNakedMemory::~SurfaceDataNakedMemory() = default;

bool SurfaceDataNakedMemory::Reinterpret(const PixelFormatDescriptor& format) {
  if (!detail::SameBitsPerPixel(format_, format)) return false;
  format_ = format;
  return true;
}

}  // namespace lumo::image
