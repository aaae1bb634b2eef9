// Placeholder until the TGA reader and writer land: detects nothing.
#include "plugins/tga.h"

#include <memory>

#include "plugins/picture_plugin.h"

namespace lumo::image {
namespace {

bool CheckFile(const char*, size_t) { return false; }
std::shared_ptr<Image> Decode(const char*, std::size_t) { return Image::Null; }
std::shared_ptr<char> Encode(const SurfaceData&, size_t*, int) { return nullptr; }

constexpr detail::PictureFormat kTGAFile{
    ImageFormat::TGA, "TGA", {"TGA: %s", "TGA: unexpected failure", false}, CheckFile, Decode, Encode,
};

class ImageTGAPlugin final : public detail::PicturePlugin {
 public:
  ImageTGAPlugin() : PicturePlugin(kTGAFile) {}
};

}  // namespace

ImagePlugin* detail::TGAPlugin() {
  static ImageTGAPlugin plugin;
  return &plugin;
}

}  // namespace lumo::image
