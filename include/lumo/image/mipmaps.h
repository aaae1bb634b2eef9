// One mip level of a texture: a surface, an array of surfaces, a volume or a
// cube map. Pyramid holds one Mipmap per level and works on them only through
// the virtual interface; the file plugins create them.
//
// Sharing: arrays and volumes keep their pixels in one VolumeData and hand out
// one Surface per slice over the slice views, so a layer obtained from them
// reads and writes the shared storage. Copying any of these objects copies
// pointers, not pixels. Operations named ...Copy make new, independent storage.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "lumo/image/export.h"
#include "lumo/image/formats.h"
#include "lumo/image/surface_data.h"
#include "lumo/image/volume_data.h"

namespace lumo::image {

class Converter;
class Surface;
enum class FilterType : int;
enum class ImageFormat : int;

enum class MipmapType : std::uint32_t {
  Surface = 0,
  Volume = 1,
  Cube = 2,
  SurfaceArray = 3,
  CubeArray = 4,  // reported by file images; no Mipmap class of the library has it
};

// Where row 0 of every surface of a pyramid lies in the picture.
enum class ImageOrigin : std::uint32_t {
  TopDown = 0,
  BottomUp = 1,
};

// Face indices in the order DDS, KTX and PVR files store them.
enum class CubeFace : std::uint32_t {
  PositiveX = 0,
  NegativeX = 1,
  PositiveY = 2,
  NegativeY = 3,
  PositiveZ = 4,
  NegativeZ = 5,
};

class LUMO_IMAGE_API Mipmap {
 public:
  static const std::shared_ptr<Mipmap> Null;

  virtual ~Mipmap();
  virtual unsigned long long Width() const;   // surface 0's
  virtual unsigned long long Height() const;  // surface 0's
  virtual PixelFormatDescriptor Format();     // surface 0's
  virtual unsigned long long Depth() const = 0;
  virtual unsigned long long ArrayLength() const = 0;
  virtual std::shared_ptr<Surface> GetSurface(unsigned long long index) = 0;
  virtual unsigned long long GetSurfaceCount() const = 0;
  // In place: the next smaller mip level (half size, at least 1).
  virtual bool Downgrade(FilterType filter) = 0;
  virtual std::shared_ptr<Mipmap> DowngradeCopy(FilterType filter) = 0;
  virtual bool FlipVertical() = 0;
  virtual bool FlipHorizontal() = 0;
  virtual bool FlipDepthical();  // false unless the kind has depth
  virtual bool Reinterpret(const PixelFormatDescriptor& format) = 0;
  virtual MipmapType Type() = 0;
  virtual bool IsArray() const;
  virtual bool MakeSizePowerOfTwo(FilterType filter) = 0;
  virtual std::shared_ptr<Mipmap> ConvertCopy(Converter* converter) = 0;
  virtual std::shared_ptr<Mipmap> ConvertCopy(const PixelFormatDescriptor& format) = 0;
  virtual std::shared_ptr<Mipmap> RotateCopy(int degrees) = 0;

  std::shared_ptr<Surface> GetSurface();  // GetSurface(0)
  bool IsCompressed();
  bool IsSizePowerOfTwo() const;

 protected:
  Mipmap() = default;
  Mipmap(const Mipmap&) = default;
  Mipmap& operator=(const Mipmap&) = default;
};

// One SurfaceData as a mip level, and the element of every other kind.
// Create surfaces through std::shared_ptr (GetSurface(0) shares ownership of
// the surface itself). Forwards on a surface without data answer 0 / false / Null.
class LUMO_IMAGE_API Surface : public Mipmap, public std::enable_shared_from_this<Surface> {
 public:
  static const std::shared_ptr<Surface> Null;

  Surface();
  explicit Surface(const std::shared_ptr<SurfaceData>& data);
  // A new bitmap; no data when it cannot be made.
  Surface(unsigned long long width, unsigned long long height, const PixelFormatDescriptor& format,
          unsigned long long alignment);
  Surface(const Surface& other);
  Surface(Surface&& other) noexcept;
  Surface& operator=(const Surface& other);
  Surface& operator=(Surface&& other) noexcept;
  ~Surface() override;

  const std::shared_ptr<SurfaceData>& Data() const { return data_; }
  void SetData(const std::shared_ptr<SurfaceData>& data) { data_ = data; }
  char* Buffer();
  const char* Buffer() const;
  unsigned long long BytesPerRow() const;
  unsigned long long Size() const;

