#include "batch.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <system_error>
#include <thread>

#include "cli.h"
#include "pipeline.h"

namespace lumo::image::cli {
namespace fs = std::filesystem;
namespace {

// Where an input goes below the output folder when it came as a file.
fs::path RelativeOfFile(const fs::path& input) {
  const fs::path normal = input.lexically_normal();
  if (normal.is_relative() && !normal.empty() && *normal.begin() != "..") return normal;
  return input.filename();
}

// Compares paths of files that may not exist yet.
std::string Key(const fs::path& path) {
  std::error_code error;
  const fs::path canonical = fs::weakly_canonical(path, error);
  return (error ? fs::absolute(path) : canonical).lexically_normal().string();
}

void AddFolder(const std::string& folder, const std::string& skip_key,
               std::vector<std::pair<std::string, fs::path>>* inputs) {
  std::vector<std::pair<std::string, fs::path>> found;
  std::error_code error;
  fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied, error);
  if (error) throw UsageError(folder, "cannot list: " + error.message());
  for (; it != fs::recursive_directory_iterator(); it.increment(error)) {
    if (error) throw UsageError(folder, "cannot list: " + error.message());
    const fs::path& path = it->path();
    // The outputs of an earlier run inside the tree are not inputs.
    if (!skip_key.empty() && it->is_directory(error) && Key(path) == skip_key) {
      it.disable_recursion_pending();
      continue;
    }
    if (!it->is_regular_file(error) || !IsImageExtension(path.extension().string())) continue;
    found.emplace_back(path.string(), path.lexically_relative(folder));
  }
  std::sort(found.begin(), found.end());
  inputs->insert(inputs->end(), found.begin(), found.end());
}

}  // namespace

std::vector<Job> PlanJobs(const BatchRequest& request) {
  const std::string skip_key = request.output_dir ? Key(*request.output_dir) : std::string();
  std::vector<std::pair<std::string, fs::path>> inputs;  // path, relative output path
  for (const std::string& operand : request.operands) {
    std::error_code error;
    if (fs::is_directory(operand, error)) {
      if (!request.recursive) throw UsageError(operand, "is a folder (add --recursive to convert what it holds)");
      AddFolder(operand, skip_key, &inputs);
    } else {
      inputs.emplace_back(operand, RelativeOfFile(operand));
    }
  }
  if (request.file_list) {
    std::ifstream list(*request.file_list);
    if (!list) throw UsageError(*request.file_list, "cannot read the file list");
    std::string line;
    while (std::getline(list, line)) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      if (line.empty()) continue;
      inputs.emplace_back(line, RelativeOfFile(line));
    }
  }
  if (inputs.empty()) throw UsageError("no input files");

  std::vector<Job> jobs;
  std::map<std::string, std::string> input_of_output;
  std::set<std::string> input_keys;
  for (const auto& input : inputs) input_keys.insert(Key(input.first));
  for (const auto& input : inputs) {
    fs::path output = request.output_dir ? fs::path(*request.output_dir) / input.second : fs::path(input.first);
    output.replace_extension(request.extension);
    const std::string key = Key(output);
    if (input_keys.count(key) != 0) {
      throw UsageError(output.string(), "is an input file; choose another output folder or extension");
    }
    const auto inserted = input_of_output.emplace(key, input.first);
    if (!inserted.second) {
      if (inserted.first->second == input.first) continue;  // named twice: convert once
      throw UsageError(output.string(),
                       "is the output of both '" + inserted.first->second + "' and '" + input.first + "'");
    }
    jobs.push_back(Job{input.first, output.string()});
  }
  return jobs;
}

bool IsUpToDate(const std::string& input, const std::string& output) {
  std::error_code error;
  const auto written = fs::last_write_time(output, error);
  if (error) return false;
  const auto read = fs::last_write_time(input, error);
  return !error && written > read;
}

bool MakeParentFolders(const std::string& path, std::string* reason) {
  const fs::path parent = fs::path(path).parent_path();
  if (parent.empty()) return true;
  std::error_code error;
  fs::create_directories(parent, error);
  if (error) *reason = error.message();
  return !error;
}

void RunOnThreads(std::size_t count, unsigned threads, const std::function<void(std::size_t)>& work) {
  std::atomic<std::size_t> next{0};
  const auto worker = [&] {
    for (std::size_t index = next++; index < count; index = next++) work(index);
  };
  threads = static_cast<unsigned>(std::min<std::size_t>(std::max(1u, threads), count));
  std::vector<std::thread> pool;
  for (unsigned i = 1; i < threads; ++i) pool.emplace_back(worker);
  worker();
  for (std::thread& thread : pool) thread.join();
}

}  // namespace lumo::image::cli
