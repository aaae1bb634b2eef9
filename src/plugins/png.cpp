#include "plugins/png.h"

#include <png.h>

#include <algorithm>
#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <utility>

#include "format/checked_size.h"
#include "lumo/image/export.h"
#include "lumo/image/formats.h"
#include "lumo/image/surface_data.h"
#include "lumo/log/log.h"
#include "plugins/decode_limit.h"
#include "plugins/entry_guard.h"
#include "plugins/picture_plugin.h"
#include "plugins/plugin_images.h"

namespace lumo::image {
namespace {

using u32 = std::uint32_t;
using u64 = unsigned long long;

// libpng compares only major.minor of this text with its own.
constexpr char kLibpngVersion[] = "1.6.37";
constexpr std::size_t kSignatureBytes = 8;
constexpr std::size_t kChunkHeaderBytes = 8;  // length and type
constexpr std::size_t kCrcBytes = 4;
constexpr double kScreenGamma = 2.2;
constexpr std::size_t kWriteGrowth = 8192;

// libpng's own limits on reading. The decode limit is checked before these
// can apply (see OnRead). Of the ancillary chunks only tRNS and gAMA are
// parsed; the others are only checked against their CRC, so no chunk is
// decompressed or kept and the cache of kept chunks stays empty. An ancillary
// chunk above 8 MiB is skipped with a warning, as Debian's libpng does by
// default.
constexpr png_alloc_size_t kMaxChunkBytes = png_alloc_size_t{8} << 20;
constexpr png_uint_32 kMaxCachedChunks = 16;

// ---- libpng's handlers ----
//
// libpng must never be returned to after an error, and no C++ exception may
// unwind through its C frames. Every call into libpng therefore runs inside
// Protected (below), and the error handler logs and jumps back to Protected's
// setjmp. The frames that the jump discards (libpng's, the handlers', and the
// steps passed to Protected) hold no objects with destructors, and the
// handlers let no exception out: a throwing log sink is ignored there.

void LogPngError(const char* message) noexcept {
  try {
    lumo::log::LogError(LogChannel, "PNG Error: %s", message != nullptr ? message : "");
  } catch (...) {
  }
}

[[noreturn]] void OnError(png_structp png, png_const_charp message) {
  LogPngError(message);
  png_longjmp(png, 1);
}

void OnWarning(png_structp, png_const_charp message) {
  try {
    lumo::log::Log(LogChannel, 0, "PNG Warning: %s", message != nullptr ? message : "");
  } catch (...) {
  }
}

// Runs `step`, a sequence of libpng calls, with libpng's jump buffer set.
// False when libpng raised an error (its log line is written).
template <typename Step>
bool Protected(png_structp png, Step&& step) {
  if (setjmp(png_jmpbuf(png)) != 0) return false;
  step();
  return true;
}

u32 BigEndian32(const unsigned char* p) { return u32{p[0]} << 24 | u32{p[1]} << 16 | u32{p[2]} << 8 | u32{p[3]}; }

bool ChunkType(const unsigned char* header, const char (&type)[5]) { return std::memcmp(header + 4, type, 4) == 0; }

// ---- Reading ----

// The caller's bytes after the signature, as libpng asks for them.
struct ReadState {
  const unsigned char* next;
  std::size_t left;
  // Bytes of the current chunk that libpng has still to read (data and CRC);
  // 0 when its next read is a chunk header.
  u64 chunk_rest;
};

bool Take(ReadState* s, unsigned char* out, std::size_t n) {
  if (n > s->left) return false;
  std::memcpy(out, s->next, n);
  s->next += n;
  s->left -= n;
  return true;
}

bool WithinLimitQuietly(u64 width, u64 height) noexcept {
  try {
    return detail::WithinDecodeLimit("PNG", width, height);
  } catch (...) {
    return false;
  }
}

// libpng reads a file strictly in order: each chunk as an 8-byte header, then
// its data and CRC. The callback follows the chunk boundaries, so that only a
// real chunk header is taken for one:
// - an iTXt chunk is hidden from libpng (one per read: the header after it
//   goes to libpng whatever its type);
// - the size in an IHDR chunk is checked against the decode limit before
//   libpng even parses it, so a refused picture gets the limit's log line and
//   nothing is allocated for it.
void OnRead(png_structp png, png_bytep out, png_size_t n) {
  auto* s = static_cast<ReadState*>(png_get_io_ptr(png));
  const bool header = s->chunk_rest == 0 && n == kChunkHeaderBytes;
  if (!Take(s, out, n)) png_error(png, "Read error: invalid or corrupted PNG file");
  if (!header) {
    s->chunk_rest -= std::min<u64>(s->chunk_rest, n);
    return;
  }
  if (ChunkType(out, "iTXt")) {
    const u64 skip = u64{BigEndian32(out)} + kCrcBytes;
    if (skip > s->left) png_error(png, "Read error: invalid iTXt chunk.");
    s->next += skip;
    s->left -= static_cast<std::size_t>(skip);
    if (!Take(s, out, kChunkHeaderBytes)) png_error(png, "Read error: invalid or corrupted PNG file");
  }
  const u32 length = BigEndian32(out);
  s->chunk_rest = u64{length} + kCrcBytes;
  if (ChunkType(out, "IHDR") && length == 13 && s->left >= 8 &&
      !WithinLimitQuietly(BigEndian32(s->next), BigEndian32(s->next + 4))) {
    png_longjmp(png, 1);  // logged already
  }
}

// Owns the libpng structures of one read.
class ReadSession {
 public:
  ReadSession() {
    png_ = png_create_read_struct(kLibpngVersion, nullptr, OnError, OnWarning);
    if (png_ != nullptr) info_ = png_create_info_struct(png_);
  }
  ~ReadSession() {
    if (png_ != nullptr) png_destroy_read_struct(&png_, &info_, nullptr);
  }
  ReadSession(const ReadSession&) = delete;
  ReadSession& operator=(const ReadSession&) = delete;

