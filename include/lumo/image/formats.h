// Pixel format descriptors: one 64-bit value per pixel layout, its decoded
// form, predicates, size arithmetic and text names.
//
// Bit layout of a descriptor:
//   bit 0 compressed, bit 1 sRGB, bit 2 unnormalized (plain integers), 3-7 zero.
//   Compressed:   bits 8-15 hold the CompressFormat number, the rest is zero.
//   Uncompressed: four 14-bit component slots from bit 8 (slot i at 8 + 14*i);
//                 a slot is kind (bits 0-5) | bit count << 6 | signed << 12 |
//                 float << 13. Slot 0 is the most significant part of the pixel.
// Example: A8R8G8B8 (bytes B, G, R, A in memory) is 0x810203080820500.
#pragma once

#include <cstdint>
#include <string>

#include "lumo/image/compressed_formats.h"
#include "lumo/image/export.h"

namespace lumo::image {

// Compared and hashed as a plain number; 0 is no format.
enum class PixelFormatDescriptor : unsigned long long {};

enum class PixelComponent : std::uint32_t {
  None = 0,
  X = 1,  // filler bits without meaning
  R = 2,
  G = 3,
  B = 4,
  A = 5,
  D = 6,  // depth
  S = 7,  // stencil
  Sat = 8,
  I = 9,
  H = 10,
  C = 11,
  M = 12,
  Y = 13,
  K = 14,
  P = 15,       // palette index
  L = 16,       // luminance
  ChromB = 17,  // blue-difference chroma
  ChromR = 18,  // red-difference chroma
  E = 19,       // shared exponent
  IntZ = 20,    // depth read through a depth-texture alias; counts as depth
};

struct ComponentMeta {
  PixelComponent component;
  unsigned long long bits;
  bool is_signed;
  bool is_float;
};

// Decoded descriptor. Value-initialise it (PixelFormatMeta meta{};) to get the
// all-zero state: uncompressed, no components.
struct PixelFormatMeta {
  bool compressed;
  bool srgb;
  bool unnormalized;
  union {
    ComponentMeta components[4];     // when !compressed
    CompressFormat compress_format;  // when compressed; aliases components[0].component
  };
};

// ---- Encoding and decoding ----
LUMO_IMAGE_API bool ParseComponent(const PixelFormatDescriptor&, unsigned long long slot, ComponentMeta* out);
LUMO_IMAGE_API bool ParseFormat(const PixelFormatDescriptor&, PixelFormatMeta* out);
// Returns 0 (no format) when a kind or bit count does not fit its 6-bit field,
// rather than letting it spill into the neighbouring bits.
LUMO_IMAGE_API PixelFormatDescriptor MakeDescriptor(const PixelFormatMeta&);
LUMO_IMAGE_API PixelFormatDescriptor SetSRGB(const PixelFormatDescriptor&, bool);
LUMO_IMAGE_API PixelFormatDescriptor SetUnormalized(const PixelFormatDescriptor&, bool);

// ---- Predicates ----
LUMO_IMAGE_API bool IsCompressed(const PixelFormatDescriptor&);
LUMO_IMAGE_API bool IsSRGB(const PixelFormatDescriptor&);
LUMO_IMAGE_API bool IsUnormalized(const PixelFormatDescriptor&);
LUMO_IMAGE_API bool HasAlpha(const PixelFormatDescriptor&);
LUMO_IMAGE_API bool HasAlphaOrDummy(const PixelFormatDescriptor&);
LUMO_IMAGE_API bool HasComponent(const PixelFormatDescriptor&, PixelComponent);
LUMO_IMAGE_API bool HasDepth(const PixelFormatDescriptor&);
LUMO_IMAGE_API bool HasStencil(const PixelFormatDescriptor&);
LUMO_IMAGE_API bool HasDepthOrStencil(const PixelFormatDescriptor&);
LUMO_IMAGE_API bool HasPalette(const PixelFormatDescriptor&);
LUMO_IMAGE_API bool HasFloatComponent(const PixelFormatDescriptor&);
LUMO_IMAGE_API bool HasFloatComponent(const PixelFormatMeta&);

// ---- Counts and sizes ----
// Descriptor overloads decode first and return 0 when decoding fails. Sizes
// that would not fit in 64 bits are answered with 0.
LUMO_IMAGE_API unsigned long long ChannelCount(const PixelFormatMeta&);
LUMO_IMAGE_API unsigned long long ChannelCount(const PixelFormatDescriptor&);
// Bits per pixel as the fraction result / *divisor (divisor may be null).
LUMO_IMAGE_API unsigned long long BitsPerPixel(const PixelFormatMeta&, unsigned long long* divisor);
LUMO_IMAGE_API unsigned long long BitsPerPixel(const PixelFormatDescriptor&, unsigned long long* divisor);
// Bytes per pixel as the fraction result / *divisor (divisor may be null).
LUMO_IMAGE_API unsigned long long BytesPerPixel(const PixelFormatMeta&, unsigned long long* divisor);
LUMO_IMAGE_API unsigned long long BytesPerPixel(const PixelFormatDescriptor&, unsigned long long* divisor);
// alignment is a power-of-two exponent: rows are rounded up to 2^alignment
// bytes (0 = tight rows, 2 = multiples of four). 0 for compressed formats.
LUMO_IMAGE_API unsigned long long BytesPerRow(const PixelFormatMeta&, unsigned long long width,
                                              unsigned long long alignment);
LUMO_IMAGE_API unsigned long long BytesPerRow(const PixelFormatDescriptor&, unsigned long long width,
                                              unsigned long long alignment);
// Compressed formats count whole blocks (at least one, and at least the
// format's minimum size); the alignment does not apply to them.
LUMO_IMAGE_API unsigned long long BytesTotal(const PixelFormatMeta&, unsigned long long width,
                                             unsigned long long height, unsigned long long alignment);
LUMO_IMAGE_API unsigned long long BytesTotal(const PixelFormatDescriptor&, unsigned long long width,
                                             unsigned long long height, unsigned long long alignment);
// Volumes and arrays (pass the layer count as depth); 3-D ASTC counts 3-D blocks.
LUMO_IMAGE_API unsigned long long BytesTotal(const PixelFormatMeta&, unsigned long long width,
                                             unsigned long long height, unsigned long long depth,
                                             unsigned long long alignment);
LUMO_IMAGE_API unsigned long long BytesTotal(const PixelFormatDescriptor&, unsigned long long width,
                                             unsigned long long height, unsigned long long depth,
                                             unsigned long long alignment);
// Levels of a complete mip chain: 1 + floor(log2(largest extent)), at least 1.
LUMO_IMAGE_API unsigned int CalcCompleteMipCount(unsigned int width, unsigned int height);
LUMO_IMAGE_API unsigned int CalcCompleteMipCount(unsigned int width, unsigned int height, unsigned int depth);

// ---- Text names ----
// Grammar: ["s_"]["u_"] then a CompressFormat name, or one to four component
// terms KIND BITS ["s"]["f"], slot 0 first (e.g. A8R8G8B8, s_DXT5, R16f).
// An undecodable descriptor is "INVALID_PIXEL_FORMAT".
LUMO_IMAGE_API std::string ToString(const PixelFormatDescriptor&);
// Throws std::out_of_range for a kind or format number that has no name.
LUMO_IMAGE_API std::string ToString(const PixelFormatMeta&);
// Parse a name. A bit count above 63 (which a slot cannot hold) is rejected.
// The descriptor overload writes its output only on success.
LUMO_IMAGE_API bool FromString(const std::string&, PixelFormatMeta*);
LUMO_IMAGE_API bool FromString(const std::string&, PixelFormatDescriptor*);

// Named descriptors of the formats the built-in conversions connect.
namespace formats {
inline constexpr PixelFormatDescriptor DXT1{0x101ULL};
inline constexpr PixelFormatDescriptor DXT1_A1{0x201ULL};
inline constexpr PixelFormatDescriptor A1{0x4500ULL};
inline constexpr PixelFormatDescriptor A2{0x8500ULL};
inline constexpr PixelFormatDescriptor A4{0x10500ULL};
inline constexpr PixelFormatDescriptor R8{0x20200ULL};
inline constexpr PixelFormatDescriptor G8{0x20300ULL};
inline constexpr PixelFormatDescriptor A8{0x20500ULL};
inline constexpr PixelFormatDescriptor L8{0x21000ULL};
inline constexpr PixelFormatDescriptor R16{0x40200ULL};
inline constexpr PixelFormatDescriptor G16{0x40300ULL};
inline constexpr PixelFormatDescriptor A16{0x40500ULL};
inline constexpr PixelFormatDescriptor L16{0x41000ULL};
inline constexpr PixelFormatDescriptor R8s{0x120200ULL};
inline constexpr PixelFormatDescriptor A8s{0x120500ULL};
inline constexpr PixelFormatDescriptor R16s{0x140200ULL};
inline constexpr PixelFormatDescriptor A16s{0x140500ULL};
inline constexpr PixelFormatDescriptor R16f{0x240200ULL};
inline constexpr PixelFormatDescriptor R32f{0x280200ULL};
inline constexpr PixelFormatDescriptor G8R8{0x80820300ULL};
inline constexpr PixelFormatDescriptor R8G8{0x80c20200ULL};
inline constexpr PixelFormatDescriptor A8L8{0x84020500ULL};
inline constexpr PixelFormatDescriptor G16R16{0x100840300ULL};
inline constexpr PixelFormatDescriptor R16G16{0x100c40200ULL};
inline constexpr PixelFormatDescriptor A16L16{0x104040500ULL};
inline constexpr PixelFormatDescriptor G8sR8s{0x480920300ULL};
inline constexpr PixelFormatDescriptor R8sG8s{0x480d20200ULL};
inline constexpr PixelFormatDescriptor G16sR16s{0x500940300ULL};
inline constexpr PixelFormatDescriptor R16sG16s{0x500d40200ULL};
inline constexpr PixelFormatDescriptor G16fR16f{0x900a40300ULL};
inline constexpr PixelFormatDescriptor B5G6R5{0x142060c14400ULL};
inline constexpr PixelFormatDescriptor R5G6B5{0x144060c14200ULL};
inline constexpr PixelFormatDescriptor B8G8R8{0x202080c20400ULL};
inline constexpr PixelFormatDescriptor R8G8B8{0x204080c20200ULL};
inline constexpr PixelFormatDescriptor B16G16R16{0x402100c40400ULL};
inline constexpr PixelFormatDescriptor R16G16B16{0x404100c40200ULL};
inline constexpr PixelFormatDescriptor B16fG16fR16f{0x2402900e40400ULL};
inline constexpr PixelFormatDescriptor R16fG16fB16f{0x2404900e40200ULL};
inline constexpr PixelFormatDescriptor B32fG32fR32f{0x2802a00e80400ULL};
inline constexpr PixelFormatDescriptor R32fG32fB32f{0x2804a00e80200ULL};
inline constexpr PixelFormatDescriptor A4B4G4R4{0x408103041010500ULL};
inline constexpr PixelFormatDescriptor A4R4G4B4{0x410103040810500ULL};
inline constexpr PixelFormatDescriptor B4G4R4A4{0x414102040c10400ULL};
inline constexpr PixelFormatDescriptor R4G4B4A4{0x414104040c10200ULL};
inline constexpr PixelFormatDescriptor A1B5G5R5{0x508143051004500ULL};
inline constexpr PixelFormatDescriptor A1R5G5B5{0x510143050804500ULL};
inline constexpr PixelFormatDescriptor X8B8G8R8{0x808203081020100ULL};
inline constexpr PixelFormatDescriptor A8B8G8R8{0x808203081020500ULL};
inline constexpr PixelFormatDescriptor s_A8B8G8R8{0x808203081020502ULL};
inline constexpr PixelFormatDescriptor X8R8G8B8{0x810203080820100ULL};
inline constexpr PixelFormatDescriptor s_X8R8G8B8{0x810203080820102ULL};
inline constexpr PixelFormatDescriptor A8R8G8B8{0x810203080820500ULL};
inline constexpr PixelFormatDescriptor s_A8R8G8B8{0x810203080820502ULL};
inline constexpr PixelFormatDescriptor B8G8R8A8{0x814202080c20400ULL};
inline constexpr PixelFormatDescriptor R8G8B8A8{0x814204080c20200ULL};
inline constexpr PixelFormatDescriptor s_R8G8B8A8{0x814204080c20202ULL};
inline constexpr PixelFormatDescriptor A16B16G16R16{0x1008403101040500ULL};
inline constexpr PixelFormatDescriptor A16R16G16B16{0x1010403100840500ULL};
inline constexpr PixelFormatDescriptor B16G16R16A16{0x1014402100c40400ULL};
inline constexpr PixelFormatDescriptor R16G16B16A16{0x1014404100c40200ULL};
inline constexpr PixelFormatDescriptor A8sB8sG8sR8s{0x4809203481120500ULL};
inline constexpr PixelFormatDescriptor A8sR8sG8sB8s{0x4811203480920500ULL};
inline constexpr PixelFormatDescriptor A16sB16sG16sR16s{0x5009403501140500ULL};
inline constexpr PixelFormatDescriptor A16sR16sG16sB16s{0x5011403500940500ULL};
inline constexpr PixelFormatDescriptor A16fB16fG16fR16f{0x900a403901240500ULL};
inline constexpr PixelFormatDescriptor u_A16fB16fG16fR16f{0x900a403901240504ULL};
inline constexpr PixelFormatDescriptor A16fR16fG16fB16f{0x9012403900a40500ULL};
inline constexpr PixelFormatDescriptor u_A16fR16fG16fB16f{0x9012403900a40504ULL};
inline constexpr PixelFormatDescriptor B16fG16fR16fA16f{0x9016402900e40400ULL};
inline constexpr PixelFormatDescriptor R16fG16fB16fA16f{0x9016404900e40200ULL};
inline constexpr PixelFormatDescriptor A32fB32fG32fR32f{0xa00a803a01280500ULL};
inline constexpr PixelFormatDescriptor u_A32fB32fG32fR32f{0xa00a803a01280504ULL};
inline constexpr PixelFormatDescriptor A32fR32fG32fB32f{0xa012803a00a80500ULL};
inline constexpr PixelFormatDescriptor u_A32fR32fG32fB32f{0xa012803a00a80504ULL};
}  // namespace formats

}  // namespace lumo::image
