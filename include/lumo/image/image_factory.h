// Image files: the factory that detects file formats and dispatches to one
// plugin per format, the plugin and image interfaces, and the save flags.
// The library does no file I/O: callers hand in bytes and receive bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "lumo/image/export.h"
#include "lumo/image/formats.h"
#include "lumo/image/mipmaps.h"
#include "lumo/image/pyramid.h"

namespace lumo::image {

class SurfaceData;

// File format numbers; part of the exported interface (gaps are unused numbers,
// and every number the factory accepts is below 64).
enum class ImageFormat : int {
  UNKNOWN = 0,
  BMP = 1,
  JPG = 2,
  PNG = 3,
  TGA = 4,
  GIF = 5,
  HDR = 8,
  DDS = 32,
  KTX = 33,
  PKM = 34,
  PVR = 35,
  ASTC = 36,
  PKMA = 38,
};

// Save flags of Serialize; their meaning depends on the target format.
LUMO_IMAGE_API extern const int ISF_BMP_DEFAULT;
LUMO_IMAGE_API extern const int ISF_BMP_SAVE_RLE;
LUMO_IMAGE_API extern const int ISF_JPEG_QUALITYSUPERB;
LUMO_IMAGE_API extern const int ISF_JPEG_QUALITYGOOD;
LUMO_IMAGE_API extern const int ISF_JPEG_QUALITYNORMAL;
LUMO_IMAGE_API extern const int ISF_JPEG_QUALITYAVERAGE;
LUMO_IMAGE_API extern const int ISF_JPEG_QUALITYBAD;
LUMO_IMAGE_API extern const int ISF_PNG_DEFAULT;
LUMO_IMAGE_API extern const int ISF_PNG_Z_BEST_SPEED;
LUMO_IMAGE_API extern const int ISF_PNG_Z_DEFAULT_COMPRESSION;
LUMO_IMAGE_API extern const int ISF_PNG_Z_BEST_COMPRESSION;
LUMO_IMAGE_API extern const int ISF_PNG_Z_NO_COMPRESSION;
LUMO_IMAGE_API extern const int ISF_PNG_INTERLACED;
LUMO_IMAGE_API extern const int ISF_TARGA_DEFAULT;
LUMO_IMAGE_API extern const int ISF_TARGA_SAVE_RLE;
LUMO_IMAGE_API extern const int ISF_OPENEXR_NONE;
LUMO_IMAGE_API extern const int ISF_OPENEXR_RLE;
LUMO_IMAGE_API extern const int ISF_OPENEXR_ZIPS;
LUMO_IMAGE_API extern const int ISF_OPENEXR_ZIP;
LUMO_IMAGE_API extern const int ISF_OPENEXR_PIZ;
LUMO_IMAGE_API extern const int ISF_OPENEXR_PXR24;
LUMO_IMAGE_API extern const int ISF_OPENEXR_B44;
LUMO_IMAGE_API extern const int ISF_OPENEXR_B44A;
LUMO_IMAGE_API extern const int ISF_OPENEXR_DWAA;
LUMO_IMAGE_API extern const int ISF_OPENEXR_DWAB;
LUMO_IMAGE_API extern const int ISF_HDR_NOCOMPRESS;
LUMO_IMAGE_API extern const int ISF_HDR_RLE;
LUMO_IMAGE_API extern const int ISF_CRN_NOPERCEPTUAL;
LUMO_IMAGE_API extern const int ISF_CRN_NOHIERARCHICAL;
LUMO_IMAGE_API extern const int ISF_CRN_QUICK;
LUMO_IMAGE_API extern const int ISF_CRN_GRAYSCALE;
LUMO_IMAGE_API extern const int ISF_CRN_QUALITYMASK;
LUMO_IMAGE_API extern const int ISF_KTX2_ZSTD;
LUMO_IMAGE_API extern const int ISF_KTX2_ZLIB;
LUMO_IMAGE_API extern const int ISF_KTX2_SUPERCOMPRESSION_SCHEME_MASK;
LUMO_IMAGE_API extern const int ISF_KTX2_COMPRESS_LEVEL_MASK;

// Decode limit: the largest picture, in pixels (width x height, x depth for
// volumes), that a decoder allocates pixel memory for. A file declaring more
// is refused with one log line before anything is allocated, so a tiny file
// cannot make the process allocate gigabytes. Views over the caller's buffer
// (DDS and the other GPU containers) allocate no pixels and are not limited.
// The default, 2^28 pixels, is a 16384 x 16384 picture. The setting is
// library-wide and may be changed at any time, also while other threads decode.
inline constexpr unsigned long long kDefaultMaxDecodePixels = 1ull << 28;
LUMO_IMAGE_API void SetMaxDecodePixels(unsigned long long pixels);
LUMO_IMAGE_API unsigned long long MaxDecodePixels();

// A decoded file.
class LUMO_IMAGE_API Image {
 public:
  static const std::shared_ptr<Image> Null;

