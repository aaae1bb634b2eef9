// GIF pictures: the first image of a file decoded into B8G8R8, and a surface
// of at most 256 colours written as a single-image GIF89a file, both with the
// library's own LZW coder.
#include "plugins/gif.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
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
#include "plugins/entry_guard.h"
#include "plugins/picture_plugin.h"
#include "plugins/plugin_images.h"

namespace lumo::image {
namespace {

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = unsigned long long;

constexpr u32 kMaxCodes = 4096;
constexpr unsigned kMaxMinCodeSize = 12;  // a clear code of 4096
constexpr std::size_t kCopySlack = 16;    // room past the index buffer for 8-byte string copies
constexpr char kTruncated[] = "Unexpected end of file";

class ImageGIF final : public detail::DecodedImage {
 public:
  explicit ImageGIF(std::shared_ptr<SurfaceData> data) : DecodedImage(ImageFormat::GIF, std::move(data)) {}
};

bool CheckFile(const char* data, size_t size) {
  return data != nullptr && size >= 4 && std::memcmp(data, "GIF", 3) == 0;
}

// ---- LZW decoding ----

// The code stream, least significant bit first, in a 64-bit accumulator.
struct BitSource {
  const u8* next;
  const u8* end;
  u64 bits = 0;
  unsigned count = 0;

