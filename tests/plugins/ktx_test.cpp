// KTX reading (header rules, key/value data, alpha planes, bounds), writing
// (OpenGL fields, padding) and round trips. Hostile input and real files are
// covered for every container in hostile_input_test.cpp and corpus_test.cpp.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "lumo/image/format_tables.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/mipmaps.h"
#include "lumo/image/pyramid.h"
#include "lumo/image/volume_data.h"
#include "plugins/ktx.h"
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
using testing::Get32;
using testing::KeyValueData;
using testing::LogCapture;
using testing::Named;
using testing::Tight;

constexpr ImageFormat kKTX = ImageFormat::KTX;
const char kIdentifier[] = "\xABKTX 11\xBB\r\n\x1A\n";

// A hand-made header (4 x 4 GL_RGBA / GL_UNSIGNED_BYTE unless changed), for cases no writer produces.
struct Header {
  u32 endianness = 0x04030201, gl_type = 0x1401, gl_format = 0x1908, internal = 0x8058;
  u32 width = 4, height = 4, depth = 0, layers = 0, faces = 1, mips = 1;
  std::optional<u32> kv_bytes;  // bytesOfKeyValueData when it is not the size of the data given
};

// The header, `kv`, then for each level its image size and that many bytes
// (six padded faces for a cube), less `cut` bytes at the end.
Bytes MakeFile(const Header& h, const Bytes& kv, const std::vector<u32>& sizes, size_t cut = 0) {
  Bytes b(kIdentifier, kIdentifier + 12);
  for (const u32 field : {h.endianness, h.gl_type, 1u, h.gl_format, h.internal, h.gl_format, h.width, h.height, h.depth,
                          h.layers, h.faces, h.mips, h.kv_bytes.value_or(static_cast<u32>(kv.size()))}) {
    b.resize(b.size() + 4);
    testing::Put32(&b, b.size() - 4, field);
  }
  b.insert(b.end(), kv.begin(), kv.end());
  for (const u32 size : sizes) {
    b.resize(b.size() + 4);
    testing::Put32(&b, b.size() - 4, size);
    for (int copy = 0; copy < (h.faces == 6 && h.layers == 0 ? 6 : 1); ++copy) {
      for (u32 i = 0; i < ((size + 3) & ~3u); ++i) b.push_back(static_cast<char>(b.size() * 7 + 3));
    }
  }
  b.resize(b.size() - cut);
  return b;
}

Bytes Orientation(const char* text) { return KeyValueData({{"KTXOrientation", std::string(text) + '\0'}}); }

// ---- Reading ----

