#include "plugins/plugin_images.h"

#include <utility>

#include "lumo/image/mipmaps.h"
#include "lumo/image/pyramid.h"

namespace lumo::image::detail {

ContainerImage::ContainerImage(ImageFormat file_format, const Shape& shape, std::shared_ptr<Pyramid> pyramid,
                               std::shared_ptr<Pyramid> alpha)
    : file_format_(file_format), shape_(shape), pyramid_(std::move(pyramid)), alpha_(std::move(alpha)) {}

ImageOrigin ContainerImage::Origin() const { return pyramid_ ? pyramid_->Origin() : ImageOrigin::TopDown; }

DecodedImage::DecodedImage(ImageFormat file_format, std::shared_ptr<SurfaceData> data)
    : file_format_(file_format), data_(std::move(data)) {}

std::shared_ptr<Pyramid> DecodedImage::GetPyramid(bool alpha) {
  if (alpha || !data_) return Pyramid::Null;
  return Pyramid::Make(std::make_shared<Surface>(data_), Origin());
}

size_t DecodedImage::Width() { return data_ ? static_cast<size_t>(data_->Width()) : 0; }

size_t DecodedImage::Height() { return data_ ? static_cast<size_t>(data_->Height()) : 0; }

std::shared_ptr<Pyramid> BorrowedPyramid(const SurfaceData* surface) {
  if (surface == nullptr) return Pyramid::Null;
  std::shared_ptr<SurfaceData> borrowed(const_cast<SurfaceData*>(surface), [](SurfaceData*) {});
  return Pyramid::Make(std::make_shared<Surface>(borrowed), ImageOrigin::TopDown);
}

}  // namespace lumo::image::detail
