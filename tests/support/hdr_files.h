// HDR files built by hand (header lines, scanline mixes and exposures the
// writer never makes) for the tests and the hostile-input suite.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "lumo/image/formats.h"
#include "lumo/image/half.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/surface_data.h"
#include "support/bytes.h"

namespace lumo::image::testing {

// `header` (magic and header lines, each with its newline), then the
// resolution line and the scanline bytes as they stand.
inline Bytes HDRFile(const std::string& header, const std::string& resolution, const std::string& scanlines) {
  const std::string text = header + resolution + "\n" + scanlines;
  return Bytes(text.begin(), text.end());
}

// A run-length encoded scanline: the marker, then the four planes' packets.
inline std::string HDRRleRow(int width, const std::string& packets) {
  return std::string{2, 2, static_cast<char>(width >> 8), static_cast<char>(width & 0xFF)} + packets;
}

// An A32fB32fG32fR32f surface from R, G, B triples, row after row.
inline std::shared_ptr<SurfaceData> RgbSurface(unsigned long long width, unsigned long long height,
                                               const std::vector<float>& rgb) {
  auto s = SurfaceDataBitmap::Create(width, height, formats::A32fB32fG32fR32f, 2);
  for (size_t i = 0; i < width * height; ++i) {
    const float pixel[4] = {rgb[i * 3], rgb[i * 3 + 1], rgb[i * 3 + 2], 1.0f};
    std::memcpy(s->Buffer() + i * 16, pixel, 16);
  }
  return s;
}

inline Bytes WriteHDR(const SurfaceData& surface, int flags) {
  size_t size = 0;
  const auto file = ImageFactory::Instance()->Serialize(ImageFormat::HDR, &surface, &size, flags);
  return file ? Bytes(file.get(), file.get() + size) : Bytes();
}

// Files that reach every decoding path of the HDR reader, for the hostile-input suite.
inline std::vector<Bytes> HDRHostileSeeds() {
  // A flat stretch then a gradient, so the planes hold runs, short runs and literals.
  std::vector<float> rgb;
  for (int i = 0; i < 16 * 3; ++i) {
    const float v = i % 16 < 6 ? 0.5f : 0.01f * static_cast<float>(i % 16) * static_cast<float>(1 + i / 16);
    rgb.insert(rgb.end(), {v, v * 0.5f, v * 4.0f});
  }
  auto grey = SurfaceDataBitmap::Create(3, 2, formats::R16f, 2);
  for (int i = 0; i < 6; ++i) {
    const half_float::half h(0.25f * static_cast<float>(i));
    std::memcpy(grey->Buffer() + (i / 3) * grey->BytesPerRow() + (i % 3) * 2, &h, 2);
  }
  // Exposure and gamma lines, a +Y resolution, and the three kinds of row:
  // run-length encoded, flat, and flat though it starts like a marker.
  const std::string rle = HDRRleRow(8, std::string("\x84\x80\x04\x90\xa0\xb0\xc0", 7) + "\x88\x40" + "\x88\x10" +
                                           std::string("\x82\x81\x06\x82\x83\x84\x85\x86\x87", 9));
  std::string flat, fake_marker = std::string{2, 2, 0, 9};
  for (int i = 0; i < 8; ++i) flat += std::string{static_cast<char>(0x80 + i * 8), 0x40, 0x10, static_cast<char>(0x81)};
  fake_marker += flat.substr(4);
  const Bytes by_hand = HDRFile(
      "#?AUTOPANO\n# made by hand\nEXPOSURE=2\nGAMMA=1.0\nPRIMARIES=0.64 0.33 0.3 0.6 0.15 0.06 0.3127 0.329\n"
      "FORMAT=32-bit_rle_rgbe\n\n",
      "+Y 3 +X 8", rle + flat + fake_marker);
  return {WriteHDR(*RgbSurface(16, 3, rgb), ISF_HDR_RLE), WriteHDR(*grey, ISF_HDR_NOCOMPRESS), by_hand};
}

}  // namespace lumo::image::testing
