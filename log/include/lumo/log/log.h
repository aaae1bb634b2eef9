// Logging interface used by lmimage. This is a small stand-in for the engine's
// logging library: the same four entry points, plus a replaceable sink so that
// hosts and tests can capture the finished lines.
#pragma once

#include <functional>
#include <string>

#if defined(_WIN32)
#  if defined(LUMO_LOG_BUILDING)
#    define LUMO_LOG_API __declspec(dllexport)
#  else
#    define LUMO_LOG_API __declspec(dllimport)
#  endif
#else
#  define LUMO_LOG_API __attribute__((visibility("default")))
#endif

#if defined(__GNUC__)
#  define LUMO_LOG_PRINTF(fmt_index, first_arg) __attribute__((format(printf, fmt_index, first_arg)))
#else
#  define LUMO_LOG_PRINTF(fmt_index, first_arg)
#endif

namespace lumo::log {

enum class Severity { Error, Warning, Message };

// channel, severity, level (0 for errors and warnings) and the finished text
// (printf formatting done, no newline added).
using Sink = std::function<void(unsigned int channel, Severity severity, int level, const std::string& text)>;

LUMO_LOG_API void Log(unsigned int channel, int level, const char* format, ...) LUMO_LOG_PRINTF(3, 4);
LUMO_LOG_API void LogError(unsigned int channel, const char* format, ...) LUMO_LOG_PRINTF(2, 3);
LUMO_LOG_API void LogWarning(unsigned int channel, const char* format, ...) LUMO_LOG_PRINTF(2, 3);
LUMO_LOG_API void CLogError(unsigned int channel, const char* text);

// Replaces the sink for all later calls; an empty Sink restores the default,
// which writes errors, warnings and messages of level 0 or above to stderr,
// one line each. Must not overlap with logging on other threads.
LUMO_LOG_API void SetSink(Sink sink);

}  // namespace lumo::log
