// Routes the library's log lines into a list for the lifetime of the object,
// so tests can assert on them and expected refusals stay off the console.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lumo/log/log.h"

namespace lumo::image::testing {

struct LogLine {
  unsigned channel;
  log::Severity severity;
  int level;
  std::string text;
};

class LogCapture {
 public:
  LogCapture() {
    log::SetSink([this](unsigned c, log::Severity s, int l, const std::string& t) { lines.push_back({c, s, l, t}); });
  }
  ~LogCapture() { log::SetSink({}); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    for (const LogLine& line : lines) texts.push_back(line.text);
    return texts;
  }
  std::vector<std::string> Texts(log::Severity severity) const {
    std::vector<std::string> texts;
    for (const LogLine& line : lines) {
      if (line.severity == severity) texts.push_back(line.text);
    }
    return texts;
  }
  // Exactly one line, containing `part`; with an empty `part`, no line at all.
  ::testing::AssertionResult OnlyLineContains(const std::string& part) const {
    if (part.empty() ? lines.empty() : lines.size() == 1 && lines[0].text.find(part) != std::string::npos) {
      return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "expected " << (part.empty() ? "no line" : "one line with '" + part + "'")
                                         << ", logged:\n"
                                         << All();
  }
  // Every line, one per row: for failure messages.
  std::string All() const {
    std::string all;
    for (const LogLine& line : lines) all += line.text + "\n";
    return all;
  }

  std::vector<LogLine> lines;
};

}  // namespace lumo::image::testing