TEST(KTXRead, HeaderRules) {
  using H = Header&;
  struct Case {
    const char* name;
    std::function<void(Header&)> edit;
    Bytes kv;
    std::vector<u32> sizes;
    size_t cut;
    const char* format;  // nullptr: refused
    MipmapType type;
    ull levels;
    const char* log;  // the one expected log line (a part of it), or ""
  };
  const auto surface = MipmapType::Surface;
  // clang-format off
  const Case cases[] = {
      {"counts of 0, height 0", [](H h) { h.mips = 0, h.height = 0; }, {}, {16}, 0, "A8B8G8R8", surface, 1, ""},
      {"count capped by the full chain", [](H h) { h.mips = 40; }, {}, {64, 16, 4}, 0, "A8B8G8R8", surface, 3, ""},
      {"T=d", [](H) {}, Orientation("S=r,T=d"), {64}, 0, "A8B8G8R8", surface, 1, ""},
      {"key case matters", [](H) {}, KeyValueData({{"KTXorientation", "T=u"}}), {64}, 0, "A8B8G8R8", surface, 1, ""},
      {"volume array", [](H h) { h.depth = 2, h.layers = 2; }, {}, {256}, 0, nullptr, {}, 0,
       "Unknown texture array type 1"},
      {"cube array", [](H h) { h.faces = 6, h.layers = 2; }, {}, {768}, 0, nullptr, {}, 0,
       "Ktx cube array not implemented!"},
      {"zero width", [](H h) { h.width = 0; }, {}, {64}, 0, nullptr, {}, 0, "KTX pixelWidth must not be 0."},
      // A surface counts 3-D blocks per pixel, so the file's blocks never match it.
      {"3-D blocks, one slice deep", [](H h) { h.gl_format = 0, h.internal = 37824, h.width = h.height = 6; }, {}, {64},
       0, nullptr, {}, 0, "KTX mipmap 0 image size 64 does not match its 576 bytes, refuse loading!"},
      {"key/value data past the end", [](H h) { h.kv_bytes = 1000; }, {}, {64}, 0, nullptr, {}, 0,
       "KTX key/value data memory overflow: expect 1064, current 132, refuse loading!"},
      {"entry past the key/value data", [](H h) { h.kv_bytes = 8; }, Bytes{100, 0, 0, 0, 'a', 0, 0, 0}, {64}, 0,
       nullptr, {}, 0, "KTX key/value entry 0 memory overflow: expect 168, current 72, refuse loading!"},
      {"short AlPitch", [](H) {}, KeyValueData({{"AlPitch", "\x08"}}), {64}, 0, nullptr, {}, 0,
       "KTX key AlPitch memory overflow: expect 80, current 77, refuse loading!"},
      {"alpha plane larger than its value", [](H) {},
       KeyValueData({{"AlPitch", std::string("\x04\0\0\0", 4)}, {"AlChann", std::string(15, 'a')}}), {64}, 0, nullptr,
       {}, 0, "KTX alpha plane AlChann memory overflow: expect 108, current 107, refuse loading!"},
      {"image size disagrees", [](H) {}, {}, {60}, 0, nullptr, {}, 0,
       "KTX mipmap 0 image size 60 does not match its 64 bytes, refuse loading!"},
      {"level 0 past the end", [](H) {}, {}, {64}, 1, nullptr, {}, 0,
       "KTX mipmap 0 memory overflow: expect 132, current 131, refuse loading!"},
      {"second level past the end", [](H h) { h.mips = 3; }, {}, {64, 16, 4}, 9, "A8B8G8R8", surface, 1,
       "KTX mipmap 1 memory overflow: expect 152, current 151, break loading!"},
      {"third level's size past the end", [](H h) { h.mips = 3; }, {}, {64, 16, 4}, 5, "A8B8G8R8", surface, 2,
       "KTX mipmap 2 memory overflow: expect 156, current 155, break loading!"},
      {"cube face past the end", [](H h) { h.faces = 6, h.mips = 2; }, {}, {64, 16}, 1, "A8B8G8R8", MipmapType::Cube, 1,
       "KTX mipmap 1 memory overflow"},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Header h;
    c.edit(h);
    LogCapture log;
    const auto image = Decode(MakeFile(h, c.kv, c.sizes, c.cut), kKTX);
    EXPECT_TRUE(log.OnlyLineContains(c.log));
    if (c.format == nullptr) {
      EXPECT_EQ(image, Image::Null);
      continue;
    }
    ASSERT_NE(image, Image::Null);
    const auto pyramid = image->GetPyramid(false);
    EXPECT_EQ(ToString(pyramid->Format()), c.format);
    EXPECT_EQ(std::make_tuple(image->Type(), pyramid->Type(), pyramid->LevelsCurrent(), image->Origin()),
              std::make_tuple(c.type, c.type, c.levels, ImageOrigin::TopDown));
    EXPECT_EQ(std::make_tuple(image->Width(), image->Height(), pyramid->Depth()),
              std::make_tuple(size_t{h.width}, size_t{h.height == 0 ? 1 : h.height},
                              c.type == MipmapType::Volume ? ull{h.depth == 0 ? 1 : h.depth} : 1ull));
  }
}

TEST(KTXRead, LevelsViewTheFileBytes) {
  Header h;
  h.faces = 6, h.mips = 2;  // level by level, each with its six faces
  const Bytes file = MakeFile(h, {}, {64, 16});
  const auto buffer = testing::Shared(file);
  const auto pyramid = ImageFactory::Instance()->Create(kKTX, buffer, file.size())->GetPyramid(false);
  for (ull face = 0; face < 6; ++face) {
    EXPECT_EQ(pyramid->GetSurface(0, face)->Buffer(), buffer.get() + 68 + 64 * face) << face;
    EXPECT_EQ(pyramid->GetSurface(1, face)->Buffer(), buffer.get() + 68 + 6 * 64 + 4 + 16 * face) << face;
  }
}

