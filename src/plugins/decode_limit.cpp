#include <atomic>

#include "lumo/image/image_factory.h"

namespace lumo::image {
namespace {

// Relaxed: the value guards allocations and orders nothing else.
std::atomic<unsigned long long> max_decode_pixels{kDefaultMaxDecodePixels};

}  // namespace

void SetMaxDecodePixels(unsigned long long pixels) { max_decode_pixels.store(pixels, std::memory_order_relaxed); }

unsigned long long MaxDecodePixels() { return max_decode_pixels.load(std::memory_order_relaxed); }

}  // namespace lumo::image