  // In place: the data is replaced by the converted copy.
  bool Convert(const PixelFormatDescriptor& format);
  std::shared_ptr<Surface> SurfaceConvertCopy(const PixelFormatDescriptor& format);
  std::shared_ptr<Surface> SurfaceConvertCopy(Converter* converter);
  std::shared_ptr<Surface> SurfaceRotateCopy(int degrees);
  std::shared_ptr<Surface> CropCopy(unsigned long long x, unsigned long long y, unsigned long long width,
                                    unsigned long long height);
  std::shared_ptr<Surface> ExtrudeCopy(unsigned long long left, unsigned long long right, unsigned long long top,
                                       unsigned long long bottom);
  std::shared_ptr<Surface> RescaleCopy(unsigned long long width, unsigned long long height, FilterType filter);
  std::shared_ptr<char> ToImage(ImageFormat format, unsigned long long* size, int flags);

  unsigned long long Width() const override;
  unsigned long long Height() const override;
  PixelFormatDescriptor Format() override;
  unsigned long long Depth() const override { return 1; }
  unsigned long long ArrayLength() const override { return 1; }
  // Index 0: this surface (shared ownership); otherwise Null. Null too when no
  // shared pointer owns this surface.
  std::shared_ptr<Surface> GetSurface(unsigned long long index) override;
  using Mipmap::GetSurface;
  unsigned long long GetSurfaceCount() const override { return 1; }
  bool Downgrade(FilterType filter) override;
  std::shared_ptr<Mipmap> DowngradeCopy(FilterType filter) override;
  bool FlipVertical() override;
  bool FlipHorizontal() override;
  bool Reinterpret(const PixelFormatDescriptor& format) override;
  MipmapType Type() override { return MipmapType::Surface; }
  bool MakeSizePowerOfTwo(FilterType filter) override;
  std::shared_ptr<Mipmap> ConvertCopy(Converter* converter) override;
  std::shared_ptr<Mipmap> ConvertCopy(const PixelFormatDescriptor& format) override;
  std::shared_ptr<Mipmap> RotateCopy(int degrees) override;

 private:
  std::shared_ptr<SurfaceData> data_;
};

// A mip level of several elements. Indexes past Count() give an empty pointer.
template <typename T>
class Array : public Mipmap {
 public:
  unsigned long long Count() const { return surfaces_.size(); }
  std::shared_ptr<T> At(unsigned long long index) const {
    return index < surfaces_.size() ? surfaces_[index] : std::shared_ptr<T>();
  }
  std::shared_ptr<T> operator[](unsigned long long index) const { return At(index); }

 protected:
  std::vector<std::shared_ptr<T>> surfaces_;
};

// The layers of a texture array, as slices of one VolumeData.
class LUMO_IMAGE_API SurfaceArray : public Array<Surface> {
 public:
  static const std::shared_ptr<SurfaceArray> Null;

  SurfaceArray();
  // Logs "Surface array must be init with sliceable volume data." and holds no
  // layers when the volume is missing or has 3-D blocks.
  explicit SurfaceArray(const std::shared_ptr<VolumeData>& data);
  // Copies the surfaces' pixels into a new volume.
  explicit SurfaceArray(const std::vector<std::shared_ptr<Surface>>& surfaces);
  SurfaceArray(const SurfaceArray&) = default;
  SurfaceArray& operator=(const SurfaceArray&) = default;
  ~SurfaceArray() override;

  const std::shared_ptr<VolumeData>& Data() const { return data_; }
  char* Buffer();
  const char* Buffer() const;
  unsigned long long BytesPerRow() const;
  unsigned long long BytesPerSlice() const;
  unsigned long long Size() const;
  std::shared_ptr<SurfaceArray> SurfaceArrayConvertCopy(const PixelFormatDescriptor& format);
  std::shared_ptr<SurfaceArray> SurfaceArrayConvertCopy(Converter* converter);
  std::shared_ptr<SurfaceArray> SurfaceArrayRotateCopy(int degrees);

  unsigned long long Width() const override;
  unsigned long long Height() const override;
  unsigned long long Depth() const override;
  unsigned long long ArrayLength() const override { return Count(); }
  std::shared_ptr<Surface> GetSurface(unsigned long long index) override { return At(index); }
  using Mipmap::GetSurface;
  unsigned long long GetSurfaceCount() const override;
  bool Downgrade(FilterType filter) override;
  std::shared_ptr<Mipmap> DowngradeCopy(FilterType filter) override;
  bool FlipVertical() override;
  bool FlipHorizontal() override;
  bool FlipDepthical() override;
  bool Reinterpret(const PixelFormatDescriptor& format) override;
  MipmapType Type() override { return MipmapType::SurfaceArray; }
  bool MakeSizePowerOfTwo(FilterType filter) override;
  std::shared_ptr<Mipmap> ConvertCopy(Converter* converter) override;
  std::shared_ptr<Mipmap> ConvertCopy(const PixelFormatDescriptor& format) override;
  std::shared_ptr<Mipmap> RotateCopy(int degrees) override;

