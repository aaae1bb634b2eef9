#include "plugins/jpeg.h"

#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>

// jpeglib.h needs FILE and size_t declared first.
#include <jerror.h>
#include <jpeglib.h>

#include "format/checked_size.h"
#include "lumo/image/export.h"
#include "lumo/image/formats.h"
#include "lumo/image/surface_data.h"
#include "lumo/log/log.h"
#include "plugins/byte_reader.h"
#include "plugins/decode_limit.h"
#include "plugins/entry_guard.h"
#include "plugins/picture_plugin.h"
#include "plugins/plugin_images.h"

namespace lumo::image {
namespace {

using u64 = unsigned long long;

// Rows handed to libjpeg per call: enough for any row group it decodes at once.
constexpr JDIMENSION kBatchRows = 16;
// Recovered corruption is tolerated up to this many warnings; beyond that the
// data is garbage, and each warning costs time, so the file is refused.
constexpr int kMaxWarnings = 100;
// A progressive file can hold thousands of tiny scans that each rework the
// whole picture; real encoders write about ten.
constexpr int kMaxScans = 500;
// libjpeg's whole-picture buffers (multi-scan files) may not exceed this: a
// few bytes of progressive data can declare a picture that needs gigabytes of
// coefficients. Covers progressive 4:4:4 pictures of about 85 megapixels.
constexpr long kMaxLibraryMemory = 512L << 20;

// ---- libjpeg's failures leave through longjmp ----
// libjpeg is C, so no exception may cross its frames. Its error exit jumps
// back to Protected(), whose frame holds nothing but the setjmp; the job
// objects that own libjpeg's state and the pixels live in the callers' frames,
// which the jump never crosses. The callbacks only store text: logging (which
// allocates) happens after libjpeg has returned.
struct ErrorManager {
  jpeg_error_mgr pub;
  std::jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
  char first_warning[JMSG_LENGTH_MAX];
  int warnings;
};

ErrorManager* Errors(j_common_ptr cinfo) { return reinterpret_cast<ErrorManager*>(cinfo->err); }

[[noreturn]] void Abort(j_common_ptr cinfo, const char* text) {
  ErrorManager* err = Errors(cinfo);
  std::snprintf(err->message, sizeof err->message, "%s", text);
  std::longjmp(err->jump, 1);
}

[[noreturn]] void OnError(j_common_ptr cinfo) {
  ErrorManager* err = Errors(cinfo);
  (*cinfo->err->format_message)(cinfo, err->message);
  std::longjmp(err->jump, 1);
}

void OnMessage(j_common_ptr cinfo, int level) {
  if (level >= 0) return;  // trace output
  ErrorManager* err = Errors(cinfo);
  ++err->pub.num_warnings;
  if (err->warnings++ == 0) (*cinfo->err->format_message)(cinfo, err->first_warning);
  if (err->warnings > kMaxWarnings) Abort(cinfo, "too many warnings, the data is corrupt");
}

void OnProgress(j_common_ptr cinfo) {
  if (cinfo->is_decompressor && reinterpret_cast<j_decompress_ptr>(cinfo)->input_scan_number > kMaxScans) {
    Abort(cinfo, "too many scans");
  }
}

jpeg_error_mgr* InitErrors(ErrorManager* err) {
  jpeg_std_error(&err->pub);
  err->pub.error_exit = OnError;
  err->pub.emit_message = OnMessage;
  err->message[0] = err->first_warning[0] = '\0';
  err->warnings = 0;
  return &err->pub;
}

// step(job) under libjpeg's error exit: false when it jumped out.
template <typename Job>
bool Protected(Job* job, void (*step)(Job*)) {
  if (setjmp(job->err.jump) != 0) return false;
  step(job);
  return true;
}

// ---- Reading ----

class ImageJPG final : public detail::DecodedImage {
 public:
  explicit ImageJPG(std::shared_ptr<SurfaceData> data) : DecodedImage(ImageFormat::JPG, std::move(data)) {}
};

struct Decoder {
  jpeg_decompress_struct cinfo;
  ErrorManager err;
  jpeg_progress_mgr progress;
  bool created = false;
  const unsigned char* data = nullptr;
  unsigned long size = 0;
  char* pixels = nullptr;  // row 0 of the surface
  u64 pitch = 0;

