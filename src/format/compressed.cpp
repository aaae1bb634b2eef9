#include "lumo/image/compressed_formats.h"

#include "lumo/image/formats.h"

// Hand-aligned tables follow.
// clang-format off

namespace lumo::image {
namespace {

// One row per CompressFormat number; the index is the number.
struct BlockFacts {
  unsigned char w, h, d;
  unsigned char bytes;
  char filler;  // letter of kFillers, or 0 for none
};

constexpr BlockFacts kFacts[] = {
    {1, 1, 1, 0, 0},     // 0 None
    {4, 4, 1, 8, 'A'},   // 1 DXT1
    {4, 4, 1, 8, 'A'},   // 2 DXT1_A1
    {4, 4, 1, 16, 'B'},  // 3 DXT2
    {4, 4, 1, 16, 'B'},  // 4 DXT3
    {4, 4, 1, 16, 'C'},  // 5 DXT4
    {4, 4, 1, 16, 'C'},  // 6 DXT5
    {8, 4, 1, 8, 'D'},   // 7 PVRTC_2bpp_RGB
    {8, 4, 1, 8, 'D'},   // 8 PVRTC_2bpp_RGBA
    {4, 4, 1, 8, 'E'},   // 9 PVRTC_4bpp_RGB
    {4, 4, 1, 8, 'E'},   // 10 PVRTC_4bpp_RGBA
    {8, 4, 1, 8, 0},     // 11 PVRTC2_2bpp
    {4, 4, 1, 8, 0},     // 12 PVRTC2_4bpp
    {4, 4, 1, 8, 'F'},   // 13 ETC1
    {4, 4, 1, 8, 'F'},   // 14 ETC2_RGB8
    {4, 4, 1, 16, 'G'},  // 15 ETC2_RGBA8
    {4, 4, 1, 8, 'H'},   // 16 ETC2_RGB8A1
    {4, 4, 1, 8, 'I'},   // 17 EAC_R11
    {4, 4, 1, 8, 'J'},   // 18 EAC_SIGNED_R11
    {4, 4, 1, 16, 'I'},  // 19 EAC_RG11
    {4, 4, 1, 16, 'J'},  // 20 EAC_SIGNED_RG11
    {4, 4, 1, 8, 0},     // 21 ATC_RGB
    {4, 4, 1, 16, 0},    // 22 ATC_RGBA_EXPLICIT_ALPHA
    {4, 4, 1, 16, 0},    // 23 ATC_RGBA_INTERPOLATED_ALPHA
    {4, 4, 1, 8, 'K'},   // 24 BC4_unsigned
    {4, 4, 1, 8, 'L'},   // 25 BC4_signed
    {4, 4, 1, 16, 'K'},  // 26 BC5_unsigned
    {4, 4, 1, 16, 'L'},  // 27 BC5_signed
    {4, 4, 1, 16, 'M'},  // 28 BC6H_unsigned
    {4, 4, 1, 16, 'N'},  // 29 BC6H_signed
    {4, 4, 1, 16, 'O'},  // 30 BC7
    {4, 4, 1, 16, 'P'},  // 31 ASTC_RGBA_4x4
    {5, 4, 1, 16, 'P'},  // 32 ASTC_RGBA_5x4
    {5, 5, 1, 16, 'P'},  // 33 ASTC_RGBA_5x5
    {6, 5, 1, 16, 'P'},  // 34 ASTC_RGBA_6x5
    {6, 6, 1, 16, 'P'},  // 35 ASTC_RGBA_6x6
    {8, 5, 1, 16, 'P'},  // 36 ASTC_RGBA_8x5
    {8, 6, 1, 16, 'P'},  // 37 ASTC_RGBA_8x6
    {8, 8, 1, 16, 'P'},  // 38 ASTC_RGBA_8x8
    {10, 5, 1, 16, 'P'},   // 39 ASTC_RGBA_10x5
    {10, 6, 1, 16, 'P'},   // 40 ASTC_RGBA_10x6
    {10, 8, 1, 16, 'P'},   // 41 ASTC_RGBA_10x8
    {10, 10, 1, 16, 'P'},  // 42 ASTC_RGBA_10x10
    {12, 10, 1, 16, 'P'},  // 43 ASTC_RGBA_12x10
    {12, 12, 1, 16, 'P'},  // 44 ASTC_RGBA_12x12
    {3, 3, 3, 16, 0},  // 45 ASTC_RGBA_3x3x3
    {4, 3, 3, 16, 0},  // 46 ASTC_RGBA_4x3x3
    {4, 4, 3, 16, 0},  // 47 ASTC_RGBA_4x4x3
    {4, 4, 4, 16, 0},  // 48 ASTC_RGBA_4x4x4
    {5, 4, 4, 16, 0},  // 49 ASTC_RGBA_5x4x4
    {5, 5, 4, 16, 0},  // 50 ASTC_RGBA_5x5x4
    {5, 5, 5, 16, 0},  // 51 ASTC_RGBA_5x5x5
    {6, 5, 5, 16, 0},  // 52 ASTC_RGBA_6x5x5
    {6, 6, 5, 16, 0},  // 53 ASTC_RGBA_6x6x5
    {6, 6, 6, 16, 0},  // 54 ASTC_RGBA_6x6x6
};
constexpr unsigned kLast = 54;
static_assert(sizeof kFacts / sizeof kFacts[0] == kLast + 1, "one row per format number");

// Filler blocks, 16 bytes each; 8-byte formats use the first half.
constexpr char kFillers[16][16] = {
    /* A */ {'\xFF', '\xFF', '\xFF', '\xFF', 0, 0, 0, 0},
    /* B */ {'\xFF', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF', 0, 0, 0, 0},
    /* C */ {'\xFF', '\xFF', 0, 0, 0, 0, 0, 0, '\xFF', '\xFF', '\xFF', '\xFF', 0, 0, 0, 0},
    /* D */ {'\xFF', '\xFF', '\xFF', '\xFF', '\xFE', '\xFF', '\xFF', '\xFF'},
    /* E */ {'\xAA', '\xAA', '\xAA', '\xAA', '\xFE', '\xFF', '\xFF', '\xFF'},
    /* F */ {'\xF8', '\xF8', '\xF8', '\x02', 0, 0, 0, 0},
    /* G */ {'\xFF', 0, 0, 0, 0, 0, 0, 0, '\xF8', '\xF8', '\xF8', '\x02', 0, 0, 0, 0},
    /* H */ {'\xF8', '\xF8', '\xF8', 0, 0, 0, 0, 0},
    /* I */ {'\x2E', '\xF0', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF',
             '\x2E', '\xF0', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF'},
    /* J */ {'\xAE', '\xF0', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF',
             '\xAE', '\xF0', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF'},
    /* K */ {'\xFF', 0, 0, 0, 0, 0, 0, 0, '\xFF', 0, 0, 0, 0, 0, 0, 0},
    /* L */ {'\x7F', '\x81', 0, 0, 0, 0, 0, 0, '\x7F', '\x81', 0, 0, 0, 0, 0, 0},
    /* M */ {'\xE0', '\xBD', '\xF7', '\xDE', '\x03', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
    /* N */ {'\xE2', '\xBD', '\xF7', '\xDE', '\x03', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
    /* O */ {'\xE1', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF', '\x07', 0, 0, 0, 0, 0},
    /* P */ {'\xFC', '\xFD', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF',
             '\xFF', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF', '\xFF'},
};

unsigned Number(CompressFormat format) { return static_cast<unsigned>(format); }

// Row of a real format (1..54), or null.
const BlockFacts* Facts(CompressFormat format) {
  const unsigned n = Number(format);
  return n >= 1 && n <= kLast ? &kFacts[n] : nullptr;
}

bool InRange(CompressFormat format, unsigned first, unsigned last) {
  return Number(format) >= first && Number(format) <= last;
}

bool Is2DASTC(CompressFormat format) { return InRange(format, 31, 44); }
bool Is3DASTC(CompressFormat format) { return InRange(format, 45, 54); }

template <typename T>
void Store(T* out, T value) {
  if (out != nullptr) *out = value;
}

}  // namespace

void CompressFormatBlockDimension(CompressFormat format, unsigned char* width, unsigned char* height) {
  // 3-D ASTC blocks have no 2-D footprint; callers needing one use the 3-output form.
  const BlockFacts* facts = Facts(format);
  const bool flat = facts != nullptr && !Is3DASTC(format);
  Store(width, flat ? facts->w : static_cast<unsigned char>(1));
  Store(height, flat ? facts->h : static_cast<unsigned char>(1));
}

void CompressFormatBlockDimension(CompressFormat format, unsigned char* width, unsigned char* height,
                                  unsigned char* depth) {
  if (Number(format) >= 45) {
    ASTCBlockDimension(format, width, height, depth);
    return;
  }
  CompressFormatBlockDimension(format, width, height);
  Store(depth, static_cast<unsigned char>(1));
}

void ASTCBlockDimension(CompressFormat format, unsigned char* width, unsigned char* height) {
  const bool astc = Is2DASTC(format);
  Store(width, astc ? kFacts[Number(format)].w : static_cast<unsigned char>(0));
  Store(height, astc ? kFacts[Number(format)].h : static_cast<unsigned char>(0));
}

void ASTCBlockDimension(CompressFormat format, unsigned char* width, unsigned char* height, unsigned char* depth) {
  if (Is3DASTC(format)) {
    const BlockFacts& facts = kFacts[Number(format)];
    Store(width, facts.w);
    Store(height, facts.h);
    Store(depth, facts.d);
    return;
  }
  ASTCBlockDimension(format, width, height);
  Store(depth, static_cast<unsigned char>(1));
}

unsigned long long CompressFormatBytesPerBlock(CompressFormat format) {
  const BlockFacts* facts = Facts(format);
  return facts != nullptr ? facts->bytes : 0;
}

void CompressFormatMinimumSize(CompressFormat format, unsigned long long* width, unsigned long long* height) {
  // PVRTC version 1 decodes across neighbouring blocks and needs a 2 x 2 block minimum.
  unsigned long long w = 1, h = 1;
  if (InRange(format, 7, 8)) {
    w = 16;
    h = 8;
  } else if (InRange(format, 9, 10)) {
    w = 8;
    h = 8;
  }
  Store(width, w);
  Store(height, h);
}

void CompressFormatMinimumSize(CompressFormat format, unsigned long long* width, unsigned long long* height,
                               unsigned long long* depth) {
  CompressFormatMinimumSize(format, width, height);
  Store(depth, 1ULL);
}

const char* CompressFormatDummyBlock(CompressFormat format, unsigned long long* size) {
  Store(size, CompressFormatBytesPerBlock(format));
  const BlockFacts* facts = Facts(format);
  if (facts == nullptr || facts->filler == 0) return nullptr;
  return kFillers[facts->filler - 'A'];
}

bool CompressHasAlpha(CompressFormat format) {
  switch (Number(format)) {
    case 2: case 3: case 4: case 5: case 6: case 8: case 10: case 11: case 12:
    case 15: case 16: case 22: case 23: case 30:
      return true;
    default:
      return InRange(format, 31, 54);
  }
}

bool CompressHasGreen(CompressFormat format) {
  switch (Number(format)) {
    case 0: case 17: case 18: case 24: case 25:
      return false;
    default:
      return true;
  }
}

bool CompressHasBlue(CompressFormat format) {
  switch (Number(format)) {
    case 19: case 20: case 26: case 27:
      return false;
    default:
      return CompressHasGreen(format);
  }
}

CompressFormat GetSignedCompressFormat(CompressFormat format) {
  switch (format) {
    case CompressFormat::EAC_R11: return CompressFormat::EAC_SIGNED_R11;
    case CompressFormat::EAC_RG11: return CompressFormat::EAC_SIGNED_RG11;
    case CompressFormat::BC4_unsigned: return CompressFormat::BC4_signed;
    case CompressFormat::BC5_unsigned: return CompressFormat::BC5_signed;
    case CompressFormat::BC6H_unsigned: return CompressFormat::BC6H_signed;
    default: return CompressFormat::None;
  }
}

CompressFormat GetUnsignedCompressFormat(CompressFormat format) {
  switch (format) {
    case CompressFormat::EAC_SIGNED_R11: return CompressFormat::EAC_R11;
    case CompressFormat::EAC_SIGNED_RG11: return CompressFormat::EAC_RG11;
    case CompressFormat::BC4_signed: return CompressFormat::BC4_unsigned;
    case CompressFormat::BC5_signed: return CompressFormat::BC5_unsigned;
    case CompressFormat::BC6H_signed: return CompressFormat::BC6H_unsigned;
    default: return format;
  }
}

CompressFormat GetCompressFormat(const PixelFormatDescriptor& descriptor) {
  const auto value = static_cast<unsigned long long>(descriptor);
  if ((value & 1) == 0) return CompressFormat::None;
  // 55 is let through although it names no format: it then has no geometry and
  // every size comes out 0, which callers already treat as "unusable".
  const unsigned n = static_cast<unsigned>((value >> 8) & 0xFF);
  return n >= 1 && n <= 55 ? static_cast<CompressFormat>(n) : CompressFormat::None;
}

void CompressFormatBlockDimension(const PixelFormatDescriptor& d, unsigned char* width, unsigned char* height) {
  CompressFormatBlockDimension(GetCompressFormat(d), width, height);
}

void CompressFormatBlockDimension(const PixelFormatDescriptor& d, unsigned char* width, unsigned char* height,
                                  unsigned char* depth) {
  CompressFormatBlockDimension(GetCompressFormat(d), width, height, depth);
}

void ASTCBlockDimension(const PixelFormatDescriptor& d, unsigned char* width, unsigned char* height) {
  ASTCBlockDimension(GetCompressFormat(d), width, height);
}

void ASTCBlockDimension(const PixelFormatDescriptor& d, unsigned char* width, unsigned char* height,
                        unsigned char* depth) {
  ASTCBlockDimension(GetCompressFormat(d), width, height, depth);
}

unsigned long long CompressFormatBytesPerBlock(const PixelFormatDescriptor& d) {
  return CompressFormatBytesPerBlock(GetCompressFormat(d));
}

bool IsASTC(const PixelFormatDescriptor& d) { return InRange(GetCompressFormat(d), 31, 54); }

bool IsPVRTCv1(const PixelFormatDescriptor& d) { return InRange(GetCompressFormat(d), 7, 10); }

bool IsSignedCompressFormat(const PixelFormatDescriptor& d) {
  switch (Number(GetCompressFormat(d))) {
    case 18: case 20: case 25: case 27: case 29:
      return true;
    default:
      return false;
  }
}

// clang-format on

}  // namespace lumo::image
