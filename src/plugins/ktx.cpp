#include "plugins/ktx.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "format/checked_size.h"
#include "lumo/image/compressed_formats.h"
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

// Bounds. The format itself compares nothing with the buffer's length; this
// reader does, and a file never yields a view outside its buffer:
// - key/value data that runs past the end of the file, an entry that runs past
//   the end of the key/value data, an "AlPitch" value shorter than 4 bytes and
//   an alpha plane larger than its value are refused (Image::Null) with one
//   log line naming what did not fit: the levels cannot be located, or the
//   file contradicts itself;
// - a level whose stored image size differs from the size its extent needs
//   (one face for a cube, the whole level otherwise) is refused the same way:
//   the views follow the computed sizes, and a file that disagrees with them
//   would be read at the wrong places;
// - levels are read in order, and the first one that does not fit in the
//   buffer (its image size field or any of its faces, layers or slices) ends
//   the chain with one warning, keeping the complete levels before it, as DDS
//   does for its plain chains: a KTX file stores level after level, each with
//   all its faces or layers, so the levels before the cut are whole for every
//   kind of texture. When not even level 0 fits, the file is refused with one
//   error.
// Declared counts cannot make many objects from a small file: key/value
// entries take at least four bytes of the file each (and at most
// kKTXMaxListedKeys keys are kept), levels are cut to a full chain and each
// takes at least its image size field, and an array level's layers are made
// only once all their bytes are known to lie inside the buffer.

