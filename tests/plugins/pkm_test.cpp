// PKM and PKMA: header rules, the blocks as a view of the file, writing and
// round trips of every format code. Hostile input is covered for every
// container in hostile_input_test.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "lumo/image/image_factory.h"
#include "lumo/image/mipmaps.h"
#include "lumo/image/pyramid.h"
#include "support/bytes.h"
#include "support/descriptors.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/surfaces.h"

namespace lumo::image {
namespace {

using testing::Bytes;
using testing::Decode;
using testing::Get16BE;
using testing::LogCapture;
using testing::Named;
using testing::Put16BE;
using testing::Tight;

Bytes Write(const char* format, unsigned long long width, unsigned long long height, ImageFormat container) {
  return testing::Encode(*Pyramid::Make(testing::Filled(width, height, Named(format), 5), ImageOrigin::TopDown),
                         container);
}

TEST(PKMWrite, HeaderOfAnETC1SurfaceItsPKMATwinAndRefusals) {
  const Bytes pkm = Write("ETC1", 30, 17, ImageFormat::PKM), pkma = Write("ETC1", 30, 17, ImageFormat::PKMA);
  ASSERT_EQ(pkm.size(), 16u + 8 * 5 * 8);
  EXPECT_EQ(std::string(pkm.data(), 6), std::string("PKM 10", 6));
  EXPECT_EQ(std::make_tuple(Get16BE(pkm, 6), Get16BE(pkm, 8), Get16BE(pkm, 10), Get16BE(pkm, 12), Get16BE(pkm, 14)),
            std::make_tuple(0u, 32u, 20u, 30u, 17u));
  EXPECT_EQ(std::string(pkma.data(), 4), "PKMA");
  EXPECT_TRUE(std::equal(pkm.begin() + 4, pkm.end(), pkma.begin() + 4, pkma.end()));

  LogCapture log;
  EXPECT_TRUE(Write("A8R8G8B8", 4, 4, ImageFormat::PKM).empty());
  EXPECT_TRUE(log.lines.empty()) << "uncompressed formats are refused quietly";
  EXPECT_TRUE(Write("s_ETC1", 4, 4, ImageFormat::PKMA).empty());
  EXPECT_TRUE(Write("DXT1", 4, 4, ImageFormat::PKM).empty());
  EXPECT_EQ(log.All(),
            "[ImagePKM::Serialize]Unsupport pixel format s_ETC1!\n"
            "[ImagePKM::Serialize]Unsupport pixel format DXT1!\n");
}

TEST(PKMRoundTrip, EveryCodeInBothContainers) {
  // clang-format off
  const char* const formats[] = {"ETC1", "ETC2_RGB8", "", "ETC2_RGBA8", "ETC2_RGB8A1", "EAC_R11", "EAC_RG11",
                                 "EAC_SIGNED_R11", "EAC_SIGNED_RG11", "s_ETC2_RGB8", "s_ETC2_RGBA8", "s_ETC2_RGB8A1"};
  // clang-format on
  for (unsigned code = 0; code < std::size(formats); ++code) {
    if (*formats[code] == '\0') continue;  // code 2 is never written
    for (const ImageFormat container : {ImageFormat::PKM, ImageFormat::PKMA}) {
      SCOPED_TRACE(std::string(formats[code]) + " " + ImageFactory::FormatToString(container));
      const auto source = testing::Filled(13, 6, Named(formats[code]), code);
      const Bytes file = testing::Encode(*Pyramid::Make(source, ImageOrigin::TopDown), container);
      ASSERT_FALSE(file.empty());
      EXPECT_EQ(std::make_tuple(file[4], Get16BE(file, 6)), std::make_tuple(code == 0 ? '1' : '2', code));
      const auto shared = testing::Shared(file);
      const auto image = ImageFactory::Instance()->Create(shared, file.size());
      ASSERT_NE(image, Image::Null);
      const auto pyramid = image->GetPyramid(false);
      EXPECT_EQ(std::make_tuple(image->Format(), ToString(pyramid->Format()), image->Width(), image->Height(),
                                image->Type(), image->IsArray(), image->Origin()),
                std::make_tuple(container, formats[code], size_t{13}, size_t{6}, MipmapType::Surface, false,
                                ImageOrigin::TopDown));
      EXPECT_EQ(pyramid->GetSurface(0)->Buffer(), shared.get() + 16) << "the blocks are a view of the file";
      EXPECT_EQ(Tight(*pyramid->GetSurface(0)->Data()), Tight(*source->Data()));
    }
  }
}

TEST(PKMRead, HeaderRules) {
  const std::string kUnknown = "PKM(A) of version 2.0 does not contain a texture of known format.\n";
  const std::string kArea = "PKM(A) invalid area size.\n";
  struct Case {
    const char* name;
    std::vector<std::pair<size_t, unsigned>> fields;  // 16-bit fields to change
    size_t cut;                                       // bytes dropped from the end
    std::string log;
  } cases[] = {
      {"extended width 4 above the width", {{8, 34}}, 0, kArea},
      {"extended height below the image", {{10, 16}}, 0, kArea},
      // clang-format off
      {"version 1.0 with code 1", {{4, 0x3130}}, 0,
       "PKM(A) of version 1.0 does not contain a texture of known format.\n"},
      {"old encoder", {{6, 2}}, 0,
       "PKM(A) contains a compressed texture created using an old version of ETCPACK.\n" + kUnknown},
      // clang-format on
      {"code 12", {{6, 12}}, 0, kUnknown},
      {"zero width", {{8, 0}, {12, 0}}, 0, "PKM(A) width and height must not be 0.\n"},
      {"one byte short", {}, 1, "PKM(A) image memory overflow: expect 336, current 335, refuse loading!\n"},
  };
  const Bytes good = Write("ETC2_RGB8", 30, 17, ImageFormat::PKM);  // version 2.0, code 1, 32 x 20
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Bytes b(good.begin(), good.end() - static_cast<std::ptrdiff_t>(c.cut));
    for (const auto& [offset, value] : c.fields) Put16BE(&b, offset, value);
    LogCapture log;
    EXPECT_EQ(Decode(b), Image::Null);
    EXPECT_EQ(log.All(), c.log);
  }
}

}  // namespace
}  // namespace lumo::image
