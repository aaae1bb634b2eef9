// The PNG file plugin: reading and writing PNG pictures in memory through libpng.
#pragma once

#include "lumo/image/image_factory.h"

namespace lumo::image::detail {

// The plugin's single instance (a function-local static, never deleted).
ImagePlugin* PNGPlugin();

}  // namespace lumo::image::detail
