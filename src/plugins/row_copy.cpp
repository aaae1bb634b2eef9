#include "plugins/row_copy.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace lumo::image::detail {

using u64 = unsigned long long;

void CopyRows(char* dst, u64 dst_pitch, const char* src, u64 src_pitch, u64 row_bytes, u64 rows) {
  if (rows == 0 || row_bytes == 0) return;
  if (dst_pitch == row_bytes && src_pitch == row_bytes) {
    std::memcpy(dst, src, static_cast<std::size_t>(row_bytes * rows));
    return;
  }
  for (u64 y = 0; y < rows; ++y) {
    char* out = dst + y * dst_pitch;
    std::memcpy(out, src + y * src_pitch, static_cast<std::size_t>(row_bytes));
    if (dst_pitch > row_bytes) std::memset(out + row_bytes, 0, static_cast<std::size_t>(dst_pitch - row_bytes));
  }
}

void CopyElement(char* out, u64 bytes, u64 out_pitch, bool compressed, const LevelElement& src) {
  u64 written = 0;
  if (src.data != nullptr && src.size != 0) {
    if (compressed || src.pitch == 0 || src.pitch == out_pitch || out_pitch == 0) {
      written = std::min(src.size, bytes);
      std::memcpy(out, src.data, static_cast<std::size_t>(written));
    } else {
      const u64 rows = std::min(bytes / out_pitch, src.size / src.pitch);
      CopyRows(out, out_pitch, src.data, src.pitch, std::min(out_pitch, src.pitch), rows);
      written = rows * out_pitch;
    }
  }
  if (written < bytes) std::memset(out + written, 0, static_cast<std::size_t>(bytes - written));
}

}  // namespace lumo::image::detail
