// Front end of the block library: checks every size once, then hands the
// blocks to the codec family that owns the format.
#include "lumo/image/blocks.h"

#include <cstdint>
#include <cstdlib>
#include <thread>
#include <new>
#include <vector>

#include "blocks/block_kit.h"
#include "format/checked_size.h"
#include "lumo/image/converters.h"
#include "lumo/image/mipmaps.h"
#include "lumo/image/pyramid.h"
#include "lumo/image/surface_data.h"
#include "lumo/image/volume_data.h"

namespace lumo::image::blocks {
namespace {

using detail::BlockSource;
using detail::PixelTarget;

bool Is3DASTC(CompressFormat f) {
  const auto v = static_cast<std::uint32_t>(f);
  return v >= 45 && v <= 54;
}

bool FamilyDecodes(CompressFormat f) {
  return detail::BCDecodes(f) || detail::ETCDecodes(f) || detail::ATCDecodes(f) || detail::PVRTCDecodes(f) ||
         detail::ASTCDecodes(f);
}

unsigned long long DecodedPixelBytes(const PixelFormatDescriptor& decoded) {
  unsigned long long divisor = 0;
  const unsigned long long bytes = BytesPerPixel(decoded, &divisor);
  return divisor == 1 ? bytes : 0;
}

// Bytes of one 2-D image of blocks, or of the whole volume for 3-D ASTC.
unsigned long long BlockBytes(const PixelFormatDescriptor& format, unsigned long long w, unsigned long long h,
                              unsigned long long d) {
  return Is3DASTC(GetCompressFormat(format)) ? BytesTotal(format, w, h, d, 0) : BytesTotal(format, w, h, 0);
}

bool DecodeOne(const BlockSource& src, const PixelTarget& dst) {
  return detail::DecodeBC(src, dst) || detail::DecodeETC(src, dst) || detail::DecodeATC(src, dst) ||
         detail::DecodePVRTC(src, dst) || detail::DecodeASTC(src, dst);
}

bool IsPlainRGBA8(const PixelFormatDescriptor& f) {
  return f == formats::A8B8G8R8 || f == formats::s_A8B8G8R8;
}

// A converter object for the core's ConvertCopy paths: ignores the target it
// is given and produces the format it stands for.
class BlockDecoder final : public Converter {
 public:
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor&) override {
    return source != nullptr ? DecodeCopy(*source) : SurfaceData::Null;
  }
};

class BlockEncoder final : public Converter {
 public:
  BlockEncoder(PixelFormatDescriptor format, Quality quality) : format_(format), quality_(quality) {}
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor&) override {
    return source != nullptr ? EncodeCopy(*source, format_, quality_) : SurfaceData::Null;
  }

 private:
  PixelFormatDescriptor format_;
  Quality quality_;
};

template <class MapLevel>
std::shared_ptr<Pyramid> MapLevels(const Pyramid& source, MapLevel&& map) {
  std::vector<std::shared_ptr<Mipmap>> levels;
  for (unsigned long long i = 0; i < source.LevelsCurrent(); ++i) {
    const std::shared_ptr<Mipmap> level = source.GetMipmap(i);
    if (!level) return Pyramid::Null;
    std::shared_ptr<Mipmap> mapped = map(level);
    if (!mapped) return Pyramid::Null;
    levels.push_back(std::move(mapped));
  }
  if (levels.empty()) return Pyramid::Null;
  return Pyramid::Make(levels, source.Origin());
}

}  // namespace

unsigned detail::EncoderThreads() {
  unsigned n = std::thread::hardware_concurrency();
  if (const char* env = std::getenv("LMIMAGE_BLOCKS_THREADS")) {
    const long v = std::strtol(env, nullptr, 10);
    if (v > 0 && v <= 256) n = static_cast<unsigned>(v);
  }
  return n == 0 ? 1 : n;
}

PixelFormatDescriptor DecodedFormat(const PixelFormatDescriptor& format) {
  const CompressFormat f = GetCompressFormat(format);
  if (f == CompressFormat::None || !FamilyDecodes(f)) return PixelFormatDescriptor{};
  switch (f) {
    case CompressFormat::BC6H_unsigned:
    case CompressFormat::BC6H_signed:
      return formats::A16fB16fG16fR16f;
    case CompressFormat::EAC_R11:
    case CompressFormat::EAC_RG11:
      return formats::A16B16G16R16;
    case CompressFormat::EAC_SIGNED_R11:
    case CompressFormat::EAC_SIGNED_RG11:
      return formats::A16sB16sG16sR16s;
    case CompressFormat::BC4_signed:
    case CompressFormat::BC5_signed:
      return formats::A8sB8sG8sR8s;
    default:
      return IsSRGB(format) ? formats::s_A8B8G8R8 : formats::A8B8G8R8;
  }
}

