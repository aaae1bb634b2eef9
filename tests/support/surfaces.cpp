#include "support/surfaces.h"

#include <algorithm>
#include <random>
#include <vector>

namespace lumo::image::testing {

using ull = unsigned long long;

std::string Tight(const SurfaceData& s) {
  const ull row = BytesPerRow(s.Format(), s.Width(), 0);
  if (IsCompressed(s.Format()) || row == s.BytesPerRow()) return std::string(s.Buffer(), s.Size());
  std::string out;
  for (ull y = 0; y < s.Height(); ++y) out.append(s.Buffer() + y * s.BytesPerRow(), row);
  return out;
}

std::string LevelBytes(const Pyramid& pyramid, ull level, bool all) {
  const auto mipmap = pyramid.GetMipmap(level);
  if (const auto* volume = dynamic_cast<const Volume*>(mipmap.get()); volume != nullptr && !volume->IsSliceable()) {
    return volume->Data() ? std::string(volume->Buffer(), volume->Size()) : std::string();
  }
  all = all || mipmap->Type() == MipmapType::Volume;
  std::string bytes;
  for (ull i = 0; i < (all ? mipmap->GetSurfaceCount() : 1); ++i) bytes += Tight(*mipmap->GetSurface(i)->Data());
  return bytes;
}

std::shared_ptr<Surface> CountingSurface(ull width, ull height, PixelFormatDescriptor format, int first) {
  auto s = std::make_shared<Surface>(width, height, format, 2);
  for (ull i = 0; i < s->Size(); ++i) s->Buffer()[i] = static_cast<char>(first + i);
  return s;
}

std::shared_ptr<Surface> Filled(ull width, ull height, PixelFormatDescriptor format, unsigned seed) {
  auto data = SurfaceDataBitmap::Create(width, height, format, 2);
  std::mt19937 rng(seed);
  for (ull i = 0; i < data->Size(); ++i) data->Buffer()[i] = static_cast<char>(rng());
  return std::make_shared<Surface>(data);
}

std::shared_ptr<Pyramid> Chain(MipmapType kind, ull width, ull height, ull n, PixelFormatDescriptor format,
                               ull levels) {
  std::vector<std::shared_ptr<Mipmap>> out;
  for (ull i = 0; i < levels; ++i) {
    const ull w = std::max(1ull, width >> i), h = std::max(1ull, height >> i);
    const ull count = kind == MipmapType::Cube ? 6 : kind == MipmapType::Volume ? std::max(1ull, n >> i) : n;
    std::vector<std::shared_ptr<Surface>> s;
    for (ull j = 0; j < count; ++j) s.push_back(Filled(w, h, format, static_cast<unsigned>(100 * j + i)));
    if (kind == MipmapType::Surface) out.push_back(s[0]);
    if (kind == MipmapType::Cube) out.push_back(Cube::Create(s[0], s[1], s[2], s[3], s[4], s[5]));
    if (kind == MipmapType::SurfaceArray) out.push_back(std::make_shared<SurfaceArray>(s));
    if (kind == MipmapType::Volume) out.push_back(std::make_shared<Volume>(s));
  }
  return Pyramid::Make(out, ImageOrigin::TopDown);
}

}  // namespace lumo::image::testing
