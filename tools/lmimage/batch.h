// Batch conversion: which files to convert to which outputs, whether an
// output is up to date, and running the conversions on threads.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace lumo::image::cli {

struct BatchRequest {
  std::vector<std::string> operands;      // files, or folders when recursive
  bool recursive = false;
  std::optional<std::string> file_list;   // one input path per line
  std::optional<std::string> output_dir;  // else each output beside its input
  std::string extension;                  // of every output, with the dot
};

struct Job {
  std::string input;
  std::string output;
};

// The inputs in order (folders sorted), each with its output: under the
// output folder at the input's path relative to the folder operand (or, for a
// file named by a relative path without "..", at that path), else beside the
// input. Throws usage Errors before anything is converted: a folder without
// recursion, an unreadable list, an output that is an input, two inputs with
// one output.
std::vector<Job> PlanJobs(const BatchRequest& request);

// Whether `output` exists and was modified after `input`.
bool IsUpToDate(const std::string& input, const std::string& output);

// Creates the folders `path` needs; false when that fails.
bool MakeParentFolders(const std::string& path, std::string* reason);

// Calls work(0) ... work(count - 1) on `threads` threads; each index once.
void RunOnThreads(std::size_t count, unsigned threads, const std::function<void(std::size_t)>& work);

}  // namespace lumo::image::cli
