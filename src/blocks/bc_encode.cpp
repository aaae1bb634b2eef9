#include "blocks/block_kit.h"

namespace lumo::image::blocks::detail {

bool BCEncodes(CompressFormat) { return false; }
bool EncodeBC(CompressFormat, const PixelSource&, std::uint8_t*, Quality) { return false; }

}  // namespace lumo::image::blocks::detail
