// DDS reading (header rules, views over the file bytes, truncation), writing
// (header choices, data order) and round trips. Hostile input and real files
// are covered for every container in hostile_input_test.cpp and corpus_test.cpp.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "lumo/image/image_factory.h"
#include "lumo/image/mipmaps.h"
#include "lumo/image/pyramid.h"
#include "lumo/image/surface_data.h"
#include "support/bytes.h"
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
using testing::Filled;
using testing::FourCC;
using testing::Get32;
using testing::LogCapture;
using testing::Named;
using testing::Put32;
using testing::Shared;
using testing::Tight;

constexpr ImageFormat kDDS = ImageFormat::DDS;

// A hand-made header (4 x 4 A8R8G8B8 unless changed), for cases no writer produces.
struct Header {
  u32 width = 4, height = 4, depth = 1, mips = 1, pf_flags = 0x41, fourcc = 0, bits = 32;
  u32 r = 0xFF0000, g = 0xFF00, b = 0xFF, a = 0xFF000000, caps2 = 0;
  bool dx10 = false;
  u32 dxgi = 0, array_size = 1;
};

Bytes MakeFile(const Header& h, size_t payload) {
  const size_t header = h.dx10 ? 148 : 128;
  Bytes b(header + payload);
  for (size_t i = header; i < b.size(); ++i) b[i] = static_cast<char>(i * 7 + 3);
  // clang-format off
  const std::pair<size_t, u32> fields[] = {
      {0, FourCC("DDS ")}, {4, 124}, {12, h.height}, {16, h.width}, {24, h.depth}, {28, h.mips}, {76, 32},
      {80, h.dx10 ? 4u : h.pf_flags}, {84, h.dx10 ? FourCC("DX10") : h.fourcc}, {88, h.bits}, {92, h.r}, {96, h.g},
      {100, h.b}, {104, h.a}, {112, h.caps2}};
  // clang-format on
  for (const auto& [offset, value] : fields) Put32(&b, offset, value);
  if (h.dx10) {
    Put32(&b, 128, h.dxgi);
    Put32(&b, 140, h.array_size);
  }
  return b;
}

// ---- Reading ----

