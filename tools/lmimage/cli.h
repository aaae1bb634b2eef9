// Shared plumbing of the lmimage command-line tool: the verb table entry, the
// parsed invocation handed to a verb, and the error type verbs throw.
//
// Conventions every verb follows:
//   lmimage VERB [options] ARGS
//   results on stdout; errors as one line on stderr ("lmimage: VERB: 'ARG': reason");
//   exit status 0 on success, 1 when the work failed, 2 for a usage error.
#pragma once

#include <iosfwd>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace lumo::image::cli {

enum ExitStatus : int {
  kExitOk = 0,
  kExitFailed = 1,
  kExitUsage = 2,
};

// Thrown by verbs (and by the argument parser) to end the run with one line
// on stderr. The subject is the argument or file the message is about and is
// printed quoted; an empty argument still shows as ''.
class Error : public std::runtime_error {
 public:
  Error(int status, std::optional<std::string> subject, const std::string& reason)
      : std::runtime_error(reason), status_(status), subject_(std::move(subject)) {}

  int status() const { return status_; }
  const std::optional<std::string>& subject() const { return subject_; }

 private:
  int status_;
  std::optional<std::string> subject_;
};

inline Error UsageError(const std::string& subject, const std::string& reason) {
  return Error(kExitUsage, subject, reason);
}
inline Error UsageError(const std::string& reason) { return Error(kExitUsage, std::nullopt, reason); }
inline Error Failure(const std::string& subject, const std::string& reason) {
  return Error(kExitFailed, subject, reason);
}
inline Error Failure(const std::string& reason) { return Error(kExitFailed, std::nullopt, reason); }

struct Option {
  const char* name;        // without the leading "--"
  const char* value_name;  // null for a flag; else "--name VALUE" or "--name=VALUE"
  const char* help;
  char short_name = 0;     // also spelled "-x" / "-x VALUE" / "-xVALUE"; 0 for none
};

struct Invocation;

struct Verb {
  const char* name;
  const char* summary;      // one line for "lmimage --help"
  const char* synopsis;     // argument part of the usage line(s), one per line
  const char* description;  // free text printed after the usage lines; may be empty
  std::vector<Option> options;
  int (*run)(const Invocation&);
};

// A verb's command line after option parsing. --help never reaches a verb.
struct Invocation {
  const Verb* verb;
  std::map<std::string, std::string> options;  // flags map to ""
  std::vector<std::string> operands;
  std::ostream* out;

  bool Has(const std::string& option) const { return options.count(option) != 0; }
  const std::string& Value(const std::string& option) const { return options.at(option); }
};

// All verbs, in the order "lmimage --help" lists them.
const std::vector<Verb>& Verbs();
const Verb* FindVerb(const std::string& name);

void PrintVerbUsage(const Verb& verb, std::ostream& out);
void PrintToolUsage(std::ostream& out);

// Splits args into options and operands by the verb's option list. Sets
// *help when --help or -h appears. "--" ends the options; a lone "-" is an
// operand. Throws a usage Error for unknown options and missing values.
Invocation ParseArguments(const Verb& verb, const std::vector<std::string>& args, bool* help);

// One error line on err: "lmimage: VERB: 'SUBJECT': REASON", control
// characters escaped so that it stays one line.
void PrintError(std::ostream& err, const std::string& verb, const std::optional<std::string>& subject,
                const std::string& reason);

}  // namespace lumo::image::cli
