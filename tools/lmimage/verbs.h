// Verb table of the lmimage tool. To add a verb: write verb_NAME.cpp with a
// function returning its Verb, declare it here, list it in Verbs() (verbs.cpp)
// and add the file to tools/CMakeLists.txt.
#pragma once

#include "cli.h"

namespace lumo::image::cli {

Verb FormatVerb();
Verb ConvertPathVerb();
Verb InfoVerb();
Verb ConvertVerb();
Verb NinjaVerb();
Verb PreviewVerb();
Verb DiffVerb();

}  // namespace lumo::image::cli
