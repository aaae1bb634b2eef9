// libFuzzer entry point: every input goes through format detection, every view
// the decoder hands out is read in full, and the image is written back in its
// own format (see support/exercise_image.h).
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "lumo/image/image_factory.h"
#include "lumo/image/surface_data.h"
#include "lumo/log/log.h"
#include "support/exercise_image.h"
#include "support/png_files.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // Nearly every input is refused with a log line; printing them would cost
  // more than decoding.
  lumo::log::SetSink([](unsigned, lumo::log::Severity, int, const std::string&) {});
  // Pictures up to 1024 x 1024: large enough for every code path, small enough
  // that a tiny file declaring a big picture costs milliseconds, not a second
  // of zeroing, decoding and writing back.
  lumo::image::SetMaxDecodePixels(1ull << 20);
  return 0;
}

// A mutation inside a PNG chunk almost always breaks its CRC, and libpng
// stops there. Inputs of even length that start like a PNG get their CRCs
// made right, so mutations reach the decoder; those of odd length keep the
// CRC checks in the fuzzer's reach.
void FixPngCrcs(char* data, std::size_t size) {
  static const char kSignature[] = "\x89PNG\r\n\x1a\n";
  if (size % 2 != 0 || size < 8 || std::memcmp(data, kSignature, 8) != 0) return;
  const lumo::image::testing::Bytes png(data, data + size);
  for (const std::size_t at : lumo::image::testing::PngChunkOffsets(png)) {
    const std::size_t end = at + 8 + lumo::image::testing::Get32BE(png, at);
    if (end + 4 > size) break;
    const std::uint32_t crc = lumo::image::testing::Crc32(data + at + 4, end - at - 4);
    for (int i = 0; i < 4; ++i) data[end + i] = static_cast<char>(crc >> (24 - 8 * i));
  }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Exactly `size` bytes of their own, so ASan flags the first read past the input.
  const std::shared_ptr<char> bytes(new char[size], lumo::image::array_deleter());
  if (size != 0) std::memcpy(bytes.get(), data, size);
  FixPngCrcs(bytes.get(), size);
  lumo::image::testing::DecodeAndExercise(bytes, size);
  return 0;
}
