// BMP files: Windows and OS/2 bitmaps. Reading takes palettes of 1, 4 and 8
// bits (raw, RLE8 and RLE4) and 16-, 24- and 32-bit pixels; writing makes
// uncompressed 16-, 24- and 32-bit files.
#include "plugins/bmp.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "format/checked_size.h"
#include "lumo/image/export.h"
#include "lumo/image/formats.h"
#include "lumo/image/surface_data.h"
#include "lumo/log/log.h"
#include "plugins/byte_reader.h"
#include "plugins/byte_writer.h"
#include "plugins/decode_limit.h"
#include "plugins/picture_plugin.h"
#include "plugins/plugin_images.h"

namespace lumo::image {
namespace {

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = unsigned long long;

constexpr u64 kFileHeaderBytes = 14;
constexpr u64 kMasksOffset = kFileHeaderBytes + 40;  // right after the 40 bytes every Windows header starts with
constexpr u16 kMagicBM = 0x4D42;                      // "BM"
constexpr u16 kMagicBA = 0x4142;                      // "BA": read as a plain bitmap
constexpr u32 kCompressionRle8 = 1;
constexpr u32 kCompressionRle4 = 2;
constexpr u32 kCompressionBitfields = 3;
constexpr u32 kCompressionAlphaBitfields = 6;
constexpr u32 kPixelsPerMeter = 2835;  // 72 dpi, what viewers assume

enum class Reader { Core, Windows, OS2 };

struct Header {
  Reader reader = Reader::Windows;
  u32 header_bytes = 0;
  u32 data_offset = 0;
  u64 width = 0, height = 0;
  bool top_down = false;
  u32 bits = 0;
  u32 compression = 0;
  u32 colors_used = 0;
  bool masks = false;  // whether red, green and blue were read
  u32 red = 0, green = 0, blue = 0;
};

bool CheckFile(const char* data, size_t size) {
  return data != nullptr && size >= kFileHeaderBytes && data[0] == 'B' && (data[1] == 'M' || data[1] == 'A');
}

// The file header and the info header; false for a bad magic, an unknown
// header size or a header cut short.
bool ReadHeader(const char* data, std::size_t size, Header* h) {
  detail::ByteReader r(data, size);
  u16 magic = 0;
  u32 file_size = 0, reserved = 0;
  if (!r.U16LE(&magic) || (magic != kMagicBM && magic != kMagicBA)) return false;
  if (!r.U32LE(&file_size) || !r.U32LE(&reserved) || !r.U32LE(&h->data_offset) || !r.U32LE(&h->header_bytes)) {
    return false;
  }
  u16 planes = 0, bits = 0;
  switch (h->header_bytes) {
    case 12: {
      u16 width = 0, height = 0;
      if (!r.U16LE(&width) || !r.U16LE(&height) || !r.U16LE(&planes) || !r.U16LE(&bits)) return false;
      h->reader = Reader::Core;
      h->width = width;
      h->height = height;
      h->bits = bits;
      return true;
    }
    case 40: case 52: case 56: case 108: case 124:
      h->reader = Reader::Windows;
      break;
    case 64:
      h->reader = Reader::OS2;
      break;
    default:
      return false;
  }
  u32 width = 0, height = 0, image_bytes = 0, x_resolution = 0, y_resolution = 0;
  if (!r.U32LE(&width) || !r.U32LE(&height) || !r.U16LE(&planes) || !r.U16LE(&bits) || !r.U32LE(&h->compression) ||
      !r.U32LE(&image_bytes) || !r.U32LE(&x_resolution) || !r.U32LE(&y_resolution) || !r.U32LE(&h->colors_used)) {
    return false;
  }
  if (static_cast<std::int32_t>(width) < 0) return false;
  const std::int64_t signed_height = static_cast<std::int32_t>(height);
  h->width = width;
  h->height = static_cast<u64>(signed_height < 0 ? -signed_height : signed_height);
  h->top_down = signed_height < 0;
  h->bits = bits;

  bool masks = false;
  if (h->reader == Reader::Windows) {
    masks = (bits == 16 && (h->compression == kCompressionBitfields || h->compression == kCompressionAlphaBitfields)) ||
            h->header_bytes == 52 || h->header_bytes == 56;
  } else {
    masks = bits == 16 && h->compression == kCompressionBitfields;
  }
  // Masks missing from a short file count as not read.
  h->masks = masks && r.U32LEAt(kMasksOffset, &h->red) && r.U32LEAt(kMasksOffset + 4, &h->green) &&
             r.U32LEAt(kMasksOffset + 8, &h->blue);
  return true;
}

// ---- Palette images ----

struct Palette {
  unsigned entry_bytes = 3;  // 4: B, G, R, A slots; 3: B, G, R
  u8 slots[256 * 4] = {};    // every index of 8 bits or fewer has a slot; unread ones stay black
};

void ReadPalette(const char* data, std::size_t size, const Header& h, Palette* palette) {
  u64 colors = u64{1} << h.bits;
  if (h.reader != Reader::Core && h.colors_used != 0 && h.colors_used <= colors) colors = h.colors_used;
  const std::int64_t room = std::int64_t{h.data_offset} - h.header_bytes - static_cast<std::int64_t>(kFileHeaderBytes);
  const std::int64_t entry = room / static_cast<std::int64_t>(colors);
  palette->entry_bytes = entry == 4 ? 4 : 3;
  // Odd entry sizes come from odd data offsets: the entries are spaced as the
  // offset says, but only their first three bytes are colour. Entries too
  // small to hold a colour are read as 3-byte ones.
  const u64 stride = entry >= 3 ? static_cast<u64>(entry) : 3;
  const detail::ByteReader whole(data, size);
  for (u64 i = 0; i < colors; ++i) {
    detail::ByteReader at = whole;
    u64 offset = 0;
    if (checked::MulAddOverflows(i, stride, kFileHeaderBytes + h.header_bytes, &offset) || !at.Seek(offset) ||
        !at.CopyTo(palette->slots + 4 * i, palette->entry_bytes)) {
      break;
    }
  }
  if (palette->entry_bytes != 4) return;
  for (u64 i = 0; i < colors; ++i) {
    if (palette->slots[4 * i + 3] != 0) return;  // the fourth bytes are alpha
  }
  for (int i = 0; i < 256; ++i) palette->slots[4 * i + 3] = 255;
}

// One row of indices (first pixel in the high bits) to palette colours.
template <int Bits, int Entry>
void ExpandRow(const u8* src, u8* dst, u64 width, const u8* slots) {
  if constexpr (Bits == 8) {
    for (u64 x = 0; x < width; ++x) std::memcpy(dst + Entry * x, slots + 4 * src[x], Entry);
  } else {
    constexpr int kPerByte = 8 / Bits;
    constexpr unsigned kMask = (1u << Bits) - 1;
    for (u64 x = 0; x < width; ++x) {
      const unsigned shift = 8 - Bits * (static_cast<unsigned>(x % kPerByte) + 1);
      std::memcpy(dst + Entry * x, slots + 4 * ((src[x / kPerByte] >> shift) & kMask), Entry);
    }
  }
}

using ExpandFn = void (*)(const u8*, u8*, u64, const u8*);

ExpandFn PickExpand(u32 bits, unsigned entry_bytes) {
  const bool four = entry_bytes == 4;
  switch (bits) {
    case 1: return four ? ExpandRow<1, 4> : ExpandRow<1, 3>;
    case 4: return four ? ExpandRow<4, 4> : ExpandRow<4, 3>;
    default: return four ? ExpandRow<8, 4> : ExpandRow<8, 3>;
  }
}

// RLE8 codes into `out`, rows of `row_bytes`. Runs may flow on into the next
// row; nothing is written past the last row, and decoding stops where the
// codes end, even in the middle of a code.
void DecodeRle8(detail::ByteReader in, u8* out, u64 row_bytes, u64 rows) {
  const u64 total = row_bytes * rows;
  u64 row = 0, pos = 0;
  u8 n = 0, code = 0;
  while (pos < total && in.U8(&n) && in.U8(&code)) {
    if (n != 0) {
      const u64 count = std::min<u64>(n, total - pos);
      u8* dst = out + pos;
      for (u64 i = 0; i < count; ++i) dst[i] = code;  // mostly short runs: a call to memset costs more
      pos += n;
      continue;
    }
    if (code == 0) {  // end of line
      if (++row >= rows) return;
      pos = row * row_bytes;
    } else if (code == 1) {  // end of bitmap
      return;
    } else if (code == 2) {  // delta
      u8 dx = 0, dy = 0;
      if (!in.U8(&dx) || !in.U8(&dy)) return;
      row += dy;
      pos += dx + u64{dy} * row_bytes;
    } else {  // absolute run, padded to a whole 16-bit word
      const std::size_t take = std::min<std::size_t>(code, in.Remaining());
      const char* src = nullptr;
      if (!in.Bytes(take, &src)) return;
      std::memcpy(out + pos, src, static_cast<std::size_t>(std::min<u64>(take, total - pos)));
      pos += code;
      if (take < code || ((code & 1) != 0 && !in.Skip(1))) return;
    }
  }
}

// Sets 4-bit position `pos` (high nibble first) to the nibble of `v` at the
// same place; callers pass a nibble twice (0x33) to write it anywhere.
inline void PutNibble(u8* out, u64 pos, unsigned v) {
  u8& byte = out[pos >> 1];
  byte = (pos & 1) == 0 ? static_cast<u8>((byte & 0x0F) | (v & 0xF0)) : static_cast<u8>((byte & 0xF0) | (v & 0x0F));
}

// RLE4: the RLE8 codes counted in 4-bit pixels. A run's pixels alternate
// between the high and the low nibble of its byte, high first.
void DecodeRle4(detail::ByteReader in, u8* out, u64 row_bytes, u64 rows) {
  const u64 row_pixels = row_bytes * 2, total = row_pixels * rows;
  u64 row = 0, pos = 0;
  u8 n = 0, code = 0;
  while (pos < total && in.U8(&n) && in.U8(&code)) {
    if (n != 0) {
      const unsigned pair[2] = {(code >> 4) * 0x11u, (code & 0x0Fu) * 0x11u};  // high nibble first
      const u64 count = std::min<u64>(n, total - pos);
      for (u64 i = 0; i < count; ++i) PutNibble(out, pos + i, pair[i & 1]);
      pos += n;
      continue;
    }
    if (code == 0) {
      if (++row >= rows) return;
      pos = row * row_pixels;
    } else if (code == 1) {
      return;
    } else if (code == 2) {
      u8 dx = 0, dy = 0;
      if (!in.U8(&dx) || !in.U8(&dy)) return;
      row += dy;
      pos += dx + u64{dy} * row_pixels;
    } else {
      const std::size_t bytes = ((code + 1u) / 2 + 1) & ~1u;
      const std::size_t take = std::min<std::size_t>(bytes, in.Remaining());
      const char* src = nullptr;
      if (!in.Bytes(take, &src)) return;
      const u64 pixels = std::min<u64>(code, take * 2);
      for (u64 i = 0; i < pixels && pos + i < total; ++i) {
        const unsigned byte = static_cast<u8>(src[i / 2]);
        PutNibble(out, pos + i, ((i & 1) == 0 ? byte >> 4 : byte & 0x0F) * 0x11);
      }
      pos += code;
      if (take < bytes) return;
    }
  }
}

std::shared_ptr<SurfaceDataBitmap> DecodePalette(const char* data, std::size_t size, const Header& h,
                                                 const char* pixels, u64 available, u64 row_bytes) {
  if (h.compression != 0 && h.compression != kCompressionRle8 && h.compression != kCompressionRle4) {
    lumo::log::CLogError(LogChannel, "Unknown compression");
    return nullptr;
  }
  if (!detail::WithinDecodeLimit("BMP", h.width, h.height)) return nullptr;
  Palette palette;
  ReadPalette(data, size, h, &palette);
  auto surface = SurfaceDataBitmap::Create(h.width, h.height, palette.entry_bytes == 4 ? formats::A8R8G8B8
                                                                                        : formats::R8G8B8, 2);
  if (!surface) return nullptr;

  // Compressed rows are first decoded into a zeroed image of file rows.
  std::vector<u8> scratch;
  u64 rows_present = available / row_bytes;
  if (h.compression != 0) {
    u64 scratch_bytes = 0;
    if (checked::MulOverflows(row_bytes, h.height, &scratch_bytes)) return nullptr;
    scratch.assign(static_cast<std::size_t>(scratch_bytes), 0);
    const detail::ByteReader codes(pixels, static_cast<std::size_t>(available));
    if (h.compression == kCompressionRle8) {
      DecodeRle8(codes, scratch.data(), row_bytes, h.height);
    } else {
      DecodeRle4(codes, scratch.data(), row_bytes, h.height);
    }
    pixels = reinterpret_cast<const char*>(scratch.data());
    rows_present = h.height;
  }

  const ExpandFn expand = PickExpand(h.bits, palette.entry_bytes);
  const u64 pitch = surface->BytesPerRow(), used = h.width * palette.entry_bytes;
  for (u64 y = 0; y < h.height; ++y) {
    u8* dst = reinterpret_cast<u8*>(surface->Buffer()) + (h.top_down ? y : h.height - 1 - y) * pitch;
    if (y < rows_present) {
      expand(reinterpret_cast<const u8*>(pixels) + y * row_bytes, dst, h.width, palette.slots);
      std::memset(dst + used, 0, static_cast<std::size_t>(pitch - used));
    } else {
      std::memset(dst, 0, static_cast<std::size_t>(pitch));  // past the end of a short file
    }
  }
  return surface;
}

// ---- 16-, 24- and 32-bit images ----

// Whether any pixel of a row has a non-zero fourth byte; with `rotate`, every
// pixel's bytes (b0, b1, b2, b3) first become (b1, b2, b3, b0).
bool AlphaInRow(char* row, u64 width, bool rotate) {
  u32 any = 0;
  for (u64 x = 0; x < width; ++x) {
    u32 v = 0;
    std::memcpy(&v, row + 4 * x, 4);
    if (rotate) {
      v = v >> 8 | v << 24;
      std::memcpy(row + 4 * x, &v, 4);
    }
    any |= v;
  }
  return (any & 0xFF000000u) != 0;
}

std::shared_ptr<SurfaceDataBitmap> DecodeDirect(const Header& h, const char* pixels, u64 available, u64 row_bytes) {
  if (!detail::WithinDecodeLimit("BMP", h.width, h.height)) return nullptr;
  PixelFormatDescriptor format = formats::R8G8B8;
  if (h.bits == 16) format = h.masks && h.red == 0xF800 ? formats::R5G6B5 : formats::A1R5G5B5;
  if (h.bits == 32) format = formats::X8R8G8B8;
  auto surface = SurfaceDataBitmap::Create(h.width, h.height, format, 2);
  if (!surface || surface->BytesPerRow() != row_bytes) return nullptr;

  // The bytes are stored R, G, B, A from the high byte down: brought to B, G, R, A.
  const bool rotate = h.bits == 32 && h.masks && h.red == 0xFF000000u && h.green == 0xFF0000u && h.blue == 0xFF00u;
  const u64 rows_present = std::min<u64>(available / row_bytes, h.height);
  char* const out = surface->Buffer();
  if (h.top_down && h.bits != 32) {
    std::memcpy(out, pixels, static_cast<std::size_t>(rows_present * row_bytes));
  } else {
    bool alpha = false;
    for (u64 y = 0; y < rows_present; ++y) {
      char* dst = out + (h.top_down ? y : h.height - 1 - y) * row_bytes;
      std::memcpy(dst, pixels + y * row_bytes, static_cast<std::size_t>(row_bytes));
      if (h.bits == 32 && (rotate || !alpha)) alpha = AlphaInRow(dst, h.width, rotate) || alpha;
    }
    if (alpha && !surface->Reinterpret(formats::A8R8G8B8)) return nullptr;
  }
  // Rows past the end of a short file: the top ones when stored bottom-up.
  const u64 missing = (h.height - rows_present) * row_bytes;
  std::memset(h.top_down ? out + rows_present * row_bytes : out, 0, static_cast<std::size_t>(missing));
  return surface;
}

class ImageBMP final : public detail::DecodedImage {
 public:
  explicit ImageBMP(std::shared_ptr<SurfaceData> data) : DecodedImage(ImageFormat::BMP, std::move(data)) {}
};

std::shared_ptr<Image> Decode(const char* data, std::size_t size) {
  Header h;
  if (!ReadHeader(data, size, &h)) return Image::Null;
  const bool palette = h.bits == 1 || h.bits == 4 || h.bits == 8;
  if (!palette && h.bits != 16 && h.bits != 24 && h.bits != 32) {
    if (h.reader == Reader::Core) lumo::log::CLogError(LogChannel, "Unsupport ");
    return Image::Null;
  }
  if (h.width == 0 || h.height == 0) return Image::Null;

  // Pixel data from the offset to the end of the buffer; none at all is no picture.
  detail::ByteReader r(data, size);
  const char* pixels = nullptr;
  if (!r.Seek(h.data_offset) || r.Remaining() == 0 || !r.Bytes(r.Remaining(), &pixels)) return Image::Null;
  const u64 available = r.Position() - h.data_offset;
  const u64 row_bytes = (h.bits * h.width + 31) / 32 * 4;

  auto surface = palette ? DecodePalette(data, size, h, pixels, available, row_bytes)
                         : DecodeDirect(h, pixels, available, row_bytes);
  if (!surface) return Image::Null;
  return std::make_shared<ImageBMP>(std::move(surface));
}

// ---- Writing ----

// How a writable format's pixels are brought to the file's B, G, R (, A) order.
enum class Swap { None, Fields565, Fields1555, Bytes24, Bytes32 };

bool Writable(PixelFormatDescriptor format, Swap* swap) {
  struct Entry {
    PixelFormatDescriptor format;
    Swap swap;
  };
  static constexpr Entry kWritable[] = {
      {formats::B5G6R5, Swap::Fields565},     {formats::R5G6B5, Swap::None},
      {formats::A1B5G5R5, Swap::Fields1555},  {formats::A1R5G5B5, Swap::None},
      {formats::B8G8R8, Swap::Bytes24},       {formats::R8G8B8, Swap::None},
      {formats::X8B8G8R8, Swap::Bytes32},     {formats::A8B8G8R8, Swap::Bytes32},
      {formats::s_A8B8G8R8, Swap::Bytes32},   {formats::X8R8G8B8, Swap::None},
      {formats::s_X8R8G8B8, Swap::None},      {formats::A8R8G8B8, Swap::None},
      {formats::s_A8R8G8B8, Swap::None},
  };
  for (const Entry& e : kWritable) {
    if (e.format == format) {
      *swap = e.swap;
      return true;
    }
  }
  return false;
}

template <typename Word, typename Fn>
void MapWords(char* row, u64 width, Fn fn) {
  for (u64 x = 0; x < width; ++x) {
    Word v;
    std::memcpy(&v, row + sizeof(Word) * x, sizeof(Word));
    v = fn(v);
    std::memcpy(row + sizeof(Word) * x, &v, sizeof(Word));
  }
}

void SwapRow(Swap swap, char* row, u64 width) {
  switch (swap) {
    case Swap::None:
      break;
    case Swap::Fields565:  // bits 0-4 with 11-15
      MapWords<u16>(row, width, [](u16 v) { return static_cast<u16>((v & 0x07E0) | v >> 11 | (v & 0x1F) << 11); });
      break;
    case Swap::Fields1555:  // bits 0-4 with 10-14
      MapWords<u16>(row, width,
                    [](u16 v) { return static_cast<u16>((v & 0x83E0) | (v >> 10 & 0x1F) | (v & 0x1F) << 10); });
      break;
    case Swap::Bytes24:
      for (u64 x = 0; x < width; ++x) std::swap(row[3 * x], row[3 * x + 2]);
      break;
    case Swap::Bytes32:
      MapWords<u32>(row, width, [](u32 v) { return (v & 0xFF00FF00u) | (v >> 16 & 0xFF) | (v & 0xFF) << 16; });
      break;
  }
}

std::shared_ptr<char> Encode(const SurfaceData& surface, size_t* size, int /*flags: always uncompressed*/) {
  const PixelFormatDescriptor format = surface.Format();
  Swap swap = Swap::None;
  if (!Writable(format, &swap)) {
    lumo::log::LogError(LogChannel, "Can not serialize format %s to bmp", ToString(format).c_str());
    return nullptr;
  }
  auto refuse = [&] {
    lumo::log::LogError(LogChannel, "Can not convert format %s to bmp", ToString(format).c_str());
    return nullptr;
  };
  const u64 pixel_bytes = BitsPerPixel(format, nullptr) / 8;
  const u64 width = surface.Width(), height = surface.Height(), pitch = surface.BytesPerRow();
  // File rows are padded to 4 bytes whatever the surface's padding, which is never copied.
  const u64 tight = width * pixel_bytes, row_bytes = (tight + 3) / 4 * 4;
  const u64 data_offset = pixel_bytes == 2 ? kMasksOffset + 12 : kMasksOffset;
  u64 image_bytes = 0, file_bytes = 0, last_row = 0;
  if (width > 0x7FFFFFFF || height > 0x7FFFFFFF || checked::MulOverflows(row_bytes, height, &image_bytes) ||
      checked::AddOverflows(image_bytes, data_offset, &file_bytes) || file_bytes > 0xFFFFFFFFu) {
    return refuse();
  }
  if (height != 0 && tight != 0 &&
      (surface.Buffer() == nullptr || pitch < tight ||
       checked::MulAddOverflows(height - 1, pitch, tight, &last_row) || last_row > surface.Size())) {
    return refuse();
  }
  std::shared_ptr<char> file;
  try {
    file = detail::NewFileBuffer(file_bytes);
  } catch (const std::bad_alloc&) {
  }
  if (!file) return refuse();

  detail::ByteWriter w(file.get(), static_cast<std::size_t>(file_bytes));
  w.U16LE(kMagicBM);
  w.U32LE(static_cast<u32>(file_bytes));
  w.U32LE(0);
  w.U32LE(static_cast<u32>(data_offset));
  w.U32LE(40);
  w.U32LE(static_cast<u32>(width));
  w.U32LE(static_cast<u32>(height));  // positive: rows bottom-up
  w.U16LE(1);
  w.U16LE(static_cast<u16>(8 * pixel_bytes));
  w.U32LE(pixel_bytes == 2 ? kCompressionBitfields : 0);
  w.U32LE(static_cast<u32>(image_bytes));
  w.U32LE(kPixelsPerMeter);
  w.U32LE(kPixelsPerMeter);
  w.U32LE(0);
  w.U32LE(0);
  if (pixel_bytes == 2) {
    const bool six_bits_green = format == formats::B5G6R5 || format == formats::R5G6B5;
    w.U32LE(six_bits_green ? 0xF800 : 0x7C00);
    w.U32LE(six_bits_green ? 0x07E0 : 0x03E0);
    w.U32LE(0x001F);
  }
  char* const rows = w.Reserve(static_cast<std::size_t>(image_bytes));
  if (rows == nullptr || w.Position() != file_bytes) return refuse();
  for (u64 y = 0; y < height; ++y) {
    char* dst = rows + (height - 1 - y) * row_bytes;
    if (tight != 0) std::memcpy(dst, surface.Buffer() + y * pitch, static_cast<std::size_t>(tight));
    std::memset(dst + tight, 0, static_cast<std::size_t>(row_bytes - tight));
    SwapRow(swap, dst, width);
  }
  *size = static_cast<size_t>(file_bytes);
  return file;
}

constexpr detail::PictureFormat kBMPFile{
    ImageFormat::BMP, "BMP", {"BMP: %s", "BMP: unexpected failure", false}, CheckFile, Decode, Encode,
};

class ImageBMPPlugin final : public detail::PicturePlugin {
 public:
  ImageBMPPlugin() : PicturePlugin(kBMPFile) {}
};

}  // namespace

ImagePlugin* detail::BMPPlugin() {
  static ImageBMPPlugin plugin;
  return &plugin;
}

}  // namespace lumo::image
