// Writes the photo-like measurement picture as a PNG, for comparing encoders
// with command-line tools on the same file: make_photo OUT.png [SIZE] [alpha].
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "lumo/image/image_factory.h"
#include "lumo/image/mipmaps.h"
#include "lumo/image/pyramid.h"
#include "lumo/image/surface_data.h"
#include "photo.h"

int main(int argc, char** argv) {
  using namespace lumo::image;
  if (argc < 2) {
    std::fprintf(stderr, "usage: make_photo OUT.png [SIZE] [alpha]\n");
    return 2;
  }
  const unsigned size = argc > 2 ? static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10)) : 2048;
  const bool alpha = argc > 3 && std::strcmp(argv[3], "alpha") == 0;
  if (size == 0 || size > 16384) return 2;
  const std::vector<std::uint8_t> pixels = bench::PhotoPicture(size, size, alpha);
  const auto surface = SurfaceDataBitmap::Create(size, size, formats::A8B8G8R8, 2);
  for (unsigned y = 0; y < size; ++y) std::memcpy(surface->Buffer() + y * surface->BytesPerRow(), &pixels[y * size * 4ull], size * 4ull);
  const auto pyramid = Pyramid::Make(std::make_shared<Surface>(surface), ImageOrigin::TopDown);
  size_t bytes = 0;
  const std::shared_ptr<char> file = ImageFactory::Instance()->Serialize(ImageFormat::PNG, pyramid.get(), &bytes, 0);
  FILE* out = file ? std::fopen(argv[1], "wb") : nullptr;
  if (out == nullptr || std::fwrite(file.get(), 1, bytes, out) != bytes || std::fclose(out) != 0) {
    std::fprintf(stderr, "make_photo: cannot write %s\n", argv[1]);
    return 1;
  }
  return 0;
}
