// The KTX plugin (reading and writing KTX version 1.1 textures), and
// what a decoded KTX file says beyond its pyramid: the header's OpenGL
// fields, the keys of its key/value data, its orientation and its alpha
// plane. That information stays in the decoded image so that tools (lmimage
// info) can show it; it is internal to the library, not public API.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "lumo/image/export.h"
#include "lumo/image/image_factory.h"

namespace lumo::image::detail {

// The plugin's single instance (a function-local static, never deleted).
ImagePlugin* KTXPlugin();

// Keys listed per file, and characters kept per key or orientation text: a
// file's key/value data may hold one entry per four bytes, so the lists are
// bounded whatever the file declares (KTXFileInfo::key_count counts them all).
constexpr std::size_t kKTXMaxListedKeys = 64;
constexpr std::size_t kKTXMaxTextLength = 255;

struct KTXFileInfo {
  // The header fields that name the pixel format, as stored.
  std::uint32_t gl_type = 0, gl_type_size = 0, gl_format = 0, gl_internal_format = 0, gl_base_internal_format = 0;
  std::uint32_t key_value_bytes = 0;  // bytesOfKeyValueData
  // Every entry's key in file order (the first kKTXMaxListedKeys; a key
  // without its terminating NUL is listed as far as it goes).
  std::vector<std::string> keys;
  std::uint64_t key_count = 0;
  // The "KTXOrientation" value up to its NUL, when the file has that key; rows
  // run bottom-up (the pyramid's origin is BottomUp) when it contains "T=u".
  bool has_orientation = false;
  std::string orientation;
  // The plane GetPyramid(true) gives: A8 from "AlChann" (with "AlPitch"),
  // ETC1 from "AlChanl" (which wins when both are present).
  enum class AlphaPlane { None, A8, ETC1 };
  AlphaPlane alpha_plane = AlphaPlane::None;
  std::uint32_t alpha_pitch = 0;  // the "AlPitch" value; 0 when absent
};

// What the KTX plugin read besides the pyramid; nullptr for an image that the
// KTX plugin did not decode. Valid while the image lives. Exported for the
// tool and the tests, which link the library; this header is not installed.
LUMO_IMAGE_API const KTXFileInfo* KTXInfoOf(const Image& image);

}  // namespace lumo::image::detail
