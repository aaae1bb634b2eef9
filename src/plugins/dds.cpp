#include "plugins/dds.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <vector>

#include "format/checked_size.h"
#include "format/format_tables_internal.h"
#include "lumo/image/export.h"
#include "lumo/image/format_tables.h"
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
using u32 = std::uint32_t;
using u64 = unsigned long long;

constexpr u32 kMagic = FourCC('D', 'D', 'S', ' ');
constexpr u32 kFourCCDX10 = FourCC('D', 'X', '1', '0');
constexpr u32 kFourCCBC5U = FourCC('B', 'C', '5', 'U');
constexpr u32 kFourCCATI2 = FourCC('A', 'T', 'I', '2');
constexpr u32 kFourCCDXT[] = {FourCC('D', 'X', 'T', '1'), FourCC('D', 'X', 'T', '2'), FourCC('D', 'X', 'T', '3'),
                              FourCC('D', 'X', 'T', '4'), FourCC('D', 'X', 'T', '5')};

constexpr std::size_t kHeaderBytes = 128;
constexpr std::size_t kHeaderBytesDX10 = 148;
constexpr std::size_t kHeaderWords = kHeaderBytes / 4;
constexpr std::size_t kDX10Words = (kHeaderBytesDX10 - kHeaderBytes) / 4;

// Byte offsets of the header fields.
constexpr std::size_t kOffMagic = 0, kOffSize = 4, kOffFlags = 8, kOffHeight = 12, kOffWidth = 16, kOffPitch = 20,
                      kOffDepth = 24, kOffMipCount = 28, kOffPfSize = 76, kOffPfFlags = 80, kOffFourCC = 84,
                      kOffRgbBits = 88, kOffRMask = 92, kOffGMask = 96, kOffBMask = 100, kOffAMask = 104,
                      kOffCaps = 108, kOffCaps2 = 112;
// Offsets inside the DX10 block (which starts at kHeaderBytes).
constexpr std::size_t kOffDxgi = 0, kOffDimension = 4, kOffMisc = 8, kOffArraySize = 12;

constexpr u32 kFlagCaps = 0x1, kFlagHeight = 0x2, kFlagWidth = 0x4, kFlagPitch = 0x8, kFlagPixelFormat = 0x1000,
              kFlagMipMapCount = 0x20000, kFlagLinearSize = 0x80000, kFlagDepth = 0x800000;
constexpr u32 kPfAlphaPixels = 0x1, kPfAlpha = 0x2, kPfFourCC = 0x4, kPfRGB = 0x40, kPfYUV = 0x200,
              kPfLuminance = 0x20000;
constexpr u32 kCapsComplex = 0x8, kCapsTexture = 0x1000, kCapsMipMap = 0x400000;
constexpr u32 kCaps2CubeMap = 0x200, kCaps2FacePositiveX = 0x400, kCaps2Volume = 0x200000;
constexpr u32 kDX10Texture2D = 3, kDX10Texture3D = 4, kDX10MiscCube = 4;

u32 FaceBit(unsigned face) { return kCaps2FacePositiveX << face; }

// The kinds of texture, numbered as Image::Type reports them.
enum class Kind : u32 { Surface = 0, Volume = 1, Cube = 2, SurfaceArray = 3, CubeArray = 4 };

// ---- Sizes ----

// End offsets are printed as 32-bit numbers; larger ones saturate rather than wrap.
unsigned Print32(u64 value) {
  return value > std::numeric_limits<unsigned>::max() ? std::numeric_limits<unsigned>::max()
                                                      : static_cast<unsigned>(value);
}

unsigned PrintEnd(u64 offset, u64 bytes) {
  u64 end = 0;
  return checked::AddOverflows(offset, bytes, &end) || bytes == 0 ? std::numeric_limits<unsigned>::max() : Print32(end);
}

// ---- Reading ----

struct FileHeader {
  u32 height = 0, width = 0, depth = 0, mip_count = 0, pf_flags = 0, fourcc = 0, rgb_bits = 0;
  u32 r_mask = 0, g_mask = 0, b_mask = 0, a_mask = 0, caps2 = 0;
  bool dx10 = false;
  u32 dxgi_format = 0, array_size = 1;
  u64 data_offset = kHeaderBytes;
};

