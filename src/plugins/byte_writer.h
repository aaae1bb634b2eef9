// The one way plugins write file bytes: a cursor over a buffer sized in
// advance. A write that would pass the end writes nothing and makes the writer
// fail for good; a writer sized right ends with Ok() and Position() == size.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "lumo/image/surface_data.h"

namespace lumo::image::detail {

// A new file buffer of `bytes` bytes released with array_deleter (what the
// Serialize operations hand out); empty when the size does not fit size_t.
inline std::shared_ptr<char> NewFileBuffer(unsigned long long bytes) {
  if (bytes > static_cast<unsigned long long>(static_cast<std::size_t>(-1))) return nullptr;
  return std::shared_ptr<char>(new char[bytes == 0 ? 1 : static_cast<std::size_t>(bytes)], array_deleter());
}

class ByteWriter {
 public:
  ByteWriter(char* data, std::size_t size) : data_(data), size_(data != nullptr ? size : 0) {}

  std::size_t Size() const { return size_; }
  std::size_t Position() const { return position_; }
  std::size_t Remaining() const { return size_ - position_; }
  bool Ok() const { return ok_; }

  void U8(std::uint8_t v) { Field<1, false>(v); }
  void U16LE(std::uint16_t v) { Field<2, false>(v); }
  void U16BE(std::uint16_t v) { Field<2, true>(v); }
  void U24LE(std::uint32_t v) { Field<3, false>(v); }
  void U24BE(std::uint32_t v) { Field<3, true>(v); }
  void U32LE(std::uint32_t v) { Field<4, false>(v); }
  void U32BE(std::uint32_t v) { Field<4, true>(v); }
  void U64LE(std::uint64_t v) { Field<8, false>(v); }
  void U64BE(std::uint64_t v) { Field<8, true>(v); }

  void Bytes(const void* src, std::size_t n) {
    if (char* p = Take(n); p != nullptr && n != 0) std::memcpy(p, src, n);
  }
  void Zeros(std::size_t n) {
    if (char* p = Take(n); p != nullptr && n != 0) std::memset(p, 0, n);
  }
  // Zeros up to the next multiple of `alignment` (counted from the buffer's start).
  void PadTo(std::size_t alignment) {
    if (alignment > 1 && position_ % alignment != 0) Zeros(alignment - position_ % alignment);
  }
  // Room for n bytes that the caller fills itself (rows copied in place);
  // nullptr, and the writer failed, when they do not fit.
  char* Reserve(std::size_t n) { return Take(n); }

 private:
  char* Take(std::size_t n) {
    if (!ok_ || n > Remaining()) {
      ok_ = false;
      return nullptr;
    }
    char* p = data_ + position_;
    position_ += n;
    return p;
  }

  template <int N, bool BigEndian, typename T>
  void Field(T v) {
    char* p = Take(N);
    if (p == nullptr) return;
    for (int i = 0; i < N; ++i) p[BigEndian ? N - 1 - i : i] = static_cast<char>((v >> (8 * i)) & 0xFF);
  }

  char* data_;
  std::size_t size_;
  std::size_t position_ = 0;
  bool ok_ = true;
};

}  // namespace lumo::image::detail
