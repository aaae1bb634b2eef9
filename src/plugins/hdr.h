// The HDR file plugin: Radiance RGBE pictures, decoded to half floats and written flat or run-length encoded.
#pragma once

#include "lumo/image/image_factory.h"

namespace lumo::image::detail {

// The plugin's single instance (a function-local static, never deleted).
ImagePlugin* HDRPlugin();

}  // namespace lumo::image::detail
