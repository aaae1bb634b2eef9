// Container files built by hand, for layouts the library's writers never
// produce: KTX key/value data, PVR metadata and version 2 headers, ASTC headers.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
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

// One PVR version 3 metadata entry: FourCC, key, data size, data.
inline Bytes PVRMetadataEntry(std::uint32_t fourcc, std::uint32_t key, const Bytes& data) {
  Bytes e(12 + data.size());
  Put32(&e, 0, fourcc), Put32(&e, 4, key), Put32(&e, 8, static_cast<std::uint32_t>(data.size()));
  std::copy(data.begin(), data.end(), e.begin() + 12);
  return e;
}

// A PVR version 2 file of a 4 x 4 image: pixel type and flags in `flags`, then `payload` bytes.
inline Bytes PVRV2File(std::uint32_t flags, std::uint32_t surfaces, std::uint32_t mips, size_t payload) {
  Bytes b(52 + payload, 1);
  for (const auto& [offset, value] : {std::pair<size_t, std::uint32_t>{0, 52},
                                      {4, 4},
                                      {8, 4},
                                      {12, mips},
                                      {16, flags},
                                      {44, FourCC("PVR!")},
                                      {48, surfaces}}) {
    Put32(&b, offset, value);
  }
  return b;
}

// An ASTC header for blocks bw x bh x bd and an image w x h x d, then `payload` bytes.
inline Bytes ASTCFile(int bw, int bh, int bd, std::uint32_t w, std::uint32_t h, std::uint32_t d, size_t payload) {
  Bytes b = {'\x13', '\xAB', '\xA1', '\x5C', static_cast<char>(bw), static_cast<char>(bh), static_cast<char>(bd)};
  for (const std::uint32_t size : {w, h, d}) {
    for (int shift = 0; shift < 24; shift += 8) b.push_back(static_cast<char>(size >> shift));
  }
  for (size_t i = 0; i < payload; ++i) b.push_back(static_cast<char>(i * 5 + 1));
  return b;
}

}  // namespace lumo::image::testing
