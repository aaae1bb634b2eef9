// The PKM and PKMA file plugins (ETC1, ETC2 and EAC blocks behind a 16-byte
// header); they differ only in their magic, format number and name.
#pragma once

#include "lumo/image/image_factory.h"

namespace lumo::image::detail {

// Each plugin's single instance (a function-local static, never deleted).
ImagePlugin* PKMPlugin();
ImagePlugin* PKMAPlugin();

}  // namespace lumo::image::detail
