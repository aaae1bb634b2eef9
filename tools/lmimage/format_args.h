// Pixel-format arguments: a name (A8R8G8B8, s_DXT5) or a descriptor value in hex (0x603).
#pragma once

#include <string>

#include "lumo/image/formats.h"

namespace lumo::image::cli {

struct Resolved {
  PixelFormatDescriptor descriptor;
  PixelFormatMeta meta;
  std::string name;
};

// Throws a usage Error naming the argument when it is not a usable format.
Resolved ResolveFormat(const std::string& arg);

// The library's name, or "" when it has none.
std::string NameOf(const PixelFormatDescriptor& descriptor);

std::string Hex(unsigned long long value);

}  // namespace lumo::image::cli
