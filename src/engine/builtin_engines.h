// The built-in flip, crop, extrude and rotate engines. They move whole pixels
// with byte copies and never look at pixel values, so they serve every
// uncompressed format whose pixels each fill a whole number of bytes (the
// vertical flips, which move whole rows, also serve sub-byte formats).
// Every refusal happens before the first write and leaves the destination as
// it was; only the extrude engine logs.
#pragma once

#include "lumo/image/engines.h"

namespace lumo::image {

class BuiltInFlipEngine : public FlipEngine {
 public:
  bool FlipVertical(const SurfaceData* source, SurfaceData* destination) override;
  bool FlipVertical(SurfaceData* data) override;
  bool FlipHorizontal(const SurfaceData* source, SurfaceData* destination) override;
  bool FlipHorizontal(SurfaceData* data) override;
};

class BuiltInCropEngine : public CropEngine {
 public:
  bool Crop(const SurfaceData* source, unsigned long long x, unsigned long long y, SurfaceData* destination) override;
};

class BuiltInExtrudeEngine : public ExtrudeEngine {
 public:
  bool Extrude(const SurfaceData* source, unsigned long long left, unsigned long long right, unsigned long long top,
               unsigned long long bottom, SurfaceData* destination) override;
};

class BuiltInRotateEngine : public RotateEngine {
 public:
  // Quarter turns only; with row 0 at the top, 90 turns clockwise. Negative
  // angles turn the other way (-90 is 270).
  bool Rotate(const SurfaceData* source, int degrees, SurfaceData* destination) override;
};

}  // namespace lumo::image