// False for a buffer that is not a DDS file (too short, wrong magic): no log line.
bool ReadHeader(detail::ByteReader in, FileHeader* h) {
  u32 magic = 0;
  if (in.Size() < kHeaderBytes || !in.U32LE(&magic) || magic != kMagic) return false;
  if (!(in.Seek(kOffHeight) && in.U32LE(&h->height) && in.U32LE(&h->width) && in.Skip(4) && in.U32LE(&h->depth) &&
        in.U32LE(&h->mip_count) && in.Seek(kOffPfFlags) && in.U32LE(&h->pf_flags) && in.U32LE(&h->fourcc) &&
        in.U32LE(&h->rgb_bits) && in.U32LE(&h->r_mask) && in.U32LE(&h->g_mask) && in.U32LE(&h->b_mask) &&
        in.U32LE(&h->a_mask) && in.Seek(kOffCaps2) && in.U32LE(&h->caps2))) {
    return false;
  }
  h->dx10 = (h->pf_flags & kPfFourCC) != 0 && h->fourcc == kFourCCDX10;
  if (!h->dx10) return true;
  if (in.Size() < kHeaderBytesDX10) return false;
  h->data_offset = kHeaderBytesDX10;
  return in.Seek(kHeaderBytes + kOffDxgi) && in.U32LE(&h->dxgi_format) && in.Seek(kHeaderBytes + kOffArraySize) &&
         in.U32LE(&h->array_size);
}

struct MaskComponent {
  PixelComponent kind;
  u32 mask;
};

// Legacy bit-mask formats: components ordered by mask, largest first, so the
// most significant bits land in slot 0.
PixelFormatDescriptor MaskFormat(const FileHeader& h) {
  std::vector<MaskComponent> found;
  found.reserve(4);
  if ((h.pf_flags & kPfAlpha) != 0) {
    found.push_back({PixelComponent::A, h.a_mask});
  } else {
    const bool rgb = (h.pf_flags & kPfRGB) != 0;
    if ((h.pf_flags & kPfAlphaPixels) != 0 && h.a_mask != 0) found.push_back({PixelComponent::A, h.a_mask});
    if (h.r_mask != 0) found.push_back({rgb ? PixelComponent::R : PixelComponent::L, h.r_mask});
    if (h.g_mask != 0) found.push_back({rgb ? PixelComponent::G : PixelComponent::ChromB, h.g_mask});
    if (h.b_mask != 0) found.push_back({rgb ? PixelComponent::B : PixelComponent::ChromR, h.b_mask});
    std::stable_sort(found.begin(), found.end(),
                     [](const MaskComponent& a, const MaskComponent& b) { return a.mask > b.mask; });
  }

  PixelFormatMeta meta{};
  u64 bits = 0;
  for (std::size_t i = 0; i < found.size(); ++i) {
    const u64 count = static_cast<u64>(__builtin_popcount(found[i].mask));
    if (count == 0) return PixelFormatDescriptor{};
    meta.components[i] = ComponentMeta{found[i].kind, count, false, false};
    bits += count;
  }
  // A lone alpha mask has no bit count to agree with.
  if ((h.pf_flags & kPfAlpha) != 0) return MakeDescriptor(meta);
  if (found.empty() || bits > h.rgb_bits) return PixelFormatDescriptor{};
  if (bits < h.rgb_bits) {
    // Unused high bits (X8R8G8B8 and the like) become an alpha slot in front.
    if (found.size() >= 4) return PixelFormatDescriptor{};
    for (std::size_t i = found.size(); i > 0; --i) meta.components[i] = meta.components[i - 1];
    meta.components[0] = ComponentMeta{PixelComponent::A, h.rgb_bits - bits, false, false};
  }
  return MakeDescriptor(meta);
}

