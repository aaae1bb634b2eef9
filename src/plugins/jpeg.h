// The JPEG file plugin: baseline and progressive JFIF/JPEG through the
// system's libjpeg, decoded to 8-bit RGB and written from 8-bit and 5-bit
// RGB layouts.
#pragma once

#include "lumo/image/image_factory.h"

namespace lumo::image::detail {

// The plugin's single instance (a function-local static, never deleted).
ImagePlugin* JPGPlugin();

}  // namespace lumo::image::detail
