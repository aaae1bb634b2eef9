#include "plugins/hdr.h"

#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "format/checked_size.h"
#include "lumo/image/export.h"
#include "lumo/image/formats.h"
#include "lumo/image/half.h"
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
using u64 = unsigned long long;

constexpr u16 kHalfOne = 0x3C00;
// Longest run and literal packets of a scanline plane.
constexpr std::size_t kMaxRun = 127;
constexpr std::size_t kMaxLiteral = 128;

// ---- Reading ----

class ImageHDR final : public detail::DecodedImage {
 public:
  explicit ImageHDR(std::shared_ptr<SurfaceData> data) : DecodedImage(ImageFormat::HDR, std::move(data)) {}
};

[[noreturn]] void Fail(const char* message) { throw detail::DecodeError(message); }

// The bytes up to the next newline, which is consumed; false (nothing
// consumed) when no newline follows. Unlike ByteReader::Line a '\r' stays:
// header lines are compared whole.
bool NextLine(detail::ByteReader* in, std::string_view* line) {
  const std::size_t left = in->Remaining();
  const void* newline = left == 0 ? nullptr : std::memchr(in->Cursor(), '\n', left);
  if (newline == nullptr) return false;
  const auto length = static_cast<std::size_t>(static_cast<const char*>(newline) - in->Cursor());
  *line = std::string_view(in->Cursor(), length);
  return in->Skip(length + 1);
}

bool StartsWith(std::string_view text, std::string_view prefix) { return text.substr(0, prefix.size()) == prefix; }

// "KEY=%f": the value after `key`, or false when the line has none.
bool ReadFloat(std::string_view line, std::string_view key, float* out) {
  if (!StartsWith(line, key)) return false;
  const std::string text(line.substr(key.size()));  // strtof needs the terminator
  char* end = nullptr;
  const float value = std::strtof(text.c_str(), &end);
  if (end == text.c_str()) return false;
  *out = value;
  return true;
}

bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// One "%s%d" pair of a resolution line: a word, then an int.
bool ReadSizeField(std::string_view line, std::size_t* at, long long* value) {
  auto skip_space = [&] {
    while (*at < line.size() && IsSpace(line[*at])) ++*at;
  };
  skip_space();
  const std::size_t word = *at;
  while (*at < line.size() && !IsSpace(line[*at])) ++*at;
  if (*at == word) return false;
  skip_space();
  bool negative = false;
  if (*at < line.size() && (line[*at] == '+' || line[*at] == '-')) negative = line[(*at)++] == '-';
  const std::size_t digits = *at;
  long long v = 0;
  for (; *at < line.size() && line[*at] >= '0' && line[*at] <= '9'; ++*at) {
    v = v * 10 + (line[*at] - '0');
    if (v > 0x7FFFFFFF) return false;  // beyond what the field's int holds
  }
  if (*at == digits) return false;
  *value = negative ? -v : v;
  return true;
}

enum class Kind { None, RGBE, XYZE };

struct Header {
  u64 width = 0, height = 0;
  float exposure = 1.0f;
  float gamma = 1.0f;
  Kind kind = Kind::None;
};

// Everything before the pixels; leaves `in` at the first scanline.
Header ReadHeader(detail::ByteReader* in) {
  Header h;
  std::string_view line;
  if (!NextLine(in, &line)) Fail("Invalid Image size");  // the magic line
  for (;;) {
    if (!NextLine(in, &line)) Fail("Invalid Image size");
    if (line.size() >= 2 && (line[0] == '+' || line[0] == '-') && (line[1] == 'X' || line[1] == 'Y')) break;
    if (StartsWith(line, "EX")) {
      ReadFloat(line, "EXPOSURE=", &h.exposure);
    } else if (StartsWith(line, "F")) {
      if (line == "FORMAT=32-bit_rle_rgbe") h.kind = Kind::RGBE;
      if (line == "FORMAT=32-bit_rle_xyze") h.kind = Kind::XYZE;
    } else if (StartsWith(line, "G")) {
      ReadFloat(line, "GAMMA=", &h.gamma);
    }
    // PRIMARIES carries nothing the decoder uses; other lines are ignored.
  }
  // A NaN exposure fails both comparisons and is reset too.
  if (!(static_cast<double>(h.exposure) <= 1e12 && static_cast<double>(h.exposure) >= 1e-12)) h.exposure = 1.0f;
  std::size_t at = 0;
  long long height = 0, width = 0;
  if (!ReadSizeField(line, &at, &height) || !ReadSizeField(line, &at, &width) || height <= 0 || width <= 0) {
    Fail("Invalid Image size");
  }
  h.height = static_cast<u64>(height);
  h.width = static_cast<u64>(width);
  return h;
}

