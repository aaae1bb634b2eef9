#include "plugins/pkm.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "format/checked_size.h"
#include "lumo/image/compressed_formats.h"
#include "lumo/image/export.h"
#include "lumo/image/formats.h"
#include "lumo/image/mipmaps.h"
#include "lumo/image/pyramid.h"
#include "lumo/image/surface_data.h"
#include "lumo/log/log.h"
#include "plugins/byte_reader.h"
#include "plugins/byte_writer.h"
#include "plugins/entry_guard.h"
#include "plugins/level_views.h"
#include "plugins/plugin_images.h"
#include "plugins/row_copy.h"

namespace lumo::image {
namespace {

using detail::FourCC;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = unsigned long long;

constexpr std::size_t kHeaderBytes = 16;

// The two plugins share everything but these.
struct Variant {
  ImageFormat format;
  const char* name;
  u32 magic;
};
constexpr Variant kPKM{ImageFormat::PKM, "PKM", FourCC('P', 'K', 'M', ' ')};
constexpr Variant kPKMA{ImageFormat::PKMA, "PKMA", FourCC('P', 'K', 'M', 'A')};

struct Code {
  u16 code;
  CompressFormat format;
  bool srgb;
};
constexpr Code kCodes[] = {
    {0, CompressFormat::ETC1, false},           {1, CompressFormat::ETC2_RGB8, false},
    {3, CompressFormat::ETC2_RGBA8, false},     {4, CompressFormat::ETC2_RGB8A1, false},
    {5, CompressFormat::EAC_R11, false},        {6, CompressFormat::EAC_RG11, false},
    {7, CompressFormat::EAC_SIGNED_R11, false}, {8, CompressFormat::EAC_SIGNED_RG11, false},
    {9, CompressFormat::ETC2_RGB8, true},       {10, CompressFormat::ETC2_RGBA8, true},
    {11, CompressFormat::ETC2_RGB8A1, true},
};
constexpr u16 kCodeETC1 = 0;        // the only code of version 1.0 files
constexpr u16 kCodeOldETCPACK = 2;  // an old encoder's format, refused

PixelFormatDescriptor DescriptorOf(const Code& c) {
  PixelFormatMeta meta{};
  meta.compressed = true;
  meta.srgb = c.srgb;
  meta.compress_format = c.format;
  return MakeDescriptor(meta);
}

const Code* FindCode(u16 code) {
  for (const Code& c : kCodes) {
    if (c.code == code) return &c;
  }
  return nullptr;
}

// ---- Reading ----

struct FileHeader {
  char version[2] = {};
  u16 code = 0, extended_width = 0, extended_height = 0, width = 0, height = 0;
};

// False for a buffer shorter than the header: no log line. The magic was
// judged by CheckFormat and is not compared again.
bool ReadHeader(detail::ByteReader in, FileHeader* h) {
  return in.Size() >= kHeaderBytes && in.Skip(4) && in.CopyTo(h->version, 2) && in.U16BE(&h->code) &&
         in.U16BE(&h->extended_width) && in.U16BE(&h->extended_height) && in.U16BE(&h->width) && in.U16BE(&h->height);
}

// The extended size is the image size rounded up to whole 4 x 4 blocks.
bool AreaMatches(u16 extended, u16 image) { return extended >= image && extended - image < 4; }

// The one place where header values are judged; logs what the format rules
// ask for, and false means Image::Null.
bool ValidateHeader(const FileHeader& h, u64 size, PixelFormatDescriptor* format) {
  int version = 0;
  if (h.version[1] == '0' && (h.version[0] == '1' || h.version[0] == '2')) {
    version = h.version[0] - '0';
  } else {
    lumo::log::LogError(LogChannel, "PKM(A) file is not of version 1.0 or 2.0, but %c.%c.", h.version[0], h.version[1]);
    return false;
  }
  if (!AreaMatches(h.extended_width, h.width) || !AreaMatches(h.extended_height, h.height)) {
    lumo::log::LogError(LogChannel, "PKM(A) invalid area size.");
    return false;
  }
  const Code* code = nullptr;
  if (version == 1) {
    if (h.code == kCodeETC1) code = FindCode(h.code);
  } else if (h.code == kCodeOldETCPACK) {
    lumo::log::CLogError(LogChannel, "PKM(A) contains a compressed texture created using an old version of ETCPACK.");
  } else if (h.code != kCodeETC1) {
    code = FindCode(h.code);
  }
  if (code == nullptr) {
    lumo::log::LogError(LogChannel, "PKM(A) of version %d.0 does not contain a texture of known format.", version);
    return false;
  }
  *format = DescriptorOf(*code);

  if (h.width == 0 || h.height == 0) {
    lumo::log::LogError(LogChannel, "PKM(A) width and height must not be 0.");
    return false;
  }
  // A file shorter than its blocks is refused whole: one image has no levels to drop.
  const u64 bytes = BytesTotal(*format, h.width, h.height, 0);
  if (bytes == 0 || !checked::RangeFits(kHeaderBytes, bytes, size)) {
    lumo::log::LogError(LogChannel, "PKM(A) image memory overflow: expect %llu, current %llu, refuse loading!",
                        static_cast<u64>(kHeaderBytes) + bytes, size);
    return false;
  }
  return true;
}

class ImagePKM final : public detail::ContainerImage {
 public:
  using ContainerImage::ContainerImage;
};

std::shared_ptr<Image> Decode(const std::shared_ptr<char>& data, std::size_t size, const Variant& variant) {
  FileHeader header;
  if (!ReadHeader(detail::ByteReader(data.get(), size), &header)) return Image::Null;
  PixelFormatDescriptor format{};
  if (!ValidateHeader(header, size, &format)) return Image::Null;

  const detail::LevelViews views(data, size, format);
  std::shared_ptr<Surface> surface = views.SurfaceAt(kHeaderBytes, {header.width, header.height, 1});
  if (!surface) throw detail::DecodeError("the blocks cannot be viewed");

  detail::ContainerImage::Shape shape;
  shape.width = header.width;
  shape.height = header.height;
  shape.format = format;
  shape.type = MipmapType::Surface;
  return std::make_shared<ImagePKM>(variant.format, shape, Pyramid::Make(surface, ImageOrigin::TopDown));
}

// ---- Writing ----

std::shared_ptr<char> Encode(const SurfaceData& surface, const Variant& variant, size_t* size) {
  const PixelFormatDescriptor format = surface.Format();
  if (!IsCompressed(format)) return nullptr;
  const Code* code = nullptr;
  for (const Code& c : kCodes) {
    if (DescriptorOf(c) == format) code = &c;
  }
  if (code == nullptr) {
    lumo::log::LogError(LogChannel, "[ImagePKM::Serialize]Unsupport pixel format %s!", ToString(format).c_str());
    return nullptr;
  }

  const u64 width = surface.Width(), height = surface.Height();
  const u64 bytes = BytesTotal(format, width, height, 0);
  u64 total = 0;
  if (bytes == 0 || checked::AddOverflows(bytes, kHeaderBytes, &total)) return nullptr;
  std::shared_ptr<char> file = detail::NewFileBuffer(total);
  if (!file) return nullptr;

  // Sizes are 16-bit fields: only their low bits are kept.
  auto field = [](u64 value) { return static_cast<u16>(value & 0xFFFF); };
  detail::ByteWriter out(file.get(), static_cast<std::size_t>(total));
  out.U32LE(variant.magic);
  out.U8(code->code == kCodeETC1 ? '1' : '2');
  out.U8('0');
  out.U16BE(code->code);
  out.U16BE(field((width + 3) & ~u64{3}));
  out.U16BE(field((height + 3) & ~u64{3}));
  out.U16BE(field(width));
  out.U16BE(field(height));
  char* blocks = out.Reserve(static_cast<std::size_t>(bytes));
  if (blocks == nullptr) return nullptr;
  detail::LevelElement element;
  element.data = surface.Buffer();
  element.size = element.data != nullptr ? surface.Size() : 0;
  detail::CopyElement(blocks, bytes, 0, true, element);
  *size = static_cast<size_t>(total);
  return file;
}

// Failures deep inside are raised; the entry points log them and report the
// failure result. Only allocation failures pass through.
constexpr detail::GuardPolicy kGuard{"PKM(A): %s", "PKM(A): unexpected failure", true};

template <const Variant& kVariant>
class PKMFamilyPlugin : public ImagePlugin {
 public:
  ImageFormat Format() override { return kVariant.format; }
  const char* Name() override { return kVariant.name; }

