// The GIF file plugin: GIF pictures: the first image, decoded and written with the library's own LZW coder.
#pragma once

#include "lumo/image/image_factory.h"

namespace lumo::image::detail {

// The plugin's single instance (a function-local static, never deleted).
ImagePlugin* GIFPlugin();

}  // namespace lumo::image::detail
