// lmimage preview: one PNG contact sheet of every level, face, layer and slice
// of a texture, for people to look at.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "cli.h"
#include "file_io.h"
#include "lumo/image/mipmaps.h"
#include "pictures.h"
#include "pipeline.h"
#include "verbs.h"

namespace lumo::image::cli {
namespace {

constexpr unsigned long long kGap = 4;
constexpr unsigned long long kSheetWidth = 4096;  // rows wrap beyond this
constexpr std::uint8_t kBackground = 40;

float SrgbEncode(float linear) {
  if (!(linear > 0.0031308f)) return linear <= 0.0f ? 0.0f : linear * 12.92f;
  return linear >= 1.0f ? 1.0f : 1.055f * std::pow(linear, 1.0f / 2.4f) - 0.055f;
}

// Stored value to display value in [0, 1]: signed values map -1..1 onto the
// range, float values are tone-mapped (x / (1 + x)) from linear light.
float Display(float value, const Channels& channels) {
  if (channels.is_float) return SrgbEncode(value > 0.0f ? value / (1.0f + value) : 0.0f);
  if (channels.is_signed) value = (value + 1.0f) * 0.5f;
  return value > 0.0f ? (value < 1.0f ? value : 1.0f) : 0.0f;
}

struct Tile {
  const Element* element;
  unsigned long long width, height;  // as shown
  unsigned long long x = 0, y = 0;
};

// Area average of the float pixels under display pixel (x, y) of a w x h tile.
void Sample(const SurfaceData& pixels, unsigned long long x, unsigned long long y, unsigned long long w,
            unsigned long long h, float out[4]) {
  const unsigned long long x0 = x * pixels.Width() / w, x1 = std::max(x0 + 1, (x + 1) * pixels.Width() / w);
  const unsigned long long y0 = y * pixels.Height() / h, y1 = std::max(y0 + 1, (y + 1) * pixels.Height() / h);
  float sum[4] = {0, 0, 0, 0};
  for (unsigned long long sy = y0; sy < y1; ++sy) {
    const float* row = reinterpret_cast<const float*>(pixels.Buffer() + sy * pixels.BytesPerRow());
    for (unsigned long long sx = x0; sx < x1; ++sx)
      for (int c = 0; c < 4; ++c) sum[c] += row[sx * 4 + c];
  }
  const float n = static_cast<float>((x1 - x0) * (y1 - y0));
  for (int c = 0; c < 4; ++c) out[c] = sum[c] / n;
}

void Paint(const Tile& tile, const Channels& channels, SurfaceData& sheet) {
  for (unsigned long long y = 0; y < tile.height; ++y) {
    auto* out = reinterpret_cast<std::uint8_t*>(sheet.Buffer() + (tile.y + y) * sheet.BytesPerRow()) + tile.x * 4;
    for (unsigned long long x = 0; x < tile.width; ++x, out += 4) {
      float value[4];
      Sample(*tile.element->pixels, x, y, tile.width, tile.height, value);
      // Alpha shown over a checkerboard of 8-pixel squares.
      const float alpha = channels.present[3] ? std::clamp(value[3], 0.0f, 1.0f) : 1.0f;
      const float board = ((x / 8 + y / 8) % 2 == 0) ? 0.8f : 0.55f;
      for (int c = 0; c < 3; ++c) {
        const float shown = channels.present[c] ? Display(value[c], channels) : 0.0f;
        out[c] = static_cast<std::uint8_t>(std::lround((shown * alpha + board * (1.0f - alpha)) * 255.0f));
      }
      out[3] = 255;
    }
  }
}

int Run(const Invocation& invocation) {
  if (invocation.operands.size() != 2) throw UsageError("preview needs IN and OUT.png");
  const std::string& input = invocation.operands[0];
  const std::string& output = invocation.operands[1];
  if (ContainerForExtension(std::filesystem::path(output).extension().string(), output) != ImageFormat::PNG)
    throw UsageError(output, "the contact sheet is a PNG file: name it .png");
  unsigned long long max_tile = 256;
  if (invocation.Has("max-tile")) {
    const std::string& text = invocation.Value("max-tile");
    if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos ||
        std::strtoull(text.c_str(), nullptr, 10) < 1 || std::strtoull(text.c_str(), nullptr, 10) > 16384)
      throw UsageError(text, "--max-tile needs a whole number from 1 to 16384");
    max_tile = std::strtoull(text.c_str(), nullptr, 10);
  }
  RefuseSameFile(input, output);