TEST(DDSRead, HeaderRules) {
  struct Case {
    const char* name;
    std::function<void(Header&)> edit;
    size_t payload;
    const char* format;  // nullptr: the load fails
    MipmapType type;
    ull levels;
    const char* log;  // the one expected log line (a part of it), or "" for none
  };
  const auto surface = MipmapType::Surface;
  const auto volume = MipmapType::Volume;
  // clang-format off
  const Case cases[] = {
      {"mip count and depth 0", [](Header& h) { h.mips = h.depth = 0; }, 64, "A8R8G8B8", surface, 1, ""},
      {"unused high bits become A", [](Header& h) { h.pf_flags = 0x40; }, 64, "A8R8G8B8", surface, 1, ""},
      {"count capped by the full chain", [](Header& h) { h.mips = 40; }, 64 + 16 + 4 + 100, "A8R8G8B8", surface, 3, ""},
      {"second mip past the end", [](Header& h) { h.mips = 3; }, 64 + 15, "A8R8G8B8", surface, 1,
       "DDS mipmap 1 memory overflow: expect 208, current 207, break loading!"},
      {"volume level past the end", [](Header& h) { h.caps2 = 0x200000, h.depth = 4, h.mips = 3; }, 256 + 31,
       "A8R8G8B8", volume, 1, "DDS mipmap 1 memory overflow: expect 416, current 415, break loading!"},
      {"mask sum above the bit count", [](Header& h) { h.pf_flags = 0x20000, h.bits = 8, h.r = h.g = h.b = 0xFF; }, 16,
       nullptr, {}, 0, ""},
      {"no colour flags", [](Header& h) { h.pf_flags = 0x20; }, 64, nullptr, {}, 0, ""},
      {"cube array", [](Header& h) { h.dx10 = true, h.dxgi = 28, h.array_size = 3, h.caps2 = 0xFE00; }, 18 * 64,
       nullptr, {}, 0, ""},
      {"cube with five faces", [](Header& h) { h.caps2 = 0x7E00; }, 5 * 64, nullptr, {}, 0,
       "Cube must be created with six non-null surface"},
      {"cube volume", [](Header& h) { h.caps2 = 0xFE00, h.depth = 2; }, 6 * 128, nullptr, {}, 0,
       "DDS not support cube volume!"},
      {"volume array", [](Header& h) { h.dx10 = true, h.dxgi = 28, h.array_size = 3, h.caps2 = 0x200000, h.depth = 2; },
       1024, nullptr, {}, 0, "Unknown texture array type 1"},
      {"array layer past the end", [](Header& h) { h.dx10 = true, h.dxgi = 28, h.array_size = 3; }, 2 * 64 + 63,
       nullptr, {}, 0, "DDS Array 2, mipmap 0 memory error: start 340, length 339!"},
      {"cube face past the end", [](Header& h) { h.caps2 = 0xFE00; }, 6 * 64 - 1, nullptr, {}, 0,
       "DDS cube face 5, mipmap 0 memory overflow"},
      {"level 0 past the end", [](Header&) {}, 63, nullptr, {}, 0, "DDS mipmap 0 memory overflow"},
      {"absurd size", [](Header& h) { h.width = h.height = 0xFFFFFFFF, h.pf_flags = 0x2, h.bits = 8, h.a = 0xFF; }, 64,
       nullptr, {}, 0, "expect 4294967295, current 192"},
      {"zero width", [](Header& h) { h.width = 0; }, 64, nullptr, {}, 0, "DDS width and height must not be 0."},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Header h;
    c.edit(h);
    LogCapture log;
    const auto image = Decode(MakeFile(h, c.payload), kDDS);
    EXPECT_TRUE(log.OnlyLineContains(c.log));
    if (c.format == nullptr) {
      EXPECT_EQ(image, Image::Null);
      continue;
    }
    ASSERT_NE(image, Image::Null);
    const auto pyramid = image->GetPyramid(false);
    EXPECT_EQ(ToString(pyramid->Format()), c.format);
    EXPECT_EQ(std::make_tuple(image->Type(), pyramid->LevelsCurrent(), pyramid->ArrayLength(), image->IsArray()),
              std::make_tuple(c.type, c.levels, 1ull, false));
    EXPECT_EQ(std::make_tuple(image->Width(), image->Height(), pyramid->Depth()),
              std::make_tuple(size_t{h.width}, size_t{h.height}, c.type == volume ? ull{h.depth} : 1ull));
  }
}

TEST(DDSRead, ShortOrForeignBuffersFailQuietly) {
  Header dx10;
  dx10.dx10 = true, dx10.dxgi = 28;
  const Bytes good = MakeFile(Header{}, 64), dx10_file = MakeFile(dx10, 64);
  Bytes magic = good;
  magic[3] = 'X';
  LogCapture log;
  for (const Bytes& b :
       {Bytes(good.begin(), good.begin() + 127), magic, Bytes(dx10_file.begin(), dx10_file.begin() + 147), Bytes()}) {
    EXPECT_EQ(Decode(b, kDDS), Image::Null);
  }
  EXPECT_TRUE(log.lines.empty()) << log.All();
  EXPECT_TRUE(ImageFactory::Instance()->CheckFormat(kDDS, good.data(), 4));
  EXPECT_FALSE(ImageFactory::Instance()->CheckFormat(kDDS, good.data(), 3));
  EXPECT_FALSE(ImageFactory::Instance()->CheckFormat(kDDS, magic.data(), magic.size()));
}

TEST(DDSRead, LevelsViewTheFileBytesInStoredOrder) {
  Header h;
  h.caps2 = 0xFE00, h.mips = 2;  // face by face, each with its two levels
  const auto buffer = Shared(MakeFile(h, 6 * 80));
  const auto pyramid = ImageFactory::Instance()->Create(kDDS, buffer, 128 + 6 * 80)->GetPyramid(false);
  const char* expected = buffer.get() + 128;
  for (ull face = 0; face < 6; ++face) {
    for (ull level = 0; level < 2; ++level) {
      const auto surface = pyramid->GetSurface(level, face);
      EXPECT_EQ(surface->Buffer(), expected) << "face " << face << " level " << level;
      expected += surface->Size();
    }
  }
}

