#include "lumo/image/image_factory.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>

#include "lumo/image/surface_data.h"
#include "plugins/astc.h"
#include "plugins/bmp.h"
#include "plugins/dds.h"
#include "plugins/gif.h"
#include "plugins/hdr.h"
#include "plugins/jpeg.h"
#include "plugins/ktx.h"
#include "plugins/pkm.h"
#include "plugins/png.h"
#include "plugins/pvr.h"
#include "plugins/tga.h"

namespace lumo::image {

const int ISF_BMP_DEFAULT = 0;
const int ISF_BMP_SAVE_RLE = 1;
const int ISF_JPEG_QUALITYSUPERB = 0x80;
const int ISF_JPEG_QUALITYGOOD = 0x100;
const int ISF_JPEG_QUALITYNORMAL = 0x200;
const int ISF_JPEG_QUALITYAVERAGE = 0x400;
const int ISF_JPEG_QUALITYBAD = 0x800;
const int ISF_PNG_DEFAULT = 0;
const int ISF_PNG_Z_BEST_SPEED = 1;
const int ISF_PNG_Z_DEFAULT_COMPRESSION = 6;
const int ISF_PNG_Z_BEST_COMPRESSION = 9;
const int ISF_PNG_Z_NO_COMPRESSION = 0x100;
const int ISF_PNG_INTERLACED = 0x200;
const int ISF_TARGA_DEFAULT = 0;
const int ISF_TARGA_SAVE_RLE = 2;
const int ISF_OPENEXR_NONE = 0;
const int ISF_OPENEXR_RLE = 1;
const int ISF_OPENEXR_ZIPS = 2;
const int ISF_OPENEXR_ZIP = 3;
const int ISF_OPENEXR_PIZ = 4;
const int ISF_OPENEXR_PXR24 = 5;
const int ISF_OPENEXR_B44 = 6;
const int ISF_OPENEXR_B44A = 7;
const int ISF_OPENEXR_DWAA = 8;
const int ISF_OPENEXR_DWAB = 9;
const int ISF_HDR_NOCOMPRESS = 0;
const int ISF_HDR_RLE = 1;
const int ISF_CRN_NOPERCEPTUAL = 0x100;
const int ISF_CRN_NOHIERARCHICAL = 0x200;
const int ISF_CRN_QUICK = 0x400;
const int ISF_CRN_GRAYSCALE = 0x800;
const int ISF_CRN_QUALITYMASK = 0xFF;
const int ISF_KTX2_ZSTD = 0x100;
const int ISF_KTX2_ZLIB = 0x200;
const int ISF_KTX2_SUPERCOMPRESSION_SCHEME_MASK = 0xF00;
const int ISF_KTX2_COMPRESS_LEVEL_MASK = 0x3F;

const std::shared_ptr<Image> Image::Null;

Image::~Image() = default;

ImageOrigin Image::Origin() const { return ImageOrigin::TopDown; }

ImagePlugin::~ImagePlugin() = default;

std::shared_ptr<char> ImagePlugin::Serialize(const Pyramid* pyramid, size_t* size, int flags) {
  // Writers of single pictures take level 0, surface 0.
  if (pyramid == nullptr) return nullptr;
  const std::shared_ptr<Surface> surface = pyramid->GetSurface(0, 0);
  if (!surface || !surface->Data()) return nullptr;
  return Serialize(surface->Data().get(), size, flags);
}

namespace {

int Index(ImageFormat format) { return static_cast<int>(format); }

// Formats are used as table indexes; numbers outside the table name no plugin.
bool InTable(int index, int size) { return index >= 0 && index < size; }

std::string Lower(const char* text) {
  std::string lower = text != nullptr ? text : "";
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower;
}

}  // namespace

ImageFactory::ImageFactory() : plugins_{} {
  order_.reserve(kTableSize);
  // Registration order is detection order (new plugins: see CONTRIBUTING.md).
  Register(detail::BMPPlugin());
  Register(detail::JPGPlugin());
  Register(detail::PNGPlugin());
  Register(detail::TGAPlugin());
  Register(detail::GIFPlugin());
  Register(detail::HDRPlugin());
  Register(detail::DDSPlugin());
  Register(detail::KTXPlugin());
  Register(detail::PKMPlugin());
  Register(detail::PVRPlugin());
  Register(detail::ASTCPlugin());
  Register(detail::PKMAPlugin());
}

ImageFactory::~ImageFactory() = default;

ImageFactory* ImageFactory::Instance() {
  static ImageFactory factory;
  return &factory;
}

void ImageFactory::Register(ImagePlugin* plugin) {
  if (plugin == nullptr) return;
  const int index = Index(plugin->Format());
  if (!InTable(index, kTableSize)) return;
  plugins_[index] = plugin;
  if (std::find(order_.begin(), order_.end(), index) == order_.end()) order_.push_back(index);
}

void ImageFactory::Unregister(ImageFormat format) {
  const int index = Index(format);
  if (!InTable(index, kTableSize)) return;
  plugins_[index] = nullptr;
  order_.erase(std::remove(order_.begin(), order_.end(), index), order_.end());
}

bool ImageFactory::IsRegistered(ImageFormat format) const {
  const int index = Index(format);
  return InTable(index, kTableSize) && plugins_[index] != nullptr;
}

bool ImageFactory::CheckFormat(ImageFormat format, const char* data, size_t size) const {
  return IsRegistered(format) && plugins_[Index(format)]->CheckFormat(data, size);
}

ImageFormat ImageFactory::GetFormat(const char* data, size_t size) {
  for (const int index : order_) {
    ImagePlugin* plugin = plugins_[index];
    if (plugin != nullptr && plugin->CheckFormat(data, size)) return plugin->Format();
  }
  return ImageFormat::UNKNOWN;
}

std::shared_ptr<Image> ImageFactory::Create(const std::shared_ptr<char>& data, size_t size) {
  return Create(GetFormat(data.get(), size), data, size);
}

std::shared_ptr<Image> ImageFactory::Create(const char* data, size_t size) {
  return Create(GetFormat(data, size), data, size);
}

std::shared_ptr<Image> ImageFactory::Create(ImageFormat format, const std::shared_ptr<char>& data, size_t size) {
  if (!IsRegistered(format)) return Image::Null;
  return plugins_[Index(format)]->Create(data, size);
}

std::shared_ptr<Image> ImageFactory::Create(ImageFormat format, const char* data, size_t size) {
  if (!IsRegistered(format)) return Image::Null;
  ImagePlugin* plugin = plugins_[Index(format)];
  if (plugin->SharesSourceBuffer()) {
    // The image views its bytes, so it gets a copy that lives as long as it does.
    std::shared_ptr<char> copy(new char[size == 0 ? 1 : size], array_deleter());
    if (size != 0) std::memcpy(copy.get(), data, size);
    return plugin->Create(copy, size);
  }
  // The decoder reads the bytes during the call only.
  return plugin->Create(std::shared_ptr<char>(const_cast<char*>(data), null_deleter()), size);
}

std::shared_ptr<char> ImageFactory::Serialize(ImageFormat format, const Pyramid* pyramid, size_t* size, int flags) {
  if (!IsRegistered(format)) return nullptr;
  return plugins_[Index(format)]->Serialize(pyramid, size, flags);
}

std::shared_ptr<char> ImageFactory::Serialize(ImageFormat format, const SurfaceData* surface, size_t* size, int flags) {
  if (!IsRegistered(format)) return nullptr;
  return plugins_[Index(format)]->Serialize(surface, size, flags);
}

const char* ImageFactory::FormatToString(ImageFormat format) {
  ImageFactory* factory = Instance();
  return factory->IsRegistered(format) ? factory->plugins_[Index(format)]->Name() : "UNKNOWN";
}

ImageFormat ImageFactory::StringToFormat(const char* text) {
  ImageFactory* factory = Instance();
  const std::string wanted = Lower(text);
  for (const int index : factory->order_) {
    ImagePlugin* plugin = factory->plugins_[index];
    if (plugin != nullptr && Lower(plugin->Name()) == wanted) return plugin->Format();
  }
  return ImageFormat::UNKNOWN;
}

PixelFormatDescriptor ImageFactory::DefaultPixelFormat() { return formats::A8R8G8B8; }

// ---- The ToImage operations of the data model ----

namespace {

// The data model counts sizes in unsigned long long, the plugins in size_t.
template <typename Source>
std::shared_ptr<char> Encode(ImageFormat format, const Source* source, unsigned long long* size, int flags) {
  size_t written = 0;
  std::shared_ptr<char> file = ImageFactory::Instance()->Serialize(format, source, &written, flags);
  if (file && size != nullptr) *size = written;
  return file;
}

}  // namespace

std::shared_ptr<char> SurfaceData::ToImage(ImageFormat format, unsigned long long* size, int flags) {
  return Encode(format, static_cast<const SurfaceData*>(this), size, flags);
}

std::shared_ptr<char> Pyramid::ToImage(ImageFormat format, unsigned long long* size, int flags) {
  return Encode(format, static_cast<const Pyramid*>(this), size, flags);
}

}  // namespace lumo::image
