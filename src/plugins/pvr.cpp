#include "plugins/pvr.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

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
#include "plugins/container_plugin.h"
#include "plugins/entry_guard.h"
#include "plugins/level_views.h"
#include "plugins/plugin_images.h"
#include "plugins/row_copy.h"

namespace lumo::image {
namespace {

using detail::Extent;
using detail::FourCC;
using detail::kCubeFaces;
using detail::LevelExtent;
using detail::LevelViews;
using u8 = std::uint8_t;
using u32 = std::uint32_t;
using u64 = unsigned long long;

constexpr u32 kVersion3 = FourCC('P', 'V', 'R', 3);
constexpr u32 kVersion2Magic = FourCC('P', 'V', 'R', '!');
constexpr u32 kOrientationKey = 3;
constexpr unsigned char kVersion2Mark = '4';  // the low byte of the old header's size field, 52

constexpr std::size_t kHeaderBytes = 52;
constexpr std::size_t kMinimumFile = kHeaderBytes + 1;
constexpr std::size_t kMetadataEntryHeader = 12;
constexpr std::size_t kOffVersion2Magic = 44, kOffVersion2Surfaces = 48;

// Version 2 flags above the pixel type byte.
constexpr u32 kV2Cube = 0x1000, kV2Volume = 0x4000, kV2Alpha = 0x8000, kV2BottomUp = 0x10000;

constexpr u32 kColourSpaceSRGB = 1;
constexpr u32 kCubeFaceCount = 6;

// The kinds of texture, numbered as Image::Type reports them.
enum class Kind : u32 { Surface = 0, Volume = 1, Cube = 2, SurfaceArray = 3, CubeArray = 4 };

// ---- The two tables (constant-initialised, so they exist before any code runs) ----

// Compressed-format ids of the pixel format field, both directions.
struct CompressedId {
  u32 id;
  CompressFormat format;
};
constexpr CompressedId kCompressedIds[] = {
    {0, CompressFormat::PVRTC_2bpp_RGB},
    {1, CompressFormat::PVRTC_2bpp_RGBA},
    {2, CompressFormat::PVRTC_4bpp_RGB},
    {3, CompressFormat::PVRTC_4bpp_RGBA},
    {4, CompressFormat::PVRTC2_2bpp},
    {5, CompressFormat::PVRTC2_4bpp},
    {6, CompressFormat::ETC1},
    {7, CompressFormat::DXT1},
    {8, CompressFormat::DXT2},
    {9, CompressFormat::DXT3},
    {10, CompressFormat::DXT4},
    {11, CompressFormat::DXT5},
    {12, CompressFormat::BC4_unsigned},
    {13, CompressFormat::BC5_unsigned},
    {14, CompressFormat::BC6H_unsigned},
    {15, CompressFormat::BC7},
    {22, CompressFormat::ETC2_RGB8},
    {23, CompressFormat::ETC2_RGBA8},
    {24, CompressFormat::ETC2_RGB8A1},
    {25, CompressFormat::EAC_R11},
    {26, CompressFormat::EAC_RG11},
    {27, CompressFormat::ASTC_RGBA_4x4},
    {28, CompressFormat::ASTC_RGBA_5x4},
    {29, CompressFormat::ASTC_RGBA_5x5},
    {30, CompressFormat::ASTC_RGBA_6x5},
    {31, CompressFormat::ASTC_RGBA_6x6},
    {32, CompressFormat::ASTC_RGBA_8x5},
    {33, CompressFormat::ASTC_RGBA_8x6},
    {34, CompressFormat::ASTC_RGBA_8x8},
    {35, CompressFormat::ASTC_RGBA_10x5},
    {36, CompressFormat::ASTC_RGBA_10x6},
    {37, CompressFormat::ASTC_RGBA_10x8},
    {38, CompressFormat::ASTC_RGBA_10x10},
    {39, CompressFormat::ASTC_RGBA_12x10},
    {40, CompressFormat::ASTC_RGBA_12x12},
};
// Not a compressed format: the reader takes this id as A1.
constexpr u32 kIdA1 = 18;

// An uncompressed pixel format field: channel letters in bytes 0-3, their bit
// counts in bytes 4-7 (bytes 8-15 of the file).
constexpr u64 Channels(const char* letters, u8 b0, u8 b1 = 0, u8 b2 = 0, u8 b3 = 0) {
  const u8 bits[4] = {b0, b1, b2, b3};
  u64 field = 0;
  for (int i = 0; i < 4 && letters[i] != '\0'; ++i) {
    field |= u64{static_cast<u8>(letters[i])} << (8 * i) | u64{bits[i]} << (32 + 8 * i);
  }
  return field;
}

constexpr u32 kChannelFloat = 12;

// Version 2 pixel types as version 3 fields. PVRTC types name a different id
// when the file's alpha flag is set.
struct V2PixelType {
  u32 type;
  u64 pixel_format;
  u64 pixel_format_alpha;
  u32 channel_type;
};
constexpr V2PixelType V2(u32 type, u64 pixel_format, u32 channel_type = 0) {
  return {type, pixel_format, pixel_format, channel_type};
}
constexpr V2PixelType V2Alpha(u32 type, u64 without_alpha, u64 with_alpha) {
  return {type, without_alpha, with_alpha, 0};
}

// clang-format off
constexpr V2PixelType kV2PixelTypes[] = {
    V2(0, Channels("argb", 4, 4, 4, 4)),      V2(1, Channels("argb", 1, 5, 5, 5)),
    V2(2, Channels("rgb", 5, 6, 5)),          V2(19, Channels("rgb", 5, 6, 5)),
    V2(3, Channels("rgb", 5, 5, 5)),          V2(20, Channels("rgb", 5, 5, 5)),
    V2(4, Channels("rgb", 8, 8, 8)),          V2(21, Channels("rgb", 8, 8, 8)),
    V2(5, Channels("argb", 8, 8, 8, 8)),      V2(6, Channels("argb", 8, 3, 3, 2)),
    V2(7, Channels("l", 8)),                  V2(22, Channels("l", 8)),             V2(67, Channels("l", 8)),
    V2(8, Channels("al", 8, 8)),              V2(23, Channels("al", 8, 8)),         V2(68, Channels("al", 8, 8)),
    V2(9, kIdA1),
    V2Alpha(12, 0, 1),                        V2Alpha(24, 0, 1),
    V2Alpha(13, 2, 3),                        V2Alpha(25, 2, 3),
    V2(16, Channels("rgba", 4, 4, 4, 4)),     V2(17, Channels("rgba", 5, 5, 5, 1)),
    V2(18, Channels("rgba", 8, 8, 8, 8)),     V2(26, Channels("bgra", 8, 8, 8, 8)),
    V2(32, 7), V2(33, 8), V2(34, 9), V2(35, 10), V2(36, 11),
    V2(37, Channels("rgb", 3, 3, 2)),         V2(38, Channels("al", 4, 4)),
    V2(42, Channels("abgr", 2, 10, 10, 10)),  V2(43, Channels("argb", 2, 10, 10, 10)),
    V2(45, Channels("gr", 16, 16)),           V2(47, Channels("abgr", 16, 16, 16, 16)),
    V2(48, Channels("r", 16), kChannelFloat), V2(49, Channels("gr", 16, 16), kChannelFloat),
    V2(50, Channels("abgr", 16, 16, 16, 16), kChannelFloat),
    V2(51, Channels("r", 32), kChannelFloat), V2(52, Channels("gr", 32, 32), kChannelFloat),
    V2(53, Channels("abgr", 32, 32, 32, 32), kChannelFloat),
    V2(54, 6),
    V2(64, Channels("a", 8)),                 V2(66, Channels("l", 16)),
};
// clang-format on

struct Letter {
  char letter;
  PixelComponent kind;
};
constexpr Letter kLetters[] = {{'r', PixelComponent::R},
                               {'g', PixelComponent::G},
                               {'b', PixelComponent::B},
                               {'a', PixelComponent::A},
                               {'l', PixelComponent::L}};

PixelComponent KindOf(u8 letter) {
  for (const Letter& l : kLetters) {
    if (static_cast<u8>(l.letter) == letter) return l.kind;
  }
  return PixelComponent::None;
}

u8 LetterOf(PixelComponent kind) {
  for (const Letter& l : kLetters) {
    if (l.kind == kind) return static_cast<u8>(l.letter);
  }
  return 0;
}

// What the channel type says about every component.
struct ChannelFlags {
  bool is_signed = false, unnormalized = false, is_float = false;
};
ChannelFlags FlagsOf(u32 channel_type) {
  // 0 unorm byte, 1 snorm byte, 2 ubyte, 3 sbyte, then the same four for
  // shorts (4-7) and ints (8-11); 12 float, 13 unsigned float.
  ChannelFlags f;
  if (channel_type <= 11) {
    f.is_signed = channel_type % 2 == 1;
    f.unnormalized = channel_type % 4 >= 2;
  } else if (channel_type <= 13) {
    f.is_float = true;
  }
  return f;
}

// Channel types the writer uses.
constexpr u32 kChannelUnsignedShort = 6, kChannelUnsignedFloat = 13;

CompressFormat FormatOfId(u32 id) {
  for (const CompressedId& c : kCompressedIds) {
    if (c.id == id) return c.format;
  }
  return CompressFormat::None;
}

bool IdOfFormat(CompressFormat format, u32* id) {
  for (const CompressedId& c : kCompressedIds) {
    if (c.format == format) {
      *id = c.id;
      return true;
    }
  }
  return false;
}

// ---- Sizes ----

u64 EndOf(u64 offset, u64 bytes) {
  u64 end = 0;
  return checked::AddOverflows(offset, bytes, &end) ? std::numeric_limits<u64>::max() : end;
}

// ---- Reading ----

// The header in version 3 terms; a version 2 header keeps its raw flags and
// surface count until ValidateHeader converts them.
struct FileHeader {
  unsigned version = 3;
  u64 pixel_format = 0;
  u32 colour_space = 0, channel_type = 0, height = 0, width = 0, depth = 0, surfaces = 0, faces = 0, mips = 0;
  u32 metadata_size = 0;
  u32 v2_flags = 0;
  detail::ByteReader metadata{nullptr, 0};
  bool metadata_fits = true;
  u64 buffer_size = 0;
};

// False for a buffer that is not a PVR file (too short, no signature): no log line.
bool ReadHeader(detail::ByteReader in, FileHeader* h) {
  h->buffer_size = in.Size();
  u8 first = 0;
  if (in.Size() < kHeaderBytes || !in.U8(&first) || !in.Seek(0)) return false;
  if (first == kVersion2Mark) {
    u32 magic = 0;
    if (!in.U32LEAt(kOffVersion2Magic, &magic) || magic != kVersion2Magic) return false;
    h->version = 2;
    return in.Skip(4) && in.U32LE(&h->height) && in.U32LE(&h->width) && in.U32LE(&h->mips) && in.U32LE(&h->v2_flags) &&
           in.Seek(kOffVersion2Surfaces) && in.U32LE(&h->surfaces);
  }
  u32 version = 0;
  std::uint64_t pixel_format = 0;
  if (!in.U32LE(&version) || version != kVersion3) return false;
  if (!(in.Skip(4) && in.U64LE(&pixel_format) && in.U32LE(&h->colour_space) && in.U32LE(&h->channel_type) &&
        in.U32LE(&h->height) && in.U32LE(&h->width) && in.U32LE(&h->depth) && in.U32LE(&h->surfaces) &&
        in.U32LE(&h->faces) && in.U32LE(&h->mips) && in.U32LE(&h->metadata_size))) {
    return false;
  }
  h->pixel_format = pixel_format;
  h->metadata_fits = in.Sub(h->metadata_size, &h->metadata);
  return true;
}

// A version 2 header turned into the version 3 fields it stands for; false
// (after the two log lines) for a pixel type without a version 3 equivalent.
bool ConvertVersion2(FileHeader* h) {
  const u32 type = h->v2_flags & 0xFF;
  const V2PixelType* found = nullptr;
  for (const V2PixelType& t : kV2PixelTypes) {
    if (t.type == type) found = &t;
  }
  if (found == nullptr) {
    lumo::log::LogError(LogChannel, "Unsupport PVR v2 format %d", static_cast<int>(type));
    lumo::log::CLogError(LogChannel, "Unsupport pvr V2 file!");
    return false;
  }
  h->pixel_format = (h->v2_flags & kV2Alpha) != 0 ? found->pixel_format_alpha : found->pixel_format;
  h->channel_type = found->channel_type;
  h->colour_space = 0;
  h->depth = (h->v2_flags & kV2Volume) != 0 ? h->surfaces : 1;
  h->surfaces = 1;
  h->faces = (h->v2_flags & kV2Cube) != 0 ? kCubeFaceCount : 0;
  h->metadata_size = 0;
  return true;
}

// Walks the metadata entries, recording each and taking the orientation from
// the last one that gives it. False (logged) when an entry runs past the block.
bool ReadMetadata(const FileHeader& h, detail::PVRFileInfo* info) {
  detail::ByteReader in = h.metadata;
  for (u64 index = 0; in.Remaining() > 0; ++index) {
    const u64 start = kHeaderBytes + in.Position();
    u32 fourcc = 0, key = 0, size = 0;
    detail::ByteReader data(nullptr, 0);
    const bool head = in.U32LE(&fourcc) && in.U32LE(&key) && in.U32LE(&size);
    if (!head || !in.Sub(size, &data)) {
      const u64 expect = start + kMetadataEntryHeader + (head ? size : 0);
      lumo::log::LogError(LogChannel,
                          "PVR metadata entry %d memory overflow: expect %llu, current %llu, refuse loading!",
                          static_cast<int>(index), expect, static_cast<u64>(kHeaderBytes) + h.metadata_size);
      return false;
    }
    info->metadata.push_back({fourcc, key, start + kMetadataEntryHeader, size});
    u8 x = 0, y = 0;
    if (fourcc == kVersion3 && key == kOrientationKey && data.U8(&x) && data.U8(&y)) {
      info->origin = y != 0 ? ImageOrigin::BottomUp : ImageOrigin::TopDown;
    }
  }
  return true;
}

PixelFormatDescriptor CompressedFormat(u32 id, const ChannelFlags& flags, bool srgb) {
  PixelFormatMeta meta{};
  meta.srgb = srgb;
  if (id == kIdA1) {
    meta.components[0] = ComponentMeta{PixelComponent::A, 1, false, false};
    return MakeDescriptor(meta);
  }
  CompressFormat format = FormatOfId(id);
  // A signed channel type names the signed partner; formats without one are refused.
  if (flags.is_signed) format = GetSignedCompressFormat(format);
  if (format == CompressFormat::None) return PixelFormatDescriptor{};
  meta.compressed = true;
  meta.compress_format = format;
  return MakeDescriptor(meta);
}

PixelFormatDescriptor ChannelFormat(u64 pixel_format, const ChannelFlags& flags, bool srgb) {
  std::array<ComponentMeta, 4> taken{};
  std::size_t count = 0;
  bool whole_bytes = true;
  for (; count < 4; ++count) {
    const auto letter = static_cast<u8>(pixel_format >> (8 * count));
    const auto bits = static_cast<u8>(pixel_format >> (32 + 8 * count));
    const PixelComponent kind = KindOf(letter);
    if (bits == 0 || bits >= 0x80 || kind == PixelComponent::None) break;
    taken[count] = ComponentMeta{kind, bits, flags.is_signed, flags.is_float};
    whole_bytes = whole_bytes && bits % 8 == 0;
  }
  if (count == 0) return PixelFormatDescriptor{};
  // Byte-sized channels are listed from the lowest address, the descriptor
  // from the most significant bits; packed ones already are in that order.
  if (whole_bytes) std::reverse(taken.begin(), taken.begin() + static_cast<std::ptrdiff_t>(count));
  PixelFormatMeta meta{};
  meta.srgb = srgb;
  meta.unnormalized = flags.unnormalized;
  for (std::size_t i = 0; i < count; ++i) meta.components[i] = taken[i];
  return MakeDescriptor(meta);
}

PixelFormatDescriptor HeaderFormat(const FileHeader& h) {
  const ChannelFlags flags = FlagsOf(h.channel_type);
  const bool srgb = h.colour_space == kColourSpaceSRGB;
  PixelFormatDescriptor format = (h.pixel_format >> 32) == 0
                                     ? CompressedFormat(static_cast<u32>(h.pixel_format), flags, srgb)
                                     : ChannelFormat(h.pixel_format, flags, srgb);
  if (SetSRGB(format, false) == formats::R8G8B8A8) format = SetSRGB(formats::A8B8G8R8, IsSRGB(format));
  return format;
}

// What the header describes, once it has been checked.
struct Layout {
  Kind kind = Kind::Surface;
  PixelFormatDescriptor format{};
  Extent base{1, 1, 1};
  u64 depth = 1;
  u64 layers = 1;
  u64 levels = 1;
  u64 data_offset = kHeaderBytes;
  bool is_array = false;
  detail::PVRFileInfo info;
};

// The one place where header values are judged; logs what the format rules
// ask for, and false means Image::Null.
bool ValidateHeader(FileHeader h, Layout* out) {
  Layout layout;
  layout.info.version = h.version;
  if (h.version == 2) {
    if (!ConvertVersion2(&h)) return false;
    layout.info.origin = (h.v2_flags & kV2BottomUp) != 0 ? ImageOrigin::BottomUp : ImageOrigin::TopDown;
  } else {
    if (!h.metadata_fits) {
      lumo::log::LogError(LogChannel, "PVR metadata memory overflow: expect %llu, current %llu, refuse loading!",
                          static_cast<u64>(kHeaderBytes) + h.metadata_size, h.buffer_size);
      return false;
    }
    if (!ReadMetadata(h, &layout.info)) return false;
  }
  layout.data_offset = static_cast<u64>(kHeaderBytes) + h.metadata_size;

  layout.depth = h.depth == 0 ? 1 : h.depth;
  layout.layers = h.surfaces == 0 ? 1 : h.surfaces;
  layout.is_array = layout.layers > 1;
  if (h.faces == kCubeFaceCount) {
    layout.kind = layout.is_array ? Kind::CubeArray : Kind::Cube;
  } else if (layout.depth >= 2) {
    layout.kind = Kind::Volume;
  } else {
    layout.kind = layout.is_array ? Kind::SurfaceArray : Kind::Surface;
  }

  layout.format = HeaderFormat(h);
  // A descriptor without a pixel size would make empty views.
  if (layout.format == PixelFormatDescriptor{} || BytesTotal(layout.format, 1, 1, 0) == 0) return false;

  if (h.width == 0 || h.height == 0) {
    lumo::log::CLogError(LogChannel, "PVR width and height must not be 0.");
    return false;
  }
  const bool volume = layout.kind == Kind::Volume;
  layout.base = {h.width, h.height, volume ? layout.depth : 1};

  // Past a full chain every level would be 1 x 1 again; a count beyond it
  // would only let a small file ask for millions of levels.
  const u32 mips = h.mips == 0 ? 1u : h.mips;
  const unsigned chain = volume ? CalcCompleteMipCount(h.width, h.height, static_cast<unsigned>(layout.depth))
                                : CalcCompleteMipCount(h.width, h.height);
  layout.levels = std::min<u64>(mips, chain);

  if (layout.kind == Kind::CubeArray) {
    for (u64 level = 0; level < layout.levels; ++level) {
      lumo::log::CLogError(LogChannel, "PVR cube array not implemented!");
    }
    return false;
  }
  *out = std::move(layout);
  return true;
}

u64 ElementsPerLevel(const Layout& l) {
  switch (l.kind) {
    case Kind::Cube:
      return kCubeFaces;
    case Kind::SurfaceArray:
      return l.layers;
    default:
      return 1;
  }
}

// Where each level starts. The whole chain is checked before any view is
// made: a file that claims more levels, faces or layers than it holds is
// refused whole, with one log line naming the first level that does not fit.
// Keeping the levels that fit would hand out a texture whose shape is not the
// one its header declares (a cube or array cut short has no meaning at all).
bool PlaceLevels(const LevelViews& views, const Layout& l, std::vector<u64>* offsets) {
  const bool volume = l.kind == Kind::Volume;
  const u64 elements = ElementsPerLevel(l);
  u64 offset = l.data_offset;
  for (u64 level = 0; level < l.levels; ++level) {
    const u64 element = views.Bytes(LevelExtent(l.base, level), volume);
    u64 bytes = 0;
    const bool sized = element != 0 && !checked::MulOverflows(element, elements, &bytes);
    if (!sized || !checked::RangeFits(offset, bytes, views.Size())) {
      lumo::log::LogError(LogChannel, "PVR mipmap %d memory overflow: expect %llu, current %llu, refuse loading!",
                          static_cast<int>(level), sized ? EndOf(offset, bytes) : std::numeric_limits<u64>::max(),
                          views.Size());
      return false;
    }
    offsets->push_back(offset);
    offset += bytes;
  }
  return true;
}

// One level's views; every range was placed inside the buffer already.
std::shared_ptr<Mipmap> LevelAt(const LevelViews& views, const Layout& l, u64 level, u64 offset) {
  const Extent e = LevelExtent(l.base, level);
  switch (l.kind) {
    case Kind::Surface:
      return views.SurfaceAt(offset, e);
    case Kind::Volume:
      return views.VolumeAt(offset, e);
    case Kind::SurfaceArray:
      return views.LayersAt(offset, e, l.layers);
    case Kind::Cube: {
      const u64 face_bytes = views.Bytes(e, false);
      std::array<std::shared_ptr<Surface>, kCubeFaces> faces;
      for (unsigned face = 0; face < kCubeFaces; ++face) faces[face] = views.SurfaceAt(offset + face * face_bytes, e);
      return views.CubeAt(faces);
    }
    case Kind::CubeArray:
      break;
  }
  return nullptr;
}

class ImagePVR final : public detail::ContainerImage {
 public:
  ImagePVR(const Shape& shape, std::shared_ptr<Pyramid> pyramid, detail::PVRFileInfo info)
      : ContainerImage(ImageFormat::PVR, shape, std::move(pyramid)), info_(std::move(info)) {}

