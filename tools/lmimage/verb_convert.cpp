// lmimage convert: read an image file, optionally change its pixel format,
// complete its mip chain and flip it, and write it in the container that the
// output file's extension names.
#include <cctype>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include "file_io.h"
#include "format_args.h"
#include "lumo/image/engines.h"
#include "lumo/image/formats.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/surface_data.h"
#include "verbs.h"

namespace lumo::image::cli {
namespace {

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

FilterType ParseFilter(const std::string& arg) {
  static const struct {
    const char* name;
    FilterType filter;
  } kFilters[] = {
      {"box", FilterType::Box},         {"bilinear", FilterType::Bilinear},     {"bicubic", FilterType::Bicubic},
      {"bspline", FilterType::BSpline}, {"catmullrom", FilterType::CatmullRom}, {"lanczos3", FilterType::Lanczos3},
      {"point", FilterType::Point},
  };
  const std::string wanted = Lower(arg);
  for (const auto& entry : kFilters) {
    if (wanted == entry.name) return entry.filter;
  }
  throw UsageError(arg, "unknown filter (box, bilinear, bicubic, bspline, catmullrom, lanczos3, point)");
}

std::string RegisteredFormats() {
  std::string list;
  // Every number the factory accepts is below 64.
  for (int number = 1; number < 64; ++number) {
    const ImageFormat format = static_cast<ImageFormat>(number);
    if (!ImageFactory::Instance()->IsRegistered(format)) continue;
    if (!list.empty()) list += ", ";
    list += ImageFactory::FormatToString(format);
  }
  return list;
}

// The container named by the output's extension, checked before any work is done.
ImageFormat OutputFormat(const std::string& path) {
  std::string extension = std::filesystem::path(path).extension().string();
  if (extension.size() < 2) throw UsageError(path, "no file extension to choose the output format from");
  extension = Lower(extension.substr(1));
  if (extension == "jpeg") extension = "jpg";  // the common spelling of the JPG container
  const ImageFormat format = ImageFactory::StringToFormat(extension.c_str());
  if (format == ImageFormat::UNKNOWN) {
    throw UsageError(path,
                     "no image format for extension '." + extension + "' (writable: " + RegisteredFormats() + ")");
  }
  return format;
}

std::string FormatName(const PixelFormatDescriptor& format) {
  const std::string name = NameOf(format);
  return name.empty() ? Hex(static_cast<unsigned long long>(format)) : name;
}

// Whether `container` stores `format` as it is. Block-compressed data cannot
// be converted on the way, so a container must read it back under the same
// name (a relabelling would change what the blocks mean); other formats need
// only be accepted by the writer. Probed with a small picture, nothing kept.
bool CanHold(ImageFormat container, const PixelFormatDescriptor& format) {
  LogCapture quiet;
  const std::shared_ptr<SurfaceDataBitmap> sample = SurfaceDataBitmap::Create(16, 16, format, 2);
  if (!sample) return false;
  size_t size = 0;
  const std::shared_ptr<char> file = ImageFactory::Instance()->Serialize(container, sample.get(), &size, 0);
  if (!file) return false;
  if (!IsCompressed(format)) return true;
  const std::shared_ptr<Image> image = ImageFactory::Instance()->Create(container, file, size);
  const std::shared_ptr<Pyramid> pyramid = image ? image->GetPyramid(false) : nullptr;
  return pyramid && pyramid->Format() == format;
}

// "the KTX container cannot hold ETC1 pixels; containers that can: PKM, PVR".
std::string CannotHold(ImageFormat container, const PixelFormatDescriptor& format) {
  std::string others;
  for (int number = 1; number < 64; ++number) {
    const ImageFormat other = static_cast<ImageFormat>(number);
    if (other == container || !ImageFactory::Instance()->IsRegistered(other) || !CanHold(other, format)) continue;
    others += (others.empty() ? "" : ", ") + std::string(ImageFactory::FormatToString(other));
  }
  return std::string("the ") + ImageFactory::FormatToString(container) + " container cannot hold " +
         FormatName(format) + " pixels; " + (others.empty() ? "no container can" : "containers that can: " + others) +
         (IsCompressed(format) ? "" : " (or convert them with --format)");
}

std::string Plural(unsigned long long count, const char* noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

// Describes the bytes as they will read back, so a container that keeps only
// level 0 does not get reported with the whole chain.
std::string Summary(const std::string& path, ImageFormat container, const std::shared_ptr<char>& file, size_t size,
                    const Pyramid& written) {
  const Pyramid* shown = &written;
  std::shared_ptr<Pyramid> reread;
  {
    LogCapture quiet;
    const std::shared_ptr<Image> image = ImageFactory::Instance()->Create(container, file, size);
    if (image) reread = image->GetPyramid(false);
  }
  if (reread && reread->LevelsCurrent() != 0) shown = reread.get();
  return "wrote " + path + ": " + ImageFactory::FormatToString(container) + ", " + FormatName(shown->Format()) + ", " +
         std::to_string(shown->Width()) + "x" + std::to_string(shown->Height()) + ", " +
         Plural(shown->LevelsCurrent(), "level") + ", " + std::to_string(size) + " bytes";
}

int Run(const Invocation& invocation) {
  if (invocation.operands.size() != 2) throw UsageError("expects exactly two files: IN OUT");
  const std::string& input = invocation.operands[0];
  const std::string& output = invocation.operands[1];

  // Every usage error is found before the input is read.
  std::optional<Resolved> target;
  if (invocation.Has("format")) target = ResolveFormat(invocation.Value("format"));
  const bool mips = invocation.Has("mips");
  FilterType filter = FilterType::Box;
  if (invocation.Has("filter")) {
    if (!mips) throw UsageError("--filter", "only applies with --mips");
    filter = ParseFilter(invocation.Value("filter"));
  }
  const ImageFormat container = OutputFormat(output);
  RefuseSameFile(input, output);

  const LoadedImage loaded = LoadImage(input);
  for (const std::string& warning : loaded.warnings) {
    PrintDiagnostic(std::cerr, invocation.verb->name, input, "warning: " + warning);
  }
  std::shared_ptr<Pyramid> pyramid = loaded.pyramid;
  const PixelFormatDescriptor source = pyramid->Format();

  const auto complete = [&] {
    LogCapture log;
    if (!pyramid->MakeComplete(filter)) {
      throw Failure(input, "cannot make the mip levels of this " + MipmapTypeName(loaded.image->Type()) + " (" +
                               FormatName(pyramid->Format()) + ")" + log.Detail());
    }
  };
  // Mips are made from the source when it can be resampled, so they are not
  // rounded through a smaller target format; compressed pixels cannot be.
  const bool mips_first = mips && !IsCompressed(source);
  if (mips_first) complete();
  // The converters have no identity step: converting to the same format would fail.
  if (target && target->descriptor != source) {
    LogCapture log;
    std::shared_ptr<Pyramid> converted = pyramid->ConvertCopy(target->descriptor);
    if (!converted) {
      throw Failure(input, "cannot convert " + FormatName(source) + " to " + target->name + log.Detail());
    }
    pyramid = std::move(converted);
  }
  if (mips && !mips_first) complete();
  if (invocation.Has("flip-vertical")) {
    LogCapture log;
    if (!pyramid->FlipVertical()) {
      throw Failure(input, "cannot flip " + FormatName(pyramid->Format()) + " pixels" + log.Detail());
    }
  }

  if (!CanHold(container, pyramid->Format())) throw Failure(output, CannotHold(container, pyramid->Format()));
  size_t size = 0;
  std::shared_ptr<char> file;
  {
    LogCapture log;
    file = ImageFactory::Instance()->Serialize(container, pyramid.get(), &size, 0);
    if (!file) {
      throw Failure(output, std::string("cannot write ") + FormatName(pyramid->Format()) + " pixels as " +
                                ImageFactory::FormatToString(container) + log.Detail());
    }
  }
  const std::string summary = Summary(output, container, file, size, *pyramid);
  WriteFileAtomically(output, file.get(), size);
  *invocation.out << summary << '\n';
  return kExitOk;
}

}  // namespace

Verb ConvertVerb() {
  return Verb{
      "convert",
      "convert an image file to another pixel format or container",
      "IN OUT [--format NAME] [--mips [--filter NAME]] [--flip-vertical]",
      "Reads IN (any registered container) and writes OUT in the container named\n"
      "by OUT's extension (.dds, ...). --format converts every level to a format\n"
      "name or 0x hex value; --mips completes the mip chain down to 1x1; and\n"
      "--flip-vertical turns the rows upside down. Block-compressed levels are\n"
      "copied as they are (never decoded); a container that cannot hold the\n"
      "format is named with those that can. OUT is written to a temporary\n"
      "file beside it and renamed, so a failed run leaves it untouched; OUT may not\n"
      "be IN. Prints one line describing the written file.",
      {
          {"format", "NAME", "convert the pixels to this format (name or 0x hex)"},
          {"mips", nullptr, "complete the mip chain"},
          {"filter", "NAME", "mip filter: box (default), bilinear, bicubic, bspline, catmullrom, lanczos3, point"},
          {"flip-vertical", nullptr, "flip every level upside down"},
      },
      &Run,
  };
}

}  // namespace lumo::image::cli
