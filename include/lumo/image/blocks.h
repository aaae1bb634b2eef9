// Block-compressed pixels decoded to and encoded from plain ones.
//
// This is the companion library lmimage::blocks (lmimage_blocks). The core
// library only sizes, copies and labels compressed pixels and never links
// this one; link it where a pipeline must make BC or ASTC textures, a runtime
// must fall back to RGBA, or a tool must show what blocks hold.
//
// Decoded formats (DecodedFormat):
//   8-bit colour formats (BC1-BC3, BC4/BC5 unsigned, BC7, ETC1/ETC2, ATC,
//   PVRTC, ASTC)                       -> A8B8G8R8 (s_A8B8G8R8 when sRGB)
//   BC4/BC5 signed                     -> A8sB8sG8sR8s
//   EAC R11/RG11                       -> A16B16G16R16 (signed: A16sB16sG16sR16s)
//   BC6H (signed and unsigned)         -> A16fB16fG16fR16f
// Channels a format lacks read 0 (green, blue) and opaque (alpha). DXT2 and
// DXT4 decode as stored, i.e. with colour premultiplied by alpha.
#pragma once

#include <memory>

#include "lumo/image/compressed_formats.h"
#include "lumo/image/formats.h"

#if defined(_WIN32)
#  if defined(LUMO_BLOCKS_BUILDING)
#    define LUMO_BLOCKS_API __declspec(dllexport)
#  else
#    define LUMO_BLOCKS_API __declspec(dllimport)
#  endif
#else
#  define LUMO_BLOCKS_API __attribute__((visibility("default")))
#endif

namespace lumo::image {

class Converter;
class ConverterManager;
class Pyramid;
class SurfaceData;
class VolumeData;

namespace blocks {

// Encoder effort; decoding has no setting.
enum class Quality : int { Fast = 0, Normal = 1, Best = 2 };

// The uncompressed format `format` decodes to (see above), or the zero
// descriptor when nothing here decodes it.
LUMO_BLOCKS_API PixelFormatDescriptor DecodedFormat(const PixelFormatDescriptor& format);
LUMO_BLOCKS_API bool CanDecode(const PixelFormatDescriptor& format);
// BC1-BC5 (DXT1, DXT1_A1, DXT2-DXT5, BC4/BC5 both signs) and 2-D ASTC.
LUMO_BLOCKS_API bool CanEncode(const PixelFormatDescriptor& format);

// Decodes the blocks of one width x height x depth image of `format` (depth 1
// except for volumes of 3-D ASTC blocks, which decode whole) into `out`:
// pixels of DecodedFormat(format), rows `out_bytes_per_row` apart, slices
// height rows apart. False, with nothing promised about `out`, when the format
// has no decoder, `blocks_size` is shorter than the blocks the size needs, or
// `out_size` is shorter than the pixels.
LUMO_BLOCKS_API bool DecodeBlocks(const PixelFormatDescriptor& format, const void* blocks,
                                  unsigned long long blocks_size, unsigned long long width,
                                  unsigned long long height, unsigned long long depth, void* out,
                                  unsigned long long out_size, unsigned long long out_bytes_per_row);

// Encodes a width x height picture of A8B8G8R8 pixels (rows
// `pixels_bytes_per_row` apart) into blocks of `format` (CanEncode). `out`
// receives BytesTotal(format, width, height, 0) bytes. False when the format
// has no encoder or a buffer is too short.
LUMO_BLOCKS_API bool EncodeBlocks(const PixelFormatDescriptor& format, const void* pixels,
                                  unsigned long long pixels_size, unsigned long long pixels_bytes_per_row,
                                  unsigned long long width, unsigned long long height, void* out,
                                  unsigned long long out_size, Quality quality);

// Surfaces, volumes and whole pyramids (every level, face, layer and slice).
// Null where something cannot be decoded or encoded. Decoding an uncompressed
// source is refused, not copied. Encoding converts the source to A8B8G8R8 first.
LUMO_BLOCKS_API std::shared_ptr<SurfaceData> DecodeCopy(const SurfaceData& source);
LUMO_BLOCKS_API std::shared_ptr<VolumeData> DecodeCopy(const VolumeData& source);
LUMO_BLOCKS_API std::shared_ptr<Pyramid> DecodeCopy(const Pyramid& source);
LUMO_BLOCKS_API std::shared_ptr<SurfaceData> EncodeCopy(const SurfaceData& source, const PixelFormatDescriptor& format,
                                                        Quality quality);
LUMO_BLOCKS_API std::shared_ptr<Pyramid> EncodeCopy(const Pyramid& source, const PixelFormatDescriptor& format,
                                                    Quality quality);

// Registers a decoder for every decodable format with `manager` (from the
// format to its DecodedFormat, and to A8B8G8R8 where that differs only by the
// sRGB flag is left to the manager's chains), so that ConvertCopy of a
// compressed surface works everywhere. Encoders are not registered: a chain
// between two plain formats must never pass through a lossy block format.
// Returns the number of pairs added (existing pairs are kept).
LUMO_BLOCKS_API int RegisterDecoders(ConverterManager& manager);

}  // namespace blocks
}  // namespace lumo::image