  const detail::PVRFileInfo& Info() const { return info_; }

 private:
  detail::PVRFileInfo info_;
};

std::shared_ptr<Image> DecodeFile(const std::shared_ptr<char>& data, std::size_t size) {
  FileHeader header;
  if (!ReadHeader(detail::ByteReader(data.get(), size), &header)) return Image::Null;
  Layout layout;
  if (!ValidateHeader(header, &layout)) return Image::Null;

  const LevelViews views(data, size, layout.format);
  std::vector<u64> offsets;
  if (!PlaceLevels(views, layout, &offsets)) return Image::Null;
  std::vector<std::shared_ptr<Mipmap>> levels;
  for (u64 level = 0; level < layout.levels; ++level) {
    std::shared_ptr<Mipmap> mipmap = LevelAt(views, layout, level, offsets[level]);
    if (!mipmap) throw detail::DecodeError("mipmap " + std::to_string(level) + " cannot be viewed");
    levels.push_back(std::move(mipmap));
  }

  detail::ContainerImage::Shape shape;
  shape.width = layout.base.width;
  shape.height = layout.base.height;
  shape.depth = layout.depth;
  shape.is_array = layout.is_array;
  shape.format = layout.format;
  shape.type = static_cast<MipmapType>(layout.kind);
  std::shared_ptr<Pyramid> pyramid = Pyramid::Make(levels, layout.info.origin);
  return std::make_shared<ImagePVR>(shape, std::move(pyramid), std::move(layout.info));
}

// ---- Writing ----

struct PixelFields {
  u64 pixel_format = 0;
  u32 channel_type = 0;
};

// The pixel format field and channel type of a descriptor; false (no log
// line) for a format the container has no words for.
bool ChoosePixelFields(const PixelFormatMeta& meta, PixelFields* out) {
  if (meta.compressed) {
    const CompressFormat plain = GetUnsignedCompressFormat(meta.compress_format);
    u32 id = 0;
    if (!IdOfFormat(plain, &id)) return false;
    out->pixel_format = id;
    out->channel_type = plain == CompressFormat::BC6H_unsigned                                  ? kChannelUnsignedFloat
                        : plain == CompressFormat::EAC_R11 || plain == CompressFormat::EAC_RG11 ? kChannelUnsignedShort
                                                                                                : 0;
    if (plain != meta.compress_format) out->channel_type += 1;
    return true;
  }

  std::array<u8, 4> letters{}, bits{};
  std::size_t count = 0;
  bool whole_bytes = true;
  for (; count < 4 && meta.components[count].bits != 0; ++count) {
    const ComponentMeta& c = meta.components[count];
    letters[count] = LetterOf(c.component);
    if (letters[count] == 0 || c.bits > 0xFF) return false;
    bits[count] = static_cast<u8>(c.bits);
    whole_bytes = whole_bytes && c.bits % 8 == 0;
  }
  if (count == 0) return false;
  // The file lists byte-sized channels from the lowest address.
  if (whole_bytes) {
    std::reverse(letters.begin(), letters.begin() + static_cast<std::ptrdiff_t>(count));
    std::reverse(bits.begin(), bits.begin() + static_cast<std::ptrdiff_t>(count));
  }
  for (std::size_t i = 0; i < count; ++i) {
    out->pixel_format |= u64{letters[i]} << (8 * i) | u64{bits[i]} << (32 + 8 * i);
  }

  const ComponentMeta& first = meta.components[0];
  if (first.is_float) {
    out->channel_type = first.is_signed ? kChannelUnsignedFloat : kChannelFloat;
    return true;
  }
  const u32 s = first.is_signed ? 1 : 0, u = meta.unnormalized ? 2 : 0;
  if (whole_bytes) {
    out->channel_type = s + u;
    return true;
  }
  u64 divisor = 1;
  const u64 bytes = BytesPerPixel(meta, &divisor);
  out->channel_type = 0;
  if (divisor == 1 && bytes == 1) out->channel_type = s + u;
  if (divisor == 1 && bytes == 2) out->channel_type = 4 + s + u;
  if (divisor == 1 && bytes == 4) out->channel_type = 8 + s + u;
  return true;
}

std::shared_ptr<char> EncodeFile(const Pyramid& pyramid, size_t* size) {
  const PixelFormatDescriptor format = pyramid.Format();
  PixelFormatMeta meta{};
  if (!ParseFormat(format, &meta)) return nullptr;
  const u64 level_count = pyramid.LevelsCurrent();
  if (level_count == 0) return nullptr;

  const bool cube = pyramid.Type() == MipmapType::Cube;
  const Extent base{pyramid.Width(), pyramid.Height(), std::max<u64>(1, pyramid.Depth())};
  const u64 surfaces = std::max<u64>(1, pyramid.ArrayLength());
  const u64 faces = cube ? kCubeFaceCount : 1;
  if (base.width == 0 || base.height == 0) {
    lumo::log::CLogError(LogChannel, "PVR cannot write an image without pixels.");
    return nullptr;
  }
  constexpr u64 kMax32 = std::numeric_limits<u32>::max();
  if (base.width > kMax32 || base.height > kMax32 || base.depth > kMax32 || surfaces > kMax32 || level_count > kMax32) {
    lumo::log::CLogError(LogChannel, "PVR cannot hold an image this large.");
    return nullptr;
  }
  PixelFields fields;
  if (!ChoosePixelFields(meta, &fields)) return nullptr;

  // Every element of a level (a face, a layer, a whole volume) has the same size.
  const u64 elements = surfaces * faces;
  std::vector<u64> element_bytes(static_cast<std::size_t>(level_count));
  u64 total = kHeaderBytes;
  for (u64 level = 0; level < level_count; ++level) {
    const Extent e = LevelExtent(base, level);
    element_bytes[level] = BytesTotal(format, e.width, e.height, e.depth, 0);
    if (element_bytes[level] == 0 || checked::MulAddOverflows(element_bytes[level], elements, total, &total)) {
      lumo::log::CLogError(LogChannel, "PVR cannot hold an image this large.");
      return nullptr;
    }
  }
  std::shared_ptr<char> file = detail::NewFileBuffer(total);
  if (!file) {
    lumo::log::CLogError(LogChannel, "PVR cannot hold an image this large.");
    return nullptr;
  }

  detail::ByteWriter out(file.get(), static_cast<std::size_t>(total));
  out.U32LE(kVersion3);
  out.U32LE(0);
  out.U64LE(fields.pixel_format);
  out.U32LE(meta.srgb ? kColourSpaceSRGB : 0);
  out.U32LE(fields.channel_type);
  out.U32LE(static_cast<u32>(base.height));
  out.U32LE(static_cast<u32>(base.width));
  out.U32LE(static_cast<u32>(base.depth));
  out.U32LE(static_cast<u32>(surfaces));
  out.U32LE(static_cast<u32>(faces));
  out.U32LE(static_cast<u32>(level_count));
  out.U32LE(0);  // no metadata

  for (u64 level = 0; level < level_count; ++level) {
    const std::shared_ptr<Mipmap> mipmap = pyramid.GetMipmap(level);
    const u64 tight_row = BytesPerRow(meta, LevelExtent(base, level).width, 0);
    const bool known = detail::ElementOf(mipmap, 0).known;
    if (!known) lumo::log::CLogError(LogChannel, "Unknown mipmap type");
    for (u64 slice = 0; slice < elements; ++slice) {
      char* element_out = out.Reserve(static_cast<std::size_t>(element_bytes[level]));
      if (element_out == nullptr) return nullptr;
      // A level the writer cannot read is written as zeros.
      const detail::LevelElement element = known ? detail::ElementOf(mipmap, slice) : detail::LevelElement{};
      detail::CopyElement(element_out, element_bytes[level], tight_row, meta.compressed, element);
    }
  }
  if (!out.Ok() || out.Position() != total) return nullptr;
  *size = static_cast<size_t>(total);
  return file;
}

bool CheckFile(const char* data, size_t size) {
  const detail::ByteReader in(data, size);
  u32 word = 0;
  if (size < kMinimumFile || !in.U32LEAt(0, &word)) return false;
  if (static_cast<u8>(word) == kVersion2Mark) return in.U32LEAt(kOffVersion2Magic, &word) && word == kVersion2Magic;
  return word == kVersion3;
}

constexpr detail::ContainerFormat kPVRFile{
    ImageFormat::PVR, "PVR", {"PVR: %s", "PVR: unexpected failure", true}, CheckFile, DecodeFile, EncodeFile,
};

class ImagePVRPlugin final : public detail::ContainerPlugin {
 public:
  ImagePVRPlugin() : ContainerPlugin(kPVRFile) {}
};

}  // namespace

ImagePlugin* detail::PVRPlugin() {
  static ImagePVRPlugin plugin;
  return &plugin;
}

const detail::PVRFileInfo* detail::PVRInfoOf(const Image& image) {
  const auto* pvr = dynamic_cast<const ImagePVR*>(&image);
  return pvr != nullptr ? &pvr->Info() : nullptr;
}

}  // namespace lumo::image
