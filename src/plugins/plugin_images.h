// The two shapes of decoded file: a container image (GPU texture files: a
// pyramid built once over views of the file bytes, maybe a second pyramid of
// alpha, and an array flag) and a decoded image (pictures: one owned
// surface, handed out as a fresh one-level pyramid on every call).
#pragma once

#include <memory>

#include "lumo/image/image_factory.h"
#include "lumo/image/surface_data.h"

namespace lumo::image::detail {

class ContainerImage : public Image {
 public:
  struct Shape {
    unsigned long long width = 0, height = 0, depth = 1;
    bool is_array = false;
    PixelFormatDescriptor format{};
    MipmapType type = MipmapType::Surface;
  };

  ContainerImage(ImageFormat file_format, const Shape& shape, std::shared_ptr<Pyramid> pyramid,
                 std::shared_ptr<Pyramid> alpha = nullptr);

  std::shared_ptr<Pyramid> GetPyramid(bool alpha) override { return alpha ? alpha_ : pyramid_; }
  MipmapType Type() override { return shape_.type; }
  bool IsArray() override { return shape_.is_array; }
  bool HasAlphaPyramid() override { return alpha_ != nullptr; }
  ImageFormat Format() override { return file_format_; }
  size_t Width() override { return static_cast<size_t>(shape_.width); }
  size_t Height() override { return static_cast<size_t>(shape_.height); }
  ImageOrigin Origin() const override;

  const Shape& GetShape() const { return shape_; }

 private:
  ImageFormat file_format_;
  Shape shape_;
  std::shared_ptr<Pyramid> pyramid_;
  std::shared_ptr<Pyramid> alpha_;
};

class DecodedImage : public Image {
 public:
  DecodedImage(ImageFormat file_format, std::shared_ptr<SurfaceData> data);

  // A new Surface over the same pixels on every call (nothing is copied).
  std::shared_ptr<Pyramid> GetPyramid(bool alpha) override;
  MipmapType Type() override { return MipmapType::Surface; }
  bool IsArray() override { return false; }
  bool HasAlphaPyramid() override { return false; }
  ImageFormat Format() override { return file_format_; }
  size_t Width() override;
  size_t Height() override;

 private:
  ImageFormat file_format_;
  std::shared_ptr<SurfaceData> data_;
};

// A one-level pyramid (origin TopDown) over `surface`, borrowed for the
// duration of a call: what the container writers serialize a single surface as.
std::shared_ptr<Pyramid> BorrowedPyramid(const SurfaceData* surface);

}  // namespace lumo::image::detail
