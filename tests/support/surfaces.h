// Surfaces and mip chains with known or random contents, and their pixel
// bytes as a file stores them.
#pragma once

#include <memory>
#include <string>

#include "lumo/image/formats.h"
#include "lumo/image/mipmaps.h"
#include "lumo/image/pyramid.h"
#include "lumo/image/surface_data.h"

namespace lumo::image::testing {

// Rows without their padding, as a file stores them (block data unchanged).
std::string Tight(const SurfaceData& surface);

// The Tight bytes of a level's elements in stored order: every face, layer or
// slice, or only the first unless `all` (a volume: always every slice; one of
// 3-D blocks, which has no slices to view: its stored blocks).
std::string LevelBytes(const Pyramid& pyramid, unsigned long long level, bool all = true);

// A surface with rows padded to four bytes whose byte i holds first + i.
std::shared_ptr<Surface> CountingSurface(unsigned long long width, unsigned long long height,
                                         PixelFormatDescriptor format = formats::R8, int first = 1);

// Random bytes from `seed` in a bitmap with rows padded to four bytes.
std::shared_ptr<Surface> Filled(unsigned long long width, unsigned long long height, PixelFormatDescriptor format,
                                unsigned seed);

// A top-down chain of `levels` levels of one kind with Filled surfaces; `n` is
// the layer count of an array and the depth of a volume (halved per level).
std::shared_ptr<Pyramid> Chain(MipmapType kind, unsigned long long width, unsigned long long height,
                               unsigned long long n, PixelFormatDescriptor format, unsigned long long levels);

}  // namespace lumo::image::testing