  Image() = default;
  Image(const Image&) = default;
  Image& operator=(const Image&) = default;
  virtual ~Image();

  // alpha == false: the image's pyramid; true: its separate alpha pyramid
  // (only some containers carry one), else Null.
  virtual std::shared_ptr<Pyramid> GetPyramid(bool alpha) = 0;
  virtual MipmapType Type() = 0;
  virtual bool IsArray() = 0;
  virtual bool HasAlphaPyramid() = 0;
  virtual ImageFormat Format() = 0;
  virtual size_t Width() = 0;
  virtual size_t Height() = 0;
  virtual ImageOrigin Origin() const;  // TopDown
};

// One file format. Plugins are stateless; the factory never owns or deletes one.
class LUMO_IMAGE_API ImagePlugin {
 public:
  ImagePlugin() = default;
  ImagePlugin(const ImagePlugin&) = default;
  ImagePlugin& operator=(const ImagePlugin&) = default;
  virtual ~ImagePlugin();

  virtual ImageFormat Format() = 0;
  virtual const char* Name() = 0;
  // Signature test; never reads beyond `size` bytes.
  virtual bool CheckFormat(const char* data, size_t size) = 0;
  // True when decoded images keep pointing into the buffer given to Create.
  virtual bool SharesSourceBuffer() = 0;
  virtual std::shared_ptr<Image> Create(const std::shared_ptr<char>& data, size_t size) = 0;
  // Writes a whole pyramid; the default writes level 0, surface 0 only.
  virtual std::shared_ptr<char> Serialize(const Pyramid* pyramid, size_t* size, int flags);
  // On success *size is the length of the returned buffer; on failure it is untouched.
  virtual std::shared_ptr<char> Serialize(const SurfaceData* surface, size_t* size, int flags) = 0;
};

class LUMO_IMAGE_API ImageFactory {
 public:
  // The singleton, with the built-in plugins registered (their order is the detection order).
  static ImageFactory* Instance();

  ImageFactory(const ImageFactory&) = default;
  ImageFactory& operator=(const ImageFactory&) = default;
  ~ImageFactory();

  // Replaces any plugin of the same format; a new format is detected last.
  // Must not overlap any other use of the factory.
  void Register(ImagePlugin* plugin);
  void Unregister(ImageFormat format);
  bool IsRegistered(ImageFormat format) const;
  bool CheckFormat(ImageFormat format, const char* data, size_t size) const;
  // The first registered plugin whose signature test accepts the bytes, or UNKNOWN.
  ImageFormat GetFormat(const char* data, size_t size);

  std::shared_ptr<Image> Create(const std::shared_ptr<char>& data, size_t size);
  // Plugins whose images view the file bytes get a copy, so the caller may free its buffer.
  std::shared_ptr<Image> Create(const char* data, size_t size);
  std::shared_ptr<Image> Create(ImageFormat format, const std::shared_ptr<char>& data, size_t size);
  std::shared_ptr<Image> Create(ImageFormat format, const char* data, size_t size);

  std::shared_ptr<char> Serialize(ImageFormat format, const Pyramid* pyramid, size_t* size, int flags);
  std::shared_ptr<char> Serialize(ImageFormat format, const SurfaceData* surface, size_t* size, int flags);

  // The registered plugin's name, or "UNKNOWN".
  static const char* FormatToString(ImageFormat format);
  // Case-insensitive match against the registered plugins' names; UNKNOWN when none.
  static ImageFormat StringToFormat(const char* text);
  // A8R8G8B8.
  PixelFormatDescriptor DefaultPixelFormat();

 private:
  static constexpr int kTableSize = 64;

  ImageFactory();

  ImagePlugin* plugins_[kTableSize];
  std::vector<int> order_;
};

}  // namespace lumo::image