TEST(KTXRead, AlphaPlanesAndFileInfo) {
  // Pitch 8 aligns the 4-pixel rows of the A8 plane to 8 bytes: 32 bytes.
  std::vector<testing::KeyValue> entries = {{"KTXOrientation", std::string("S=r,T=u\0", 8)},
                                            {"AlPitch", std::string("\x08\0\0\0", 4)},
                                            {"AlChann", std::string(32, 'a')},
                                            {"Other", "x"}};
  Bytes file = MakeFile(Header{}, KeyValueData(entries), {64});
  auto buffer = testing::Shared(file);
  auto image = ImageFactory::Instance()->Create(kKTX, buffer, file.size());
  ASSERT_NE(image, Image::Null);
  ASSERT_TRUE(image->HasAlphaPyramid());
  auto plane = image->GetPyramid(true)->GetSurface(0);
  EXPECT_EQ(std::make_tuple(plane->Format(), plane->Width(), plane->Height(), plane->BytesPerRow(), plane->Buffer()),
            std::make_tuple(formats::A8, 4ull, 4ull, 8ull, buffer.get() + 64 + 28 + 16 + 12));
  const detail::KTXFileInfo* info = detail::KTXInfoOf(*image);
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info->keys, (std::vector<std::string>{"KTXOrientation", "AlPitch", "AlChann", "Other"}));
  EXPECT_EQ(
      std::make_tuple(info->key_count, info->has_orientation, info->orientation, info->alpha_plane, info->alpha_pitch,
                      info->gl_format, info->gl_internal_format),
      std::make_tuple(4ull, true, std::string("S=r,T=u"), detail::KTXFileInfo::AlphaPlane::A8, 8u, 0x1908u, 0x8058u));

  // An ETC1 plane replaces the A8 one.
  entries.push_back({"AlChanl", std::string(8, 'e')});
  file = MakeFile(Header{}, KeyValueData(entries), {64});
  image = Decode(file, kKTX);
  ASSERT_NE(image, Image::Null);
  plane = image->GetPyramid(true)->GetSurface(0);
  EXPECT_EQ(std::make_tuple(ToString(plane->Format()), plane->Width(), plane->Height(), Tight(*plane->Data())),
            std::make_tuple(std::string("ETC1"), 4ull, 4ull, std::string(8, 'e')));
  EXPECT_EQ(detail::KTXInfoOf(*image)->alpha_plane, detail::KTXFileInfo::AlphaPlane::ETC1);

  const auto dds = Decode(Encode(*Chain(MipmapType::Surface, 4, 4, 1, formats::A8R8G8B8, 1), ImageFormat::DDS));
  ASSERT_NE(dds, Image::Null);
  EXPECT_EQ(detail::KTXInfoOf(*dds), nullptr);
}

// ---- Writing ----

TEST(KTXWrite, OpenGLFields) {
  struct Case {
    const char* format;
    u32 gl_type, type_size, gl_format, internal, base;
    const char* log;  // the error instead, or ""
  } cases[] = {
      {"B8G8R8", 0x1401, 1, 0x1907, 0x8051, 0x1907, ""},
      {"s_B8G8R8", 0x1401, 1, 0x1907, 0x8C41, 0x1907, ""},
      {"R5G6B5", 0x8363, 2, 0x1907, 0x8D62, 0x1907, ""},
      {"A16fB16fG16fR16f", 0x140B, 1, 0x1908, 0x881A, 0x1908, ""},
      {"DXT1", 0, 1, 0, 0x83F0, 0x83F0, ""},
      {"s_ASTC_RGBA_8x8", 0, 1, 0, 0x93D7, 0x93D7, ""},
      {"DXT2", 0, 0, 0, 0, 0, "Compressed pixel Format DXT2 is not supported by ktx container."},
      {"X8R8G8B8", 0, 0, 0, 0, 0, "Uncompressed pixel Format X8R8G8B8 is not supported by ktx container."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.format);
    LogCapture log;
    const Bytes f = Encode(*Chain(MipmapType::Surface, 8, 8, 1, Named(c.format), 2), kKTX);
    if (*c.log != '\0') {
      EXPECT_TRUE(f.empty());
      EXPECT_EQ(log.Texts(), std::vector<std::string>{c.log});
      continue;
    }
    ASSERT_FALSE(f.empty()) << log.All();
    EXPECT_EQ(std::make_tuple(Get32(f, 16), Get32(f, 20), Get32(f, 24), Get32(f, 28), Get32(f, 32)),
              std::make_tuple(c.gl_type, c.type_size, c.gl_format, c.internal, c.base));
    const auto back = Decode(f, kKTX);
    ASSERT_NE(back, Image::Null);
    EXPECT_EQ(ToString(back->GetPyramid(false)->Format()), c.format);
  }
  SetGLHalfOES(true);
  const Bytes half = Encode(*Chain(MipmapType::Surface, 2, 2, 1, formats::R16f, 1), kKTX);
  SetGLHalfOES(false);
  ASSERT_FALSE(half.empty());
  EXPECT_EQ(Get32(half, 16), 36193u);
}

