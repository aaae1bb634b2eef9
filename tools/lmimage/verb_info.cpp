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

int Run(const Invocation& invocation) {
  if (invocation.operands.empty()) throw UsageError("missing FILE argument");
  std::ostream& out = *invocation.out;
  bool printed = false;
  bool failed = false;
  // A bad file does not stop the others; its error line replaces its report.
  for (const std::string& path : invocation.operands) {
    try {
      const LoadedImage loaded = LoadImage(path);
      if (printed) out << '\n';
      Describe(path, loaded, out);
      printed = true;
    } catch (const Error& error) {
      failed = true;
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
      "FILE...",
      "Reads each FILE (any registered container, detected from its bytes) and\n"
      "prints one block per file, separated by a blank line: the container, the\n"
      "kind of texture, the pixel format with its DXGI, Direct3D 9, OpenGL, Vulkan,\n"
      "Metal and engine codes ('-' where that interface has none), the size, each\n"
      "mip level as WxHxD with its size in bytes, and the row order. KTX files add\n"
      "their OpenGL fields, key/value keys, orientation and alpha plane; PVR files\n"
      "their header version and metadata entries. A file that cannot be read\n"
      "or decoded gets one error line instead; the others are still described and\n"
      "the exit status is 1.",
      {},
      &Run,
  };
}

}  // namespace lumo::image::cli