// Half bits of every pixel value, indexed by exponent byte << 8 | mantissa byte.
using HalfTable = std::vector<u16>;

// m * 2^(e-136) is exact in float (8 significant bits, exponent from -136 to
// 119), so one float -> half conversion rounds it exactly once.
const HalfTable& UnitExposureTable() {
  static const HalfTable table = [] {
    HalfTable t(256 * 256, 0);
    for (int e = 1; e < 256; ++e) {
      const float scale = std::ldexp(1.0f, e - 136);
      for (int m = 0; m < 256; ++m) {
        const float value = static_cast<float>(m) * scale;
        std::uint32_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        t[static_cast<std::size_t>(e << 8 | m)] = half_float::detail::FloatBitsToHalfBits(bits);
      }
    }
    return t;
  }();
  return table;
}

// The half nearest to m * 2^(e-136) / exposure. The quotient is rounded once
// into a double; a half midpoint has 12 significant bits, so it never lies
// between the double and the exact value. The double then goes to float
// rounded to odd (truncated, inexactness kept in the last bit), which the
// float -> half step rounds as it would the double itself.
// `scale` is 2^(e-136), exact in a double.
u16 ScaledHalf(int m, double scale, float exposure) {
  const double value = m * scale / static_cast<double>(exposure);
  float f = static_cast<float>(value);
  std::uint32_t bits = 0;
  std::memcpy(&bits, &f, sizeof bits);
  if (static_cast<double>(f) != value && bits < 0x7F800000u) {
    if (static_cast<double>(f) > value) --bits;
    bits |= 1u;
  }
  return half_float::detail::FloatBitsToHalfBits(bits);
}

HalfTable ExposureTable(float exposure) {
  HalfTable t(256 * 256, 0);
  for (int e = 1; e < 256; ++e) {
    const double scale = std::ldexp(1.0, e - 136);
    for (int m = 0; m < 256; ++m) t[static_cast<std::size_t>(e << 8 | m)] = ScaledHalf(m, scale, exposure);
  }
  return t;
}

// One row of R, G, B, E bytes, `step` apart (1: four planes; 4: flat
// pixels), to R, G, B, A halves.
template <std::size_t Step>
void ConvertRow(const u8* r, const u8* g, const u8* b, const u8* e, std::size_t width, const u16* table, char* out) {
  constexpr std::uint64_t kAlpha = std::uint64_t{kHalfOne} << 48;
  for (std::size_t x = 0; x < width; ++x) {
    const u16* row = table + (std::size_t{e[x * Step]} << 8);
    const std::uint64_t pixel = std::uint64_t{row[r[x * Step]]} | std::uint64_t{row[g[x * Step]]} << 16 |
                                std::uint64_t{row[b[x * Step]]} << 32 | kAlpha;
    std::memcpy(out + x * 8, &pixel, 8);
  }
}

// Bytes that DecodePlane may write past a plane's end (into the next plane,
// which is decoded later, or into the padding after the last).
constexpr std::size_t kPlaneSlack = 16;

// One plane of a run-length encoded scanline: `width` bytes from the packets
// at [*in, end); *in moves past them. Packets are short in photographs, so
// they are moved in whole 16-byte blocks where the bytes allow it.
void DecodePlane(const u8** in, const u8* end, u8* out, std::size_t width) {
  const u8* p = *in;
  std::size_t x = 0;
  while (x < width) {
    if (p == end) Fail("unexpected end of data");
    const std::size_t count = *p++;
    if (count > 128) {
      const std::size_t n = count - 128;
      if (n > width - x) Fail("rle scanline error");
      if (p == end) Fail("unexpected end of data");
      u8 block[16];
      std::memset(block, *p++, sizeof block);
      for (std::size_t i = 0; i < n; i += 16) std::memcpy(out + x + i, block, 16);
      x += n;
    } else {
      if (count == 0 || count > width - x) Fail("rle scanline error");
      const auto left = static_cast<std::size_t>(end - p);
      if (count > left) Fail("unexpected end of data");
      if ((count + 15) / 16 * 16 <= left) {
        for (std::size_t i = 0; i < count; i += 16) std::memcpy(out + x + i, p + i, 16);
      } else {
        std::memcpy(out + x, p, count);
      }
      p += count;
      x += count;
    }
  }
  *in = p;
}

