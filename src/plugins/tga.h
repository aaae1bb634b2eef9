// The TGA file plugin: Truevision TGA pictures: true-colour, grey and colour-mapped, raw and run-length encoded.
#pragma once

#include "lumo/image/image_factory.h"

namespace lumo::image::detail {

// The plugin's single instance (a function-local static, never deleted).
ImagePlugin* TGAPlugin();

}  // namespace lumo::image::detail
