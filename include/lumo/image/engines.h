// Processing engines: flip, crop, extrude, rotate and rescale.
//
// The library holds one current engine of each kind in a process-wide slot
// and sends all such pixel work through it (via the SurfaceData operations).
// A caller may put its own engine in place, for instance one running on a GPU.
// The registry never owns an engine: Set...Engine neither deletes the engine
// it replaces nor the one it is given; setting null restores the built-in one.
// Setting an engine must not overlap any other use of that engine slot.
#pragma once

#include "lumo/image/export.h"

namespace lumo::image {

class SurfaceData;

// Resampling filter of RescaleCopy and of mip generation.
enum class FilterType : int {
  Box = 0,
  Bicubic = 1,
  Bilinear = 2,
  BSpline = 3,
  CatmullRom = 4,
  Lanczos3 = 5,
  Point = 6,
};

// Engines read the source through its const accessors and write only into the
// destination, which the caller has made with the right format and size (or,
// for the in-place flips, into the data itself). They return true when they
// did the work.

class LUMO_IMAGE_API CropEngine {
 public:
  CropEngine() = default;
  CropEngine(const CropEngine&) = default;
  CropEngine& operator=(const CropEngine&) = default;
  virtual ~CropEngine();
  virtual bool Crop(const SurfaceData* source, unsigned long long x, unsigned long long y,
                    SurfaceData* destination) = 0;
};

class LUMO_IMAGE_API ExtrudeEngine {
 public:
  ExtrudeEngine() = default;
  ExtrudeEngine(const ExtrudeEngine&) = default;
  ExtrudeEngine& operator=(const ExtrudeEngine&) = default;
  virtual ~ExtrudeEngine();
  // Frames the source with copies of its edge pixels.
  virtual bool Extrude(const SurfaceData* source, unsigned long long left, unsigned long long right,
                       unsigned long long top, unsigned long long bottom, SurfaceData* destination) = 0;
};

class LUMO_IMAGE_API FlipEngine {
 public:
  FlipEngine() = default;
  FlipEngine(const FlipEngine&) = default;
  FlipEngine& operator=(const FlipEngine&) = default;
  virtual ~FlipEngine();
  virtual bool FlipVertical(const SurfaceData* source, SurfaceData* destination) = 0;
  virtual bool FlipVertical(SurfaceData* data) = 0;  // in place
  virtual bool FlipHorizontal(const SurfaceData* source, SurfaceData* destination) = 0;
  virtual bool FlipHorizontal(SurfaceData* data) = 0;  // in place
};

class LUMO_IMAGE_API RotateEngine {
 public:
  RotateEngine() = default;
  RotateEngine(const RotateEngine&) = default;
  RotateEngine& operator=(const RotateEngine&) = default;
  virtual ~RotateEngine();
  // Quarter turns; with row 0 at the top, 90 turns clockwise.
  virtual bool Rotate(const SurfaceData* source, int degrees, SurfaceData* destination) = 0;
};

class LUMO_IMAGE_API RescaleEngine {
 public:
  RescaleEngine() = default;
  RescaleEngine(const RescaleEngine&) = default;
  RescaleEngine& operator=(const RescaleEngine&) = default;
  virtual ~RescaleEngine();
  virtual bool Rescale(const SurfaceData* source, SurfaceData* destination, FilterType filter) = 0;
};

// The current engines: the one set, or the built-in one when none is set.
LUMO_IMAGE_API CropEngine* GetCropEngine();
LUMO_IMAGE_API ExtrudeEngine* GetExtrudeEngine();
LUMO_IMAGE_API FlipEngine* GetFlipEngine();
LUMO_IMAGE_API RescaleEngine* GetRescaleEngine();
LUMO_IMAGE_API RotateEngine* GetRotateEngine();

LUMO_IMAGE_API void SetCropEngine(CropEngine* engine);
LUMO_IMAGE_API void SetExtrudeEngine(ExtrudeEngine* engine);
LUMO_IMAGE_API void SetFlipEngine(FlipEngine* engine);
LUMO_IMAGE_API void SetRescaleEngine(RescaleEngine* engine);
LUMO_IMAGE_API void SetRotateEngine(RotateEngine* engine);

// The built-in engines: one object each, created on first use, never deleted by anyone.
LUMO_IMAGE_API CropEngine* DefaultCropEngine();
LUMO_IMAGE_API ExtrudeEngine* DefaultExtrudeEngine();
LUMO_IMAGE_API FlipEngine* DefaultFlipEngine();
LUMO_IMAGE_API RescaleEngine* DefaultRescaleEngine();
LUMO_IMAGE_API RotateEngine* DefaultRotateEngine();

}  // namespace lumo::image
