#include "blocks/block_kit.h"

namespace lumo::image::blocks::detail {

bool ASTCDecodes(CompressFormat) { return false; }
bool DecodeASTC(const BlockSource&, const PixelTarget&) { return false; }
bool ASTCEncodes(CompressFormat) { return false; }
bool EncodeASTC(CompressFormat, bool, const PixelSource&, std::uint8_t*, Quality) { return false; }

}  // namespace lumo::image::blocks::detail
