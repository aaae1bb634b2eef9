// Entry point of the lmimage tool: picks the verb, parses its options and
// turns every error into one line on stderr plus an exit status.
#include <cstdio>
#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "cli.h"
#include "lumo/image/blocks.h"
#include "lumo/image/converters.h"

namespace lumo::image::cli {
namespace {

int RunVerb(const Verb& verb, const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  try {
    bool help = false;
    Invocation invocation = ParseArguments(verb, args, &help);
    if (help) {
      PrintVerbUsage(verb, out);
      return kExitOk;
    }
    invocation.out = &out;
    const int status = verb.run(invocation);
    // A full disk or closed pipe must not pass for success.
    out.flush();
    if (!out) {
      PrintError(err, verb.name, std::nullopt, "cannot write to standard output");
      return kExitFailed;
    }
    return status;
  } catch (const Error& error) {
    out.flush();
    PrintError(err, verb.name, error.subject(), error.what());
    return error.status();
  } catch (const std::exception& error) {
    out.flush();
    PrintError(err, verb.name, std::nullopt, error.what());
    return kExitFailed;
  }
}

int Main(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  if (args.empty()) {
    PrintToolUsage(err);
    return kExitUsage;
  }
  const std::string& first = args[0];
  if (first == "--help" || first == "-h" || (first == "help" && args.size() == 1)) {
    PrintToolUsage(out);
    return kExitOk;
  }
  if (first == "--version") {
    out << "lmimage " << LMIMAGE_VERSION << '\n';
    return kExitOk;
  }
  if (first == "help") {
    if (args.size() > 2) {
      PrintError(err, "help", args[2], "unexpected argument");
      return kExitUsage;
    }
    const Verb* verb = FindVerb(args[1]);
    if (verb == nullptr) {
      PrintError(err, "help", args[1], "unknown verb");
      return kExitUsage;
    }
    PrintVerbUsage(*verb, out);
    return kExitOk;
  }
  const Verb* verb = FindVerb(first);
  if (verb == nullptr) {
    PrintError(err, "", first, first[0] == '-' ? "unknown option" : "unknown verb (see 'lmimage --help')");
    return kExitUsage;
  }
  return RunVerb(*verb, std::vector<std::string>(args.begin() + 1, args.end()), out, err);
}

}  // namespace
}  // namespace lumo::image::cli

int main(int argc, char** argv) {
  // Block formats then convert like any other (decoding only; encoding is explicit).
  lumo::image::blocks::RegisterDecoders(*lumo::image::ConverterManager::Instance());
  const std::vector<std::string> args(argv + 1, argv + argc);
  return lumo::image::cli::Main(args, std::cout, std::cerr);
}
