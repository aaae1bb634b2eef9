// Symbol visibility and the library-wide log channel.
#pragma once

#include <cstdint>

#if defined(_WIN32)
#  if defined(LUMO_IMAGE_BUILDING)
#    define LUMO_IMAGE_API __declspec(dllexport)
#  else
#    define LUMO_IMAGE_API __declspec(dllimport)
#  endif
#else
#  define LUMO_IMAGE_API __attribute__((visibility("default")))
#endif

namespace lumo::image {

// Channel number passed with every log call of the library. 0 at load; the
// library never writes it, the host may.
extern LUMO_IMAGE_API std::uint32_t LogChannel;

}  // namespace lumo::image