bool CanDecode(const PixelFormatDescriptor& format) { return DecodedFormat(format) != PixelFormatDescriptor{}; }

bool CanEncode(const PixelFormatDescriptor& format) {
  const CompressFormat f = GetCompressFormat(format);
  return f != CompressFormat::None && (detail::BCEncodes(f) || detail::ASTCEncodes(f));
}

bool DecodeBlocks(const PixelFormatDescriptor& format, const void* blocks, unsigned long long blocks_size,
                  unsigned long long width, unsigned long long height, unsigned long long depth, void* out,
                  unsigned long long out_size, unsigned long long out_bytes_per_row) {
  const PixelFormatDescriptor decoded = DecodedFormat(format);
  if (decoded == PixelFormatDescriptor{} || blocks == nullptr || out == nullptr) return false;
  if (width == 0 || height == 0 || depth == 0 || width > UINT32_MAX || height > UINT32_MAX || depth > UINT32_MAX)
    return false;
  const CompressFormat f = GetCompressFormat(format);
  const unsigned long long pixel_bytes = DecodedPixelBytes(decoded);
  // Blocks: one grid per slice, or one volume grid for 3-D blocks.
  const bool volume_blocks = Is3DASTC(f);
  const unsigned long long grid = BlockBytes(format, width, height, depth);
  unsigned long long needed = grid;
  if (grid == 0 || (!volume_blocks && checked::MulOverflows(grid, depth, &needed)) || needed > blocks_size)
    return false;
  // Pixels: the last row of the last slice needs only width pixels.
  unsigned long long row = 0, rows = 0, last = 0;
  if (checked::MulOverflows(width, pixel_bytes, &row) || row > out_bytes_per_row) return false;
  if (checked::MulOverflows(height, depth, &rows) || checked::MulAddOverflows(rows - 1, out_bytes_per_row, row, &last) ||
      last > out_size)
    return false;

  const auto* in = static_cast<const std::uint8_t*>(blocks);
  auto* px = static_cast<std::uint8_t*>(out);
  const bool srgb = IsSRGB(format);
  if (volume_blocks) {
    const BlockSource src{in, static_cast<std::size_t>(grid), static_cast<std::uint32_t>(width),
                          static_cast<std::uint32_t>(height), static_cast<std::uint32_t>(depth), f, srgb};
    return DecodeOne(src, PixelTarget{px, static_cast<std::size_t>(out_bytes_per_row)});
  }
  for (unsigned long long z = 0; z < depth; ++z) {
    const BlockSource src{in + z * grid, static_cast<std::size_t>(grid), static_cast<std::uint32_t>(width),
                          static_cast<std::uint32_t>(height), 1, f, srgb};
    if (!DecodeOne(src, PixelTarget{px + z * height * out_bytes_per_row, static_cast<std::size_t>(out_bytes_per_row)}))
      return false;
  }
  return true;
}

bool EncodeBlocks(const PixelFormatDescriptor& format, const void* pixels, unsigned long long pixels_size,
                  unsigned long long pixels_bytes_per_row, unsigned long long width, unsigned long long height,
                  void* out, unsigned long long out_size, Quality quality) {
  if (!CanEncode(format) || pixels == nullptr || out == nullptr) return false;
  if (width == 0 || height == 0 || width > UINT32_MAX || height > UINT32_MAX) return false;
  unsigned long long row = 0, last = 0;
  if (checked::MulOverflows(width, 4ull, &row) || row > pixels_bytes_per_row ||
      checked::MulAddOverflows(height - 1, pixels_bytes_per_row, row, &last) || last > pixels_size)
    return false;
  const unsigned long long needed = BytesTotal(format, width, height, 0);
  if (needed == 0 || needed > out_size) return false;
  const CompressFormat f = GetCompressFormat(format);
  const detail::PixelSource src{static_cast<const std::uint8_t*>(pixels), static_cast<std::size_t>(pixels_bytes_per_row),
                                static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)};
  auto* blocks = static_cast<std::uint8_t*>(out);
  if (detail::BCEncodes(f)) return detail::EncodeBC(f, src, blocks, quality);
  return detail::EncodeASTC(f, IsSRGB(format), src, blocks, quality);
}

std::shared_ptr<SurfaceData> DecodeCopy(const SurfaceData& source) {
  const PixelFormatDescriptor decoded = DecodedFormat(source.Format());
  if (decoded == PixelFormatDescriptor{} || source.Buffer() == nullptr) return SurfaceData::Null;
  const std::shared_ptr<SurfaceDataBitmap> out = SurfaceDataBitmap::Create(source.Width(), source.Height(), decoded, 2);
  if (!out) return SurfaceData::Null;
  if (!DecodeBlocks(source.Format(), source.Buffer(), source.Size(), source.Width(), source.Height(), 1, out->Buffer(),
                    out->Size(), out->BytesPerRow()))
    return SurfaceData::Null;
  return out;
}

