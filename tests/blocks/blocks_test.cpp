// The block library's front end: the size checks that stand between every
// codec family and the caller's buffers, and whole textures through the
// surface, volume, pyramid and converter paths.
#include <gtest/gtest.h>

#include <vector>

#include "lumo/image/blocks.h"
#include "lumo/image/converters.h"
#include "lumo/image/volume_data.h"
#include "support/surfaces.h"

namespace lumo::image::blocks {
namespace {

using testing::Chain;
using testing::Filled;

PixelFormatDescriptor Compressed(CompressFormat f) {
  return static_cast<PixelFormatDescriptor>((static_cast<unsigned long long>(f) << 8) | 1u);
}
const PixelFormatDescriptor kDXT5 = Compressed(CompressFormat::DXT5);

TEST(BlocksFrontEnd, RefusesShortBuffersAndOddSizes) {
  // 5 x 3 DXT1 needs two blocks (16 bytes) and 5 x 3 RGBA pixels.
  const std::vector<char> in(16);
  std::vector<char> out(5 * 4 * 3);
  struct Case {
    const char* what;
    PixelFormatDescriptor format;
    unsigned long long in_size, width, height, depth, out_size, pitch;
    bool ok;
  } cases[] = {
      {"exact", formats::DXT1, 16, 5, 3, 1, 60, 20, true},
      {"one block byte short", formats::DXT1, 15, 5, 3, 1, 60, 20, false},
      {"one pixel byte short", formats::DXT1, 16, 5, 3, 1, 59, 20, false},
      {"pitch below a row", formats::DXT1, 16, 5, 3, 1, 60, 19, false},
      {"last row needs only its pixels", formats::DXT1, 16, 5, 3, 1, 2 * 24 + 20, 24, true},
      {"last row one byte short", formats::DXT1, 16, 5, 3, 1, 2 * 24 + 19, 24, false},
      {"zero width", formats::DXT1, 16, 0, 3, 1, 60, 20, false},
      {"width past 32 bits", formats::DXT1, 16, 1ull << 32, 1, 1, 60, 20, false},
      {"rows overflow", formats::DXT1, 16, 1, 1ull << 31, 1ull << 31, 60, 20, false},
      {"plain format", formats::A8B8G8R8, 16, 2, 2, 1, 60, 8, false},
      {"two slices need twice the blocks", formats::DXT1, 16, 5, 3, 2, 60, 20, false},
  };
  for (const Case& c : cases) {
    std::vector<char> target(c.out_size + 8);
    EXPECT_EQ(DecodeBlocks(c.format, in.data(), c.in_size, c.width, c.height, c.depth, target.data(), c.out_size,
                           c.pitch),
              c.ok)
        << c.what;
  }
  std::vector<char> pixels(4 * 4 * 4);
  EXPECT_FALSE(EncodeBlocks(kDXT5, pixels.data(), pixels.size(), 16, 4, 4, out.data(), 15, Quality::Fast));
  EXPECT_FALSE(EncodeBlocks(kDXT5, pixels.data(), pixels.size() - 1, 16, 4, 4, out.data(), 16, Quality::Fast));
  EXPECT_TRUE(EncodeBlocks(kDXT5, pixels.data(), pixels.size(), 16, 4, 4, out.data(), 16, Quality::Fast));
}

TEST(BlocksFrontEnd, EveryDecodableFormatDecodesFillerAndRandomBlocksAtOddSizes) {
  for (unsigned f = 1; f <= 54; ++f) {
    const PixelFormatDescriptor format = Compressed(static_cast<CompressFormat>(f));
    if (!CanDecode(format)) continue;
    const bool volume = f >= 45;
    for (const unsigned long long size : {1ull, 5ull, 17ull}) {
      const unsigned long long depth = volume ? 3 : 1;
      const unsigned long long bytes = volume ? BytesTotal(format, size, 3, depth, 0) : BytesTotal(format, size, 3, 0);
      std::vector<unsigned char> in(bytes);
      for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<unsigned char>(i * 131 + f);
      unsigned long long divisor = 0;
      const unsigned long long row = size * BytesPerPixel(DecodedFormat(format), &divisor);
      std::vector<char> out(row * 3 * depth);
      EXPECT_TRUE(DecodeBlocks(format, in.data(), in.size(), size, 3, depth, out.data(), out.size(), row))
          << ToString(format) << " at " << size << "x3";
    }
  }
}

TEST(BlocksFrontEnd, PyramidsKeepTheirShapeThroughEncodeAndDecode) {
  for (const MipmapType kind : {MipmapType::Surface, MipmapType::SurfaceArray, MipmapType::Cube, MipmapType::Volume}) {
    const auto source = Chain(kind, 16, 16, 2, formats::A8B8G8R8, 5);
    const auto encoded = EncodeCopy(*source, kDXT5, Quality::Fast);
    ASSERT_TRUE(encoded) << static_cast<int>(kind);
    const auto decoded = DecodeCopy(*encoded);
    ASSERT_TRUE(decoded);
    for (const Pyramid* p : {encoded.get(), decoded.get()}) {
      EXPECT_EQ(p->Type(), source->Type());
      EXPECT_EQ(p->LevelsCurrent(), 5u);
      EXPECT_EQ(p->GetMipmap(4)->GetSurfaceCount(), source->GetMipmap(4)->GetSurfaceCount());
      EXPECT_EQ(p->GetSurface(4)->Width(), 1u);
    }
    EXPECT_EQ(encoded->Format(), kDXT5);
    EXPECT_EQ(decoded->Format(), formats::A8B8G8R8);
  }
  // Plain input is not decoded; formats without an encoder are refused.
  const auto plain = Chain(MipmapType::Surface, 8, 8, 1, formats::A8B8G8R8, 1);
  EXPECT_FALSE(DecodeCopy(*plain));
  EXPECT_FALSE(EncodeCopy(*plain, formats::A8R8G8B8, Quality::Fast));
  EXPECT_FALSE(CanEncode(Compressed(CompressFormat::BC7)));
}

TEST(BlocksFrontEnd, VolumesOf3DBlocksDecodeWhole) {
  const PixelFormatDescriptor format = Compressed(CompressFormat::ASTC_RGBA_4x4x4);
  const unsigned long long size = BytesTotal(format, 9, 5, 6, 0);
  const std::shared_ptr<char> buffer(new char[size](), array_deleter());
  const auto volume = VolumeData::Create(buffer, 0, format, 9, 5, 6, 0);
  ASSERT_TRUE(volume);
  const auto decoded = DecodeCopy(*volume);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->Depth(), 6u);
  EXPECT_TRUE(decoded->IsSliceable());
  EXPECT_EQ(decoded->GetSlice(5)->Width(), 9u);
}

TEST(BlocksFrontEnd, RegisteredDecodersServeConvertCopyButNoPlainChainPassesThroughBlocks) {
  // The chain of every plain pair stays as it was (R5G6B5 -> R8G8B8 -> A8B8G8R8, ...).
  const auto steps = [](const ConverterManager& manager, PixelFormatDescriptor from, PixelFormatDescriptor to) {
    std::vector<PixelFormatDescriptor> produced;
    const auto converter = manager.GetConverter(from, to);
    if (const auto* chain = dynamic_cast<const ConverterSequence*>(converter.get()))
      for (const auto& step : chain->Steps()) produced.push_back(step.produces);
    return produced;
  };
  ConverterManager manager = *ConverterManager::Instance();
  const auto before = steps(manager, formats::R5G6B5, formats::A8B8G8R8);
  EXPECT_GT(RegisterDecoders(manager), 60);
  EXPECT_EQ(RegisterDecoders(manager), 0);  // pairs kept
  EXPECT_EQ(steps(manager, formats::R5G6B5, formats::A8B8G8R8), before);
  EXPECT_FALSE(manager.GetConverter(formats::A8B8G8R8, formats::DXT1));

  const auto dxt1 = EncodeCopy(*Filled(8, 8, formats::A8B8G8R8, 3)->Data(), formats::DXT1, Quality::Fast);
  ASSERT_TRUE(dxt1);
  const auto chain = manager.GetConverter(formats::DXT1, formats::A8R8G8B8);
  ASSERT_TRUE(chain);
  const auto converted = dxt1->ConvertCopy(chain.get());
  ASSERT_TRUE(converted);
  EXPECT_EQ(converted->Format(), formats::A8R8G8B8);
}

}  // namespace
}  // namespace lumo::image::blocks