PixelFormatDescriptor HeaderFormat(const FileHeader& h) {
  if ((h.pf_flags & kPfFourCC) != 0) {
    if (h.dx10) return FromDXGIFormat(h.dxgi_format);
    return FromDX9Format(h.fourcc == kFourCCBC5U ? kFourCCATI2 : h.fourcc);
  }
  if ((h.pf_flags & (kPfRGB | kPfYUV | kPfLuminance | kPfAlpha)) == 0) return PixelFormatDescriptor{};
  return MaskFormat(h);
}

// What the header describes, once it has been checked.
struct Layout {
  Kind kind = Kind::Surface;
  PixelFormatDescriptor format{};
  Extent base{1, 1, 1};
  u64 levels = 1;
  u64 layers = 1;
  u32 caps2 = 0;
  u64 data_offset = kHeaderBytes;
  bool is_array = false;
};

// The one place where header values are judged; logs what the format rules
// ask for and false means Image::Null.
bool ValidateHeader(const FileHeader& h, Layout* out) {
  Layout layout;
  layout.base = {h.width, h.height, h.depth == 0 ? 1u : h.depth};
  layout.caps2 = h.caps2;
  layout.data_offset = h.data_offset;

  if ((h.caps2 & kCaps2CubeMap) != 0) {
    if (layout.base.depth > 1) {
      lumo::log::CLogError(LogChannel, "DDS not support cube volume!");
      return false;
    }
    layout.kind = Kind::Cube;
  } else {
    layout.kind = (h.caps2 & kCaps2Volume) != 0 ? Kind::Volume : Kind::Surface;
  }

  layout.format = HeaderFormat(h);
  // A descriptor without a pixel size would make empty views.
  if (layout.format == PixelFormatDescriptor{} || BytesTotal(layout.format, 1, 1, 0) == 0) return false;

  layout.layers = h.array_size;
  layout.is_array = h.array_size > 1;
  if (layout.is_array) {
    switch (layout.kind) {
      case Kind::Surface:
        layout.kind = Kind::SurfaceArray;
        break;
      case Kind::Cube:
        // Cube arrays are not read.
        return false;
      default:
        lumo::log::LogError(LogChannel, "Unknown texture array type %d", static_cast<int>(layout.kind));
        return false;
    }
  }

  if (h.width == 0 || h.height == 0) {
    lumo::log::CLogError(LogChannel, "DDS width and height must not be 0.");
    return false;
  }

  // Past a full chain every level would be 1 x 1 again; a count beyond it
  // would only let a small file ask for millions of levels.
  const u32 mips = h.mip_count == 0 ? 1u : h.mip_count;
  const unsigned chain = layout.kind == Kind::Volume
                             ? CalcCompleteMipCount(h.width, h.height, static_cast<unsigned>(layout.base.depth))
                             : CalcCompleteMipCount(h.width, h.height);
  layout.levels = std::min<u64>(mips, chain);
  *out = layout;
  return true;
}

void WarnMipOverflow(u64 level, u64 offset, u64 bytes, u64 size) {
  lumo::log::LogWarning(LogChannel, "DDS mipmap %d memory overflow: expect %u, current %u, break loading!",
                        static_cast<int>(level), PrintEnd(offset, bytes), Print32(size));
}

// Plain and volume chains: the levels that fit are kept, the first that does
// not ends the chain with a warning.
std::vector<std::shared_ptr<Mipmap>> LoadChain(const LevelViews& views, const Layout& l) {
  const bool volume = l.kind == Kind::Volume;
  std::vector<std::shared_ptr<Mipmap>> levels;
  u64 offset = l.data_offset;
  for (u64 level = 0; level < l.levels; ++level) {
    const Extent e = LevelExtent(l.base, level);
    const u64 bytes = views.Bytes(e, volume);
    if (!views.Fits(offset, e, volume)) {
      WarnMipOverflow(level, offset, bytes, views.Size());
      break;
    }
    std::shared_ptr<Mipmap> mipmap;
    if (volume) {
      mipmap = views.VolumeAt(offset, e);
    } else {
      mipmap = views.SurfaceAt(offset, e);
    }
    if (!mipmap) break;
    levels.push_back(std::move(mipmap));
    offset += bytes;
  }
  return levels;
}