  void Refill() {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    if (end - next >= 8) {
      // Bytes that do not fit whole are taken again, to the same place, next time.
      u64 word;
      std::memcpy(&word, next, 8);
      bits |= word << count;
      next += (63 - count) >> 3;
      count |= 56;
      return;
    }
#endif
    while (count <= 56 && next != end) {
      bits |= u64{*next++} << count;
      count += 8;
    }
  }
};

// Decodes the codes of `in` into `out` (room for `room` indices and
// kCopySlack bytes past them); returns how many indices were produced. It
// stops at the end code, at a code that no string has yet, when the codes
// run out, or when `out` is full. Every string is a copy of earlier output:
// a new code's string is the previous code's output and the byte after it,
// so the table keeps only where each string was last written and its length.
std::size_t DecodeLzw(unsigned min_code_size, const u8* in, std::size_t in_size, u8* out, std::size_t room) {
  if (min_code_size > kMaxMinCodeSize || room == 0) return 0;
  std::vector<std::size_t> start(kMaxCodes);
  std::vector<u16> length(kMaxCodes);
  const u32 clear = 1u << min_code_size, end_code = clear + 1;
  u32 size = 0, mask = 0, next = 0;
  bool have_prev = false;
  std::size_t prev_at = 0, prev_length = 0, at = 0;
  auto reset = [&] {
    size = min_code_size + 1;
    mask = (1u << size) - 1;
    next = end_code + 1;
    have_prev = false;
  };
  reset();
  BitSource src{in, in + in_size};
  for (;;) {
    if (src.count < size) {
      src.Refill();
      if (src.count < size) break;
    }
    const u32 code = static_cast<u32>(src.bits) & mask;
    src.bits >>= size;
    src.count -= size;
    if (code == clear) {
      reset();
      continue;
    }
    if (code == end_code || code > next) break;
    const bool grows = have_prev && next < kMaxCodes;
    if (grows) {
      start[next] = prev_at;
      length[next] = static_cast<u16>(prev_length + 1);
    } else if (code == next) {
      break;  // a string that nothing defines
    }
    u8* dst = out + at;
    std::size_t n = 1;
    if (code < clear) {
      *dst = static_cast<u8>(code);
    } else {
      n = std::min<std::size_t>(length[code], room - at);
      const u8* from = out + start[code];
      if (dst - from >= 8) {
        for (std::size_t i = 0; i < n; i += 8) std::memcpy(dst + i, from + i, 8);
      } else {
        for (std::size_t i = 0; i < n; ++i) dst[i] = from[i];  // overlaps its own output
      }
    }
    prev_at = at;
    prev_length = n;
    at += n;
    have_prev = true;
    if (at == room) break;
    if (grows && ++next < kMaxCodes && (next & mask) == 0) {
      ++size;
      mask = mask << 1 | 1;
    }
  }
  return at;
}

// ---- Reading the file ----

using Palette = u32[256];  // bytes R, G, B, 0

void ReadColourTable(detail::ByteReader* in, unsigned packed, Palette palette) {
  const std::size_t entries = std::size_t{2} << (packed & 7);
  const char* rgb = nullptr;
  if (!in->Bytes(entries * 3, &rgb)) throw detail::DecodeError(kTruncated);
  std::fill(palette, palette + 256, 0u);
  for (std::size_t i = 0; i < entries; ++i) std::memcpy(&palette[i], rgb + 3 * i, 3);
}

void SkipSubBlocks(detail::ByteReader* in) {
  u8 n = 0;
  do {
    if (!in->U8(&n) || !in->Skip(n)) throw detail::DecodeError(kTruncated);
  } while (n != 0);
}

// Extensions carry nothing that this reader uses (no transparency, no
// animation); graphic control blocks have a fixed size, plain text and
// application blocks a fixed header, and everything else ends with its
// sub-blocks. Only 89a files are searched for them: in an 87a file the image
// descriptor follows the colour table (a block there is read as one).
void SkipExtensions(detail::ByteReader* in) {
  while (in->Has(1) && static_cast<u8>(*in->Cursor()) == 0x21) {
    u8 label = 0;
    if (!in->Skip(1) || !in->U8(&label)) throw detail::DecodeError(kTruncated);
    const std::size_t fixed = label == 0xF9 ? 6 : label == 0x01 ? 13 : label == 0xFF ? 12 : 0;
    if (!in->Skip(fixed)) throw detail::DecodeError(kTruncated);
    if (label != 0xF9) SkipSubBlocks(in);
  }
}

// The data sub-blocks joined; a cut block gives what it holds.
std::vector<u8> ImageData(detail::ByteReader* in) {
  std::vector<u8> data;
  data.reserve(in->Remaining());
  u8 n = 0;
  while (in->U8(&n) && n != 0) {
    const std::size_t take = std::min<std::size_t>(n, in->Remaining());
    const char* bytes = nullptr;
    if (!in->Bytes(take, &bytes)) break;
    data.insert(data.end(), bytes, bytes + take);
    if (take < n) break;
  }
  return data;
}

void FillRow(char* row, u64 pixels, u32 colour) {
  for (u64 x = 0; x < pixels; ++x) std::memcpy(row + 3 * x, &colour, 3);
}

// `n` indices as palette colours, 3 bytes each; all but the last pixel are
// stored as 4 bytes, the next pixel overwriting the fourth.
void DrawRow(char* row, const u8* indices, u64 n, const Palette palette) {
  if (n == 0) return;
  for (u64 x = 0; x + 1 < n; ++x) std::memcpy(row + 3 * x, &palette[indices[x]], 4);
  std::memcpy(row + 3 * (n - 1), &palette[indices[n - 1]], 3);
}

// Where image row y arrives in an interlaced stream: rows 0, 8, ...; then
// 4, 12, ...; then 2, 6, ...; then the odd rows.
u64 InterlacedSlot(u64 y, u64 height) {
  const u64 pass1 = (height + 7) / 8, pass2 = (height + 3) / 8, pass3 = (height + 1) / 4;
  if (y % 8 == 0) return y / 8;
  if (y % 8 == 4) return pass1 + y / 8;
  if (y % 4 == 2) return pass1 + pass2 + y / 4;
  return pass1 + pass2 + pass3 + y / 2;
}

std::shared_ptr<Image> Decode(const char* data, std::size_t size) {
  detail::ByteReader in(data, size);
  if (!CheckFile(data, size)) throw detail::DecodeError("Not gif image");
  u16 screen_width = 0, screen_height = 0;
  u8 screen_flags = 0, background = 0;
  if (!in.Skip(6) || !in.U16LE(&screen_width) || !in.U16LE(&screen_height) || !in.U8(&screen_flags) ||
      !in.U8(&background) || !in.Skip(1)) {
    throw detail::DecodeError(kTruncated);
  }
  Palette global = {}, palette = {};
  const bool has_global = (screen_flags & 0x80) != 0;
  if (has_global) ReadColourTable(&in, screen_flags, global);
  if (data[4] == '9') SkipExtensions(&in);  // the version: "GIF89a"

  u8 separator = 0, image_flags = 0, min_code_size = 0;
  u16 left = 0, top = 0, width = 0, height = 0;
  if (!in.U8(&separator) || !in.U16LE(&left) || !in.U16LE(&top) || !in.U16LE(&width) || !in.U16LE(&height) ||
      !in.U8(&image_flags)) {
    throw detail::DecodeError(kTruncated);
  }
  // The separator byte is not checked: whatever stands there is read as the descriptor.
  if (u32{left} + width > screen_width || u32{top} + height > screen_height) {
    throw detail::DecodeError("Sub image out of range");
  }
  if ((image_flags & 0x80) != 0) {
    ReadColourTable(&in, image_flags, palette);
  } else if (has_global) {
    std::memcpy(palette, global, sizeof palette);
  } else {
    for (u32 i = 0; i < 256; ++i) palette[i] = i * 0x010101u;  // grey: index 255 is white too
  }
  if (!in.U8(&min_code_size)) throw detail::DecodeError(kTruncated);
  if (!detail::WithinDecodeLimit("GIF", screen_width, screen_height)) return Image::Null;
  const auto surface = SurfaceDataBitmap::Create(screen_width, screen_height, formats::B8G8R8, 2);
  if (!surface) throw detail::DecodeError("Empty image");

  const std::vector<u8> codes = ImageData(&in);
  const u64 image_pixels = u64{width} * height;  // at most the screen's, within the limit
  std::unique_ptr<u8[]> indices(new u8[image_pixels + kCopySlack]);
  const u64 produced = DecodeLzw(min_code_size, codes.data(), codes.size(), indices.get(), image_pixels);

  // Pixels that the image does not reach show the background colour.
  const u32 fill = has_global ? global[background] : 0;
  const bool interlaced = (image_flags & 0x40) != 0;
  char* const pixels = surface->Buffer();
  const u64 pitch = surface->BytesPerRow(), row_bytes = u64{screen_width} * 3;
  for (u64 y = 0; y < screen_height; ++y) {
    char* const row = pixels + y * pitch;
    u64 n = 0, slot = 0;
    if (y >= top && y - top < height) {
      slot = interlaced ? InterlacedSlot(y - top, height) : y - top;
      const u64 first = slot * width;
      n = produced > first ? std::min<u64>(produced - first, width) : 0;
    }
    if (n != screen_width) FillRow(row, screen_width, fill);
    DrawRow(row + u64{left} * 3, indices.get() + slot * width, n, palette);
    std::memset(row + row_bytes, 0, pitch - row_bytes);
  }
  return std::make_shared<ImageGIF>(surface);
}

// ---- LZW encoding ----

// The bit accumulator of the writer: codes go in least significant bit
// first, whole bytes come out as soon as there are 8 bits.
class BitSink {
 public:
  explicit BitSink(u8* out) : out_(out), start_(out) {}
  void Put(u32 code, unsigned size) {
    bits_ |= u64{code} << count_;
    count_ += size;
    while (count_ >= 8) {
      *out_++ = static_cast<u8>(bits_);
      bits_ >>= 8;
      count_ -= 8;
    }
  }
  std::size_t Finish() {
    if (count_ > 0) *out_++ = static_cast<u8>(bits_);
    return static_cast<std::size_t>(out_ - start_);
  }

