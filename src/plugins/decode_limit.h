// The decode limit as the decoders see it.
#pragma once

#include "format/checked_size.h"
#include "lumo/image/export.h"
#include "lumo/image/image_factory.h"
#include "lumo/log/log.h"

namespace lumo::image::detail {

// True when a picture of width x height x depth pixels is within the decode
// limit. Otherwise logs one error naming the declared size and the limit,
// prefixed with `format_name`, and returns false. Decoders call it before
// allocating pixels.
inline bool WithinDecodeLimit(const char* format_name, unsigned long long width, unsigned long long height,
                              unsigned long long depth = 1) {
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

}  // namespace lumo::image::detail
