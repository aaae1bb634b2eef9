#include "plugins/decode_limit.h"

#include <atomic>

#include "format/checked_size.h"
#include "lumo/image/export.h"
#include "lumo/image/image_factory.h"
#include "lumo/log/log.h"

namespace lumo::image {
namespace {

// Relaxed: the value guards allocations and orders nothing else.
std::atomic<unsigned long long> max_decode_pixels{kDefaultMaxDecodePixels};

}  // namespace

void SetMaxDecodePixels(unsigned long long pixels) { max_decode_pixels.store(pixels, std::memory_order_relaxed); }

unsigned long long MaxDecodePixels() { return max_decode_pixels.load(std::memory_order_relaxed); }

bool detail::WithinDecodeLimit(const char* format_name, unsigned long long width, unsigned long long height,
                               unsigned long long depth) {
  const unsigned long long limit = MaxDecodePixels();
  unsigned long long pixels = 0;
  if (!checked::MulOverflows(width, height, &pixels) && !checked::MulOverflows(pixels, depth, &pixels) &&
      pixels <= limit) {
    return true;
  }
  if (depth > 1) {
    lumo::log::LogError(LogChannel, "%s image of %llu x %llu x %llu pixels exceeds the decode limit of %llu pixels",
                        format_name, width, height, depth, limit);
  } else {
    lumo::log::LogError(LogChannel, "%s image of %llu x %llu pixels exceeds the decode limit of %llu pixels",
                        format_name, width, height, limit);
  }
  return false;
}

}  // namespace lumo::image
