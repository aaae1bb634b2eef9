// Two-dimensional pixel storage: one rectangle of width x height pixels in one
// format, row after row with BytesPerRow() bytes from one row start to the next.
// Three classes differ only in who owns the memory:
//   SurfaceDataBitmap        allocates and owns its buffer;
//   SurfaceDataSharedMemory  views a reference-counted buffer shared with others;
//   SurfaceDataNakedMemory   describes memory someone else owns (set by a subclass).
// Row 0 is the first row in memory; whether that is the top of the picture is
// recorded by the Pyramid, not here.
#pragma once

#include <memory>

#include "lumo/image/export.h"
#include "lumo/image/formats.h"

namespace lumo::image {

class Converter;
enum class FilterType : int;
enum class ImageFormat : int;

// Deleters for std::shared_ptr<char> buffers.
struct LUMO_IMAGE_API array_deleter {
  void operator()(const char* p) const { delete[] p; }
};
struct LUMO_IMAGE_API null_deleter {
  void operator()(const char*) const {}
};

class LUMO_IMAGE_API SurfaceData {
 public:
  static const std::shared_ptr<SurfaceData> Null;

  virtual ~SurfaceData();
  virtual char* Buffer() = 0;
  virtual const char* Buffer() const = 0;
  virtual unsigned long long Size() const = 0;
  virtual PixelFormatDescriptor Format() const = 0;
  virtual unsigned long long BytesPerRow() const = 0;
  virtual unsigned long long Width() const = 0;
  virtual unsigned long long Height() const = 0;
  // Relabels the pixels with a format of exactly the same bits per pixel;
  // false (and no change) otherwise. Never touches the bytes.
  virtual bool Reinterpret(const PixelFormatDescriptor& format) = 0;
  // Encodes this surface as a file image; empty with *size untouched on failure.
  virtual std::shared_ptr<char> ToImage(ImageFormat format, unsigned long long* size, int flags);

  bool IsCompressed() const;
  // 0 counts as a power of two.
  bool IsSizePowerOfTwo() const;

  // In place, through the current flip engine.
  bool FlipHorizontal();
  bool FlipVertical();
  // New SurfaceDataBitmap results (rows padded to four bytes), or Null.
  std::shared_ptr<SurfaceData> CropCopy(unsigned long long x, unsigned long long y, unsigned long long width,
                                        unsigned long long height) const;
  std::shared_ptr<SurfaceData> ExtrudeCopy(unsigned long long left, unsigned long long right, unsigned long long top,
                                           unsigned long long bottom) const;
  std::shared_ptr<SurfaceData> RotateCopy(int degrees) const;
  std::shared_ptr<SurfaceData> RescaleCopy(unsigned long long width, unsigned long long height,
                                           FilterType filter) const;
  std::shared_ptr<SurfaceData> MakeSizePowerOfTwoCopy(FilterType filter) const;

  // Converts through the converter manager (a registered converter or a chain).
  // There is no shortcut for the surface's own format. Null when no path exists.
  std::shared_ptr<SurfaceData> ConvertCopy(const PixelFormatDescriptor& format) const;
  // Runs a converter obtained earlier (useful for chains found once and reused).
  // Only a chain converts this way: single-step converters need a target.
  std::shared_ptr<SurfaceData> ConvertCopy(Converter* converter) const;

 protected:
  SurfaceData() = default;
  SurfaceData(const SurfaceData&) = default;
  SurfaceData& operator=(const SurfaceData&) = default;
};

class LUMO_IMAGE_API SurfaceDataBitmap : public SurfaceData {
 public:
  static const std::shared_ptr<SurfaceDataBitmap> Null;

  // alignment: rows rounded up to 2^alignment bytes (the library always uses 2).
  // Null for an unusable format or a zero row or total size. Pixels are not cleared.
  static std::shared_ptr<SurfaceDataBitmap> Create(unsigned long long width, unsigned long long height,
                                                   const PixelFormatDescriptor& format, unsigned long long alignment);

  ~SurfaceDataBitmap() override;
  // A copy owns a copy of the pixels: two bitmaps never release one buffer.
  SurfaceDataBitmap(const SurfaceDataBitmap& other);
  SurfaceDataBitmap& operator=(const SurfaceDataBitmap& other);