 private:
  u8* out_;
  u8* start_;
  u64 bits_ = 0;
  unsigned count_ = 0;
};

// The strings of the encoder: (prefix code, pixel) to code, open addressing
// over 16384 slots (at most 3838 strings live between resets, so probes stay
// short). A slot holds generation, key and code; a reset starts a new
// generation instead of clearing the slots.
class StringTable {
 public:
  StringTable() : slots_(kSlots, 0) {}
  void Reset() { ++generation_; }
  // The code of `key`, or -1 with *slot where to enter it.
  int Find(u32 key, u32* slot) const {
    u32 h = (key * 2654435761u) >> (32 - kBits);
    const u64 want = u64{generation_} << 20 | key;
    for (;; h = (h + 1) & (kSlots - 1)) {
      const u64 e = slots_[h];
      if (e >> 32 != generation_) break;
      if (e >> 12 == want) return static_cast<int>(e & 0xFFF);
    }
    *slot = h;
    return -1;
  }
  void Enter(u32 slot, u32 key, u32 code) { slots_[slot] = (u64{generation_} << 20 | key) << 12 | code; }

 private:
  static constexpr unsigned kBits = 14;
  static constexpr u32 kSlots = 1u << kBits;
  std::vector<u64> slots_;
  u32 generation_ = 1;  // slots of generation 0 are empty
};

// The index image as codes of minimum size 8; returns the byte count.
std::size_t EncodeLzw(const u8* indices, u64 count, u8* out) {
  constexpr u32 kClear = 256, kEnd = 257, kFirst = 258;
  StringTable table;
  BitSink sink(out);
  unsigned size = 9;
  u32 next = kFirst;
  sink.Put(kClear, size);
  u32 prefix = indices[0];
  for (u64 i = 1; i < count; ++i) {
    const u32 pixel = indices[i];
    const u32 key = (prefix & 0xFFF) << 8 | pixel;
    u32 slot = 0;
    const int found = table.Find(key, &slot);
    if (found >= 0) {
      prefix = static_cast<u32>(found);
      continue;
    }
    sink.Put(prefix, size);
    table.Enter(slot, key, next);
    if (next == 1u << size) ++size;
    if (++next == kMaxCodes) {
      sink.Put(kClear, size);
      table.Reset();
      next = kFirst;
      size = 9;
    }
    prefix = pixel;
  }
  sink.Put(prefix, size);
  sink.Put(kEnd, size);
  return sink.Finish();
}

// ---- Writing the file ----

struct Writable {
  PixelFormatDescriptor format;
  unsigned pixel_bytes;
  bool bgr;  // bytes B, G, R: the file's table wants them exchanged
};
constexpr Writable kWritable[] = {
    {formats::B8G8R8, 3, false},    {formats::A8B8G8R8, 4, false},   {formats::s_A8B8G8R8, 4, false},
    {formats::R8G8B8, 3, true},     {formats::X8R8G8B8, 4, true},    {formats::s_X8R8G8B8, 4, true},
    {formats::A8R8G8B8, 4, true},   {formats::s_A8R8G8B8, 4, true},
};

// Colour to palette slot while the palette is built: open addressing over
// 2048 slots, enough for the 1001 colours that end the scan.
class ColourSlots {
 public:
  ColourSlots() : keys_(kSlots, 0), values_(kSlots, 0) {}
  // The slot of `colour`, entered as `fresh` when new (then *added is true).
  u32 Find(u32 colour, u32 fresh, bool* added) {
    const u32 key = colour + 1;  // 0 marks an empty slot
    for (u32 h = (key * 2654435761u) >> 21;; h = (h + 1) & (kSlots - 1)) {
      if (keys_[h] == key) return values_[h];
      if (keys_[h] == 0) {
        keys_[h] = key;
        values_[h] = static_cast<u16>(fresh);
        *added = true;
        return fresh;
      }
    }
  }