  bool CheckFormat(const char* data, size_t size) override {
    detail::ByteReader in(data, size);
    u32 magic = 0;
    return in.U32LE(&magic) && magic == kVariant.magic;
  }

  bool SharesSourceBuffer() override { return true; }

  std::shared_ptr<Image> Create(const std::shared_ptr<char>& data, size_t size) override {
    return detail::Guarded(kGuard, Image::Null, [&] { return Decode(data, size, kVariant); });
  }

  using ImagePlugin::Serialize;  // the pyramid form writes level 0, surface 0

  std::shared_ptr<char> Serialize(const SurfaceData* surface, size_t* size, int /*flags*/) override {
    if (surface == nullptr || size == nullptr) return nullptr;
    return detail::Guarded(kGuard, std::shared_ptr<char>(), [&] { return Encode(*surface, kVariant, size); });
  }
};

class ImagePKMPlugin final : public PKMFamilyPlugin<kPKM> {};
class ImagePKMAPlugin final : public PKMFamilyPlugin<kPKMA> {};

}  // namespace

ImagePlugin* detail::PKMPlugin() {
  static ImagePKMPlugin plugin;
  return &plugin;
}

ImagePlugin* detail::PKMAPlugin() {
  static ImagePKMAPlugin plugin;
  return &plugin;
}

}  // namespace lumo::image
