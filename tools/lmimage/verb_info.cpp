// lmimage info: describe image files: container, kind of texture, pixel
// format with its graphics-API codes, size and every mip level.
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
      "Metal and engine codes ('-' where that interface has none), the size, and\n"
      "each mip level as WxHxD with its size in bytes. A file that cannot be read\n"
      "or decoded gets one error line instead; the others are still described and\n"
      "the exit status is 1.",
      {},
      &Run,
  };
}

}  // namespace lumo::image::cli
