#include "plugins/entry_guard.h"

#include "lumo/image/export.h"
#include "lumo/log/log.h"

namespace lumo::image::detail {

void LogGuardMessage(const GuardPolicy& policy, const char* message) {
  if (message == nullptr) {
    if (policy.unknown_text != nullptr) lumo::log::CLogError(LogChannel, policy.unknown_text);
    return;
  }
  if (policy.message_format != nullptr) {
#if defined(__GNUC__)
#  pragma GCC diagnostic push
#  pragma GCC diagnostic ignored "-Wformat-nonliteral"
#endif
    lumo::log::LogError(LogChannel, policy.message_format, message);
#if defined(__GNUC__)
#  pragma GCC diagnostic pop
#endif
  }
}

}  // namespace lumo::image::detail
