// Copying pixel rows between buffers whose rows are padded differently:
// tight file rows into padded surfaces when decoding, padded surfaces into
// tight or differently padded file rows when writing.
#pragma once

#include "plugins/level_views.h"

namespace lumo::image::detail {

// `rows` rows of `row_bytes` from src (rows src_pitch apart) to dst (rows
// dst_pitch apart). The bytes of each dst row past row_bytes, up to
// dst_pitch, are zeroed, so padding never carries stale memory into a file.
// One memcpy when both pitches equal row_bytes.
void CopyRows(char* dst, unsigned long long dst_pitch, const char* src, unsigned long long src_pitch,
              unsigned long long row_bytes, unsigned long long rows);

// Fills exactly `bytes` at `out` from a level element, rows `out_pitch`
// apart. Block data (or equal pitches) is copied whole; otherwise each row
// takes the first min(out_pitch, src.pitch) bytes of its source row. Whatever
// the source lacks is zeroed, and nothing past src.size is read.
void CopyElement(char* out, unsigned long long bytes, unsigned long long out_pitch, bool compressed,
                 const LevelElement& src);

}  // namespace lumo::image::detail
