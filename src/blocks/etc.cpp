#include "blocks/block_kit.h"

namespace lumo::image::blocks::detail {

bool ETCDecodes(CompressFormat) { return false; }
bool DecodeETC(const BlockSource&, const PixelTarget&) { return false; }

}  // namespace lumo::image::blocks::detail