  const LoadedImage loaded = LoadImage(input);
  const Channels channels = ChannelsOf(loaded.pyramid->Format());
  const std::vector<Element> elements = Elements(*loaded.pyramid, input);

  // One row per level, wrapped when it would grow past the sheet width.
  std::vector<Tile> tiles;
  unsigned long long sheet_width = 0, sheet_height = kGap, x = kGap, row_height = 0;
  unsigned long long level = elements.empty() ? 0 : elements.front().level;
  for (const Element& element : elements) {
    const unsigned long long w = element.pixels->Width(), h = element.pixels->Height();
    const unsigned long long longest = std::max(w, h);
    Tile tile{&element, w, h};
    if (longest > max_tile) {
      tile.width = std::max<unsigned long long>(1, w * max_tile / longest);
      tile.height = std::max<unsigned long long>(1, h * max_tile / longest);
    }
    if (element.level != level || (x > kGap && x + tile.width + kGap > kSheetWidth)) {
      sheet_height += row_height + kGap;
      x = kGap;
      row_height = 0;
      level = element.level;
    }
    tile.x = x;
    tile.y = sheet_height;
    x += tile.width + kGap;
    row_height = std::max(row_height, tile.height);
    sheet_width = std::max(sheet_width, x);
    tiles.push_back(tile);
  }
  sheet_height += row_height + kGap;

  const std::shared_ptr<SurfaceDataBitmap> sheet =
      SurfaceDataBitmap::Create(sheet_width, sheet_height, formats::A8B8G8R8, 2);
  if (!sheet) throw Failure(output, "cannot make a " + std::to_string(sheet_width) + "x" +
                                        std::to_string(sheet_height) + " sheet");
  for (unsigned long long y = 0; y < sheet_height; ++y) {
    auto* row = reinterpret_cast<std::uint8_t*>(sheet->Buffer() + y * sheet->BytesPerRow());
    for (unsigned long long i = 0; i < sheet_width * 4; ++i) row[i] = (i % 4 == 3) ? 255 : kBackground;
  }
  std::ostream& out = *invocation.out;
  for (const Tile& tile : tiles) {
    Paint(tile, channels, *sheet);
    out << tile.element->label << ": " << tile.element->pixels->Width() << "x" << tile.element->pixels->Height()
        << " at " << tile.x << "," << tile.y;
    if (tile.width != tile.element->pixels->Width()) out << " shown " << tile.width << "x" << tile.height;
    out << '\n';
  }
  WritePng(sheet, output, "the sheet");
  out << output << ": " << sheet_width << "x" << sheet_height << " contact sheet of " << tiles.size() << " image"
      << (tiles.size() == 1 ? "" : "s") << '\n';
  return kExitOk;
}

}  // namespace

Verb PreviewVerb() {
  return Verb{
      "preview",
      "draw every level, face, layer and slice of a texture into one PNG",
      "IN OUT.png [--max-tile N]",
      "Reads IN (any registered container) and writes a contact sheet: one row per\n"
      "mip level (wrapped on wide levels), each face, layer or slice a tile at its\n"
      "real size, shrunk by area averaging when its longer side exceeds --max-tile\n"
      "(default 256). Block formats are decoded; float formats are tone-mapped\n"
      "(x / (1 + x), then sRGB) for display; signed values map -1..1 onto black to\n"
      "white; alpha is shown over a grey checkerboard. Prints one line per tile\n"
      "(label, size, position on the sheet) and one for the sheet.",
      {{"max-tile", "N", "largest tile side in pixels (default 256)"}},
      &Run,
  };
}

}  // namespace lumo::image::cli