namespace lumo::image {
namespace {

using detail::Extent;
using detail::kCubeFaces;
using detail::KTXFileInfo;
using detail::LevelExtent;
using detail::LevelViews;
using u32 = std::uint32_t;
using u64 = unsigned long long;

constexpr unsigned char kIdentifier[12] = {0xAB, 0x4B, 0x54, 0x58, 0x20, 0x31, 0x31, 0xBB, 0x0D, 0x0A, 0x1A, 0x0A};
constexpr std::size_t kHeaderBytes = 64;
constexpr u32 kEndianness = 0x04030201;
constexpr u32 kGLSRGB8 = 0x8C41, kGLSRGB8Alpha8 = 0x8C43;
constexpr u64 kMax32 = std::numeric_limits<u32>::max();

// Keys the loader understands; each is compared as a whole string, so its
// terminating NUL must be in the entry too.
constexpr std::string_view kKeyOrientation = "KTXOrientation";
constexpr std::string_view kKeyAlphaPitch = "AlPitch";
constexpr std::string_view kKeyAlphaPlane = "AlChann";
constexpr std::string_view kKeyAlphaETC1 = "AlChanl";

// The kinds of texture, numbered as Image::Type reports them.
enum class Kind : u32 { Surface = 0, Volume = 1, Cube = 2, SurfaceArray = 3, CubeArray = 4 };

u64 RoundUp4(u64 n) { return (n + 3) & ~u64{3}; }

// Padding after a level's data, computed from its image size in 32 bits as
// the format does (0 for an image size of 0).
u32 LevelPadding(u32 image_size) { return 3u - ((image_size - 1u) % 4u); }

// End offset of `bytes` bytes at `offset` for a log line; the largest value
// when it is not representable (bytes 0 stands for a size that overflowed).
u64 EndOf(u64 offset, u64 bytes) {
  u64 end = 0;
  return bytes == 0 || checked::AddOverflows(offset, bytes, &end) ? std::numeric_limits<u64>::max() : end;
}

void RefuseOverflow(const char* what, u64 expect, u64 current) {
  lumo::log::LogError(LogChannel, "KTX %s memory overflow: expect %llu, current %llu, refuse loading!", what, expect,
                      current);
}

// ---- Reading ----

struct FileHeader {
  u32 endianness = 0, gl_type = 0, gl_type_size = 0, gl_format = 0, gl_internal_format = 0, gl_base_internal_format = 0,
      width = 0, height = 0, depth = 0, array_elements = 0, faces = 0, mip_levels = 0, key_value_bytes = 0;
};

// False for a buffer shorter than the header: no log line.
bool ReadHeader(detail::ByteReader in, FileHeader* h) {
  if (in.Size() < kHeaderBytes || !in.Skip(sizeof kIdentifier)) return false;
  u32* const fields[] = {&h->endianness,
                         &h->gl_type,
                         &h->gl_type_size,
                         &h->gl_format,
                         &h->gl_internal_format,
                         &h->gl_base_internal_format,
                         &h->width,
                         &h->height,
                         &h->depth,
                         &h->array_elements,
                         &h->faces,
                         &h->mip_levels,
                         &h->key_value_bytes};
  for (u32* field : fields) {
    if (!in.U32LE(field)) return false;
  }
  return true;
}

// A span of the file: [offset, offset + size).
struct Span {
  u64 offset = 0, size = 0;
};

// What the key/value walk found.
struct KeyValues {
  u64 data_start = kHeaderBytes;  // where the walk ended: the first level's image size field
  u32 alpha_pitch = 0;
  bool has_plane = false, has_etc1 = false;
  Span plane, etc1;  // the "AlChann" and "AlChanl" values
  bool bottom_up = false;
};

std::string ListedText(std::string_view text) { return std::string(text.substr(0, detail::kKTXMaxTextLength)); }

// Walks the entries while the bytes consumed are below bytesOfKeyValueData.
// False when something does not fit (logged).
bool WalkKeyValues(const char* data, u64 size, const FileHeader& h, KeyValues* kv, KTXFileInfo* info) {
  const u64 kv_end = kHeaderBytes + u64{h.key_value_bytes};
  if (kv_end > size) {
    RefuseOverflow("key/value data", kv_end, size);
    return false;
  }
  const detail::ByteReader file(data, static_cast<std::size_t>(size));
  u64 position = kHeaderBytes;
  while (position - kHeaderBytes < h.key_value_bytes) {
    u32 byte_count = 0;
    if (position + 4 > kv_end || !file.U32LEAt(static_cast<std::size_t>(position), &byte_count) ||
        position + 4 + byte_count > kv_end) {
      const std::string what = "key/value entry " + std::to_string(info->key_count);
      RefuseOverflow(what.c_str(), position + 4 + (position + 4 > kv_end ? 0 : u64{byte_count}), kv_end);
      return false;
    }
    const std::string_view entry(data + position + 4, byte_count);
    const std::size_t nul = entry.find('\0');
    const std::string_view key = entry.substr(0, nul);
    ++info->key_count;
    if (info->keys.size() < detail::kKTXMaxListedKeys) info->keys.push_back(ListedText(key));
    if (nul != std::string_view::npos) {
      const Span value{position + 4 + nul + 1, byte_count - nul - 1};
      if (key == kKeyAlphaPitch) {
        if (value.size < 4 || !file.U32LEAt(static_cast<std::size_t>(value.offset), &kv->alpha_pitch)) {
          RefuseOverflow("key AlPitch", value.offset + 4, value.offset + value.size);
          return false;
        }
      } else if (key == kKeyAlphaPlane) {
        kv->has_plane = true;
        kv->plane = value;
      } else if (key == kKeyAlphaETC1) {
        kv->has_etc1 = true;
        kv->etc1 = value;
      } else if (key == kKeyOrientation) {
        // The value is text: what counts is the part before its NUL.
        const std::string_view text = entry.substr(nul + 1);
        const std::string_view orientation = text.substr(0, text.find('\0'));
        kv->bottom_up = orientation.find("T=u") != std::string_view::npos;
        info->has_orientation = true;
        info->orientation = ListedText(orientation);
      }
    }
    position += 4 + RoundUp4(byte_count);
  }
  kv->data_start = position;
  return true;
}

// The separate alpha plane: A8 from "AlChann" when "AlPitch" is non-zero,
// replaced by ETC1 from "AlChanl". Null when the file has none; false when
// the chosen plane is larger than its value (logged).
bool LoadAlphaPlane(const std::shared_ptr<char>& data, u64 size, const KeyValues& kv, const Extent& base,
                    std::shared_ptr<Pyramid>* alpha, KTXFileInfo* info) {
  PixelFormatDescriptor format{};
  u64 alignment = 0;
  Span value;
  const char* what = nullptr;
  info->alpha_pitch = kv.alpha_pitch;
  if (kv.has_etc1) {
    format = PixelFormatDescriptor{0xD01};  // ETC1
    value = kv.etc1;
    what = "alpha plane AlChanl";
    info->alpha_plane = KTXFileInfo::AlphaPlane::ETC1;
  } else if (kv.alpha_pitch != 0 && kv.has_plane) {
    format = formats::A8;
    // Rows aligned to the pitch's largest power-of-two factor, at most 16.
    alignment = std::min<u64>(static_cast<u64>(__builtin_ctz(kv.alpha_pitch)), 4);
    value = kv.plane;
    what = "alpha plane AlChann";
    info->alpha_plane = KTXFileInfo::AlphaPlane::A8;
  } else {
    return true;
  }
  const LevelViews views(data, size, format, alignment);
  const u64 bytes = views.Bytes(base, false);
  if (bytes == 0 || bytes > value.size) {
    RefuseOverflow(what, EndOf(value.offset, bytes), value.offset + value.size);
    return false;
  }
  const std::shared_ptr<Surface> plane = views.SurfaceAt(value.offset, base);
  if (!plane) {
    RefuseOverflow(what, EndOf(value.offset, bytes), size);
    return false;
  }
  *alpha = Pyramid::Make(plane, ImageOrigin::TopDown);
  return true;
}

PixelFormatDescriptor HeaderFormat(const FileHeader& h) {
  if (h.gl_format == 0) return FromGLCompressedFormat(h.gl_internal_format);
  const PixelFormatDescriptor format = FromGLFormat(h.gl_format, h.gl_type);
  const bool srgb = h.gl_internal_format == kGLSRGB8 || h.gl_internal_format == kGLSRGB8Alpha8;
  return srgb && format != PixelFormatDescriptor{} ? SetSRGB(format, true) : format;
}

// What the header describes, once it has been checked.
struct Layout {
  Kind kind = Kind::Surface;
  PixelFormatDescriptor format{};
  Extent base{1, 1, 1};
  u64 layers = 1;
  u64 levels = 1;
  u64 data_start = kHeaderBytes;
};

// Reads the chain level by level (see Bounds at the top). False: refused (logged).
bool LoadLevels(const LevelViews& views, const detail::ByteReader& file, const Layout& l,
                std::vector<std::shared_ptr<Mipmap>>* levels) {
  const u64 size = views.Size();
  u64 offset = l.data_start;
  for (u64 level = 0; level < l.levels; ++level) {
    const Extent e = LevelExtent(l.base, level);
    // One element: a surface, a face, a layer, or the whole volume.
    const u64 element = views.Bytes(e, l.kind == Kind::Volume);
    u64 expected = element;  // the image size the level must declare
    u64 data = element;      // bytes from the first element's start to the last one's end
    u64 stride = 0;          // a cube's face to face distance
    if (l.kind == Kind::SurfaceArray) {
      expected = data = views.Bytes(Extent{e.width, e.height, l.layers}, true);
    } else if (l.kind == Kind::Cube) {
      stride = element <= size ? RoundUp4(element) : 0;
      if (stride == 0 || checked::MulAddOverflows(stride, u64{kCubeFaces - 1}, element, &data)) data = 0;
    }

    u32 image_size = 0;
    const bool size_read = offset <= size && file.U32LEAt(static_cast<std::size_t>(offset), &image_size);
    if (size_read && expected != 0 && image_size != expected) {
      lumo::log::LogError(LogChannel, "KTX mipmap %d image size %u does not match its %llu bytes, refuse loading!",
                          static_cast<int>(level), static_cast<unsigned>(image_size), expected);
      return false;
    }
    const u64 start = offset + 4;
    if (!size_read || data == 0 || !checked::RangeFits(start, data, size)) {
      const u64 expect = size_read ? EndOf(start, data) : EndOf(offset, 4);
      if (level == 0) {
        RefuseOverflow("mipmap 0", expect, size);
        return false;
      }
      lumo::log::LogWarning(LogChannel, "KTX mipmap %d memory overflow: expect %llu, current %llu, break loading!",
                            static_cast<int>(level), expect, size);
      break;
    }

    std::shared_ptr<Mipmap> mipmap;
    u64 advance = data;
    switch (l.kind) {
      case Kind::Surface:
        mipmap = views.SurfaceAt(start, e);
        break;
      case Kind::Volume:
        mipmap = views.VolumeAt(start, e);
        break;
      case Kind::SurfaceArray:
        mipmap = views.LayersAt(start, e, l.layers);
        break;
      case Kind::Cube: {
        std::array<std::shared_ptr<Surface>, kCubeFaces> faces;
        for (unsigned face = 0; face < kCubeFaces; ++face) faces[face] = views.SurfaceAt(start + face * stride, e);
        mipmap = views.CubeAt(faces);
        advance = kCubeFaces * stride;
        break;
      }
      case Kind::CubeArray:
        break;
    }
    if (!mipmap) {
      // Every view above was checked to fit; nothing else should refuse it.
      lumo::log::LogError(LogChannel, "KTX mipmap %d could not be made, refuse loading!", static_cast<int>(level));
      return false;
    }
    levels->push_back(std::move(mipmap));
    offset = start + advance + LevelPadding(image_size);
  }
  return true;
}

class ImageKTX final : public detail::ContainerImage {
 public:
  ImageKTX(const Shape& shape, std::shared_ptr<Pyramid> pyramid, std::shared_ptr<Pyramid> alpha, KTXFileInfo info)
      : ContainerImage(ImageFormat::KTX, shape, std::move(pyramid), std::move(alpha)), info_(std::move(info)) {}

