#include "blocks/block_kit.h"

namespace lumo::image::blocks::detail {

bool PVRTCDecodes(CompressFormat) { return false; }
bool DecodePVRTC(const BlockSource&, const PixelTarget&) { return false; }

}  // namespace lumo::image::blocks::detail