// The fewest file bytes a scanline can take: flat, or the marker and four
// planes of runs.
u64 MinRowBytes(u64 width) {
  const u64 flat = width * 4;
  if (width > 0xFFFF) return flat;
  const u64 rle = 4 + 4 * 2 * ((width + kMaxRun - 1) / kMaxRun);
  return rle < flat ? rle : flat;
}

std::shared_ptr<Image> Decode(const char* data, std::size_t size) {
  detail::ByteReader in(data, size);
  const Header h = ReadHeader(&in);
  if (!detail::WithinDecodeLimit("HDR", h.width, h.height)) return Image::Null;
  if (h.kind != Kind::RGBE) Fail("Unsupported hdr image format 32-bit_rle_xyze");
  if (h.gamma != 1.0f) Fail("gamma currently not support in hdr image format");
  // Refused before allocating: the pixels cannot all be there.
  u64 least = 0;
  if (checked::MulOverflows(MinRowBytes(h.width), h.height, &least) || least > in.Remaining()) {
    Fail("unexpected end of data");
  }

  const std::shared_ptr<SurfaceDataBitmap> surface =
      SurfaceDataBitmap::Create(h.width, h.height, formats::A16fB16fG16fR16f, 2);
  if (!surface) Fail("Invalid Image size");
  HalfTable scaled;
  if (h.exposure != 1.0f) scaled = ExposureTable(h.exposure);
  const u16* table = h.exposure != 1.0f ? scaled.data() : UnitExposureTable().data();

  const auto width = static_cast<std::size_t>(h.width);
  std::vector<u8> planes;  // R, G, B and E planes of a run-length encoded row
  char* out = surface->Buffer();
  for (u64 y = 0; y < h.height; ++y, out += surface->BytesPerRow()) {
    if (!in.Has(4)) Fail("unexpected end of data");
    const auto* m = reinterpret_cast<const u8*>(in.Cursor());
    if (m[0] == 2 && m[1] == 2 && (std::size_t{m[2]} << 8 | m[3]) == width) {
      if (!in.Skip(4)) Fail("unexpected end of data");
      if (planes.empty()) planes.resize(width * 4 + kPlaneSlack);
      // The packets are read from the reader's span, then skipped in it.
      const auto* begin = reinterpret_cast<const u8*>(in.Cursor());
      const u8* next = begin;
      for (std::size_t c = 0; c < 4; ++c) DecodePlane(&next, begin + in.Remaining(), planes.data() + c * width, width);
      if (!in.Skip(static_cast<std::size_t>(next - begin))) Fail("unexpected end of data");
      const u8* p = planes.data();
      ConvertRow<1>(p, p + width, p + 2 * width, p + 3 * width, width, table, out);
    } else {
      const char* pixels = nullptr;
      if (!in.Bytes(width * 4, &pixels)) Fail("unexpected end of data");
      const auto* p = reinterpret_cast<const u8*>(pixels);
      ConvertRow<4>(p, p + 1, p + 2, p + 3, width, table, out);
    }
  }
  return std::make_shared<ImageHDR>(surface);
}

bool CheckFile(const char* data, std::size_t size) {
  if (data == nullptr || size < 16) return false;
  const std::string_view start(data, size);
  for (const std::string_view magic : {"#?RADIANCE\n", "#?RGBE\n", "#?AUTOPANO\n"}) {
    if (StartsWith(start, magic)) return true;
  }
  return false;
}

// ---- Writing ----

// Where a writable format keeps red, green and blue.
struct Layout {
  std::size_t pixel_bytes;
  bool wide;    // 32-bit floats, else halves
  int r, g, b;  // byte offsets; b < 0: no blue (0)
};