std::shared_ptr<VolumeData> DecodeCopy(const VolumeData& source) {
  VolumeData& view = const_cast<VolumeData&>(source);  // Format() is not const in the core
  const PixelFormatDescriptor format = view.Format();
  const PixelFormatDescriptor decoded = DecodedFormat(format);
  if (decoded == PixelFormatDescriptor{} || source.Buffer() == nullptr) return VolumeData::Null;
  if (source.IsSliceable()) {
    std::vector<std::shared_ptr<SurfaceData>> slices;
    for (unsigned long long z = 0; z < source.Depth(); ++z) {
      const std::shared_ptr<SurfaceDataSharedMemory> slice = source.GetSlice(z);
      std::shared_ptr<SurfaceData> decoded_slice = slice ? DecodeCopy(*slice) : SurfaceData::Null;
      if (!decoded_slice) return VolumeData::Null;
      slices.push_back(std::move(decoded_slice));
    }
    return VolumeData::Create(slices);
  }
  // 3-D blocks decode as one volume into rows padded to four bytes.
  const unsigned long long row = BytesPerRow(decoded, source.Width(), 2);
  unsigned long long rows = 0, total = 0;
  if (row == 0 || checked::MulOverflows(source.Height(), source.Depth(), &rows) ||
      checked::MulOverflows(rows, row, &total))
    return VolumeData::Null;
  std::shared_ptr<char> buffer(new (std::nothrow) char[total], array_deleter());
  if (!buffer) return VolumeData::Null;
  if (!DecodeBlocks(format, source.Buffer(), source.Size(), source.Width(), source.Height(), source.Depth(),
                    buffer.get(), total, row))
    return VolumeData::Null;
  return VolumeData::Create(buffer, 0, decoded, source.Width(), source.Height(), source.Depth(), 2);
}

std::shared_ptr<Pyramid> DecodeCopy(const Pyramid& source) {
  BlockDecoder decoder;
  return MapLevels(source, [&decoder](const std::shared_ptr<Mipmap>& level) -> std::shared_ptr<Mipmap> {
    if (level->Type() == MipmapType::Volume) {
      const auto volume = std::static_pointer_cast<Volume>(level);
      if (!volume->Data()) return Mipmap::Null;
      const std::shared_ptr<VolumeData> data = DecodeCopy(*volume->Data());
      return data ? std::make_shared<Volume>(data) : Mipmap::Null;
    }
    return level->ConvertCopy(&decoder);
  });
}

std::shared_ptr<SurfaceData> EncodeCopy(const SurfaceData& source, const PixelFormatDescriptor& format,
                                        Quality quality) {
  if (!CanEncode(format) || source.Buffer() == nullptr) return SurfaceData::Null;
  std::shared_ptr<SurfaceData> converted;
  const SurfaceData* rgba = &source;
  if (!IsPlainRGBA8(source.Format())) {
    converted = source.ConvertCopy(formats::A8B8G8R8);
    if (!converted) return SurfaceData::Null;
    rgba = converted.get();
  }
  const std::shared_ptr<SurfaceDataBitmap> out = SurfaceDataBitmap::Create(source.Width(), source.Height(), format, 2);
  if (!out) return SurfaceData::Null;
  if (!EncodeBlocks(format, rgba->Buffer(), rgba->Size(), rgba->BytesPerRow(), rgba->Width(), rgba->Height(),
                    out->Buffer(), out->Size(), quality))
    return SurfaceData::Null;
  return out;
}

std::shared_ptr<Pyramid> EncodeCopy(const Pyramid& source, const PixelFormatDescriptor& format, Quality quality) {
  if (!CanEncode(format)) return Pyramid::Null;
  BlockEncoder encoder(format, quality);
  return MapLevels(source, [&encoder](const std::shared_ptr<Mipmap>& level) { return level->ConvertCopy(&encoder); });
}

int RegisterDecoders(ConverterManager& manager) {
  const auto decoder = std::make_shared<BlockDecoder>();
  int added = 0;
  for (std::uint32_t f = 1; f <= 54; ++f) {
    for (const bool srgb : {false, true}) {
      const PixelFormatDescriptor format =
          SetSRGB(static_cast<PixelFormatDescriptor>((static_cast<unsigned long long>(f) << 8) | 1u), srgb);
      const PixelFormatDescriptor decoded = DecodedFormat(format);
      if (decoded == PixelFormatDescriptor{}) continue;
      if (manager.RegisterConverter({format, decoded}, decoder, false)) ++added;
    }
  }
  return added;
}

}  // namespace lumo::image::blocks
