// The SurfaceData operations that go through the current processing engines.
// Each checks its arguments, fetches the engine, creates the destination
// (rows padded to four bytes) and calls the engine once.
#include "lumo/image/engines.h"
#include "format/checked_size.h"
#include "lumo/image/surface_data.h"
#include "lumo/log/log.h"

namespace lumo::image {
namespace {

std::shared_ptr<SurfaceDataBitmap> Destination(unsigned long long width, unsigned long long height,
                                               const PixelFormatDescriptor& format) {
  return SurfaceDataBitmap::Create(width, height, format, 2);
}

// Smallest power of two not below v; 0 and 1 both give 1. 0 when it does not fit.
unsigned long long NextPowerOfTwo(unsigned long long v) {
  unsigned long long p = 1;
  while (p < v) {
    if (p > (~0ULL >> 1)) return 0;
    p <<= 1;
  }
  return p;
}

}  // namespace

bool SurfaceData::FlipHorizontal() { return GetFlipEngine()->FlipHorizontal(this); }

bool SurfaceData::FlipVertical() { return GetFlipEngine()->FlipVertical(this); }

std::shared_ptr<SurfaceData> SurfaceData::CropCopy(unsigned long long x, unsigned long long y, unsigned long long width,
                                                   unsigned long long height) const {
  // Written so that no sum can wrap around.
  if (x >= Width() || y >= Height() || width > Width() - x || height > Height() - y) return Null;
  CropEngine* engine = GetCropEngine();
  auto destination = Destination(width, height, Format());
  if (!destination || !engine->Crop(this, x, y, destination.get())) return Null;
  return destination;
}

std::shared_ptr<SurfaceData> SurfaceData::ExtrudeCopy(unsigned long long left, unsigned long long right,
                                                      unsigned long long top, unsigned long long bottom) const {
  if (IsCompressed()) {
    lumo::log::LogWarning(LogChannel, "[ExtrudeCopy] Not available for compressed format.");
    return Null;
  }
  unsigned long long width = 0, height = 0;
  if (checked::AddOverflows(left, Width(), &width) || checked::AddOverflows(width, right, &width) ||
      checked::AddOverflows(top, Height(), &height) || checked::AddOverflows(height, bottom, &height)) {
    return Null;
  }
  ExtrudeEngine* engine = GetExtrudeEngine();
  auto destination = Destination(width, height, Format());
  if (!destination || !engine->Extrude(this, left, right, top, bottom, destination.get())) return Null;
  return destination;
}

std::shared_ptr<SurfaceData> SurfaceData::RotateCopy(int degrees) const {
  const int r = degrees % 360;  // keeps the sign of degrees
  if (r % 90 != 0) return Null;
  const bool quarter = r % 180 != 0;
  RotateEngine* engine = GetRotateEngine();
  auto destination = quarter ? Destination(Height(), Width(), Format()) : Destination(Width(), Height(), Format());
  if (!destination || !engine->Rotate(this, degrees, destination.get())) return Null;
  return destination;
}

std::shared_ptr<SurfaceData> SurfaceData::RescaleCopy(unsigned long long width, unsigned long long height,
                                                      FilterType filter) const {
  RescaleEngine* engine = GetRescaleEngine();
  auto destination = Destination(width, height, Format());
  if (!destination || !engine->Rescale(this, destination.get(), filter)) return Null;
  return destination;
}

std::shared_ptr<SurfaceData> SurfaceData::MakeSizePowerOfTwoCopy(FilterType filter) const {
  const unsigned long long width = NextPowerOfTwo(Width());
  const unsigned long long height = NextPowerOfTwo(Height());
  if (width == 0 || height == 0) return Null;
  if (width == Width() && height == Height()) return Null;
  return RescaleCopy(width, height, filter);
}

}  // namespace lumo::image
