// Pixel formats <-> graphics-interface codes. Each interface's table is one
// constant row list below, in the published order; the lookup maps are built
// from it at load. A name that does not parse leaves its row out (the tests
// reach every row, so that cannot go unnoticed).
#include "lumo/image/format_tables.h"

#include <cstddef>
#include <map>
#include <unordered_map>

#include "format/format_tables_internal.h"

// Hand-aligned tables follow.
// clang-format off

namespace lumo::image {
namespace {

using Code = unsigned int;
using Value = unsigned long long;

constexpr Value ValueOf(const PixelFormatDescriptor& d) { return static_cast<Value>(d); }

constexpr PixelFormatDescriptor Compressed(CompressFormat format, bool srgb = false) {
  return PixelFormatDescriptor{(static_cast<Value>(format) << 8) | (srgb ? 2u : 0u) | 1u};
}

// Little-endian value of a four-character code: FourCC("DXT1") == 0x31545844.
constexpr Code FourCC(const char (&c)[5]) {
  Code code = 0;
  for (int i = 3; i >= 0; --i) code = code << 8 | static_cast<unsigned char>(c[i]);
  return code;
}

// ---- OpenGL enums (published values) ----
// Pixel formats
constexpr Code GL_STENCIL_INDEX = 0x1901;
constexpr Code GL_DEPTH_COMPONENT = 0x1902;
constexpr Code GL_RED = 0x1903;
constexpr Code GL_ALPHA = 0x1906;
constexpr Code GL_RGB = 0x1907;
constexpr Code GL_RGBA = 0x1908;
constexpr Code GL_LUMINANCE = 0x1909;
constexpr Code GL_LUMINANCE_ALPHA = 0x190A;
constexpr Code GL_BGR = 0x80E0;
constexpr Code GL_BGRA = 0x80E1;
constexpr Code GL_RG = 0x8227;
constexpr Code GL_RG_INTEGER = 0x8228;
constexpr Code GL_DEPTH_STENCIL = 0x84F9;
constexpr Code GL_RED_INTEGER = 0x8D94;
constexpr Code GL_RGB_INTEGER = 0x8D98;
constexpr Code GL_RGBA_INTEGER = 0x8D99;
constexpr Code GL_BGR_INTEGER = 0x8D9A;
constexpr Code GL_BGRA_INTEGER = 0x8D9B;
// Pixel types
constexpr Code GL_BYTE = 0x1400;
constexpr Code GL_UNSIGNED_BYTE = 0x1401;
constexpr Code GL_SHORT = 0x1402;
constexpr Code GL_UNSIGNED_SHORT = 0x1403;
constexpr Code GL_INT = 0x1404;
constexpr Code GL_UNSIGNED_INT = 0x1405;
constexpr Code GL_FLOAT = 0x1406;
constexpr Code GL_HALF_FLOAT = 0x140B;
constexpr Code GL_UNSIGNED_BYTE_3_3_2 = 0x8032;
constexpr Code GL_UNSIGNED_SHORT_4_4_4_4 = 0x8033;
constexpr Code GL_UNSIGNED_SHORT_5_5_5_1 = 0x8034;
constexpr Code GL_UNSIGNED_INT_8_8_8_8 = 0x8035;
constexpr Code GL_UNSIGNED_INT_10_10_10_2 = 0x8036;
constexpr Code GL_UNSIGNED_BYTE_2_3_3_REV = 0x8362;
constexpr Code GL_UNSIGNED_SHORT_5_6_5 = 0x8363;
constexpr Code GL_UNSIGNED_SHORT_5_6_5_REV = 0x8364;
constexpr Code GL_UNSIGNED_SHORT_4_4_4_4_REV = 0x8365;
constexpr Code GL_UNSIGNED_SHORT_1_5_5_5_REV = 0x8366;
constexpr Code GL_UNSIGNED_INT_8_8_8_8_REV = 0x8367;
constexpr Code GL_UNSIGNED_INT_2_10_10_10_REV = 0x8368;
constexpr Code GL_UNSIGNED_INT_24_8 = 0x84FA;
constexpr Code GL_UNSIGNED_INT_10F_11F_11F_REV = 0x8C3B;
constexpr Code GL_HALF_FLOAT_OES = 0x8D61;
constexpr Code GL_FLOAT_32_UNSIGNED_INT_24_8_REV = 0x8DAD;
// Internal formats
constexpr Code GL_R3_G3_B2 = 0x2A10;
constexpr Code GL_ALPHA8 = 0x803C;
constexpr Code GL_LUMINANCE8 = 0x8040;
constexpr Code GL_LUMINANCE8_ALPHA8 = 0x8045;
constexpr Code GL_RGB4 = 0x804F;
constexpr Code GL_RGB8 = 0x8051;
constexpr Code GL_RGB16 = 0x8054;
constexpr Code GL_RGBA4 = 0x8056;
constexpr Code GL_RGB5_A1 = 0x8057;
constexpr Code GL_RGBA8 = 0x8058;
constexpr Code GL_RGB10_A2 = 0x8059;
constexpr Code GL_RGBA16 = 0x805B;
constexpr Code GL_DEPTH_COMPONENT16 = 0x81A5;
constexpr Code GL_DEPTH_COMPONENT24 = 0x81A6;
constexpr Code GL_R8 = 0x8229;
constexpr Code GL_R16 = 0x822A;
constexpr Code GL_RG8 = 0x822B;
constexpr Code GL_RG16 = 0x822C;
constexpr Code GL_R16F = 0x822D;
constexpr Code GL_R32F = 0x822E;
constexpr Code GL_RG16F = 0x822F;
constexpr Code GL_RG32F = 0x8230;
constexpr Code GL_R8I = 0x8231;
constexpr Code GL_R8UI = 0x8232;
constexpr Code GL_R16I = 0x8233;
constexpr Code GL_R16UI = 0x8234;
constexpr Code GL_R32I = 0x8235;
constexpr Code GL_R32UI = 0x8236;
constexpr Code GL_RG8I = 0x8237;
constexpr Code GL_RG8UI = 0x8238;
constexpr Code GL_RG16I = 0x8239;
constexpr Code GL_RG16UI = 0x823A;
constexpr Code GL_RG32I = 0x823B;
constexpr Code GL_RG32UI = 0x823C;
constexpr Code GL_RGBA32F = 0x8814;
constexpr Code GL_RGB32F = 0x8815;
constexpr Code GL_RGBA16F = 0x881A;
constexpr Code GL_RGB16F = 0x881B;
constexpr Code GL_DEPTH24_STENCIL8 = 0x88F0;
constexpr Code GL_R11F_G11F_B10F = 0x8C3A;  // also accepted as a pixel type by FromGLFormat
constexpr Code GL_SRGB8 = 0x8C41;
constexpr Code GL_SRGB8_ALPHA8 = 0x8C43;
constexpr Code GL_DEPTH_COMPONENT32F = 0x8CAC;
constexpr Code GL_DEPTH32F_STENCIL8 = 0x8CAD;
constexpr Code GL_STENCIL_INDEX8 = 0x8D48;
constexpr Code GL_STENCIL_INDEX16 = 0x8D49;
constexpr Code GL_RGB565 = 0x8D62;
constexpr Code GL_RGBA32UI = 0x8D70;
constexpr Code GL_RGB32UI = 0x8D71;
constexpr Code GL_RGBA16UI = 0x8D76;
constexpr Code GL_RGB16UI = 0x8D77;
constexpr Code GL_RGBA8UI = 0x8D7C;
constexpr Code GL_RGB8UI = 0x8D7D;
constexpr Code GL_RGBA32I = 0x8D82;
constexpr Code GL_RGB32I = 0x8D83;
constexpr Code GL_RGBA16I = 0x8D88;
constexpr Code GL_RGB16I = 0x8D89;
constexpr Code GL_RGBA8I = 0x8D8E;
constexpr Code GL_RGB8I = 0x8D8F;
constexpr Code GL_R8_SNORM = 0x8F94;
constexpr Code GL_RG8_SNORM = 0x8F95;
constexpr Code GL_RGB8_SNORM = 0x8F96;
constexpr Code GL_RGBA8_SNORM = 0x8F97;
constexpr Code GL_R16_SNORM = 0x8F98;
constexpr Code GL_RG16_SNORM = 0x8F99;
constexpr Code GL_RGB16_SNORM = 0x8F9A;
constexpr Code GL_RGBA16_SNORM = 0x8F9B;
constexpr Code GL_RGB10_A2UI = 0x906F;
// Compressed codes that only FromGLCompressedFormat knows
constexpr Code GL_3DC_X_AMD = 0x87F9;
constexpr Code GL_3DC_XY_AMD = 0x87FA;

// ---- Row lists: code and descriptor name, the code's published name after it where it differs ----
struct Row {
  Code code;
  const char* name;
};

// Direct3D 9: D3DFORMAT values and FourCC codes.
constexpr Row kDX9Rows[] = {
    {20, "R8G8B8"},
    {21, "A8R8G8B8"},
    {22, "X8R8G8B8"},
    {23, "R5G6B5"},
    {24, "X1R5G5B5"},
    {25, "A1R5G5B5"},
    {26, "A4R4G4B4"},
    {27, "R3G3B2"},
    {28, "A8"},
    {29, "A8R3G3B2"},
    {30, "X4R4G4B4"},
    {31, "A2B10G10R10"},
    {32, "A8B8G8R8"},
    {33, "X8B8G8R8"},
    {34, "G16R16"},
    {35, "A2R10G10B10"},
    {36, "A16B16G16R16"},
    {50, "L8"},
    {51, "A8L8"},
    {52, "A4L4"},
    {71, "D32f"},                 // D32
    {73, "D15S1"},
    {75, "D24S8"},
    {77, "D24X8"},
    {79, "D24X4S4"},
    {80, "D16"},
    {82, "D32f"},                 // D32F_LOCKABLE; read only: D32f writes as 71
    {70, "D16"},                  // D16_LOCKABLE; read only: D16 writes as 80
    {83, "D24S8"},                // D24FS8; read only: D24S8 writes as 75
    {81, "L16"},
    {111, "R16f"},                // R16F
    {112, "G16fR16f"},            // G16R16F
    {113, "A16fB16fG16fR16f"},    // A16B16G16R16F
    {114, "R32f"},                // R32F
    {115, "G32fR32f"},            // G32R32F
    {116, "A32fB32fG32fR32f"},    // A32B32G32R32F
    {118, "A1"},
    {FourCC("DXT1"), "DXT1"},
    {FourCC("DXT2"), "DXT2"},
    {FourCC("DXT3"), "DXT3"},
    {FourCC("DXT4"), "DXT4"},
    {FourCC("DXT5"), "DXT5"},
    {FourCC("ATI1"), "BC4_unsigned"},
    {FourCC("ATI2"), "BC5_unsigned"},
    {FourCC("INTZ"), "IntZ32"},
};

// DXGI.
constexpr Row kDXGIRows[] = {
    {2, "A32fB32fG32fR32f"},      // R32G32B32A32_FLOAT
    {3, "u_A32B32G32R32"},        // R32G32B32A32_UINT
    {4, "u_A32sB32sG32sR32s"},    // R32G32B32A32_SINT
    {6, "B32fG32fR32f"},          // R32G32B32_FLOAT
    {7, "u_B32G32R32"},           // R32G32B32_UINT
    {8, "u_B32sG32sR32s"},        // R32G32B32_SINT
    {10, "A16fB16fG16fR16f"},     // R16G16B16A16_FLOAT
    {11, "A16B16G16R16"},         // R16G16B16A16_UNORM
    {12, "u_A16B16G16R16"},       // R16G16B16A16_UINT
    {13, "A16sB16sG16sR16s"},     // R16G16B16A16_SNORM
    {14, "u_A16sB16sG16sR16s"},   // R16G16B16A16_SINT
    {16, "G32fR32f"},             // R32G32_FLOAT
    {17, "u_G32R32"},             // R32G32_UINT
    {18, "u_G32sR32s"},           // R32G32_SINT
    {20, "D32fS8"},               // D32_FLOAT_S8X24_UINT
    {22, "X32S8"},                // X32_TYPELESS_G8X24_UINT
    {21, "D32fS8"},               // R32_FLOAT_X8X24_TYPELESS; read only: D32fS8 writes as 20
    {24, "A2B10G10R10"},          // R10G10B10A2_UNORM
    {25, "u_A2B10G10R10"},        // R10G10B10A2_UINT
    {26, "B10fG11fR11f"},         // R11G11B10_FLOAT
    {28, "A8B8G8R8"},             // R8G8B8A8_UNORM
    {29, "s_A8B8G8R8"},           // R8G8B8A8_UNORM_SRGB
    {30, "u_A8B8G8R8"},           // R8G8B8A8_UINT
    {31, "A8sB8sG8sR8s"},         // R8G8B8A8_SNORM
    {32, "u_A8sB8sG8sR8s"},       // R8G8B8A8_SINT
    {34, "G16fR16f"},             // R16G16_FLOAT
    {35, "G16R16"},               // R16G16_UNORM
    {36, "u_G16R16"},             // R16G16_UINT
    {37, "G16sR16s"},             // R16G16_SNORM
    {38, "u_G16sR16s"},           // R16G16_SINT
    {40, "D32f"},                 // D32_FLOAT
    {41, "R32f"},                 // R32_FLOAT
    {42, "u_R32"},                // R32_UINT
    {43, "u_R32s"},               // R32_SINT
    {45, "D24S8"},                // D24_UNORM_S8_UINT
    {46, "D24X8"},                // R24_UNORM_X8_TYPELESS
    {47, "X24S8"},                // X24_TYPELESS_G8_UINT
    {49, "G8R8"},                 // R8G8_UNORM
    {50, "u_G8R8"},               // R8G8_UINT
    {51, "G8sR8s"},               // R8G8_SNORM
    {52, "u_G8sR8s"},             // R8G8_SINT
    {54, "R16f"},                 // R16_FLOAT
    {55, "D16"},                  // D16_UNORM
    {56, "R16"},                  // R16_UNORM
    {57, "u_R16"},                // R16_UINT
    {58, "R16s"},                 // R16_SNORM
    {59, "u_R16s"},               // R16_SINT
    {61, "R8"},                   // R8_UNORM
    {62, "u_R8"},                 // R8_UINT
    {63, "R8s"},                  // R8_SNORM
    {64, "u_R8s"},                // R8_SINT
    {65, "A8"},                   // A8_UNORM
    {66, "A1"},                   // R1_UNORM
    {67, "E5fB9fG9fR9f"},         // R9G9B9E5_SHAREDEXP
    {71, "DXT1"},                 // BC1_UNORM
    {72, "s_DXT1"},               // BC1_UNORM_SRGB
    {74, "DXT3"},                 // BC2_UNORM
    {75, "s_DXT3"},               // BC2_UNORM_SRGB
    {77, "DXT5"},                 // BC3_UNORM
    {78, "s_DXT5"},               // BC3_UNORM_SRGB
    {80, "BC4_unsigned"},         // BC4_UNORM
    {81, "BC4_signed"},           // BC4_SNORM
    {83, "BC5_unsigned"},         // BC5_UNORM
    {84, "BC5_signed"},           // BC5_SNORM
    {85, "R5G6B5"},               // B5G6R5_UNORM
    {86, "A1R5G5B5"},             // B5G5R5A1_UNORM
    {87, "A8R8G8B8"},             // B8G8R8A8_UNORM
    {88, "X8R8G8B8"},             // B8G8R8X8_UNORM
    {91, "s_A8R8G8B8"},           // B8G8R8A8_UNORM_SRGB
    {93, "s_X8R8G8B8"},           // B8G8R8X8_UNORM_SRGB
    {95, "BC6H_unsigned"},        // BC6H_UF16
    {96, "BC6H_signed"},          // BC6H_SF16
    {98, "BC7"},                  // BC7_UNORM
    {99, "s_BC7"},                // BC7_UNORM_SRGB
    {113, "P8"},
    {114, "P8A8"},                // A8P8
    {115, "A4R4G4B4"},            // B4G4R4A4_UNORM
    {134, "ASTC_RGBA_4x4"},       // ASTC_4X4_UNORM
    {135, "s_ASTC_RGBA_4x4"},     // ASTC_4X4_UNORM_SRGB
    {138, "ASTC_RGBA_5x4"},       // ASTC_5X4_UNORM
    {139, "s_ASTC_RGBA_5x4"},     // ASTC_5X4_UNORM_SRGB
    {142, "ASTC_RGBA_5x5"},       // ASTC_5X5_UNORM
    {143, "s_ASTC_RGBA_5x5"},     // ASTC_5X5_UNORM_SRGB
    {146, "ASTC_RGBA_6x5"},       // ASTC_6X5_UNORM
    {147, "s_ASTC_RGBA_6x5"},     // ASTC_6X5_UNORM_SRGB
    {150, "ASTC_RGBA_6x6"},       // ASTC_6X6_UNORM
    {151, "s_ASTC_RGBA_6x6"},     // ASTC_6X6_UNORM_SRGB
    {154, "ASTC_RGBA_8x5"},       // ASTC_8X5_UNORM
    {155, "s_ASTC_RGBA_8x5"},     // ASTC_8X5_UNORM_SRGB
    {158, "ASTC_RGBA_8x6"},       // ASTC_8X6_UNORM
    {159, "s_ASTC_RGBA_8x6"},     // ASTC_8X6_UNORM_SRGB
    {162, "ASTC_RGBA_8x8"},       // ASTC_8X8_UNORM
    {163, "s_ASTC_RGBA_8x8"},     // ASTC_8X8_UNORM_SRGB
    {166, "ASTC_RGBA_10x5"},      // ASTC_10X5_UNORM
    {167, "s_ASTC_RGBA_10x5"},    // ASTC_10X5_UNORM_SRGB
    {170, "ASTC_RGBA_10x6"},      // ASTC_10X6_UNORM
    {171, "s_ASTC_RGBA_10x6"},    // ASTC_10X6_UNORM_SRGB
    {174, "ASTC_RGBA_10x8"},      // ASTC_10X8_UNORM
    {175, "s_ASTC_RGBA_10x8"},    // ASTC_10X8_UNORM_SRGB
    {178, "ASTC_RGBA_10x10"},     // ASTC_10X10_UNORM
    {179, "s_ASTC_RGBA_10x10"},   // ASTC_10X10_UNORM_SRGB
    {182, "ASTC_RGBA_12x10"},     // ASTC_12X10_UNORM
    {183, "s_ASTC_RGBA_12x10"},   // ASTC_12X10_UNORM_SRGB
    {186, "ASTC_RGBA_12x12"},     // ASTC_12X12_UNORM
    {187, "s_ASTC_RGBA_12x12"},   // ASTC_12X12_UNORM_SRGB
};

// OpenGL compressed internal formats.
constexpr Row kGLCompressedRows[] = {
    {36196, "ETC1"},              // GL_ETC1_RGB8_OES
    {37808, "ASTC_RGBA_4x4"},     // GL_COMPRESSED_RGBA_ASTC_4x4_KHR
    {37809, "ASTC_RGBA_5x4"},     // GL_COMPRESSED_RGBA_ASTC_5x4_KHR
    {37810, "ASTC_RGBA_5x5"},     // GL_COMPRESSED_RGBA_ASTC_5x5_KHR
    {37811, "ASTC_RGBA_6x5"},     // GL_COMPRESSED_RGBA_ASTC_6x5_KHR
    {37812, "ASTC_RGBA_6x6"},     // GL_COMPRESSED_RGBA_ASTC_6x6_KHR
    {37813, "ASTC_RGBA_8x5"},     // GL_COMPRESSED_RGBA_ASTC_8x5_KHR
    {37814, "ASTC_RGBA_8x6"},     // GL_COMPRESSED_RGBA_ASTC_8x6_KHR
    {37815, "ASTC_RGBA_8x8"},     // GL_COMPRESSED_RGBA_ASTC_8x8_KHR
    {37816, "ASTC_RGBA_10x5"},    // GL_COMPRESSED_RGBA_ASTC_10x5_KHR
    {37817, "ASTC_RGBA_10x6"},    // GL_COMPRESSED_RGBA_ASTC_10x6_KHR
    {37818, "ASTC_RGBA_10x8"},    // GL_COMPRESSED_RGBA_ASTC_10x8_KHR
    {37819, "ASTC_RGBA_10x10"},   // GL_COMPRESSED_RGBA_ASTC_10x10_KHR
    {37820, "ASTC_RGBA_12x10"},   // GL_COMPRESSED_RGBA_ASTC_12x10_KHR
    {37821, "ASTC_RGBA_12x12"},   // GL_COMPRESSED_RGBA_ASTC_12x12_KHR
    {37840, "s_ASTC_RGBA_4x4"},   // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_4x4_KHR
    {37841, "s_ASTC_RGBA_5x4"},   // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_5x4_KHR
    {37842, "s_ASTC_RGBA_5x5"},   // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_5x5_KHR
    {37843, "s_ASTC_RGBA_6x5"},   // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_6x5_KHR
    {37844, "s_ASTC_RGBA_6x6"},   // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_6x6_KHR
    {37845, "s_ASTC_RGBA_8x5"},   // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_8x5_KHR
    {37846, "s_ASTC_RGBA_8x6"},   // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_8x6_KHR
    {37847, "s_ASTC_RGBA_8x8"},   // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_8x8_KHR
    {37848, "s_ASTC_RGBA_10x5"},  // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_10x5_KHR
    {37849, "s_ASTC_RGBA_10x6"},  // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_10x6_KHR
    {37850, "s_ASTC_RGBA_10x8"},  // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_10x8_KHR
    {37851, "s_ASTC_RGBA_10x10"}, // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_10x10_KHR
    {37852, "s_ASTC_RGBA_12x10"}, // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_12x10_KHR
    {37853, "s_ASTC_RGBA_12x12"}, // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_12x12_KHR
    {35986, "ATC_RGB"},           // GL_ATC_RGB_AMD
    {35987, "ATC_RGBA_EXPLICIT_ALPHA"}, // GL_ATC_RGBA_EXPLICIT_ALPHA_AMD
    {34798, "ATC_RGBA_INTERPOLATED_ALPHA"}, // GL_ATC_RGBA_INTERPOLATED_ALPHA_AMD
    {33776, "DXT1"},              // GL_COMPRESSED_RGB_S3TC_DXT1_EXT
    {33777, "DXT1_A1"},           // GL_COMPRESSED_RGBA_S3TC_DXT1_EXT
    {33778, "DXT3"},              // GL_COMPRESSED_RGBA_S3TC_DXT3_EXT
    {33779, "DXT5"},              // GL_COMPRESSED_RGBA_S3TC_DXT5_EXT
    {35916, "s_DXT1"},            // GL_COMPRESSED_SRGB_S3TC_DXT1_EXT
    {35917, "s_DXT1_A1"},         // GL_COMPRESSED_SRGB_ALPHA_S3TC_DXT1_EXT
    {35918, "s_DXT3"},            // GL_COMPRESSED_SRGB_ALPHA_S3TC_DXT3_EXT
    {35919, "s_DXT5"},            // GL_COMPRESSED_SRGB_ALPHA_S3TC_DXT5_EXT
    {36283, "BC4_unsigned"},      // GL_COMPRESSED_RED_RGTC1
    {36284, "BC4_signed"},        // GL_COMPRESSED_SIGNED_RED_RGTC1
    {36285, "BC5_unsigned"},      // GL_COMPRESSED_RG_RGTC2
    {36286, "BC5_signed"},        // GL_COMPRESSED_SIGNED_RG_RGTC2
    {36494, "BC6H_signed"},       // GL_COMPRESSED_RGB_BPTC_SIGNED_FLOAT
    {36495, "BC6H_unsigned"},     // GL_COMPRESSED_RGB_BPTC_UNSIGNED_FLOAT
    {36492, "BC7"},               // GL_COMPRESSED_RGBA_BPTC_UNORM
    {36493, "s_BC7"},             // GL_COMPRESSED_SRGB_ALPHA_BPTC_UNORM
    {35841, "PVRTC_2bpp_RGB"},    // GL_COMPRESSED_RGB_PVRTC_2BPPV1_IMG
    {35840, "PVRTC_4bpp_RGB"},    // GL_COMPRESSED_RGB_PVRTC_4BPPV1_IMG
    {35843, "PVRTC_2bpp_RGBA"},   // GL_COMPRESSED_RGBA_PVRTC_2BPPV1_IMG
    {35842, "PVRTC_4bpp_RGBA"},   // GL_COMPRESSED_RGBA_PVRTC_4BPPV1_IMG
    {35412, "s_PVRTC_2bpp_RGB"},  // GL_COMPRESSED_SRGB_PVRTC_2BPPV1_EXT
    {35413, "s_PVRTC_4bpp_RGB"},  // GL_COMPRESSED_SRGB_PVRTC_4BPPV1_EXT
    {35414, "s_PVRTC_2bpp_RGBA"}, // GL_COMPRESSED_SRGB_ALPHA_PVRTC_2BPPV1_EXT
    {35415, "s_PVRTC_4bpp_RGBA"}, // GL_COMPRESSED_SRGB_ALPHA_PVRTC_4BPPV1_EXT
    {37176, "PVRTC2_4bpp"},       // GL_COMPRESSED_RGBA_PVRTC_4BPPV2_IMG
    {37175, "PVRTC2_2bpp"},       // GL_COMPRESSED_RGBA_PVRTC_2BPPV2_IMG
    {37488, "EAC_R11"},           // GL_COMPRESSED_R11_EAC
    {37489, "EAC_SIGNED_R11"},    // GL_COMPRESSED_SIGNED_R11_EAC
    {37490, "EAC_RG11"},          // GL_COMPRESSED_RG11_EAC
    {37491, "EAC_SIGNED_RG11"},   // GL_COMPRESSED_SIGNED_RG11_EAC
    {37492, "ETC2_RGB8"},         // GL_COMPRESSED_RGB8_ETC2
    {37494, "ETC2_RGB8A1"},       // GL_COMPRESSED_RGB8_PUNCHTHROUGH_ALPHA1_ETC2
    {37496, "ETC2_RGBA8"},        // GL_COMPRESSED_RGBA8_ETC2_EAC
    {37493, "s_ETC2_RGB8"},       // GL_COMPRESSED_SRGB8_ETC2
    {37495, "s_ETC2_RGB8A1"},     // GL_COMPRESSED_SRGB8_PUNCHTHROUGH_ALPHA1_ETC2
    {37497, "s_ETC2_RGBA8"},      // GL_COMPRESSED_SRGB8_ALPHA8_ETC2_EAC
    {37824, "ASTC_RGBA_3x3x3"},   // GL_COMPRESSED_RGBA_ASTC_3x3x3_OES
    {37825, "ASTC_RGBA_4x3x3"},   // GL_COMPRESSED_RGBA_ASTC_4x3x3_OES
    {37826, "ASTC_RGBA_4x4x3"},   // GL_COMPRESSED_RGBA_ASTC_4x4x3_OES
    {37827, "ASTC_RGBA_4x4x4"},   // GL_COMPRESSED_RGBA_ASTC_4x4x4_OES
    {37828, "ASTC_RGBA_5x4x4"},   // GL_COMPRESSED_RGBA_ASTC_5x4x4_OES
    {37829, "ASTC_RGBA_5x5x4"},   // GL_COMPRESSED_RGBA_ASTC_5x5x4_OES
    {37830, "ASTC_RGBA_5x5x5"},   // GL_COMPRESSED_RGBA_ASTC_5x5x5_OES
    {37831, "ASTC_RGBA_6x5x5"},   // GL_COMPRESSED_RGBA_ASTC_6x5x5_OES
    {37832, "ASTC_RGBA_6x6x5"},   // GL_COMPRESSED_RGBA_ASTC_6x6x5_OES
    {37833, "ASTC_RGBA_6x6x6"},   // GL_COMPRESSED_RGBA_ASTC_6x6x6_OES
    {37856, "s_ASTC_RGBA_3x3x3"}, // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_3x3x3_OES
    {37857, "s_ASTC_RGBA_4x3x3"}, // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_4x3x3_OES
    {37858, "s_ASTC_RGBA_4x4x3"}, // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_4x4x3_OES
    {37859, "s_ASTC_RGBA_4x4x4"}, // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_4x4x4_OES
    {37860, "s_ASTC_RGBA_5x4x4"}, // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_5x4x4_OES
    {37861, "s_ASTC_RGBA_5x5x4"}, // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_5x5x4_OES
    {37862, "s_ASTC_RGBA_5x5x5"}, // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_5x5x5_OES
    {37863, "s_ASTC_RGBA_6x5x5"}, // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_6x5x5_OES
    {37864, "s_ASTC_RGBA_6x6x5"}, // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_6x6x5_OES
    {37865, "s_ASTC_RGBA_6x6x6"}, // GL_COMPRESSED_SRGB8_ALPHA8_ASTC_6x6x6_OES
};

// Metal. The second row for 81 (BGRA8Unorm_sRGB as s_A8B8G8R8) is left out: both its
// code and its descriptor belong to earlier rows.
constexpr Row kMetalRows[] = {
    {1, "A8"},                    // A8Unorm
    {10, "R8"},                   // R8Unorm
    {11, "s_R8"},                 // R8Unorm_sRGB
    {12, "R8s"},                  // R8Snorm
    {13, "u_R8"},                 // R8Uint
    {14, "u_R8s"},                // R8Sint
    {20, "R16"},                  // R16Unorm
    {22, "R16s"},                 // R16Snorm
    {23, "u_R16"},                // R16Uint
    {24, "u_R16s"},               // R16Sint
    {25, "R16f"},                 // R16Float
    {30, "G8R8"},                 // RG8Unorm
    {31, "s_G8R8"},               // RG8Unorm_sRGB
    {32, "G8sR8s"},               // RG8Snorm
    {33, "u_G8R8"},               // RG8Uint
    {34, "u_G8sR8s"},             // RG8Sint
    {40, "R5G6B5"},               // B5G6R5Unorm
    {41, "R5G5B5A1"},             // A1BGR5Unorm
    {42, "R4G4B4A4"},             // ABGR4Unorm
    {43, "A1R5G5B5"},             // BGR5A1Unorm
    {53, "u_R32"},                // R32Uint
    {54, "u_R32s"},               // R32Sint
    {55, "R32f"},                 // R32Float
    {60, "G16R16"},               // RG16Unorm
    {62, "G16sR16s"},             // RG16Snorm
    {63, "u_G16R16"},             // RG16Uint
    {64, "u_G16sR16s"},           // RG16Sint
    {65, "G16fR16f"},             // RG16Float
    {70, "A8B8G8R8"},             // RGBA8Unorm
    {71, "s_A8B8G8R8"},           // RGBA8Unorm_sRGB
    {81, "s_A8R8G8B8"},           // BGRA8Unorm_sRGB
    {72, "A8sB8sG8sR8s"},         // RGBA8Snorm
    {73, "u_A8B8G8R8"},           // RGBA8Uint
    {74, "u_A8sB8sG8sR8s"},       // RGBA8Sint
    {80, "A8R8G8B8"},             // BGRA8Unorm
    {90, "A2B10G10R10"},          // RGB10A2Unorm
    {91, "u_A2B10G10R10"},        // RGB10A2Uint
    {92, "B10fG11fR11f"},         // RG11B10Float
    {93, "E5fB9fG9fR9f"},         // RGB9E5Float
    {103, "u_G32R32"},            // RG32Uint
    {104, "u_G32sR32s"},          // RG32Sint
    {105, "G32fR32f"},            // RG32Float
    {110, "A16B16G16R16"},        // RGBA16Unorm
    {112, "A16sB16sG16sR16s"},    // RGBA16Snorm
    {113, "u_A16B16G16R16"},      // RGBA16Uint
    {114, "u_A16sB16sG16sR16s"},  // RGBA16Sint
    {115, "A16fB16fG16fR16f"},    // RGBA16Float
    {123, "u_A32B32G32R32"},      // RGBA32Uint
    {124, "u_A32sB32sG32sR32s"},  // RGBA32Sint
    {125, "A32fB32fG32fR32f"},    // RGBA32Float
    {160, "PVRTC_2bpp_RGB"},      // PVRTC_RGB_2BPP
    {161, "s_PVRTC_2bpp_RGB"},    // PVRTC_RGB_2BPP_sRGB
    {162, "PVRTC_4bpp_RGB"},      // PVRTC_RGB_4BPP
    {163, "s_PVRTC_4bpp_RGB"},    // PVRTC_RGB_4BPP_sRGB
    {164, "PVRTC_2bpp_RGBA"},     // PVRTC_RGBA_2BPP
    {165, "s_PVRTC_2bpp_RGBA"},   // PVRTC_RGBA_2BPP_sRGB
    {166, "PVRTC_4bpp_RGBA"},     // PVRTC_RGBA_4BPP
    {167, "s_PVRTC_4bpp_RGBA"},   // PVRTC_RGBA_4BPP_sRGB
    {170, "EAC_R11"},             // EAC_R11Unorm
    {172, "EAC_SIGNED_R11"},      // EAC_R11Snorm
    {174, "EAC_RG11"},            // EAC_RG11Unorm
    {176, "EAC_SIGNED_RG11"},     // EAC_RG11Snorm
    {178, "ETC2_RGBA8"},          // EAC_RGBA8
    {179, "s_ETC2_RGBA8"},        // EAC_RGBA8_sRGB
    {180, "ETC2_RGB8"},
    {181, "s_ETC2_RGB8"},         // ETC2_RGB8_sRGB
    {182, "ETC2_RGB8A1"},
    {183, "s_ETC2_RGB8A1"},       // ETC2_RGB8A1_sRGB
    {186, "s_ASTC_RGBA_4x4"},     // ASTC_4x4_sRGB
    {187, "s_ASTC_RGBA_5x4"},     // ASTC_5x4_sRGB
    {188, "s_ASTC_RGBA_5x5"},     // ASTC_5x5_sRGB
    {189, "s_ASTC_RGBA_6x5"},     // ASTC_6x5_sRGB
    {190, "s_ASTC_RGBA_6x6"},     // ASTC_6x6_sRGB
    {192, "s_ASTC_RGBA_8x5"},     // ASTC_8x5_sRGB
    {193, "s_ASTC_RGBA_8x6"},     // ASTC_8x6_sRGB
    {194, "s_ASTC_RGBA_8x8"},     // ASTC_8x8_sRGB
    {195, "s_ASTC_RGBA_10x5"},    // ASTC_10x5_sRGB
    {196, "s_ASTC_RGBA_10x6"},    // ASTC_10x6_sRGB
    {197, "s_ASTC_RGBA_10x8"},    // ASTC_10x8_sRGB
    {198, "s_ASTC_RGBA_10x10"},   // ASTC_10x10_sRGB
    {199, "s_ASTC_RGBA_12x10"},   // ASTC_12x10_sRGB
    {200, "s_ASTC_RGBA_12x12"},   // ASTC_12x12_sRGB
    {204, "ASTC_RGBA_4x4"},       // ASTC_4x4_LDR
    {205, "ASTC_RGBA_5x4"},       // ASTC_5x4_LDR
    {206, "ASTC_RGBA_5x5"},       // ASTC_5x5_LDR
    {207, "ASTC_RGBA_6x5"},       // ASTC_6x5_LDR
    {208, "ASTC_RGBA_6x6"},       // ASTC_6x6_LDR
    {210, "ASTC_RGBA_8x5"},       // ASTC_8x5_LDR
    {211, "ASTC_RGBA_8x6"},       // ASTC_8x6_LDR
    {212, "ASTC_RGBA_8x8"},       // ASTC_8x8_LDR
    {213, "ASTC_RGBA_10x5"},      // ASTC_10x5_LDR
    {214, "ASTC_RGBA_10x6"},      // ASTC_10x6_LDR
    {215, "ASTC_RGBA_10x8"},      // ASTC_10x8_LDR
    {216, "ASTC_RGBA_10x10"},     // ASTC_10x10_LDR
    {217, "ASTC_RGBA_12x10"},     // ASTC_12x10_LDR
    {218, "ASTC_RGBA_12x12"},     // ASTC_12x12_LDR
    {250, "D16"},                 // Depth16Unorm
    {252, "D32f"},                // Depth32Float
    {253, "S8"},                  // Stencil8
    {255, "D24S8"},               // Depth24Unorm_Stencil8
    {260, "D32fS8"},              // Depth32Float_Stencil8
};

// The engine's own texture-format codes.
constexpr Row kLumoRows[] = {
    {1, "R8G8B8"},
    {2, "A8R8G8B8"},
    {3, "R5G6B5"},
    {4, "A1R5G5B5"},
    {5, "A8"},
    {6, "L8"},
    {7, "X8R8G8B8"},
    {8, "X1R5G5B5"},
    {9, "R4G4B4A4"},
    {10, "R4G4B4X4"},
    {11, "A8L8"},
    {12, "A16B16G16R16"},
    {13, "R16f"},
    {14, "G16fR16f"},
    {15, "R32f"},
    {16, "G32fR32f"},
    {17, "A16fB16fG16fR16f"},
    {18, "A32fB32fG32fR32f"},
    {19, "D32f"},
    {20, "D15S1"},
    {21, "D24S8"},
    {22, "D24X8"},
    {23, "D24X4S4"},
    {37, "D32fS8"},
    {24, "D16"},
    {25, "A1"},
    {26, "A4"},
    {27, "DXT1"},
    {28, "DXT3"},
    {29, "DXT5"},
    {30, "PVRTC_2bpp_RGB"},
    {31, "PVRTC_2bpp_RGBA"},
    {32, "PVRTC_4bpp_RGB"},
    {33, "PVRTC_4bpp_RGBA"},
    {34, "ETC1"},
    {38, "ETC2_RGB8"},
    {39, "ETC2_RGBA8"},
    {35, "B8G8R8"},
    {36, "A8B8G8R8"},
    {41, "s_A8B8G8R8"},
    {40, "s_A8R8G8B8"},
    {42, "ASTC_RGBA_4x4"},
    {43, "ASTC_RGBA_5x4"},
    {44, "ASTC_RGBA_5x5"},
    {45, "ASTC_RGBA_6x5"},
    {46, "ASTC_RGBA_6x6"},
    {47, "ASTC_RGBA_8x5"},
    {48, "ASTC_RGBA_8x6"},
    {49, "ASTC_RGBA_8x8"},
    {50, "ASTC_RGBA_10x5"},
    {51, "ASTC_RGBA_10x6"},
    {52, "ASTC_RGBA_10x8"},
    {53, "ASTC_RGBA_10x10"},
    {54, "ASTC_RGBA_12x10"},
    {55, "ASTC_RGBA_12x12"},
    {56, "BC4_signed"},
    {57, "BC4_unsigned"},
    {58, "BC5_signed"},
    {59, "BC5_unsigned"},
    {60, "BC6H_signed"},
    {61, "BC6H_unsigned"},
    {62, "BC7"},
};

// Vulkan. 1000340000/1 are the 4444-extension formats.
constexpr Row kVulkanRows[] = {
    {1, "R4G4"},                  // R4G4_UNORM_PACK8
    {2, "R4G4B4A4"},              // R4G4B4A4_UNORM_PACK16
    {3, "B4G4R4A4"},              // B4G4R4A4_UNORM_PACK16
    {4, "R5G6B5"},                // R5G6B5_UNORM_PACK16
    {5, "B5G6R5"},                // B5G6R5_UNORM_PACK16
    {6, "R5G5B5A1"},              // R5G5B5A1_UNORM_PACK16
    {7, "B5G5R5A1"},              // B5G5R5A1_UNORM_PACK16
    {8, "A1R5G5B5"},              // A1R5G5B5_UNORM_PACK16
    {9, "R8"},                    // R8_UNORM
    {10, "R8s"},                  // R8_SNORM
    {13, "u_R8"},                 // R8_UINT
    {14, "u_R8s"},                // R8_SINT
    {15, "s_R8"},                 // R8_SRGB
    {16, "G8R8"},                 // R8G8_UNORM
    {17, "G8sR8s"},               // R8G8_SNORM
    {20, "u_G8R8"},               // R8G8_UINT
    {21, "u_G8sR8s"},             // R8G8_SINT
    {22, "s_G8R8"},               // R8G8_SRGB
    {23, "B8G8R8"},               // R8G8B8_UNORM
    {24, "B8sG8sR8s"},            // R8G8B8_SNORM
    {27, "u_B8G8R8"},             // R8G8B8_UINT
    {28, "u_B8sG8sR8s"},          // R8G8B8_SINT
    {29, "s_B8G8R8"},             // R8G8B8_SRGB
    {30, "R8G8B8"},               // B8G8R8_UNORM
    {31, "R8sG8sB8s"},            // B8G8R8_SNORM
    {34, "u_R8G8B8"},             // B8G8R8_UINT
    {35, "u_R8sG8sB8s"},          // B8G8R8_SINT
    {36, "s_R8G8B8"},             // B8G8R8_SRGB
    {37, "A8B8G8R8"},             // R8G8B8A8_UNORM
    {38, "A8sB8sG8sR8s"},         // R8G8B8A8_SNORM
    {41, "u_A8B8G8R8"},           // R8G8B8A8_UINT
    {42, "u_A8sB8sG8sR8s"},       // R8G8B8A8_SINT
    {43, "s_A8B8G8R8"},           // R8G8B8A8_SRGB
    {44, "A8R8G8B8"},             // B8G8R8A8_UNORM
    {45, "A8sR8sG8sB8s"},         // B8G8R8A8_SNORM
    {48, "u_A8R8G8B8"},           // B8G8R8A8_UINT
    {49, "u_A8sR8sG8sB8s"},       // B8G8R8A8_SINT
    {50, "s_A8R8G8B8"},           // B8G8R8A8_SRGB
    {58, "A2R10G10B10"},          // A2R10G10B10_UNORM_PACK32
    {59, "A2sR10sG10sB10s"},      // A2R10G10B10_SNORM_PACK32
    {62, "u_A2R10G10B10"},        // A2R10G10B10_UINT_PACK32
    {63, "u_A2sR10sG10sB10s"},    // A2R10G10B10_SINT_PACK32
    {64, "A2B10G10R10"},          // A2B10G10R10_UNORM_PACK32
    {65, "A2sB10sG10sR10s"},      // A2B10G10R10_SNORM_PACK32
    {68, "u_A2B10G10R10"},        // A2B10G10R10_UINT_PACK32
    {69, "u_A2sB10sG10sR10s"},    // A2B10G10R10_SINT_PACK32
    {70, "R16"},                  // R16_UNORM
    {71, "R16s"},                 // R16_SNORM
    {74, "u_R16"},                // R16_UINT
    {75, "u_R16s"},               // R16_SINT
    {76, "R16f"},                 // R16_SFLOAT
    {77, "G16R16"},               // R16G16_UNORM
    {78, "G16sR16s"},             // R16G16_SNORM
    {81, "u_G16R16"},             // R16G16_UINT
    {82, "u_G16sR16s"},           // R16G16_SINT
    {83, "G16fR16f"},             // R16G16_SFLOAT
    {84, "B16G16R16"},            // R16G16B16_UNORM
    {85, "B16sG16sR16s"},         // R16G16B16_SNORM
    {88, "u_B16G16R16"},          // R16G16B16_UINT
    {89, "u_B16sG16sR16s"},       // R16G16B16_SINT
    {90, "B16fG16fR16f"},         // R16G16B16_SFLOAT
    {91, "A16B16G16R16"},         // R16G16B16A16_UNORM
    {92, "A16sB16sG16sR16s"},     // R16G16B16A16_SNORM
    {95, "u_A16B16G16R16"},       // R16G16B16A16_UINT
    {96, "u_A16sB16sG16sR16s"},   // R16G16B16A16_SINT
    {97, "A16fB16fG16fR16f"},     // R16G16B16A16_SFLOAT
    {98, "u_R32"},                // R32_UINT
    {99, "u_R32s"},               // R32_SINT
    {100, "R32f"},                // R32_SFLOAT
    {101, "u_G32R32"},            // R32G32_UINT
    {102, "u_G32sR32s"},          // R32G32_SINT
    {103, "G32fR32f"},            // R32G32_SFLOAT
    {104, "u_B32G32R32"},         // R32G32B32_UINT
    {105, "u_B32sG32sR32s"},      // R32G32B32_SINT
    {106, "B32fG32fR32f"},        // R32G32B32_SFLOAT
    {107, "u_A32B32G32R32"},      // R32G32B32A32_UINT
    {108, "u_A32sB32sG32sR32s"},  // R32G32B32A32_SINT
    {109, "A32fB32fG32fR32f"},    // R32G32B32A32_SFLOAT
    {122, "B10fG11fR11f"},        // B10G11R11_UFLOAT_PACK32
    {123, "E5fB9fG9fR9f"},        // E5B9G9R9_UFLOAT_PACK32
    {124, "D16"},                 // D16_UNORM
    {125, "D24X8"},               // X8_D24_UNORM_PACK32
    {126, "D32f"},                // D32_SFLOAT
    {127, "S8"},                  // S8_UINT
    {129, "D24S8"},               // D24_UNORM_S8_UINT
    {130, "D32fS8"},              // D32_SFLOAT_S8_UINT
    {131, "DXT1"},                // BC1_RGB_UNORM_BLOCK
    {132, "s_DXT1"},              // BC1_RGB_SRGB_BLOCK
    {133, "DXT1_A1"},             // BC1_RGBA_UNORM_BLOCK
    {134, "s_DXT1_A1"},           // BC1_RGBA_SRGB_BLOCK
    {135, "DXT3"},                // BC2_UNORM_BLOCK
    {136, "s_DXT3"},              // BC2_SRGB_BLOCK
    {137, "DXT5"},                // BC3_UNORM_BLOCK
    {138, "s_DXT5"},              // BC3_SRGB_BLOCK
    {139, "BC4_unsigned"},        // BC4_UNORM_BLOCK
    {140, "BC4_signed"},          // BC4_SNORM_BLOCK
    {141, "BC5_unsigned"},        // BC5_UNORM_BLOCK
    {142, "BC5_signed"},          // BC5_SNORM_BLOCK
    {143, "BC6H_unsigned"},       // BC6H_UFLOAT_BLOCK
    {144, "BC6H_signed"},         // BC6H_SFLOAT_BLOCK
    {145, "BC7"},                 // BC7_UNORM_BLOCK
    {146, "s_BC7"},               // BC7_SRGB_BLOCK
    {147, "ETC2_RGB8"},           // ETC2_R8G8B8_UNORM_BLOCK
    {148, "s_ETC2_RGB8"},         // ETC2_R8G8B8_SRGB_BLOCK
    {149, "ETC2_RGB8A1"},         // ETC2_R8G8B8A1_UNORM_BLOCK
    {150, "s_ETC2_RGB8A1"},       // ETC2_R8G8B8A1_SRGB_BLOCK
    {151, "ETC2_RGBA8"},          // ETC2_R8G8B8A8_UNORM_BLOCK
    {152, "s_ETC2_RGBA8"},        // ETC2_R8G8B8A8_SRGB_BLOCK
    {153, "EAC_R11"},             // EAC_R11_UNORM_BLOCK
    {154, "EAC_SIGNED_R11"},      // EAC_R11_SNORM_BLOCK
    {155, "EAC_RG11"},            // EAC_R11G11_UNORM_BLOCK
    {156, "EAC_SIGNED_RG11"},     // EAC_R11G11_SNORM_BLOCK
    {157, "ASTC_RGBA_4x4"},       // ASTC_4x4_UNORM_BLOCK
    {158, "s_ASTC_RGBA_4x4"},     // ASTC_4x4_SRGB_BLOCK
    {159, "ASTC_RGBA_5x4"},       // ASTC_5x4_UNORM_BLOCK
    {160, "s_ASTC_RGBA_5x4"},     // ASTC_5x4_SRGB_BLOCK
    {161, "ASTC_RGBA_5x5"},       // ASTC_5x5_UNORM_BLOCK
    {162, "s_ASTC_RGBA_5x5"},     // ASTC_5x5_SRGB_BLOCK
    {163, "ASTC_RGBA_6x5"},       // ASTC_6x5_UNORM_BLOCK
    {164, "s_ASTC_RGBA_6x5"},     // ASTC_6x5_SRGB_BLOCK
    {165, "ASTC_RGBA_6x6"},       // ASTC_6x6_UNORM_BLOCK
    {166, "s_ASTC_RGBA_6x6"},     // ASTC_6x6_SRGB_BLOCK
    {167, "ASTC_RGBA_8x5"},       // ASTC_8x5_UNORM_BLOCK
    {168, "s_ASTC_RGBA_8x5"},     // ASTC_8x5_SRGB_BLOCK
    {169, "ASTC_RGBA_8x6"},       // ASTC_8x6_UNORM_BLOCK
    {170, "s_ASTC_RGBA_8x6"},     // ASTC_8x6_SRGB_BLOCK
    {171, "ASTC_RGBA_8x8"},       // ASTC_8x8_UNORM_BLOCK
    {172, "s_ASTC_RGBA_8x8"},     // ASTC_8x8_SRGB_BLOCK
    {173, "ASTC_RGBA_10x5"},      // ASTC_10x5_UNORM_BLOCK
    {174, "s_ASTC_RGBA_10x5"},    // ASTC_10x5_SRGB_BLOCK
    {175, "ASTC_RGBA_10x6"},      // ASTC_10x6_UNORM_BLOCK
    {176, "s_ASTC_RGBA_10x6"},    // ASTC_10x6_SRGB_BLOCK
    {177, "ASTC_RGBA_10x8"},      // ASTC_10x8_UNORM_BLOCK
    {178, "s_ASTC_RGBA_10x8"},    // ASTC_10x8_SRGB_BLOCK
    {179, "ASTC_RGBA_10x10"},     // ASTC_10x10_UNORM_BLOCK
    {180, "s_ASTC_RGBA_10x10"},   // ASTC_10x10_SRGB_BLOCK
    {181, "ASTC_RGBA_12x10"},     // ASTC_12x10_UNORM_BLOCK
    {182, "s_ASTC_RGBA_12x10"},   // ASTC_12x10_SRGB_BLOCK
    {183, "ASTC_RGBA_12x12"},     // ASTC_12x12_UNORM_BLOCK
    {184, "s_ASTC_RGBA_12x12"},   // ASTC_12x12_SRGB_BLOCK
    {1000340000, "A4R4G4B4"},     // A4R4G4B4_UNORM_PACK16
    {1000340001, "A4B4G4R4"},     // A4B4G4R4_UNORM_PACK16
};

// Direct3D 9 numbers a DDS writer puts in the FourCC field for float and depth formats.
constexpr Row kDDSFourCCRows[] = {
    {36, "A16B16G16R16"},
    {82, "D32f"},                 // D32F_LOCKABLE
    {70, "D16"},                  // D16_LOCKABLE
    {85, "S8"},                   // S8_LOCKABLE
    {75, "D24S8"},
    {111, "R16f"},                // R16F
    {112, "G16fR16f"},            // G16R16F
    {113, "A16fB16fG16fR16f"},    // A16B16G16R16F
    {114, "R32f"},                // R32F
    {115, "G32fR32f"},            // G32R32F
    {116, "A32fB32fG32fR32f"},    // A32B32G32R32F
    {73, "D15S1"},
};

// OpenGL uncompressed: descriptor -> format, type, internal format. D32fS8 has a second,
// depth-only row (GL_DEPTH_COMPONENT, GL_FLOAT_32_UNSIGNED_INT_24_8_REV,
// GL_DEPTH_COMPONENT32F) that the first one shadows; it is left out.
struct GLRow {
  const char* name;
  Code format;
  Code type;
  Code internal_format;
};

constexpr GLRow kGLRows[] = {
    {"R8", GL_RED, GL_UNSIGNED_BYTE, GL_R8},
    {"R8s", GL_RED, GL_BYTE, GL_R8_SNORM},
    {"R16", GL_RED, GL_UNSIGNED_SHORT, GL_R16},
    {"R16s", GL_RED, GL_SHORT, GL_R16_SNORM},
    {"G8R8", GL_RG, GL_UNSIGNED_BYTE, GL_RG8},
    {"G8sR8s", GL_RG, GL_BYTE, GL_RG8_SNORM},
    {"G16R16", GL_RG, GL_UNSIGNED_SHORT, GL_RG16},
    {"G16sR16s", GL_RG, GL_SHORT, GL_RG16_SNORM},
    {"R3G3B2", GL_RGB, GL_UNSIGNED_BYTE_3_3_2, GL_R3_G3_B2},
    {"R4G4B4X4", GL_RGB, GL_UNSIGNED_SHORT_4_4_4_4, GL_RGB4},
    {"R5G6B5", GL_RGB, GL_UNSIGNED_SHORT_5_6_5, GL_RGB565},
    {"B5G6R5", GL_RGB, GL_UNSIGNED_SHORT_5_6_5_REV, GL_RGB565},
    {"B8G8R8", GL_RGB, GL_UNSIGNED_BYTE, GL_RGB8},
    {"R8G8B8", GL_BGR, GL_UNSIGNED_BYTE, GL_RGB8},
    {"B8sG8sR8s", GL_RGB, GL_BYTE, GL_RGB8_SNORM},
    {"R8sG8sB8s", GL_BGR, GL_BYTE, GL_RGB8_SNORM},
    {"B16G16R16", GL_RGB, GL_UNSIGNED_SHORT, GL_RGB16},
    {"R16G16B16", GL_BGR, GL_UNSIGNED_SHORT, GL_RGB16},
    {"B16sG16sR16s", GL_RGB, GL_SHORT, GL_RGB16_SNORM},
    {"R16sG16sB16s", GL_BGR, GL_SHORT, GL_RGB16_SNORM},
    {"R4G4B4A4", GL_RGBA, GL_UNSIGNED_SHORT_4_4_4_4, GL_RGBA4},
    {"A4R4G4B4", GL_BGRA, GL_UNSIGNED_SHORT_4_4_4_4_REV, GL_RGBA4},
    {"R5G5B5A1", GL_RGBA, GL_UNSIGNED_SHORT_5_5_5_1, GL_RGB5_A1},
    {"A1R5G5B5", GL_BGRA, GL_UNSIGNED_SHORT_1_5_5_5_REV, GL_RGB5_A1},
    {"A8B8G8R8", GL_RGBA, GL_UNSIGNED_BYTE, GL_RGBA8},
    {"A8R8G8B8", GL_BGRA, GL_UNSIGNED_BYTE, GL_RGBA8},
    {"A8sB8sG8sR8s", GL_RGBA, GL_BYTE, GL_RGBA8_SNORM},
    {"A8sR8sG8sB8s", GL_BGRA, GL_BYTE, GL_RGBA8_SNORM},
    {"R10G10B10A2", GL_RGBA, GL_UNSIGNED_INT_10_10_10_2, GL_RGB10_A2},
    {"A2R10G10B10", GL_BGRA, GL_UNSIGNED_INT_2_10_10_10_REV, GL_RGB10_A2},
    {"u_R10G10B10A2", GL_RGBA_INTEGER, GL_UNSIGNED_INT_10_10_10_2, GL_RGB10_A2UI},
    {"u_A2R10G10B10", GL_BGRA_INTEGER, GL_UNSIGNED_INT_2_10_10_10_REV, GL_RGB10_A2UI},
    {"A16B16G16R16", GL_RGBA, GL_UNSIGNED_SHORT, GL_RGBA16},
    {"A16R16G16B16", GL_BGRA, GL_UNSIGNED_SHORT, GL_RGBA16},
    {"A16sB16sG16sR16s", GL_RGBA, GL_SHORT, GL_RGBA16_SNORM},
    {"A16sR16sG16sB16s", GL_BGRA, GL_SHORT, GL_RGBA16_SNORM},
    {"s_B8G8R8", GL_RGB, GL_UNSIGNED_BYTE, GL_SRGB8},
    {"s_R8G8B8", GL_BGR, GL_UNSIGNED_BYTE, GL_SRGB8},
    {"s_A8B8G8R8", GL_RGBA, GL_UNSIGNED_BYTE, GL_SRGB8_ALPHA8},
    {"s_A8R8G8B8", GL_BGRA, GL_UNSIGNED_BYTE, GL_SRGB8_ALPHA8},
    {"R16f", GL_RED, GL_HALF_FLOAT, GL_R16F},
    {"G16fR16f", GL_RG, GL_HALF_FLOAT, GL_RG16F},
    {"B16fG16fR16f", GL_RGB, GL_HALF_FLOAT, GL_RGB16F},
    {"A16fB16fG16fR16f", GL_RGBA, GL_HALF_FLOAT, GL_RGBA16F},
    {"R32f", GL_RED, GL_FLOAT, GL_R32F},
    {"G32fR32f", GL_RG, GL_FLOAT, GL_RG32F},
    {"B32fG32fR32f", GL_RGB, GL_FLOAT, GL_RGB32F},
    {"A32fB32fG32fR32f", GL_RGBA, GL_FLOAT, GL_RGBA32F},
    {"B10fG11fR11f", GL_RGB, GL_UNSIGNED_INT_10F_11F_11F_REV, GL_R11F_G11F_B10F},
    {"u_R8s", GL_RED_INTEGER, GL_BYTE, GL_R8I},
    {"u_R8", GL_RED_INTEGER, GL_UNSIGNED_BYTE, GL_R8UI},
    {"u_R16s", GL_RED_INTEGER, GL_SHORT, GL_R16I},
    {"u_R16", GL_RED_INTEGER, GL_UNSIGNED_SHORT, GL_R16UI},
    {"u_R32s", GL_RED_INTEGER, GL_INT, GL_R32I},
    {"u_R32", GL_RED_INTEGER, GL_UNSIGNED_INT, GL_R32UI},
    {"u_G8R8", GL_RG_INTEGER, GL_UNSIGNED_BYTE, GL_RG8UI},
    {"u_G8sR8s", GL_RG_INTEGER, GL_BYTE, GL_RG8I},
    {"u_G16R16", GL_RG_INTEGER, GL_UNSIGNED_SHORT, GL_RG16UI},
    {"u_G16sR16s", GL_RG_INTEGER, GL_SHORT, GL_RG16I},
    {"u_G32R32", GL_RG_INTEGER, GL_UNSIGNED_INT, GL_RG32UI},
    {"u_G32sR32s", GL_RG_INTEGER, GL_INT, GL_RG32I},
    {"u_B8G8R8", GL_RGB_INTEGER, GL_UNSIGNED_BYTE, GL_RGB8UI},
    {"u_B8sG8sR8s", GL_RGB_INTEGER, GL_BYTE, GL_RGB8I},
    {"u_B16G16R16", GL_RGB_INTEGER, GL_UNSIGNED_SHORT, GL_RGB16UI},
    {"u_B16sG16sR16s", GL_RGB_INTEGER, GL_SHORT, GL_RGB16I},
    {"u_B32G32R32", GL_RGB_INTEGER, GL_UNSIGNED_INT, GL_RGB32UI},
    {"u_B32sG32sR32s", GL_RGB_INTEGER, GL_INT, GL_RGB32I},
    {"u_R8G8B8", GL_BGR_INTEGER, GL_UNSIGNED_BYTE, GL_RGB8UI},
    {"u_R8sG8sB8s", GL_BGR_INTEGER, GL_BYTE, GL_RGB8I},
    {"u_R16G16B16", GL_BGR_INTEGER, GL_UNSIGNED_SHORT, GL_RGB16UI},
    {"u_R16sG16sB16s", GL_BGR_INTEGER, GL_SHORT, GL_RGB16I},
    {"u_R32G32B32", GL_BGR_INTEGER, GL_UNSIGNED_INT, GL_RGB32UI},
    {"u_R32sG32sB32s", GL_BGR_INTEGER, GL_INT, GL_RGB32I},
    {"u_A8B8G8R8", GL_RGBA_INTEGER, GL_UNSIGNED_BYTE, GL_RGBA8UI},
    {"u_A8sB8sG8sR8s", GL_RGBA_INTEGER, GL_BYTE, GL_RGBA8I},
    {"u_A16B16G16R16", GL_RGBA_INTEGER, GL_UNSIGNED_SHORT, GL_RGBA16UI},
    {"u_A16sB16sG16sR16s", GL_RGBA_INTEGER, GL_SHORT, GL_RGBA16I},
    {"u_A32B32G32R32", GL_RGBA_INTEGER, GL_UNSIGNED_INT, GL_RGBA32UI},
    {"u_A32sB32sG32sR32s", GL_RGBA_INTEGER, GL_INT, GL_RGBA32I},
    {"u_A8R8G8B8", GL_BGRA_INTEGER, GL_UNSIGNED_BYTE, GL_RGBA8UI},
    {"u_A8sR8sG8sB8s", GL_BGRA_INTEGER, GL_BYTE, GL_RGBA8I},
    {"u_A16R16G16B16", GL_BGRA_INTEGER, GL_UNSIGNED_SHORT, GL_RGBA16UI},
    {"u_A16sR16sG16sB16s", GL_BGRA_INTEGER, GL_SHORT, GL_RGBA16I},
    {"u_A32R32G32B32", GL_BGRA_INTEGER, GL_UNSIGNED_INT, GL_RGBA32UI},
    {"u_A32sR32sG32sB32s", GL_BGRA_INTEGER, GL_INT, GL_RGBA32I},
    {"D16", GL_DEPTH_COMPONENT, GL_UNSIGNED_SHORT, GL_DEPTH_COMPONENT16},
    {"D24X8", GL_DEPTH_COMPONENT, GL_UNSIGNED_INT_24_8, GL_DEPTH_COMPONENT24},
    {"D24S8", GL_DEPTH_STENCIL, GL_UNSIGNED_INT_24_8, GL_DEPTH24_STENCIL8},
    {"X24S8", GL_STENCIL_INDEX, GL_UNSIGNED_INT_24_8, GL_STENCIL_INDEX8},
    {"D32f", GL_DEPTH_COMPONENT, GL_FLOAT, GL_DEPTH_COMPONENT32F},
    {"D32fS8", GL_DEPTH_STENCIL, GL_FLOAT_32_UNSIGNED_INT_24_8_REV, GL_DEPTH32F_STENCIL8},
    {"X32S8", GL_STENCIL_INDEX, GL_FLOAT_32_UNSIGNED_INT_24_8_REV, GL_DEPTH_COMPONENT32F},
    {"S8", GL_STENCIL_INDEX, GL_UNSIGNED_BYTE, GL_STENCIL_INDEX8},
    {"S16", GL_STENCIL_INDEX, GL_UNSIGNED_SHORT, GL_STENCIL_INDEX16},
    {"L8", GL_LUMINANCE, GL_UNSIGNED_BYTE, GL_LUMINANCE8},
    {"A8", GL_ALPHA, GL_UNSIGNED_BYTE, GL_ALPHA8},
    {"A8L8", GL_LUMINANCE_ALPHA, GL_UNSIGNED_BYTE, GL_LUMINANCE8_ALPHA8},
};

// ---- Lookup maps ----

// Parses a row's name; 0 when it does not parse to a format.
PixelFormatDescriptor Parse(const char* name) {
  PixelFormatDescriptor d{};
  return FromString(name, &d) ? d : PixelFormatDescriptor{};
}

// Both directions of a row list. Rows go in in list order and a present key is
// kept, so for a repeated code or descriptor the earlier row wins.
class CodeTable {
 public:
  template <std::size_t N>
  explicit CodeTable(const Row (&rows)[N]) {
    from_code_.reserve(N);
    to_code_.reserve(N);
    for (const Row& row : rows) {
      const PixelFormatDescriptor d = Parse(row.name);
      if (ValueOf(d) == 0) continue;
      from_code_.emplace(row.code, d);
      to_code_.emplace(ValueOf(d), row.code);
    }
  }