bool FindLayout(PixelFormatDescriptor format, Layout* out) {
  struct Entry {
    const char* name;
    Layout layout;
  };
  // Memory order is the reverse of the name: slot 0 holds the highest bytes.
  static const Entry kWritable[] = {
      {"R16fG16f", {4, false, 2, 0, -1}},        {"G16fR16f", {4, false, 0, 2, -1}},
      {"R32fG32f", {8, true, 4, 0, -1}},         {"G32fR32f", {8, true, 0, 4, -1}},
      {"R16fG16fB16f", {6, false, 4, 2, 0}},     {"B16fG16fR16f", {6, false, 0, 2, 4}},
      {"A16fR16fG16fB16f", {8, false, 4, 2, 0}}, {"A16fB16fG16fR16f", {8, false, 0, 2, 4}},
      {"R32fG32fB32f", {12, true, 8, 4, 0}},     {"B32fG32fR32f", {12, true, 0, 4, 8}},
      {"A32fR32fG32fB32f", {16, true, 8, 4, 0}}, {"A32fB32fG32fR32f", {16, true, 0, 4, 8}},
  };
  for (const Entry& e : kWritable) {
    PixelFormatDescriptor named{};
    if (FromString(e.name, &named) && named == format) {
      *out = e.layout;
      return true;
    }
  }
  PixelFormatMeta meta{};
  if (!ParseFormat(format, &meta) || meta.compressed || ChannelCount(meta) != 1) return false;
  const ComponentMeta& only = meta.components[0];
  if (!only.is_float || only.bits != 16 || meta.components[1].component != PixelComponent::None) return false;
  *out = Layout{2, false, 0, 0, 0};  // grey
  return true;
}

float Channel(const char* pixel, int offset, bool wide) {
  if (offset < 0) return 0.0f;
  if (wide) {
    float f = 0;
    std::memcpy(&f, pixel + offset, 4);
    return f;
  }
  u16 h = 0;
  std::memcpy(&h, pixel + offset, 2);
  const std::uint32_t bits = half_float::detail::HalfBitsToFloatBits(h);
  float f = 0;
  std::memcpy(&f, &bits, 4);
  return f;
}

// What RGBE cannot hold is clamped: NaN and negatives to 0, values from 2^127
// on (infinity too) to the largest mantissa of the largest exponent.
u8 MantissaByte(float scaled) { return scaled >= 255.0f ? 255 : static_cast<u8>(scaled); }

void ToRgbe(float r, float g, float b, u8* rgbe) {
  r = r > 0 ? r : 0;
  g = g > 0 ? g : 0;
  b = b > 0 ? b : 0;
  float v = r > g ? r : g;
  v = v > b ? v : b;
  if (static_cast<double>(v) < 1e-32) {
    rgbe[0] = rgbe[1] = rgbe[2] = rgbe[3] = 0;
    return;
  }
  int e = 127;
  if (v <= FLT_MAX) {
    std::frexp(v, &e);
    if (e > 127) e = 127;
  }
  // m * 256 / v with v = m * 2^e is exactly 2^(8 - e), so the products are exact.
  const float s = std::ldexp(1.0f, 8 - e);
  rgbe[0] = MantissaByte(r * s);
  rgbe[1] = MantissaByte(g * s);
  rgbe[2] = MantissaByte(b * s);
  rgbe[3] = static_cast<u8>(e + 128);
}

// One plane of `n` bytes as runs of 4 to 127 equal bytes and literal packets.
void EncodePlane(const u8* data, std::size_t n, detail::ByteWriter* out) {
  constexpr std::size_t kMinRun = 4;
  std::size_t cur = 0;
  while (cur < n) {
    // The next run of kMinRun or more, stepping over shorter ones.
    std::size_t begin = cur, run = 0, last_run = 0;
    while (run < kMinRun && begin < n) {
      begin += run;
      last_run = run;
      run = 1;
      while (begin + run < n && run < kMaxRun && data[begin] == data[begin + run]) ++run;
    }
    if (last_run > 1 && last_run == begin - cur) {  // only a short run before it
      out->U8(static_cast<u8>(128 + last_run));
      out->U8(data[cur]);
      cur = begin;
    }
    while (cur < begin) {
      const std::size_t literal = begin - cur < kMaxLiteral ? begin - cur : kMaxLiteral;
      out->U8(static_cast<u8>(literal));
      out->Bytes(data + cur, literal);
      cur += literal;
    }
    if (run >= kMinRun) {
      out->U8(static_cast<u8>(128 + run));
      out->U8(data[begin]);
      cur += run;
    }
  }
}

bool RowsFit(const SurfaceData& surface, u64 pixel_bytes) {
  const u64 width = surface.Width(), height = surface.Height(), pitch = surface.BytesPerRow();
  u64 row = 0, extent = 0;
  if (surface.Buffer() == nullptr || width == 0 || height == 0 || width > 0x7FFFFFFF || height > 0x7FFFFFFF ||
      checked::MulOverflows(width, pixel_bytes, &row) || row > pitch) {
    return false;
  }
  return !checked::MulAddOverflows(height - 1, pitch, row, &extent) && extent <= surface.Size();
}

