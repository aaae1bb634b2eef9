#include "plugins/level_views.h"

#include <algorithm>
#include <utility>

#include "format/checked_size.h"
#include "lumo/image/volume_data.h"

namespace lumo::image::detail {

using u64 = unsigned long long;

Extent LevelExtent(const Extent& base, u64 level) {
  auto half = [level](u64 side) { return level >= 64 ? 1 : std::max<u64>(1, side >> level); };
  return {half(base.width), half(base.height), half(base.depth)};
}

u64 CountThatFits(u64 declared, u64 min_bytes, u64 available) {
  return std::min(declared, available / std::max<u64>(1, min_bytes));
}

LevelViews::LevelViews(std::shared_ptr<char> data, u64 size, PixelFormatDescriptor format, u64 alignment)
    : data_(std::move(data)), size_(data_ ? size : 0), format_(format), alignment_(alignment) {}

u64 LevelViews::Bytes(const Extent& e, bool volume) const {
  return volume ? BytesTotal(format_, e.width, e.height, e.depth, alignment_)
                : BytesTotal(format_, e.width, e.height, alignment_);
}

bool LevelViews::Fits(u64 offset, const Extent& e, bool volume) const {
  const u64 bytes = Bytes(e, volume);
  return bytes != 0 && checked::RangeFits(offset, bytes, size_);
}

std::shared_ptr<Surface> LevelViews::SurfaceAt(u64 offset, const Extent& e) const {
  if (!Fits(offset, e, false)) return Surface::Null;
  auto data = SurfaceDataSharedMemory::Create(data_, offset, format_, e.width, e.height, alignment_);
  if (!data || data->Size() != Bytes(e, false)) return Surface::Null;
  return std::make_shared<Surface>(std::move(data));
}

std::shared_ptr<Volume> LevelViews::VolumeAt(u64 offset, const Extent& e) const {
  if (!Fits(offset, e, true)) return Volume::Null;
  const std::shared_ptr<VolumeData> data =
      VolumeData::Create(data_, offset, format_, e.width, e.height, e.depth, alignment_);
  if (!data || data->Size() != Bytes(e, true)) return Volume::Null;
  return std::make_shared<Volume>(data);
}

std::shared_ptr<SurfaceArray> LevelViews::LayersAt(u64 offset, const Extent& e, u64 layers) const {
  const Extent stack{e.width, e.height, layers};
  if (layers == 0 || !Fits(offset, stack, true)) return SurfaceArray::Null;
  const std::shared_ptr<VolumeData> data =
      VolumeData::Create(data_, offset, format_, e.width, e.height, layers, alignment_);
  if (!data || data->Size() != Bytes(stack, true)) return SurfaceArray::Null;
  auto array = std::make_shared<SurfaceArray>(data);
  return array->Count() == layers ? array : SurfaceArray::Null;
}

std::shared_ptr<SurfaceArray> LevelViews::ArrayAt(const std::vector<u64>& offsets, const Extent& e) const {
  std::vector<std::shared_ptr<Surface>> layers;
  layers.reserve(offsets.size());
  for (const u64 offset : offsets) {
    std::shared_ptr<Surface> layer = SurfaceAt(offset, e);
    if (!layer) return SurfaceArray::Null;
    layers.push_back(std::move(layer));
  }
  auto array = std::make_shared<SurfaceArray>(layers);
  return array->Count() == offsets.size() ? array : SurfaceArray::Null;
}

std::shared_ptr<Cube> LevelViews::CubeAt(const std::array<std::shared_ptr<Surface>, kCubeFaces>& f) const {
  return Cube::Create(f[0], f[1], f[2], f[3], f[4], f[5]);
}

namespace {

LevelElement FromSurfaceData(const SurfaceData* data) {
  if (data == nullptr || data->Buffer() == nullptr) return {};
  return {data->Buffer(), data->Size(), data->BytesPerRow(), true};
}

LevelElement FromSurface(const std::shared_ptr<Surface>& surface) {
  return surface ? FromSurfaceData(surface->Data().get()) : LevelElement{};
}

}  // namespace

LevelElement ElementOf(const std::shared_ptr<Mipmap>& level, u64 slice) {
  if (level) {
    switch (level->Type()) {
      case MipmapType::Surface:
        if (auto* surface = dynamic_cast<Surface*>(level.get())) {
          return slice == 0 ? FromSurfaceData(surface->Data().get()) : LevelElement{};
        }
        break;
      case MipmapType::Cube:
        if (auto* cube = dynamic_cast<Cube*>(level.get())) {
          return slice < kCubeFaces ? FromSurface(cube->GetFace(static_cast<CubeFace>(slice))) : LevelElement{};
        }
        break;
      case MipmapType::SurfaceArray:
        if (auto* array = dynamic_cast<SurfaceArray*>(level.get())) return FromSurface(array->At(slice));
        break;
      case MipmapType::Volume:
        if (auto* volume = dynamic_cast<Volume*>(level.get())) {
          const VolumeData* data = volume->Data().get();
          if (slice != 0 || data == nullptr || data->Buffer() == nullptr) return {};
          return {data->Buffer(), data->Size(), data->BytesPerRow(), true};
        }
        break;
      default:
        break;
    }
  }
  LevelElement unknown;
  unknown.known = false;
  return unknown;
}

}  // namespace lumo::image::detail
