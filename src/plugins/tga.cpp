// TGA pictures: true-colour, grey and colour-mapped images, raw or
// run-length encoded, on reading; true-colour and grey on writing.
//
// File pixels are stored B, G, R (, A), which is the memory order of
// R8G8B8 and A8R8G8B8, so rows are copied as they stand. Decoding writes
// straight into the surface: whole rows at a time when columns run left to
// right, and run-length packets split at row ends, so no scratch image exists.
#include "plugins/tga.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>

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
using u64 = unsigned long long;

constexpr std::size_t kHeaderBytes = 18;
constexpr char kFooterSignature[] = "TRUEVISION-XFILE.";  // with its zero: 18 bytes
constexpr PixelFormatDescriptor kR32{0x80200ULL};         // one 32-bit R channel
constexpr int kPaletteSlots = 256;                        // every value an 8-bit index can take
constexpr int kMaxPacket = 128;

enum ImageType : u8 { kMapped = 1, kTrueColour = 2, kGrey = 3, kRleBit = 8 };

struct Header {
  u8 id_length, map_type, image_type;
  std::uint16_t map_first, map_length;
  u8 entry_bits;
  std::uint16_t x_origin, y_origin, width, height;
  u8 depth, descriptor;
};

bool ReadHeader(const char* data, std::size_t size, Header* h) {
  detail::ByteReader r(data, size);
  return r.U8(&h->id_length) && r.U8(&h->map_type) && r.U8(&h->image_type) && r.U16LE(&h->map_first) &&
         r.U16LE(&h->map_length) && r.U8(&h->entry_bits) && r.U16LE(&h->x_origin) && r.U16LE(&h->y_origin) &&
         r.U16LE(&h->width) && r.U16LE(&h->height) && r.U8(&h->depth) && r.U8(&h->descriptor);
}

bool CheckFile(const char* data, std::size_t size) {
  if (data == nullptr || size < kHeaderBytes) return false;
  if (std::memcmp(data + size - sizeof kFooterSignature, kFooterSignature, sizeof kFooterSignature) == 0) return true;
  const u8 type = static_cast<u8>(data[2]), depth = static_cast<u8>(data[16]);
  const bool known_type = (type & ~kRleBit) >= kMapped && (type & ~kRleBit) <= kGrey;
  return known_type && (depth == 8 || depth == 16 || depth == 24 || depth == 32);
}

// The surface format of a header; no format for a combination the reader
// does not take. Colour-mapped pictures must use 8-bit indices.
PixelFormatDescriptor ChooseFormat(const Header& h) {
  switch (h.image_type & ~kRleBit) {
    case kMapped:
      if (h.depth != 8) return {};
      [[fallthrough]];
    case kTrueColour: {
      const int bits = (h.image_type & ~kRleBit) == kMapped ? h.entry_bits : h.depth;
      if (bits == 15 || bits == 16) return formats::A1R5G5B5;
      if (bits == 24) return formats::R8G8B8;
      if (bits == 32) return formats::A8R8G8B8;
      return {};
    }
    case kGrey:
      return h.depth == 8 ? formats::A8 : h.depth == 16 ? formats::R16 : h.depth == 32 ? kR32 : PixelFormatDescriptor{};
    default:
      return {};
  }
}

// ---- Placing pixels ----
//
// A Span writes `k` pixels of one file row from column x on. The file holds
// S bytes a pixel (an index when Mapped); the surface takes D bytes a pixel.
// Mirrored rows are filled from their right end.
template <int S, int D, bool Mirror, bool Mapped>
struct Span {
  static_assert(!Mapped || S == 1);

  u8* row;
  u64 width;
  const u8* palette;  // kPaletteSlots slots of 4 bytes when Mapped

  u8* At(u64 x) const { return Mirror ? row + (width - 1 - x) * D : row + x * D; }
  const u8* Colour(const u8* src) const { return Mapped ? palette + 4 * std::size_t{*src} : src; }

  void Raw(u64 x, const u8* src, u64 k) const {
    if constexpr (!Mirror && !Mapped) {
      // Packets of photographs are short: fixed-size moves beat a call.
      if (k > 16) {
        std::memcpy(At(x), src, k * D);
      } else {
        for (u64 i = 0; i < k; ++i) std::memcpy(At(x + i), src + i * D, D);
      }
    } else {
      for (u64 i = 0; i < k; ++i) std::memcpy(At(x + i), Colour(src + i * S), D);
    }
  }