std::shared_ptr<char> EncodeSurface(const SurfaceData& surface, std::size_t* size, int flags) {
  Layout layout{};
  if (!FindLayout(surface.Format(), &layout) || !RowsFit(surface, layout.pixel_bytes)) return nullptr;
  const u64 width = surface.Width(), height = surface.Height();
  char header[128];
  const int header_bytes = std::snprintf(
      header, sizeof header, "#?RADIANCE\nPRIMARIES=0 0 0 0 0 0 0 0\nFORMAT=32-bit_rle_rgbe\n\n-Y %d +X %d\n",
      static_cast<int>(height), static_cast<int>(width));
  if (header_bytes <= 0 || static_cast<std::size_t>(header_bytes) >= sizeof header) return nullptr;
  const bool rle = flags != 0;
  // Worst case of a run-length encoded row: every plane in literal packets.
  const u64 row_bytes = rle ? 4 + 4 * (width + (width + kMaxLiteral - 1) / kMaxLiteral) : width * 4;
  u64 total = 0;
  if (checked::MulAddOverflows(row_bytes, height, static_cast<u64>(header_bytes), &total)) return nullptr;
  std::shared_ptr<char> file = detail::NewFileBuffer(total);
  if (!file) return nullptr;
  detail::ByteWriter out(file.get(), static_cast<std::size_t>(total));
  out.Bytes(header, static_cast<std::size_t>(header_bytes));

  const auto w = static_cast<std::size_t>(width);
  std::vector<u8> planes(rle ? w * 4 : 0);
  const bool grey = layout.pixel_bytes == 2;
  for (u64 y = 0; y < height; ++y) {
    const char* row = surface.Buffer() + y * surface.BytesPerRow();
    if (!rle) {
      auto* rgbe = reinterpret_cast<u8*>(out.Reserve(w * 4));
      if (rgbe == nullptr) return nullptr;
      for (std::size_t x = 0; x < w; ++x) {
        const char* p = row + x * layout.pixel_bytes;
        const float r = Channel(p, layout.r, layout.wide);
        ToRgbe(r, grey ? r : Channel(p, layout.g, layout.wide), grey ? r : Channel(p, layout.b, layout.wide),
               rgbe + x * 4);
      }
      continue;
    }
    for (std::size_t x = 0; x < w; ++x) {
      const char* p = row + x * layout.pixel_bytes;
      const float r = Channel(p, layout.r, layout.wide);
      u8 rgbe[4];
      ToRgbe(r, grey ? r : Channel(p, layout.g, layout.wide), grey ? r : Channel(p, layout.b, layout.wide), rgbe);
      for (std::size_t c = 0; c < 4; ++c) planes[c * w + x] = rgbe[c];
    }
    out.U8(2);
    out.U8(2);
    out.U8(static_cast<u8>((w >> 8) & 0xFF));
    out.U8(static_cast<u8>(w & 0xFF));
    for (std::size_t c = 0; c < 4; ++c) EncodePlane(planes.data() + c * w, w, &out);
  }
  if (!out.Ok()) return nullptr;
  *size = out.Position();
  return file;
}

// Encoding failures, allocation included, end in the writer's own line; the
// guard's line belongs to reading.
std::shared_ptr<char> Encode(const SurfaceData& surface, std::size_t* size, int flags) {
  std::shared_ptr<char> file;
  try {
    file = EncodeSurface(surface, size, flags);
  } catch (const std::exception&) {
    file = nullptr;
  }
  if (!file) lumo::log::LogError(LogChannel, "Can not convert format %s to hdr", ToString(surface.Format()).c_str());
  return file;
}

constexpr detail::PictureFormat kHDRFile{
    ImageFormat::HDR, "HDR", {"Read .hdr file failed. Error message: %s", nullptr, false}, CheckFile, Decode, Encode,
};

class ImageHDRPlugin final : public detail::PicturePlugin {
 public:
  ImageHDRPlugin() : PicturePlugin(kHDRFile) {}
};

}  // namespace

ImagePlugin* detail::HDRPlugin() {
  static ImageHDRPlugin plugin;
  return &plugin;
}

}  // namespace lumo::image
