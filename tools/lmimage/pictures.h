// Pixels for people and for measurements, shared by preview and diff: every
// element of a texture (level, face or layer, slice) as float RGBA, whatever
// its container stored.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "lumo/image/pyramid.h"
#include "lumo/image/surface_data.h"

namespace lumo::image::cli {

// One 2-D piece of a texture, in float R, G, B, A (A32fB32fG32fR32f), top row first.
struct Element {
  unsigned long long level = 0;
  unsigned long long index = 0;  // face, layer or slice within the level
  std::string label;             // "level 1 face -X", "level 0 slice 3", ...
  std::shared_ptr<SurfaceData> pixels;
};

struct Channels {
  bool present[4] = {false, false, false, false};  // R, G, B, A
  bool is_signed = false;                          // values run from -1
  bool is_float = false;                           // values may exceed 1
};

// What the stored format holds, for display and for choosing what to compare.
Channels ChannelsOf(const PixelFormatDescriptor& format);

// Writes `image` as a PNG file at `path` (atomically); a Failure names the path
// and `what` ("the sheet", "the difference image").
void WritePng(const std::shared_ptr<SurfaceData>& image, const std::string& path, const std::string& what);

// Every element of `pyramid` (blocks decoded), or a Failure naming `path`.
std::vector<Element> Elements(const Pyramid& pyramid, const std::string& path);

}  // namespace lumo::image::cli