  // 0 on a miss.
  PixelFormatDescriptor From(Code code) const {
    const auto hit = from_code_.find(code);
    return hit == from_code_.end() ? PixelFormatDescriptor{} : hit->second;
  }

  // 0 on a miss.
  Code To(const PixelFormatDescriptor& d) const {
    const auto hit = to_code_.find(ValueOf(d));
    return hit == to_code_.end() ? 0 : hit->second;
  }

 private:
  std::unordered_map<Code, PixelFormatDescriptor> from_code_;
  std::unordered_map<Value, Code> to_code_;
};

const CodeTable& DX9Table() {
  static const CodeTable table(kDX9Rows);
  return table;
}
const CodeTable& DXGITable() {
  static const CodeTable table(kDXGIRows);
  return table;
}
const CodeTable& GLCompressedTable() {
  static const CodeTable table(kGLCompressedRows);
  return table;
}
const CodeTable& MetalTable() {
  static const CodeTable table(kMetalRows);
  return table;
}
const CodeTable& LumoTable() {
  static const CodeTable table(kLumoRows);
  return table;
}
const CodeTable& VulkanTable() {
  static const CodeTable table(kVulkanRows);
  return table;
}
const CodeTable& DDSFourCCTable() {
  static const CodeTable table(kDDSFourCCRows);
  return table;
}

struct GLTriple {
  Code format;
  Code type;
  Code internal_format;
};

// Ordered and writable: SetGLHalfOES rewrites the half-float types in place.
using GLMap = std::map<Value, GLTriple>;

GLMap& GLTable() {
  static GLMap table = [] {
    GLMap map;
    for (const GLRow& row : kGLRows) {
      const PixelFormatDescriptor d = Parse(row.name);
      if (ValueOf(d) == 0) continue;
      map.emplace(ValueOf(d), GLTriple{row.format, row.type, row.internal_format});
    }
    return map;
  }();
  return table;
}

// Build every map while the library loads, so calls afterwards only read.
[[maybe_unused]] const bool kTablesBuilt = (DX9Table(), DXGITable(), GLCompressedTable(), MetalTable(),
                                            LumoTable(), VulkanTable(), DDSFourCCTable(), GLTable(), true);

constexpr PixelFormatDescriptor kDXT1_A1 = Compressed(CompressFormat::DXT1_A1);
constexpr PixelFormatDescriptor kSRGB_DXT1_A1 = Compressed(CompressFormat::DXT1_A1, true);
constexpr PixelFormatDescriptor kETC1 = Compressed(CompressFormat::ETC1);

// FromGLFormat results, named by their text names.
namespace from_gl {
constexpr PixelFormatDescriptor S8{0x20700ULL};
constexpr PixelFormatDescriptor S16{0x40700ULL};
constexpr PixelFormatDescriptor D24S8{0x81c60600ULL};
constexpr PixelFormatDescriptor X32S8{0x81c80100ULL};
constexpr PixelFormatDescriptor D16{0x40600ULL};
constexpr PixelFormatDescriptor D32f{0x280600ULL};
constexpr PixelFormatDescriptor D24X8{0x80460600ULL};
constexpr PixelFormatDescriptor D32fS8{0x81e80600ULL};
constexpr PixelFormatDescriptor R8s{0x120200ULL};
constexpr PixelFormatDescriptor R8{0x20200ULL};
constexpr PixelFormatDescriptor R16{0x40200ULL};
constexpr PixelFormatDescriptor R32f{0x280200ULL};
constexpr PixelFormatDescriptor R16f{0x240200ULL};
constexpr PixelFormatDescriptor B8G8R8{0x202080c20400ULL};
constexpr PixelFormatDescriptor B16G16R16{0x402100c40400ULL};
constexpr PixelFormatDescriptor B32G32R32{0x802200c80400ULL};
constexpr PixelFormatDescriptor B32fG32fR32f{0x2802a00e80400ULL};
constexpr PixelFormatDescriptor B16fG16fR16f{0x2402900e40400ULL};
constexpr PixelFormatDescriptor R3G3B2{0x84030c0c200ULL};
constexpr PixelFormatDescriptor B2G3R3{0xc2030c08400ULL};
constexpr PixelFormatDescriptor R5G6B5{0x144060c14200ULL};
constexpr PixelFormatDescriptor B5G6R5{0x142060c14400ULL};
constexpr PixelFormatDescriptor R11fG11fB10f{0x22848b0e2c200ULL};
constexpr PixelFormatDescriptor B10fG11fR11f{0x22c28b0e28400ULL};
constexpr PixelFormatDescriptor A8B8G8R8{0x808203081020500ULL};
constexpr PixelFormatDescriptor A16B16G16R16{0x1008403101040500ULL};
constexpr PixelFormatDescriptor A32B32G32R32{0x2008803201080500ULL};
constexpr PixelFormatDescriptor A32fB32fG32fR32f{0xa00a803a01280500ULL};
constexpr PixelFormatDescriptor A16fB16fG16fR16f{0x900a403901240500ULL};
constexpr PixelFormatDescriptor R4G4B4A4{0x414104040c10200ULL};
constexpr PixelFormatDescriptor R5G5B5A1{0x114144050c14200ULL};
constexpr PixelFormatDescriptor R8G8B8A8{0x814204080c20200ULL};
constexpr PixelFormatDescriptor R10G10B10A2{0x2142840a0c28200ULL};
constexpr PixelFormatDescriptor A4B4G4R4{0x408103041010500ULL};
constexpr PixelFormatDescriptor A1B5G5R5{0x508143051004500ULL};
constexpr PixelFormatDescriptor A2B10G10R10{0xa082830a1008500ULL};
constexpr PixelFormatDescriptor R8G8B8{0x204080c20200ULL};
constexpr PixelFormatDescriptor R16G16B16{0x404100c40200ULL};
constexpr PixelFormatDescriptor R32G32B32{0x804200c80200ULL};
constexpr PixelFormatDescriptor R32fG32fB32f{0x2804a00e80200ULL};
constexpr PixelFormatDescriptor R16fG16fB16f{0x2404900e40200ULL};
constexpr PixelFormatDescriptor B3G3R2{0x82030c0c400ULL};
constexpr PixelFormatDescriptor R2G3B3{0xc4030c08200ULL};
constexpr PixelFormatDescriptor A8R8G8B8{0x810203080820500ULL};
constexpr PixelFormatDescriptor A16R16G16B16{0x1010403100840500ULL};
constexpr PixelFormatDescriptor A32fR32fG32fB32f{0xa012803a00a80500ULL};
constexpr PixelFormatDescriptor A16fR16fG16fB16f{0x9012403900a40500ULL};
constexpr PixelFormatDescriptor B4G4R4A4{0x414102040c10400ULL};
constexpr PixelFormatDescriptor B5G5R5A1{0x114142050c14400ULL};
constexpr PixelFormatDescriptor B8G8R8A8{0x814202080c20400ULL};
constexpr PixelFormatDescriptor B10G10R10A2{0x2142820a0c28400ULL};
constexpr PixelFormatDescriptor A4R4G4B4{0x410103040810500ULL};
constexpr PixelFormatDescriptor A1R5G5B5{0x510143050804500ULL};
constexpr PixelFormatDescriptor A2R10G10B10{0xa102830a0808500ULL};
constexpr PixelFormatDescriptor G8R8{0x80820300ULL};
constexpr PixelFormatDescriptor G16R16{0x100840300ULL};
constexpr PixelFormatDescriptor G16fR16f{0x900a40300ULL};
constexpr PixelFormatDescriptor u_G8R8{0x80820304ULL};
constexpr PixelFormatDescriptor u_G16R16{0x100840304ULL};
constexpr PixelFormatDescriptor u_G32R32{0x200880304ULL};
constexpr PixelFormatDescriptor u_R8{0x20204ULL};
constexpr PixelFormatDescriptor u_R16{0x40204ULL};
constexpr PixelFormatDescriptor u_R32{0x80204ULL};
constexpr PixelFormatDescriptor u_A8B8G8R8{0x808203081020504ULL};
constexpr PixelFormatDescriptor u_A16B16G16R16{0x1008403101040504ULL};
constexpr PixelFormatDescriptor u_A32B32G32R32{0x2008803201080504ULL};
}  // namespace from_gl

bool IsHalf(Code type) { return type == GL_HALF_FLOAT || type == GL_HALF_FLOAT_OES; }

}  // namespace

unsigned int ToDX9Format(const PixelFormatDescriptor& format) {
  // DX9 has no separate code for DXT1 with 1-bit alpha; the block layout is the same.
  if (format == kDXT1_A1) return FourCC("DXT1");
  return DX9Table().To(format);
}

PixelFormatDescriptor FromDX9Format(unsigned int code) { return DX9Table().From(code); }

unsigned int ToDXGIFormat(const PixelFormatDescriptor& format) {
  if (format == kDXT1_A1) return 71;       // BC1_UNORM
  if (format == kSRGB_DXT1_A1) return 72;  // BC1_UNORM_SRGB
  return DXGITable().To(format);
}

PixelFormatDescriptor FromDXGIFormat(unsigned int code) {
  const PixelFormatDescriptor d = DXGITable().From(code);
  if (ValueOf(d) != 0) return d;
  // A typeless code is followed by its first typed variant. Unsigned wrap
  // turns 0xFFFFFFFF into 0, which is no code.
  return DXGITable().From(code + 1u);
}

bool ToGLFormat(const PixelFormatDescriptor& format, unsigned int& glFormat, unsigned int& glType,
                unsigned int* internalFormat) {
  const GLMap& table = GLTable();
  auto hit = table.find(ValueOf(format));
  // An sRGB format without a row of its own borrows its linear twin's.
  if (hit == table.end() && IsSRGB(format)) hit = table.find(ValueOf(SetSRGB(format, false)));
  if (hit == table.end()) return false;
  glFormat = hit->second.format;
  glType = hit->second.type;
  if (internalFormat != nullptr) *internalFormat = hit->second.internal_format;
  return true;
}

PixelFormatDescriptor FromGLFormat(unsigned int glFormat, unsigned int glType) {
  using namespace from_gl;
  // Signed and unsigned types share a result except for GL_RED.
  switch (glFormat) {
    case GL_STENCIL_INDEX:
      switch (glType) {
        case GL_UNSIGNED_BYTE: return S8;
        case GL_UNSIGNED_SHORT: return S16;
        case GL_UNSIGNED_INT_24_8: return D24S8;
        case GL_FLOAT_32_UNSIGNED_INT_24_8_REV: return X32S8;
      }
      break;
    case GL_DEPTH_COMPONENT:
      switch (glType) {
        case GL_UNSIGNED_SHORT: return D16;
        case GL_UNSIGNED_INT:
        case GL_FLOAT: return D32f;
        case GL_UNSIGNED_INT_24_8: return D24X8;
        case GL_FLOAT_32_UNSIGNED_INT_24_8_REV: return D32fS8;
      }
      break;
    case GL_RED:
      if (IsHalf(glType)) return R16f;
      switch (glType) {
        case GL_BYTE: return R8s;
        case GL_UNSIGNED_BYTE: return R8;
        case GL_UNSIGNED_SHORT: return R16;
        case GL_FLOAT: return R32f;
      }
      break;
    case GL_RGB:
      if (IsHalf(glType)) return B16fG16fR16f;
      switch (glType) {
        case GL_BYTE:
        case GL_UNSIGNED_BYTE: return B8G8R8;
        case GL_SHORT:
        case GL_UNSIGNED_SHORT: return B16G16R16;
        case GL_INT:
        case GL_UNSIGNED_INT: return B32G32R32;
        case GL_FLOAT: return B32fG32fR32f;
        case GL_UNSIGNED_BYTE_3_3_2: return R3G3B2;
        case GL_UNSIGNED_BYTE_2_3_3_REV: return B2G3R3;
        case GL_UNSIGNED_SHORT_5_6_5: return R5G6B5;
        case GL_UNSIGNED_SHORT_5_6_5_REV: return B5G6R5;
        case GL_R11F_G11F_B10F: return R11fG11fB10f;
        case GL_UNSIGNED_INT_10F_11F_11F_REV: return B10fG11fR11f;
      }
      break;
    case GL_RGBA:
      if (IsHalf(glType)) return A16fB16fG16fR16f;
      switch (glType) {
        case GL_BYTE:
        case GL_UNSIGNED_BYTE:
        case GL_UNSIGNED_INT_8_8_8_8_REV: return A8B8G8R8;
        case GL_SHORT:
        case GL_UNSIGNED_SHORT: return A16B16G16R16;
        case GL_INT:
        case GL_UNSIGNED_INT: return A32B32G32R32;
        case GL_FLOAT: return A32fB32fG32fR32f;
        case GL_UNSIGNED_SHORT_4_4_4_4: return R4G4B4A4;
        case GL_UNSIGNED_SHORT_5_5_5_1: return R5G5B5A1;
        case GL_UNSIGNED_INT_8_8_8_8: return R8G8B8A8;
        case GL_UNSIGNED_INT_10_10_10_2: return R10G10B10A2;
        case GL_UNSIGNED_SHORT_4_4_4_4_REV: return A4B4G4R4;
        case GL_UNSIGNED_SHORT_1_5_5_5_REV: return A1B5G5R5;
        case GL_UNSIGNED_INT_2_10_10_10_REV: return A2B10G10R10;
      }
      break;
    case GL_BGR:
      if (IsHalf(glType)) return R16fG16fB16f;
      switch (glType) {
        case GL_BYTE:
        case GL_UNSIGNED_BYTE: return R8G8B8;
        case GL_SHORT:
        case GL_UNSIGNED_SHORT: return R16G16B16;
        case GL_INT:
        case GL_UNSIGNED_INT: return R32G32B32;
        case GL_FLOAT: return R32fG32fB32f;
        case GL_UNSIGNED_BYTE_3_3_2: return B3G3R2;
        case GL_UNSIGNED_BYTE_2_3_3_REV: return R2G3B3;
        case GL_UNSIGNED_SHORT_5_6_5: return B5G6R5;
        case GL_UNSIGNED_SHORT_5_6_5_REV: return R5G6B5;
        case GL_R11F_G11F_B10F: return R11fG11fB10f;
        case GL_UNSIGNED_INT_10F_11F_11F_REV: return B10fG11fR11f;
      }
      break;
    case GL_BGRA:
      if (IsHalf(glType)) return A16fR16fG16fB16f;
      switch (glType) {
        case GL_BYTE:
        case GL_UNSIGNED_BYTE:
        case GL_UNSIGNED_INT_8_8_8_8_REV: return A8R8G8B8;
        case GL_SHORT:
        case GL_UNSIGNED_SHORT: return A16R16G16B16;
        case GL_FLOAT: return A32fR32fG32fB32f;
        case GL_UNSIGNED_SHORT_4_4_4_4: return B4G4R4A4;
        case GL_UNSIGNED_SHORT_5_5_5_1: return B5G5R5A1;
        case GL_UNSIGNED_INT_8_8_8_8: return B8G8R8A8;
        case GL_UNSIGNED_INT_10_10_10_2: return B10G10R10A2;
        case GL_UNSIGNED_SHORT_4_4_4_4_REV: return A4R4G4B4;
        case GL_UNSIGNED_SHORT_1_5_5_5_REV: return A1R5G5B5;
        case GL_UNSIGNED_INT_2_10_10_10_REV: return A2R10G10B10;
      }
      break;
    case GL_RG:
      if (IsHalf(glType)) return G16fR16f;
      switch (glType) {
        case GL_UNSIGNED_BYTE: return G8R8;
        case GL_UNSIGNED_SHORT: return G16R16;
      }
      break;
    case GL_RG_INTEGER:
      switch (glType) {
        case GL_BYTE:
        case GL_UNSIGNED_BYTE: return u_G8R8;
        case GL_SHORT:
        case GL_UNSIGNED_SHORT: return u_G16R16;
        case GL_INT:
        case GL_UNSIGNED_INT: return u_G32R32;
      }
      break;
    case GL_DEPTH_STENCIL:
      switch (glType) {
        case GL_UNSIGNED_INT_24_8: return D24S8;
        case GL_FLOAT_32_UNSIGNED_INT_24_8_REV: return D32fS8;
      }
      break;
    case GL_RED_INTEGER:
      switch (glType) {
        case GL_BYTE:
        case GL_UNSIGNED_BYTE: return u_R8;
        case GL_SHORT:
        case GL_UNSIGNED_SHORT: return u_R16;
        case GL_INT:
        case GL_UNSIGNED_INT: return u_R32;
      }
      break;
    case GL_RGBA_INTEGER:
      switch (glType) {
        case GL_BYTE:
        case GL_UNSIGNED_BYTE: return u_A8B8G8R8;
        case GL_SHORT:
        case GL_UNSIGNED_SHORT: return u_A16B16G16R16;
        case GL_INT:
        case GL_UNSIGNED_INT: return u_A32B32G32R32;
      }
      break;
  }
  return PixelFormatDescriptor{};
}

unsigned int ToGLCompressedFormat(const PixelFormatDescriptor& format) { return GLCompressedTable().To(format); }

PixelFormatDescriptor FromGLCompressedFormat(unsigned int code) {
  const PixelFormatDescriptor d = GLCompressedTable().From(code);
  if (ValueOf(d) != 0) return d;
  // The older AMD names of the same block layouts; written back under the RGTC codes.
  if (code == GL_3DC_X_AMD) return Compressed(CompressFormat::BC4_unsigned);
  if (code == GL_3DC_XY_AMD) return Compressed(CompressFormat::BC5_unsigned);
  return PixelFormatDescriptor{};
}

void SetGLHalfOES(bool on) {
  const Code from = on ? GL_HALF_FLOAT : GL_HALF_FLOAT_OES;
  const Code to = on ? GL_HALF_FLOAT_OES : GL_HALF_FLOAT;
  for (auto& entry : GLTable()) {
    if (entry.second.type == from) entry.second.type = to;
  }
}

unsigned int ToMETALFormat(const PixelFormatDescriptor& format) {
  const Code code = MetalTable().To(format);
  if (code != 0) return code;
  // ETC2 decoders read ETC1 blocks unchanged.
  return format == kETC1 ? 180 : 0;  // ETC2_RGB8
}

PixelFormatDescriptor FromMETALFormat(unsigned int code) { return MetalTable().From(code); }

unsigned int ToVulkanFormat(const PixelFormatDescriptor& format) {
  const Code code = VulkanTable().To(format);
  if (code != 0) return code;
  return format == kETC1 ? 147 : 0;  // ETC2_R8G8B8_UNORM_BLOCK
}

PixelFormatDescriptor FromVulkanFormat(unsigned int code) {
  // A8B8G8R8_*_PACK32 (51..57) have the same memory layout as R8G8B8A8_* (37..43).
  if (code >= 51 && code <= 57) code -= 14;
  return VulkanTable().From(code);
}

unsigned int ToLumoFormat(const PixelFormatDescriptor& format) { return LumoTable().To(format); }

PixelFormatDescriptor FromLumoFormat(unsigned int code) { return LumoTable().From(code); }

namespace detail {

unsigned int ToDDSFourCCFormat(const PixelFormatDescriptor& format) { return DDSFourCCTable().To(format); }

}  // namespace detail

// clang-format on

}  // namespace lumo::image