// A cube with a face level past the end of the buffer is refused whole: a
// shorter chain would need every face cut at the same level.
bool LoadCubes(const LevelViews& views, const Layout& l, std::vector<std::shared_ptr<Mipmap>>* levels) {
  std::vector<std::array<std::shared_ptr<Surface>, kCubeFaces>> faces(static_cast<std::size_t>(l.levels));
  u64 offset = l.data_offset;
  for (unsigned face = 0; face < kCubeFaces; ++face) {
    if ((l.caps2 & FaceBit(face)) == 0) continue;
    for (u64 level = 0; level < l.levels; ++level) {
      const Extent e = LevelExtent(l.base, level);
      const u64 bytes = views.Bytes(e, false);
      if (!views.Fits(offset, e, false)) {
        char text[160];
        std::snprintf(text, sizeof text,
                      "DDS cube face %u, mipmap %d memory overflow: expect %u, current %u, refuse loading!", face,
                      static_cast<int>(level), PrintEnd(offset, bytes), Print32(views.Size()));
        lumo::log::CLogError(LogChannel, text);
        return false;
      }
      faces[level][face] = views.SurfaceAt(offset, e);
      offset += bytes;
    }
  }
  for (u64 level = 0; level < l.levels; ++level) {
    std::shared_ptr<Cube> cube = views.CubeAt(faces[level]);
    if (!cube) return false;
    levels->push_back(std::move(cube));
  }
  return true;
}

bool LoadArrays(const LevelViews& views, const Layout& l, std::vector<std::shared_ptr<Mipmap>>* levels) {
  // Where each level starts inside a layer, and the stride of one layer.
  std::vector<u64> level_offset(l.levels);
  // Every (layer, level) is checked before any view exists. Each one that
  // passes uses at least one byte of the buffer, so the loop is bounded by its
  // length, and once all pass no offset below can overflow.
  u64 offset = l.data_offset;
  for (u64 layer = 0; layer < l.layers; ++layer) {
    for (u64 level = 0; level < l.levels; ++level) {
      const Extent e = LevelExtent(l.base, level);
      if (layer == 0) level_offset[level] = offset - l.data_offset;
      if (!views.Fits(offset, e, false)) {
        lumo::log::LogError(LogChannel, "DDS Array %d, mipmap %d memory error: start %u, length %u!",
                            static_cast<int>(layer), static_cast<int>(level), PrintEnd(offset, views.Bytes(e, false)),
                            Print32(views.Size()));
        return false;
      }
      offset += views.Bytes(e, false);
    }
  }
  const u64 stride = (offset - l.data_offset) / l.layers;
  std::vector<u64> offsets(static_cast<std::size_t>(l.layers));
  for (u64 level = 0; level < l.levels; ++level) {
    for (u64 layer = 0; layer < l.layers; ++layer)
      offsets[layer] = l.data_offset + layer * stride + level_offset[level];
    std::shared_ptr<SurfaceArray> array = views.ArrayAt(offsets, LevelExtent(l.base, level));
    if (!array) return false;
    levels->push_back(std::move(array));
  }
  return true;
}

class ImageDDS final : public detail::ContainerImage {
 public:
  using ContainerImage::ContainerImage;
};

std::shared_ptr<Image> DecodeFile(const std::shared_ptr<char>& data, std::size_t size) {
  FileHeader header;
  if (!ReadHeader(detail::ByteReader(data.get(), size), &header)) return Image::Null;
  Layout layout;
  if (!ValidateHeader(header, &layout)) return Image::Null;

  const LevelViews views(data, size, layout.format);
  std::vector<std::shared_ptr<Mipmap>> levels;
  switch (layout.kind) {
    case Kind::Surface:
    case Kind::Volume:
      levels = LoadChain(views, layout);
      break;
    case Kind::Cube:
      if (!LoadCubes(views, layout, &levels)) return Image::Null;
      break;
    case Kind::SurfaceArray:
      if (!LoadArrays(views, layout, &levels)) return Image::Null;
      break;
    case Kind::CubeArray:
      break;
  }
  if (levels.empty()) return Image::Null;

  detail::ContainerImage::Shape shape;
  shape.width = layout.base.width;
  shape.height = layout.base.height;
  shape.depth = layout.base.depth;
  shape.is_array = layout.is_array;
  shape.format = layout.format;
  shape.type = static_cast<MipmapType>(layout.kind);
  return std::make_shared<ImageDDS>(ImageFormat::DDS, shape, Pyramid::Make(levels, ImageOrigin::TopDown));
}

