// libFuzzer entry point for the block decoders alone, much faster than going
// through the containers: byte 0 picks the format, bytes 1 to 3 the size and
// the sRGB flag, the rest are the blocks (repeated to the size the picture
// needs, so every input decodes; bit 7 of byte 3 cuts them one byte short
// instead, which must be refused). Sources and targets are exactly sized, so
// ASan flags any read or write past either.
//
// LMIMAGE_FUZZ_BLOCK_FORMATS=7-10,21-23 limits byte 0 to those format numbers
// (1 DXT1 ... 54 ASTC_RGBA_6x6x6), so a long run can give one family its share.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "lumo/image/blocks.h"
#include "lumo/image/formats.h"

namespace {
constexpr unsigned kFormats = 54;

std::vector<unsigned> PickableFormats() {
  std::vector<unsigned> numbers;
  const char* text = std::getenv("LMIMAGE_FUZZ_BLOCK_FORMATS");
  while (text != nullptr && *text != '\0') {
    char* end = nullptr;
    const unsigned long first = std::strtoul(text, &end, 10);
    unsigned long last = first;
    if (*end == '-') last = std::strtoul(end + 1, &end, 10);
    for (unsigned long n = first; n <= last && n <= kFormats; ++n)
      if (n >= 1) numbers.push_back(static_cast<unsigned>(n));
    if (*end != ',') break;
    text = end + 1;
  }
  if (numbers.empty())
    for (unsigned n = 1; n <= kFormats; ++n) numbers.push_back(n);
  return numbers;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace lumo::image;
  static const std::vector<unsigned> pickable = PickableFormats();
  if (size < 5) return 0;
  const unsigned long long number = pickable[data[0] % pickable.size()];
  const bool srgb = (data[1] & 0x80) != 0;
  const unsigned long long width = 1 + (data[1] & 0x1f);
  const unsigned long long height = 1 + (data[2] & 0x1f);
  const unsigned long long depth = 1 + (data[3] & 0x03);
  const bool cut = (data[3] & 0x80) != 0;
  const PixelFormatDescriptor format = SetSRGB(static_cast<PixelFormatDescriptor>((number << 8) | 1u), srgb);
  const PixelFormatDescriptor decoded = blocks::DecodedFormat(format);
  if (decoded == PixelFormatDescriptor{}) return 0;

  const bool volume_blocks = number >= 45;
  const unsigned long long grid =
      volume_blocks ? BytesTotal(format, width, height, depth, 0) : BytesTotal(format, width, height, 0) * depth;
  if (grid == 0) return 0;
  const unsigned long long given = cut ? grid - 1 : grid;
  std::unique_ptr<std::uint8_t[]> blocks(new std::uint8_t[given]);
  const std::uint8_t* payload = data + 4;
  const std::size_t payload_size = size - 4;
  for (unsigned long long i = 0; i < given; ++i) blocks[i] = payload[i % payload_size];

  unsigned long long divisor = 0;
  const unsigned long long pixel_bytes = BytesPerPixel(decoded, &divisor);
  const unsigned long long row = width * pixel_bytes;
  const unsigned long long out_size = row * height * depth;
  std::unique_ptr<std::uint8_t[]> pixels(new std::uint8_t[out_size]);
  const bool ok = blocks::DecodeBlocks(format, blocks.get(), given, width, height, depth, pixels.get(), out_size, row);
  if (cut && ok) __builtin_trap();  // blocks one byte short must be refused
  if (ok) {
    // Every pixel written: reading them back lets MSan-style tools and UBSan
    // see the values; the fold keeps the loop.
    volatile std::uint8_t fold = 0;
    for (unsigned long long i = 0; i < out_size; i += 61) fold = fold ^ pixels[i];
  }
  return 0;
}
