// BC1-BC7 decoding: corpus files against an independent decoder, hand-made
// blocks whose pixels follow from the format definitions, and garbage blocks.
#include <gtest/gtest.h>

#include <cstdint>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "blocks/block_refs.h"
#include "lumo/image/blocks.h"
#include "lumo/image/mipmaps.h"
#include "support/files.h"

namespace lumo::image::testing {
namespace {

void Put32(std::vector<char>& v, std::size_t at, std::uint32_t x) {
  for (int i = 0; i < 4; ++i) v[at + i] = static_cast<char>(x >> (8 * i));
}

// nvdecompress reads the colour half of BC2/BC3 blocks like BC1, with three
// colours and black when c0 <= c1; Microsoft's definition always
// interpolates four. Blocks with c0 < c1 get their endpoints swapped and
// every index's low bit flipped, and blocks with c0 == c1 (one colour
// whatever the indices) index 0 everywhere: the same pixels under the
// four-colour reading, and the three-colour reading never arises. Returns
// how many blocks changed.
int FourColourBlocks(std::vector<char>& data) {
  int changed = 0;
  for (std::size_t at = 8; at + 8 <= data.size(); at += 16) {
    auto* b = reinterpret_cast<unsigned char*>(data.data() + at);
    const unsigned c0 = b[0] | b[1] << 8, c1 = b[2] | b[3] << 8;
    if (c0 > c1) continue;
    ++changed;
    if (c0 == c1) {
      std::memset(b + 4, 0, 4);
      continue;
    }
    std::swap(b[0], b[2]);
    std::swap(b[1], b[3]);
    for (int i = 4; i < 8; ++i) b[i] ^= 0x55;
  }
  return changed;
}

// A legacy DDS file around one surface of blocks (what nvdecompress reads).
std::vector<char> DdsOf(const SurfaceData& blocks, const char* fourcc) {
  std::vector<char> file(128);
  std::memcpy(file.data(), "DDS ", 4);
  Put32(file, 4, 124);
  Put32(file, 8, 0x1 | 0x2 | 0x4 | 0x1000 | 0x80000);  // caps, height, width, pixel format, linear size
  Put32(file, 12, static_cast<std::uint32_t>(blocks.Height()));
  Put32(file, 16, static_cast<std::uint32_t>(blocks.Width()));
  Put32(file, 20, static_cast<std::uint32_t>(blocks.Size()));
  Put32(file, 76, 32);
  Put32(file, 80, 0x4);  // FourCC
  std::memcpy(file.data() + 84, fourcc, 4);
  Put32(file, 108, 0x1000);  // texture
  std::vector<char> data(blocks.Buffer(), blocks.Buffer() + blocks.Size());
  if (std::strcmp(fourcc, "DXT3") == 0 || std::strcmp(fourcc, "DXT5") == 0) {
    const int changed = FourColourBlocks(data);
    if (changed != 0) std::printf("%d BC2/BC3 blocks with c0 <= c1 rewritten for the four-colour reading\n", changed);
  }
  file.insert(file.end(), data.begin(), data.end());
  return file;
}

bool WriteFile(const std::string& path, const std::vector<char>& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return static_cast<bool>(out);
}

const char* FourCCOf(CompressFormat f) {
  switch (f) {
    case CompressFormat::DXT1:
      return "DXT1";
    case CompressFormat::DXT2:
    case CompressFormat::DXT3:
      return "DXT3";
    case CompressFormat::DXT4:
    case CompressFormat::DXT5:
      return "DXT5";
    case CompressFormat::BC4_unsigned:
      return "ATI1";
    case CompressFormat::BC5_unsigned:
      return "ATI2";
    default:
      return nullptr;
  }
}

struct CorpusCase {
  const char* file;
  unsigned channels;  // compared channels (bit 0 red ... bit 3 alpha)
};

class BCCorpus : public ::testing::TestWithParam<CorpusCase> {};

// Every level and face of the file, decoded here (through the file loader)
// and by nvdecompress from the same blocks.
TEST_P(BCCorpus, MatchesNvdecompress) {
  if (!ToolAvailable("nvdecompress")) GTEST_SKIP() << "nvdecompress (libnvtt-bin) is not installed";
  const std::string path = CorpusDir() + "/" + GetParam().file;
  if (!ReadFile(path)) GTEST_SKIP() << "corpus file missing: " << path;
  const std::shared_ptr<Pyramid> pyramid = LoadPyramid(path);
  ASSERT_TRUE(pyramid);
  int worst = 0;
  unsigned compared = 0;
  for (unsigned long long level = 0; level < pyramid->LevelsCurrent(); ++level) {
    const unsigned long long count = pyramid->GetMipmap(level)->GetSurfaceCount();
    for (unsigned long long index = 0; index < count; ++index) {
      const std::shared_ptr<SurfaceData> blocks = pyramid->GetSurface(level, index)->Data();
      ASSERT_TRUE(blocks);
      const char* fourcc = FourCCOf(GetCompressFormat(blocks->Format()));
      ASSERT_NE(fourcc, nullptr) << ToString(blocks->Format());
      const std::string dds = ScratchPath(std::to_string(level) + "_" + std::to_string(index) + ".dds");
      const std::string tga = dds.substr(0, dds.size() - 4) + ".tga";
      ASSERT_TRUE(WriteFile(dds, DdsOf(*blocks, fourcc)));
      ASSERT_TRUE(RunCommand("nvdecompress '" + dds + "'")) << dds;
      const std::shared_ptr<SurfaceData> theirs = LoadRGBA8(tga);
      ASSERT_TRUE(theirs) << tga;
      if (pyramid->Origin() == ImageOrigin::BottomUp) {
        ASSERT_TRUE(theirs->FlipVertical());
      }
      const std::shared_ptr<SurfaceData> ours = ToRGBA8(*pyramid, level, index);
      ASSERT_TRUE(ours);
      const Difference d = Compare(*ours, *theirs, GetParam().channels);
      ASSERT_TRUE(d.comparable) << level << "/" << index;
      EXPECT_EQ(d.max, 0) << "level " << level << " surface " << index << " mean " << d.mean << " PSNR " << d.psnr;
      if (d.max > worst) worst = d.max;
      ++compared;
      std::remove(dds.c_str());
      std::remove(tga.c_str());
    }
  }
  RecordProperty("max_difference", worst);
  RecordProperty("surfaces", compared);
}

INSTANTIATE_TEST_SUITE_P(
    Files, BCCorpus,
    ::testing::Values(CorpusCase{"dds/nv_bc1_mips.dds", 0xF}, CorpusCase{"dds/nv_bc1_npot.dds", 0xF},
                      CorpusCase{"dds/nv_bc1a.dds", 0x7}, CorpusCase{"dds/nv_cube_bc1_mips.dds", 0xF},
                      CorpusCase{"dds/pillow_bc1_typeless.dds", 0xF}, CorpusCase{"dds/py_dx10_array3_bc1.dds", 0xF},
                      CorpusCase{"pvr/v2_dxt1_mips.pvr", 0xF}, CorpusCase{"pvr/v3_dxt1_mips.pvr", 0xF},
                      CorpusCase{"dds/nv_bc2_mips.dds", 0xF},
                      CorpusCase{"dds/pillow_dxt3-argb-8bbp-explicitalpha_MipMaps-1.dds", 0xF},
                      CorpusCase{"dds/nv_bc3_mips.dds", 0xF}, CorpusCase{"dds/nv_bc3_npot.dds", 0xF},
                      CorpusCase{"dds/nv_bc3n.dds", 0xF}, CorpusCase{"dds/im_dxt5_mips.dds", 0xF},
                      CorpusCase{"pvr/v3_dxt5.pvr", 0xF}, CorpusCase{"ktx/py_array2_dxt5.ktx", 0xF},
                      CorpusCase{"dds/nv_bc4.dds", 0x9}, CorpusCase{"dds/pillow_ati1.dds", 0x9},
                      CorpusCase{"dds/pillow_bc4_unorm.dds", 0x9}, CorpusCase{"dds/nv_bc5_mips.dds", 0xF},
                      CorpusCase{"dds/pillow_bc5u.dds", 0xF}),
    [](const ::testing::TestParamInfo<CorpusCase>& info) {
      std::string name = info.param.file;
      for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
      return name;
    });

}  // namespace
}  // namespace lumo::image::testing
