// PVR reading (version 3 fields and metadata, version 2 conversion, bounds),
// writing (pixel format words, channel types, tight rows) and round trips.
// Hostile input and real files are covered for every container in
// hostile_input_test.cpp and corpus_test.cpp.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "lumo/image/image_factory.h"
#include "lumo/image/mipmaps.h"
#include "lumo/image/pyramid.h"
#include "plugins/pvr.h"
#include "support/bytes.h"
#include "support/container_files.h"
#include "support/descriptors.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/surfaces.h"

namespace lumo::image {
namespace {

using u32 = std::uint32_t;
using ull = unsigned long long;
using testing::Bytes;
using testing::Chain;
using testing::Decode;
using testing::Encode;
using testing::FourCC;
using testing::Get32;
using testing::LogCapture;
using testing::Named;
using testing::Put32;
using testing::PVRV2File;

constexpr ImageFormat kPVR = ImageFormat::PVR;
constexpr auto Entry = testing::PVRMetadataEntry;

// A hand-made version 3 header (4 x 4 "rgba" 8888 unless changed).
struct Header {
  std::string letters = "rgba";  // empty: `id` is a compressed-format id
  std::vector<u32> bits = {8, 8, 8, 8};
  u32 id = 0, colour_space = 0, channel_type = 0, width = 4, height = 4, depth = 1, surfaces = 1, faces = 1, mips = 1;
  Bytes metadata;
};

Bytes MakeFile(const Header& h, size_t payload) {
  Bytes b(52, 0);
  // clang-format off
  const u32 fields[] = {FourCC("PVR\x03"), 0, h.id, 0, h.colour_space, h.channel_type, h.height, h.width, h.depth,
                        h.surfaces, h.faces, h.mips, static_cast<u32>(h.metadata.size())};
  // clang-format on
  for (size_t i = 0; i < std::size(fields); ++i) Put32(&b, 4 * i, fields[i]);
  for (size_t i = 0; i < h.letters.size(); ++i) b[8 + i] = h.letters[i], b[12 + i] = static_cast<char>(h.bits[i]);
  b.insert(b.end(), h.metadata.begin(), h.metadata.end());
  for (size_t i = 0; i < payload; ++i) b.push_back(static_cast<char>(i * 7 + 3));
  return b;
}

// Loads `file`, expecting `format` (nullptr: refused) and exactly the log lines `log` ("" for none).
std::shared_ptr<Image> Expect(const Bytes& file, const char* format, const std::string& log = "") {
  LogCapture capture;
  auto image = Decode(file, kPVR);
  EXPECT_EQ(capture.All(), log.empty() ? log : log + "\n");
  EXPECT_EQ(image ? ToString(image->GetPyramid(false)->Format()) : "refused", format ? format : "refused");
  return image;
}

TEST(PVRRead, HeaderRules) {
  using H = Header&;
  struct Case {
    const char* name;
    std::function<void(Header&)> edit;
    size_t payload;
    const char* format;  // nullptr: refused
    const char* log = "";
    MipmapType type = MipmapType::Surface;
    ull levels = 1;
  };
  const char* const kA8B8G8R8 = "A8B8G8R8";
  // clang-format off
  const Case cases[] = {
      {"rgba 8888", [](H) {}, 64, kA8B8G8R8},
      {"argb 8888", [](H h) { h.letters = "argb"; }, 64, "B8G8R8A8"},
      {"abgr 8888 is R8G8B8A8: A8B8G8R8", [](H h) { h.letters = "abgr"; }, 64, kA8B8G8R8},
      {"the same in sRGB", [](H h) { h.letters = "abgr", h.colour_space = 1; }, 64, "s_A8B8G8R8"},
      {"unsigned integers", [](H h) { h.channel_type = 2; }, 64, "u_A8B8G8R8"},
      {"snorm shorts", [](H h) { h.letters = "rg", h.bits = {16, 16}, h.channel_type = 5; }, 64, "G16sR16s"},
      {"float", [](H h) { h.letters = "r", h.bits = {16}, h.channel_type = 12; }, 64, "R16f"},
      {"an unknown letter ends the channels", [](H h) { h.letters = "rgxa"; }, 64, "G8R8"},
      {"no known letter", [](H h) { h.letters = "xg"; }, 64, nullptr},
      {"id 18 is A1", [](H h) { h.letters = "", h.id = 18; }, 64, "A1"},
      {"no signed DXT1", [](H h) { h.letters = "", h.id = 7, h.channel_type = 1; }, 64, nullptr},
      {"unknown id", [](H h) { h.letters = "", h.id = 16; }, 64, nullptr},
      {"array", [](H h) { h.surfaces = 3, h.mips = 2; }, 3 * 80, kA8B8G8R8, "", MipmapType::SurfaceArray, 2},
      {"mip count past the full chain", [](H h) { h.mips = 0xFFFFFFFF; }, 84, kA8B8G8R8, "", MipmapType::Surface, 3},
      {"cube array", [](H h) { h.faces = 6, h.surfaces = 2; }, 768, nullptr, "PVR cube array not implemented!"},
      {"last level one byte short", [](H h) { h.mips = 3; }, 83, nullptr,
       "PVR mipmap 2 memory overflow: expect 136, current 135, refuse loading!"},
      {"a cube face short", [](H h) { h.faces = 6; }, 383, nullptr,
       "PVR mipmap 0 memory overflow: expect 436, current 435, refuse loading!"},
      {"billions of layers", [](H h) { h.surfaces = 0xFFFFFFFF; }, 64, nullptr,
       "PVR mipmap 0 memory overflow: expect 274877906932, current 116, refuse loading!"},
      {"absurd size", [](H h) { h.width = h.height = h.depth = 0xFFFFFFFF; }, 64, nullptr,
       "PVR mipmap 0 memory overflow: expect 18446744073709551615, current 116, refuse loading!"},
      {"zero width", [](H h) { h.width = 0; }, 64, nullptr, "PVR width and height must not be 0."},
      {"metadata entry cut short", [](H h) { h.metadata = Bytes(8); }, 64, nullptr,
       "PVR metadata entry 0 memory overflow: expect 64, current 60, refuse loading!"},
      {"entry past its block", [](H h) { h.metadata = Entry(1, 2, Bytes(4)), h.metadata.resize(14); }, 64, nullptr,
       "PVR metadata entry 0 memory overflow: expect 68, current 66, refuse loading!"},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Header h;
    c.edit(h);
    const auto image = Expect(MakeFile(h, c.payload), c.format, c.log);
    if (!image) continue;
    const auto pyramid = image->GetPyramid(false);
    EXPECT_EQ(std::make_tuple(image->Type(), pyramid->Type(), pyramid->LevelsCurrent(), image->IsArray()),
              std::make_tuple(c.type, c.type, c.levels, c.type == MipmapType::SurfaceArray));
  }
  Bytes file = MakeFile(Header{}, 64);
  Put32(&file, 48, 0xFFFFFFF0);  // metadata larger than the file
  Expect(file, nullptr, "PVR metadata memory overflow: expect 4294967332, current 116, refuse loading!");
}

TEST(PVRRead, OrientationAndMetadataAreKept) {
  const u32 kPVR3 = FourCC("PVR\x03");
  struct Case {
    Bytes metadata;
    ImageOrigin origin;
  } cases[] = {
      {{}, ImageOrigin::TopDown},
      {Entry(kPVR3, 3, {0, 1, 0}), ImageOrigin::BottomUp},
      {Entry(kPVR3, 3, {1, 0, 0}), ImageOrigin::TopDown},
      {Entry(kPVR3, 4, {0, 1, 0}), ImageOrigin::TopDown},  // another key
  };
  for (const Case& c : cases) {
    Header h;
    h.metadata = Entry(FourCC("ABCD"), 7, {9, 9});
    h.metadata.insert(h.metadata.end(), c.metadata.begin(), c.metadata.end());
    const auto image = Expect(MakeFile(h, 64), "A8B8G8R8");
    ASSERT_TRUE(image);
    EXPECT_EQ(image->Origin(), c.origin);
    const detail::PVRMetadataEntry& first = detail::PVRInfoOf(*image)->metadata.at(0);
    EXPECT_EQ(detail::PVRInfoOf(*image)->metadata.size(), c.metadata.empty() ? 1u : 2u);
    EXPECT_EQ(std::make_tuple(first.fourcc, first.key, first.offset, first.size),
              std::make_tuple(FourCC("ABCD"), 7u, 64ull, 2ull));
  }
}

TEST(PVRRead, Version2HeadersBecomeVersion3Fields) {
  struct Case {
    u32 flags, surfaces;
    const char* format;
    MipmapType type;
    ImageOrigin origin;
  } cases[] = {
      {5 | 0x10000, 1, "B8G8R8A8", MipmapType::Surface, ImageOrigin::BottomUp},
      {12, 1, "PVRTC_2bpp_RGB", MipmapType::Surface, ImageOrigin::TopDown},
      {24 | 0x8000, 1, "PVRTC_2bpp_RGBA", MipmapType::Surface, ImageOrigin::TopDown},
      {9, 1, "A1", MipmapType::Surface, ImageOrigin::TopDown},
      {50, 1, "R16fG16fB16fA16f", MipmapType::Surface, ImageOrigin::TopDown},
      {7 | 0x4000, 3, "L8", MipmapType::Volume, ImageOrigin::TopDown},
      {7 | 0x1000, 3, "L8", MipmapType::Cube, ImageOrigin::TopDown},  // surfaces only count for volumes
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.format);
    const auto image = Expect(PVRV2File(c.flags, c.surfaces, 1, 128), c.format);
    ASSERT_TRUE(image);
    EXPECT_EQ(std::make_tuple(image->Type(), image->Origin(), image->GetPyramid(false)->Depth()),
              std::make_tuple(c.type, c.origin, c.type == MipmapType::Volume ? 3ull : 1ull));
    EXPECT_EQ(detail::PVRInfoOf(*image)->version, 2u);
  }
  Expect(PVRV2File(126, 1, 1, 64), nullptr, "Unsupport PVR v2 format 126\nUnsupport pvr V2 file!");
}

TEST(PVRRead, DetectionNeedsMoreThanAHeader) {
  Bytes v3 = MakeFile(Header{}, 64), v2 = PVRV2File(18, 1, 1, 64);
  ImageFactory* factory = ImageFactory::Instance();
  EXPECT_EQ(std::make_tuple(factory->CheckFormat(kPVR, v3.data(), 53), factory->CheckFormat(kPVR, v2.data(), 53),
                            factory->CheckFormat(kPVR, v3.data(), 52), factory->CheckFormat(kPVR, v2.data(), 52)),
            std::make_tuple(true, true, false, false));
  v2[47] = '?';  // the version 2 magic
  EXPECT_FALSE(factory->CheckFormat(kPVR, v2.data(), v2.size()));
}

// ---- Writing ----

TEST(PVRWrite, HeaderWords) {
  struct Case {
    const char* format;
    const char* words;  // bytes 8 to 15: letters and bit counts, or a compressed id; nullptr: refused
    u32 channel_type;
  };
  // clang-format off
  const Case cases[] = {
      {"A8B8G8R8", "rgba\x08\x08\x08\x08", 0},         {"R5G6B5", "rgb\0\x05\x06\x05\0", 4},
      {"u_A8R8G8B8", "bgra\x08\x08\x08\x08", 2},       {"R16f", "r\0\0\0\x10\0\0\0", 12},
      {"A2R10G10B10", "argb\x02\x0a\x0a\x0a", 8},      {"R8sG8s", "gr\0\0\x08\x08\0\0", 1},
      {"DXT1", "\x07\0\0\0\0\0\0\0", 0},             {"BC6H_signed", "\x0e\0\0\0\0\0\0\0", 14},
      {"EAC_SIGNED_RG11", "\x1a\0\0\0\0\0\0\0", 7},  {"s_ETC2_RGBA8", "\x17\0\0\0\0\0\0\0", 0},
      {"D24S8", nullptr, 0},                          {"DXT1_A1", nullptr, 0},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.format);
    const auto surface = testing::Filled(8, 4, Named(c.format), 3);
    LogCapture log;
    size_t size = 5;
    const auto file = ImageFactory::Instance()->Serialize(kPVR, surface->Data().get(), &size, 0);
    EXPECT_TRUE(log.lines.empty()) << log.All();
    if (c.words == nullptr) {
      EXPECT_EQ(std::make_tuple(file, size), std::make_tuple(nullptr, size_t{5}));
      continue;
    }
    ASSERT_TRUE(file);
    const Bytes f(file.get(), file.get() + size);
    EXPECT_EQ(std::string(f.data() + 8, 8), std::string(c.words, 8));
    EXPECT_EQ(std::make_tuple(Get32(f, 0), Get32(f, 16), Get32(f, 20), Get32(f, 24), Get32(f, 28), Get32(f, 40)),
              std::make_tuple(FourCC("PVR\x03"), IsSRGB(Named(c.format)) ? 1u : 0u, c.channel_type, 4u, 8u, 1u));
    EXPECT_EQ(size, 52 + BytesTotal(Named(c.format), 8, 4, 0));
  }
}

