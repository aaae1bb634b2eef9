// lmimage convert-path: show the chain of converters a conversion goes through.
#include <memory>
#include <ostream>
#include <string>

#include "format_args.h"
#include "lumo/image/converters.h"
#include "verbs.h"

namespace lumo::image::cli {
namespace {

int Run(const Invocation& invocation) {
  if (invocation.operands.size() != 2) throw UsageError("expects exactly two formats: FROM TO");
  const Resolved from = ResolveFormat(invocation.operands[0]);
  const Resolved to = ResolveFormat(invocation.operands[1]);

  const std::shared_ptr<Converter> converter =
      ConverterManager::Instance()->GetConverter(from.descriptor, to.descriptor);
  if (!converter) throw Failure(from.name + " -> " + to.name, "no converter or chain of converters");

  std::ostream& out = *invocation.out;
  const auto* sequence = dynamic_cast<const ConverterSequence*>(converter.get());
  if (sequence == nullptr) {
    out << from.name << " -> " << to.name << ": 1 step (direct converter)\n";
    out << "  1  " << from.name << " -> " << to.name << '\n';
    return kExitOk;
  }
  const auto& steps = sequence->Steps();
  out << from.name << " -> " << to.name << ": " << steps.size() << " steps (each makes a new surface)\n";
  std::string at = from.name;
  for (size_t i = 0; i < steps.size(); ++i) {
    const std::string next = NameOf(steps[i].produces);
    out << "  " << (i + 1) << "  " << at << " -> " << next << '\n';
    at = next;
  }
  return kExitOk;
}

}  // namespace

Verb ConvertPathVerb() {
  return Verb{
      "convert-path",
      "show the converters a pixel conversion goes through",
      "FROM TO",
      "FROM and TO are format names or 0x hex descriptor values. Prints the direct\n"
      "converter, or the shortest chain of converters the library would run (each\n"
      "step makes a new surface, so long chains are slow). Exits with status 1 when\n"
      "no chain exists.",
      {},
      &Run,
  };
}

}  // namespace lumo::image::cli
