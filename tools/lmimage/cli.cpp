#include "cli.h"

#include <cstdio>
#include <ostream>

#include <algorithm>
#include <ostream>

namespace lumo::image::cli {
namespace {

bool IsHelp(const std::string& arg) { return arg == "--help" || arg == "-h"; }

const Option* FindOption(const Verb& verb, const std::string& name) {
  for (const Option& option : verb.options) {
    if (name == option.name) return &option;
  }
  return nullptr;
}

const Option* FindShortOption(const Verb& verb, char name) {
  for (const Option& option : verb.options) {
    if (option.short_name != 0 && option.short_name == name) return &option;
  }
  return nullptr;
}

}  // namespace

const Verb* FindVerb(const std::string& name) {
  for (const Verb& verb : Verbs()) {
    if (name == verb.name) return &verb;
  }
  return nullptr;
}

void PrintVerbUsage(const Verb& verb, std::ostream& out) {
  const std::string synopsis = verb.synopsis;
  const char* lead = "usage: ";
  size_t begin = 0;
  while (begin <= synopsis.size()) {
    size_t end = synopsis.find('\n', begin);
    if (end == std::string::npos) end = synopsis.size();
    out << lead << "lmimage " << verb.name;
    if (end > begin) out << ' ' << synopsis.substr(begin, end - begin);
    out << '\n';
    lead = "       ";
    begin = end + 1;
  }
  // The summary is a lower-case fragment for the verb list; here it stands as a sentence.
  std::string summary = verb.summary;
  if (!summary.empty() && summary[0] >= 'a' && summary[0] <= 'z')
    summary[0] = static_cast<char>(summary[0] - 'a' + 'A');
  out << '\n' << summary << ".\n";
  if (verb.description[0] != '\0') out << '\n' << verb.description << '\n';

  // Option column wide enough for the longest "--name VALUE".
  std::vector<std::pair<std::string, std::string>> rows;
  for (const Option& option : verb.options) {
    std::string left = option.short_name != 0 ? std::string("-") + option.short_name + ", --" + option.name
                                               : std::string("--") + option.name;
    if (option.value_name != nullptr) left += std::string(" ") + option.value_name;
    rows.emplace_back(left, option.help);
  }
  rows.emplace_back("-h, --help", "print this help");
  size_t width = 0;
  for (const auto& row : rows) width = std::max(width, row.first.size());
  out << "\noptions:\n";
  for (const auto& row : rows) {
    out << "  " << row.first << std::string(width - row.first.size() + 2, ' ') << row.second << '\n';
  }
}

void PrintToolUsage(std::ostream& out) {
  out << "usage: lmimage VERB [options] ARGS\n"
         "       lmimage help VERB\n"
         "\n"
         "Inspect and convert textures and images.\n"
         "\n"
         "verbs:\n";
  size_t width = 0;
  for (const Verb& verb : Verbs()) width = std::max(width, std::string(verb.name).size());
  for (const Verb& verb : Verbs()) {
    const std::string name = verb.name;
    out << "  " << name << std::string(width - name.size() + 2, ' ') << verb.summary << '\n';
  }
  out << "\n'lmimage VERB --help' describes a verb's arguments and options.\n"
         "Exit status: 0 success, 1 the work failed, 2 usage error.\n";
}

Invocation ParseArguments(const Verb& verb, const std::vector<std::string>& args, bool* help) {
  Invocation invocation{&verb, {}, {}, nullptr};
  *help = false;
  // Help wins over any other mistake on the line, so "--help" always works.
  for (const std::string& arg : args) {
    if (arg == "--") break;
    if (IsHelp(arg)) {
      *help = true;
      return invocation;
    }
  }

  bool options_done = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (options_done || arg.size() < 2 || arg[0] != '-') {
      invocation.operands.push_back(arg);
      continue;
    }
    if (arg == "--") {
      options_done = true;
      continue;
    }
    if (arg[1] != '-') {
      const Option* option = FindShortOption(verb, arg[1]);
      if (option == nullptr) throw UsageError(arg, "unknown option");
      if (option->value_name == nullptr) {
        if (arg.size() != 2) throw UsageError(arg, "unknown option");
        invocation.options[option->name] = "";
      } else if (arg.size() > 2) {
        invocation.options[option->name] = arg.substr(2);
      } else if (i + 1 < args.size()) {
        invocation.options[option->name] = args[++i];
      } else {
        throw UsageError(arg, std::string("option needs a value (") + option->value_name + ")");
      }
      continue;
    }

    const size_t equals = arg.find('=');
    const std::string name = arg.substr(2, equals == std::string::npos ? std::string::npos : equals - 2);
    const Option* option = FindOption(verb, name);
    if (option == nullptr) throw UsageError(arg, "unknown option");
    if (option->value_name == nullptr) {
      if (equals != std::string::npos) throw UsageError(arg, "option takes no value");
      invocation.options[name] = "";
    } else if (equals != std::string::npos) {
      invocation.options[name] = arg.substr(equals + 1);
    } else if (i + 1 < args.size()) {
      invocation.options[name] = args[++i];
    } else {
      throw UsageError(arg, std::string("option needs a value (") + option->value_name + ")");
    }
  }
  return invocation;
}

namespace {

// Keeps an error on one line whatever bytes the user passed.
std::string Printable(const std::string& text) {
  std::string result;
  for (const char c : text) {
    const unsigned char byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
      result += escaped;
    } else {
      result += c;
    }
  }
  return result;
}

}  // namespace

void PrintError(std::ostream& err, const std::string& verb, const std::optional<std::string>& subject,
                const std::string& reason) {
  err << "lmimage: ";
  if (!verb.empty()) err << verb << ": ";
  if (subject) err << '\'' << Printable(*subject) << "': ";
  err << Printable(reason) << '\n';
}

}  // namespace lumo::image::cli