  void Run(u64 x, const u8* src, u64 k) const {
    const u8* colour = Colour(src);
    if constexpr (D == 1) {
      std::memset(Mirror ? At(x + k - 1) : At(x), *colour, k);
    } else {
      u8* first = Mirror ? At(x + k - 1) : At(x);
      for (u64 i = 0; i < k; ++i) std::memcpy(first + i * D, colour, D);
    }
  }
};

// Where each file row goes: file rows run bottom-up unless the descriptor
// says otherwise; the surface always has its top row first.
struct Rows {
  u8* pixels;
  u64 pitch, width, height;
  bool top_down;

  u8* Row(u64 file_row) const { return pixels + (top_down ? file_row : height - 1 - file_row) * pitch; }

  // Clears what a short file leaves unwritten: file row y from column x on, and every row after it.
  void ClearFrom(u64 y, u64 x, u64 bytes_per_pixel, bool mirror) const {
    if (y < height && x > 0) {
      u8* row = Row(y);
      std::memset(mirror ? row : row + x * bytes_per_pixel, 0, (width - x) * bytes_per_pixel);
      ++y;
    }
    for (; y < height; ++y) std::memset(Row(y), 0, width * bytes_per_pixel);
  }
};

// Uncompressed pixel data. False when the data ends before the last pixel:
// the rows that are there are kept, the rest is cleared.
template <int S, int D, bool Mirror, bool Mapped>
bool PlaceRaw(const Rows& rows, const u8* src, std::size_t available, const u8* palette) {
  const u64 row_bytes = rows.width * S;
  const u64 whole_rows = available / row_bytes;
  const u64 complete = whole_rows < rows.height ? whole_rows : rows.height;
  for (u64 y = 0; y < complete; ++y, src += row_bytes) {
    Span<S, D, Mirror, Mapped>{rows.Row(y), rows.width, palette}.Raw(0, src, rows.width);
  }
  if (complete == rows.height) return true;
  const u64 partial = (available - complete * row_bytes) / S;
  Span<S, D, Mirror, Mapped>{rows.Row(complete), rows.width, palette}.Raw(0, src, partial);
  rows.ClearFrom(complete, partial, D, Mirror);
  return false;
}

// Run-length packets of width x height pixels; a packet may continue on the
// next row. False when a packet runs past the end of the data: the pixels
// before it are kept, the rest is cleared.
template <int S, int D, bool Mirror, bool Mapped>
bool PlaceRle(const Rows& rows, const u8* src, std::size_t available, const u8* palette) {
  const u8* const end = src + available;
  u64 y = 0, x = 0;
  Span<S, D, Mirror, Mapped> span{rows.Row(0), rows.width, palette};
  while (y < rows.height) {
    if (src == end) break;
    const u8 head = *src++;
    u64 n = (head & 0x7Fu) + 1;
    const bool run = (head & 0x80u) != 0;
    const std::size_t packet = run ? S : static_cast<std::size_t>(n) * S;
    if (static_cast<std::size_t>(end - src) < packet) break;
    if (n < rows.width - x) {  // most packets end inside the row
      if (run) {
        span.Run(x, src, n);
        src += S;
      } else {
        span.Raw(x, src, n);
        src += packet;
      }
      x += n;
      continue;
    }
    // The packet's pixels, split at row ends.
    while (n != 0) {
      const u64 left = rows.width - x;
      const u64 k = n < left ? n : left;
      if (run) {
        span.Run(x, src, k);
      } else {
        span.Raw(x, src, k);
        src += k * S;
      }
      n -= k;
      x += k;
      if (x == rows.width) {
        x = 0;
        if (++y == rows.height) break;
        span.row = rows.Row(y);
      }
    }
    if (run) src += S;
  }
  if (y == rows.height) return true;
  rows.ClearFrom(y, x, D, Mirror);
  return false;
}

using Placer = bool (*)(const Rows&, const u8*, std::size_t, const u8*);

template <int S, int D, bool Mapped>
Placer PickPlacer(bool rle, bool mirror) {
  if (rle) return mirror ? PlaceRle<S, D, true, Mapped> : PlaceRle<S, D, false, Mapped>;
  return mirror ? PlaceRaw<S, D, true, Mapped> : PlaceRaw<S, D, false, Mapped>;
}