  const KTXFileInfo& Info() const { return info_; }

 private:
  KTXFileInfo info_;
};

// The one place where header values are judged; logs what needs a log line,
// and false means Image::Null.
bool ValidateHeader(const FileHeader& h, Layout* out) {
  if (h.endianness != kEndianness) {
    lumo::log::CLogError(LogChannel, "KTX File Created in different endianness!");
    return false;
  }
  Layout layout;
  layout.base = {h.width, h.height == 0 ? 1u : h.height, h.depth == 0 ? 1u : h.depth};
  layout.layers = h.array_elements == 0 ? 1u : h.array_elements;
  if (h.faces == kCubeFaces) {
    layout.kind = Kind::Cube;
  } else {
    layout.kind = layout.base.depth > 1 ? Kind::Volume : Kind::Surface;
  }
  if (layout.layers > 1) {
    if (layout.kind == Kind::Volume) {
      lumo::log::LogError(LogChannel, "Unknown texture array type %d", static_cast<int>(Kind::Volume));
      return false;
    }
    layout.kind = layout.kind == Kind::Cube ? Kind::CubeArray : Kind::SurfaceArray;
  }

  layout.format = HeaderFormat(h);
  // A descriptor without a pixel size would make empty views.
  if (layout.format == PixelFormatDescriptor{} || BytesTotal(layout.format, 1, 1, 0) == 0) return false;
  if (h.width == 0) {
    lumo::log::CLogError(LogChannel, "KTX pixelWidth must not be 0.");
    return false;
  }
  if (layout.kind == Kind::CubeArray) {
    lumo::log::CLogError(LogChannel, "Ktx cube array not implemented!");
    return false;
  }
  // Past a full chain every level would be 1 x 1 again; the cap also keeps a
  // small file from asking for millions of levels.
  const u32 mips = h.mip_levels == 0 ? 1u : h.mip_levels;
  const auto height = static_cast<unsigned>(layout.base.height), depth = static_cast<unsigned>(layout.base.depth);
  const unsigned chain = layout.kind == Kind::Volume ? CalcCompleteMipCount(h.width, height, depth)
                                                     : CalcCompleteMipCount(h.width, height);
  layout.levels = std::min<u64>(mips, chain);
  *out = layout;
  return true;
}

std::shared_ptr<Image> DecodeFile(const std::shared_ptr<char>& data, std::size_t size) {
  FileHeader h;
  if (!ReadHeader(detail::ByteReader(data.get(), size), &h)) return Image::Null;
  Layout layout;
  if (!ValidateHeader(h, &layout)) return Image::Null;

  KTXFileInfo info;
  info.gl_type = h.gl_type;
  info.gl_type_size = h.gl_type_size;
  info.gl_format = h.gl_format;
  info.gl_internal_format = h.gl_internal_format;
  info.gl_base_internal_format = h.gl_base_internal_format;
  info.key_value_bytes = h.key_value_bytes;
  KeyValues kv;
  if (!WalkKeyValues(data.get(), size, h, &kv, &info)) return Image::Null;
  layout.data_start = kv.data_start;

  std::shared_ptr<Pyramid> alpha;
  if (!LoadAlphaPlane(data, size, kv, Extent{layout.base.width, layout.base.height, 1}, &alpha, &info)) {
    return Image::Null;
  }

  const LevelViews views(data, size, layout.format, IsCompressed(layout.format) ? 0 : 2);
  std::vector<std::shared_ptr<Mipmap>> levels;
  if (!LoadLevels(views, detail::ByteReader(data.get(), size), layout, &levels) || levels.empty()) {
    return Image::Null;
  }

  detail::ContainerImage::Shape shape;
  shape.width = layout.base.width;
  shape.height = layout.base.height;
  shape.depth = layout.base.depth;
  shape.is_array = layout.layers > 1;
  shape.format = layout.format;
  shape.type = static_cast<MipmapType>(layout.kind);
  const ImageOrigin origin = kv.bottom_up ? ImageOrigin::BottomUp : ImageOrigin::TopDown;
  return std::make_shared<ImageKTX>(shape, Pyramid::Make(levels, origin), std::move(alpha), std::move(info));
}

// ---- Writing ----

struct GLFields {
  u32 type = 0, type_size = 0, format = 0, internal_format = 0, base_internal_format = 0;
};

bool ChooseGL(const PixelFormatDescriptor& format, const PixelFormatMeta& meta, GLFields* gl) {
  if (meta.compressed) {
    const u32 code = ToGLCompressedFormat(format);
    if (code == 0) {
      lumo::log::LogError(LogChannel, "Compressed pixel Format %s is not supported by ktx container.",
                          ToString(format).c_str());
      return false;
    }
    *gl = GLFields{0, 1, 0, code, code};
    return true;
  }
  unsigned int gl_format = 0, gl_type = 0, internal_format = 0;
  if (!ToGLFormat(format, gl_format, gl_type, &internal_format)) {
    lumo::log::LogError(LogChannel, "Uncompressed pixel Format %s is not supported by ktx container.",
                        ToString(format).c_str());
    return false;
  }
  // Formats of whole bytes per component count single bytes; packed formats
  // count the whole pixel (2 for R5G6B5).
  u64 bits = 0;
  bool whole_bytes = true;
  for (const ComponentMeta& c : meta.components) {
    if (c.bits == 0) break;
    bits += c.bits;
    whole_bytes = whole_bytes && c.bits % 8 == 0;
  }
  *gl = GLFields{gl_type, whole_bytes ? 1u : static_cast<u32>((bits + 7) / 8), gl_format, internal_format, gl_format};
  return true;
}

// One element into rows padded to four bytes. The padding is zeroed rather
// than copied: a source's own row padding may hold anything.
void CopyPaddedRows(char* out, u64 bytes, u64 out_pitch, u64 row_bytes, bool compressed,
                    const detail::LevelElement& src) {
  if (compressed || src.pitch == 0 || out_pitch == 0 || src.pitch < row_bytes) {
    detail::CopyElement(out, bytes, out_pitch, compressed, src);
    return;
  }
  const u64 rows = std::min(bytes / out_pitch, src.size / src.pitch);
  detail::CopyRows(out, out_pitch, src.data, src.pitch, std::min(row_bytes, out_pitch), rows);
  if (rows * out_pitch < bytes)
    std::memset(out + rows * out_pitch, 0, static_cast<std::size_t>(bytes - rows * out_pitch));
}

// One level as the file stores it.
struct LevelPlan {
  Extent extent;
  u64 element_bytes = 0;  // one surface, face, layer or the whole volume
  u32 image_size = 0;
  u64 data_bytes = 0;  // everything after the image size field, up to the level padding
};

void RefuseSize() { lumo::log::CLogError(LogChannel, "KTX cannot hold an image this large."); }

std::shared_ptr<char> EncodeFile(const Pyramid& pyramid, size_t* size) {
  const PixelFormatDescriptor format = pyramid.Format();
  PixelFormatMeta meta{};
  if (pyramid.LevelsCurrent() == 0 || !ParseFormat(format, &meta)) return nullptr;
  const MipmapType type = pyramid.Type();
  if (type != MipmapType::Surface && type != MipmapType::Volume && type != MipmapType::Cube &&
      type != MipmapType::SurfaceArray) {
    return nullptr;
  }
  const Extent base{pyramid.Width(), pyramid.Height(), std::max<u64>(1, pyramid.Depth())};
  const u64 levels = pyramid.LevelsCurrent();
  const u64 array_length = pyramid.ArrayLength();
  const u64 stored_layers = array_length >= 2 ? array_length : 0;  // numberOfArrayElements
  const bool cube = type == MipmapType::Cube;
  const u64 faces = cube ? kCubeFaces : 1;
  if (base.width == 0 || base.height == 0) {
    lumo::log::CLogError(LogChannel, "KTX cannot write an image without pixels.");
    return nullptr;
  }
  if (base.width > kMax32 || base.height > kMax32 || base.depth > kMax32 || levels > kMax32 || array_length > kMax32) {
    RefuseSize();
    return nullptr;
  }
  GLFields gl;
  if (!ChooseGL(format, meta, &gl)) return nullptr;

  // Rows padded to four bytes; block data is counted in whole blocks.
  constexpr u64 kAlignment = 2;
  const u64 elements = std::max<u64>(1, stored_layers) * faces;
  std::vector<LevelPlan> plan(static_cast<std::size_t>(levels));
  u64 total = kHeaderBytes;
  for (u64 level = 0; level < levels; ++level) {
    LevelPlan& p = plan[level];
    p.extent = LevelExtent(base, level);
    p.element_bytes = BytesTotal(format, p.extent.width, p.extent.height, p.extent.depth, kAlignment);
    u64 image_size = 0;
    bool overflow = p.element_bytes == 0 || p.element_bytes > kMax32;
    if (!overflow && cube && stored_layers == 0) {
      // The image size of a cube counts one face; each face is padded to four bytes.
      image_size = p.element_bytes;
      p.data_bytes = kCubeFaces * RoundUp4(p.element_bytes);
    } else if (!overflow) {
      overflow = checked::MulOverflows(p.element_bytes, elements, &image_size) || image_size > kMax32;
      p.data_bytes = image_size;
    }
    if (overflow || checked::AddOverflows(total, 4 + RoundUp4(p.data_bytes), &total)) {
      RefuseSize();
      return nullptr;
    }
    p.image_size = static_cast<u32>(image_size);
  }
  if (total > std::numeric_limits<std::size_t>::max()) {
    RefuseSize();
    return nullptr;
  }

  // Every padding byte (rows, faces, levels) is 0.
  std::shared_ptr<char> file = detail::NewFileBuffer(total);
  detail::ByteWriter out(file.get(), static_cast<std::size_t>(total));
  out.Bytes(kIdentifier, sizeof kIdentifier);
  const u32 header[] = {kEndianness,
                        gl.type,
                        gl.type_size,
                        gl.format,
                        gl.internal_format,
                        gl.base_internal_format,
                        static_cast<u32>(base.width),
                        static_cast<u32>(base.height),
                        base.depth < 2 ? 0u : static_cast<u32>(base.depth),
                        static_cast<u32>(stored_layers),
                        static_cast<u32>(faces),
                        static_cast<u32>(levels),
                        0u};
  for (const u32 field : header) out.U32LE(field);

  const u64 slices = type == MipmapType::SurfaceArray ? array_length : faces;
  for (u64 level = 0; level < levels; ++level) {
    const LevelPlan& p = plan[level];
    const std::shared_ptr<Mipmap> mipmap = pyramid.GetMipmap(level);
    const u64 row = BytesPerRow(format, p.extent.width, kAlignment);  // 0 for block data
    const u64 row_bytes = BytesPerRow(format, p.extent.width, 0);
    out.U32LE(p.image_size);
    for (u64 slice = 0; slice < slices; ++slice) {
      const detail::LevelElement element = detail::ElementOf(mipmap, slice);
      // An empty level, face or layer, or a level of another kind, cannot be written.
      if (!element.known || element.data == nullptr) return nullptr;
      char* bytes = out.Reserve(static_cast<std::size_t>(p.element_bytes));
      if (bytes == nullptr) return nullptr;
      CopyPaddedRows(bytes, p.element_bytes, row, row_bytes, meta.compressed, element);
      if (cube) out.Zeros(static_cast<std::size_t>(RoundUp4(p.element_bytes) - p.element_bytes));
    }
    out.Zeros(static_cast<std::size_t>(RoundUp4(p.data_bytes) - p.data_bytes));
  }
  if (!out.Ok() || out.Position() != total) return nullptr;
  *size = static_cast<size_t>(total);
  return file;
}

bool CheckFile(const char* data, size_t size) { return detail::HasMagic(data, size, kIdentifier, sizeof kIdentifier); }

constexpr detail::ContainerFormat kKTXFile{
    ImageFormat::KTX, "KTX", {"KTX: %s", "KTX: unexpected failure", true}, CheckFile, DecodeFile, EncodeFile,
};

class ImageKTXPlugin final : public detail::ContainerPlugin {
 public:
  ImageKTXPlugin() : ContainerPlugin(kKTXFile) {}
};

}  // namespace

ImagePlugin* detail::KTXPlugin() {
  static ImageKTXPlugin plugin;
  return &plugin;
}

const detail::KTXFileInfo* detail::KTXInfoOf(const Image& image) {
  const auto* ktx = dynamic_cast<const ImageKTX*>(&image);
  return ktx != nullptr ? &ktx->Info() : nullptr;
}

}  // namespace lumo::image
