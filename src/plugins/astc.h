// The ASTC plugin (reading and writing .astc files: a 16-byte header and the
// blocks of one ASTC-compressed image, two- or three-dimensional).
#pragma once

#include "lumo/image/image_factory.h"

namespace lumo::image::detail {

// The plugin's single instance (a function-local static, never deleted).
ImagePlugin* ASTCPlugin();

}  // namespace lumo::image::detail
