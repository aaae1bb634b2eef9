// ASTC through libastcenc: 2-D and 3-D blocks decoded with the LDR (or LDR
// sRGB) profile to 8-bit RGBA, 2-D blocks encoded on every core.
//
// Blocks astcenc cannot decode (reserved encodings, void-extent blocks with
// bad coordinates, HDR endpoints under the LDR profile) come out in its error
// colour, opaque magenta, as the format defines for LDR decoders.
#include <astcenc.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

#include "blocks/block_kit.h"

namespace lumo::image::blocks::detail {
namespace {

constexpr std::uint32_t kFirst2D = 31, kLast2D = 44, kLast3D = 54;

// Contexts are costly to make (astcenc builds the block size's decimation and
// partition tables: about 1 ms for a decoder, tens of ms for a thorough
// encoder) and serve one image at a time, so finished ones wait in a pool for
// the next call with the same settings. Parallel callers each get their own.
struct ContextKey {
  unsigned bx, by, bz;
  astcenc_profile profile;
  int quality;  // -1: decode only
  unsigned threads;
  bool operator==(const ContextKey& o) const {
    return bx == o.bx && by == o.by && bz == o.bz && profile == o.profile && quality == o.quality &&
           threads == o.threads;
  }
};

struct PooledContext {
  ContextKey key;
  astcenc_context* context;
};

class ContextPool {
 public:
  astcenc_context* Take(const ContextKey& key) noexcept {
    try {
      std::lock_guard<std::mutex> lock(mutex_);
      for (std::size_t i = 0; i < free_.size(); ++i) {
        if (!(free_[i].key == key)) continue;
        astcenc_context* context = free_[i].context;
        free_.erase(free_.begin() + static_cast<std::ptrdiff_t>(i));
        return context;
      }
    } catch (...) {
      return nullptr;
    }
    return Make(key);
  }

  void Give(const ContextKey& key, astcenc_context* context) noexcept {
    try {
      std::lock_guard<std::mutex> lock(mutex_);
      // A handful of settings is all a pipeline uses; beyond that, let one go.
      if (free_.size() >= kMaxFree) {
        astcenc_context_free(free_.front().context);
        free_.erase(free_.begin());
      }
      free_.push_back({key, context});
    } catch (...) {
      astcenc_context_free(context);
    }
  }

 private:
  static constexpr std::size_t kMaxFree = 16;

  static astcenc_context* Make(const ContextKey& key) noexcept {
    static const float kPresets[] = {ASTCENC_PRE_FAST, ASTCENC_PRE_MEDIUM, ASTCENC_PRE_THOROUGH};
    const bool decode = key.quality < 0;
    astcenc_config config;
    const float preset = decode ? ASTCENC_PRE_FASTEST : kPresets[key.quality];
    if (astcenc_config_init(key.profile, key.bx, key.by, key.bz, preset, decode ? ASTCENC_FLG_DECOMPRESS_ONLY : 0,
                            &config) != ASTCENC_SUCCESS)
      return nullptr;
    astcenc_context* context = nullptr;
    try {  // astcenc allocates with operator new
      if (astcenc_context_alloc(&config, key.threads, &context) != ASTCENC_SUCCESS) return nullptr;
    } catch (...) {
      return nullptr;
    }
    return context;
  }

  std::mutex mutex_;
  std::vector<PooledContext> free_;
};

// Never destroyed: pooled contexts stay reachable until exit, and no static
// destructor races a thread still decoding.
ContextPool* Pool() {
  static ContextPool* pool = new (std::nothrow) ContextPool;
  return pool;
}

// A context borrowed from the pool for the length of one call.
class Borrowed {
 public:
  explicit Borrowed(const ContextKey& key) : key_(key), context_(Pool() != nullptr ? Pool()->Take(key) : nullptr) {}
  ~Borrowed() {
    if (context_ != nullptr) Pool()->Give(key_, context_);
  }
  Borrowed(const Borrowed&) = delete;
  Borrowed& operator=(const Borrowed&) = delete;
  astcenc_context* get() const { return context_; }

