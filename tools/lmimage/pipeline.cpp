#include "pipeline.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "file_io.h"
#include "lumo/image/formats.h"
#include "lumo/image/mipmaps.h"
#include "lumo/image/surface_data.h"

namespace lumo::image::cli {
namespace {

// Linear-light resampling works on this: float R, G, B, A in memory.
constexpr PixelFormatDescriptor kLinearFormat = formats::A32fB32fG32fR32f;
// Sides beyond this are a typo, not a texture.
constexpr unsigned long long kMaxSide = 1 << 16;

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

// A whole decimal number in [low, high]; usage Error naming the option otherwise.
unsigned long long ParseCount(const std::string& option, const std::string& text, unsigned long long low,
                              unsigned long long high) {
  if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string::npos) {
    throw UsageError(text, "--" + option + " needs a whole number from " + std::to_string(low) + " to " +
                               std::to_string(high));
  }
  const unsigned long long value = std::strtoull(text.c_str(), nullptr, 10);
  if (value < low || value > high) {
    throw UsageError(text, "--" + option + " needs a whole number from " + std::to_string(low) + " to " +
                               std::to_string(high));
  }
  return value;
}

int JpegQuality(const std::string& name) {
  const std::string wanted = Lower(name);
  if (wanted == "superb") return ISF_JPEG_QUALITYSUPERB;
  if (wanted == "good") return ISF_JPEG_QUALITYGOOD;
  if (wanted == "normal") return ISF_JPEG_QUALITYNORMAL;
  if (wanted == "average") return ISF_JPEG_QUALITYAVERAGE;
  if (wanted == "bad") return ISF_JPEG_QUALITYBAD;
  throw UsageError(name, "unknown JPEG quality (superb, good, normal, average, bad)");
}

blocks::Quality ParseQuality(const std::string& name) {
  const std::string wanted = Lower(name);
  if (wanted == "fast") return blocks::Quality::Fast;
  if (wanted == "normal") return blocks::Quality::Normal;
  if (wanted == "best") return blocks::Quality::Best;
  throw UsageError(name, "unknown --quality (fast, normal, best)");
}

// Names of the formats the encoders make, for messages.
std::string EncodableFormats() {
  std::string list;
  for (std::uint32_t number = 1; number <= 54; ++number) {
    const auto format = static_cast<PixelFormatDescriptor>((static_cast<unsigned long long>(number) << 8) | 1u);
    if (!blocks::CanEncode(format)) continue;
    list += (list.empty() ? "" : ", ") + FormatName(format);
  }
  return list;
}

int SaveFlags(const Invocation& invocation, ImageFormat container) {
  const auto wants = [&](const char* option, ImageFormat writer) {
    if (!invocation.Has(option)) return false;
    if (container != writer) {
      throw UsageError(std::string("--") + option,
                       std::string("only applies to ") + ImageFactory::FormatToString(writer) + " output");
    }
    return true;
  };
  int flags = 0;
  if (wants("png-level", ImageFormat::PNG)) {
    const unsigned long long level = ParseCount("png-level", invocation.Value("png-level"), 0, 9);
    flags |= level == 0 ? ISF_PNG_Z_NO_COMPRESSION : static_cast<int>(level);
  }
  if (wants("png-interlaced", ImageFormat::PNG)) flags |= ISF_PNG_INTERLACED;
  if (wants("tga-rle", ImageFormat::TGA)) flags |= ISF_TARGA_SAVE_RLE;
  if (wants("hdr-rle", ImageFormat::HDR)) flags |= ISF_HDR_RLE;
  if (wants("jpeg-quality", ImageFormat::JPG)) flags |= JpegQuality(invocation.Value("jpeg-quality"));
  return flags;
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

// The standard sRGB transfer functions (IEC 61966-2-1).
float DecodeSrgb(float value) {
  if (!(value > 0.04045f)) return value <= 0.0f ? 0.0f : value / 12.92f;
  return std::pow((value + 0.055f) / 1.055f, 2.4f);
}
float EncodeSrgb(float value) {
  // Sharpening filters overshoot; the stored range is 0 to 1 anyway.
  if (!(value > 0.0031308f)) return value <= 0.0f ? 0.0f : value * 12.92f;
  if (value >= 1.0f) return 1.0f;
  return 1.055f * std::pow(value, 1.0f / 2.4f) - 0.055f;
}

// Calls pixel(float* rgba) for every pixel of every surface in kLinearFormat.
template <typename PixelFunction>
void ForEachPixel(const Pyramid& pyramid, PixelFunction pixel_function) {
  for (unsigned long long level = 0; level < pyramid.LevelsCurrent(); ++level) {
    const std::shared_ptr<Mipmap> mipmap = pyramid.GetMipmap(level);
    if (!mipmap) continue;
    for (unsigned long long index = 0; index < mipmap->GetSurfaceCount(); ++index) {
      const std::shared_ptr<Surface> surface = mipmap->GetSurface(index);
      if (!surface || !surface->Data()) continue;
      SurfaceData& data = *surface->Data();
      const unsigned long long width = data.Width();
      for (unsigned long long y = 0; y < data.Height(); ++y) {
        // Rows of a converted bitmap start on 4-byte boundaries, as floats need.
        float* pixel = reinterpret_cast<float*>(data.Buffer() + y * data.BytesPerRow());
        for (unsigned long long x = 0; x < width; ++x, pixel += 4) pixel_function(pixel);
      }
    }
  }
}

// Half a step of the format's largest unsigned integer component: the
// converters from float cut off the fraction, and this makes them round.
float RoundingBias(const PixelFormatDescriptor& format) {
  PixelFormatMeta meta{};
  if (!ParseFormat(format, &meta) || meta.compressed) return 0.0f;
  unsigned long long bits = 0;
  for (const ComponentMeta& component : meta.components) {
    if (component.bits == 0) continue;
    if (component.is_float || component.is_signed) return 0.0f;
    bits = std::max(bits, component.bits);
  }
  if (bits == 0 || bits > 24) return 0.0f;
  return 0.5f / static_cast<float>((1ull << bits) - 1);
}

std::shared_ptr<Pyramid> TopLevel(const Pyramid& pyramid) {
  std::shared_ptr<Pyramid> top = Pyramid::Make(pyramid.GetMipmap(0), pyramid.Origin());
  top->SetPalette(pyramid.GetPalette());
  return top;
}

// Level 0 resampled to width x height; the other levels are dropped.
std::shared_ptr<Pyramid> Resize(const Pyramid& pyramid, unsigned long long width, unsigned long long height,
                                const std::string& input) {
  const std::shared_ptr<Mipmap> top = pyramid.GetMipmap(0);
  const auto fail = [&](const LogCapture& log) {
    return Failure(input, "cannot resize this " + MipmapTypeName(top->Type()) + " (" + FormatName(top->Format()) +
                              ") to " + std::to_string(width) + "x" + std::to_string(height) + log.Detail());
  };
  LogCapture log;
  std::shared_ptr<Mipmap> resized;
  if (top->Type() == MipmapType::Surface) {
    resized = top->GetSurface(0)->RescaleCopy(width, height, FilterType::Box);
    if (resized && !std::static_pointer_cast<Surface>(resized)->Data()) resized = nullptr;
  } else if (top->Type() == MipmapType::Cube && top->GetSurfaceCount() == 6) {
    std::shared_ptr<Surface> faces[6];
    for (unsigned long long face = 0; face < 6; ++face) {
      faces[face] = top->GetSurface(face)->RescaleCopy(width, height, FilterType::Box);
      if (!faces[face] || !faces[face]->Data()) throw fail(log);
    }
    resized = Cube::Create(faces[0], faces[1], faces[2], faces[3], faces[4], faces[5]);
  }
  if (!resized) throw fail(log);
  std::shared_ptr<Pyramid> result = Pyramid::Make(resized, pyramid.Origin());
  result->SetPalette(pyramid.GetPalette());
  return result;
}

// Steps 2 to 5 on `pyramid`, in whatever format it is in.
std::shared_ptr<Pyramid> ResampleSteps(std::shared_ptr<Pyramid> pyramid, const PipelineOptions& options,
                                       bool mips, MipmapType type, const std::string& input) {
  if (options.resize_width != 0) {
    pyramid = Resize(*pyramid, options.resize_width, options.resize_height, input);
  }
  const unsigned long long width = pyramid->Width();
  const unsigned long long height = pyramid->Height();
  if (options.max_size != 0 && std::max(width, height) > options.max_size) {
    // Rounded to the nearest whole pixel, never below one.
    const unsigned long long longest = std::max(width, height);
    const auto scaled = [&](unsigned long long side) {
      return std::max<unsigned long long>(1, (side * options.max_size + longest / 2) / longest);
    };
    pyramid = Resize(*pyramid, scaled(width), scaled(height), input);
  }
  if (options.pow2) {
    pyramid = TopLevel(*pyramid);
    LogCapture log;
    if (!pyramid->MakeSizePowerOfTwo(FilterType::Box)) {
      throw Failure(input, "cannot resize this " + MipmapTypeName(type) + " (" + FormatName(pyramid->Format()) +
                               ") to powers of two" + log.Detail());
    }
  }
  if (mips) {
    LogCapture log;
    if (!pyramid->MakeComplete(options.filter)) {
      throw Failure(input, "cannot make the mip levels of this " + MipmapTypeName(type) + " (" +
                               FormatName(pyramid->Format()) + ")" + log.Detail());
    }
  }
  return pyramid;
}

// Steps 2 to 5. sRGB values are not proportional to light, so averaging them
// darkens: a black and white checkerboard would shrink to 128 instead of the
// 188 that looks equally bright. They are decoded to linear float, resampled
// and encoded back (the tables of the 8-bit sRGB converters would round).
std::shared_ptr<Pyramid> Resample(std::shared_ptr<Pyramid> pyramid, const PipelineOptions& options,
                                  const std::string& input) {
  const MipmapType type = pyramid->Type();
  const bool geometry = options.resize_width != 0 || options.max_size != 0 || options.pow2;
  // A file's shorter chain is remade after a resize rather than dropped.
  const bool mips = options.mips || (geometry && pyramid->LevelsCurrent() > 1);
  if (!geometry && (!mips || pyramid->IsComplete())) return pyramid;

  const PixelFormatDescriptor format = pyramid->Format();
  if (!options.linear_light || !IsSRGB(format) || IsCompressed(format)) {
    return ResampleSteps(std::move(pyramid), options, mips, type, input);
  }
  const PixelFormatDescriptor plain = SetSRGB(format, false);
  const auto fail = [&](const LogCapture& log) {
    return Failure(input, "cannot resample " + FormatName(format) +
                              " pixels in linear light (--mips-in-gamma-space filters them as stored)" +
                              log.Detail());
  };
  LogCapture log;
  // Relabelled, the converters treat the values as plain numbers 0 to 1.
  if (!pyramid->Reinterpret(plain)) throw fail(log);
  std::shared_ptr<Pyramid> linear = plain == kLinearFormat ? pyramid : pyramid->ConvertCopy(kLinearFormat);
  if (!linear) throw fail(log);
  // Alpha is linear already.
  ForEachPixel(*linear, [](float* rgba) {
    rgba[0] = DecodeSrgb(rgba[0]);
    rgba[1] = DecodeSrgb(rgba[1]);
    rgba[2] = DecodeSrgb(rgba[2]);
  });
  linear = ResampleSteps(std::move(linear), options, mips, type, input);
  const float bias = RoundingBias(plain);
  ForEachPixel(*linear, [bias](float* rgba) {
    rgba[0] = EncodeSrgb(rgba[0]) + bias;
    rgba[1] = EncodeSrgb(rgba[1]) + bias;
    rgba[2] = EncodeSrgb(rgba[2]) + bias;
    rgba[3] += bias;
  });
  std::shared_ptr<Pyramid> result = plain == kLinearFormat ? linear : linear->ConvertCopy(plain);
  if (!result || !result->Reinterpret(format)) throw fail(log);
  result->SetOrigin(linear->Origin());
  return result;
}

}  // namespace

std::string FormatName(const PixelFormatDescriptor& format) {
  const std::string name = NameOf(format);
  return name.empty() ? Hex(static_cast<unsigned long long>(format)) : name;
}

std::vector<Option> PipelineOptionList() {
  return {
      {"assume-srgb", nullptr, "label the input's pixels sRGB (bytes unchanged), as pictures are in practice"},
      {"resize", "WxH", "resample the top level to W x H pixels"},
      {"max-size", "N", "shrink the top level so that its longest side is at most N, keeping the aspect ratio"},
      {"pow2", nullptr, "resample the top level to power-of-two sides"},
      {"mips", nullptr, "complete the mip chain"},
      {"filter", "NAME", "mip filter: box (default), bilinear, bicubic, bspline, catmullrom, lanczos3, point"},
      {"mips-in-gamma-space", nullptr, "resample sRGB pixels as stored instead of in linear light"},
      {"format", "NAME",
       "convert the pixels to this format (name or 0x hex); block formats (DXT1-DXT5, BC4, BC5, ASTC 2-D) are "
       "encoded"},
      {"quality", "NAME", "block encoder effort: fast, normal (default) or best"},
      {"flip-vertical", nullptr, "flip every level upside down"},
      {"png-level", "N", "PNG: zlib level 0 (none) to 9 (smallest)"},
      {"png-interlaced", nullptr, "PNG: write Adam7 interlaced"},
      {"tga-rle", nullptr, "TGA: run-length encode"},
      {"hdr-rle", nullptr, "HDR: run-length encode"},
      {"jpeg-quality", "NAME", "JPEG: superb, good, normal, average or bad"},
  };
}

PipelineOptions ParsePipelineOptions(const Invocation& invocation, ImageFormat container) {
  PipelineOptions options;
  if (invocation.Has("format")) options.format = ResolveFormat(invocation.Value("format"));
  const bool encodes = options.format && IsCompressed(options.format->descriptor);
  if (encodes && !blocks::CanEncode(options.format->descriptor)) {
    throw UsageError(options.format->name, "no encoder for this block format (encodable: " + EncodableFormats() + ")");
  }
  // Also for block input resampled without --format (encoded again as it was).
  if (invocation.Has("quality")) options.quality = ParseQuality(invocation.Value("quality"));
  options.mips = invocation.Has("mips");
  if (invocation.Has("filter")) {
    if (!options.mips) throw UsageError("--filter", "only applies with --mips");
    options.filter = ParseFilter(invocation.Value("filter"));
  }
  options.assume_srgb = invocation.Has("assume-srgb");
  options.linear_light = !invocation.Has("mips-in-gamma-space");
  if (invocation.Has("resize")) {
    const std::string& text = invocation.Value("resize");
    const size_t x = text.find_first_of("xX");
    if (x == std::string::npos) throw UsageError(text, "--resize needs WIDTHxHEIGHT, e.g. 512x256");
    options.resize_width = ParseCount("resize", text.substr(0, x), 1, kMaxSide);
    options.resize_height = ParseCount("resize", text.substr(x + 1), 1, kMaxSide);
  }
  if (invocation.Has("max-size")) options.max_size = ParseCount("max-size", invocation.Value("max-size"), 1, kMaxSide);
  options.pow2 = invocation.Has("pow2");
  options.flip_vertical = invocation.Has("flip-vertical");
  options.save_flags = SaveFlags(invocation, container);
  return options;
}

ImageFormat ContainerForExtension(const std::string& extension, const std::string& subject) {
  std::string name = Lower(extension);
  if (!name.empty() && name[0] == '.') name.erase(0, 1);
  if (name.empty()) throw UsageError(subject, "no file extension to choose the output format from");
  if (name == "jpeg") name = "jpg";  // the common spelling of the JPG container
  const ImageFormat format = ImageFactory::StringToFormat(name.c_str());
  if (format == ImageFormat::UNKNOWN) {
    throw UsageError(subject, "no image format for extension '." + name + "' (writable: " + RegisteredFormats() + ")");
  }
  return format;
}

bool IsImageExtension(const std::string& extension) {
  std::string name = Lower(extension);
  if (name.size() < 2 || name[0] != '.') return false;
  name.erase(0, 1);
  if (name == "jpeg") return true;
  return ImageFactory::StringToFormat(name.c_str()) != ImageFormat::UNKNOWN;
}

ConvertedImage ConvertImage(const std::string& input, const std::string& output, ImageFormat container,
                            const PipelineOptions& options) {
  const LoadedImage loaded = LoadImage(input);
  ConvertedImage result;
  result.bytes_in = loaded.bytes.size;
  result.warnings = loaded.warnings;
  std::shared_ptr<Pyramid> pyramid = loaded.pyramid;

  if (options.assume_srgb) {
    const PixelFormatDescriptor format = pyramid->Format();
    const PixelFormatDescriptor srgb = SetSRGB(format, true);
    // Only colour is encoded: alpha-only pixels (as grey PNGs decode) and
    // float pixels stay as they are, and so does a format the library cannot name.
    const bool colour = IsCompressed(format) || HasComponent(format, PixelComponent::R) ||
                        HasComponent(format, PixelComponent::G) || HasComponent(format, PixelComponent::B) ||
                        HasComponent(format, PixelComponent::L);
    if (colour && !IsSRGB(format) && !HasFloatComponent(format) && !NameOf(srgb).empty()) {
      LogCapture log;
      if (!pyramid->Reinterpret(srgb)) {
        throw Failure(input, "cannot label " + FormatName(format) + " pixels sRGB" + log.Detail());
      }
    }
  }

  // Blocks are decoded once their pixels must change (another format, any
  // resampling) or when the container cannot store them as they are.
  // Blocks decoded only to be resampled are encoded again in their own format.
  std::optional<PixelFormatDescriptor> reencode;
  if (IsCompressed(pyramid->Format())) {
    const PixelFormatDescriptor stored = pyramid->Format();
    const bool resamples = options.resize_width != 0 || options.max_size != 0 || options.pow2 ||
                           (options.mips && !pyramid->IsComplete());
    const bool reformats = options.format && options.format->descriptor != stored;
    const bool unholdable = !options.format && !CanHold(container, stored);
    if (resamples && !reformats && !unholdable) {
      if (!blocks::CanEncode(stored)) {
        throw Failure(input, "cannot encode " + FormatName(stored) + " blocks again after resampling (no encoder); "
                             "choose a --format");
      }
      reencode = stored;
    }
    if (resamples || reformats || unholdable) {
      LogCapture log;
      std::shared_ptr<Pyramid> decoded = blocks::DecodeCopy(*pyramid);
      if (!decoded) {
        throw Failure(input, "cannot decode " + FormatName(stored) + " blocks" +
                                 (blocks::CanDecode(stored) ? log.Detail() : " (no decoder for this format)"));
      }
      pyramid = std::move(decoded);
    }
  }
  // Resampling reads the source's own pixels, so they are not rounded through a
  // smaller target format first; blocks still compressed here are written as they are.
  const bool resample_first = !IsCompressed(pyramid->Format());
  if (resample_first) pyramid = Resample(std::move(pyramid), options, input);
  if (options.format && IsCompressed(options.format->descriptor) && options.format->descriptor != pyramid->Format())
    reencode = options.format->descriptor;
  if (reencode) {
    LogCapture log;
    std::shared_ptr<Pyramid> encoded = blocks::EncodeCopy(*pyramid, *reencode, options.quality);
    if (!encoded) {
      throw Failure(input, "cannot encode " + FormatName(pyramid->Format()) + " pixels as " + FormatName(*reencode) +
                               log.Detail());
    }
    pyramid = std::move(encoded);
  }
  // The converters have no identity step: converting to the same format would fail.
  if (options.format && options.format->descriptor != pyramid->Format()) {
    const PixelFormatDescriptor source = pyramid->Format();
    LogCapture log;
    const PixelFormatDescriptor target = options.format->descriptor;
    std::shared_ptr<Pyramid> converted = pyramid->ConvertCopy(target);
    // Few converters go from sRGB to sRGB, but between two encodings of the
    // same values the plain converters (swizzles, alpha added) are exact.
    if (!converted && IsSRGB(source) && IsSRGB(target) && !IsCompressed(source) && !IsCompressed(target) &&
        pyramid->Reinterpret(SetSRGB(source, false))) {
      converted = pyramid->ConvertCopy(SetSRGB(target, false));
      if (!converted || !converted->Reinterpret(target)) {
        converted = nullptr;
        pyramid->Reinterpret(source);
      }
    }
    if (!converted) {
      throw Failure(input, "cannot convert " + FormatName(source) + " to " + options.format->name + log.Detail());
    }
    pyramid = std::move(converted);
  }
  if (!resample_first) pyramid = Resample(std::move(pyramid), options, input);
  if (options.flip_vertical) {
    LogCapture log;
    if (!pyramid->FlipVertical()) {
      throw Failure(input, "cannot flip " + FormatName(pyramid->Format()) + " pixels" + log.Detail());
    }
  }

  if (!CanHold(container, pyramid->Format())) throw Failure(output, CannotHold(container, pyramid->Format()));
  {
    LogCapture log;
    result.file = ImageFactory::Instance()->Serialize(container, pyramid.get(), &result.size, options.save_flags);
    if (!result.file) {
      throw Failure(output, std::string("cannot write ") + FormatName(pyramid->Format()) + " pixels as " +
                                ImageFactory::FormatToString(container) + log.Detail());
    }
  }
  result.pyramid = std::move(pyramid);
  return result;
}

}  // namespace lumo::image::cli