  Decoder() {
    std::memset(&cinfo, 0, sizeof cinfo);
    std::memset(&progress, 0, sizeof progress);
    cinfo.err = InitErrors(&err);
  }
  ~Decoder() {
    if (created) jpeg_destroy_decompress(&cinfo);
  }
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;
};

void ReadHeaderStep(Decoder* d) {
  d->created = true;
  jpeg_create_decompress(&d->cinfo);
  d->cinfo.mem->max_memory_to_use = kMaxLibraryMemory;
  d->progress.progress_monitor = OnProgress;
  d->cinfo.progress = &d->progress;
  jpeg_mem_src(&d->cinfo, d->data, d->size);
  jpeg_read_header(&d->cinfo, TRUE);
  jpeg_calc_output_dimensions(&d->cinfo);
}

// Multi-scan files are read whole here, into libjpeg's bounded buffers.
void StartStep(Decoder* d) { jpeg_start_decompress(&d->cinfo); }

// Grey and CMYK rows to R, G, B.
void ExpandRow(const JSAMPLE* in, unsigned char* out, JDIMENSION width, J_COLOR_SPACE space) {
  if (space == JCS_GRAYSCALE) {
    for (JDIMENSION x = 0; x < width; ++x, out += 3) out[0] = out[1] = out[2] = in[x];
    return;
  }
  for (JDIMENSION x = 0; x < width; ++x, in += 4, out += 3) {
    const unsigned k = in[3];
    out[0] = static_cast<unsigned char>(k * in[0] / 255);
    out[1] = static_cast<unsigned char>(k * in[1] / 255);
    out[2] = static_cast<unsigned char>(k * in[2] / 255);
  }
}

void ReadPixelsStep(Decoder* d) {
  j_decompress_ptr c = &d->cinfo;
  const JDIMENSION width = c->output_width, height = c->output_height;
  if (c->output_components == 3) {
    // RGB goes straight into the surface rows.
    JSAMPROW rows[kBatchRows];
    while (c->output_scanline < height) {
      const JDIMENSION first = c->output_scanline;
      const JDIMENSION n = height - first < kBatchRows ? height - first : kBatchRows;
      for (JDIMENSION i = 0; i < n; ++i) rows[i] = reinterpret_cast<JSAMPROW>(d->pixels + (first + i) * d->pitch);
      if (jpeg_read_scanlines(c, rows, n) == 0) Abort(reinterpret_cast<j_common_ptr>(c), "no scanline decoded");
    }
  } else {
    JSAMPARRAY scratch = (*c->mem->alloc_sarray)(reinterpret_cast<j_common_ptr>(c), JPOOL_IMAGE,
                                                 width * static_cast<JDIMENSION>(c->output_components), kBatchRows);
    while (c->output_scanline < height) {
      const JDIMENSION first = c->output_scanline;
      const JDIMENSION n = height - first < kBatchRows ? height - first : kBatchRows;
      const JDIMENSION got = jpeg_read_scanlines(c, scratch, n);
      if (got == 0) Abort(reinterpret_cast<j_common_ptr>(c), "no scanline decoded");
      for (JDIMENSION i = 0; i < got; ++i) {
        ExpandRow(scratch[i], reinterpret_cast<unsigned char*>(d->pixels + (first + i) * d->pitch), width,
                  c->out_color_space);
      }
    }
  }
  jpeg_finish_decompress(c);
}

std::shared_ptr<Image> Refuse(const Decoder& d) {
  lumo::log::LogError(LogChannel, "JPEG Error: %s", d.err.message);
  return Image::Null;
}

std::shared_ptr<Image> Decode(const char* data, std::size_t size) {
  Decoder d;
  d.data = reinterpret_cast<const unsigned char*>(data);
  d.size = static_cast<unsigned long>(size);
  if (data == nullptr || d.size != size) return Image::Null;
  if (!Protected(&d, ReadHeaderStep)) return Refuse(d);

  // libjpeg's defaults give RGB, grey or CMYK; other layouts (two components,
  // more than four) have no RGB reading.
  const jpeg_decompress_struct& c = d.cinfo;
  const bool supported = c.output_components == 3 || (c.output_components == 1 && c.out_color_space == JCS_GRAYSCALE) ||
                         (c.output_components == 4 && c.out_color_space == JCS_CMYK);
  if (!supported) {
    lumo::log::LogError(LogChannel, "JPEG Error: %d colour components are not supported", c.output_components);
    return Image::Null;
  }
  if (!detail::WithinDecodeLimit("JPEG", c.output_width, c.output_height)) return Image::Null;
  if (!Protected(&d, StartStep)) return Refuse(d);

  std::shared_ptr<SurfaceDataBitmap> surface =
      SurfaceDataBitmap::Create(c.output_width, c.output_height, formats::B8G8R8, 2);
  if (!surface || surface->Buffer() == nullptr) return Image::Null;
  d.pixels = surface->Buffer();
  d.pitch = surface->BytesPerRow();
  // The decoder fills width x 3 bytes of each row; the padding is cleared.
  const u64 row_bytes = u64{c.output_width} * 3;
  if (d.pitch > row_bytes) {
    for (u64 y = 0; y < c.output_height; ++y) std::memset(d.pixels + y * d.pitch + row_bytes, 0, d.pitch - row_bytes);
  }
  if (!Protected(&d, ReadPixelsStep)) return Refuse(d);

  if (d.err.warnings == 1) {
    lumo::log::LogWarning(LogChannel, "JPEG Warning: %s", d.err.first_warning);
  } else if (d.err.warnings > 1) {
    lumo::log::LogWarning(LogChannel, "JPEG Warning: %s (%d warnings in all)", d.err.first_warning, d.err.warnings);
  }
  return std::make_shared<ImageJPG>(std::move(surface));
}

// ---- Writing ----

using RowExpander = void (*)(const unsigned char* in, JSAMPLE* out, JDIMENSION width);

// 16-bit pixels (little-endian) to R, G, B bytes; the 5-bit red and blue
// fields lie at kRed and kBlue. Low bits are left clear, not replicated.
template <int kRed, int kBlue, bool k565>
void Expand16(const unsigned char* in, JSAMPLE* out, JDIMENSION width) {
  for (JDIMENSION x = 0; x < width; ++x, in += 2, out += 3) {
    const unsigned c = in[0] | unsigned{in[1]} << 8;
    out[0] = static_cast<JSAMPLE>(((c >> kRed) & 0x1F) << 3);
    out[1] = static_cast<JSAMPLE>(k565 ? ((c >> 5) & 0x3F) << 2 : ((c >> 5) & 0x1F) << 3);
    out[2] = static_cast<JSAMPLE>(((c >> kBlue) & 0x1F) << 3);
  }
}

// The writable formats. 8-bit layouts go to libjpeg as they are stored, in
// its extended input spaces (the same colour conversion, without a copy).
struct Writable {
  PixelFormatDescriptor format;
  J_COLOR_SPACE space;
  int components;      // bytes per pixel handed to libjpeg
  int pixel_bytes;     // bytes per stored pixel
  RowExpander expand;  // nullptr: stored rows are passed directly
};
const Writable kWritable[] = {
    {formats::A1R5G5B5, JCS_RGB, 3, 2, Expand16<10, 0, false>},
    {formats::A1B5G5R5, JCS_RGB, 3, 2, Expand16<0, 10, false>},
    {formats::R5G6B5, JCS_RGB, 3, 2, Expand16<11, 0, true>},
    {formats::B5G6R5, JCS_RGB, 3, 2, Expand16<0, 11, true>},
    {formats::R8G8B8, JCS_EXT_BGR, 3, 3, nullptr},
    {formats::B8G8R8, JCS_RGB, 3, 3, nullptr},
    {formats::A8R8G8B8, JCS_EXT_BGRX, 4, 4, nullptr},
    {formats::A8B8G8R8, JCS_EXT_RGBX, 4, 4, nullptr},
    {formats::X8R8G8B8, JCS_EXT_BGRX, 4, 4, nullptr},
    {formats::X8B8G8R8, JCS_EXT_RGBX, 4, 4, nullptr},
    {formats::s_X8R8G8B8, JCS_EXT_BGRX, 4, 4, nullptr},
    {formats::s_A8B8G8R8, JCS_EXT_RGBX, 4, 4, nullptr},
    {formats::s_A8R8G8B8, JCS_EXT_BGRX, 4, 4, nullptr},
};

const Writable* FindWritable(PixelFormatDescriptor format) {
  for (const Writable& w : kWritable) {
    if (w.format == format) return &w;
  }
  return nullptr;
}

// Exactly one quality flag selects its setting; anything else is normal.
int Quality(int flags) {
  if (flags == ISF_JPEG_QUALITYSUPERB) return 100;
  if (flags == ISF_JPEG_QUALITYGOOD) return 90;
  if (flags == ISF_JPEG_QUALITYAVERAGE) return 50;
  if (flags == ISF_JPEG_QUALITYBAD) return 25;
  return 75;
}

// A growing malloc buffer: realloc cannot throw inside libjpeg's frames.
struct Destination {
  jpeg_destination_mgr pub;
  unsigned char* data;
  std::size_t capacity;
  std::size_t used;
};

Destination* Dest(j_compress_ptr c) { return reinterpret_cast<Destination*>(c->dest); }

void InitDestination(j_compress_ptr c) {
  Destination* d = Dest(c);
  d->pub.next_output_byte = d->data;
  d->pub.free_in_buffer = d->capacity;
}

boolean GrowDestination(j_compress_ptr c) {
  Destination* d = Dest(c);
  const std::size_t bigger = d->capacity * 2;
  void* grown = bigger > d->capacity ? std::realloc(d->data, bigger) : nullptr;
  if (grown == nullptr) Abort(reinterpret_cast<j_common_ptr>(c), "out of memory for the compressed data");
  d->data = static_cast<unsigned char*>(grown);
  d->pub.next_output_byte = d->data + d->capacity;
  d->pub.free_in_buffer = bigger - d->capacity;
  d->capacity = bigger;
  return TRUE;
}

void TermDestination(j_compress_ptr c) {
  Destination* d = Dest(c);
  d->used = d->capacity - d->pub.free_in_buffer;
}

struct Encoder {
  jpeg_compress_struct cinfo;
  ErrorManager err;
  Destination dest;
  bool created = false;
  const Writable* layout = nullptr;
  const char* pixels = nullptr;
  u64 pitch = 0;
  JDIMENSION width = 0, height = 0;
  int quality = 75;

