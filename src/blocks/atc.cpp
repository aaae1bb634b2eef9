#include "blocks/block_kit.h"

namespace lumo::image::blocks::detail {

bool ATCDecodes(CompressFormat) { return false; }
bool DecodeATC(const BlockSource&, const PixelTarget&) { return false; }

}  // namespace lumo::image::blocks::detail
