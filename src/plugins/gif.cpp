// Placeholder until the GIF reader and writer land: detects nothing.
#include "plugins/gif.h"

#include <memory>

#include "plugins/picture_plugin.h"

namespace lumo::image {
namespace {

bool CheckFile(const char*, size_t) { return false; }
std::shared_ptr<Image> Decode(const char*, std::size_t) { return Image::Null; }
std::shared_ptr<char> Encode(const SurfaceData&, size_t*, int) { return nullptr; }

constexpr detail::PictureFormat kGIFFile{
    ImageFormat::GIF, "GIF", {"GIF: %s", "GIF: unexpected failure", false}, CheckFile, Decode, Encode,
};

class ImageGIFPlugin final : public detail::PicturePlugin {
 public:
  ImageGIFPlugin() : PicturePlugin(kGIFFile) {}
};

}  // namespace

ImagePlugin* detail::GIFPlugin() {
  static ImageGIFPlugin plugin;
  return &plugin;
}

}  // namespace lumo::image