  char* Buffer() override { return buffer_; }
  const char* Buffer() const override { return buffer_; }
  unsigned long long Size() const override { return size_; }
  PixelFormatDescriptor Format() const override { return format_; }
  unsigned long long BytesPerRow() const override { return bytes_per_row_; }
  unsigned long long Width() const override { return width_; }
  unsigned long long Height() const override { return height_; }
  bool Reinterpret(const PixelFormatDescriptor& format) override;

 private:
  SurfaceDataBitmap() = default;

  PixelFormatDescriptor format_{};
  unsigned long long bytes_per_row_ = 0;
  unsigned long long width_ = 0;
  unsigned long long height_ = 0;
  unsigned long long size_ = 0;
  char* buffer_ = nullptr;
};

class LUMO_IMAGE_API SurfaceDataSharedMemory : public SurfaceData {
 public:
  static const std::shared_ptr<SurfaceDataSharedMemory> Null;

  // A view of `buffer` from byte `start`. Nothing is validated: the caller
  // guarantees that start + Size() lies inside the buffer. Compressed formats
  // report BytesPerRow() 0.
  static std::shared_ptr<SurfaceDataSharedMemory> Create(const std::shared_ptr<char>& buffer, unsigned long long start,
                                                         const PixelFormatDescriptor& format, unsigned long long width,
                                                         unsigned long long height, unsigned long long alignment);

  SurfaceDataSharedMemory(const SurfaceDataSharedMemory&) = default;
  SurfaceDataSharedMemory& operator=(const SurfaceDataSharedMemory&) = default;
  SurfaceDataSharedMemory(SurfaceDataSharedMemory&&) = default;
  SurfaceDataSharedMemory& operator=(SurfaceDataSharedMemory&&) = default;
  ~SurfaceDataSharedMemory() override;

  char* Buffer() override { return buffer_.get() + start_; }
  const char* Buffer() const override { return buffer_.get() + start_; }
  unsigned long long Size() const override { return size_; }
  PixelFormatDescriptor Format() const override { return format_; }
  unsigned long long BytesPerRow() const override { return bytes_per_row_; }
  unsigned long long Width() const override { return width_; }
  unsigned long long Height() const override { return height_; }
  bool Reinterpret(const PixelFormatDescriptor& format) override;

  unsigned long long Start() const { return start_; }
  const std::shared_ptr<char>& SharedBuffer() const { return buffer_; }
  // Shares a new buffer; size, dimensions, row size and format stay.
  void ReplaceBuffer(const std::shared_ptr<char>& buffer, unsigned long long start);
  // A new view of the same bytes in another format. With other bits per pixel
  // the width becomes the number of new-format pixels in one existing row.
  std::shared_ptr<SurfaceDataSharedMemory> ReinterpretCopy(const PixelFormatDescriptor& format) const;

 private:
  SurfaceDataSharedMemory() = default;

  std::shared_ptr<char> buffer_;
  unsigned long long start_ = 0;
  unsigned long long size_ = 0;
  unsigned long long width_ = 0;
  unsigned long long height_ = 0;
  unsigned long long bytes_per_row_ = 0;
  PixelFormatDescriptor format_{};
};

class LUMO_IMAGE_API SurfaceDataNakedMemory : public SurfaceData {
 public:
  // Records the geometry; a derived class points the buffer at memory it keeps
  // alive (SetBuffer). Compressed formats report BytesPerRow() 0.
  SurfaceDataNakedMemory(const PixelFormatDescriptor& format, unsigned long long width, unsigned long long height,
                         unsigned long long bytes_per_row);
  SurfaceDataNakedMemory(const SurfaceDataNakedMemory&) = default;
  SurfaceDataNakedMemory& operator=(const SurfaceDataNakedMemory&) = default;
  ~SurfaceDataNakedMemory() override;

  char* Buffer() override { return buffer_; }
  const char* Buffer() const override { return buffer_; }
  unsigned long long Size() const override { return size_; }
  PixelFormatDescriptor Format() const override { return format_; }
  unsigned long long BytesPerRow() const override { return bytes_per_row_; }
  unsigned long long Width() const override { return width_; }
  unsigned long long Height() const override { return height_; }
  bool Reinterpret(const PixelFormatDescriptor& format) override;

 protected:
  void SetBuffer(char* buffer) { buffer_ = buffer; }

 private:
  unsigned long long size_ = 0;
  unsigned long long width_ = 0;
  unsigned long long height_ = 0;
  unsigned long long bytes_per_row_ = 0;
  PixelFormatDescriptor format_{};
  char* buffer_ = nullptr;
};

}  // namespace lumo::image