 private:
  bool ResetSurfaces();

  std::shared_ptr<VolumeData> data_;
};

// The slices of a volume texture, as slices of one VolumeData. The library
// makes no smaller mip levels of volumes.
class LUMO_IMAGE_API Volume : public Mipmap {
 public:
  static const std::shared_ptr<Volume> Null;

  Volume();
  explicit Volume(const std::shared_ptr<VolumeData>& data);
  explicit Volume(const std::vector<std::shared_ptr<Surface>>& surfaces);
  Volume(const Volume&) = default;
  Volume& operator=(const Volume&) = default;
  ~Volume() override;

  const std::shared_ptr<VolumeData>& Data() const { return data_; }
  char* Buffer();
  const char* Buffer() const;
  unsigned long long BytesPerRow() const;
  unsigned long long BytesPerSlice() const;
  unsigned long long Size() const;
  bool IsSliceable() const;
  std::shared_ptr<Volume> VolumeConvertCopy(const PixelFormatDescriptor& format);
  std::shared_ptr<Volume> VolumeConvertCopy(Converter* converter);
  std::shared_ptr<Volume> VolumeRotateCopy(int degrees);

  unsigned long long Width() const override;
  unsigned long long Height() const override;
  // Surface 0's; the volume data's when there are no slice surfaces (3-D blocks).
  PixelFormatDescriptor Format() override;
  unsigned long long Depth() const override;
  unsigned long long ArrayLength() const override { return 1; }
  std::shared_ptr<Surface> GetSurface(unsigned long long index) override;
  using Mipmap::GetSurface;
  unsigned long long GetSurfaceCount() const override { return surfaces_.size(); }
  bool Downgrade(FilterType filter) override;
  std::shared_ptr<Mipmap> DowngradeCopy(FilterType filter) override;
  bool FlipVertical() override;
  bool FlipHorizontal() override;
  bool FlipDepthical() override;
  bool Reinterpret(const PixelFormatDescriptor& format) override;
  MipmapType Type() override { return MipmapType::Volume; }
  bool MakeSizePowerOfTwo(FilterType filter) override;
  std::shared_ptr<Mipmap> ConvertCopy(Converter* converter) override;
  std::shared_ptr<Mipmap> ConvertCopy(const PixelFormatDescriptor& format) override;
  std::shared_ptr<Mipmap> RotateCopy(int degrees) override;

 private:
  void ResetSurfaces();

  std::vector<std::shared_ptr<Surface>> surfaces_;
  std::shared_ptr<VolumeData> data_;
};

// Six faces, each with its own storage. Operations apply to every present face.
class LUMO_IMAGE_API Cube : public Mipmap {
 public:
  static const std::shared_ptr<Cube> Null;

  // Faces in CubeFace order, shared. Logs "Cube must be created with six
  // non-null surface" and gives Null when one is missing.
  static std::shared_ptr<Cube> Create(const std::shared_ptr<Surface>& face0, const std::shared_ptr<Surface>& face1,
                                      const std::shared_ptr<Surface>& face2, const std::shared_ptr<Surface>& face3,
                                      const std::shared_ptr<Surface>& face4, const std::shared_ptr<Surface>& face5);
  Cube(const Cube&) = default;
  Cube& operator=(const Cube&) = default;
  ~Cube() override;

  std::shared_ptr<Surface> GetFace(CubeFace face) const;
  std::shared_ptr<Cube> CubeConvertCopy(const PixelFormatDescriptor& format);
  std::shared_ptr<Cube> CubeConvertCopy(Converter* converter);
  std::shared_ptr<Cube> CubeRotateCopy(int degrees);

  unsigned long long Depth() const override { return 1; }
  unsigned long long ArrayLength() const override { return 1; }
  std::shared_ptr<Surface> GetSurface(unsigned long long index) override;
  using Mipmap::GetSurface;
  unsigned long long GetSurfaceCount() const override { return 6; }
  bool Downgrade(FilterType filter) override;
  std::shared_ptr<Mipmap> DowngradeCopy(FilterType filter) override;
  bool FlipVertical() override;
  bool FlipHorizontal() override;
  bool Reinterpret(const PixelFormatDescriptor& format) override;
  MipmapType Type() override { return MipmapType::Cube; }
  bool IsArray() const override { return false; }
  bool MakeSizePowerOfTwo(FilterType filter) override;
  std::shared_ptr<Mipmap> ConvertCopy(Converter* converter) override;
  std::shared_ptr<Mipmap> ConvertCopy(const PixelFormatDescriptor& format) override;
  std::shared_ptr<Mipmap> RotateCopy(int degrees) override;

 private:
  Cube() = default;

  std::array<std::shared_ptr<Surface>, 6> faces_;
};

}  // namespace lumo::image
