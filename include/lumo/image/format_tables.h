// Translation of pixel formats to and from the numbers that graphics
// interfaces and containers use: Direct3D 9 formats and FourCC codes, DXGI,
// OpenGL (format/type/internal format, and compressed internal formats),
// Metal, Vulkan and the engine's own texture-format codes.
//
// To...Format compares the descriptor's full 64-bit value; a miss gives 0
// (ToGLFormat: false with its outputs untouched). From...Format of an unknown
// code gives the zero descriptor. The tables are built at load and only read
// afterwards, except through SetGLHalfOES.
#pragma once

#include "lumo/image/export.h"
#include "lumo/image/formats.h"

namespace lumo::image {

// Direct3D 9: D3DFORMAT values and FourCC codes. DXT1_A1 writes as "DXT1".
LUMO_IMAGE_API unsigned int ToDX9Format(const PixelFormatDescriptor& format);
LUMO_IMAGE_API PixelFormatDescriptor FromDX9Format(unsigned int code);

// DXGI. A typeless code resolves to the format that follows it in the DXGI numbering.
LUMO_IMAGE_API unsigned int ToDXGIFormat(const PixelFormatDescriptor& format);
LUMO_IMAGE_API PixelFormatDescriptor FromDXGIFormat(unsigned int code);

// OpenGL uncompressed: an sRGB format without its own row borrows the linear
// one's. internalFormat may be null.
LUMO_IMAGE_API bool ToGLFormat(const PixelFormatDescriptor& format, unsigned int& glFormat, unsigned int& glType,
                               unsigned int* internalFormat);
// Accepts GL_HALF_FLOAT and GL_HALF_FLOAT_OES alike.
LUMO_IMAGE_API PixelFormatDescriptor FromGLFormat(unsigned int glFormat, unsigned int glType);
LUMO_IMAGE_API unsigned int ToGLCompressedFormat(const PixelFormatDescriptor& format);
LUMO_IMAGE_API PixelFormatDescriptor FromGLCompressedFormat(unsigned int code);
// true: ToGLFormat reports GL_HALF_FLOAT_OES (36193) instead of GL_HALF_FLOAT
// (5131). Global; must not overlap calls of ToGLFormat.
LUMO_IMAGE_API void SetGLHalfOES(bool on);

// Metal and Vulkan. ETC1 writes as the ETC2 RGB8 code of each.
LUMO_IMAGE_API unsigned int ToMETALFormat(const PixelFormatDescriptor& format);
LUMO_IMAGE_API PixelFormatDescriptor FromMETALFormat(unsigned int code);
LUMO_IMAGE_API unsigned int ToVulkanFormat(const PixelFormatDescriptor& format);
LUMO_IMAGE_API PixelFormatDescriptor FromVulkanFormat(unsigned int code);

// The engine's own texture-format codes.
LUMO_IMAGE_API unsigned int ToLumoFormat(const PixelFormatDescriptor& format);
LUMO_IMAGE_API PixelFormatDescriptor FromLumoFormat(unsigned int code);

}  // namespace lumo::image