// ---- Writing ----

struct HeaderFields {
  std::array<u32, kHeaderWords> main{};
  std::array<u32, kDX10Words> dx10{};
  bool uses_dx10 = false;

  u32& At(std::size_t offset) { return main[offset / 4]; }
  u32& DX10(std::size_t offset) { return dx10[offset / 4]; }
  std::size_t Length() const { return uses_dx10 ? kHeaderBytesDX10 : kHeaderBytes; }
};

bool ChooseDX10(const PixelFormatDescriptor& format, HeaderFields* h) {
  const u32 dxgi = ToDXGIFormat(format);
  if (dxgi == 0) {
    lumo::log::LogError(LogChannel, "Unsupport dxgi format %s", ToString(format).c_str());
    return false;
  }
  h->At(kOffPfFlags) |= kPfFourCC;
  h->At(kOffFourCC) = kFourCCDX10;
  h->DX10(kOffDxgi) = dxgi;
  h->uses_dx10 = true;
  return true;
}

bool ChooseMasks(const PixelFormatDescriptor& format, const PixelFormatMeta& meta, u64 bytes_per_pixel,
                 HeaderFields* h) {
  const u64 bit_count = 8 * bytes_per_pixel;
  u32 masks[4] = {};  // R (or L), G, B, A
  bool has_rgb = false, has_l = false, has_a = false;
  u64 used = 0;
  for (const ComponentMeta& c : meta.components) {
    if (c.bits == 0) break;
    used += c.bits;
    const u64 mask = used > bit_count ? 0 : ((u64{1} << c.bits) - 1) << (bit_count - used);
    switch (c.component) {
      case PixelComponent::R:
        masks[0] |= static_cast<u32>(mask);
        has_rgb = true;
        break;
      case PixelComponent::L:
        masks[0] |= static_cast<u32>(mask);
        has_l = true;
        break;
      case PixelComponent::G:
        masks[1] |= static_cast<u32>(mask);
        has_rgb = true;
        break;
      case PixelComponent::B:
        masks[2] |= static_cast<u32>(mask);
        has_rgb = true;
        break;
      case PixelComponent::A:
        masks[3] |= static_cast<u32>(mask);
        has_a = true;
        break;
      case PixelComponent::X:
        break;
      default:
        lumo::log::LogError(LogChannel, "Unsupport format %s", ToString(format).c_str());
        return false;
    }
  }
  u32 flags = 0;
  if (has_rgb) {
    flags = kPfRGB;
  } else if (has_l) {
    flags = kPfLuminance;
  } else if (has_a) {
    flags = kPfAlpha;
  } else {
    lumo::log::LogError(LogChannel, "Unsupport format %s", ToString(format).c_str());
    return false;
  }
  if (has_a && (has_rgb || has_l)) flags |= kPfAlphaPixels;
  h->At(kOffPfFlags) = flags;
  h->At(kOffRgbBits) = static_cast<u32>(bit_count);
  h->At(kOffRMask) = masks[0];
  h->At(kOffGMask) = masks[1];
  h->At(kOffBMask) = masks[2];
  h->At(kOffAMask) = masks[3];
  return true;
}

struct WriteShape {
  PixelFormatDescriptor format{};
  bool compressed = false;
  Extent base{};
  u64 levels = 0;
  u64 array_length = 0;
  MipmapType type = MipmapType::Surface;
  u32 cube_faces = 0;  // caps2 face bits of the faces present at level 0
};

