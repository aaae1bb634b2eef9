// What a batch run tells its user: per-file lines or one status line updated
// in place, error lines, and the closing summary. Safe to call from the
// worker threads.
#pragma once

#include <chrono>
#include <cstddef>
#include <iosfwd>
#include <mutex>
#include <string>

namespace lumo::image::cli {

enum class ProgressMode {
  kStatusLine,  // a terminal: one line redrawn in place, then the summary
  kFileLines,   // one line per file, then the summary
  kQuiet,       // error lines only
};

enum class FileResult { kConverted, kSkipped, kFailed };

struct FileReport {
  std::string input;
  std::string output;
  FileResult result = FileResult::kFailed;
  unsigned long long bytes_in = 0;
  unsigned long long bytes_out = 0;
  double seconds = 0;
};

class Progress {
 public:
  Progress(ProgressMode mode, std::ostream& out, std::ostream& err, std::size_t total, std::string verb);

  // One error or warning line in the tool's layout, never mixed into the status line.
  void Diagnostic(const std::string& subject, const std::string& text);
  void Done(const FileReport& report);
  // "converted 3, skipped 1, failed 0; read N bytes, wrote M bytes; 0.52 s".
  void Finish();

  std::size_t Failed() const;

 private:
  void ClearStatus();
  void DrawStatus(bool force);

  const ProgressMode mode_;
  std::ostream& out_;
  std::ostream& err_;
  const std::size_t total_;
  const std::string verb_;
  const std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point last_draw_;
  mutable std::mutex mutex_;
  bool status_shown_ = false;
  std::size_t converted_ = 0;
  std::size_t skipped_ = 0;
  std::size_t failed_ = 0;
  unsigned long long bytes_in_ = 0;
  unsigned long long bytes_out_ = 0;
};

}  // namespace lumo::image::cli
