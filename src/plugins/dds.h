// The DDS file plugin (reading and writing DirectDraw Surface files).
#pragma once

#include "lumo/image/image_factory.h"

namespace lumo::image::detail {

// The plugin's single instance (a function-local static, never deleted).
ImagePlugin* DDSPlugin();

}  // namespace lumo::image::detail