bool BuildHeader(const WriteShape& s, HeaderFields* h) {
  PixelFormatMeta meta{};
  if (!ParseFormat(s.format, &meta)) return false;
  const bool cube = s.type == MipmapType::Cube || s.type == MipmapType::CubeArray;

  h->At(kOffMagic) = kMagic;
  h->At(kOffSize) = 124;
  h->At(kOffFlags) = kFlagCaps | kFlagHeight | kFlagWidth | kFlagPixelFormat;
  h->At(kOffHeight) = static_cast<u32>(s.base.height);
  h->At(kOffWidth) = static_cast<u32>(s.base.width);
  h->At(kOffDepth) = static_cast<u32>(s.base.depth);
  h->At(kOffMipCount) = static_cast<u32>(s.levels);
  h->At(kOffPfSize) = 32;
  h->At(kOffCaps) = kCapsTexture;
  h->DX10(kOffDimension) = s.base.depth > 1 ? kDX10Texture3D : kDX10Texture2D;
  h->DX10(kOffArraySize) = static_cast<u32>(s.array_length);

  if (s.base.depth > 1 || cube || s.array_length > 1 || s.levels > 1) h->At(kOffCaps) |= kCapsComplex;
  if (s.base.depth > 1) {
    h->At(kOffCaps2) |= kCaps2Volume;
    h->At(kOffFlags) |= kFlagDepth;
  }
  if (cube) {
    // Only the faces whose data follows are announced, so that a reader finds
    // each face where it is stored.
    h->At(kOffCaps2) |= kCaps2CubeMap | s.cube_faces;
    h->DX10(kOffMisc) |= kDX10MiscCube;
    h->DX10(kOffArraySize) = 1;
  }
  if (s.levels > 1) {
    h->At(kOffFlags) |= kFlagMipMapCount;
    h->At(kOffCaps) |= kCapsMipMap;
  }

  const u64 linear_size = BytesTotal(meta, s.base.width, s.base.height, 0);
  if (s.array_length >= 2) {
    if (meta.compressed) {
      h->At(kOffFlags) |= kFlagLinearSize;
      h->At(kOffPitch) = static_cast<u32>(linear_size);
    }
    if (!ChooseDX10(s.format, h)) return false;
  } else if (meta.compressed) {
    h->At(kOffFlags) |= kFlagLinearSize;
    h->At(kOffPitch) = static_cast<u32>(linear_size);
    const auto number = static_cast<unsigned>(meta.compress_format);
    if (number >= 1 && number <= 6) {
      // DXT1 with and without 1-bit alpha share one code; sRGB is not carried.
      h->At(kOffPfFlags) |= kPfFourCC;
      h->At(kOffFourCC) = kFourCCDXT[number <= 2 ? 0 : number - 2];
    } else if (!ChooseDX10(s.format, h)) {
      return false;
    }
  } else if (const u32 d3d = detail::ToDDSFourCCFormat(s.format); d3d != 0) {
    h->At(kOffPfFlags) |= kPfFourCC;
    h->At(kOffFourCC) = d3d;
  } else {
    u64 divisor = 1;
    const u64 bytes = BytesPerPixel(meta, &divisor);
    const ComponentMeta& slot0 = meta.components[0];
    if (slot0.is_float || slot0.is_signed || divisor != 1 || bytes > 4 || meta.unnormalized || meta.srgb) {
      if (!ChooseDX10(s.format, h)) return false;
    } else if (bytes == 0 || !ChooseMasks(s.format, meta, bytes, h)) {
      return false;
    }
  }

  if (!meta.compressed) {
    h->At(kOffFlags) |= kFlagPitch;
    h->At(kOffPitch) = static_cast<u32>(BytesPerRow(meta, s.base.width, 0));
  }
  return true;
}

