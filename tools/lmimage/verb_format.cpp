// lmimage format: describe pixel formats given by name or descriptor value,
// or list the compressed formats.
#include <algorithm>
#include <cstdio>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "lumo/image/compressed_formats.h"
#include "lumo/image/formats.h"
#include "format_args.h"
#include "verbs.h"

namespace lumo::image::cli {
namespace {

// Kind texts come from the library's own table: name a one-bit component of
// that kind and drop the "1".
std::string KindName(PixelComponent kind) {
  PixelFormatMeta meta{};
  meta.components[0] = ComponentMeta{kind, 1, false, false};
  try {
    std::string term = ToString(meta);
    if (term.size() > 1 && term.back() == '1') return term.substr(0, term.size() - 1);
  } catch (const std::out_of_range&) {
  }
  return "kind " + std::to_string(static_cast<unsigned>(kind));
}

// "bytes per pixel:" plus room; keeps the values in one column.
constexpr size_t kKeyWidth = 18;

// n/d as the library returns it, plain n when d is 1.
std::string Fraction(unsigned long long numerator, unsigned long long divisor) {
  if (divisor == 0) return "unknown";
  if (divisor == 1) return std::to_string(numerator);
  return std::to_string(numerator) + "/" + std::to_string(divisor);
}

std::string YesNo(bool value) { return value ? "yes" : "no"; }

std::string Footprint(CompressFormat format) {
  unsigned char w = 0, h = 0, d = 0;
  CompressFormatBlockDimension(format, &w, &h, &d);
  return std::to_string(w) + "x" + std::to_string(h) + "x" + std::to_string(d);
}

std::string MinimumSize(CompressFormat format) {
  unsigned long long w = 0, h = 0, d = 0;
  CompressFormatMinimumSize(format, &w, &h, &d);
  return std::to_string(w) + "x" + std::to_string(h) + "x" + std::to_string(d);
}

std::string ComponentText(const ComponentMeta& component) {
  std::string type;
  if (component.is_signed && component.is_float) {
    type = "signed float";
  } else if (component.is_float) {
    type = "float";
  } else {
    type = component.is_signed ? "signed" : "unsigned";
  }
  return KindName(component.component) + " " + std::to_string(component.bits) + " " + type;
}

void Field(std::ostream& out, const std::string& key, const std::string& value) {
  const std::string label = key + ":";
  out << label << std::string(kKeyWidth > label.size() ? kKeyWidth - label.size() : 1, ' ') << value << '\n';
}

void Describe(const Resolved& format, std::ostream& out) {
  const PixelFormatMeta& meta = format.meta;
  unsigned long long bits_divisor = 0;
  const unsigned long long bits = BitsPerPixel(meta, &bits_divisor);
  unsigned long long bytes_divisor = 0;
  const unsigned long long bytes = BytesPerPixel(meta, &bytes_divisor);

  Field(out, "descriptor", Hex(static_cast<unsigned long long>(format.descriptor)));
  Field(out, "name", format.name);
  Field(out, "compressed", YesNo(meta.compressed));
  Field(out, "srgb", YesNo(meta.srgb));
  Field(out, "unnormalized", YesNo(meta.unnormalized));
  Field(out, "channels", std::to_string(ChannelCount(meta)));
  Field(out, "bits per pixel", Fraction(bits, bits_divisor));
  Field(out, "bytes per pixel", Fraction(bytes, bytes_divisor));
  if (meta.compressed) {
    const CompressFormat cf = meta.compress_format;
    Field(out, "format number", std::to_string(static_cast<unsigned>(cf)));
    Field(out, "block", Footprint(cf));
    Field(out, "bytes per block", std::to_string(CompressFormatBytesPerBlock(cf)));
    Field(out, "minimum size", MinimumSize(cf));
    return;
  }
  for (unsigned slot = 0; slot < 4 && meta.components[slot].component != PixelComponent::None; ++slot) {
    Field(out, "component " + std::to_string(slot), ComponentText(meta.components[slot]));
  }
}

struct ListedFormat {
  unsigned number;
  std::string name;
};

// Walks every number the descriptor's 8-bit field can hold and keeps those
// the library both sizes and names, so the tool never carries its own list.
std::vector<ListedFormat> CompressedFormats() {
  std::vector<ListedFormat> formats;
  for (unsigned number = 1; number < 256; ++number) {
    const CompressFormat cf = static_cast<CompressFormat>(number);
    if (CompressFormatBytesPerBlock(cf) == 0) continue;
    PixelFormatMeta meta{};
    meta.compressed = true;
    meta.compress_format = cf;
    std::string name = NameOf(MakeDescriptor(meta));
    if (!name.empty()) formats.push_back({number, std::move(name)});
  }
  return formats;
}

void List(std::ostream& out) {
  const std::vector<ListedFormat> formats = CompressedFormats();
  size_t name_width = 4;
  for (const ListedFormat& format : formats) name_width = std::max(name_width, format.name.size());

  char line[160];
  std::snprintf(line, sizeof line, "%3s  %-*s  %-8s  %5s  %s", "#", static_cast<int>(name_width), "name", "block",
                "bytes", "minimum");
  out << line << '\n';
  for (const ListedFormat& format : formats) {
    const CompressFormat cf = static_cast<CompressFormat>(format.number);
    std::snprintf(line, sizeof line, "%3u  %-*s  %-8s  %5llu  %s", format.number, static_cast<int>(name_width),
                  format.name.c_str(), Footprint(cf).c_str(), CompressFormatBytesPerBlock(cf), MinimumSize(cf).c_str());
    out << line << '\n';
  }
}

int Run(const Invocation& invocation) {
  std::ostream& out = *invocation.out;
  if (invocation.Has("list")) {
    if (!invocation.operands.empty()) {
      throw UsageError(invocation.operands.front(), "--list takes no format arguments");
    }
    List(out);
    return kExitOk;
  }
  if (invocation.operands.empty()) throw UsageError("missing NAME-or-0xHEX argument");

  // Check every argument before printing, so a typo does not leave half a report.
  std::vector<Resolved> formats;
  for (const std::string& arg : invocation.operands) formats.push_back(ResolveFormat(arg));
  for (size_t i = 0; i < formats.size(); ++i) {
    if (i != 0) out << '\n';
    Describe(formats[i], out);
  }
  return kExitOk;
}

}  // namespace

Verb FormatVerb() {
  return Verb{
      "format",
      "describe pixel formats given by name or descriptor value",
      "NAME-or-0xHEX...\n--list",
      "Each argument is a format name (A8R8G8B8, s_DXT5, u_R16s, B10fG11fR11f) or a\n"
      "descriptor value in hex (0x603). Every argument is checked before anything\n"
      "is printed; the blocks are separated by a blank line. Fractions such as\n"
      "bytes per pixel print as n/d, or as n when d is 1.",
      {{"list", nullptr, "print every compressed format as a table"}},
      &Run,
  };
}

}  // namespace lumo::image::cli
