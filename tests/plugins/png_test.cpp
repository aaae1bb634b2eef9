// PNG: decoded formats and byte order the corpus lacks, the iTXt rule, gamma,
// the decode limit and libpng's own limits, damaged files and their log lines;
// the writer's target formats, flags and exact output size, and round trips.
// Truncations and mutations run in hostile_input_test.cpp.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "lumo/image/formats.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/mipmaps.h"
#include "lumo/image/pyramid.h"
#include "lumo/image/surface_data.h"
#include "support/bytes.h"
#include "support/descriptors.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/png_files.h"
#include "support/surfaces.h"

namespace lumo::image {
namespace {

using testing::BE;
using testing::Bytes;
using testing::LogCapture;
using testing::Named;
using testing::PngChunk;
using testing::PngFile;
using testing::Tight;
using namespace std::string_literals;

// PNG colour types.
constexpr int kGrey = 0, kRGB = 2, kGreyAlpha = 4, kRGBA = 6;

std::shared_ptr<Image> Read(const Bytes& file) { return testing::Decode(file, ImageFormat::PNG); }

// The decoded pixels with tight rows, or "null" when the file is refused.
std::string Pixels(const Bytes& file) {
  const auto image = Read(file);
  return image ? Tight(*image->GetPyramid(false)->GetSurface(0)->Data()) : "null";
}

Bytes Write(const SurfaceData& surface, int flags = 0) {
  size_t size = 0;
  const std::shared_ptr<char> file = ImageFactory::Instance()->Serialize(ImageFormat::PNG, &surface, &size, flags);
  return file ? Bytes(file.get(), file.get() + size) : Bytes();
}

std::shared_ptr<SurfaceData> Noise(unsigned long long width, unsigned long long height, const char* format,
                                   unsigned seed = 1) {
  return testing::Filled(width, height, Named(format), seed)->Data();
}

// IHDR fields of a written file.
struct Ihdr {
  int depth, color, interlace;
  bool operator==(const Ihdr& o) const {
    return std::tie(depth, color, interlace) == std::tie(o.depth, o.color, o.interlace);
  }
};
Ihdr IhdrOf(const Bytes& png) { return {png.at(24), png.at(25), png.at(28)}; }

TEST(PNGPlugin, DetectionAndImage) {
  const Bytes file = PngFile(1, 1, 8, kGrey, {"\x7f"});
  EXPECT_EQ(ImageFactory::Instance()->GetFormat(file.data(), file.size()), ImageFormat::PNG);
  EXPECT_EQ(ImageFactory::Instance()->GetFormat(file.data(), 8), ImageFormat::PNG);
  EXPECT_EQ(ImageFactory::Instance()->GetFormat(file.data(), 7), ImageFormat::UNKNOWN);
  // Decoding copies the pixels out: the caller's buffer is not kept (no copy is made first).
  const auto image = ImageFactory::Instance()->Create(ImageFormat::PNG, file.data(), file.size());
  ASSERT_NE(image, Image::Null);
  EXPECT_EQ(std::make_tuple(image->Format(), image->Type(), image->Origin(), image->HasAlphaPyramid()),
            std::make_tuple(ImageFormat::PNG, MipmapType::Surface, ImageOrigin::TopDown, false));
}

// ---- Reading ----

// The corpus holds every colour type and depth with exact refs (16-bit ones by
// their high byte); these are the cases it lacks: tRNS at 2 and 16 bits and
// the low bytes of 16-bit samples.
TEST(PNGRead, LowBytesAndTransparencyTheCorpusLacks) {
  struct Case {
    const char* name;
    int depth, color;
    std::string row;  // PNG samples of one row of three pixels
    std::vector<Bytes> chunks;
    const char* format;
    std::string pixels;  // the surface row, tight
  };
  // clang-format off
  const Case cases[] = {
      {"grey 2 tRNS", 2, kGrey, "\xc8"s, {PngChunk("tRNS", BE(0, 2))}, "A8L8", "\xff\xff\x00\x00\xaa\xff"s},
      {"grey 16 tRNS", 16, kGrey, "\x12\x34\xab\xcd\x00\x01"s, {PngChunk("tRNS", BE(0xabcd, 2))}, "A16R16G16B16",
       "\x34\x12\x34\x12\x34\x12\xff\xff\xcd\xab\xcd\xab\xcd\xab\x00\x00\x01\x00\x01\x00\x01\x00\xff\xff"s},
      // B, G, R (, A) in memory, samples little-endian.
      {"RGB 16 tRNS", 16, kRGB, "\x01\x02\x03\x04\x05\x06\x11\x12\x13\x14\x15\x16\x21\x22\x23\x24\x25\x26"s,
       {PngChunk("tRNS", "\x11\x12\x13\x14\x15\x16"s)}, "A16R16G16B16",
       "\x06\x05\x04\x03\x02\x01\xff\xff\x16\x15\x14\x13\x12\x11\x00\x00\x26\x25\x24\x23\x22\x21\xff\xff"s},
      {"grey and alpha 16", 16, kGreyAlpha, "\x12\x34\x56\x78\x00\x01\x00\x02\xff\xfe\xff\xfd"s, {}, "A16R16G16B16",
       "\x34\x12\x34\x12\x34\x12\x78\x56\x01\x00\x01\x00\x01\x00\x02\x00\xfe\xff\xfe\xff\xfe\xff\xfd\xff"s},
      {"RGBA 16", 16, kRGBA,
       "\x01\x02\x03\x04\x05\x06\x07\x08\x11\x12\x13\x14\x15\x16\x17\x18\x21\x22\x23\x24\x25\x26\x27\x28"s, {},
       "A16R16G16B16",
       "\x06\x05\x04\x03\x02\x01\x08\x07\x16\x15\x14\x13\x12\x11\x18\x17\x26\x25\x24\x23\x22\x21\x28\x27"s},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    LogCapture log;
    const auto image = Read(PngFile(3, 2, c.depth, c.color, {c.row, c.row}, c.chunks));
    ASSERT_NE(image, Image::Null) << log.All();
    EXPECT_TRUE(log.lines.empty()) << log.All();
    const auto data = image->GetPyramid(false)->GetSurface(0)->Data();
    EXPECT_EQ(std::make_tuple(ToString(data->Format()), data->Width(), data->Height()),
              std::make_tuple(std::string(c.format), 3ull, 2ull));
    EXPECT_EQ(Tight(*data), c.pixels + c.pixels);
    EXPECT_EQ(data->BytesPerRow() % 4, 0u) << "rows padded to four bytes";
  }
}

TEST(PNGRead, ITXtChunksAreHiddenOnePerRead) {
  const std::string row("\x01\x02\x03\x04\x05\x06", 6);
  const Bytes plain = PngFile(2, 1, 8, kRGB, {row});
  const Bytes itxt = PngChunk("iTXt", std::string("Comment\0\0\0\0some text", 21));
  const std::string want = Pixels(plain);
  ASSERT_NE(want, "null");
  // A bad CRC shows that libpng never sees the chunk: it would warn.
  Bytes bad_crc = itxt;
  bad_crc.back() ^= 1;
  Bytes two = testing::WithChunk(testing::WithChunk(plain, 1, itxt), 1, itxt);
  // An 8-byte chunk whose last four bytes read "iTXt" is data, not a chunk header.
  const Bytes lookalike = testing::WithChunk(plain, 1, PngChunk("tEXt", std::string("a\0bciTXt", 8)));
  for (const auto& [name, file] : {std::pair<const char*, Bytes>{"after IHDR", testing::WithChunk(plain, 1, bad_crc)},
                                   {"before IEND", testing::WithChunk(plain, 2, itxt)},
                                   {"two in a row", two},
                                   {"tEXt holding the word", lookalike}}) {
    SCOPED_TRACE(name);
    LogCapture log;
    EXPECT_EQ(Pixels(file), want);
    EXPECT_TRUE(log.lines.empty()) << log.All();
  }

  Bytes overlong = testing::WithChunk(plain, 1, itxt);
  testing::Put32BE(&overlong, 33, 100000);  // its length, past the end of the file
  Bytes last = testing::WithChunk(plain, 2, itxt);
  last.resize(last.size() - 12);  // IEND cut off
  struct Refused {
    const char* name;
    Bytes file;
    const char* line;
  } refused[] = {
      {"longer than the file", overlong, "PNG Error: Read error: invalid iTXt chunk."},
      {"no header after it", last, "PNG Error: Read error: invalid or corrupted PNG file"},
  };
  for (const Refused& r : refused) {
    SCOPED_TRACE(r.name);
    LogCapture log;
    EXPECT_EQ(Read(r.file), Image::Null);
    EXPECT_EQ(log.Texts(), std::vector<std::string>{r.line});
  }
}

// A file with only a signature and an IHDR chunk: nothing for its pixels.
Bytes HeaderOnly(std::uint32_t width, std::uint32_t height) {
  Bytes file(testing::kPngSignature.begin(), testing::kPngSignature.end());
  const Bytes ihdr = PngChunk("IHDR", testing::IhdrData(width, height, 8, kRGBA));
  file.insert(file.end(), ihdr.begin(), ihdr.end());
  return file;
}

TEST(PNGRead, DecodeLimitComesFirst) {
  LogCapture log;
  EXPECT_EQ(Read(HeaderOnly(60000, 60000)), Image::Null);
  EXPECT_EQ(log.All(), "PNG image of 60000 x 60000 pixels exceeds the decode limit of 268435456 pixels\n");

  // The limit of the moment; libpng's own width and height limits follow it.
  const unsigned long long saved = MaxDecodePixels();
  SetMaxDecodePixels(15);
  log.lines.clear();
  const Bytes four_by_four = PngFile(4, 4, 8, kGrey, std::vector<std::string>(4, std::string(4, 'x')));
  EXPECT_EQ(Read(four_by_four), Image::Null);
  EXPECT_EQ(Read(HeaderOnly(16, 1)), Image::Null);
  EXPECT_EQ(log.All(),
            "PNG image of 4 x 4 pixels exceeds the decode limit of 15 pixels\n"
            "PNG image of 16 x 1 pixels exceeds the decode limit of 15 pixels\n");
  SetMaxDecodePixels(16);
  EXPECT_NE(Read(four_by_four), Image::Null);
  SetMaxDecodePixels(saved);

  // libpng alone would refuse rows of more than a million pixels.
  log.lines.clear();
  const auto wide = Read(PngFile(1000001, 1, 8, kGrey, {std::string(1000001, '\x42')}));
  ASSERT_NE(wide, Image::Null) << log.All();
  EXPECT_EQ(wide->Width(), 1000001u);
}

TEST(PNGRead, DamagedFilesAreRefusedWithTheirLogLines) {
  const Bytes good = PngFile(3, 2, 8, kRGB, {std::string(9, 'a'), std::string(9, 'b')});
  const size_t idat = testing::PngChunkOffsets(good).at(1);
  auto edited = [&](size_t at, char value) {
    Bytes b = good;
    b.at(at) = value;
    return b;
  };
  auto cut = [&](size_t size) { return Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)); };
  const Bytes wrong_depth = [&] {
    Bytes b = testing::WithChunk(good, 0, PngChunk("IHDR", testing::IhdrData(3, 2, 3, kRGB)));
    b.erase(b.begin() + 33, b.begin() + 33 + 25);  // the good IHDR
    return b;
  }();
  Bytes no_ihdr = good;
  no_ihdr.erase(no_ihdr.begin() + 8, no_ihdr.begin() + static_cast<std::ptrdiff_t>(idat));
  struct Case {
    const char* name;
    Bytes file;
    std::vector<std::string> lines;
  } cases[] = {
      {"IHDR CRC", edited(29, 'X'), {"PNG Error: IHDR: CRC error"}},
      {"IDAT CRC", edited(idat + 8 + testing::Get32BE(good, idat), 'X'), {"PNG Error: IDAT: CRC error"}},
      {"cut in the IDAT", cut(idat + 20), {"PNG Error: Read error: invalid or corrupted PNG file"}},
      {"cut before IEND", cut(good.size() - 12), {"PNG Error: Read error: invalid or corrupted PNG file"}},
      {"signature only", cut(8), {"PNG Error: Read error: invalid or corrupted PNG file"}},
      {"bit depth 3",
       wrong_depth,
       {"PNG Warning: Invalid bit depth in IHDR", "PNG Warning: Invalid color type/bit depth combination in IHDR",
        "PNG Error: Invalid IHDR data"}},
      {"first chunk not IHDR", no_ihdr, {"PNG Error: IDAT: Missing IHDR before IDAT"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    LogCapture log;
    EXPECT_EQ(Read(c.file), Image::Null);
    EXPECT_EQ(log.Texts(), c.lines);
  }
}

TEST(PNGRead, WarningsAreLoggedAtLevelZeroAndTheFileLoads) {
  Bytes bad_crc = PngChunk("tEXt", std::string("Title\0x", 7));
  bad_crc.back() ^= 1;
  const struct {
    Bytes chunk;
    const char* line;
  } cases[] = {
      // An ancillary chunk that libpng skips may be damaged.
      {bad_crc, "PNG Warning: tEXt: CRC error"},
      // libpng's chunk size limit: such a chunk is skipped, not stored.
      {PngChunk("zTXt", std::string((8 << 20) + 1, 'z')), "PNG Warning: zTXt: chunk data is too large"},
  };
  const Bytes plain = PngFile(2, 1, 8, kGrey, {"\x01\x02"});
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    LogCapture log;
    EXPECT_EQ(Pixels(testing::WithChunk(plain, 1, c.chunk)), Pixels(plain));
    ASSERT_EQ(log.lines.size(), 1u) << log.All();
    EXPECT_EQ(std::make_tuple(log.lines[0].severity, log.lines[0].level, log.lines[0].text),
              std::make_tuple(log::Severity::Message, 0, std::string(c.line)));
  }
}

// ---- Writing ----

TEST(PNGWrite, TargetFormats) {
  struct Case {
    const char* source;
    Ihdr ihdr;
    const char* read_as;
    bool same_bytes;  // written unchanged; otherwise converted to read_as first
  } cases[] = {
      {"A8R8G8B8", {8, kRGBA, 0}, "A8R8G8B8", true},
      {"s_A8R8G8B8", {8, kRGBA, 0}, "A8R8G8B8", true},
      {"A8B8G8R8", {8, kRGBA, 0}, "A8R8G8B8", false},
      {"X8R8G8B8", {8, kRGBA, 0}, "A8R8G8B8", false},
      {"A4R4G4B4", {8, kRGBA, 0}, "A8R8G8B8", false},
      {"R8G8B8", {8, kRGB, 0}, "R8G8B8", true},
      {"B8G8R8", {8, kRGB, 0}, "R8G8B8", false},
      {"R5G6B5", {8, kRGB, 0}, "R8G8B8", false},
      {"A16R16G16B16", {16, kRGBA, 0}, "A16R16G16B16", true},
      {"A16B16G16R16", {16, kRGBA, 0}, "A16R16G16B16", false},
      {"A32fB32fG32fR32f", {16, kRGBA, 0}, "A16R16G16B16", false},  // components over 16 bits
      {"R16G16B16", {16, kRGB, 0}, "R16G16B16", true},
      {"A8L8", {8, kGreyAlpha, 0}, "A8L8", true},
      {"R8G8", {8, kGreyAlpha, 0}, "A8L8", true},  // two 8-bit channels go out as they are
      {"A8", {8, kGrey, 0}, "A8", true},
      {"R8", {8, kGrey, 0}, "A8", true},
      {"L8", {8, kGrey, 0}, "A8", true},
      {"R16", {16, kGrey, 0}, "R16", true},
      {"A16", {16, kGrey, 0}, "R16", true},
      {"A1", {8, kGrey, 0}, "A8", false},
      {"A4", {8, kGrey, 0}, "A8", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.source);
    const auto source = Noise(7, 3, c.source);
    LogCapture log;
    const Bytes file = Write(*source);
    ASSERT_FALSE(file.empty()) << log.All();
    // Conversion chains log their steps at a negative level; nothing else is logged.
    for (const auto& line : log.lines) EXPECT_LT(line.level, 0) << line.text;
    EXPECT_EQ(IhdrOf(file), c.ihdr);
    const auto image = Read(file);
    ASSERT_NE(image, Image::Null);
    const auto back = image->GetPyramid(false)->GetSurface(0)->Data();
    EXPECT_EQ(ToString(back->Format()), c.read_as);
    const auto expected = c.same_bytes ? source : source->ConvertCopy(Named(c.read_as));
    ASSERT_TRUE(expected);
    EXPECT_EQ(Tight(*back), Tight(*expected));
  }
}

// The zlib stream of the first IDAT: its header's level field and the first
// block's type (0: stored).
std::pair<int, int> ZlibLevelAndBlockType(const Bytes& png) {
  const size_t idat = testing::PngChunkOffsets(png).at(1);
  EXPECT_EQ(std::string(&png.at(idat + 4), 4), "IDAT");
  return {static_cast<unsigned char>(png.at(idat + 9)) >> 6, (static_cast<unsigned char>(png.at(idat + 10)) >> 1) & 3};
}

TEST(PNGWrite, CompressionAndInterlaceFlags) {
  const auto source = testing::CountingSurface(16, 16, formats::A8R8G8B8)->Data();  // compressible
  constexpr int kStored = 0, kFastest = 0, kDefault = 2, kBest = 3;                 // zlib header levels
  struct Case {
    int flags;
    int zlib_level;
    bool stored;
  } cases[] = {
      {0, kDefault, false},   {ISF_PNG_Z_BEST_SPEED, kFastest, false},     {ISF_PNG_Z_BEST_COMPRESSION, kBest, false},
      {0x100, kStored, true}, {0x10F, kStored, true} /* 15 is no level */, {0x106, kDefault, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.flags);
    const Bytes file = Write(*source, c.flags);
    ASSERT_FALSE(file.empty());
    const auto [level, block] = ZlibLevelAndBlockType(file);
    EXPECT_EQ(level, c.zlib_level);
    EXPECT_EQ(block == 0, c.stored);
  }
}

TEST(PNGWrite, RoundTripsAreExactAndTheSizeIsTheStream) {
  // Odd sizes pad the rows; stored noise outgrows the first buffer (the
  // pixels plus 8 bytes) and makes the output grow. Every format's bytes go
  // through TargetFormats already.
  for (const char* format : {"R8G8B8", "A16R16G16B16", "A8"}) {
    for (const int flags : {0, ISF_PNG_INTERLACED, ISF_PNG_Z_NO_COMPRESSION, 9 | ISF_PNG_INTERLACED}) {
      SCOPED_TRACE(std::string(format) + " flags " + std::to_string(flags));
      const auto source = Noise(37, 21, format, static_cast<unsigned>(flags) + 3);
      const Bytes file = Write(*source, flags);
      ASSERT_FALSE(file.empty());
      EXPECT_EQ(IhdrOf(file).interlace, (flags & ISF_PNG_INTERLACED) ? 1 : 0);
      const size_t last = testing::PngChunkOffsets(file).back();  // IEND, ending exactly at the size
      EXPECT_EQ(std::make_pair(std::string(&file.at(last + 4), 4), last + 12), std::make_pair("IEND"s, file.size()));
      if (flags == ISF_PNG_Z_NO_COMPRESSION) {
        EXPECT_GT(file.size(), source->Height() * source->BytesPerRow() + 8) << "the output never grew";
      }
      const auto image = Read(file);
      ASSERT_NE(image, Image::Null);
      const auto back = image->GetPyramid(false)->GetSurface(0)->Data();
      EXPECT_EQ(back->Format(), source->Format());
      EXPECT_EQ(Tight(*back), Tight(*source));
    }
  }
}

TEST(PNGWrite, APyramidWritesItsFirstSurface) {
  const auto chain = testing::Chain(MipmapType::Surface, 8, 6, 1, formats::A8R8G8B8, 3);
  const Bytes file = testing::Encode(*chain, ImageFormat::PNG);
  EXPECT_EQ(Pixels(file), Tight(*chain->GetSurface(0)->Data()));
}

TEST(PNGWrite, Refusals) {
  size_t size = 77;
  LogCapture log;
  // Nothing to write: quiet.
  EXPECT_FALSE(ImageFactory::Instance()->Serialize(ImageFormat::PNG, Noise(4, 4, "DXT1").get(), &size, 0));
  EXPECT_TRUE(log.lines.empty()) << log.All();
  // libpng refuses a picture without rows: its lines, then the failure.
  const auto empty = SurfaceDataBitmap::Create(4, 0, formats::A8R8G8B8, 2);
  ASSERT_TRUE(empty);
  EXPECT_FALSE(ImageFactory::Instance()->Serialize(ImageFormat::PNG, empty.get(), &size, 0));
  EXPECT_EQ(log.Texts(),
            (std::vector<std::string>{"PNG Warning: Image height is zero in IHDR", "PNG Error: Invalid IHDR data"}));
  EXPECT_EQ(size, 77u) << "size untouched on failure";
}

#if defined(__has_feature)
#  if __has_feature(address_sanitizer)
#    define PNG_TEST_UNDER_ASAN 1
#  endif
#endif
#if !defined(__SANITIZE_ADDRESS__) && !defined(PNG_TEST_UNDER_ASAN)  // ASan ends the process on such a request
// Rows of 4 GiB, a billion of them: more output buffer than can be had.
class HugeView final : public SurfaceDataNakedMemory {
 public:
  explicit HugeView(char* pixel) : SurfaceDataNakedMemory(formats::A8R8G8B8, 1ull << 30, 1ull << 30, 1ull << 32) {
    SetBuffer(pixel);
  }
};

TEST(PNGWrite, AnOutputBufferThatCannotBeHadIsLogged) {
  char pixel[4] = {};
  size_t size = 0;
  LogCapture log;
  HugeView huge(pixel);
  EXPECT_FALSE(ImageFactory::Instance()->Serialize(ImageFormat::PNG, &huge, &size, 0));
  EXPECT_EQ(log.All(), "Failed alloc size 4611686018427387912 for writing png!\n");
}
#endif

}  // namespace
}  // namespace lumo::image