std::shared_ptr<char> EncodeFile(const Pyramid& pyramid, size_t* size) {
  WriteShape shape;
  shape.format = pyramid.Format();
  shape.compressed = IsCompressed(shape.format);
  shape.base = {pyramid.Width(), pyramid.Height(), std::max<u64>(1, pyramid.Depth())};
  shape.levels = pyramid.LevelsCurrent();
  shape.array_length = pyramid.ArrayLength();
  shape.type = pyramid.Type();

  PixelFormatMeta meta{};
  if (!ParseFormat(shape.format, &meta)) return nullptr;
  constexpr u64 kMax32 = std::numeric_limits<u32>::max();
  if (shape.base.width == 0 || shape.base.height == 0) {
    lumo::log::CLogError(LogChannel, "DDS cannot write an image without pixels.");
    return nullptr;
  }
  if (shape.base.width > kMax32 || shape.base.height > kMax32 || shape.base.depth > kMax32 || shape.levels > kMax32 ||
      shape.array_length > kMax32) {
    lumo::log::CLogError(LogChannel, "DDS cannot hold an image this large.");
    return nullptr;
  }

  // Elements stored per level: the present faces of a cube, the layers of an array.
  std::vector<u64> slices;
  if (shape.type == MipmapType::Cube) {
    const auto* cube = dynamic_cast<const Cube*>(pyramid.GetMipmap(0).get());
    for (unsigned face = 0; face < kCubeFaces; ++face) {
      if (cube != nullptr && cube->GetFace(static_cast<CubeFace>(face))) {
        slices.push_back(face);
        shape.cube_faces |= FaceBit(face);
      }
    }
  } else {
    const u64 count = shape.type == MipmapType::SurfaceArray ? shape.array_length : 1;
    for (u64 i = 0; i < count; ++i) slices.push_back(i);
  }

  HeaderFields header;
  if (!BuildHeader(shape, &header)) return nullptr;

  const bool volume = shape.base.depth > 1;
  std::vector<u64> level_bytes(static_cast<std::size_t>(shape.levels));
  u64 per_slice = 0;
  for (u64 level = 0; level < shape.levels; ++level) {
    const Extent e = LevelExtent(shape.base, level);
    level_bytes[level] = volume ? BytesTotal(shape.format, e.width, e.height, e.depth, 0)
                                : BytesTotal(shape.format, e.width, e.height, 0);
    if (level_bytes[level] == 0 || checked::AddOverflows(per_slice, level_bytes[level], &per_slice)) {
      lumo::log::CLogError(LogChannel, "DDS cannot hold an image this large.");
      return nullptr;
    }
  }
  u64 total = 0;
  if (checked::MulAddOverflows(per_slice, static_cast<u64>(slices.size()), static_cast<u64>(header.Length()), &total) ||
      total > std::numeric_limits<std::size_t>::max()) {
    lumo::log::CLogError(LogChannel, "DDS cannot hold an image this large.");
    return nullptr;
  }

  std::shared_ptr<char> file = detail::NewFileBuffer(total);
  detail::ByteWriter out(file.get(), static_cast<std::size_t>(total));
  for (const u32 field : header.main) out.U32LE(field);
  if (header.uses_dx10) {
    for (const u32 field : header.dx10) out.U32LE(field);
  }
  for (const u64 slice : slices) {
    for (u64 level = 0; level < shape.levels; ++level) {
      const detail::LevelElement element = detail::ElementOf(pyramid.GetMipmap(level), slice);
      if (!element.known) lumo::log::CLogError(LogChannel, "Unkown mipmap type.");
      const u64 tight_row = BytesPerRow(meta, LevelExtent(shape.base, level).width, 0);
      char* level_out = out.Reserve(static_cast<std::size_t>(level_bytes[level]));
      if (level_out == nullptr) return nullptr;
      detail::CopyElement(level_out, level_bytes[level], tight_row, shape.compressed, element);
    }
  }
  *size = static_cast<size_t>(total);
  return file;
}

bool CheckFile(const char* data, size_t size) {
  detail::ByteReader in(data, size);
  u32 magic = 0;
  return in.U32LE(&magic) && magic == kMagic;
}

constexpr detail::ContainerFormat kDDSFile{
    ImageFormat::DDS, "DDS", {"DDS: %s", "DDS: unexpected failure", true}, CheckFile, DecodeFile, EncodeFile,
};

class ImageDDSPlugin final : public detail::ContainerPlugin {
 public:
  ImageDDSPlugin() : ContainerPlugin(kDDSFile) {}
};

}  // namespace

ImagePlugin* detail::DDSPlugin() {
  static ImageDDSPlugin plugin;
  return &plugin;
}

}  // namespace lumo::image
