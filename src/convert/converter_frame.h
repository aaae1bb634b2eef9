// Shared frame of the single-step converters: create the result, walk the rows
// with each surface's own pitch, hand each row pair to a kernel.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>

#include "format/checked_size.h"
#include "lumo/image/converters.h"
#include "lumo/image/surface_data.h"

namespace lumo::image::detail {

// Converts `source` into a new SurfaceDataBitmap of `target` (rows padded to
// four bytes). `row(const unsigned char* src, unsigned char* dst, size_t width)`
// converts one row of `width` pixels; it is a template argument so that the
// per-pixel loop inlines into the row walk. Null when the result cannot be made.
template <typename RowKernel>
std::shared_ptr<SurfaceData> ConvertRows(const SurfaceData* source, const PixelFormatDescriptor& target,
                                         RowKernel&& row) {
  if (source == nullptr) return SurfaceData::Null;
  const unsigned long long width = source->Width();
  const unsigned long long height = source->Height();
  std::shared_ptr<SurfaceDataBitmap> result = SurfaceDataBitmap::Create(width, height, target, 2);
  if (!result) return SurfaceData::Null;
  const auto* src = reinterpret_cast<const unsigned char*>(source->Buffer());
  auto* dst = reinterpret_cast<unsigned char*>(result->Buffer());
  const unsigned long long src_pitch = source->BytesPerRow();
  const unsigned long long dst_pitch = result->BytesPerRow();
  for (unsigned long long y = 0; y < height; ++y) {
    row(src + y * src_pitch, dst + y * dst_pitch, static_cast<std::size_t>(width));
  }
  return result;
}

// Pixel size in bytes of a format whose pixels are whole bytes, else 0.
inline unsigned long long WholeBytesPerPixel(const PixelFormatDescriptor& format) {
  unsigned long long divisor = 0;
  const unsigned long long bytes = BytesPerPixel(format, &divisor);
  return divisor == 1 ? bytes : 0;
}

// Checks made before the result is created (a converter never fails
// afterwards): every source row must hold `width` pixels of `src_pixel` bytes
// and a padded target row `width` pixels of `dst_pixel` bytes, so that no
// kernel reads or writes outside the surfaces, whatever formats they carry.
inline bool RowsHold(const SurfaceData* source, const PixelFormatDescriptor& target, unsigned long long src_pixel,
                     unsigned long long dst_pixel) {
  if (source == nullptr) return false;
  const unsigned long long width = source->Width();
  unsigned long long src_need = 0, dst_need = 0;
  if (checked::MulOverflows(width, src_pixel, &src_need) || checked::MulOverflows(width, dst_pixel, &dst_need)) {
    return false;
  }
  if (source->Height() != 0 && source->BytesPerRow() < src_need) return false;
  return BytesPerRow(target, width, 2) >= dst_need;
}

// A converter made of one row kernel reading src_pixel and writing dst_pixel bytes per pixel.
template <typename RowKernel>
std::shared_ptr<SurfaceData> ConvertWith(const SurfaceData* source, const PixelFormatDescriptor& target,
                                         unsigned long long src_pixel, unsigned long long dst_pixel, RowKernel&& row) {
  if (!RowsHold(source, target, src_pixel, dst_pixel)) return SurfaceData::Null;
  return ConvertRows(source, target, std::forward<RowKernel>(row));
}

}  // namespace lumo::image::detail
