// The decode limit as the decoders see it.
#pragma once

namespace lumo::image::detail {

// True when a picture of width x height x depth pixels is within the decode
// limit. Otherwise logs one error naming the declared size and the limit,
// prefixed with `format_name`, and returns false. Decoders call it before
// allocating pixels.
bool WithinDecodeLimit(const char* format_name, unsigned long long width, unsigned long long height,
                       unsigned long long depth = 1);

}  // namespace lumo::image::detail