 private:
  ContextKey key_;
  astcenc_context* context_;
};

constexpr astcenc_swizzle kIdentity{ASTCENC_SWZ_R, ASTCENC_SWZ_G, ASTCENC_SWZ_B, ASTCENC_SWZ_A};

// Runs astcenc_compress_image with thread indices 0..n-1, the calling thread
// being index 0. astcenc hands out the blocks dynamically and lets any subset
// of a context's threads take part, so a thread that cannot be started only
// costs speed.
bool CompressOnThreads(astcenc_context* context, astcenc_image& image, std::uint8_t* out, std::size_t out_size,
                       unsigned threads) {
  std::atomic<bool> ok{true};
  auto work = [&](unsigned index) {
    if (astcenc_compress_image(context, &image, &kIdentity, out, out_size, index) != ASTCENC_SUCCESS)
      ok.store(false, std::memory_order_relaxed);
  };
  std::vector<std::thread> pool;
  try {
    pool.reserve(threads - 1);
    for (unsigned i = 1; i < threads; ++i) pool.emplace_back(work, i);
  } catch (...) {
  }
  work(0);
  for (std::thread& t : pool) t.join();
  astcenc_compress_reset(context);
  return ok.load();
}

void Footprint(CompressFormat format, unsigned* bx, unsigned* by, unsigned* bz) {
  unsigned char w = 0, h = 0, d = 0;
  CompressFormatBlockDimension(format, &w, &h, &d);
  *bx = w;
  *by = h;
  *bz = d;
}

}  // namespace

bool ASTCDecodes(CompressFormat format) {
  const auto v = static_cast<std::uint32_t>(format);
  return v >= kFirst2D && v <= kLast3D;
}

bool ASTCEncodes(CompressFormat format) {
  const auto v = static_cast<std::uint32_t>(format);
  return v >= kFirst2D && v <= kLast2D;
}

bool DecodeASTC(const BlockSource& src, const PixelTarget& dst) {
  if (!ASTCDecodes(src.format)) return false;
  unsigned bx = 0, by = 0, bz = 0;
  Footprint(src.format, &bx, &by, &bz);
  if (bx == 0 || by == 0 || bz == 0) return false;
  const Borrowed context({bx, by, bz, src.srgb ? ASTCENC_PRF_LDR_SRGB : ASTCENC_PRF_LDR, -1, 1});
  if (context.get() == nullptr) return false;

  // astcenc writes tightly packed slices; rows with padding go through a
  // scratch copy of the image.
  const std::size_t row = std::size_t{src.width} * 4;
  const std::size_t slice = row * src.height;
  const bool direct = dst.bytes_per_row == row;
  std::unique_ptr<std::uint8_t[]> scratch;
  if (!direct) {
    scratch.reset(new (std::nothrow) std::uint8_t[slice * src.depth]);
    if (!scratch) return false;
  }
  std::unique_ptr<void*[]> slices(new (std::nothrow) void*[src.depth]);
  if (!slices) return false;
  for (std::uint32_t z = 0; z < src.depth; ++z) slices[z] = direct ? dst.data + z * slice : scratch.get() + z * slice;

  astcenc_image image{src.width, src.height, src.depth, ASTCENC_TYPE_U8, slices.get()};
  const astcenc_error status = astcenc_decompress_image(context.get(), src.data, src.size, &image, &kIdentity, 0);
  astcenc_decompress_reset(context.get());
  if (status != ASTCENC_SUCCESS) return false;
  if (!direct) {
    const std::size_t rows = std::size_t{src.height} * src.depth;
    for (std::size_t y = 0; y < rows; ++y) std::memcpy(dst.data + y * dst.bytes_per_row, scratch.get() + y * row, row);
  }
  return true;
}

bool EncodeASTC(CompressFormat format, bool srgb, const PixelSource& src, std::uint8_t* out, Quality quality) {
  if (!ASTCEncodes(format)) return false;
  const int q = static_cast<int>(quality);
  if (q < 0 || q > 2) return false;
  unsigned bx = 0, by = 0, bz = 0;
  Footprint(format, &bx, &by, &bz);
  if (bx == 0 || by == 0 || bz != 1) return false;
  const std::size_t blocks = std::size_t{(src.width + bx - 1) / bx} * ((src.height + by - 1) / by);
  // The context is made for every core; small images start fewer threads.
  const unsigned threads = EncoderThreads();
  const Borrowed context({bx, by, 1, srgb ? ASTCENC_PRF_LDR_SRGB : ASTCENC_PRF_LDR, q, threads});
  if (context.get() == nullptr) return false;
  const unsigned started = static_cast<unsigned>(std::min<std::size_t>(threads, (blocks + 63) / 64));

  // astcenc reads tightly packed rows (and never writes its input).
  const std::size_t row = std::size_t{src.width} * 4;
  std::unique_ptr<std::uint8_t[]> packed;
  const std::uint8_t* pixels = src.data;
  if (src.bytes_per_row != row) {
    packed.reset(new (std::nothrow) std::uint8_t[row * src.height]);
    if (!packed) return false;
    for (std::size_t y = 0; y < src.height; ++y)
      std::memcpy(packed.get() + y * row, src.data + y * src.bytes_per_row, row);
    pixels = packed.get();
  }
  void* slice = const_cast<std::uint8_t*>(pixels);
  astcenc_image image{src.width, src.height, 1, ASTCENC_TYPE_U8, &slice};
  return CompressOnThreads(context.get(), image, out, blocks * 16, started);
}

}  // namespace lumo::image::blocks::detail
