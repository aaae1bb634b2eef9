// Byte-level helpers for building and inspecting files: fixed-width fields in
// either byte order, FourCC codes, and buffers the sanitizers can police.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "lumo/image/surface_data.h"

namespace lumo::image::testing {

using Bytes = std::vector<char>;

constexpr std::uint32_t FourCC(const char (&code)[5]) {
  return std::uint32_t{static_cast<unsigned char>(code[0])} | std::uint32_t{static_cast<unsigned char>(code[1])} << 8 |
         std::uint32_t{static_cast<unsigned char>(code[2])} << 16 |
         std::uint32_t{static_cast<unsigned char>(code[3])} << 24;
}

// `width` bytes at `offset`; std::vector::at keeps a bad offset from reading past the bytes.
inline std::uint32_t GetField(const Bytes& b, size_t offset, int width, bool big_endian) {
  std::uint32_t v = 0;
  for (int i = 0; i < width; ++i) {
    v = v << 8 | static_cast<unsigned char>(b.at(offset + (big_endian ? i : width - 1 - i)));
  }
  return v;
}
inline void PutField(Bytes* b, size_t offset, int width, bool big_endian, std::uint32_t v) {
  for (int i = 0; i < width; ++i) b->at(offset + (big_endian ? width - 1 - i : i)) = static_cast<char>(v >> (8 * i));
}

inline std::uint32_t Get16(const Bytes& b, size_t offset) { return GetField(b, offset, 2, false); }
inline std::uint32_t Get32(const Bytes& b, size_t offset) { return GetField(b, offset, 4, false); }
inline std::uint32_t Get16BE(const Bytes& b, size_t offset) { return GetField(b, offset, 2, true); }
inline std::uint32_t Get32BE(const Bytes& b, size_t offset) { return GetField(b, offset, 4, true); }
inline void Put16(Bytes* b, size_t offset, std::uint32_t v) { PutField(b, offset, 2, false, v); }
inline void Put32(Bytes* b, size_t offset, std::uint32_t v) { PutField(b, offset, 4, false, v); }
inline void Put16BE(Bytes* b, size_t offset, std::uint32_t v) { PutField(b, offset, 2, true, v); }
inline void Put32BE(Bytes* b, size_t offset, std::uint32_t v) { PutField(b, offset, 4, true, v); }

// A copy in a heap block of exactly `size` bytes, so ASan reports any read past it.
inline std::shared_ptr<char> Shared(const char* data, size_t size) {
  std::shared_ptr<char> buffer(new char[size], array_deleter());
  if (size != 0) std::memcpy(buffer.get(), data, size);
  return buffer;
}
template <typename Container>
std::shared_ptr<char> Shared(const Container& bytes) {
  return Shared(bytes.data(), bytes.size());
}

// `size` bytes where byte i holds first + i, so every byte of a small buffer is distinct.
inline std::shared_ptr<char> Counting(size_t size, int first = 1) {
  std::shared_ptr<char> buffer(new char[size], array_deleter());
  for (size_t i = 0; i < size; ++i) buffer.get()[i] = static_cast<char>(static_cast<size_t>(first) + i);
  return buffer;
}

}  // namespace lumo::image::testing
