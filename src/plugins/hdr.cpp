// Placeholder until the HDR reader and writer land: detects nothing.
#include "plugins/hdr.h"

#include <memory>

#include "plugins/picture_plugin.h"

namespace lumo::image {
namespace {

bool CheckFile(const char*, size_t) { return false; }
std::shared_ptr<Image> Decode(const char*, std::size_t) { return Image::Null; }
std::shared_ptr<char> Encode(const SurfaceData&, size_t*, int) { return nullptr; }

constexpr detail::PictureFormat kHDRFile{
    ImageFormat::HDR, "HDR", {"HDR: %s", "HDR: unexpected failure", false}, CheckFile, Decode, Encode,
};

class ImageHDRPlugin final : public detail::PicturePlugin {
 public:
  ImageHDRPlugin() : PicturePlugin(kHDRFile) {}
};

}  // namespace

ImagePlugin* detail::HDRPlugin() {
  static ImageHDRPlugin plugin;
  return &plugin;
}

}  // namespace lumo::image
