// Placeholder until the BMP reader and writer land: detects nothing.
#include "plugins/bmp.h"

#include <memory>

#include "plugins/picture_plugin.h"

namespace lumo::image {
namespace {

bool CheckFile(const char*, size_t) { return false; }
std::shared_ptr<Image> Decode(const char*, std::size_t) { return Image::Null; }
std::shared_ptr<char> Encode(const SurfaceData&, size_t*, int) { return nullptr; }

constexpr detail::PictureFormat kBMPFile{
    ImageFormat::BMP, "BMP", {"BMP: %s", "BMP: unexpected failure", false}, CheckFile, Decode, Encode,
};

class ImageBMPPlugin final : public detail::PicturePlugin {
 public:
  ImageBMPPlugin() : PicturePlugin(kBMPFile) {}
};

}  // namespace

ImagePlugin* detail::BMPPlugin() {
  static ImageBMPPlugin plugin;
  return &plugin;
}

}  // namespace lumo::image
