// Hostile input for every container: each truncation of valid files and a few
// thousand byte mutations go through ExerciseImage, which reads every byte of
// every view and writes the image back, so the sanitizers catch any reach past
// the buffer. A new plugin joins by adding one row to kContainers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "lumo/image/image_factory.h"
#include "lumo/image/pyramid.h"
#include "support/bmp_files.h"
#include "support/bytes.h"
#include "support/container_files.h"
#include "support/descriptors.h"
#include "support/exercise_image.h"
#include "support/files.h"
#include "support/gif_files.h"
#include "support/hdr_files.h"
#include "support/log_capture.h"
#include "support/png_files.h"
#include "support/surfaces.h"
#include "support/tga_files.h"

namespace lumo::image {
namespace {

using testing::Bytes;
using testing::Chain;
using testing::Encode;
using testing::Named;

// What the reader makes of a file cut short.
enum class Truncated {
  Refused,      // every shorter copy is refused
  FewerLevels,  // the levels that fit load (some shorter copy does), the rest are dropped
  Partial,      // a picture may keep the rows decoded before the cut, or be refused
};

struct Container {
  const char* name;
  ImageFormat format;
  std::vector<Bytes> (*seeds)();
  size_t header_bytes;  // most mutations land here, where the sizes and flags live
  bool big_endian;      // byte order of its fields, for the "interesting values"
  Truncated (*truncated)(const Pyramid& whole);
};
void PrintTo(const Container& c, std::ostream* os) { *os << c.name; }

// Written chains of every kind (`plain` surfaces, a DXT1 cube, an array whose
// smaller levels have padded rows, a volume), then `more`.
std::vector<Bytes> EveryKind(ImageFormat format, PixelFormatDescriptor plain, const std::vector<Bytes>& more) {
  std::vector<Bytes> seeds = {Encode(*Chain(MipmapType::Surface, 8, 8, 1, plain, 4), format),
                              Encode(*Chain(MipmapType::Cube, 4, 4, 1, Named("DXT1"), 3), format),
                              Encode(*Chain(MipmapType::SurfaceArray, 6, 6, 3, formats::R5G6B5, 3), format),
                              Encode(*Chain(MipmapType::Volume, 4, 4, 4, formats::A8R8G8B8, 3), format)};
  seeds.insert(seeds.end(), more.begin(), more.end());
  return seeds;
}

std::vector<Bytes> DDSSeeds() {
  const ImageFormat dds = ImageFormat::DDS;
  return EveryKind(dds, formats::A8R8G8B8, {Encode(*Chain(MipmapType::Surface, 8, 4, 1, Named("BC7"), 3), dds)});
}

// Only plain surfaces and volumes lose levels; a partial cube or array is refused.
Truncated DDSTruncated(const Pyramid& whole) {
  const bool levels_drop = whole.Type() == MipmapType::Surface || whole.Type() == MipmapType::Volume;
  return levels_drop ? Truncated::FewerLevels : Truncated::Refused;
}

// Every container that refuses a file cut short, whatever its shape.
Truncated AlwaysRefused(const Pyramid&) { return Truncated::Refused; }

// The pictures the library decodes itself, which keep what a cut file holds.
Truncated PartialPicture(const Pyramid&) { return Truncated::Partial; }

std::vector<Bytes> PVRSeeds() {
  const ImageFormat pvr = ImageFormat::PVR;
  std::vector<Bytes> seeds = EveryKind(pvr, formats::A8B8G8R8,
                                       {Encode(*Chain(MipmapType::Surface, 8, 4, 1, Named("EAC_SIGNED_R11"), 2), pvr)});
  // Layouts the writer never makes: orientation metadata, and a version 2
  // header (4 x 4 "argb" 8888, two levels, rows bottom up).
  Bytes metadata = seeds[0];
  const Bytes entry = testing::PVRMetadataEntry(testing::FourCC("PVR\x03"), 3, {0, 1, 0});
  metadata.insert(metadata.begin() + 52, entry.begin(), entry.end());
  testing::Put32(&metadata, 48, static_cast<std::uint32_t>(entry.size()));
  seeds.push_back(metadata);
  seeds.push_back(testing::PVRV2File(0x10005, 1, 2, 64 + 16));
  return seeds;
}

std::vector<Bytes> PKMSeeds(ImageFormat format) {
  return {Encode(*Chain(MipmapType::Surface, 30, 17, 1, Named("ETC1"), 1), format),
          Encode(*Chain(MipmapType::Surface, 8, 8, 1, Named("s_ETC2_RGBA8"), 1), format),
          Encode(*Chain(MipmapType::Surface, 5, 3, 1, Named("EAC_SIGNED_RG11"), 1), format)};
}

// Key/value data (orientation, both alpha planes, a key nobody reads) is put
// in by hand, as the writer stores none.
std::vector<Bytes> KTXSeeds() {
  const ImageFormat ktx = ImageFormat::KTX;
  using testing::KeyValueData;
  const Bytes etc2 = Encode(*Chain(MipmapType::Surface, 8, 4, 1, Named("ETC2_RGBA8"), 2), ktx);
  std::vector<Bytes> seeds =
      EveryKind(ktx, formats::A8B8G8R8,
                {testing::WithKeyValues(etc2, KeyValueData({{"AlChanl", std::string(16, 'e')}, {"Other", "x"}}))});
  seeds[0] = testing::WithKeyValues(seeds[0], KeyValueData({{"KTXOrientation", std::string("S=r,T=u\0", 8)},
                                                            {"AlPitch", std::string("\x08\0\0\0", 4)},
                                                            {"AlChann", std::string(64, 'a')}}));
  return seeds;
}

// Levels are whole after a cut (each holds all its faces or layers), so a
// chain of several keeps those that fit.
Truncated KTXTruncated(const Pyramid& whole) {
  return whole.LevelsCurrent() > 1 ? Truncated::FewerLevels : Truncated::Refused;
}

std::vector<Bytes> ASTCSeeds() {
  const ImageFormat astc = ImageFormat::ASTC;
  return {Encode(*Chain(MipmapType::Surface, 8, 8, 1, Named("ASTC_RGBA_4x4"), 1), astc),
          Encode(*Chain(MipmapType::Surface, 13, 9, 1, Named("ASTC_RGBA_12x10"), 1), astc),
          Encode(*Chain(MipmapType::Volume, 8, 8, 6, Named("ASTC_RGBA_6x6"), 1), astc),
          testing::ASTCFile(3, 3, 3, 6, 6, 6, 8 * 16)};  // 3-D blocks, which no chain of surfaces makes
}

// Pictures whose coded data differs in kind: colour with chroma subsampled, the
// 5-6-5 path, a one-row strip and a block of noise.
std::vector<Bytes> JPGSeeds() {
  const ImageFormat jpg = ImageFormat::JPG;
  return {Encode(*Chain(MipmapType::Surface, 19, 13, 1, formats::B8G8R8, 1), jpg),
          Encode(*Chain(MipmapType::Surface, 8, 8, 1, formats::R5G6B5, 1), jpg),
          Encode(*Chain(MipmapType::Surface, 40, 1, 1, formats::A8R8G8B8, 1), jpg)};
}

// Written pictures of several formats (interlaced too), and by hand what the
// writer never makes: a 2-bit palette with tRNS, 4-bit grey with tRNS and
// gAMA. Chunks that the reader hides (iTXt) or skips (tEXt) follow IHDR, where
// most mutations land: mutations of CRC-checked chunks are refused, of these
// they are not.
std::vector<Bytes> PNGSeeds() {
  const ImageFormat png = ImageFormat::PNG;
  auto interlaced = [&](PixelFormatDescriptor format, unsigned long long width, unsigned long long height) {
    size_t size = 0;
    const auto file = ImageFactory::Instance()->Serialize(
        png, Chain(MipmapType::Surface, width, height, 1, format, 1).get(), &size, ISF_PNG_INTERLACED);
    return file ? Bytes(file.get(), file.get() + size) : Bytes();
  };
  const Bytes itxt = testing::PngChunk("iTXt", std::string("Comment\0\0\0\0text", 16));
  const Bytes text = testing::PngChunk("tEXt", std::string("Title\0seed", 10));
  auto with_text = [&](const Bytes& file) { return testing::WithChunk(testing::WithChunk(file, 1, text), 1, itxt); };
  const Bytes palette =
      testing::PngFile(5, 2, 2, 3, {"\x1b\x40", std::string("\xe4\x00", 2)},
                       {testing::PngChunk("PLTE", std::string(12, '\x33')), testing::PngChunk("tRNS", "\x80")});
  const Bytes grey = testing::PngFile(
      3, 3, 4, 0, {"\x12\x30", "\xff\xf0", "\x01\x20"},
      {testing::PngChunk("gAMA", testing::BE(100000, 4)), testing::PngChunk("tRNS", testing::BE(1, 2))});
  return {with_text(Encode(*Chain(MipmapType::Surface, 8, 8, 1, formats::A8R8G8B8, 1), png)),
          Encode(*Chain(MipmapType::Surface, 5, 3, 1, formats::R16G16B16, 1), png),
          Encode(*Chain(MipmapType::Surface, 9, 5, 1, formats::A8, 1), png),
          with_text(interlaced(formats::A8L8, 7, 6)),
          interlaced(formats::A16R16G16B16, 4, 4),
          with_text(palette),
          with_text(grey)};
}

const Container kContainers[] = {
    {"JPG", ImageFormat::JPG, JPGSeeds, 330, true, AlwaysRefused},
    {"PNG", ImageFormat::PNG, PNGSeeds, 96, true, AlwaysRefused},
    {"DDS", ImageFormat::DDS, DDSSeeds, 148, false, DDSTruncated},
    {"KTX", ImageFormat::KTX, KTXSeeds, 160, false, KTXTruncated},
    {"PKM", ImageFormat::PKM, [] { return PKMSeeds(ImageFormat::PKM); }, 16, true, AlwaysRefused},
    {"PVR", ImageFormat::PVR, PVRSeeds, 68, false, AlwaysRefused},
    {"PKMA", ImageFormat::PKMA, [] { return PKMSeeds(ImageFormat::PKMA); }, 16, true, AlwaysRefused},
    {"ASTC", ImageFormat::ASTC, ASTCSeeds, 16, false, AlwaysRefused},
    {"TGA", ImageFormat::TGA, testing::TGAHostileSeeds, 18, false, PartialPicture},
    {"BMP", ImageFormat::BMP, testing::BMPHostileSeeds, 54, false, PartialPicture},
    {"GIF", ImageFormat::GIF, testing::GIFHostileSeeds, 32, false, PartialPicture},
    {"HDR", ImageFormat::HDR, testing::HDRHostileSeeds, 64, false, PartialPicture},
};

class HostileInput : public ::testing::TestWithParam<Container> {
 protected:
  void SetUp() override {
    if (!ImageFactory::Instance()->IsRegistered(GetParam().format)) {
      GTEST_SKIP() << "no plugin registered for " << GetParam().name;
    }
    seeds_ = GetParam().seeds();
    ASSERT_FALSE(seeds_.empty());
    for (const Bytes& seed : seeds_) ASSERT_FALSE(seed.empty()) << "a seed failed to encode";
    // As in the fuzz target: a mutated size may declare a big picture, which
    // would be allocated, decoded and written back at full cost.
    SetMaxDecodePixels(1ull << 20);
  }
  void TearDown() override { SetMaxDecodePixels(saved_limit_); }
  std::vector<Bytes> seeds_;
  const unsigned long long saved_limit_ = MaxDecodePixels();
};

TEST_P(HostileInput, EveryTruncationLoadsWhatFitsOrNothing) {
  const Container& c = GetParam();
  testing::LogCapture quiet;
  for (size_t i = 0; i < seeds_.size(); ++i) {
    SCOPED_TRACE("seed " + std::to_string(i));
    const Bytes& seed = seeds_[i];
    const auto whole = testing::Decode(seed);
    ASSERT_TRUE(whole);
    ASSERT_EQ(whole->Format(), c.format);
    const auto full = whole->GetPyramid(false);
    const Truncated expected = c.truncated(*full);
    int loaded = 0;
    for (size_t length = 0; length < seed.size(); ++length) {
      const auto image = testing::DecodeAndExercise(testing::Shared(seed.data(), length), length);
      if (!image) continue;
      ++loaded;
      if (expected == Truncated::Partial) continue;
      EXPECT_LT(image->GetPyramid(false)->LevelsCurrent(), full->LevelsCurrent()) << length << " bytes";
    }
    if (expected != Truncated::Partial) {
      EXPECT_EQ(loaded > 0, expected == Truncated::FewerLevels) << loaded << " shorter copies loaded";
    }
  }
}

TEST_P(HostileInput, MutatedFilesNeverCrash) {
  const Container& c = GetParam();
  testing::LogCapture quiet;
  std::mt19937 rng(20240611);
  const std::uint32_t interesting[] = {0, 1, 2, 0x7F, 0x80, 0xFF, 0xFFFF, 0x10000, 0x7FFFFFFF, 0xFFFFFFFF};
  int loaded = 0;
  for (int round = 0; round < 4000; ++round) {
    Bytes b = seeds_[round % seeds_.size()];
    for (int edits = 1 + static_cast<int>(rng() % 4); edits > 0; --edits) {
      const size_t at = rng() % (rng() % 4 != 0 ? std::min(b.size(), c.header_bytes) : b.size());
      if (rng() % 2 != 0 && at + 4 <= b.size()) {
        const std::uint32_t value = interesting[rng() % std::size(interesting)];
        testing::PutField(&b, at & ~size_t{3}, 4, c.big_endian, value);
      } else {
        b[at] = static_cast<char>(b[at] ^ (1 << (rng() % 8)));
      }
    }
    // A damaged PNG chunk fails its CRC; half the mutants get theirs made
    // right so the damage reaches libpng's decoder and the transforms.
    if (round % 2 != 0) testing::SetPngCrcs(b.data(), b.size());
    if (testing::DecodeAndExercise(testing::Shared(b), b.size())) ++loaded;
  }
  EXPECT_GT(loaded, 0) << "no mutation loaded: the decoder was never reached past its checks";
}

INSTANTIATE_TEST_SUITE_P(Containers, HostileInput, ::testing::ValuesIn(kContainers),
                         [](const ::testing::TestParamInfo<Container>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace lumo::image
