// The BMP file plugin: Windows and OS/2 bitmaps: palette, 16-, 24- and 32-bit, RLE8 and RLE4.
#pragma once

#include "lumo/image/image_factory.h"

namespace lumo::image::detail {

// The plugin's single instance (a function-local static, never deleted).
ImagePlugin* BMPPlugin();

}  // namespace lumo::image::detail
