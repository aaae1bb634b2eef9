// What the block codec tests share: independent command-line decoders run on
// corpus files, pictures loaded top-down as 8-bit RGBA, the differences
// between two pictures, blocks decoded into exactly sized buffers and checked
// against worked-out pixels, and random blocks.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "lumo/image/compressed_formats.h"
#include "lumo/image/pyramid.h"
#include "lumo/image/surface_data.h"

namespace lumo::image::testing {

// Whether `tool` is on the PATH (tests that need it skip with its name otherwise).
bool ToolAvailable(const std::string& tool);
// Runs `command` through the shell, output discarded; true on exit status 0.
bool RunCommand(const std::string& command);
// A fresh path under the test's temporary folder, ending in `name`.
std::string ScratchPath(const std::string& name);

// Every level of the file at `path` through the factory, or Null.
std::shared_ptr<Pyramid> LoadPyramid(const std::string& path);
// Surface `index` of level `level` of a file, converted to A8B8G8R8 and put
// top-down (row 0 at the top); Null when anything fails. Compressed surfaces
// are decoded with the block library first; sRGB values are kept as stored.
std::shared_ptr<SurfaceData> LoadRGBA8(const std::string& path, unsigned long long level = 0,
                                       unsigned long long index = 0);
// The same for one surface of a pyramid.
std::shared_ptr<SurfaceData> ToRGBA8(const Pyramid& pyramid, unsigned long long level, unsigned long long index);

struct Difference {
  int max = 0;              // largest absolute difference of one channel value
  double mean = 0;          // mean absolute difference over the compared channels
  double psnr = 0;          // over the compared channels; 99 when equal
  bool comparable = false;  // same size, both A8B8G8R8
};
// Channel i (R, G, B, A in memory order) is compared when bit i of `channels` is set.
Difference Compare(const SurfaceData& a, const SurfaceData& b, unsigned channels = 0xF);
// The same for tight RGBA8 bytes (comparable when the sizes agree).
Difference Compare(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b, unsigned channels = 0xF);

using Block = std::vector<std::uint8_t>;
PixelFormatDescriptor Compressed(CompressFormat f, bool srgb = false);

// Blocks decoded into exactly w x h x d pixels (the sanitizer build polices
// the bounds) as R, G, B, A values per pixel, top row first: bytes or 16-bit
// values (halves as bit patterns), signed where the decoded format is. Empty
// when the decode fails.
std::vector<int> DecodeValues(PixelFormatDescriptor f, const Block& blocks, unsigned w, unsigned h, unsigned d = 1);
// The values of a decoded surface; bottom-up surfaces are turned top-down.
std::vector<int> Values(const SurfaceData& decoded, bool bottom_up = false);

// Each {pixel index, R, G, B, A} of `want` in the w x h decode of `blocks`.
::testing::AssertionResult DecodesTo(PixelFormatDescriptor f, const Block& blocks, unsigned w, unsigned h,
                                     const std::vector<std::vector<int>>& want);

// `rounds` random fills of the blocks of w x h x d: each decodes, and every
// pixel's values satisfy `ok` (when given).
::testing::AssertionResult RandomBlocksDecode(PixelFormatDescriptor f, unsigned w, unsigned h, unsigned d, int rounds,
                                              const std::function<bool(const int* rgba)>& ok = nullptr);

}  // namespace lumo::image::testing