  bool Ok() const { return png_ != nullptr && info_ != nullptr; }
  png_structp png() const { return png_; }
  png_infop info() const { return info_; }

 private:
  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
};

void SetReadLimits(png_structp png) {
  const u64 side = std::min<u64>(MaxDecodePixels(), PNG_UINT_31_MAX);
  png_set_user_limits(png, static_cast<png_uint_32>(side), static_cast<png_uint_32>(side));
  png_set_chunk_malloc_max(png, kMaxChunkBytes);
  png_set_chunk_cache_max(png, kMaxCachedChunks);
  png_set_keep_unknown_chunks(png, PNG_HANDLE_CHUNK_NEVER, nullptr, -1);  // all but IHDR PLTE tRNS IDAT IEND
  static const png_byte kGamma[] = "gAMA";
  png_set_keep_unknown_chunks(png, PNG_HANDLE_CHUNK_AS_DEFAULT, kGamma, 1);
}

bool OneOf(PixelFormatDescriptor format, std::initializer_list<PixelFormatDescriptor> list) {
  return std::find(list.begin(), list.end(), format) != list.end();
}

// Exchanges the first and third samples of every pixel: PNG's R, G, B (, A)
// become the formats' B, G, R (, A). What png_set_bgr does, but libpng's loop
// goes byte by byte and costs a few percent of a decode; four-channel pixels
// are done here as whole words, which the compiler vectorises.
template <typename Word>
void SwapRedBlueWords(png_bytep row, std::size_t width) {
  constexpr int kSample = sizeof(Word) * 2;  // bits per sample
  constexpr Word kOne = (Word{1} << kSample) - 1;
  constexpr Word kKeep = ~(kOne | kOne << (2 * kSample));
  for (std::size_t x = 0; x < width; ++x) {
    Word v;
    std::memcpy(&v, row + x * sizeof(Word), sizeof(Word));
    v = (v & kKeep) | ((v >> (2 * kSample)) & kOne) | ((v & kOne) << (2 * kSample));
    std::memcpy(row + x * sizeof(Word), &v, sizeof(Word));
  }
}

// libpng's user transform, run on each row (of each pass) after its own.
void OnRowTransform(png_structp, png_row_infop info, png_bytep row) {
  const std::size_t width = info->width;
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  if (info->channels == 4) {
    info->bit_depth == 8 ? SwapRedBlueWords<std::uint32_t>(row, width) : SwapRedBlueWords<std::uint64_t>(row, width);
    return;
  }
#endif
  const std::size_t sample = info->bit_depth / 8, pixel = info->channels * sample;
  for (std::size_t x = 0; x < width; ++x) {
    for (std::size_t b = 0; b < sample; ++b) std::swap(row[x * pixel + b], row[x * pixel + 2 * sample + b]);
  }
}

// The decoded format of a colour type and depth, with the transforms that
// make libpng deliver it; no format for a combination outside the table.
PixelFormatDescriptor SetTransforms(png_structp png, png_infop info) {
  const int color = png_get_color_type(png, info);
  const int depth = png_get_bit_depth(png, info);
  const bool trns = png_get_valid(png, info, PNG_INFO_tRNS) != 0;
  PixelFormatDescriptor format{};
  switch (color) {
    case PNG_COLOR_TYPE_GRAY:
      if (depth < 8) {
        if (trns) {
          png_set_expand_gray_1_2_4_to_8(png);
          png_set_tRNS_to_alpha(png);
          format = formats::A8L8;
        } else {
          png_set_packswap(png);  // first pixel in the low bits
          format = depth == 1 ? formats::A1 : depth == 2 ? formats::A2 : formats::A4;
        }
      } else if (depth == 8) {
        if (trns) png_set_tRNS_to_alpha(png);
        format = trns ? formats::A8L8 : formats::A8;
      } else if (depth == 16) {
        if (trns) {
          png_set_tRNS_to_alpha(png);
          png_set_gray_to_rgb(png);
        }
        format = trns ? formats::A16R16G16B16 : formats::R16;
      }
      break;
    case PNG_COLOR_TYPE_RGB:
      if (depth == 8 || depth == 16) {
        if (trns) png_set_tRNS_to_alpha(png);
        format = depth == 8 ? (trns ? formats::A8R8G8B8 : formats::R8G8B8)
                            : (trns ? formats::A16R16G16B16 : formats::R16G16B16);
      }
      break;
    case PNG_COLOR_TYPE_PALETTE:
      if (depth < 8) png_set_packing(png);
      png_set_palette_to_rgb(png);  // tRNS becomes alpha
      format = trns ? formats::A8R8G8B8 : formats::R8G8B8;
      break;
    case PNG_COLOR_TYPE_GRAY_ALPHA:
      if (depth == 16) png_set_gray_to_rgb(png);
      format = depth == 8 ? formats::A8L8 : depth == 16 ? formats::A16R16G16B16 : format;
      break;
    case PNG_COLOR_TYPE_RGB_ALPHA:
      format = depth == 8 ? formats::A8R8G8B8 : depth == 16 ? formats::A16R16G16B16 : format;
      break;
    default:
      break;
  }
  if (format == PixelFormatDescriptor{}) return format;
  if (depth == 16) png_set_swap(png);
  if (OneOf(format, {formats::A8R8G8B8, formats::R8G8B8, formats::A16R16G16B16, formats::R16G16B16})) {
    png_set_read_user_transform_fn(png, OnRowTransform);  // png_set_bgr, faster
  }
  double file_gamma = 0;
  if (png_get_valid(png, info, PNG_INFO_gAMA) != 0 && png_get_gAMA(png, info, &file_gamma) != 0) {
    png_set_gamma(png, kScreenGamma, file_gamma);
  }
  return format;
}

class ImagePNG final : public detail::DecodedImage {
 public:
  explicit ImagePNG(std::shared_ptr<SurfaceData> data) : DecodedImage(ImageFormat::PNG, std::move(data)) {}
};

bool CheckFile(const char* data, size_t size) {
  return data != nullptr && size >= kSignatureBytes &&
         png_sig_cmp(reinterpret_cast<png_const_bytep>(data), 0, kSignatureBytes) == 0;
}

std::shared_ptr<Image> Decode(const char* data, std::size_t size) {
  if (!CheckFile(data, size)) return Image::Null;
  ReadSession session;
  if (!session.Ok()) return Image::Null;
  png_structp png = session.png();
  png_infop info = session.info();
  ReadState state{reinterpret_cast<const unsigned char*>(data) + kSignatureBytes, size - kSignatureBytes, 0};

  PixelFormatDescriptor format{};
  png_uint_32 width = 0, height = 0;
  png_size_t row_bytes = 0;
  int passes = 1;
  if (!Protected(png, [&] {
        png_set_read_fn(png, &state, OnRead);
        SetReadLimits(png);
        png_set_sig_bytes(png, static_cast<int>(kSignatureBytes));
        png_read_info(png, info);  // the IHDR size passed the decode limit in OnRead
        format = SetTransforms(png, info);
        if (format == PixelFormatDescriptor{}) png_error(png, "Unsupport PNG format.");
        passes = png_set_interlace_handling(png);  // png_read_row then fills whole rows in every pass
        png_read_update_info(png, info);
        width = png_get_image_width(png, info);
        height = png_get_image_height(png, info);
        row_bytes = png_get_rowbytes(png, info);
      })) {
    return Image::Null;
  }

  // libpng writes row_bytes into each surface row; the surface must hold them.
  const std::shared_ptr<SurfaceDataBitmap> surface = SurfaceDataBitmap::Create(width, height, format, 2);
  if (!surface) return Image::Null;
  if (BytesPerRow(format, width, 0) != row_bytes || surface->BytesPerRow() < row_bytes) {
    LogPngError("Unsupport PNG format.");
    return Image::Null;
  }
  char* const pixels = surface->Buffer();
  const u64 pitch = surface->BytesPerRow();
  // libpng leaves alone the bits of a row's last byte past its last pixel, and
  // the padding after it: cleared here, so no stale memory shows.
  const u64 clear_from = row_bytes - (BitsPerPixel(format, nullptr) * width % 8 != 0 ? 1 : 0);
  if (pitch > clear_from) {
    for (png_uint_32 y = 0; y < height; ++y) std::memset(pixels + y * pitch + clear_from, 0, pitch - clear_from);
  }
  if (!Protected(png, [&] {
        png_set_benign_errors(png, 1);
        // What png_read_image does, without its table of row pointers:
        // every pass of an interlaced file visits every row.
        for (int pass = 0; pass < passes; ++pass) {
          for (png_uint_32 y = 0; y < height; ++y)
            png_read_row(png, reinterpret_cast<png_bytep>(pixels + y * pitch), nullptr);
        }
        png_read_end(png, nullptr);
      })) {
    return Image::Null;
  }
  return std::make_shared<ImagePNG>(surface);
}

// ---- Writing ----

// What a surface is written as.
struct Target {
  PixelFormatDescriptor format;  // the surface's format that this writes unchanged
  int color;
  int depth;
  bool bgr;  // libpng's RGB order is the reverse of the format's byte order
};
constexpr Target kRGBA8{formats::A8R8G8B8, PNG_COLOR_TYPE_RGB_ALPHA, 8, true};
constexpr Target kRGBA16{formats::A16R16G16B16, PNG_COLOR_TYPE_RGB_ALPHA, 16, true};
constexpr Target kRGB8{formats::R8G8B8, PNG_COLOR_TYPE_RGB, 8, true};
constexpr Target kRGB16{formats::R16G16B16, PNG_COLOR_TYPE_RGB, 16, true};
constexpr Target kGreyAlpha8{formats::A8L8, PNG_COLOR_TYPE_GRAY_ALPHA, 8, false};
constexpr Target kGrey8{formats::A8, PNG_COLOR_TYPE_GRAY, 8, false};
constexpr Target kGrey16{formats::A16, PNG_COLOR_TYPE_GRAY, 16, false};

// The target of a format (sRGB already dropped) by its channel count and
// largest component. Grey and grey-and-alpha pixels of the right size are
// written as they are, whatever their components are called; the rest is
// converted to the target's format. false: nothing to write.
bool ChooseTarget(PixelFormatDescriptor format, Target* target) {
  PixelFormatMeta meta{};
  if (!ParseFormat(format, &meta) || meta.compressed) return false;
  u64 largest = 0;
  for (const ComponentMeta& c : meta.components) {
    if (c.component != PixelComponent::None) largest = std::max(largest, c.bits);
  }
  if (largest == 0) return false;
  const u64 bits = BitsPerPixel(meta, nullptr);
  auto as_is = [&](Target t) {
    t.format = format;
    return t;
  };
  switch (ChannelCount(meta)) {
    case 4:
      *target = largest <= 8 ? kRGBA8 : kRGBA16;
      return true;
    case 3:
      *target = largest <= 8 ? kRGB8 : kRGB16;
      return true;
    case 2:
      *target = largest == 8 && bits == 16 ? as_is(kGreyAlpha8) : kGreyAlpha8;
      return true;
    case 1:
      if (largest == 8 && bits == 8) {
        *target = as_is(kGrey8);
      } else if (largest == 16 && bits == 16) {
        *target = as_is(kGrey16);
      } else {
        *target = largest < 8 ? kGrey8 : kGrey16;
      }
      return true;
    default:
      return false;
  }
}

// The caller's surface under another format label (its sRGB flag dropped),
// for the converters: the pixels are not touched.
class Relabelled final : public SurfaceDataNakedMemory {
 public:
  Relabelled(const SurfaceData& surface, PixelFormatDescriptor format)
      : SurfaceDataNakedMemory(format, surface.Width(), surface.Height(), surface.BytesPerRow()) {
    SetBuffer(const_cast<char*>(surface.Buffer()));
  }
};

struct Freer {
  void operator()(char* p) const { std::free(p); }
};

// The output: a malloc'd buffer that grows as libpng hands over bytes.
struct WriteState {
  char* data = nullptr;
  std::size_t capacity = 0;
  std::size_t used = 0;
};

void OnWrite(png_structp png, png_bytep bytes, png_size_t n) {
  auto* s = static_cast<WriteState*>(png_get_io_ptr(png));
  if (n > s->capacity - s->used) {
    const std::size_t shortfall = n - (s->capacity - s->used);
    std::size_t grown = 0;
    if (checked::AddOverflows(shortfall, kWriteGrowth - 1, &grown) ||
        checked::AddOverflows(s->capacity, grown / kWriteGrowth * kWriteGrowth, &grown)) {
      png_error(png, "Write error: memory reallocate failed!");
    }
    void* bigger = std::realloc(s->data, grown);
    if (bigger == nullptr) png_error(png, "Write error: memory reallocate failed!");
    s->data = static_cast<char*>(bigger);
    s->capacity = grown;
  }
  std::memcpy(s->data + s->used, bytes, n);
  s->used += n;
}

void OnFlush(png_structp) {}

// Owns the libpng structures and the output buffer of one write.
class WriteSession {
 public:
  WriteSession() {
    png_ = png_create_write_struct(kLibpngVersion, nullptr, OnError, OnWarning);
    if (png_ != nullptr) info_ = png_create_info_struct(png_);
  }
  ~WriteSession() {
    if (png_ != nullptr) png_destroy_write_struct(&png_, &info_);
    std::free(state.data);
  }
  WriteSession(const WriteSession&) = delete;
  WriteSession& operator=(const WriteSession&) = delete;

