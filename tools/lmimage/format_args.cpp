// Parsing of pixel-format arguments shared by the verbs.
#include "format_args.h"

#include <cstdio>
#include <stdexcept>

#include "cli.h"

namespace lumo::image::cli {
namespace {

constexpr const char* kBadArgument = "not a pixel format name or 0x hex value";

// Accepts 0x/0X and 1 to 16 significant hex digits.
bool ParseHex(const std::string& text, unsigned long long* value, bool* overflow) {
  *value = 0;
  *overflow = false;
  if (text.size() < 3 || text[0] != '0' || (text[1] != 'x' && text[1] != 'X')) return false;
  for (size_t i = 2; i < text.size(); ++i) {
    const char c = text[i];
    unsigned digit;
    if (c >= '0' && c <= '9') {
      digit = static_cast<unsigned>(c - '0');
    } else if (c >= 'a' && c <= 'f') {
      digit = static_cast<unsigned>(c - 'a' + 10);
    } else if (c >= 'A' && c <= 'F') {
      digit = static_cast<unsigned>(c - 'A' + 10);
    } else {
      return false;
    }
    if (*value >> 60 != 0) *overflow = true;
    *value = (*value << 4) | digit;
  }
  return true;
}

}  // namespace

std::string Hex(unsigned long long value) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%llx", value);
  return text;
}

// The library's name, or "" when it has none (e.g. format number 55, which
// decodes but is missing from the name table).
std::string NameOf(const PixelFormatDescriptor& descriptor) {
  try {
    std::string name = ToString(descriptor);
    return name == "INVALID_PIXEL_FORMAT" ? std::string() : name;
  } catch (const std::out_of_range&) {
    return std::string();
  }
}

Resolved ResolveFormat(const std::string& arg) {
  Resolved resolved{};
  unsigned long long value = 0;
  bool overflow = false;
  if (ParseHex(arg, &value, &overflow)) {
    if (overflow) throw UsageError(arg, "hex value does not fit in 64 bits");
    resolved.descriptor = static_cast<PixelFormatDescriptor>(value);
    if (!ParseFormat(resolved.descriptor, &resolved.meta)) {
      throw UsageError(arg, "does not decode to a pixel format");
    }
  } else if (!FromString(arg, &resolved.descriptor) || !ParseFormat(resolved.descriptor, &resolved.meta)) {
    throw UsageError(arg, kBadArgument);
  }
  resolved.name = NameOf(resolved.descriptor);
  if (resolved.name.empty()) {
    throw UsageError(arg, resolved.meta.compressed
                              ? "compressed format number " +
                                    std::to_string(static_cast<unsigned>(resolved.meta.compress_format)) +
                                    " has no name"
                              : "does not decode to a pixel format");
  }
  return resolved;
}

}  // namespace lumo::image::cli
