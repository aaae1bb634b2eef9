// The entry points every container plugin that writes whole pyramids shares
// (DDS, KTX, PVR): the signature test, decoding and writing under the entry
// guard, a single surface written as a one-level pyramid, and decoded images
// that view the caller's buffer. A plugin describes itself with one constant
// ContainerFormat. Failures deep inside decoding or writing are raised and
// become the guard's log line and the failure result; only allocation
// failures pass through (as the guard policy says).
#pragma once

#include <memory>

#include "lumo/image/image_factory.h"
#include "plugins/entry_guard.h"
#include "plugins/plugin_images.h"

namespace lumo::image::detail {

struct ContainerFormat {
  ImageFormat format;
  const char* name;
  GuardPolicy guard;
  bool (*check)(const char* data, size_t size);
  std::shared_ptr<Image> (*decode)(const std::shared_ptr<char>& data, size_t size);
  // On success sets *size to the length of the returned buffer.
  std::shared_ptr<char> (*encode)(const Pyramid& pyramid, size_t* size);
};

class ContainerPlugin : public ImagePlugin {
 public:
  explicit ContainerPlugin(const ContainerFormat& file) : file_(&file) {}

  ImageFormat Format() override { return file_->format; }
  const char* Name() override { return file_->name; }
  bool CheckFormat(const char* data, size_t size) override { return file_->check(data, size); }
  bool SharesSourceBuffer() override { return true; }

  std::shared_ptr<Image> Create(const std::shared_ptr<char>& data, size_t size) override {
    return Guarded(file_->guard, Image::Null, [&] { return file_->decode(data, size); });
  }

  std::shared_ptr<char> Serialize(const Pyramid* pyramid, size_t* size, int /*flags*/) override {
    if (pyramid == nullptr || size == nullptr) return nullptr;
    return Guarded(file_->guard, std::shared_ptr<char>(), [&] { return file_->encode(*pyramid, size); });
  }

  std::shared_ptr<char> Serialize(const SurfaceData* surface, size_t* size, int flags) override {
    if (surface == nullptr) return nullptr;
    return Serialize(BorrowedPyramid(surface).get(), size, flags);
  }

 private:
  const ContainerFormat* file_;  // a constant of the plugin's source; the plugin keeps no state
};

}  // namespace lumo::image::detail
