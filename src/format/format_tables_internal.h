// Format translation used only inside the library.
#pragma once

#include "lumo/image/formats.h"

namespace lumo::image::detail {

// The Direct3D 9 number a DDS writer stores in the FourCC field for a
// floating-point or depth format; 0 when the format has none. Reading goes
// through FromDX9Format.
unsigned int ToDDSFourCCFormat(const PixelFormatDescriptor& format);

}  // namespace lumo::image::detail
