// lmimage ninja: write a Ninja build file that converts a folder tree, one
// edge per image, so that Ninja (or any build system reading its edges)
// schedules the work, in parallel and incrementally, instead of this tool.
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

#include "file_io.h"
#include "lumo/image/image_factory.h"
#include "verbs.h"

namespace lumo::image::cli {
namespace {

namespace fs = std::filesystem;

// Convert options that make no sense on one edge: the tree, the jobs and the
// output names are this verb's business, and --force is always given so that
// Ninja alone decides what is out of date.
const std::set<std::string>& PerTreeOptions() {
  static const std::set<std::string> names = {"force",      "jobs",      "j",         "output",     "o",
                                              "output-dir", "recursive", "r",         "to",         "quiet",
                                              "verbose",    "progress",  "file-list", "no-progress"};
  return names;
}

const Verb& Convert() {
  static const Verb verb = ConvertVerb();
  return verb;
}

bool ConvertHas(const std::string& name) {
  for (const Option& option : Convert().options) {
    if (name == option.name) return true;
  }
  return false;
}

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// The registered container an extension (without the dot) names, as convert
// reads it; UNKNOWN for none.
ImageFormat ContainerOf(std::string extension) {
  extension = Lower(extension);
  if (extension == "jpeg") extension = "jpg";
  if (extension.empty()) return ImageFormat::UNKNOWN;
  return ImageFactory::StringToFormat(extension.c_str());
}

std::string ShellQuote(const std::string& word) {
  const bool plain = !word.empty() && std::all_of(word.begin(), word.end(), [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || std::string("_./=:,+-@%").find(c) != std::string::npos;
  });
  if (plain) return word;
  std::string quoted = "'";
  for (const char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

// In a variable's value only '$' is special.
std::string NinjaValue(const std::string& text) {
  std::string escaped;
  for (const char c : text) escaped += c == '$' ? std::string("$$") : std::string(1, c);
  return escaped;
}

// In a build line, spaces and colons end a path as well.
std::string NinjaPath(const std::string& path) {
  std::string escaped;
  for (const char c : path) {
    if (c == '$' || c == ' ' || c == ':') escaped += '$';
    escaped += c;
  }
  return escaped;
}

// Ninja files have no escape for line breaks, nor for '|' in a path.
void CheckNinjaPath(const std::string& path) {
  if (path.find_first_of("\n\r|") != std::string::npos) {
    throw Failure(path, "a line break or '|' in a path cannot be written to a Ninja file");
  }
}

std::string Absolute(const std::string& path) {
  std::error_code error;
  fs::path absolute = fs::absolute(path, error);
  if (error) throw Failure(path, "cannot resolve: " + error.message());
  absolute = absolute.lexically_normal();
  std::string text = absolute.string();
  if (text.size() > 1 && text.back() == '/') text.pop_back();
  return text;
}

// Whether `inner` is `outer` or lies below it, compared after resolving links.
bool Within(const fs::path& inner, const fs::path& outer) {
  std::error_code error;
  const fs::path a = fs::weakly_canonical(inner, error);
  if (error) return false;
  const fs::path b = fs::weakly_canonical(outer, error);
  if (error) return false;
  auto i = a.begin();
  for (auto j = b.begin(); j != b.end(); ++j, ++i) {
    if (j->empty()) continue;  // the trailing "" of "dir/"
    if (i == a.end() || *i != *j) return false;
  }
  return true;
}

// Image files below `root` by registered extension, as paths relative to it,
// sorted; `skip` (the output folder, when it lies inside) is not entered.
std::vector<std::string> ImagesBelow(const std::string& root, const std::string& skip) {
  std::vector<std::string> found;
  std::error_code error;
  fs::recursive_directory_iterator it(root, error), end;
  if (error) throw Failure(root, "cannot read folder: " + error.message());
  for (; it != end; it.increment(error)) {
    if (error) break;
    const fs::path& path = it->path();
    if (it->is_directory(error)) {
      if (!skip.empty() && Within(path, skip)) it.disable_recursion_pending();
      continue;
    }
    if (!it->is_regular_file(error)) continue;
    const std::string extension = path.extension().string();
    if (extension.size() < 2 || ContainerOf(extension.substr(1)) == ImageFormat::UNKNOWN) continue;
    found.push_back(path.lexically_relative(root).string());
  }
  if (error) throw Failure(it == end ? root : it->path().string(), "cannot read folder: " + error.message());
  std::sort(found.begin(), found.end());
  return found;
}

// Runs convert's own checks on the forwarded options, so that they are
// accepted or refused exactly as convert does, by converting an empty file
// (which fails after every usage check) in a scratch folder.
void CheckWithConvert(const std::vector<std::string>& forwarded, const std::string& input_extension,
                      const std::string& to) {
  std::string scratch = (fs::temp_directory_path() / "lmimage-ninja-XXXXXX").string();
  if (mkdtemp(scratch.data()) == nullptr) throw Failure(scratch, "cannot create a scratch folder");
  // Convert's report and error lines about the probe are not the user's business.
  struct Cleanup {
    std::string folder;
    std::streambuf* saved_err;
    ~Cleanup() {
      std::cerr.rdbuf(saved_err);
      std::error_code ignored;
      fs::remove_all(folder, ignored);
    }
  };
  std::ostringstream out, err;
  const Cleanup cleanup{scratch, std::cerr.rdbuf(err.rdbuf())};

  const std::string input = scratch + "/probe." + input_extension;
  { std::ofstream(input.c_str()); }  // empty: never decodes
  std::vector<std::string> args = forwarded;
  args.push_back(input);
  args.push_back(scratch + "/probe-out." + to);
  int status = kExitOk;
  try {
    bool help = false;
    Invocation invocation = ParseArguments(Convert(), args, &help);
    invocation.out = &out;
    status = Convert().run(invocation);
  } catch (const Error& error) {
    if (error.status() == kExitUsage) throw;
  }
  if (status == kExitUsage) throw UsageError("convert refuses these options: " + err.str());
}

int Run(const Invocation& invocation) {
  if (invocation.operands.size() != 2) throw UsageError("expects two folders: SRC_DIR OUT_DIR");
  if (!invocation.Has("to")) throw UsageError("--to EXT is required (the outputs' container, e.g. dds)");
  std::string to = invocation.Value("to");
  if (!to.empty() && to[0] == '.') to.erase(0, 1);
  if (ContainerOf(to) == ImageFormat::UNKNOWN)
    throw UsageError(invocation.Value("to"), "no image format for this extension");

  // The convert options given, in convert's order, as single words.
  std::vector<std::string> forwarded;
  for (const Option& option : Convert().options) {
    if (PerTreeOptions().count(option.name) || !invocation.Has(option.name)) continue;
    std::string word = std::string("--") + option.name;
    if (option.value_name != nullptr) word += "=" + invocation.Value(option.name);
    if (word.find_first_of("\n\r") != std::string::npos)
      throw UsageError(word, "a Ninja file cannot hold a line break");
    forwarded.push_back(word);
  }

  const std::string source = Absolute(invocation.operands[0]);
  const std::string target = Absolute(invocation.operands[1]);
  std::error_code error;
  if (!fs::is_directory(source, error)) throw Failure(invocation.operands[0], "not a folder");
  const bool to_stdout = invocation.Has("output") && invocation.Value("output") == "-";
  const std::string build_file =
      invocation.Has("output") ? invocation.Value("output") : (fs::path(target) / "build.ninja").string();

  const std::vector<std::string> inputs = ImagesBelow(source, target);
  CheckWithConvert(forwarded, inputs.empty() ? "png" : fs::path(inputs[0]).extension().string().substr(1), to);

  char self[4096];
  const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
  if (length <= 0) throw Failure("/proc/self/exe", "cannot find this program's path");
  std::string command_head = ShellQuote(std::string(self, static_cast<size_t>(length))) + " convert";
  if (ConvertHas("force")) command_head += " --force";
  if (ConvertHas("quiet")) command_head += " --quiet";
  std::string command_tail;
  for (const std::string& word : forwarded) command_tail += " " + ShellQuote(word);

  std::string text =
      "# Written by 'lmimage ninja': one edge per image below the source folder.\n"
      "ninja_required_version = 1.3\n"
      "\n"
      "rule convert\n"
      "  command = $cmd\n"
      "  description = lmimage convert $name\n";
  std::set<std::string> input_set;
  for (const std::string& relative : inputs) input_set.insert(source + "/" + relative);
  std::map<std::string, std::string> producer;  // output -> its input
  for (const std::string& relative : inputs) {
    const std::string input = source + "/" + relative;
    const std::string output = (fs::path(target) / fs::path(relative).replace_extension("." + to)).string();
    CheckNinjaPath(input);
    CheckNinjaPath(output);
    if (input_set.count(output)) throw Failure(input, "its output '" + output + "' would overwrite an input");
    const auto [it, fresh] = producer.emplace(output, input);
    if (!fresh) throw Failure(input, "has the same output as '" + it->second + "': " + output);
    text += "\nbuild " + NinjaPath(output) + ": convert " + NinjaPath(input) + "\n";
    text += "  cmd = " + NinjaValue(command_head + " " + ShellQuote(input) + " " + ShellQuote(output) + command_tail) +
            "\n";
    text += "  name = " + NinjaValue(relative) + "\n";
  }

  if (to_stdout) {
    *invocation.out << text;
    return kExitOk;
  }
  if (!invocation.Has("output")) {
    fs::create_directories(target, error);
    if (error) throw Failure(invocation.operands[1], "cannot create folder: " + error.message());
  }
  WriteFileAtomically(build_file, text.data(), text.size());
  *invocation.out << "wrote " << build_file << ": " << inputs.size() << (inputs.size() == 1 ? " edge" : " edges")
                  << " to " << to << '\n';
  return kExitOk;
}

// This verb's own options, then convert's (those that apply to one file).
std::vector<Option> Options() {
  std::vector<Option> options = {
      {"to", "EXT", "container of the outputs by extension (dds, ktx, png, ...); required"},
      {"output", "FILE", "build file to write (default OUT_DIR/build.ninja; - for stdout)"},
  };
  for (const Option& option : ConvertVerb().options) {
    if (!PerTreeOptions().count(option.name)) options.push_back(option);
  }
  return options;
}

}  // namespace

Verb NinjaVerb() {
  return Verb{
      "ninja",
      "write a Ninja build file that converts a folder tree",
      "SRC_DIR OUT_DIR --to EXT [--output FILE] [convert options]",
      "Finds every image below SRC_DIR (by the extensions of the registered\n"
      "containers, in sorted order) and writes a Ninja build file with one edge\n"
      "per image: 'lmimage convert --force IN OUT [options]', where OUT is the\n"
      "image's path relative to SRC_DIR, placed under OUT_DIR, with extension EXT.\n"
      "Paths are absolute and the command is this program's own path, so the\n"
      "same tree and options always give the same file. The convert options are\n"
      "checked as convert checks them and passed to every edge. The build file\n"
      "is OUT_DIR/build.ninja unless --output names another (- for stdout); then\n"
      "'ninja -C OUT_DIR' converts the tree in parallel, and later runs convert\n"
      "only the images that changed. OUT_DIR is not searched when it lies inside\n"
      "SRC_DIR. Exit status 1 when an output would overwrite an input, two\n"
      "inputs share an output, or a path cannot be written to a Ninja file.",
      Options(),
      &Run,
  };
}

}  // namespace lumo::image::cli
