// Reads and writes of values at any byte address (pixel rows carry no
// alignment promise); compilers turn these into plain moves.
#pragma once

#include <cstring>

namespace lumo::image::detail {

template <typename T>
inline T Load(const unsigned char* p) noexcept {
  T v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

template <typename T>
inline void Store(unsigned char* p, T v) noexcept {
  std::memcpy(p, &v, sizeof v);
}

}  // namespace lumo::image::detail
