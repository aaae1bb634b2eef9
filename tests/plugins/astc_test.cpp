// ASTC reading (block shapes, surfaces and volumes over the file bytes,
// bounds) and writing (header, sRGB, volumes). Hostile input is covered for
// every container in hostile_input_test.cpp.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "lumo/image/image_factory.h"
#include "lumo/image/mipmaps.h"
#include "lumo/image/pyramid.h"
#include "lumo/image/surface_data.h"
#include "support/bytes.h"
#include "support/container_files.h"
#include "support/descriptors.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/surfaces.h"

namespace lumo::image {
namespace {

using ull = unsigned long long;
using testing::ASTCFile;
using testing::Bytes;
using testing::Decode;
using testing::Encode;
using testing::LogCapture;
using testing::Named;

constexpr ImageFormat kASTC = ImageFormat::ASTC;

TEST(ASTCRead, BlockShapesAndBounds) {
  struct Case {
    const char* name;
    int bw, bh, bd;
    std::uint32_t w, h, d;
    size_t payload;
    const char* format;  // nullptr: refused
    MipmapType type;
    const char* log;  // the one expected log line, or ""
  };
  // clang-format off
  const Case cases[] = {
      {"2-D blocks", 4, 4, 1, 8, 8, 1, 64, "ASTC_RGBA_4x4", MipmapType::Surface, ""},
      {"trailing bytes", 12, 10, 1, 13, 9, 1, 32 + 7, "ASTC_RGBA_12x10", MipmapType::Surface, ""},
      {"2-D blocks, depth 6", 4, 4, 1, 8, 8, 6, 384, "ASTC_RGBA_4x4", MipmapType::Volume, ""},
      {"3-D blocks", 3, 3, 3, 6, 6, 6, 128, "ASTC_RGBA_3x3x3", MipmapType::Volume, ""},
      {"3-D blocks, depth 1: a surface, too short", 6, 6, 5, 6, 6, 1, 16, nullptr, {},
       "ASTC blocks memory overflow: expect 592, current 32, refuse loading!"},
      {"block depth 2", 4, 4, 2, 8, 8, 1, 64, nullptr, {}, "Unsupport astc block 4 4 2"},
      {"7x7", 7, 7, 1, 8, 8, 1, 64, nullptr, {}, ""},
      {"3x3x1", 3, 3, 1, 8, 8, 1, 144, nullptr, {}, ""},
      {"blocks cut short", 4, 4, 1, 8, 8, 1, 63, nullptr, {},
       "ASTC blocks memory overflow: expect 80, current 79, refuse loading!"},
      {"huge", 6, 6, 1, 0xFFFFFF, 0xFFFFFF, 1, 16, nullptr, {},
       "ASTC blocks memory overflow: expect 125100019475360, current 32, refuse loading!"},
      {"no pixels", 4, 4, 1, 0, 8, 1, 64, nullptr, {}, "ASTC image of 0 x 8 x 1 pixels holds no pixels."},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Bytes file = ASTCFile(c.bw, c.bh, c.bd, c.w, c.h, c.d, c.payload);
    const auto buffer = testing::Shared(file);
    LogCapture log;
    const auto image = ImageFactory::Instance()->Create(buffer, file.size());
    EXPECT_EQ(log.Texts(), *c.log == '\0' ? std::vector<std::string>{} : std::vector<std::string>{c.log});
    if (c.format == nullptr) {
      EXPECT_EQ(image, Image::Null);
      continue;
    }
    ASSERT_NE(image, Image::Null);
    const auto pyramid = image->GetPyramid(false);
    const auto level = pyramid->GetMipmap(0);
    EXPECT_EQ(std::make_tuple(ToString(pyramid->Format()), image->Type(), level->Type(), pyramid->LevelsCurrent()),
              std::make_tuple(std::string(c.format), c.type, c.type, 1ull));
    EXPECT_EQ(std::make_tuple(image->Width(), image->Height(), pyramid->Depth(), image->IsArray(), image->Origin()),
              std::make_tuple(size_t{c.w}, size_t{c.h}, ull{c.d}, false, ImageOrigin::TopDown));
    const auto* volume = dynamic_cast<const Volume*>(level.get());
    const char* start = volume != nullptr ? volume->Buffer() : pyramid->GetSurface(0)->Buffer();
    EXPECT_EQ(start, buffer.get() + 16) << "the blocks are viewed in place";
  }
  LogCapture log;
  const Bytes header = ASTCFile(4, 4, 1, 4, 4, 1, 0);
  EXPECT_EQ(Decode(Bytes(header.begin(), header.begin() + 15), kASTC), Image::Null);
  EXPECT_FALSE(ImageFactory::Instance()->CheckFormat(kASTC, header.data(), 3));
  EXPECT_TRUE(ImageFactory::Instance()->CheckFormat(kASTC, header.data(), 4));
  EXPECT_TRUE(log.lines.empty()) << log.All();
}

TEST(ASTCWrite, HeaderBlocksLevelZeroAndRefusals) {
  // An sRGB surface writes the plain header; reading gives the plain format.
  const auto srgb = testing::Filled(37, 21, Named("s_ASTC_RGBA_4x4"), 3);
  size_t size = 0;
  const auto file = ImageFactory::Instance()->Serialize(kASTC, srgb->Data().get(), &size, 0);
  ASSERT_TRUE(file);
  ASSERT_EQ(size, 16u + 10 * 6 * 16);
  EXPECT_EQ(Bytes(file.get(), file.get() + 16), ASTCFile(4, 4, 1, 37, 21, 1, 0));
  EXPECT_EQ(std::string(file.get() + 16, size - 16), std::string(srgb->Buffer(), srgb->Size()));
  const auto back = Decode(Bytes(file.get(), file.get() + size));
  ASSERT_NE(back, Image::Null);
  EXPECT_EQ(ToString(back->GetPyramid(false)->Format()), "ASTC_RGBA_4x4");

  // Sizes are stored in 24 bits, least significant byte first.
  const Bytes wide = Encode(*testing::Chain(MipmapType::Surface, 0x11170, 4, 1, Named("ASTC_RGBA_4x4"), 1), kASTC);
  ASSERT_GE(wide.size(), 16u);
  EXPECT_EQ(Bytes(wide.begin() + 7, wide.begin() + 10), (Bytes{'\x70', '\x11', '\x01'}));

  LogCapture log;
  EXPECT_TRUE(Encode(*testing::Chain(MipmapType::Surface, 4, 4, 1, Named("DXT1"), 1), kASTC).empty());
  std::shared_ptr<char> bytes(new char[16], array_deleter());
  const auto too_wide = SurfaceDataSharedMemory::Create(bytes, 0, Named("ASTC_RGBA_4x4"), 1ull << 24, 4, 0);
  EXPECT_FALSE(ImageFactory::Instance()->Serialize(kASTC, too_wide.get(), &size, 0));
  EXPECT_EQ(log.Texts(), (std::vector<std::string>{
                             "[ImageASTCPlugin::Serialize] Not support pfd DXT1!",
                             "[ImageASTCPlugin::Serialize] Size 16777216 x 4 x 1 does not fit an astc header!"}));

  // Only level 0, surface 0 goes: level 0 of a chain; the first slice of a
  // volume of 2-D blocks, one deep; a volume of 3-D blocks has no slice to write.
  EXPECT_EQ(Encode(*testing::Chain(MipmapType::Surface, 8, 8, 1, Named("ASTC_RGBA_4x4"), 3), kASTC).size(), 16u + 64);
  const Bytes volume = ASTCFile(4, 4, 1, 8, 8, 6, 384);
  Bytes first_slice(volume.begin(), volume.begin() + 16 + 64);
  first_slice[13] = 1;
  EXPECT_EQ(Encode(*Decode(volume)->GetPyramid(false), kASTC), first_slice);
  EXPECT_TRUE(Encode(*Decode(ASTCFile(4, 4, 4, 8, 8, 6, 128))->GetPyramid(false), kASTC).empty());
}

}  // namespace
}  // namespace lumo::image
