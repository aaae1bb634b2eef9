#include "lumo/log/log.h"

#include <cstdarg>
#include <cstdio>
#include <utility>
#include <vector>

namespace lumo::log {
namespace {

const char* SeverityText(Severity severity) {
  switch (severity) {
    case Severity::Error:
      return "error";
    case Severity::Warning:
      return "warning";
    case Severity::Message:
      return "message";
  }
  return "message";
}

void DefaultSink(unsigned int channel, Severity severity, int level, const std::string& text) {
  // Negative levels are trace output (the converter chain search logs at -10).
  if (severity == Severity::Message && level < 0) return;
  std::fprintf(stderr, "[lmimage:%u] %s: %s\n", channel, SeverityText(severity), text.c_str());
}

Sink& CurrentSink() {
  static Sink sink;
  return sink;
}

std::string Format(const char* format, va_list args) {
  if (format == nullptr) return std::string();
  char small[512];
  va_list copy;
  va_copy(copy, args);
  const int needed = std::vsnprintf(small, sizeof small, format, copy);
  va_end(copy);
  if (needed < 0) return std::string();
  if (static_cast<size_t>(needed) < sizeof small) return std::string(small, static_cast<size_t>(needed));
  std::vector<char> large(static_cast<size_t>(needed) + 1);
  std::vsnprintf(large.data(), large.size(), format, args);
  return std::string(large.data(), static_cast<size_t>(needed));
}

void Emit(unsigned int channel, Severity severity, int level, const std::string& text) {
  // A throwing host sink must not unwind through the image library's callers.
  try {
    const Sink& sink = CurrentSink();
    if (sink) {
      sink(channel, severity, level, text);
    } else {
      DefaultSink(channel, severity, level, text);
    }
  } catch (...) {
  }
}

}  // namespace

void Log(unsigned int channel, int level, const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string text = Format(format, args);
  va_end(args);
  Emit(channel, Severity::Message, level, text);
}

void LogError(unsigned int channel, const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string text = Format(format, args);
  va_end(args);
  Emit(channel, Severity::Error, 0, text);
}

void LogWarning(unsigned int channel, const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string text = Format(format, args);
  va_end(args);
  Emit(channel, Severity::Warning, 0, text);
}

void CLogError(unsigned int channel, const char* text) {
  Emit(channel, Severity::Error, 0, text != nullptr ? std::string(text) : std::string());
}

void SetSink(Sink sink) { CurrentSink() = std::move(sink); }

}  // namespace lumo::log
