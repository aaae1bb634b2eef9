#include "pictures.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "cli.h"
#include "lumo/image/half.h"
#include "file_io.h"
#include "lumo/image/blocks.h"
#include "lumo/image/mipmaps.h"
#include "pipeline.h"

namespace lumo::image::cli {
namespace {

const char* const kFaceNames[6] = {"+X", "-X", "+Y", "-Y", "+Z", "-Z"};

std::string IndexLabel(MipmapType type, unsigned long long index, unsigned long long per_layer) {
  switch (type) {
    case MipmapType::Cube:
      return std::string(" face ") + kFaceNames[index % 6];
    case MipmapType::Volume:
      return " slice " + std::to_string(index);
    case MipmapType::SurfaceArray:
      if (per_layer == 6) return " layer " + std::to_string(index / 6) + " face " + kFaceNames[index % 6];
      return " layer " + std::to_string(index);
    default:
      return "";
  }
}

// One component of a pixel read as a little-endian integer: slot 0 holds the
// highest bits, the last slot the lowest.
float ComponentValue(std::uint64_t field, const ComponentMeta& c, bool unnormalized) {
  if (c.is_float && c.bits == 16) return static_cast<float>(half_float::half::FromBits(static_cast<std::uint16_t>(field)));
  if (c.is_float && c.bits == 32) {
    float value;
    const auto bits = static_cast<std::uint32_t>(field);
    std::memcpy(&value, &bits, 4);
    return value;
  }
  if (c.is_signed) {
    const std::int64_t value = (field & (1ull << (c.bits - 1))) ? static_cast<std::int64_t>(field) - (1ll << c.bits)
                                                                : static_cast<std::int64_t>(field);
    if (unnormalized) return static_cast<float>(value);
    return std::max(-1.0f, static_cast<float>(value) / static_cast<float>((1ull << (c.bits - 1)) - 1));
  }
  if (unnormalized) return static_cast<float>(field);
  return static_cast<float>(static_cast<double>(field) / static_cast<double>((1ull << c.bits) - 1));
}

// Reads any plain format up to 64 bits per pixel field by field, for the
// formats the converters have no path from (two-channel floats, for one).
std::shared_ptr<SurfaceData> Unpack(const SurfaceData& data) {
  PixelFormatMeta meta{};
  unsigned long long divisor = 0;
  const unsigned long long bits = BitsPerPixel(data.Format(), &divisor);
  if (!ParseFormat(data.Format(), &meta) || meta.compressed || divisor != 1 || bits == 0 || bits > 64)
    return SurfaceData::Null;
  const std::shared_ptr<SurfaceDataBitmap> out =
      SurfaceDataBitmap::Create(data.Width(), data.Height(), formats::A32fB32fG32fR32f, 2);
  if (!out) return SurfaceData::Null;
  for (unsigned long long y = 0; y < data.Height(); ++y) {
    const auto* row = reinterpret_cast<const std::uint8_t*>(data.Buffer() + y * data.BytesPerRow());
    float* pixel = reinterpret_cast<float*>(out->Buffer() + y * out->BytesPerRow());
    for (unsigned long long x = 0; x < data.Width(); ++x, pixel += 4) {
      std::uint64_t value = 0;
      const unsigned long long first = x * bits;
      for (unsigned long long b = 0; b < (first % 8 + bits + 7) / 8; ++b)
        value |= static_cast<std::uint64_t>(row[first / 8 + b]) << (8 * b);
      value >>= first % 8;
      pixel[0] = pixel[1] = pixel[2] = 0.0f;
      pixel[3] = 1.0f;
      unsigned shift = 0;
      for (int slot = 3; slot >= 0; --slot) {
        const ComponentMeta& c = meta.components[slot];
        if (c.component == PixelComponent::None || c.bits == 0) continue;
        const std::uint64_t field = c.bits >= 64 ? value : (value >> shift) & ((1ull << c.bits) - 1);
        shift += static_cast<unsigned>(c.bits);
        const float v = ComponentValue(field, c, meta.unnormalized);
        switch (c.component) {
          case PixelComponent::R: case PixelComponent::D: pixel[0] = v; break;
          case PixelComponent::G: pixel[1] = v; break;
          case PixelComponent::B: pixel[2] = v; break;
          case PixelComponent::A: pixel[3] = v; break;
          case PixelComponent::L: pixel[0] = pixel[1] = pixel[2] = v; break;
          default: break;
        }
      }
    }
  }
  return out;
}

// Float RGBA of any plain surface. Values are compared and shown as stored,
// so an sRGB label is dropped first (few converters leave sRGB formats), and
// formats without a direct path go through a wider one of their kind.
std::shared_ptr<SurfaceData> ToFloat(const SurfaceData& data) {
  std::shared_ptr<SurfaceData> source;
  const SurfaceData* from = &data;
  if (IsSRGB(data.Format())) {
    source = data.CropCopy(0, 0, data.Width(), data.Height());
    if (!source || !source->Reinterpret(SetSRGB(data.Format(), false))) return SurfaceData::Null;
    from = source.get();
  }
  if (std::shared_ptr<SurfaceData> direct = from->ConvertCopy(formats::A32fB32fG32fR32f)) return direct;
  return Unpack(*from);
}

}  // namespace

void WritePng(const std::shared_ptr<SurfaceData>& image, const std::string& path, const std::string& what) {
  size_t size = 0;
  LogCapture log;
  const std::shared_ptr<Pyramid> pyramid = Pyramid::Make(std::make_shared<Surface>(image), ImageOrigin::TopDown);
  const std::shared_ptr<char> file = ImageFactory::Instance()->Serialize(ImageFormat::PNG, pyramid.get(), &size, 0);
  if (!file) throw Failure(path, "cannot encode " + what + " as PNG" + log.Detail());
  WriteFileAtomically(path, file.get(), size);
}

Channels ChannelsOf(const PixelFormatDescriptor& format) {
  Channels channels;
  const bool grey = !IsCompressed(format) && HasComponent(format, PixelComponent::L);
  channels.present[0] = grey || HasComponent(format, PixelComponent::R);
  channels.present[1] = grey || HasComponent(format, PixelComponent::G);
  channels.present[2] = grey || HasComponent(format, PixelComponent::B);
  channels.present[3] = HasAlpha(format);
  const CompressFormat block = GetCompressFormat(format);
  channels.is_float = HasFloatComponent(format) || block == CompressFormat::BC6H_unsigned ||
                      block == CompressFormat::BC6H_signed;
  PixelFormatMeta meta{};
  if (IsCompressed(format)) {
    channels.is_signed = IsSignedCompressFormat(format);
  } else if (ParseFormat(format, &meta)) {
    for (const ComponentMeta& component : meta.components)
      if (component.bits != 0 && component.is_signed && !component.is_float) channels.is_signed = true;
  }
  return channels;
}

std::vector<Element> Elements(const Pyramid& source, const std::string& path) {
  std::shared_ptr<Pyramid> pyramid;
  {
    LogCapture log;
    const PixelFormatDescriptor format = source.Format();
    if (IsCompressed(format)) {
      pyramid = blocks::DecodeCopy(source);
      if (!pyramid) {
        throw Failure(path, "cannot decode " + FormatName(format) + " blocks" +
                                (blocks::CanDecode(format) ? log.Detail() : " (no decoder for this format)"));
      }
    } else {
      pyramid = std::make_shared<Pyramid>(source);
    }
  }
  std::vector<Element> elements;
  for (unsigned long long level = 0; level < pyramid->LevelsCurrent(); ++level) {
    const std::shared_ptr<Mipmap> mipmap = pyramid->GetMipmap(level);
    if (!mipmap) throw Failure(path, "level " + std::to_string(level) + " is empty");
    const unsigned long long count = mipmap->GetSurfaceCount();
    const unsigned long long per_layer = mipmap->ArrayLength() != 0 ? count / mipmap->ArrayLength() : 1;
    for (unsigned long long index = 0; index < count; ++index) {
      const std::shared_ptr<Surface> surface = mipmap->GetSurface(index);
      LogCapture log;
      std::shared_ptr<SurfaceData> pixels =
          surface && surface->Data() ? ToFloat(*surface->Data()) : nullptr;
      if (!pixels || (pyramid->Origin() == ImageOrigin::BottomUp && !pixels->FlipVertical())) {
        throw Failure(path, "cannot read " + FormatName(mipmap->Format()) + " pixels of level " +
                                std::to_string(level) + log.Detail());
      }
      elements.push_back(Element{level, index,
                                 "level " + std::to_string(level) + IndexLabel(mipmap->Type(), index, per_layer),
                                 std::move(pixels)});
    }
  }
  return elements;
}

}  // namespace lumo::image::cli
