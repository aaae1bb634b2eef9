#include "lumo/image/volume_data.h"

#include "data/reinterpret.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <new>
#include <utility>

#include "format/checked_size.h"
#include "lumo/image/compressed_formats.h"
#include "lumo/image/engines.h"

namespace lumo::image {
namespace {

// Blocks of the ASTC formats from 3x3x3 on span several slices, so a slice
// does not own whole blocks and cannot be viewed on its own.
constexpr unsigned kFirst3DBlockFormat = 45;

bool Has3DBlocks(const PixelFormatDescriptor& format) {
  return IsCompressed(format) && static_cast<unsigned>(GetCompressFormat(format)) >= kFirst3DBlockFormat;
}

// One slice view per slice; the vector is built aside so that a failed
// allocation leaves nothing half made.
void MakeSlices(const std::shared_ptr<char>& buffer, unsigned long long start, const PixelFormatDescriptor& format,
                unsigned long long width, unsigned long long height, unsigned long long depth,
                unsigned long long bytes_per_slice, unsigned long long alignment,
                std::vector<std::shared_ptr<SurfaceDataSharedMemory>>* slices) {
  std::vector<std::shared_ptr<SurfaceDataSharedMemory>> made;
  // A depth beyond what a vector can hold is an allocation that cannot succeed.
  if (depth > made.max_size()) throw std::bad_alloc();
  made.reserve(static_cast<std::size_t>(depth));
  for (unsigned long long i = 0; i < depth; ++i) {
    made.push_back(
        SurfaceDataSharedMemory::Create(buffer, start + i * bytes_per_slice, format, width, height, alignment));
  }
  slices->swap(made);
}

}  // namespace

const std::shared_ptr<VolumeData> VolumeData::Null;

VolumeData::~VolumeData() = default;

std::shared_ptr<VolumeData> VolumeData::Create(const std::shared_ptr<char>& buffer, unsigned long long start,
                                               const PixelFormatDescriptor& format, unsigned long long width,
                                               unsigned long long height, unsigned long long depth,
                                               unsigned long long alignment) {
  unsigned long long bytes_per_row = 0, bytes_per_slice = 0, size = 0;
  bool sliceable = true;
  if (!lumo::image::IsCompressed(format)) {
    bytes_per_row = lumo::image::BytesPerRow(format, width, alignment);
    if (checked::MulOverflows(bytes_per_row, height, &bytes_per_slice)) return Null;
    if (checked::MulOverflows(bytes_per_slice, depth, &size)) return Null;
  } else if (!Has3DBlocks(format)) {
    bytes_per_slice = BytesTotal(format, width, height, alignment);
    if (checked::MulOverflows(bytes_per_slice, depth, &size)) return Null;
  } else {
    size = BytesTotal(format, width, height, depth, alignment);
    sliceable = false;
  }
  // Slice offsets and Buffer() must stay inside the 64-bit address range.
  unsigned long long end = 0;
  if (checked::AddOverflows(start, size, &end)) return Null;

  std::shared_ptr<VolumeData> volume(new VolumeData());
  volume->buffer_ = buffer;
  volume->start_ = start;
  volume->format_ = format;
  volume->width_ = width;
  volume->height_ = height;
  volume->depth_ = depth;
  volume->bytes_per_row_ = bytes_per_row;
  volume->bytes_per_slice_ = bytes_per_slice;
  volume->size_ = size;
  volume->sliceable_ = sliceable;
  if (sliceable) MakeSlices(buffer, start, format, width, height, depth, bytes_per_slice, alignment, &volume->slices_);
  return volume;
}

std::shared_ptr<VolumeData> VolumeData::Create(const std::vector<std::shared_ptr<SurfaceData>>& slices) {
  if (slices.empty() || !slices[0]) return Null;
  const SurfaceData& first = *slices[0];
  const PixelFormatDescriptor format = first.Format();
  const unsigned long long width = first.Width();
  const unsigned long long height = first.Height();
  for (const std::shared_ptr<SurfaceData>& slice : slices) {
    if (!slice || slice->Width() != width || slice->Height() != height || slice->Format() != format) return Null;
    // Nothing to copy from (a naked surface whose owner never set the address).
    if (slice->Buffer() == nullptr && slice->Size() != 0) return Null;
  }

  // Rows padded to four bytes, whatever the inputs' rows are.
  constexpr unsigned long long kAlignment = 2;
  const unsigned long long depth = slices.size();
  const unsigned long long bytes_per_row = lumo::image::BytesPerRow(format, width, kAlignment);
  unsigned long long bytes_per_slice = 0, size = 0;
  if (lumo::image::IsCompressed(format)) {
    // Slices of 3-D blocks cannot be stacked one by one.
    if (Has3DBlocks(format)) return Null;
    bytes_per_slice = BytesTotal(format, width, height, kAlignment);
    if (bytes_per_slice == 0) return Null;  // undecodable, or too large
  } else if (checked::MulOverflows(bytes_per_row, height, &bytes_per_slice)) {
    return Null;
  }
  if (checked::MulOverflows(bytes_per_slice, depth, &size)) return Null;

  std::shared_ptr<char> buffer(new char[size], array_deleter());
  // The same geometry as a volume over an existing buffer with four-byte rows.
  std::shared_ptr<VolumeData> volume = Create(buffer, 0, format, width, height, depth, kAlignment);
  if (!volume || volume->bytes_per_slice_ != bytes_per_slice) return Null;

  for (unsigned long long i = 0; i < depth; ++i) {
    const SurfaceData& source = *slices[i];
    char* target = buffer.get() + i * bytes_per_slice;
    const unsigned long long source_row = source.BytesPerRow();
    if (source_row == bytes_per_row || lumo::image::IsCompressed(format)) {
      // Compressed data has no pixel rows of its own (a bitmap reports
      // size / height, a view 0), so its blocks are copied as one run.
      const unsigned long long bytes = std::min(source.Size(), bytes_per_slice);
      if (bytes != 0) std::memcpy(target, source.Buffer(), static_cast<std::size_t>(bytes));
      if (bytes < bytes_per_slice) std::memset(target + bytes, 0, static_cast<std::size_t>(bytes_per_slice - bytes));
      continue;
    }
    const unsigned long long row_bytes = std::min(source_row, bytes_per_row);
    const char* from = source.Buffer();
    for (unsigned long long y = 0; y < height; ++y) {
      char* row = target + y * bytes_per_row;
      if (row_bytes != 0) std::memcpy(row, from + y * source_row, static_cast<std::size_t>(row_bytes));
      // The padding is cleared so that no uninitialised byte reaches a file.
      std::memset(row + row_bytes, 0, static_cast<std::size_t>(bytes_per_row - row_bytes));
    }
  }
  return volume;
}

std::shared_ptr<SurfaceDataSharedMemory> VolumeData::GetSlice(unsigned long long index) const {
  return index < slices_.size() ? slices_[index] : SurfaceDataSharedMemory::Null;
}

bool VolumeData::IsCompressed() const { return lumo::image::IsCompressed(format_); }

bool VolumeData::IsSizePowerOfTwo() const {
  for (const unsigned long long v : {width_, height_, depth_}) {
    if ((v & (0 - v)) != v) return false;
  }
  return true;
}

bool VolumeData::Reinterpret(const PixelFormatDescriptor& format) {
  if (!detail::SameBitsPerPixel(format_, format)) return false;
  format_ = format;
  // The views keep describing the same slices of this volume, so they follow.
  // Views relabelled on their own still have the old bits per pixel, so this
  // cannot fail for them.
  for (const std::shared_ptr<SurfaceDataSharedMemory>& slice : slices_) {
    if (slice) slice->Reinterpret(format);
  }
  return true;
}

bool VolumeData::FlipHorizontal() {
  if (!sliceable_) return false;
  for (const std::shared_ptr<SurfaceDataSharedMemory>& slice : slices_) {
    if (!slice->FlipHorizontal()) return false;
  }
  return true;
}

bool VolumeData::FlipVertical() {
  if (!sliceable_) return false;
  for (const std::shared_ptr<SurfaceDataSharedMemory>& slice : slices_) {
    if (!slice->FlipVertical()) return false;
  }
  return true;
}

bool VolumeData::FlipDepthical() {
  if (!sliceable_) return false;
  if (depth_ < 2 || bytes_per_slice_ == 0) return true;
  if (!buffer_) return false;
  const std::size_t bytes = static_cast<std::size_t>(bytes_per_slice_);
  const std::unique_ptr<char[]> temp(new char[bytes]);
  char* base = Buffer();
  for (unsigned long long i = 0; i < depth_ / 2; ++i) {
    char* front = base + i * bytes_per_slice_;
    char* back = base + (depth_ - 1 - i) * bytes_per_slice_;
    std::memcpy(temp.get(), front, bytes);
    std::memcpy(front, back, bytes);
    std::memcpy(back, temp.get(), bytes);
  }
  return true;
}

namespace {

// Applies a 2-D copy to every slice and stacks the results into a new volume.
template <typename Operation>
std::shared_ptr<VolumeData> MapSlices(bool sliceable,
                                      const std::vector<std::shared_ptr<SurfaceDataSharedMemory>>& slices,
                                      Operation operation) {
  if (!sliceable) return VolumeData::Null;
  std::vector<std::shared_ptr<SurfaceData>> results;
  results.reserve(slices.size());
  for (const std::shared_ptr<SurfaceDataSharedMemory>& slice : slices) {
    std::shared_ptr<SurfaceData> result = operation(*slice);
    if (!result) return VolumeData::Null;
    results.push_back(std::move(result));
  }
  return VolumeData::Create(results);
}

}  // namespace

std::shared_ptr<VolumeData> VolumeData::ConvertCopy(const PixelFormatDescriptor& format) const {
  return MapSlices(sliceable_, slices_, [&format](const SurfaceData& slice) { return slice.ConvertCopy(format); });
}

std::shared_ptr<VolumeData> VolumeData::ConvertCopy(Converter* converter) const {
  return MapSlices(sliceable_, slices_, [converter](const SurfaceData& slice) { return slice.ConvertCopy(converter); });
}

std::shared_ptr<VolumeData> VolumeData::RotateCopy(int degrees) const {
  return MapSlices(sliceable_, slices_, [degrees](const SurfaceData& slice) { return slice.RotateCopy(degrees); });
}

std::shared_ptr<VolumeData> VolumeData::RescaleCopy(unsigned long long, unsigned long long, unsigned long long,
                                                    FilterType) const {
  return Null;
}

}  // namespace lumo::image
