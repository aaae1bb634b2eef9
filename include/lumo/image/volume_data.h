// Three-dimensional pixel storage: depth slices of width x height pixels in
// one format, one after another in one shared buffer. A sliceable volume (any
// format but the 3-D-block ASTC ones) also holds one SurfaceDataSharedMemory
// view per slice over that buffer, so 2-D operations work on a slice in place.
#pragma once

#include <memory>
#include <vector>

#include "lumo/image/export.h"
#include "lumo/image/formats.h"
#include "lumo/image/surface_data.h"

namespace lumo::image {

class Converter;
enum class FilterType : int;

class LUMO_IMAGE_API VolumeData {
 public:
  static const std::shared_ptr<VolumeData> Null;

  // A volume over `buffer` from byte `start`, used in place. Nothing checks
  // that the buffer is long enough: the caller guarantees start + Size().
  static std::shared_ptr<VolumeData> Create(const std::shared_ptr<char>& buffer, unsigned long long start,
                                            const PixelFormatDescriptor& format, unsigned long long width,
                                            unsigned long long height, unsigned long long depth,
                                            unsigned long long alignment);
  // A new volume (rows padded to four bytes) holding copies of the surfaces,
  // which must agree in size and format. Null for none or a mismatch.
  static std::shared_ptr<VolumeData> Create(const std::vector<std::shared_ptr<SurfaceData>>& slices);

  VolumeData(const VolumeData&) = default;
  VolumeData& operator=(const VolumeData&) = default;
  VolumeData(VolumeData&&) = default;
  VolumeData& operator=(VolumeData&&) = default;
  ~VolumeData();

  const std::shared_ptr<char>& SharedBuffer() const { return buffer_; }
  unsigned long long Start() const { return start_; }
  unsigned long long Size() const { return size_; }
  unsigned long long Width() const { return width_; }
  unsigned long long Height() const { return height_; }
  unsigned long long Depth() const { return depth_; }
  unsigned long long BytesPerRow() const { return bytes_per_row_; }
  unsigned long long BytesPerSlice() const { return bytes_per_slice_; }
  bool IsSliceable() const { return sliceable_; }
  PixelFormatDescriptor Format() { return format_; }
  char* Buffer() { return buffer_.get() + start_; }
  const char* Buffer() const { return buffer_.get() + start_; }

  // The stored view of slice `index` (shared), or Null past the last slice.
  std::shared_ptr<SurfaceDataSharedMemory> GetSlice(unsigned long long index) const;
  bool IsCompressed() const;
  bool IsSizePowerOfTwo() const;
  // Relabels the volume with a format of the same bits per pixel.
  bool Reinterpret(const PixelFormatDescriptor& format);

  // Slice by slice through the current flip engine; false for a volume
  // without slices views (3-D blocks). A failing slice stops the loop.
  bool FlipHorizontal();
  bool FlipVertical();
  // Reverses the order of the slices (no engine involved).
  bool FlipDepthical();

  // Slice by slice into a new, independent volume; Null when any slice fails.
  std::shared_ptr<VolumeData> ConvertCopy(const PixelFormatDescriptor& format) const;
  std::shared_ptr<VolumeData> ConvertCopy(Converter* converter) const;
  std::shared_ptr<VolumeData> RotateCopy(int degrees) const;
  // Three-dimensional resampling is not provided: always Null.
  std::shared_ptr<VolumeData> RescaleCopy(unsigned long long width, unsigned long long height, unsigned long long depth,
                                          FilterType filter) const;

 private:
  VolumeData() = default;

  std::shared_ptr<char> buffer_;
  unsigned long long start_ = 0;
  unsigned long long size_ = 0;
  unsigned long long width_ = 0;
  unsigned long long height_ = 0;
  unsigned long long depth_ = 0;
  unsigned long long bytes_per_row_ = 0;
  unsigned long long bytes_per_slice_ = 0;
  bool sliceable_ = false;
  PixelFormatDescriptor format_{};
  std::vector<std::shared_ptr<SurfaceDataSharedMemory>> slices_;
};

}  // namespace lumo::image
