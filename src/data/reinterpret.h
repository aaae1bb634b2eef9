// The one rule by which surfaces and volumes accept a new format label.
#pragma once

#include "lumo/image/formats.h"

namespace lumo::image::detail {

// True when both formats have the same, non-zero bits per pixel (compared as
// fractions, so block formats that do not divide into whole bits compare exactly).
bool SameBitsPerPixel(const PixelFormatDescriptor& a, const PixelFormatDescriptor& b);

}  // namespace lumo::image::detail
