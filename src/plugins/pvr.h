// The PVR file plugin (reading versions 2 and 3, writing version 3).
#pragma once

#include <cstdint>
#include <vector>

#include "lumo/image/export.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/mipmaps.h"

namespace lumo::image::detail {

// The plugin's single instance (a function-local static, never deleted).
ImagePlugin* PVRPlugin();

// One metadata entry of a version 3 file; its data lies at `offset` in the file.
struct PVRMetadataEntry {
  std::uint32_t fourcc = 0;
  std::uint32_t key = 0;
  unsigned long long offset = 0;
  unsigned long long size = 0;
};

// What a PVR file says beyond the Image interface, for tools that describe files.
struct PVRFileInfo {
  unsigned version = 3;  // 2 for a file with the older header
  ImageOrigin origin = ImageOrigin::TopDown;
  std::vector<PVRMetadataEntry> metadata;  // in file order; none for version 2
};

// The file facts of an image the PVR plugin decoded; nullptr for any other
// image. Exported for the command-line tool and the tests, which link the
// shared library.
LUMO_IMAGE_API const PVRFileInfo* PVRInfoOf(const Image& image);

}  // namespace lumo::image::detail