Placer ChoosePlacer(bool mapped, u64 bytes_per_pixel, bool rle, bool mirror) {
  if (mapped) {
    if (bytes_per_pixel == 2) return PickPlacer<1, 2, true>(rle, mirror);
    if (bytes_per_pixel == 3) return PickPlacer<1, 3, true>(rle, mirror);
    return PickPlacer<1, 4, true>(rle, mirror);
  }
  switch (bytes_per_pixel) {
    case 1:
      return PickPlacer<1, 1, false>(rle, mirror);
    case 2:
      return PickPlacer<2, 2, false>(rle, mirror);
    case 3:
      return PickPlacer<3, 3, false>(rle, mirror);
    default:
      return PickPlacer<4, 4, false>(rle, mirror);
  }
}

// The colour map as 256 slots of 4 bytes. File entry i fills slot first + i;
// slots that no entry fills stay zero, so any index reads inside the palette.
// 15-bit entries, and 16-bit ones of a picture that declares no alpha bits,
// are made opaque; other 16-bit entries keep their top bit as alpha. False when the map is cut short or
// its entries are of a size the reader does not take.
bool ReadPalette(const Header& h, const char* data, std::size_t size, u8 (&palette)[kPaletteSlots][4]) {
  const int entry_bytes = (h.entry_bits + 1) / 8;
  if (h.entry_bits != 15 && h.entry_bits != 16 && h.entry_bits != 24 && h.entry_bits != 32) return false;
  detail::ByteReader r(data, size);
  const char* map = nullptr;
  if (!r.Skip(kHeaderBytes + h.id_length) || !r.Bytes(std::size_t{h.map_length} * entry_bytes, &map)) return false;
  std::memset(palette, 0, sizeof palette);
  const bool opaque = entry_bytes == 2 && (h.entry_bits == 15 || (h.descriptor & 0x0F) == 0);
  for (int i = 0; i < h.map_length && h.map_first + i < kPaletteSlots; ++i) {
    u8* slot = palette[h.map_first + i];
    std::memcpy(slot, map + std::size_t{static_cast<unsigned>(i)} * entry_bytes, entry_bytes);
    if (opaque) slot[1] |= 0x80;
  }
  return true;
}

class ImageTGA final : public detail::DecodedImage {
 public:
  explicit ImageTGA(std::shared_ptr<SurfaceData> data) : DecodedImage(ImageFormat::TGA, std::move(data)) {}
};

std::shared_ptr<Image> Decode(const char* data, std::size_t size) {
  Header h{};
  if (!ReadHeader(data, size, &h)) return Image::Null;
  const PixelFormatDescriptor format = ChooseFormat(h);
  const u64 bytes_per_pixel = BytesPerPixel(format, nullptr);
  if (bytes_per_pixel == 0 || h.width == 0 || h.height == 0) return Image::Null;
  const bool mapped = (h.image_type & ~kRleBit) == kMapped;
  // Raw and run-length data are read with the file's own pixel size; grey
  // and true colour take depth / 8 bytes, which the format matches.
  if (!mapped && (h.depth + 1) / 8 != static_cast<int>(bytes_per_pixel)) return Image::Null;

  u8 palette[kPaletteSlots][4];
  if (mapped && !ReadPalette(h, data, size, palette)) return Image::Null;
  if (!detail::WithinDecodeLimit("TGA", h.width, h.height)) return Image::Null;
  const std::shared_ptr<SurfaceDataBitmap> surface = SurfaceDataBitmap::Create(h.width, h.height, format, 2);
  if (!surface) return Image::Null;

  // The map's size counts even where the type says there is none.
  const std::size_t start = kHeaderBytes + h.id_length + std::size_t{(h.entry_bits + 1u) / 8} * h.map_length;
  const std::size_t available = start < size ? size - start : 0;
  const auto* src = reinterpret_cast<const u8*>(data) + (start < size ? start : size);

  const Rows rows{reinterpret_cast<u8*>(surface->Buffer()), surface->BytesPerRow(), h.width, h.height,
                  (h.descriptor & 0x20) != 0};
  const u64 row_bytes = rows.width * bytes_per_pixel;
  if (rows.pitch > row_bytes) {
    for (u64 y = 0; y < rows.height; ++y)
      std::memset(rows.pixels + y * rows.pitch + row_bytes, 0, rows.pitch - row_bytes);
  }
  const bool rle = (h.image_type & kRleBit) != 0;
  const Placer place = ChoosePlacer(mapped, bytes_per_pixel, rle, (h.descriptor & 0x10) != 0);
  if (!place(rows, src, available, palette[0])) {
    lumo::log::CLogError(LogChannel, rle ? "ImageTGA decompress RLE failed: source data out of memory"
                                         : "ImageTGA read failed: pixel data cut short");
  }
  return std::make_shared<ImageTGA>(surface);
}

