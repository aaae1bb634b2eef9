// ASTC decoding compared with the astcenc tool's own decode of the same
// blocks, known blocks (void-extent constants, the error colour), and random
// blocks of every footprint.
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "blocks/block_refs.h"
#include "lumo/image/blocks.h"
#include "support/files.h"

namespace lumo::image::blocks {
namespace {

using testing::Bytes;
using testing::Compressed;
using testing::CorpusDir;
using testing::Get32;

// Blocks of one image with their footprint and extent.
struct Blocks {
  std::vector<std::uint8_t> data;
  unsigned bx = 0, by = 0, bz = 0;
  std::uint32_t width = 0, height = 0, depth = 0;
  PixelFormatDescriptor format{};
};

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
  out->data.assign(b + 16, b + file->size());
  for (unsigned f = 31; f <= 54; ++f) {  // the footprint's format
    unsigned char w = 0, h = 0, d = 0;
    CompressFormatBlockDimension(static_cast<CompressFormat>(f), &w, &h, &d);
    if (w == out->bx && h == out->by && d == out->bz) out->format = Compressed(static_cast<CompressFormat>(f));
  }
  return out->format != PixelFormatDescriptor{};
}

// astcenc's decode (-dl linear, -ds sRGB) of `in`, read back from the KTX it
// writes, top row first: RGBA8, or RGB8 (rows padded to four bytes) when
// every alpha is opaque, which is expanded here.
bool ToolDecode(const Blocks& in, bool srgb, std::vector<std::uint8_t>* pixels) {
  const std::string astc = testing::ScratchPath("in.astc"), ktx = testing::ScratchPath("out.ktx");
  std::string head = "\x13\xAB\xA1\x5C";
  for (const unsigned v : {in.bx, in.by, in.bz}) head += static_cast<char>(v);
  for (const std::uint32_t v : {in.width, in.height, in.depth})
    for (int i = 0; i < 3; ++i) head += static_cast<char>(v >> (8 * i));
  std::ofstream(astc, std::ios::binary) << head << std::string(in.data.begin(), in.data.end());
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

// Decodes with the library into rows padded by 12 bytes, returns them packed.
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

// Every loadable .astc file of the corpus, 2-D and 3-D, in both profiles,
// equals astcenc's decode of the same blocks byte for byte.
TEST(ASTCDecode, CorpusFilesMatchTheTool) {
  if (!testing::ToolAvailable("astcenc")) GTEST_SKIP() << "astcenc (Debian package astcenc) is not installed";
  const auto rows = testing::CorpusRows("ASTC");
  if (!rows || rows->empty()) GTEST_SKIP() << "corpus manifest not found under " << CorpusDir();
  int compared = 0, volumes = 0;
  for (const testing::CorpusRow& row : *rows) {
    if (row.expect != "load") continue;
    SCOPED_TRACE(row.file);
    Blocks blocks;
    ASSERT_TRUE(ReadAstcFile(CorpusDir() + "/" + row.file, &blocks));
    for (const bool srgb : {false, true}) {
      std::vector<std::uint8_t> ours, tool;
      ASSERT_TRUE(LibraryDecode(blocks, srgb, &ours));
      ASSERT_TRUE(ToolDecode(blocks, srgb, &tool)) << "astcenc failed";
      const testing::Difference d = testing::Compare(ours, tool);
      EXPECT_TRUE(d.comparable && d.max == 0) << (srgb ? "sRGB" : "linear") << ": mean difference " << d.mean;
    }
    ++compared;
    volumes += blocks.bz > 1;
  }
  EXPECT_GE(compared, 12);
  EXPECT_EQ(volumes, 2);
}

// Every footprint, 3-D ones as volumes: a void-extent block decodes to its
// colour (the top byte of each 16-bit UNORM value), a reserved block mode (all
// zero bits) to the error colour, opaque magenta; random bits decode in both
// profiles within exactly sized buffers (run under the sanitizers).
TEST(ASTCDecode, EveryFootprint) {
  const struct {
    testing::Block block;
    int rgba[4];
  } known[] = {{{0xFC, 0xFD, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x34, 0x12, 0x00, 0x00, 0x80, 0x80, 0xFF, 0xFF},
                {0x12, 0x00, 0x80, 0xFF}},
               {testing::Block(16, 0), {0xFF, 0x00, 0xFF, 0xFF}}};
  for (unsigned f = 31; f <= 54; ++f) {
    const CompressFormat format = static_cast<CompressFormat>(f);
    unsigned char bx = 0, by = 0, bz = 0;
    CompressFormatBlockDimension(format, &bx, &by, &bz);
    const unsigned d = f >= 45 ? bz + 1u : 1u;
    for (const auto& k : known) {  // 2 x 2 (x 2) blocks, partly visible
      testing::Block in;
      for (unsigned i = 0; i < (d > 1 ? 8u : 4u); ++i) in.insert(in.end(), k.block.begin(), k.block.end());
      const std::vector<int> v = testing::DecodeValues(Compressed(format), in, bx + 1u, by + 1u, d);
      ASSERT_FALSE(v.empty()) << f;
      for (std::size_t i = 0; i < v.size(); ++i)
        if (v[i] != k.rgba[i % 4]) {
          ADD_FAILURE() << "format " << f << " value " << i << " is " << v[i];
          break;
        }
    }
    for (const bool srgb : {false, true})
      EXPECT_TRUE(testing::RandomBlocksDecode(Compressed(format, srgb), 3u * bx + 1u, 2u * by + 1u, d, 1));
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
