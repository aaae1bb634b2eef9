// A whole texture: its mip chain (one Mipmap per level, the largest first),
// the row order of its surfaces and an optional palette. Every decoded file
// yields one, and every written file is made from one.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "lumo/image/export.h"
#include "lumo/image/formats.h"
#include "lumo/image/mipmaps.h"

namespace lumo::image {

class Converter;
enum class FilterType : int;
enum class ImageFormat : int;

class LUMO_IMAGE_API Pyramid {
 public:
  static const std::shared_ptr<Pyramid> Null;

  // Nothing is validated: levels may disagree in kind, format or size, and
  // an entry may be empty.
  static std::shared_ptr<Pyramid> Make(const std::shared_ptr<Mipmap>& level, ImageOrigin origin);
  static std::shared_ptr<Pyramid> Make(const std::vector<std::shared_ptr<Mipmap>>& levels, ImageOrigin origin);

  Pyramid(const Pyramid&) = default;
  Pyramid& operator=(const Pyramid&) = default;
  Pyramid(Pyramid&&) = default;
  Pyramid& operator=(Pyramid&&) = default;
  ~Pyramid();

  // Null past the last level.
  std::shared_ptr<Mipmap> GetMipmap(unsigned long long level) const;
  std::shared_ptr<Mipmap> GetBaseMipmap() const { return GetMipmap(0); }
  std::shared_ptr<Surface> GetSurface(unsigned long long level, unsigned long long index) const;
  std::shared_ptr<Surface> GetSurface(unsigned long long level) const { return GetSurface(level, 0); }
  unsigned long long LevelsCurrent() const { return levels_.size(); }
  // Levels of a full chain from level 0 down to 1 x 1 x 1; 0 without a
  // level 0 or when it is empty.
  unsigned long long LevelsComplete() const;
  bool IsComplete() const { return LevelsCurrent() == LevelsComplete(); }

  // Level 0's properties; 0 / false / MipmapType::Surface / the zero
  // descriptor without a level 0 or when it is empty.
  MipmapType Type() const;
  bool IsArray() const;
  unsigned long long Width() const;
  unsigned long long Height() const;
  unsigned long long Depth() const;
  unsigned long long ArrayLength() const;
  PixelFormatDescriptor Format() const;

  ImageOrigin Origin() const { return origin_; }
  void SetOrigin(ImageOrigin origin) { origin_ = origin; }
  std::shared_ptr<SurfaceData> GetPalette() const { return palette_; }
  void SetPalette(std::shared_ptr<SurfaceData> palette) { palette_ = std::move(palette); }

  // In place on every level (shared mipmaps change for every holder); empty
  // levels are passed over and count as success.
  bool FlipHorizontal();
  // Also toggles the origin when every level flipped, so the picture stays the same.
  bool FlipVertical();
  bool FlipDepthical();
  bool Reinterpret(const PixelFormatDescriptor& format);
  bool MakeSizePowerOfTwo(FilterType filter);
  // Fills in missing levels by halving the previous one through the current
  // rescale engine; drops levels beyond a full chain. False (and no change)
  // when a level cannot be made.
  bool MakeComplete(FilterType filter);
  // Drops the first `count` levels; false when none would remain.
  bool Skip(unsigned long long count);

  // Null when a level is empty or its copy fails; the palette is not carried.
  std::shared_ptr<Pyramid> ConvertCopy(const PixelFormatDescriptor& format) const;
  std::shared_ptr<Pyramid> ConvertCopy(Converter* converter) const;
  std::shared_ptr<Pyramid> RotateCopy(int degrees) const;
  // The chain of one cube face (top-down); Null unless level 0 is a cube.
  // Empty levels, and levels that are not cubes, give empty entries.
  std::shared_ptr<Pyramid> Face(CubeFace face) const;
  std::shared_ptr<char> ToImage(ImageFormat format, unsigned long long* size, int flags);

 private:
  Pyramid() = default;

  std::vector<std::shared_ptr<Mipmap>> levels_;
  ImageOrigin origin_ = ImageOrigin::TopDown;
  std::shared_ptr<SurfaceData> palette_;
};

}  // namespace lumo::image
