// lmimage info: describe image files: container, kind of texture, pixel
// format with its graphics-API codes, size and every mip level.
#include <cstdint>
#include <iostream>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "file_io.h"
#include "format_args.h"
#include "json_writer.h"
#include "lumo/image/format_tables.h"
#include "lumo/image/formats.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/mipmaps.h"
#include "plugins/ktx.h"
#include "plugins/pvr.h"
#include "verbs.h"

namespace lumo::image::cli {
namespace {

// Same column as the format verb's reports.
constexpr size_t kKeyWidth = 18;

void Field(std::ostream& out, const std::string& key, const std::string& value) {
  const std::string label = key + ":";
  out << label << std::string(kKeyWidth > label.size() ? kKeyWidth - label.size() : 1, ' ') << value << '\n';
}

// 0 is never a valid code in the tables, so it means "no such format there".
std::string Code(unsigned int code) { return code == 0 ? "-" : std::to_string(code); }

// Direct3D 9 keeps compressed formats as FourCC codes; show the characters too.
std::string DX9Code(unsigned int code) {
  if (code <= 0xff) return Code(code);
  std::string text;
  for (int shift = 0; shift < 32; shift += 8) {
    const char c = static_cast<char>((code >> shift) & 0xff);
    if (c < 0x20 || c > 0x7e) return Code(code);
    text += c;
  }
  return std::to_string(code) + " (" + text + ")";
}

std::string GLCodes(const PixelFormatDescriptor& format) {
  unsigned int gl_format = 0, gl_type = 0, internal = 0;
  if (ToGLFormat(format, gl_format, gl_type, &internal)) {
    return "format " + Hex(gl_format) + ", type " + Hex(gl_type) + ", internal " + Hex(internal);
  }
  const unsigned int compressed = ToGLCompressedFormat(format);
  return compressed == 0 ? "-" : "compressed " + Hex(compressed);
}

std::string OriginName(ImageOrigin origin) {
  switch (origin) {
    case ImageOrigin::TopDown:
      return "top-down";
    case ImageOrigin::BottomUp:
      return "bottom-up";
  }
  return "origin " + std::to_string(static_cast<unsigned>(origin));
}

// Bytes the level holds in memory. A volume's slices may not exist as
// surfaces (3-D blocks), so its data is measured whole.
unsigned long long LevelBytes(Mipmap& level) {
  if (auto* volume = dynamic_cast<Volume*>(&level)) return volume->Data() ? volume->Data()->Size() : 0;
  // GetSurface(0) of a Surface needs a shared owner; ask the surface itself.
  if (auto* surface = dynamic_cast<Surface*>(&level)) return surface->Size();
  unsigned long long total = 0;
  for (unsigned long long i = 0; i < level.GetSurfaceCount(); ++i) {
    const std::shared_ptr<Surface> slice = level.GetSurface(i);
    if (slice) total += slice->Size();  // a cube may lack faces
  }
  return total;
}

std::string LevelText(const std::shared_ptr<Mipmap>& level) {
  if (!level) return "empty";
  return std::to_string(level->Width()) + "x" + std::to_string(level->Height()) + "x" + std::to_string(level->Depth()) +
         ", " + std::to_string(LevelBytes(*level)) + " bytes";
}

std::string Join(const std::vector<std::string>& items) {
  std::string text;
  for (const std::string& item : items) text += (text.empty() ? "" : ", ") + item;
  return text;
}

// Four-character codes as characters where they are printable.
std::string FourCCText(std::uint32_t code) {
  std::string text;
  for (int shift = 0; shift < 32; shift += 8) {
    const char c = static_cast<char>((code >> shift) & 0xff);
    text += c >= 0x20 && c <= 0x7e ? c : '.';
  }
  return text;
}

// What the container says beyond the pyramid: for KTX the OpenGL fields, the
// key/value keys, the orientation and the alpha plane; for PVR the header
// version and the metadata entries.
void DescribeContainer(Image& image, std::ostream& out) {
  if (const detail::KTXFileInfo* ktx = detail::KTXInfoOf(image)) {
    Field(out, "KTX GL fields",
          "type " + Hex(ktx->gl_type) + ", type size " + std::to_string(ktx->gl_type_size) + ", format " +
              Hex(ktx->gl_format) + ", internal " + Hex(ktx->gl_internal_format) + ", base internal " +
              Hex(ktx->gl_base_internal_format));
    std::string keys = std::to_string(ktx->key_count) + (ktx->key_count == 1 ? " key" : " keys");
    if (!ktx->keys.empty()) keys += ": " + Join(ktx->keys);
    if (ktx->key_count > ktx->keys.size()) keys += ", ...";
    Field(out, "KTX key/value", std::to_string(ktx->key_value_bytes) + " bytes, " + keys);
    Field(out, "KTX orientation", ktx->has_orientation ? "'" + ktx->orientation + "'" : "-");
    switch (ktx->alpha_plane) {
      case detail::KTXFileInfo::AlphaPlane::None:
        Field(out, "alpha plane", "-");
        break;
      case detail::KTXFileInfo::AlphaPlane::A8:
        Field(out, "alpha plane", "A8, pitch " + std::to_string(ktx->alpha_pitch) + " bytes");
        break;
      case detail::KTXFileInfo::AlphaPlane::ETC1:
        Field(out, "alpha plane", "ETC1");
        break;
    }
  }
  if (const detail::PVRFileInfo* pvr = detail::PVRInfoOf(image)) {
    Field(out, "PVR version", std::to_string(pvr->version));
    std::vector<std::string> entries;
    for (const detail::PVRMetadataEntry& entry : pvr->metadata) {
      entries.push_back("'" + FourCCText(entry.fourcc) + "' key " + std::to_string(entry.key) + " (" +
                        std::to_string(entry.size) + " bytes)");
    }
    Field(out, "PVR metadata", entries.empty() ? "-" : Join(entries));
  }
}

void Describe(const std::string& path, const LoadedImage& loaded, std::ostream& out) {
  Image& image = *loaded.image;
  const Pyramid& pyramid = *loaded.pyramid;
  const PixelFormatDescriptor format = pyramid.Format();
  const std::string name = NameOf(format);
  const MipmapType type = image.Type();

  Field(out, "file", path);
  Field(out, "container", ImageFactory::FormatToString(image.Format()));
  Field(out, "type", MipmapTypeName(type));
  Field(out, "format", name.empty() ? "(no name)" : name);
  Field(out, "descriptor", Hex(static_cast<unsigned long long>(format)));
  Field(out, "DXGI", Code(ToDXGIFormat(format)));
  Field(out, "D3D9", DX9Code(ToDX9Format(format)));
  Field(out, "GL", GLCodes(format));
  Field(out, "Vulkan", Code(ToVulkanFormat(format)));
  Field(out, "Metal", Code(ToMETALFormat(format)));
  Field(out, "engine", Code(ToLumoFormat(format)));
  Field(out, "size", std::to_string(pyramid.Width()) + "x" + std::to_string(pyramid.Height()));
  Field(out, "depth", std::to_string(pyramid.Depth()));
  Field(out, "layers", std::to_string(pyramid.ArrayLength()));
  Field(out, "faces", type == MipmapType::Cube || type == MipmapType::CubeArray ? "6" : "1");
  Field(out, "levels", std::to_string(pyramid.LevelsCurrent()));
  for (unsigned long long i = 0; i < pyramid.LevelsCurrent(); ++i) {
    Field(out, "level " + std::to_string(i), LevelText(pyramid.GetMipmap(i)));
  }
  Field(out, "origin", OriginName(image.Origin()));
  DescribeContainer(image, out);
  for (const std::string& warning : loaded.warnings) Field(out, "warning", warning);
}

// ---- JSON form: the same facts as values, numbers as numbers, null for "-" ----

void CodeJson(JsonWriter& json, const char* key, unsigned int code) {
  json.Key(key);
  if (code == 0) {
    json.Null();
  } else {
    json.Number(code);
  }
}

void LevelsJson(JsonWriter& json, const Pyramid& pyramid) {
  json.Key("levels").BeginArray();
  for (unsigned long long i = 0; i < pyramid.LevelsCurrent(); ++i) {
    const std::shared_ptr<Mipmap> level = pyramid.GetMipmap(i);
    if (!level) {
      json.Null();
      continue;
    }
    json.BeginObject()
        .Key("width")
        .Number(level->Width())
        .Key("height")
        .Number(level->Height())
        .Key("depth")
        .Number(level->Depth())
        .Key("bytes")
        .Number(LevelBytes(*level))
        .EndObject();
  }
  json.EndArray();
}

void FormatJson(JsonWriter& json, const PixelFormatDescriptor& format) {
  const std::string name = NameOf(format);
  json.Key("format");
  if (name.empty()) {
    json.Null();
  } else {
    json.String(name);
  }
  json.Key("descriptor").String(Hex(static_cast<unsigned long long>(format)));
}

// The separate alpha pyramid (KTX alpha planes): format and levels, or null.
void AlphaJson(JsonWriter& json, Image& image) {
  json.Key("alpha");
  std::shared_ptr<Pyramid> alpha;
  if (image.HasAlphaPyramid()) {
    LogCapture quiet;
    alpha = image.GetPyramid(true);
  }
  if (!alpha || alpha->LevelsCurrent() == 0) {
    json.Null();
    return;
  }
  json.BeginObject();
  FormatJson(json, alpha->Format());
  json.Key("width").Number(alpha->Width()).Key("height").Number(alpha->Height());
  LevelsJson(json, *alpha);
  json.EndObject();
}

void ContainerJson(JsonWriter& json, Image& image) {
  json.Key("ktx");
  if (const detail::KTXFileInfo* ktx = detail::KTXInfoOf(image)) {
    json.BeginObject()
        .Key("gl_type")
        .Number(ktx->gl_type)
        .Key("gl_type_size")
        .Number(ktx->gl_type_size)
        .Key("gl_format")
        .Number(ktx->gl_format)
        .Key("gl_internal_format")
        .Number(ktx->gl_internal_format)
        .Key("gl_base_internal_format")
        .Number(ktx->gl_base_internal_format)
        .Key("key_value_bytes")
        .Number(ktx->key_value_bytes)
        .Key("key_count")
        .Number(ktx->key_count)
        .Key("keys")
        .BeginArray();
    for (const std::string& key : ktx->keys) json.String(key);
    json.EndArray().Key("orientation");
    if (ktx->has_orientation) {
      json.String(ktx->orientation);
    } else {
      json.Null();
    }
    json.Key("alpha_plane");
    switch (ktx->alpha_plane) {
      case detail::KTXFileInfo::AlphaPlane::None:
        json.Null();
        break;
      case detail::KTXFileInfo::AlphaPlane::A8:
        json.String("A8");
        break;
      case detail::KTXFileInfo::AlphaPlane::ETC1:
        json.String("ETC1");
        break;
    }
    json.Key("alpha_pitch").Number(ktx->alpha_pitch).EndObject();
  } else {
    json.Null();
  }
  json.Key("pvr");
  if (const detail::PVRFileInfo* pvr = detail::PVRInfoOf(image)) {
    json.BeginObject().Key("version").Number(pvr->version).Key("metadata").BeginArray();
    for (const detail::PVRMetadataEntry& entry : pvr->metadata) {
      json.BeginObject()
          .Key("fourcc")
          .String(FourCCText(entry.fourcc))
          .Key("fourcc_code")
          .Number(entry.fourcc)
          .Key("key")
          .Number(entry.key)
          .Key("size")
          .Number(entry.size)
          .EndObject();
    }
    json.EndArray().EndObject();
  } else {
    json.Null();
  }
}

std::string DescribeJson(const std::string& path, const LoadedImage& loaded) {
  Image& image = *loaded.image;
  const Pyramid& pyramid = *loaded.pyramid;
  const PixelFormatDescriptor format = pyramid.Format();
  const MipmapType type = image.Type();

  JsonWriter json;
  json.BeginObject();
  json.Key("file").String(path);
  json.Key("container").String(ImageFactory::FormatToString(image.Format()));
  json.Key("type").String(MipmapTypeName(type));
  FormatJson(json, format);

  json.Key("api").BeginObject();
  CodeJson(json, "dxgi", ToDXGIFormat(format));
  const unsigned int dx9 = ToDX9Format(format);
  CodeJson(json, "d3d9", dx9);
  json.Key("d3d9_fourcc");
  const std::string fourcc = dx9 > 0xff ? FourCCText(dx9) : "";
  if (!fourcc.empty() && fourcc.find('.') == std::string::npos) {
    json.String(fourcc);
  } else {
    json.Null();
  }
  json.Key("gl");
  unsigned int gl_format = 0, gl_type = 0, internal = 0;
  if (ToGLFormat(format, gl_format, gl_type, &internal)) {
    json.BeginObject().Key("format").Number(gl_format).Key("type").Number(gl_type);
    json.Key("internal").Number(internal).EndObject();
  } else if (const unsigned int compressed = ToGLCompressedFormat(format)) {
    json.BeginObject().Key("compressed").Number(compressed).EndObject();
  } else {
    json.Null();
  }
  CodeJson(json, "vulkan", ToVulkanFormat(format));
  CodeJson(json, "metal", ToMETALFormat(format));
  CodeJson(json, "engine", ToLumoFormat(format));
  json.EndObject();

  json.Key("width").Number(pyramid.Width()).Key("height").Number(pyramid.Height());
  json.Key("depth").Number(pyramid.Depth()).Key("layers").Number(pyramid.ArrayLength());
  json.Key("faces").Number(type == MipmapType::Cube || type == MipmapType::CubeArray ? 6 : 1);
  LevelsJson(json, pyramid);
  json.Key("origin").String(OriginName(image.Origin()));
  AlphaJson(json, image);
  ContainerJson(json, image);
  json.Key("warnings").BeginArray();
  for (const std::string& warning : loaded.warnings) json.String(warning);
  json.EndArray().EndObject();
  return json.Text();
}

int Run(const Invocation& invocation) {
  if (invocation.operands.empty()) throw UsageError("missing FILE argument");
  std::ostream& out = *invocation.out;
  const bool as_json = invocation.Has("json");
  bool printed = false;
  bool failed = false;
  // A bad file does not stop the others; its error line replaces its report
  // (in JSON, an object with "error" keeps one line per FILE on stdout).
  for (const std::string& path : invocation.operands) {
    try {
      const LoadedImage loaded = LoadImage(path);
      if (as_json) {
        out << DescribeJson(path, loaded) << '\n';
        continue;
      }
      if (printed) out << '\n';
      Describe(path, loaded, out);
      printed = true;
    } catch (const Error& error) {
      failed = true;
      if (as_json) {
        JsonWriter json;
        json.BeginObject().Key("file").String(path).Key("error").String(error.what()).EndObject();
        out << json.Text() << '\n';
      }
      out.flush();  // keeps reports and errors in order on a shared terminal
      PrintDiagnostic(std::cerr, invocation.verb->name, error.subject().value_or(path), error.what());
    }
  }
  return failed ? kExitFailed : kExitOk;
}

}  // namespace

Verb InfoVerb() {
  return Verb{
      "info",
      "describe image files: container, texture kind, pixel format and levels",
      "[--json] FILE...",
      "Reads each FILE (any registered container, detected from its bytes) and\n"
      "prints one block per file, separated by a blank line: the container, the\n"
      "kind of texture, the pixel format with its DXGI, Direct3D 9, OpenGL, Vulkan,\n"
      "Metal and engine codes ('-' where that interface has none), the size, each\n"
      "mip level as WxHxD with its size in bytes, and the row order. KTX files add\n"
      "their OpenGL fields, key/value keys, orientation and alpha plane; PVR files\n"
      "their header version and metadata entries. A file that cannot be read\n"
      "or decoded gets one error line instead; the others are still described and\n"
      "the exit status is 1.\n"
      "\n"
      "With --json, each FILE gives one line on stdout holding one JSON object\n"
      "(JSON Lines), in the order given: \"file\", \"container\", \"type\", \"format\"\n"
      "(null without a name), \"descriptor\" (hex string), \"api\" {\"dxgi\", \"d3d9\",\n"
      "\"d3d9_fourcc\", \"gl\" ({\"format\", \"type\", \"internal\"} or {\"compressed\"}),\n"
      "\"vulkan\", \"metal\", \"engine\"; null where that interface has none},\n"
      "\"width\", \"height\", \"depth\", \"layers\", \"faces\", \"levels\" (per level\n"
      "{\"width\", \"height\", \"depth\", \"bytes\"}), \"origin\", \"alpha\" (the separate\n"
      "alpha pyramid's \"format\", \"descriptor\", \"width\", \"height\", \"levels\", or\n"
      "null), \"ktx\" and \"pvr\" (the container's extra fields, or null) and\n"
      "\"warnings\". A file that fails gives {\"file\": ..., \"error\": REASON} on\n"
      "stdout besides its error line on stderr. Bytes that are not UTF-8 (in file\n"
      "names or keys) appear as U+FFFD.",
      {
          {"json", nullptr, "one JSON object per file and line (JSON Lines)"},
      },
      &Run,
  };
}

}  // namespace lumo::image::cli