// ---- Writing ----

enum class Swap { None, Bytes02, Fields555 };

struct Layout {
  u64 bits;  // bits per pixel
  int channels;
  Swap swap;
};

// What a surface format is written as; false when TGA cannot hold it.
bool ChooseLayout(PixelFormatDescriptor format, Layout* out) {
  PixelFormatMeta meta{};
  if (!ParseFormat(format, &meta) || meta.compressed) return false;
  const int channels = static_cast<int>(ChannelCount(meta));
  const ComponentMeta* c = meta.components;
  auto bits = [&](u64 a, u64 b, u64 cc, u64 d) {
    return c[0].bits == a && c[1].bits == b && c[2].bits == cc && c[3].bits == d;
  };
  if (channels == 1 && (c[0].bits == 8 || c[0].bits == 16 || c[0].bits == 32)) {
    *out = {c[0].bits, 1, Swap::None};
  } else if (channels == 3 && bits(8, 8, 8, 0)) {
    const bool swap = c[0].component == PixelComponent::B && c[2].component == PixelComponent::R;
    *out = {24, 3, swap ? Swap::Bytes02 : Swap::None};
  } else if (channels == 4 && (bits(8, 8, 8, 8) || bits(1, 5, 5, 5))) {
    const bool swap = c[1].component == PixelComponent::B && c[3].component == PixelComponent::R;
    *out = {c[0].bits == 8 ? 32u : 16u, 4, swap ? (c[0].bits == 8 ? Swap::Bytes02 : Swap::Fields555) : Swap::None};
  } else {
    return false;
  }
  return true;
}

// One row in the file's channel order.
void SwapRow(Swap swap, u64 bytes_per_pixel, const char* src, u64 width, char* out) {
  std::memcpy(out, src, width * bytes_per_pixel);
  if (swap == Swap::Bytes02) {
    for (u64 x = 0; x < width; ++x) std::swap(out[x * bytes_per_pixel], out[x * bytes_per_pixel + 2]);
  } else if (swap == Swap::Fields555) {
    for (u64 x = 0; x < width; ++x) {
      std::uint16_t v = 0;
      std::memcpy(&v, out + 2 * x, 2);
      v = static_cast<std::uint16_t>((v & 0x83E0u) | (v & 0x1Fu) << 10 | (v >> 10 & 0x1Fu));
      std::memcpy(out + 2 * x, &v, 2);
    }
  }
}

// Run-length packets of one row; returns their length. With `out` null only counts.
// Packets follow a fixed rule: a run packet stays open while pixels repeat, a
// raw one until two equal pixels meet (the first closes it, the second opens
// a run), and any packet is closed at 128 pixels or at the row's end.
template <int B>
u64 EncodeRow(const u8* px, u64 width, u8* out) {
  u64 length = 0;
  auto emit = [&](bool run, u64 from, u64 to) {
    const u64 count = to - from;
    if (out != nullptr) {
      out[length] = static_cast<u8>(run ? count + 127 : count - 1);
      std::memcpy(out + length + 1, px + from * B, run ? B : count * B);
    }
    length += 1 + (run ? B : count * B);
  };
  bool run = true;
  u64 start = 0;
  for (u64 p = 1; p < width; ++p) {
    const bool same = std::memcmp(px + p * B, px + (p - 1) * B, B) == 0;
    if (run != same) {
      emit(run, start, p);
      run = same;
      start = p;
    }
    if (p - start == kMaxPacket) {
      emit(run, start, p);
      run = true;
      start = p;
    }
  }
  if (width != 0) emit(run, start, width);
  return length;
}

