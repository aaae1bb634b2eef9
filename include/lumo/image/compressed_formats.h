// Block-compressed formats: footprints, block sizes, minimum image sizes,
// channel presence, signed/unsigned partners and constant filler blocks.
// The library sizes, copies and labels compressed data; it never decodes it.
#pragma once

#include <cstdint>

#include "lumo/image/export.h"

namespace lumo::image {

enum class PixelFormatDescriptor : unsigned long long;

enum class CompressFormat : std::uint32_t {
  None = 0,
  DXT1 = 1,
  DXT1_A1 = 2,
  DXT2 = 3,
  DXT3 = 4,
  DXT4 = 5,
  DXT5 = 6,
  PVRTC_2bpp_RGB = 7,
  PVRTC_2bpp_RGBA = 8,
  PVRTC_4bpp_RGB = 9,
  PVRTC_4bpp_RGBA = 10,
  PVRTC2_2bpp = 11,
  PVRTC2_4bpp = 12,
  ETC1 = 13,
  ETC2_RGB8 = 14,
  ETC2_RGBA8 = 15,
  ETC2_RGB8A1 = 16,
  EAC_R11 = 17,
  EAC_SIGNED_R11 = 18,
  EAC_RG11 = 19,
  EAC_SIGNED_RG11 = 20,
  ATC_RGB = 21,
  ATC_RGBA_EXPLICIT_ALPHA = 22,
  ATC_RGBA_INTERPOLATED_ALPHA = 23,
  BC4_unsigned = 24,
  BC4_signed = 25,
  BC5_unsigned = 26,
  BC5_signed = 27,
  BC6H_unsigned = 28,
  BC6H_signed = 29,
  BC7 = 30,
  ASTC_RGBA_4x4 = 31,
  ASTC_RGBA_5x4 = 32,
  ASTC_RGBA_5x5 = 33,
  ASTC_RGBA_6x5 = 34,
  ASTC_RGBA_6x6 = 35,
  ASTC_RGBA_8x5 = 36,
  ASTC_RGBA_8x6 = 37,
  ASTC_RGBA_8x8 = 38,
  ASTC_RGBA_10x5 = 39,
  ASTC_RGBA_10x6 = 40,
  ASTC_RGBA_10x8 = 41,
  ASTC_RGBA_10x10 = 42,
  ASTC_RGBA_12x10 = 43,
  ASTC_RGBA_12x12 = 44,
  ASTC_RGBA_3x3x3 = 45,
  ASTC_RGBA_4x3x3 = 46,
  ASTC_RGBA_4x4x3 = 47,
  ASTC_RGBA_4x4x4 = 48,
  ASTC_RGBA_5x4x4 = 49,
  ASTC_RGBA_5x5x4 = 50,
  ASTC_RGBA_5x5x5 = 51,
  ASTC_RGBA_6x5x5 = 52,
  ASTC_RGBA_6x6x5 = 53,
  ASTC_RGBA_6x6x6 = 54,
};

// Every function answers any value, including ones outside the enumeration,
// with a neutral result (0, 0 x 0, 1 x 1, null, false).

// 2-D block footprint; 1 x 1 for non-block values and for the 3-D ASTC formats.
LUMO_IMAGE_API void CompressFormatBlockDimension(CompressFormat, unsigned char* width, unsigned char* height);
// 3-D footprint: depth 1 below the 3-D ASTC formats.
LUMO_IMAGE_API void CompressFormatBlockDimension(CompressFormat, unsigned char* width, unsigned char* height,
                                                 unsigned char* depth);
// ASTC footprints only: 0 x 0 (x 1) for anything that is not ASTC of that dimensionality.
LUMO_IMAGE_API void ASTCBlockDimension(CompressFormat, unsigned char* width, unsigned char* height);
LUMO_IMAGE_API void ASTCBlockDimension(CompressFormat, unsigned char* width, unsigned char* height,
                                       unsigned char* depth);
LUMO_IMAGE_API unsigned long long CompressFormatBytesPerBlock(CompressFormat);
LUMO_IMAGE_API void CompressFormatMinimumSize(CompressFormat, unsigned long long* width, unsigned long long* height);
LUMO_IMAGE_API void CompressFormatMinimumSize(CompressFormat, unsigned long long* width, unsigned long long* height,
                                              unsigned long long* depth);
// A constant block that decodes to full intensity in every channel the format
// has, or null where none exists. *size (if given) always receives the format's
// bytes per block.
LUMO_IMAGE_API const char* CompressFormatDummyBlock(CompressFormat, unsigned long long* size);
LUMO_IMAGE_API bool CompressHasAlpha(CompressFormat);
LUMO_IMAGE_API bool CompressHasGreen(CompressFormat);
LUMO_IMAGE_API bool CompressHasBlue(CompressFormat);
// Signed partner of an unsigned format, else None.
LUMO_IMAGE_API CompressFormat GetSignedCompressFormat(CompressFormat);
// Unsigned partner of a signed format, else the input unchanged.
LUMO_IMAGE_API CompressFormat GetUnsignedCompressFormat(CompressFormat);

// Descriptor forms: an uncompressed descriptor behaves as CompressFormat::None.
LUMO_IMAGE_API CompressFormat GetCompressFormat(const PixelFormatDescriptor&);
LUMO_IMAGE_API void CompressFormatBlockDimension(const PixelFormatDescriptor&, unsigned char* width,
                                                 unsigned char* height);
LUMO_IMAGE_API void CompressFormatBlockDimension(const PixelFormatDescriptor&, unsigned char* width,
                                                 unsigned char* height, unsigned char* depth);
LUMO_IMAGE_API void ASTCBlockDimension(const PixelFormatDescriptor&, unsigned char* width, unsigned char* height);
LUMO_IMAGE_API void ASTCBlockDimension(const PixelFormatDescriptor&, unsigned char* width, unsigned char* height,
                                       unsigned char* depth);
LUMO_IMAGE_API unsigned long long CompressFormatBytesPerBlock(const PixelFormatDescriptor&);
LUMO_IMAGE_API bool IsASTC(const PixelFormatDescriptor&);
LUMO_IMAGE_API bool IsPVRTCv1(const PixelFormatDescriptor&);
LUMO_IMAGE_API bool IsSignedCompressFormat(const PixelFormatDescriptor&);

}  // namespace lumo::image