TEST(KTXWrite, SizesAndPadding) {
  // 3 x 1 B8G8R8: rows padded from 9 to 12 bytes with zeros.
  const auto rgb = Chain(MipmapType::Surface, 3, 1, 1, formats::B8G8R8, 1);
  const Bytes f = Encode(*rgb, kKTX);
  ASSERT_EQ(f.size(), 80u);
  EXPECT_EQ(Bytes(f.begin(), f.begin() + 12), Bytes(kIdentifier, kIdentifier + 12));
  std::vector<u32> header;
  for (size_t offset = 12; offset < 68; offset += 4) header.push_back(Get32(f, offset));
  EXPECT_EQ(header, (std::vector<u32>{0x04030201, 0x1401, 1, 0x1907, 0x8051, 0x1907, 3, 1, 0, 0, 1, 1, 0, 12}));
  EXPECT_EQ(std::string(f.data() + 68, 12), Tight(*rgb->GetSurface(0)->Data()) + std::string(3, '\0'));

  // A cube of 1 x 1 DXT1 faces: the image size counts one face.
  const Bytes cube = Encode(*Chain(MipmapType::Cube, 1, 1, 1, Named("DXT1"), 1), kKTX);
  ASSERT_EQ(cube.size(), 116u);
  EXPECT_EQ(std::make_tuple(Get32(cube, 52), Get32(cube, 64)), std::make_tuple(6u, 8u));
}

// ---- Round trips ----

// A 6 x 6 x 6 volume of 3 x 3 x 3 blocks (no slice surfaces), one level.
std::shared_ptr<Pyramid> BlockVolume() {
  const auto blocks = testing::Counting(8 * 16);
  const auto data = VolumeData::Create(blocks, 0, Named("ASTC_RGBA_3x3x3"), 6, 6, 6, 0);
  return Pyramid::Make(std::make_shared<Volume>(data), ImageOrigin::TopDown);
}

TEST(KTXRoundTrip, EveryKindKeepsItsBytes) {
  const std::shared_ptr<Pyramid> cases[] = {
      BlockVolume(),
      Chain(MipmapType::Surface, 5, 3, 1, formats::R8G8B8, 1),
      Chain(MipmapType::Surface, 16, 8, 1, Named("ETC2_RGBA8"), 5),
      Chain(MipmapType::Cube, 8, 8, 1, formats::A8B8G8R8, 4),
      Chain(MipmapType::SurfaceArray, 8, 8, 3, Named("DXT5"), 2),
      Chain(MipmapType::SurfaceArray, 6, 6, 2, formats::R5G6B5, 3),
      Chain(MipmapType::Volume, 4, 2, 8, formats::B8G8R8, 4),  // deeper than wide: the depth sets the chain
  };
  for (const auto& pyramid : cases) {
    EXPECT_TRUE(testing::RoundTrips(*pyramid, kKTX))
        << ToString(pyramid->Format()) << " kind " << static_cast<int>(pyramid->Type());
  }
}

}  // namespace
}  // namespace lumo::image
