// The entry points every picture plugin shares (PNG, JPEG and the decoders
// that keep nothing of the file): the signature test, decoding and writing
// one surface under the entry guard, a pyramid written as its level 0,
// surface 0. A plugin describes itself with one constant PictureFormat.
#pragma once

#include <memory>

#include "lumo/image/image_factory.h"
#include "plugins/entry_guard.h"

namespace lumo::image::detail {

struct PictureFormat {
  ImageFormat format;
  const char* name;
  GuardPolicy guard;
  bool (*check)(const char* data, size_t size);
  // Reads the bytes during the call only.
  std::shared_ptr<Image> (*decode)(const char* data, size_t size);
  // On success sets *size to the length of the returned buffer.
  std::shared_ptr<char> (*encode)(const SurfaceData& surface, size_t* size, int flags);
};

class PicturePlugin : public ImagePlugin {
 public:
  explicit PicturePlugin(const PictureFormat& file) : file_(&file) {}

  ImageFormat Format() override { return file_->format; }
  const char* Name() override { return file_->name; }
  bool CheckFormat(const char* data, size_t size) override { return file_->check(data, size); }
  bool SharesSourceBuffer() override { return false; }

  std::shared_ptr<Image> Create(const std::shared_ptr<char>& data, size_t size) override {
    return Guarded(file_->guard, Image::Null, [&] { return file_->decode(data.get(), size); });
  }

  using ImagePlugin::Serialize;  // the pyramid form writes level 0, surface 0

  std::shared_ptr<char> Serialize(const SurfaceData* surface, size_t* size, int flags) override {
    if (surface == nullptr || size == nullptr) return nullptr;
    return Guarded(file_->guard, std::shared_ptr<char>(), [&] { return file_->encode(*surface, size, flags); });
  }

 private:
  const PictureFormat* file_;  // a constant of the plugin's source; the plugin keeps no state
};

}  // namespace lumo::image::detail
