#include "blocks/block_kit.h"

namespace lumo::image::blocks::detail {

bool BCDecodes(CompressFormat) { return false; }
bool DecodeBC(const BlockSource&, const PixelTarget&) { return false; }

}  // namespace lumo::image::blocks::detail
