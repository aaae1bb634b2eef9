#include <cstring>
#include <string>
#include <unordered_map>

#include "lumo/image/formats.h"

// Hand-aligned tables follow.
// clang-format off

namespace lumo::image {
namespace {

constexpr const char* kInvalidName = "INVALID_PIXEL_FORMAT";

// Index = PixelComponent value.
constexpr const char* kKindNames[] = {"",  "X", "R", "G", "B", "A", "D", "S", "Sat", "I", "H",
                                      "C", "M", "Y", "K", "P", "L", "ChromB", "ChromR", "E", "IntZ"};

// Index = CompressFormat number.
constexpr const char* kFormatNames[] = {
    "",
    "DXT1", "DXT1_A1", "DXT2", "DXT3", "DXT4", "DXT5",
    "PVRTC_2bpp_RGB", "PVRTC_2bpp_RGBA", "PVRTC_4bpp_RGB", "PVRTC_4bpp_RGBA", "PVRTC2_2bpp", "PVRTC2_4bpp",
    "ETC1", "ETC2_RGB8", "ETC2_RGBA8", "ETC2_RGB8A1",
    "EAC_R11", "EAC_SIGNED_R11", "EAC_RG11", "EAC_SIGNED_RG11",
    "ATC_RGB", "ATC_RGBA_EXPLICIT_ALPHA", "ATC_RGBA_INTERPOLATED_ALPHA",
    "BC4_unsigned", "BC4_signed", "BC5_unsigned", "BC5_signed", "BC6H_unsigned", "BC6H_signed", "BC7",
    "ASTC_RGBA_4x4", "ASTC_RGBA_5x4", "ASTC_RGBA_5x5", "ASTC_RGBA_6x5", "ASTC_RGBA_6x6", "ASTC_RGBA_8x5",
    "ASTC_RGBA_8x6", "ASTC_RGBA_8x8", "ASTC_RGBA_10x5", "ASTC_RGBA_10x6", "ASTC_RGBA_10x8", "ASTC_RGBA_10x10",
    "ASTC_RGBA_12x10", "ASTC_RGBA_12x12",
    "ASTC_RGBA_3x3x3", "ASTC_RGBA_4x3x3", "ASTC_RGBA_4x4x3", "ASTC_RGBA_4x4x4", "ASTC_RGBA_5x4x4",
    "ASTC_RGBA_5x5x4", "ASTC_RGBA_5x5x5", "ASTC_RGBA_6x5x5", "ASTC_RGBA_6x6x5", "ASTC_RGBA_6x6x6",
};
static_assert(sizeof kKindNames / sizeof kKindNames[0] == 21, "one name per component kind");
static_assert(sizeof kFormatNames / sizeof kFormatNames[0] == 55, "one name per compress format");

// Both directions of a name table; the first occurrence of a key wins.
struct NameTable {
  std::unordered_map<std::uint32_t, std::string> to_text;
  std::unordered_map<std::string, std::uint32_t> to_value;

  template <std::size_t N>
  explicit NameTable(const char* const (&names)[N]) {
    for (std::uint32_t value = 0; value < N; ++value) {
      to_text.emplace(value, names[value]);
      to_value.emplace(names[value], value);
    }
  }
};

const NameTable& KindTable() {
  static const NameTable table(kKindNames);
  return table;
}

const NameTable& FormatTable() {
  static const NameTable table(kFormatNames);
  return table;
}

// Build both tables while the library loads, so later calls only read them.
[[maybe_unused]] const bool kTablesBuilt = (KindTable(), FormatTable(), true);

bool IsUpper(char c) { return c >= 'A' && c <= 'Z'; }
bool IsLetter(char c) { return IsUpper(c) || (c >= 'a' && c <= 'z'); }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

std::string ToString(const PixelFormatDescriptor& d) {
  PixelFormatMeta meta{};
  if (!ParseFormat(d, &meta)) return kInvalidName;
  // The one number GetCompressFormat accepts without a name.
  if (meta.compressed && FormatTable().to_text.count(static_cast<std::uint32_t>(meta.compress_format)) == 0) {
    return kInvalidName;
  }
  return ToString(meta);
}

std::string ToString(const PixelFormatMeta& meta) {
  std::string text;
  if (meta.srgb) text += "s_";
  if (meta.unnormalized) text += "u_";
  if (meta.compressed) {
    text += FormatTable().to_text.at(static_cast<std::uint32_t>(meta.compress_format));
  } else {
    for (const ComponentMeta& slot : meta.components) {
      if (slot.component == PixelComponent::None) break;
      text += KindTable().to_text.at(static_cast<std::uint32_t>(slot.component));
      text += std::to_string(slot.bits);
      if (slot.is_signed) text += 's';
      if (slot.is_float) text += 'f';
    }
  }
  return text.empty() ? kInvalidName : text;
}

bool FromString(const std::string& name, PixelFormatMeta* meta) {
  if (meta == nullptr) return false;
  *meta = PixelFormatMeta{};
  const char* p = name.c_str();  // the name ends at its first NUL
  const char* const end = p + std::strlen(p);
  if (p == end) return true;

  if (end - p >= 2 && p[0] == 's' && p[1] == '_') {
    meta->srgb = true;
    p += 2;
  }
  if (end - p >= 2 && p[0] == 'u' && p[1] == '_') {
    meta->unnormalized = true;
    p += 2;
  }

  const auto& formats = FormatTable().to_value;
  if (const auto hit = formats.find(std::string(p, end)); hit != formats.end()) {
    meta->compressed = true;
    meta->compress_format = static_cast<CompressFormat>(hit->second);
    return true;
  }

  const auto& kinds = KindTable().to_value;
  for (ComponentMeta& slot : meta->components) {
    if (p == end || !IsUpper(*p)) return false;
    const char* kind_end = p + 1;
    while (kind_end != end && IsLetter(*kind_end)) ++kind_end;
    const auto kind = kinds.find(std::string(p, kind_end));
    if (kind == kinds.end()) return false;
    slot.component = static_cast<PixelComponent>(kind->second);
    p = kind_end;

    if (p == end || !IsDigit(*p)) return false;
    unsigned long long bits = 0;
    while (p != end && IsDigit(*p)) {
      bits = bits * 10 + static_cast<unsigned long long>(*p - '0');
      // A slot holds at most 63 bits; larger counts cannot be encoded.
      if (bits > 63) return false;
      ++p;
    }
    slot.bits = bits;

    if (p != end && *p == 's') {
      slot.is_signed = true;
      ++p;
    }
    if (p != end && *p == 'f') {
      slot.is_float = true;
      ++p;
    }
    if (p == end) return true;
  }
  return false;  // a fifth term
}

bool FromString(const std::string& name, PixelFormatDescriptor* descriptor) {
  PixelFormatMeta meta{};
  if (!FromString(name, &meta)) return false;
  if (descriptor != nullptr) *descriptor = MakeDescriptor(meta);
  return true;
}

// clang-format on

}  // namespace lumo::image