  bool Ok() const { return png_ != nullptr && info_ != nullptr; }
  png_structp png() const { return png_; }
  png_infop info() const { return info_; }

  // The output, shrunk to the bytes written; the session no longer owns it.
  std::shared_ptr<char> Release(size_t* size) {
    if (state.capacity > state.used) {
      if (void* exact = std::realloc(state.data, state.used)) state.data = static_cast<char*>(exact);
    }
    *size = state.used;
    std::shared_ptr<char> file(state.data, Freer());
    state = WriteState{};
    return file;
  }

  WriteState state;

 private:
  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
};

// Low four bits 1 to 9: that level; else ISF_PNG_Z_NO_COMPRESSION: level 0;
// else libpng's default (-1).
int CompressionLevel(int flags) {
  const int low = flags & 0xF;
  if (low >= 1 && low <= 9) return low;
  return (flags & ISF_PNG_Z_NO_COMPRESSION) != 0 ? 0 : -1;
}

std::shared_ptr<char> Encode(const SurfaceData& surface, size_t* size, int flags) {
  const PixelFormatDescriptor format = SetSRGB(surface.Format(), false);
  Target target{};
  if (!ChooseTarget(format, &target)) return nullptr;

  std::shared_ptr<SurfaceData> converted;
  const SurfaceData* source = &surface;
  if (target.format != format) {
    converted = format == surface.Format() ? surface.ConvertCopy(target.format)
                                           : Relabelled(surface, format).ConvertCopy(target.format);
    if (!converted) return nullptr;
    source = converted.get();
  }

  // The rows libpng takes must lie inside the surface.
  const u64 width = source->Width(), height = source->Height(), pitch = source->BytesPerRow();
  const u64 row_bytes = BytesPerRow(target.format, width, 0);
  u64 last_row = 0;
  if (source->Buffer() == nullptr || row_bytes == 0 || pitch < row_bytes ||
      (height != 0 &&
       (checked::MulAddOverflows(height - 1, pitch, row_bytes, &last_row) || last_row > source->Size()))) {
    return nullptr;
  }

  // Room for the pixels uncompressed: most files need no growth.
  std::size_t capacity = 0;
  if (checked::MulAddOverflows(height, pitch, 8, &capacity)) capacity = static_cast<std::size_t>(-1);
  WriteSession session;
  session.state.data = static_cast<char*>(std::malloc(capacity));
  if (session.state.data == nullptr) {
    lumo::log::LogError(LogChannel, "Failed alloc size %llu for writing png!", static_cast<u64>(capacity));
    return nullptr;
  }
  session.state.capacity = capacity;
  if (!session.Ok()) return nullptr;

  png_structp png = session.png();
  png_infop info = session.info();
  const char* const rows = source->Buffer();
  const bool interlaced = (flags & ISF_PNG_INTERLACED) != 0;
  const int level = CompressionLevel(flags);
  // Sizes libpng cannot take are passed so that it refuses them with its own message.
  const png_uint_32 png_width = static_cast<png_uint_32>(std::min<u64>(width, 0xFFFFFFFFu));
  const png_uint_32 png_height = static_cast<png_uint_32>(std::min<u64>(height, 0xFFFFFFFFu));
  if (!Protected(png, [&] {
        png_set_write_fn(png, &session.state, OnWrite, OnFlush);
        // Any picture a surface can hold is written; reading applies the limits.
        png_set_user_limits(png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
        if (level >= 0) png_set_compression_level(png, level);
        if (target.depth > 8) {
          png_set_compression_strategy(png, 1);  // Z_FILTERED
          png_set_filter(png, 0, PNG_FILTER_NONE | PNG_FILTER_SUB | PNG_FILTER_PAETH);
        } else {
          png_set_compression_strategy(png, 0);  // Z_DEFAULT_STRATEGY
        }
        png_set_IHDR(png, info, png_width, png_height, target.depth, target.color,
                     interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                     PNG_FILTER_TYPE_DEFAULT);
        png_write_info(png, info);
        if (target.bgr) png_set_bgr(png);
        if (target.depth == 16) png_set_swap(png);
        const int passes = interlaced ? png_set_interlace_handling(png) : 1;
        for (int pass = 0; pass < passes; ++pass) {
          for (u64 y = 0; y < height; ++y) png_write_row(png, reinterpret_cast<png_const_bytep>(rows + y * pitch));
        }
        png_write_end(png, nullptr);
      })) {
    return nullptr;
  }
  return session.Release(size);
}

// Failures outside libpng (allocations of C++ objects) are refused like bad
// files: a picture too large for memory is one of them.
constexpr detail::PictureFormat kPNGFile{
    ImageFormat::PNG, "PNG", {"PNG Error: %s", "PNG Error: unexpected failure", false}, CheckFile, Decode, Encode,
};

class ImagePNGPlugin final : public detail::PicturePlugin {
 public:
  ImagePNGPlugin() : PicturePlugin(kPNGFile) {}
};

}  // namespace

ImagePlugin* detail::PNGPlugin() {
  static ImagePNGPlugin plugin;
  return &plugin;
}

}  // namespace lumo::image