u64 EncodeRow(u64 bytes_per_pixel, const char* row, u64 width, char* out) {
  const auto* px = reinterpret_cast<const u8*>(row);
  auto* o = reinterpret_cast<u8*>(out);
  switch (bytes_per_pixel) {
    case 1:
      return EncodeRow<1>(px, width, o);
    case 2:
      return EncodeRow<2>(px, width, o);
    case 3:
      return EncodeRow<3>(px, width, o);
    default:
      return EncodeRow<4>(px, width, o);
  }
}

std::shared_ptr<char> EncodeOrThrow(const SurfaceData& surface, size_t* size, int flags, const Layout& layout) {
  const u64 width = surface.Width(), height = surface.Height(), pitch = surface.BytesPerRow();
  const u64 bpp = layout.bits / 8, row_bytes = width * bpp;
  u64 last_row_end = 0;
  if (width == 0 || height == 0 || surface.Buffer() == nullptr || pitch < row_bytes ||
      checked::MulAddOverflows(height - 1, pitch, row_bytes, &last_row_end) || last_row_end > surface.Size()) {
    return nullptr;
  }
  if (width > 0xFFFF || height > 0xFFFF) {
    lumo::log::LogError(LogChannel, "TGA can not hold a picture of %llu x %llu pixels", width, height);
    return nullptr;
  }
  const bool rle = (flags & ISF_TARGA_SAVE_RLE) != 0;
  const bool swapping = layout.swap != Swap::None;
  std::unique_ptr<char[]> swapped(swapping ? new char[row_bytes] : nullptr);
  // File rows run bottom-up: the last surface row comes first.
  auto file_row = [&](u64 i) {
    const char* row = surface.Buffer() + (height - 1 - i) * pitch;
    if (!swapping) return row;
    SwapRow(layout.swap, bpp, row, width, swapped.get());
    return static_cast<const char*>(swapped.get());
  };

  u64 payload = row_bytes * height;  // at most 65535 x 65535 x 4: no overflow
  if (rle) {
    payload = 0;
    for (u64 i = 0; i < height; ++i) payload += EncodeRow(bpp, file_row(i), width, nullptr);
  }
  std::shared_ptr<char> file = detail::NewFileBuffer(kHeaderBytes + payload);
  if (!file) throw std::bad_alloc();
  detail::ByteWriter w(file.get(), kHeaderBytes + payload);
  w.U8(0);  // no ID
  w.U8(0);  // no colour map
  w.U8(static_cast<u8>((layout.channels == 1 ? kGrey : kTrueColour) | (rle ? kRleBit : 0)));
  w.Zeros(5);  // colour map fields
  w.Zeros(4);  // origin
  w.U16LE(static_cast<std::uint16_t>(width));
  w.U16LE(static_cast<std::uint16_t>(height));
  w.U8(static_cast<u8>(layout.bits));
  w.U8(layout.bits == 32 || layout.channels == 1 ? 8 : 0);  // alpha bits; rows bottom-up, left to right
  if (!rle) {
    for (u64 i = 0; i < height; ++i) w.Bytes(file_row(i), row_bytes);
  } else if (char* body = w.Reserve(payload); body != nullptr) {
    // The rows encode to the lengths counted above: the same bytes, the same rule.
    for (u64 i = 0, at = 0; i < height; ++i) at += EncodeRow(bpp, file_row(i), width, body + at);
  }
  if (!w.Ok() || w.Position() != w.Size()) return nullptr;
  *size = static_cast<size_t>(w.Size());
  return file;
}

std::shared_ptr<char> Encode(const SurfaceData& surface, size_t* size, int flags) {
  Layout layout{};
  if (ChooseLayout(surface.Format(), &layout)) {
    try {
      return EncodeOrThrow(surface, size, flags, layout);
    } catch (const std::bad_alloc&) {
    }
  }
  lumo::log::LogError(LogChannel, "Can not convert format %s to tga", ToString(surface.Format()).c_str());
  return nullptr;
}

constexpr detail::PictureFormat kTGAFile{
    ImageFormat::TGA, "TGA", {"ImageTGA: %s", "ImageTGA: unexpected failure", false}, CheckFile, Decode, Encode,
};

class ImageTGAPlugin final : public detail::PicturePlugin {
 public:
  ImageTGAPlugin() : PicturePlugin(kTGAFile) {}
};

}  // namespace

ImagePlugin* detail::TGAPlugin() {
  static ImageTGAPlugin plugin;
  return &plugin;
}

}  // namespace lumo::image