// ---- Writing ----

TEST(DDSWrite, SingleR8G8B8Surface) {
  const auto surface = Filled(3, 2, formats::R8G8B8, 1);  // rows padded to 12 bytes in memory
  size_t size = 0;
  const auto file = ImageFactory::Instance()->Serialize(kDDS, surface->Data().get(), &size, 0);
  ASSERT_TRUE(file);
  ASSERT_EQ(size, 128u + 18u);
  const Bytes f(file.get(), file.get() + size);
  std::vector<u32> header;
  for (size_t offset = 0; offset < 128; offset += 4) header.push_back(Get32(f, offset));
  std::vector<u32> expected(32, 0);
  expected[0] = FourCC("DDS "), expected[1] = 124, expected[2] = 0x100F, expected[3] = 2, expected[4] = 3;
  expected[5] = 9, expected[6] = 1, expected[7] = 1, expected[19] = 32, expected[20] = 0x40, expected[22] = 24;
  expected[23] = 0xFF0000, expected[24] = 0xFF00, expected[25] = 0xFF, expected[27] = 0x1000;
  EXPECT_EQ(header, expected);
  EXPECT_EQ(std::string(f.data() + 128, 18), Tight(*surface->Data()));
}

TEST(DDSWrite, PixelFormatChoice) {
  struct Case {
    const char* format;
    u32 pf_flags, fourcc, dxgi, bits, r, g, b, a;
    const char* reads_as;  // or the error logged
  } cases[] = {
      {"DXT1", 4, FourCC("DXT1"), 0, 0, 0, 0, 0, 0, "DXT1"},
      {"DXT1_A1", 4, FourCC("DXT1"), 0, 0, 0, 0, 0, 0, "DXT1"},
      {"s_DXT1", 4, FourCC("DXT1"), 0, 0, 0, 0, 0, 0, "DXT1"},
      {"DXT5", 4, FourCC("DXT5"), 0, 0, 0, 0, 0, 0, "DXT5"},
      {"BC7", 4, FourCC("DX10"), 98, 0, 0, 0, 0, 0, "BC7"},
      {"A16fB16fG16fR16f", 4, 113, 0, 0, 0, 0, 0, 0, "A16fB16fG16fR16f"},
      {"s_A8R8G8B8", 4, FourCC("DX10"), 91, 0, 0, 0, 0, 0, "s_A8R8G8B8"},
      {"A8B8G8R8", 0x41, 0, 0, 32, 0xFF, 0xFF00, 0xFF0000, 0xFF000000, "A8B8G8R8"},
      {"X8R8G8B8", 0x40, 0, 0, 32, 0xFF0000, 0xFF00, 0xFF, 0, "A8R8G8B8"},
      {"A1R5G5B5", 0x41, 0, 0, 16, 0x7C00, 0x3E0, 0x1F, 0x8000, "A1R5G5B5"},
      {"L8", 0x20000, 0, 0, 8, 0xFF, 0, 0, 0, "L8"},
      {"A8L8", 0x20001, 0, 0, 16, 0xFF, 0, 0, 0xFF00, "A8L8"},
      {"A8", 0x2, 0, 0, 8, 0, 0, 0, 0xFF, "A8"},
      {"D24X8", 0, 0, 0, 0, 0, 0, 0, 0, "Unsupport format D24X8"},
      {"ETC1", 0, 0, 0, 0, 0, 0, 0, 0, "Unsupport dxgi format ETC1"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.format);
    const auto surface = Filled(8, 4, Named(c.format), 2);
    LogCapture log;
    size_t size = 7;
    const auto file = ImageFactory::Instance()->Serialize(kDDS, surface->Data().get(), &size, 0);
    if (c.pf_flags == 0) {
      EXPECT_FALSE(file);
      EXPECT_EQ(size, 7u);
      ASSERT_EQ(log.lines.size(), 1u);
      EXPECT_EQ(log.lines[0].text, c.reads_as);
      continue;
    }
    ASSERT_TRUE(file);
    const Bytes f(file.get(), file.get() + size);
    EXPECT_EQ(std::make_tuple(Get32(f, 80), Get32(f, 84), Get32(f, 88), Get32(f, 92), Get32(f, 96), Get32(f, 100),
                              Get32(f, 104)),
              std::make_tuple(c.pf_flags, c.fourcc, c.bits, c.r, c.g, c.b, c.a));
    const bool compressed = IsCompressed(surface->Format());
    const ull bytes = BytesTotal(surface->Format(), 8, 4, 0);
    EXPECT_EQ(Get32(f, 8) & 0x80008u, compressed ? 0x80000u : 0x8u) << "linear size for blocks, pitch for rows";
    EXPECT_EQ(Get32(f, 20), compressed ? bytes : BytesPerRow(surface->Format(), 8, 0));
    EXPECT_EQ(size, (c.dxgi != 0 ? 148u : 128u) + bytes);
    if (c.dxgi != 0) {
      EXPECT_EQ(Get32(f, 128), c.dxgi);
    }
    const auto back = Decode(f, kDDS);
    ASSERT_NE(back, Image::Null);
    EXPECT_EQ(ToString(back->GetPyramid(false)->Format()), c.reads_as);
  }
}

