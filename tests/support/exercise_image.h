// What the fuzz target and the hostile-input tests do with every input: decode
// it through the factory, read every byte of every view it hands out, and
// write it back in its own format. Sanitizers then see any view that reaches
// past the file and any writer that trusts a bad shape.
#pragma once

#include <cstddef>
#include <memory>

#include "lumo/image/image_factory.h"

namespace lumo::image::testing {

// Reads every byte of every level, face, layer and slice of `image` (block
// formats also decoded, where the block library is linked), then serializes
// its pyramid through the plugin of image.Format().
void ExerciseImage(Image& image);

// Decodes `size` bytes at `data` with format detection (the image may keep
// `data` alive) and exercises what comes back. Returns the image, or Null.
std::shared_ptr<Image> DecodeAndExercise(const std::shared_ptr<char>& data, size_t size);

}  // namespace lumo::image::testing
