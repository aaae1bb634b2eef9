// KTX key/value data, which the library's writer never produces: entries
// built by hand and put into a written file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/bytes.h"

namespace lumo::image::testing {

struct KeyValue {
  std::string key;  // its terminating NUL is added
  std::string value;
};

// Each entry as the file stores it: byte count, key, NUL, value, padding to four bytes.
inline Bytes KeyValueData(const std::vector<KeyValue>& entries) {
  Bytes out;
  for (const KeyValue& e : entries) {
    const size_t at = out.size();
    out.resize(at + 4);
    Put32(&out, at, static_cast<std::uint32_t>(e.key.size() + 1 + e.value.size()));
    out.insert(out.end(), e.key.begin(), e.key.end());
    out.push_back('\0');
    out.insert(out.end(), e.value.begin(), e.value.end());
    out.resize((out.size() + 3) & ~size_t{3}, '\0');
  }
  return out;
}

// A written KTX file (which has no key/value data) with `data` as its key/value data.
inline Bytes WithKeyValues(Bytes ktx, const Bytes& data) {
  ktx.insert(ktx.begin() + 64, data.begin(), data.end());
  Put32(&ktx, 60, static_cast<std::uint32_t>(data.size()));
  return ktx;
}

}  // namespace lumo::image::testing