// ---- Round trips ----

TEST(PVRRoundTrip, EveryKindKeepsItsBytesAndFormat) {
  for (const auto& chain :
       {Chain(MipmapType::Surface, 16, 8, 1, Named("DXT5"), 5), Chain(MipmapType::Cube, 8, 8, 1, formats::A8R8G8B8, 4),
        Chain(MipmapType::SurfaceArray, 6, 6, 3, formats::R5G6B5, 3),
        Chain(MipmapType::Volume, 5, 2, 8, formats::R8G8B8, 4)}) {  // the depth sets the chain
    EXPECT_TRUE(testing::RoundTrips(*chain, kPVR)) << static_cast<int>(chain->Type());
  }
  // The two reversals cancel for byte-sized and packed channels alike.
  for (const char* name : {"A8R8G8B8", "B8G8R8A8", "L8", "A8L8", "R5G6B5", "A1R5G5B5", "R4G4B4A4", "s_A8B8G8R8",
                           "R32fG32f", "A2B10G10R10", "R8G8B8A8"}) {
    const Bytes file = Encode(*Pyramid::Make(testing::Filled(4, 4, Named(name), 1), ImageOrigin::TopDown), kPVR);
    const auto image = Decode(file, kPVR);
    ASSERT_NE(image, Image::Null) << name;
    EXPECT_EQ(ToString(image->GetPyramid(false)->Format()), name == std::string("R8G8B8A8") ? "A8B8G8R8" : name);
  }
}

}  // namespace
}  // namespace lumo::image