  Encoder() {
    std::memset(&cinfo, 0, sizeof cinfo);
    std::memset(&dest, 0, sizeof dest);
    cinfo.err = InitErrors(&err);
    dest.pub.init_destination = InitDestination;
    dest.pub.empty_output_buffer = GrowDestination;
    dest.pub.term_destination = TermDestination;
  }
  ~Encoder() {
    if (created) jpeg_destroy_compress(&cinfo);
    std::free(dest.data);
  }
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;
};

JSAMPROW StoredRow(const Encoder* e, JDIMENSION y) {
  return reinterpret_cast<JSAMPROW>(const_cast<char*>(e->pixels + y * e->pitch));
}

void EncodeStep(Encoder* e) {
  j_compress_ptr c = &e->cinfo;
  e->created = true;
  jpeg_create_compress(c);
  c->dest = &e->dest.pub;
  c->image_width = e->width;
  c->image_height = e->height;
  c->input_components = e->layout->components;
  c->in_color_space = e->layout->space;
  jpeg_set_defaults(c);
  jpeg_set_quality(c, e->quality, TRUE);
  jpeg_start_compress(c, TRUE);
  JSAMPROW rows[kBatchRows];
  JSAMPARRAY scratch = nullptr;
  if (e->layout->expand != nullptr) {
    scratch = (*c->mem->alloc_sarray)(reinterpret_cast<j_common_ptr>(c), JPOOL_IMAGE, e->width * 3, kBatchRows);
  }
  while (c->next_scanline < e->height) {
    const JDIMENSION first = c->next_scanline;
    const JDIMENSION n = e->height - first < kBatchRows ? e->height - first : kBatchRows;
    for (JDIMENSION i = 0; i < n; ++i) {
      if (scratch == nullptr) {
        rows[i] = StoredRow(e, first + i);
      } else {
        e->layout->expand(StoredRow(e, first + i), scratch[i], e->width);
        rows[i] = scratch[i];
      }
    }
    // A memory destination never suspends, so every row handed over is taken.
    if (jpeg_write_scanlines(c, rows, n) != n) Abort(reinterpret_cast<j_common_ptr>(c), "rows were not taken");
  }
  jpeg_finish_compress(c);
}

// Whether every pixel row lies inside the surface's buffer.
bool RowsFit(const SurfaceData& surface, u64 pixel_bytes) {
  const u64 width = surface.Width(), height = surface.Height(), pitch = surface.BytesPerRow();
  u64 row = 0, extent = 0;
  if (surface.Buffer() == nullptr || height == 0 || checked::MulOverflows(width, pixel_bytes, &row) || row > pitch) {
    return false;
  }
  return !checked::MulAddOverflows(height - 1, pitch, row, &extent) && extent <= surface.Size();
}

constexpr std::size_t kFirstOutputBytes = 64 << 10;

std::shared_ptr<char> Encode(const SurfaceData& surface, std::size_t* size, int flags) {
  const PixelFormatDescriptor format = surface.Format();
  auto refuse = [&] {
    lumo::log::LogError(LogChannel, "Can not convert format %s to jpg", ToString(format).c_str());
    return std::shared_ptr<char>();
  };
  Encoder e;
  e.layout = FindWritable(format);
  if (e.layout == nullptr || surface.Width() > JPEG_MAX_DIMENSION || surface.Height() > JPEG_MAX_DIMENSION ||
      !RowsFit(surface, static_cast<u64>(e.layout->pixel_bytes))) {
    return refuse();
  }
  e.pixels = surface.Buffer();
  e.pitch = surface.BytesPerRow();
  e.width = static_cast<JDIMENSION>(surface.Width());
  e.height = static_cast<JDIMENSION>(surface.Height());
  e.quality = Quality(flags);
  e.dest.data = static_cast<unsigned char*>(std::malloc(kFirstOutputBytes));
  if (e.dest.data == nullptr) throw std::bad_alloc();
  e.dest.capacity = kFirstOutputBytes;
  if (!Protected(&e, EncodeStep)) return refuse();

  // The buffer now belongs to the caller, released with free().
  std::shared_ptr<char> file(reinterpret_cast<char*>(e.dest.data), [](char* p) { std::free(p); });
  e.dest.data = nullptr;
  *size = e.dest.used;
  return file;
}

// Everything libjpeg reports is caught at its boundary and logged there; what
// reaches the guard comes from this side (allocation failures pass through).

bool CheckFile(const char* data, size_t size) {
  detail::ByteReader in(data, size);
  std::uint16_t first = 0, last = 0;
  return size >= 4 && in.U16BE(&first) && first == 0xFFD8 && in.Seek(size - 2) && in.U16BE(&last) && last == 0xFFD9;
}

constexpr detail::PictureFormat kJPGFile{
    ImageFormat::JPG, "JPG", {"JPEG Error: %s", "JPEG Error: unexpected failure", true}, CheckFile, Decode, Encode,
};

class ImageJPGPlugin final : public detail::PicturePlugin {
 public:
  ImageJPGPlugin() : PicturePlugin(kJPGFile) {}
};

}  // namespace

ImagePlugin* detail::JPGPlugin() {
  static ImageJPGPlugin plugin;
  return &plugin;
}

}  // namespace lumo::image
