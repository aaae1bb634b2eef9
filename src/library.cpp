#include "lumo/image/export.h"

namespace lumo::image {

std::uint32_t LogChannel = 0;

}  // namespace lumo::image
