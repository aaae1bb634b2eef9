#include "progress.h"

#include <cstdio>
#include <ostream>
#include <utility>

#include "cli.h"

namespace lumo::image::cli {
namespace {

double Since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string Seconds(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f s", seconds);
  return text;
}

std::string Clock(double seconds) {
  const long long whole = static_cast<long long>(seconds + 0.5);
  char text[32];
  std::snprintf(text, sizeof text, "%lld:%02lld", whole / 60, whole % 60);
  return text;
}

}  // namespace

Progress::Progress(ProgressMode mode, std::ostream& out, std::ostream& err, std::size_t total, std::string verb)
    : mode_(mode),
      out_(out),
      err_(err),
      total_(total),
      verb_(std::move(verb)),
      start_(std::chrono::steady_clock::now()),
      last_draw_(start_) {}

void Progress::ClearStatus() {
  if (!status_shown_) return;
  out_ << "\r\033[K" << std::flush;
  status_shown_ = false;
}

void Progress::DrawStatus(bool force) {
  const auto now = std::chrono::steady_clock::now();
  // A few redraws a second are enough to look alive and cost nothing.
  if (!force && status_shown_ && now - last_draw_ < std::chrono::milliseconds(100)) return;
  last_draw_ = now;
  const std::size_t done = converted_ + skipped_ + failed_;
  const double elapsed = Since(start_);
  std::string line = "[" + std::to_string(done) + "/" + std::to_string(total_) + "] " + std::to_string(failed_) +
                     " failed";
  if (done != 0 && elapsed > 0) {
    char rate[48];
    std::snprintf(rate, sizeof rate, ", %.1f files/s", done / elapsed);
    line += rate;
    line += ", " + Clock(elapsed / done * (total_ - done)) + " left";
  }
  out_ << "\r\033[K" << line << std::flush;
  status_shown_ = true;
}

void Progress::Diagnostic(const std::string& subject, const std::string& text) {
  std::lock_guard<std::mutex> lock(mutex_);
  ClearStatus();
  PrintError(err_, verb_, subject, text);
  err_.flush();
  if (mode_ == ProgressMode::kStatusLine) DrawStatus(true);
}

void Progress::Done(const FileReport& report) {
  std::lock_guard<std::mutex> lock(mutex_);
  switch (report.result) {
    case FileResult::kConverted:
      ++converted_;
      break;
    case FileResult::kSkipped:
      ++skipped_;
      break;
    case FileResult::kFailed:
      ++failed_;
      break;
  }
  bytes_in_ += report.bytes_in;
  bytes_out_ += report.bytes_out;
  if (mode_ == ProgressMode::kStatusLine) {
    DrawStatus(converted_ + skipped_ + failed_ == total_);
  } else if (mode_ == ProgressMode::kFileLines) {
    switch (report.result) {
      case FileResult::kConverted:
        out_ << "converted " << report.input << " -> " << report.output << ", " << report.bytes_out << " bytes, "
             << Seconds(report.seconds) << '\n';
        break;
      case FileResult::kSkipped:
        out_ << "skipped " << report.input << " -> " << report.output << ", up to date\n";
        break;
      case FileResult::kFailed:
        out_ << "failed " << report.input << ", " << Seconds(report.seconds) << '\n';
        break;
    }
    out_.flush();
  }
}

void Progress::Finish() {
  std::lock_guard<std::mutex> lock(mutex_);
  ClearStatus();
  if (mode_ == ProgressMode::kQuiet) return;
  out_ << "converted " << converted_ << ", skipped " << skipped_ << ", failed " << failed_ << "; read " << bytes_in_
       << " bytes, wrote " << bytes_out_ << " bytes; " << Seconds(Since(start_)) << '\n';
}

std::size_t Progress::Failed() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return failed_;
}

}  // namespace lumo::image::cli
