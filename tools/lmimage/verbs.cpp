#include "verbs.h"

namespace lumo::image::cli {

const std::vector<Verb>& Verbs() {
  // Built on first use: the entries live in other translation units.
  static const std::vector<Verb> verbs = {
      InfoVerb(),
      ConvertVerb(),
      FormatVerb(),
      ConvertPathVerb(),
      NinjaVerb(),
      PreviewVerb(),
      DiffVerb(),
  };
  return verbs;
}

}  // namespace lumo::image::cli
