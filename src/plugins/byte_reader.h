// The one way plugins read file bytes: a cursor over (data, size) that can
// never move or read past `size`. A read that does not fit fails, leaves its
// output untouched and makes every later read fail too (the failure is
// sticky), so a decoder may read a run of fields and check Ok() once; it never
// receives zeros that the file does not hold.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace lumo::image::detail {

// A four-character code as a little-endian 32-bit field holds it.
constexpr std::uint32_t FourCC(char a, char b, char c, char d) {
  return static_cast<std::uint32_t>(static_cast<unsigned char>(a)) |
         static_cast<std::uint32_t>(static_cast<unsigned char>(b)) << 8 |
         static_cast<std::uint32_t>(static_cast<unsigned char>(c)) << 16 |
         static_cast<std::uint32_t>(static_cast<unsigned char>(d)) << 24;
}

// Whether the buffer starts with the `n` bytes of `magic`.
inline bool HasMagic(const char* data, std::size_t size, const unsigned char* magic, std::size_t n) {
  return data != nullptr && size >= n && std::memcmp(data, magic, n) == 0;
}

class ByteReader {
 public:
  ByteReader(const char* data, std::size_t size)
      : data_(reinterpret_cast<const unsigned char*>(data)), size_(data != nullptr ? size : 0) {}

  std::size_t Size() const { return size_; }
  std::size_t Position() const { return position_; }
  std::size_t Remaining() const { return size_ - position_; }
  // False once any read, skip or seek has failed.
  bool Ok() const { return ok_; }
  // The bytes from the cursor on (valid while Remaining() > 0).
  const char* Cursor() const { return reinterpret_cast<const char*>(data_) + position_; }

  [[nodiscard]] bool Seek(std::size_t offset) {
    if (!ok_ || offset > size_) return Fail();
    position_ = offset;
    return true;
  }
  [[nodiscard]] bool Skip(std::size_t n) { return Take(n) != nullptr; }
  // Whether the next n bytes exist; consumes nothing, never fails the reader.
  bool Has(std::size_t n) const { return ok_ && n <= Remaining(); }

  [[nodiscard]] bool U8(std::uint8_t* out) { return Field<1, false>(out); }
  [[nodiscard]] bool U16LE(std::uint16_t* out) { return Field<2, false>(out); }
  [[nodiscard]] bool U16BE(std::uint16_t* out) { return Field<2, true>(out); }
  [[nodiscard]] bool U24LE(std::uint32_t* out) { return Field<3, false>(out); }
  [[nodiscard]] bool U24BE(std::uint32_t* out) { return Field<3, true>(out); }
  [[nodiscard]] bool U32LE(std::uint32_t* out) { return Field<4, false>(out); }
  [[nodiscard]] bool U32BE(std::uint32_t* out) { return Field<4, true>(out); }
  [[nodiscard]] bool U64LE(std::uint64_t* out) { return Field<8, false>(out); }
  [[nodiscard]] bool U64BE(std::uint64_t* out) { return Field<8, true>(out); }
  // 32-bit little-endian field at an absolute offset; the cursor stays.
  [[nodiscard]] bool U32LEAt(std::size_t offset, std::uint32_t* out) const {
    if (!ok_ || offset > size_ || size_ - offset < 4) return false;
    *out = Decode<4, false, std::uint32_t>(data_ + offset);
    return true;
  }

  // A span of n bytes of the buffer itself (no copy).
  [[nodiscard]] bool Bytes(std::size_t n, const char** out) {
    const unsigned char* p = Take(n);
    if (p == nullptr) return false;
    *out = reinterpret_cast<const char*>(p);
    return true;
  }
  [[nodiscard]] bool CopyTo(void* out, std::size_t n) {
    const unsigned char* p = Take(n);
    if (p == nullptr) return false;
    if (n != 0) std::memcpy(out, p, n);
    return true;
  }
  // A reader over the next n bytes, which this one skips.
  [[nodiscard]] bool Sub(std::size_t n, ByteReader* out) {
    const unsigned char* p = Take(n);
    if (p == nullptr) return false;
    *out = ByteReader(reinterpret_cast<const char*>(p), n);
    return true;
  }

  // A text line: the bytes before the next '\n' (a '\r' before it is dropped),
  // the newline consumed. Fails when no newline follows within `max_length`
  // bytes or before the end: a header line is always followed by more data.
  [[nodiscard]] bool Line(std::string_view* out, std::size_t max_length) {
    if (!ok_) return false;
    const std::size_t window = Remaining() < max_length ? Remaining() : max_length;
    const void* newline = window == 0 ? nullptr : std::memchr(data_ + position_, '\n', window);
    if (newline == nullptr) return Fail();
    const char* begin = reinterpret_cast<const char*>(data_ + position_);
    std::size_t length = static_cast<std::size_t>(static_cast<const unsigned char*>(newline) - (data_ + position_));
    position_ += length + 1;
    if (length != 0 && begin[length - 1] == '\r') --length;
    *out = std::string_view(begin, length);
    return true;
  }

 private:
  bool Fail() {
    ok_ = false;
    return false;
  }

  const unsigned char* Take(std::size_t n) {
    if (!ok_ || n > Remaining()) {
      Fail();
      return nullptr;
    }
    const unsigned char* p = data_ + position_;
    position_ += n;
    return p;
  }

  template <int N, bool BigEndian, typename T>
  static T Decode(const unsigned char* p) {
    T value = 0;
    for (int i = 0; i < N; ++i) value |= static_cast<T>(p[BigEndian ? N - 1 - i : i]) << (8 * i);
    return value;
  }

  template <int N, bool BigEndian, typename T>
  bool Field(T* out) {
    static_assert(N <= static_cast<int>(sizeof(T)));
    const unsigned char* p = Take(N);
    if (p == nullptr) return false;
    *out = Decode<N, BigEndian, T>(p);
    return true;
  }

  const unsigned char* data_;
  std::size_t size_;
  std::size_t position_ = 0;
  bool ok_ = true;
};

}  // namespace lumo::image::detail
