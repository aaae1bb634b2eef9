#include "pictures.h"

#include "cli.h"
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

}  // namespace

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
          surface && surface->Data() ? surface->Data()->ConvertCopy(formats::A32fB32fG32fR32f) : nullptr;
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
