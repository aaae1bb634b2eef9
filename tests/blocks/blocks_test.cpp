// The block library's front end: decoded formats, and the size checks that
// stand between every codec family and the caller's buffers.
#include <gtest/gtest.h>

#include <vector>

#include "lumo/image/blocks.h"
#include "lumo/image/surface_data.h"

namespace lumo::image::blocks {
namespace {

TEST(BlocksFrontEnd, UncompressedFormatsAreNotDecoded) {
  EXPECT_FALSE(CanDecode(formats::A8B8G8R8));
  EXPECT_EQ(DecodedFormat(formats::R5G6B5), PixelFormatDescriptor{});
  EXPECT_FALSE(CanEncode(formats::A8B8G8R8));
  std::vector<char> out(64);
  const std::vector<char> in(64);
  EXPECT_FALSE(DecodeBlocks(formats::A8B8G8R8, in.data(), in.size(), 2, 2, 1, out.data(), out.size(), 8));
}

}  // namespace
}  // namespace lumo::image::blocks
