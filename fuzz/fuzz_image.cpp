// libFuzzer entry point: every input goes through format detection, every view
// the decoder hands out is read in full, and the image is written back in its
// own format (see support/exercise_image.h).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
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
  // Pictures up to 65536 pixels (256 x 256): enough for every code path (LZW
  // tables fill and reset, run-length packets cross rows), and a tiny file
  // declaring a big picture costs well under a millisecond to decode and write
  // back instead of tens of milliseconds.
  // LMIMAGE_FUZZ_MAX_PIXELS lowers it for long runs on one format whose
  // writer dominates the time (the GIF encoder).
  unsigned long long max_pixels = 1ull << 16;
  if (const char* text = std::getenv("LMIMAGE_FUZZ_MAX_PIXELS")) {
    const unsigned long long wanted = std::strtoull(text, nullptr, 10);
    if (wanted != 0 && wanted < max_pixels) max_pixels = wanted;
  }
  lumo::image::SetMaxDecodePixels(max_pixels);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Exactly `size` bytes of their own, so ASan flags the first read past the input.
  const std::shared_ptr<char> bytes(new char[size], lumo::image::array_deleter());
  if (size != 0) std::memcpy(bytes.get(), data, size);
  lumo::image::testing::FixPngCrcs(bytes.get(), size);
  lumo::image::testing::DecodeAndExercise(bytes, size);
  return 0;
}
