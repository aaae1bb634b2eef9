#include "plugins/astc.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>

#include "format/checked_size.h"
#include "lumo/image/compressed_formats.h"
#include "lumo/image/export.h"
#include "lumo/image/formats.h"
#include "lumo/image/mipmaps.h"
#include "lumo/image/pyramid.h"
#include "lumo/image/surface_data.h"
#include "lumo/image/volume_data.h"
#include "lumo/log/log.h"
#include "plugins/byte_reader.h"
#include "plugins/byte_writer.h"
#include "plugins/entry_guard.h"
#include "plugins/level_views.h"
#include "plugins/plugin_images.h"
#include "plugins/row_copy.h"

// Bounds. The header's sizes are compared with the buffer: a file whose
// blocks are shorter than its width, height and depth need is refused
// (Image::Null) with one log line giving the bytes needed and the bytes
// there. Bytes after the blocks are ignored. The image depth alone chooses
// between surface and volume; a surface sizes 3-D blocks as one block per
// pixel, so a one-slice file of them is refused as too short.

namespace lumo::image {
namespace {

using detail::Extent;
using detail::LevelViews;
using u64 = unsigned long long;

constexpr unsigned char kMagic[4] = {0x13, 0xAB, 0xA1, 0x5C};
constexpr std::size_t kHeaderBytes = 16;
// Sizes are stored in 24 bits.
constexpr u64 kSizeLimit = u64{1} << 24;

// The accepted block shapes are those of the ASTC formats; 2-D footprints
// have depth 1.
constexpr auto kFirstASTC = static_cast<unsigned>(CompressFormat::ASTC_RGBA_4x4);
constexpr auto kLastASTC = static_cast<unsigned>(CompressFormat::ASTC_RGBA_6x6x6);

// The (non-sRGB) descriptor of a block shape; 0 when no format has it.
PixelFormatDescriptor FormatOfBlock(unsigned width, unsigned height, unsigned depth) {
  for (unsigned number = kFirstASTC; number <= kLastASTC; ++number) {
    unsigned char w = 0, h = 0, d = 0;
    ASTCBlockDimension(static_cast<CompressFormat>(number), &w, &h, &d);
    if (w == width && h == height && d == depth) return PixelFormatDescriptor{u64{number} << 8 | 1};
  }
  return PixelFormatDescriptor{};
}

bool InRange(unsigned value, unsigned low, unsigned high) { return value >= low && value <= high; }

class ImageASTC final : public detail::ContainerImage {
 public:
  using ContainerImage::ContainerImage;
};

std::shared_ptr<Image> Decode(const std::shared_ptr<char>& data, std::size_t size) {
  detail::ByteReader in(data.get(), size);
  std::uint8_t block[3] = {};
  std::uint32_t width = 0, height = 0, depth = 0;
  if (size < kHeaderBytes || !(in.Skip(sizeof kMagic) && in.U8(&block[0]) && in.U8(&block[1]) && in.U8(&block[2]) &&
                               in.U24LE(&width) && in.U24LE(&height) && in.U24LE(&depth))) {
    return Image::Null;
  }
  if (!InRange(block[0], 3, 12) || !InRange(block[1], 3, 12) || (block[2] != 1 && !InRange(block[2], 3, 12))) {
    lumo::log::LogError(LogChannel, "Unsupport astc block %d %d %d", block[0], block[1], block[2]);
    return Image::Null;
  }
  const PixelFormatDescriptor format = FormatOfBlock(block[0], block[1], block[2]);
  if (format == PixelFormatDescriptor{}) return Image::Null;
  if (width == 0 || height == 0 || depth == 0) {
    lumo::log::LogError(LogChannel, "ASTC image of %u x %u x %u pixels holds no pixels.", static_cast<unsigned>(width),
                        static_cast<unsigned>(height), static_cast<unsigned>(depth));
    return Image::Null;
  }

  const bool volume = depth != 1;
  const Extent extent{width, height, depth};
  const LevelViews views(data, size, format);
  const u64 bytes = views.Bytes(extent, volume);
  if (!views.Fits(kHeaderBytes, extent, volume)) {
    u64 end = 0;
    if (bytes == 0 || checked::AddOverflows(u64{kHeaderBytes}, bytes, &end)) end = std::numeric_limits<u64>::max();
    lumo::log::LogError(LogChannel, "ASTC blocks memory overflow: expect %llu, current %llu, refuse loading!", end,
                        static_cast<u64>(size));
    return Image::Null;
  }
  std::shared_ptr<Mipmap> level;
  if (volume) {
    level = views.VolumeAt(kHeaderBytes, extent);
  } else {
    level = views.SurfaceAt(kHeaderBytes, extent);
  }
  if (!level) return Image::Null;

  detail::ContainerImage::Shape shape;
  shape.width = width;
  shape.height = height;
  shape.depth = depth;
  shape.is_array = false;
  shape.format = format;
  shape.type = volume ? MipmapType::Volume : MipmapType::Surface;
  return std::make_shared<ImageASTC>(ImageFormat::ASTC, shape, Pyramid::Make(level, ImageOrigin::TopDown));
}

// An image of `width` x `height` x `depth` pixels whose blocks are the
// `available` bytes at `blocks`. The sRGB flag is not stored.
std::shared_ptr<char> Encode(const PixelFormatDescriptor& format, u64 width, u64 height, u64 depth, const char* blocks,
                             u64 available, size_t* size) {
  if (!IsASTC(format)) {
    lumo::log::LogError(LogChannel, "[ImageASTCPlugin::Serialize] Not support pfd %s!", ToString(format).c_str());
    return nullptr;
  }
  if (width == 0 || height == 0 || depth == 0 || width >= kSizeLimit || height >= kSizeLimit || depth >= kSizeLimit) {
    lumo::log::LogError(LogChannel, "[ImageASTCPlugin::Serialize] Size %llu x %llu x %llu does not fit an astc header!",
                        width, height, depth);
    return nullptr;
  }
  unsigned char block_width = 0, block_height = 0, block_depth = 0;
  ASTCBlockDimension(format, &block_width, &block_height, &block_depth);
  // Counted in 3-D blocks for 3-D formats, also one slice deep.
  const u64 bytes = BytesTotal(format, width, height, depth, 0);
  u64 total = 0;
  if (bytes == 0 || checked::AddOverflows(u64{kHeaderBytes}, bytes, &total) ||
      total > std::numeric_limits<std::size_t>::max()) {
    lumo::log::LogError(LogChannel, "[ImageASTCPlugin::Serialize] Size %llu x %llu x %llu does not fit an astc header!",
                        width, height, depth);
    return nullptr;
  }

  std::shared_ptr<char> file = detail::NewFileBuffer(total);
  detail::ByteWriter out(file.get(), static_cast<std::size_t>(total));
  out.Bytes(kMagic, sizeof kMagic);
  out.U8(block_width);
  out.U8(block_height);
  out.U8(block_depth);
  out.U24LE(static_cast<std::uint32_t>(width));
  out.U24LE(static_cast<std::uint32_t>(height));
  out.U24LE(static_cast<std::uint32_t>(depth));
  char* payload = out.Reserve(static_cast<std::size_t>(bytes));
  if (payload == nullptr || !out.Ok()) return nullptr;
  // The blocks as they stand; whatever the source lacks is written as zeros.
  detail::LevelElement source;
  source.data = blocks;
  source.size = blocks != nullptr ? available : 0;
  detail::CopyElement(payload, bytes, 0, true, source);
  *size = static_cast<size_t>(total);
  return file;
}

constexpr detail::GuardPolicy kGuard{"ASTC: %s", "ASTC: unexpected failure", true};

class ImageASTCPlugin : public ImagePlugin {
 public:
  ImageFormat Format() override { return ImageFormat::ASTC; }
  const char* Name() override { return "ASTC"; }

  bool CheckFormat(const char* data, size_t size) override {
    return detail::HasMagic(data, size, kMagic, sizeof kMagic);
  }

  bool SharesSourceBuffer() override { return true; }

  std::shared_ptr<Image> Create(const std::shared_ptr<char>& data, size_t size) override {
    return detail::Guarded(kGuard, Image::Null, [&] { return Decode(data, size); });
  }

  // A pyramid is written as its level 0, surface 0 (a volume's first slice).
  using ImagePlugin::Serialize;

  std::shared_ptr<char> Serialize(const SurfaceData* surface, size_t* size, int /*flags*/) override {
    if (surface == nullptr || size == nullptr) return nullptr;
    return detail::Guarded(kGuard, std::shared_ptr<char>(), [&] {
      return Encode(surface->Format(), surface->Width(), surface->Height(), 1, surface->Buffer(), surface->Size(),
                    size);
    });
  }
};

}  // namespace

ImagePlugin* detail::ASTCPlugin() {
  static ImageASTCPlugin plugin;
  return &plugin;
}

}  // namespace lumo::image
