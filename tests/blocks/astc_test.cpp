// ASTC decoding compared with the astcenc tool's own decode of the same
// blocks, known blocks (void-extent constants, the error colour), and
// garbage blocks of every footprint.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "blocks/block_refs.h"
#include "lumo/image/blocks.h"
#include "lumo/image/mipmaps.h"
#include "support/files.h"

namespace lumo::image::blocks {
namespace {

using testing::Bytes;
using testing::CorpusDir;
using testing::Get32;

PixelFormatDescriptor Descriptor(std::uint32_t compress_format, bool srgb) {
  return SetSRGB(static_cast<PixelFormatDescriptor>((static_cast<unsigned long long>(compress_format) << 8) | 1u),
                 srgb);
}

// Blocks of one image with their footprint and extent.
struct Blocks {
  std::vector<std::uint8_t> data;
  unsigned bx = 0, by = 0, bz = 0;
  std::uint32_t width = 0, height = 0, depth = 0;
  PixelFormatDescriptor format{};
};

// The footprint's format number (2-D 31-44, 3-D 45-54), 0 when none.
std::uint32_t FormatOf(unsigned bx, unsigned by, unsigned bz) {
  for (std::uint32_t f = 31; f <= 54; ++f) {
    unsigned char w = 0, h = 0, d = 0;
    CompressFormatBlockDimension(static_cast<CompressFormat>(f), &w, &h, &d);
    if (w == bx && h == by && d == bz) return f;
  }
  return 0;
}

// The .astc file layout: magic, footprint, 24-bit extents, then the blocks.
bool ReadAstcFile(const std::string& path, Blocks* out) {
  const std::optional<Bytes> file = testing::ReadFile(path);
  if (!file || file->size() < 16) return false;
  const auto* b = reinterpret_cast<const std::uint8_t*>(file->data());
  if (b[0] != 0x13 || b[1] != 0xAB || b[2] != 0xA1 || b[3] != 0x5C) return false;
  out->bx = b[4], out->by = b[5], out->bz = b[6];
  out->width = b[7] | b[8] << 8 | b[9] << 16;
  out->height = b[10] | b[11] << 8 | b[12] << 16;
  out->depth = b[13] | b[14] << 8 | b[15] << 16;
  const std::uint32_t f = FormatOf(out->bx, out->by, out->bz);
  if (f == 0) return false;
  out->format = Descriptor(f, false);
  out->data.assign(b + 16, b + file->size());
  return true;
}

bool WriteAstcFile(const std::string& path, const Blocks& in) {
  std::vector<std::uint8_t> file = {0x13,
                                    0xAB,
                                    0xA1,
                                    0x5C,
                                    static_cast<std::uint8_t>(in.bx),
                                    static_cast<std::uint8_t>(in.by),
                                    static_cast<std::uint8_t>(in.bz)};
  for (const std::uint32_t v : {in.width, in.height, in.depth})
    for (int i = 0; i < 3; ++i) file.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
  file.insert(file.end(), in.data.begin(), in.data.end());
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return false;
  const bool ok = std::fwrite(file.data(), 1, file.size(), f) == file.size();
  return std::fclose(f) == 0 && ok;
}

// astcenc's decode (-dl linear, -ds sRGB) of `in`, read back from the KTX it
// writes, top row first: RGBA8, or RGB8 (rows padded to four bytes) when
// every alpha is opaque, which is expanded here.
bool ToolDecode(const Blocks& in, bool srgb, std::vector<std::uint8_t>* pixels) {
  const std::string astc = testing::ScratchPath("in.astc"), ktx = testing::ScratchPath("out.ktx");
  if (!WriteAstcFile(astc, in)) return false;
  if (!testing::RunCommand("astcenc " + std::string(srgb ? "-ds '" : "-dl '") + astc + "' '" + ktx + "'")) return false;
  const std::optional<Bytes> file = testing::ReadFile(ktx);
  if (!file || file->size() < 68) return false;
  const std::uint32_t gl_format = Get32(*file, 32), channels = gl_format == 0x1907 ? 3 : 4;
  if ((gl_format != 0x1907 && gl_format != 0x1908) || Get32(*file, 36) != in.width || Get32(*file, 40) != in.height ||
      Get32(*file, 44) != (in.depth > 1 ? in.depth : 0))
    return false;
  const std::size_t row = (std::size_t{in.width} * channels + 3) / 4 * 4, rows = std::size_t{in.height} * in.depth;
  const std::size_t start = 68 + Get32(*file, 60);
  if (file->size() < start + row * rows) return false;
  pixels->clear();
  for (std::size_t y = 0; y < rows; ++y)
    for (std::size_t x = 0; x < in.width; ++x)
      for (std::size_t c = 0; c < 4; ++c)
        pixels->push_back(c < channels ? static_cast<std::uint8_t>((*file)[start + y * row + x * channels + c]) : 255);
  return true;
}

// Decodes with the library into rows padded by 12 bytes (the scratch path),
// returns them packed.
bool LibraryDecode(const Blocks& in, bool srgb, std::vector<std::uint8_t>* pixels) {
  const std::size_t row = std::size_t{in.width} * 4, pitch = row + 12, rows = std::size_t{in.height} * in.depth;
  std::vector<std::uint8_t> padded(pitch * rows, 0xCD);
  if (!DecodeBlocks(SetSRGB(in.format, srgb), in.data.data(), in.data.size(), in.width, in.height, in.depth,
                    padded.data(), padded.size(), pitch))
    return false;
  pixels->clear();
  for (std::size_t y = 0; y < rows; ++y)
    pixels->insert(pixels->end(), padded.begin() + y * pitch, padded.begin() + y * pitch + row);
  return true;
}

struct Mismatch {
  std::size_t count = 0, first = 0;
};
Mismatch Diff(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b) {
  Mismatch m;
  for (std::size_t i = 0; i < a.size() && i < b.size(); ++i)
    if (a[i] != b[i] && m.count++ == 0) m.first = i;
  if (a.size() != b.size()) ++m.count;
  return m;
}

// Every loadable .astc file of the corpus, 2-D and 3-D, in both profiles,
// equals astcenc's decode of the same blocks byte for byte.
TEST(ASTCDecode, CorpusAstcFilesMatchTheTool) {
  if (!testing::ToolAvailable("astcenc")) GTEST_SKIP() << "astcenc (Debian package astcenc) is not installed";
  const auto rows = testing::CorpusRows("ASTC");
  if (!rows || rows->empty()) GTEST_SKIP() << "corpus manifest not found under " << CorpusDir();
  int compared = 0, volumes = 0;
  for (const testing::CorpusRow& row : *rows) {
    if (row.expect != "load") continue;
    SCOPED_TRACE(row.file);
    Blocks blocks;
    if (!ReadAstcFile(CorpusDir() + "/" + row.file, &blocks)) {
      ADD_FAILURE() << "cannot read";
      continue;
    }
    for (const bool srgb : {false, true}) {
      SCOPED_TRACE(srgb ? "sRGB" : "linear");
      std::vector<std::uint8_t> ours, tool;
      ASSERT_TRUE(LibraryDecode(blocks, srgb, &ours));
      ASSERT_TRUE(ToolDecode(blocks, srgb, &tool)) << "astcenc failed";
      const Mismatch m = Diff(ours, tool);
      EXPECT_EQ(m.count, 0u) << "first at byte " << m.first << " (pixel " << m.first / 4 << ")";
    }
    ++compared;
    if (blocks.bz > 1) ++volumes;
  }
  EXPECT_GE(compared, 12);
  EXPECT_EQ(volumes, 2);
}

// ASTC blocks in other containers, loaded by the library and handed to
// astcenc as a .astc file; sRGB files decode with the sRGB profile.
TEST(ASTCDecode, CorpusContainerFilesMatchTheTool) {
  if (!testing::ToolAvailable("astcenc")) GTEST_SKIP() << "astcenc (Debian package astcenc) is not installed";
  const char* const files[] = {"ktx/astcenc_astc6x6.ktx", "ktx/astcenc_srgb_astc8x8.ktx", "pvr/v3_astc.pvr",
                               "ktx/khr_texturearray_astc_8x8_unorm.ktx"};
  for (const char* name : files) {
    SCOPED_TRACE(name);
    const std::string path = CorpusDir() + "/" + name;
    if (!testing::ReadFile(path)) GTEST_SKIP() << path << " is missing";
    const std::shared_ptr<Pyramid> pyramid = testing::LoadPyramid(path);
    ASSERT_TRUE(pyramid);
    const std::shared_ptr<Surface> surface = pyramid->GetSurface(0, 0);
    ASSERT_TRUE(surface && surface->Data());
    const SurfaceData& data = *surface->Data();
    Blocks blocks;
    unsigned char bx = 0, by = 0;
    ASTCBlockDimension(data.Format(), &bx, &by);
    ASSERT_NE(bx, 0) << "not ASTC";
    blocks.bx = bx, blocks.by = by, blocks.bz = 1;
    blocks.width = static_cast<std::uint32_t>(data.Width());
    blocks.height = static_cast<std::uint32_t>(data.Height());
    blocks.depth = 1;
    blocks.format = SetSRGB(data.Format(), false);
    const std::size_t size = ((blocks.width + bx - 1) / bx) * ((blocks.height + by - 1) / by) * std::size_t{16};
    ASSERT_GE(data.Size(), size);
    blocks.data.assign(data.Buffer(), data.Buffer() + size);
    const bool srgb = IsSRGB(data.Format());
    std::vector<std::uint8_t> ours, tool;
    ASSERT_TRUE(LibraryDecode(blocks, srgb, &ours));
    ASSERT_TRUE(ToolDecode(blocks, srgb, &tool)) << "astcenc failed";
    const Mismatch m = Diff(ours, tool);
    EXPECT_EQ(m.count, 0u) << "first at byte " << m.first;
  }
}

// The corpus DDS holds astcenc's decode of astcenc_4x4.astc; no tool needed.
TEST(ASTCDecode, MatchesTheStoredToolDecode) {
  const std::string astc = CorpusDir() + "/astc/astcenc_4x4.astc", dds = CorpusDir() + "/dds/astcenc_abgr8.dds";
  const std::shared_ptr<SurfaceData> reference = testing::LoadRGBA8(dds);
  if (!reference) GTEST_SKIP() << dds << " is missing or unreadable";
  const std::shared_ptr<SurfaceData> ours = testing::LoadRGBA8(astc);
  ASSERT_TRUE(ours) << astc;
  const testing::Difference d = testing::Compare(*ours, *reference);
  ASSERT_TRUE(d.comparable);
  EXPECT_EQ(d.max, 0);
}

// Known blocks in every footprint: a void-extent block decodes to its colour
// (the top byte of each 16-bit UNORM value), a reserved block mode (all zero
// bits) to the LDR error colour, opaque magenta.
TEST(ASTCDecode, KnownBlocksInEveryFootprint) {
  const std::uint8_t constant[16] = {0xFC, 0xFD, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                                     0x34, 0x12, 0x00, 0x00, 0x80, 0x80, 0xFF, 0xFF};
  const std::uint8_t reserved[16] = {};
  struct Case {
    const std::uint8_t* block;
    std::uint8_t rgba[4];
  };
  const Case cases[] = {{constant, {0x12, 0x00, 0x80, 0xFF}}, {reserved, {0xFF, 0x00, 0xFF, 0xFF}}};
  for (std::uint32_t f = 31; f <= 54; ++f) {
    unsigned char bx = 0, by = 0, bz = 0;
    CompressFormatBlockDimension(static_cast<CompressFormat>(f), &bx, &by, &bz);
    const std::uint32_t w = bx + 1u, h = by + 1u, d = f >= 45 ? bz + 1u : 1u;  // 2 x 2 (x 2) blocks, partly visible
    const std::size_t count = 4u * (f >= 45 ? 2u : 1u);
    for (const Case& c : cases) {
      SCOPED_TRACE(::testing::Message() << "format " << f << (c.block == constant ? " void extent" : " reserved"));
      std::vector<std::uint8_t> in;
      for (std::size_t i = 0; i < count; ++i) in.insert(in.end(), c.block, c.block + 16);
      std::vector<std::uint8_t> out(std::size_t{w} * h * d * 4, 0x55);
      ASSERT_TRUE(DecodeBlocks(Descriptor(f, false), in.data(), in.size(), w, h, d, out.data(), out.size(), w * 4));
      for (std::size_t i = 0; i < out.size(); ++i)
        if (out[i] != c.rgba[i % 4]) {
          ADD_FAILURE() << "byte " << i << " is " << int{out[i]};
          break;
        }
    }
  }
}

// Random bits in every footprint and both profiles decode to something
// without reading or writing outside the buffers (run under the sanitizers).
TEST(ASTCDecode, GarbageBlocks) {
  std::mt19937 random(1234);
  for (std::uint32_t f = 31; f <= 54; ++f) {
    unsigned char bx = 0, by = 0, bz = 0;
    CompressFormatBlockDimension(static_cast<CompressFormat>(f), &bx, &by, &bz);
    const std::uint32_t w = 3u * bx + 1u, h = 2u * by + 1u, d = f >= 45 ? bz + 1u : 1u;
    const std::size_t blocks = 4u * 3u * (f >= 45 ? 2u : 1u);
    std::vector<std::uint8_t> in(blocks * 16);
    for (std::uint8_t& b : in) b = static_cast<std::uint8_t>(random());
    std::vector<std::uint8_t> out(std::size_t{w} * h * d * 4);
    for (const bool srgb : {false, true})
      EXPECT_TRUE(DecodeBlocks(Descriptor(f, srgb), in.data(), in.size(), w, h, d, out.data(), out.size(), w * 4))
          << "format " << f;
  }
}

// Decoder contexts serve one image at a time: callers on several threads
// must each get their own and the same pixels as a lone caller.
TEST(ASTCDecode, ConcurrentCallersAgree) {
  Blocks blocks;
  const std::string path = CorpusDir() + "/astc/astcenc_8x8.astc";
  if (!ReadAstcFile(path, &blocks)) GTEST_SKIP() << path << " is missing";
  std::vector<std::uint8_t> alone;
  ASSERT_TRUE(LibraryDecode(blocks, false, &alone));
  std::vector<int> failures(4, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      std::vector<std::uint8_t> mine;
      for (int i = 0; i < 50; ++i) failures[t] += !LibraryDecode(blocks, false, &mine) || mine != alone;
    });
  for (std::thread& t : threads) t.join();
  for (int t = 0; t < 4; ++t) EXPECT_EQ(failures[t], 0) << "thread " << t;
}

}  // namespace
}  // namespace lumo::image::blocks