TEST(DDSWrite, ArrayOfFourLayersIsLayerMajor) {
  const auto array = Chain(MipmapType::SurfaceArray, 4, 4, 4, formats::A8R8G8B8, 3);
  const Bytes f = Encode(*array, kDDS);
  ASSERT_EQ(f.size(), 148u + 4 * (64 + 16 + 4));
  EXPECT_EQ(std::make_tuple(Get32(f, 84), Get32(f, 128), Get32(f, 132), Get32(f, 140), Get32(f, 8), Get32(f, 108)),
            std::make_tuple(FourCC("DX10"), 87u, 3u, 4u, 0x21007u | 0x8u, 0x401008u));
  std::string expected;
  for (ull layer = 0; layer < 4; ++layer) {
    for (ull level = 0; level < 3; ++level) expected += Tight(*array->GetSurface(level, layer)->Data());
  }
  EXPECT_EQ(std::string(f.data() + 148, f.size() - 148), expected);
}

// ---- Round trips ----

TEST(DDSRoundTrip, EveryKindKeepsItsBytes) {
  struct Case {
    const char* name;
    std::shared_ptr<Pyramid> pyramid;
    u32 caps, caps2;
  } cases[] = {
      {"surface R8G8B8 5x3", Chain(MipmapType::Surface, 5, 3, 1, formats::R8G8B8, 1), 0x1000, 0},
      {"mips DXT5 16x8", Chain(MipmapType::Surface, 16, 8, 1, Named("DXT5"), 5), 0x401008, 0},
      {"mips A16fB16fG16fR16f", Chain(MipmapType::Surface, 6, 6, 1, formats::A16fB16fG16fR16f, 3), 0x401008, 0},
      {"cube A8R8G8B8 with mips", Chain(MipmapType::Cube, 8, 8, 1, formats::A8R8G8B8, 4), 0x401008, 0xFE00},
      {"array DXT1 of 3", Chain(MipmapType::SurfaceArray, 8, 8, 3, Named("DXT1"), 2), 0x401008, 0},
      {"array R5G6B5 of 2, padded rows", Chain(MipmapType::SurfaceArray, 6, 6, 2, formats::R5G6B5, 3), 0x401008, 0},
      {"volume R8G8B8 deeper than wide", Chain(MipmapType::Volume, 5, 2, 8, formats::R8G8B8, 4), 0x401008, 0x200000},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Bytes file;
    EXPECT_TRUE(testing::RoundTrips(*c.pyramid, kDDS, &file));
    EXPECT_EQ(std::make_tuple(Get32(file, 108), Get32(file, 112)), std::make_tuple(c.caps, c.caps2));
  }
}

}  // namespace
}  // namespace lumo::image
