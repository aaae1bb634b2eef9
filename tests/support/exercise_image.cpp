#include "support/exercise_image.h"

#include <cstdint>
#include <cstring>

#if defined(LMIMAGE_HAVE_BLOCKS)
#include "lumo/image/blocks.h"
#endif
#include "lumo/image/mipmaps.h"
#include "lumo/image/pyramid.h"
#include "lumo/image/surface_data.h"

namespace lumo::image::testing {
namespace {

// Keeps the reads from being optimised away.
volatile unsigned char sink = 0;

void ReadAll(const std::shared_ptr<Surface>& surface) {
  if (!surface || !surface->Data() || surface->Buffer() == nullptr) return;
  const char* bytes = surface->Buffer();
  const unsigned long long size = surface->Size();
  // Eight bytes per load: the sanitizer checks each load whole, and the fuzz
  // rate was bound by this loop when it read byte by byte.
  std::uint64_t folded = 0;
  unsigned long long i = 0;
  for (; i + 8 <= size; i += 8) {
    std::uint64_t word;
    std::memcpy(&word, bytes + i, 8);
    folded ^= word;
  }
  for (; i < size; ++i) folded ^= static_cast<unsigned char>(bytes[i]);
  sink = sink ^ static_cast<unsigned char>(folded ^ (folded >> 32) ^ (folded >> 56));
}

void ReadPyramid(const std::shared_ptr<Pyramid>& pyramid) {
  if (!pyramid) return;
  for (unsigned long long level = 0; level < pyramid->LevelsCurrent(); ++level) {
    const std::shared_ptr<Mipmap> mipmap = pyramid->GetMipmap(level);
    if (!mipmap) continue;
    for (unsigned long long s = 0; s < mipmap->GetSurfaceCount(); ++s) ReadAll(mipmap->GetSurface(s));
  }
}

}  // namespace

void ExerciseImage(Image& image) {
  const std::shared_ptr<Pyramid> pyramid = image.GetPyramid(false);
  ReadPyramid(pyramid);
#if defined(LMIMAGE_HAVE_BLOCKS)
  // Block data comes from the file as it is: every block decoder meets it.
  if (pyramid && IsCompressed(pyramid->Format())) ReadPyramid(blocks::DecodeCopy(*pyramid));
#endif
  if (image.HasAlphaPyramid()) ReadPyramid(image.GetPyramid(true));
  if (!pyramid) return;
  size_t size = 0;
  const std::shared_ptr<char> file = ImageFactory::Instance()->Serialize(image.Format(), pyramid.get(), &size, 0);
  if (file && size != 0) sink = sink ^ static_cast<unsigned char>(file.get()[size - 1]);
}

std::shared_ptr<Image> DecodeAndExercise(const std::shared_ptr<char>& data, size_t size) {
  const std::shared_ptr<Image> image = ImageFactory::Instance()->Create(data, size);
  if (image) ExerciseImage(*image);
  return image;
}

}  // namespace lumo::image::testing