 private:
  static constexpr u32 kSlots = 2048;
  std::vector<u32> keys_;
  std::vector<u16> values_;
};

constexpr std::size_t kMaxCollected = 1000;

// Fills `indices` and `colours` (bytes 0, 1, 2 of each pixel, in order of
// first appearance); returns an error text, or "" on success.
std::string BuildPalette(const SurfaceData& surface, const Writable& w, u8* indices, std::vector<u32>* colours) {
  ColourSlots slots;
  const u64 width = surface.Width(), pitch = surface.BytesPerRow();
  u32 last_colour = 0, last_slot = 0;
  bool have_last = false;
  for (u64 y = 0; y < surface.Height(); ++y) {
    const auto* row = reinterpret_cast<const u8*>(surface.Buffer()) + y * pitch;
    for (u64 x = 0; x < width; ++x, row += w.pixel_bytes) {
      const u32 colour = u32{row[0]} | u32{row[1]} << 8 | u32{row[2]} << 16;
      if (!have_last || colour != last_colour) {
        bool added = false;
        last_slot = slots.Find(colour, static_cast<u32>(colours->size()), &added);
        if (added) {
          colours->push_back(colour);
          if (colours->size() > kMaxCollected) return "Color palette overflow  > 1000";
        }
        last_colour = colour;
        have_last = true;
      }
      *indices++ = static_cast<u8>(last_slot);
    }
  }
  if (colours->size() > 256) return "Color palette overflow " + std::to_string(colours->size());
  return "";
}

// Whether every pixel row lies inside the surface's buffer.
bool RowsFit(const SurfaceData& surface, u64 pixel_bytes) {
  const u64 width = surface.Width(), height = surface.Height(), pitch = surface.BytesPerRow();
  u64 row = 0, extent = 0;
  if (surface.Buffer() == nullptr || checked::MulOverflows(width, pixel_bytes, &row) || row > pitch) return false;
  return height == 0 || (!checked::MulAddOverflows(height - 1, pitch, row, &extent) && extent <= surface.Size());
}

// The body of Encode; an error text in *error when the surface cannot be written.
std::shared_ptr<char> WriteFile(const SurfaceData& surface, const Writable& w, std::size_t* size, std::string* error) {
  const u64 width = surface.Width(), height = surface.Height(), pixels = width * height;
  if (width > 0xFFFF || height > 0xFFFF) {
    *error = "Image larger than 65535 pixels on a side";
    return nullptr;
  }
  if (pixels == 0) {
    *error = "Empty image";
    return nullptr;
  }
  std::unique_ptr<u8[]> indices(new u8[pixels]);
  std::vector<u32> colours;
  *error = BuildPalette(surface, w, indices.get(), &colours);
  if (!error->empty()) return nullptr;
  u8 table[768] = {};
  for (std::size_t i = 0; i < colours.size(); ++i) {
    const u32 c = colours[i];
    const u8 rgb[3] = {static_cast<u8>(c), static_cast<u8>(c >> 8), static_cast<u8>(c >> 16)};
    table[3 * i] = rgb[w.bgr ? 2 : 0];
    table[3 * i + 1] = rgb[1];
    table[3 * i + 2] = rgb[w.bgr ? 0 : 2];
  }

  // At most one code of 12 bits per pixel, one clear code per 3838 pixels, and three more.
  std::unique_ptr<u8[]> codes(new u8[(pixels + pixels / 3838 + 3) * 12 / 8 + 2]);
  const std::size_t code_bytes = EncodeLzw(indices.get(), pixels, codes.get());
  indices.reset();

  const u64 file_size = 6 + 7 + 768 + 8 + 10 + 768 + 1 + code_bytes + (code_bytes + 254) / 255 + 1 + 1;
  std::shared_ptr<char> file = detail::NewFileBuffer(file_size);
  detail::ByteWriter out(file.get(), static_cast<std::size_t>(file_size));
  out.Bytes("GIF89a", 6);
  out.U16LE(static_cast<u16>(width));
  out.U16LE(static_cast<u16>(height));
  out.Bytes("\xF7\x00\x00", 3);
  out.Bytes(table, sizeof table);
  out.Bytes("\x21\xF9\x04\x00\x05\x00\x00\x00", 8);
  out.U8(0x2C);
  out.U32LE(0);
  out.U16LE(static_cast<u16>(width));
  out.U16LE(static_cast<u16>(height));
  out.U8(0x87);
  out.Bytes(table, sizeof table);
  out.U8(8);
  for (std::size_t at = 0; at < code_bytes; at += 255) {
    const std::size_t n = std::min<std::size_t>(255, code_bytes - at);
    out.U8(static_cast<u8>(n));
    out.Bytes(codes.get() + at, n);
  }
  out.Bytes("\x00\x3B", 2);
  if (!out.Ok() || out.Position() != file_size) {
    *error = "Internal size mismatch";
    return nullptr;
  }
  *size = static_cast<std::size_t>(file_size);
  return file;
}

std::shared_ptr<char> Encode(const SurfaceData& surface, std::size_t* size, int) {
  const PixelFormatDescriptor format = surface.Format();
  const Writable* w = nullptr;
  for (const Writable& candidate : kWritable) {
    if (candidate.format == format) w = &candidate;
  }
  if (w == nullptr || !RowsFit(surface, w->pixel_bytes)) {
    lumo::log::LogError(LogChannel, "Can not convert format %s to gif", ToString(format).c_str());
    return nullptr;
  }
  std::string error;
  std::shared_ptr<char> file;
  try {
    file = WriteFile(surface, *w, size, &error);
  } catch (const std::exception& e) {
    error = e.what();
  }
  if (!file) {
    lumo::log::LogError(LogChannel, "Can not convert format %s to gif. ERROR: %s", ToString(format).c_str(),
                        error.c_str());
  }
  return file;
}

// Decoding raises its messages; writing logs its own.
constexpr detail::PictureFormat kGIFFile{
    ImageFormat::GIF,
    "GIF",
    {"Can not load gif image. ERROE: %s", "Can not load gif image. ERROE: unknown failure", false},
    CheckFile,
    Decode,
    Encode,
};

class ImageGIFPlugin final : public detail::PicturePlugin {
 public:
  ImageGIFPlugin() : PicturePlugin(kGIFFile) {}
};

}  // namespace

ImagePlugin* detail::GIFPlugin() {
  static ImageGIFPlugin plugin;
  return &plugin;
}

}  // namespace lumo::image
