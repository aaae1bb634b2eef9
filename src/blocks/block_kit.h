// Internal contract between the block library's front end (blocks.cpp) and
// its codec families. The front end has already checked every size: the
// source holds all the blocks the image needs and the target holds all its
// pixels, so the families do no bounds arithmetic of their own beyond the
// block grid below.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "lumo/image/blocks.h"
#include "lumo/image/compressed_formats.h"

namespace lumo::image::blocks::detail {

// The blocks of one image, in row-major block order (3-D ASTC: slab after slab).
struct BlockSource {
  const std::uint8_t* data;
  std::size_t size;
  std::uint32_t width;
  std::uint32_t height;
  std::uint32_t depth;  // 1 except for 3-D ASTC volumes
  CompressFormat format;
  bool srgb;
};

// Decoded pixels: rows bytes_per_row apart, slices height rows apart.
struct PixelTarget {
  std::uint8_t* data;
  std::size_t bytes_per_row;
};

// Walks the block grid of a 2-D image with BW x BH blocks of `block_bytes`
// each. `decode(block, out, stride)` writes one full BW x BH tile of
// `PixelBytes`-byte pixels; interior blocks decode straight into the target,
// blocks on the right and bottom edges into a tile whose visible part is
// copied. No per-pixel indirection: `decode` is inlined.
template <std::size_t PixelBytes, unsigned BW, unsigned BH, class Decode>
void ForEachBlock(const BlockSource& src, std::size_t block_bytes, const PixelTarget& dst, Decode&& decode) {
  const std::uint32_t blocks_x = (src.width + BW - 1) / BW;
  const std::uint32_t blocks_y = (src.height + BH - 1) / BH;
  std::uint8_t tile[BW * BH * PixelBytes];
  const std::uint8_t* block = src.data;
  for (std::uint32_t by = 0; by < blocks_y; ++by) {
    const std::uint32_t y0 = by * BH;
    const std::uint32_t rows = src.height - y0 < BH ? src.height - y0 : BH;
    std::uint8_t* row = dst.data + y0 * dst.bytes_per_row;
    for (std::uint32_t bx = 0; bx < blocks_x; ++bx, block += block_bytes) {
      const std::uint32_t x0 = bx * BW;
      const std::uint32_t cols = src.width - x0 < BW ? src.width - x0 : BW;
      if (rows == BH && cols == BW) {
        decode(block, row + x0 * PixelBytes, dst.bytes_per_row);
        continue;
      }
      decode(block, tile, BW * PixelBytes);
      for (std::uint32_t y = 0; y < rows; ++y)
        std::memcpy(row + y * dst.bytes_per_row + x0 * PixelBytes, tile + y * BW * PixelBytes, cols * PixelBytes);
    }
  }
}

// Codec families. Each returns false for a format it does not handle (and
// then touches nothing); the front end tries them in turn.
bool DecodeBC(const BlockSource& src, const PixelTarget& dst);     // DXT1-DXT5, BC4-BC7
bool DecodeETC(const BlockSource& src, const PixelTarget& dst);    // ETC1, ETC2, EAC
bool DecodeATC(const BlockSource& src, const PixelTarget& dst);    // ATC
bool DecodePVRTC(const BlockSource& src, const PixelTarget& dst);  // PVRTC 1 and 2
bool DecodeASTC(const BlockSource& src, const PixelTarget& dst);   // 2-D and 3-D ASTC

// Which formats each family decodes (the front end's DecodedFormat and
// CanDecode ask these, so a family that leaves a format out says so once).
bool BCDecodes(CompressFormat format);
bool ETCDecodes(CompressFormat format);
bool ATCDecodes(CompressFormat format);
bool PVRTCDecodes(CompressFormat format);
bool ASTCDecodes(CompressFormat format);

// A8B8G8R8 pixels (rows `bytes_per_row` apart) into blocks; `out` holds the
// whole block grid (at least the format's minimum size). False for a format
// the family does not encode.
struct PixelSource {
  const std::uint8_t* data;
  std::size_t bytes_per_row;
  std::uint32_t width;
  std::uint32_t height;
};
bool EncodeBC(CompressFormat format, const PixelSource& src, std::uint8_t* out, Quality quality);
bool EncodeASTC(CompressFormat format, bool srgb, const PixelSource& src, std::uint8_t* out, Quality quality);
bool BCEncodes(CompressFormat format);
// Encoder threads: the machine's cores, or LMIMAGE_BLOCKS_THREADS when set (a
// build farm sharing its cores; tests checking that the blocks do not depend
// on the count).
unsigned EncoderThreads();
bool ASTCEncodes(CompressFormat format);

}  // namespace lumo::image::blocks::detail
