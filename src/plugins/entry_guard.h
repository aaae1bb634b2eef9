// The entry guard of every plugin operation. Decoders and encoders raise
// failures deep inside as exceptions carrying a message (a std::exception, or
// a `const char*` thrown from a C library's error callback); the guard turns
// them into the plugin's log line and its failure result, so no exception
// leaves the library. std::bad_alloc passes through unless the policy says
// otherwise: the library's callers may see allocation failures, but not where
// unwinding would cross frames that cannot take it.
#pragma once

#include <exception>
#include <new>
#include <stdexcept>
#include <string>

namespace lumo::image::detail {

// What a decoder throws for a bad file: the text is the log line's message.
class DecodeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct GuardPolicy {
  // printf format with one %s for a caught message, logged with LogError;
  // nullptr: caught messages are not logged (the plugin logged already).
  const char* message_format = nullptr;
  // Text logged for an exception that carries no message; nullptr: none.
  const char* unknown_text = nullptr;
  // False: an allocation failure is logged and reported as the failure result.
  bool rethrow_bad_alloc = true;
};

void LogGuardMessage(const GuardPolicy& policy, const char* message);

// body() or, when it throws, `failure` after the policy's log line.
template <typename Result, typename Body>
Result Guarded(const GuardPolicy& policy, Result failure, Body&& body) {
  try {
    return body();
  } catch (const std::bad_alloc& e) {
    if (policy.rethrow_bad_alloc) throw;
    LogGuardMessage(policy, e.what());
  } catch (const std::exception& e) {
    LogGuardMessage(policy, e.what());
  } catch (const char* message) {
    LogGuardMessage(policy, message != nullptr ? message : "");
  } catch (const std::string& message) {
    LogGuardMessage(policy, message.c_str());
  } catch (...) {
    LogGuardMessage(policy, nullptr);
  }
  return failure;
}

}  // namespace lumo::image::detail
