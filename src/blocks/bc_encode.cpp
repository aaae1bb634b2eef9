// BC1-BC5 encoders through libsquish, one 4x4 block at a time, with bands of
// block rows spread over the machine's cores. Blocks depend on their own
// pixels only, so the result is the same for any number of threads.
//
// Effort: Fast = range fit, Normal = cluster fit, Best = iterative cluster
// fit. The effort applies to colour endpoints; libsquish fits interpolated
// alpha (DXT4/DXT5 alpha, BC4, BC5) and explicit alpha (DXT2/DXT3) the same
// way at every effort.
#include <squish.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "blocks/block_kit.h"

namespace lumo::image::blocks::detail {
namespace {

enum class Kind {
  Colour,    // DXT1-DXT5: libsquish takes RGBA
  Red,       // BC4: R
  RedGreen,  // BC5: R, then G
};

struct Plan {
  int flags = 0;
  Kind kind = Kind::Colour;
  unsigned block_bytes = 0;
  bool opaque = false;       // DXT1: alpha forced to 255 so no 3-colour transparent block appears
  bool premultiply = false;  // DXT2, DXT4
  bool snorm = false;        // BC4/BC5 signed
};

bool MakePlan(CompressFormat format, Quality quality, Plan* plan) {
  int fit = 0;
  switch (quality) {
    case Quality::Fast:
      fit = squish::kColourRangeFit;
      break;
    case Quality::Normal:
      fit = squish::kColourClusterFit;
      break;
    case Quality::Best:
      fit = squish::kColourIterativeClusterFit;
      break;
    default:
      return false;
  }
  Plan p;
  switch (format) {
    case CompressFormat::DXT1:
      p = {squish::kDxt1 | fit, Kind::Colour, 8, true, false, false};
      break;
    case CompressFormat::DXT1_A1:
      p = {squish::kDxt1 | fit, Kind::Colour, 8, false, false, false};
      break;
    case CompressFormat::DXT2:
      p = {squish::kDxt3 | fit, Kind::Colour, 16, false, true, false};
      break;
    case CompressFormat::DXT3:
      p = {squish::kDxt3 | fit, Kind::Colour, 16, false, false, false};
      break;
    case CompressFormat::DXT4:
      p = {squish::kDxt5 | fit, Kind::Colour, 16, false, true, false};
      break;
    case CompressFormat::DXT5:
      p = {squish::kDxt5 | fit, Kind::Colour, 16, false, false, false};
      break;
    case CompressFormat::BC4_unsigned:
      p = {squish::kBc4, Kind::Red, 8, false, false, false};
      break;
    case CompressFormat::BC4_signed:
      p = {squish::kBc4, Kind::Red, 8, false, false, true};
      break;
    case CompressFormat::BC5_unsigned:
      p = {squish::kBc5, Kind::RedGreen, 16, false, false, false};
      break;
    case CompressFormat::BC5_signed:
      p = {squish::kBc5, Kind::RedGreen, 16, false, false, true};
      break;
    default:
      return false;
  }
  *plan = p;
  return true;
}

// Signed BC4/BC5 hold two's-complement endpoints e in [-127, 127] meaning
// e / 127, the same 8- and 6-value interpolation as the unsigned form, and in
// the 6-value form the fixed values -1 and +1 where the unsigned form has 0
// and 255 (Microsoft's BC4 documentation). An input byte v stands for
// (v - 128) / 127 clamped to [-1, 1], i.e. endpoint v - 128 with 0 read as 1.
// libsquish fits the unsigned form; handing it that clamped byte (range 1-255)
// keeps every endpoint it picks in 1-255, and since the mapping is a shift by
// 128 it keeps endpoint order (so the mode) and the fixed values: 0 and 255
// become -128 (read as -1) and 127. Only endpoints need rewriting.
inline std::uint8_t SnormInput(std::uint8_t v) { return v == 0 ? 1 : v; }

void UnsignedEndpointsToSigned(std::uint8_t* block) {
  block[0] = static_cast<std::uint8_t>(block[0] ^ 0x80);
  block[1] = static_cast<std::uint8_t>(block[1] ^ 0x80);
}

// Encodes one 4x4 block whose visible part is `cols` x `rows` pixels at
// `pixels` (rows `pitch` apart). Invisible pixels are masked out, so they do
// not pull the endpoints.
void EncodeBlock(const Plan& plan, const std::uint8_t* pixels, std::size_t pitch, unsigned cols, unsigned rows,
                 std::uint8_t* out) {
  squish::u8 rgba[64];
  std::memset(rgba, 0, sizeof rgba);
  int mask = 0;
  for (unsigned y = 0; y < rows; ++y) {
    const std::uint8_t* in = pixels + y * pitch;
    for (unsigned x = 0; x < cols; ++x, in += 4) {
      const unsigned i = y * 4 + x;
      mask |= 1 << i;
      squish::u8* px = rgba + i * 4;
      switch (plan.kind) {
        case Kind::Colour:
          if (plan.premultiply) {
            const unsigned a = in[3];
            for (int c = 0; c < 3; ++c) px[c] = static_cast<squish::u8>((in[c] * a + 127) / 255);
          } else {
            px[0] = in[0];
            px[1] = in[1];
            px[2] = in[2];
          }
          px[3] = plan.opaque ? 255 : in[3];
          break;
        case Kind::Red:
        case Kind::RedGreen:
          // libsquish reads BC4 from R and BC5 from R and G.
          px[0] = plan.snorm ? SnormInput(in[0]) : in[0];
          px[1] = plan.snorm ? SnormInput(in[1]) : in[1];
          px[3] = 255;
          break;
      }
    }
  }
  squish::CompressMasked(rgba, mask, out, plan.flags);
  if (plan.snorm) {
    UnsignedEndpointsToSigned(out);
    if (plan.kind == Kind::RedGreen) UnsignedEndpointsToSigned(out + 8);
  }
}

void EncodeBand(const Plan& plan, const PixelSource& src, std::uint8_t* out, std::uint32_t first_row,
                std::uint32_t end_row) {
  const std::uint32_t blocks_x = (src.width + 3) / 4;
  std::uint8_t* block = out + std::size_t{first_row} * blocks_x * plan.block_bytes;
  for (std::uint32_t by = first_row; by < end_row; ++by) {
    const std::uint32_t y0 = by * 4;
    const unsigned rows = std::min<std::uint32_t>(4, src.height - y0);
    const std::uint8_t* row = src.data + std::size_t{y0} * src.bytes_per_row;
    for (std::uint32_t bx = 0; bx < blocks_x; ++bx, block += plan.block_bytes) {
      const std::uint32_t x0 = bx * 4;
      EncodeBlock(plan, row + std::size_t{x0} * 4, src.bytes_per_row, std::min<std::uint32_t>(4, src.width - x0), rows,
                  block);
    }
  }
}

// The machine's cores, or LMIMAGE_BLOCKS_THREADS when set (see astc.cpp).
unsigned Threads() {
  unsigned n = std::thread::hardware_concurrency();
  if (const char* env = std::getenv("LMIMAGE_BLOCKS_THREADS")) {
    const long v = std::strtol(env, nullptr, 10);
    if (v > 0 && v <= 256) n = static_cast<unsigned>(v);
  }
  return n == 0 ? 1 : n;
}

}  // namespace

bool BCEncodes(CompressFormat format) {
  Plan plan;
  return MakePlan(format, Quality::Normal, &plan);
}

bool EncodeBC(CompressFormat format, const PixelSource& src, std::uint8_t* out, Quality quality) {
  Plan plan;
  if (!MakePlan(format, quality, &plan)) return false;
  const std::uint32_t blocks_x = (src.width + 3) / 4;
  const std::uint32_t blocks_y = (src.height + 3) / 4;
  // Bands of at least 4096 blocks: below that a thread costs more than it saves.
  constexpr std::uint64_t kMinBandBlocks = 4096;
  const std::uint64_t total = std::uint64_t{blocks_x} * blocks_y;
  const unsigned threads = static_cast<unsigned>(
      std::min<std::uint64_t>({Threads(), blocks_y, (total + kMinBandBlocks - 1) / kMinBandBlocks}));
  if (threads <= 1) {
    EncodeBand(plan, src, out, 0, blocks_y);
    return true;
  }
  // Band t covers block rows [t * blocks_y / n, (t + 1) * blocks_y / n); the
  // calling thread takes band 0, and any band whose thread cannot be started.
  std::vector<std::thread> pool;
  std::vector<unsigned> own;
  try {
    pool.reserve(threads - 1);
    own.reserve(threads);
  } catch (...) {
    EncodeBand(plan, src, out, 0, blocks_y);
    return true;
  }
  auto bound = [&](unsigned t) { return static_cast<std::uint32_t>(std::uint64_t{blocks_y} * t / threads); };
  own.push_back(0);
  for (unsigned t = 1; t < threads; ++t) {
    try {
      pool.emplace_back(EncodeBand, std::cref(plan), std::cref(src), out, bound(t), bound(t + 1));
    } catch (...) {
      own.push_back(t);
    }
  }
  for (const unsigned t : own) EncodeBand(plan, src, out, bound(t), bound(t + 1));
  for (std::thread& t : pool) t.join();
  return true;
}

}  // namespace lumo::image::blocks::detail
