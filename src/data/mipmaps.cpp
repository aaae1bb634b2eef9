#include "lumo/image/mipmaps.h"

#include <algorithm>
#include <utility>

#include "lumo/image/engines.h"
#include "lumo/log/log.h"

namespace lumo::image {
namespace {

// The next mip level's side: half, but never below one pixel.
unsigned long long HalfSide(unsigned long long side) { return std::max(side / 2, 1ULL); }

bool PassesPowerOfTwo(unsigned long long v) { return (v & (0 - v)) == v; }

std::shared_ptr<Surface> Wrap(const std::shared_ptr<SurfaceData>& data) {
  return data ? std::make_shared<Surface>(data) : Surface::Null;
}

}  // namespace

const std::shared_ptr<Mipmap> Mipmap::Null;
const std::shared_ptr<Surface> Surface::Null;
const std::shared_ptr<SurfaceArray> SurfaceArray::Null;
const std::shared_ptr<Volume> Volume::Null;
const std::shared_ptr<Cube> Cube::Null;

// ---- Mipmap ----

Mipmap::~Mipmap() = default;

// GetSurface is not const (it hands out shared ownership), but reading
// surface 0's geometry does not change the mip level.
unsigned long long Mipmap::Width() const {
  const std::shared_ptr<Surface> surface = const_cast<Mipmap*>(this)->GetSurface(0);
  return surface ? surface->Width() : 0;
}

unsigned long long Mipmap::Height() const {
  const std::shared_ptr<Surface> surface = const_cast<Mipmap*>(this)->GetSurface(0);
  return surface ? surface->Height() : 0;
}

PixelFormatDescriptor Mipmap::Format() {
  const std::shared_ptr<Surface> surface = GetSurface(0);
  return surface ? surface->Format() : PixelFormatDescriptor{};
}

bool Mipmap::FlipDepthical() { return false; }

bool Mipmap::IsArray() const {
  const MipmapType type = const_cast<Mipmap*>(this)->Type();
  return type == MipmapType::SurfaceArray || type == MipmapType::CubeArray;
}

std::shared_ptr<Surface> Mipmap::GetSurface() { return GetSurface(0); }

bool Mipmap::IsCompressed() { return lumo::image::IsCompressed(Format()); }

bool Mipmap::IsSizePowerOfTwo() const {
  return PassesPowerOfTwo(Width()) && PassesPowerOfTwo(Height()) && PassesPowerOfTwo(Depth());
}

// ---- Surface ----

Surface::Surface() = default;

Surface::Surface(const std::shared_ptr<SurfaceData>& data) : data_(data) {}

Surface::Surface(unsigned long long width, unsigned long long height, const PixelFormatDescriptor& format,
                 unsigned long long alignment)
    : data_(SurfaceDataBitmap::Create(width, height, format, alignment)) {}

// The shared-from-this link belongs to the object, not to its value.
Surface::Surface(const Surface& other) : Mipmap(other), std::enable_shared_from_this<Surface>(), data_(other.data_) {}

Surface::Surface(Surface&& other) noexcept
    : Mipmap(other), std::enable_shared_from_this<Surface>(), data_(std::move(other.data_)) {}

Surface& Surface::operator=(const Surface& other) {
  data_ = other.data_;
  return *this;
}

Surface& Surface::operator=(Surface&& other) noexcept {
  data_ = std::move(other.data_);
  return *this;
}

Surface::~Surface() = default;

char* Surface::Buffer() { return data_ ? data_->Buffer() : nullptr; }

const char* Surface::Buffer() const {
  const SurfaceData* data = data_.get();
  return data != nullptr ? data->Buffer() : nullptr;
}

unsigned long long Surface::BytesPerRow() const { return data_ ? data_->BytesPerRow() : 0; }

unsigned long long Surface::Size() const { return data_ ? data_->Size() : 0; }

bool Surface::Convert(const PixelFormatDescriptor& format) {
  if (!data_) return false;
  std::shared_ptr<SurfaceData> converted = data_->ConvertCopy(format);
  if (!converted) return false;
  data_ = std::move(converted);
  return true;
}

std::shared_ptr<Surface> Surface::SurfaceConvertCopy(const PixelFormatDescriptor& format) {
  return data_ ? Wrap(data_->ConvertCopy(format)) : Null;
}

std::shared_ptr<Surface> Surface::SurfaceConvertCopy(Converter* converter) {
  return data_ ? Wrap(data_->ConvertCopy(converter)) : Null;
}

std::shared_ptr<Surface> Surface::SurfaceRotateCopy(int degrees) {
  return data_ ? Wrap(data_->RotateCopy(degrees)) : Null;
}

std::shared_ptr<Surface> Surface::CropCopy(unsigned long long x, unsigned long long y, unsigned long long width,
                                           unsigned long long height) {
  return data_ ? Wrap(data_->CropCopy(x, y, width, height)) : Null;
}

std::shared_ptr<Surface> Surface::ExtrudeCopy(unsigned long long left, unsigned long long right, unsigned long long top,
                                              unsigned long long bottom) {
  return data_ ? Wrap(data_->ExtrudeCopy(left, right, top, bottom)) : Null;
}

std::shared_ptr<Surface> Surface::RescaleCopy(unsigned long long width, unsigned long long height, FilterType filter) {
  return data_ ? Wrap(data_->RescaleCopy(width, height, filter)) : Null;
}

std::shared_ptr<char> Surface::ToImage(ImageFormat format, unsigned long long* size, int flags) {
  return data_ ? data_->ToImage(format, size, flags) : std::shared_ptr<char>();
}

unsigned long long Surface::Width() const { return data_ ? data_->Width() : 0; }

unsigned long long Surface::Height() const { return data_ ? data_->Height() : 0; }

PixelFormatDescriptor Surface::Format() { return data_ ? data_->Format() : PixelFormatDescriptor{}; }

std::shared_ptr<Surface> Surface::GetSurface(unsigned long long index) {
  if (index != 0) return Null;
  // A surface that no shared pointer owns cannot share ownership of itself.
  return weak_from_this().lock();
}

bool Surface::Downgrade(FilterType filter) {
  const unsigned long long width = Width(), height = Height();
  if (width < 2 && height < 2) return false;
  // The step counts as done even when the rescale refuses; the data then stays.
  std::shared_ptr<SurfaceData> smaller = data_->RescaleCopy(HalfSide(width), HalfSide(height), filter);
  if (smaller) data_ = std::move(smaller);
  return true;
}

std::shared_ptr<Mipmap> Surface::DowngradeCopy(FilterType filter) {
  const unsigned long long width = Width(), height = Height();
  if (width < 2 && height < 2) return Mipmap::Null;
  return RescaleCopy(HalfSide(width), HalfSide(height), filter);
}

bool Surface::FlipVertical() { return data_ ? data_->FlipVertical() : false; }

bool Surface::FlipHorizontal() { return data_ ? data_->FlipHorizontal() : false; }

bool Surface::Reinterpret(const PixelFormatDescriptor& format) { return data_ ? data_->Reinterpret(format) : false; }

bool Surface::MakeSizePowerOfTwo(FilterType filter) {
  if (!data_) return false;
  std::shared_ptr<SurfaceData> rounded = data_->MakeSizePowerOfTwoCopy(filter);
  if (!rounded) return false;
  data_ = std::move(rounded);
  return true;
}

std::shared_ptr<Mipmap> Surface::ConvertCopy(Converter* converter) { return SurfaceConvertCopy(converter); }

std::shared_ptr<Mipmap> Surface::ConvertCopy(const PixelFormatDescriptor& format) { return SurfaceConvertCopy(format); }

std::shared_ptr<Mipmap> Surface::RotateCopy(int degrees) { return SurfaceRotateCopy(degrees); }

// ---- Shared by SurfaceArray and Volume ----

namespace {

std::shared_ptr<VolumeData> StackSurfaces(const std::vector<std::shared_ptr<Surface>>& surfaces) {
  std::vector<std::shared_ptr<SurfaceData>> data;
  data.reserve(surfaces.size());
  for (const std::shared_ptr<Surface>& surface : surfaces) {
    data.push_back(surface ? surface->Data() : SurfaceData::Null);
  }
  return VolumeData::Create(data);
}

// One Surface per slice view; empty when the volume has no views.
std::vector<std::shared_ptr<Surface>> SliceSurfaces(const VolumeData& volume) {
  std::vector<std::shared_ptr<Surface>> surfaces;
  surfaces.reserve(static_cast<std::size_t>(volume.Depth()));
  for (unsigned long long i = 0; i < volume.Depth(); ++i) {
    surfaces.push_back(std::make_shared<Surface>(volume.GetSlice(i)));
  }
  return surfaces;
}

// A 2-D copy of every slice of the volume, in order; empty when any fails.
template <typename Operation>
std::vector<std::shared_ptr<SurfaceData>> MapSlices(const VolumeData& volume, unsigned long long count,
                                                    Operation operation) {
  std::vector<std::shared_ptr<SurfaceData>> results;
  results.reserve(static_cast<std::size_t>(count));
  for (unsigned long long i = 0; i < count; ++i) {
    const std::shared_ptr<SurfaceDataSharedMemory> slice = volume.GetSlice(i);
    std::shared_ptr<SurfaceData> result = slice ? operation(*slice) : SurfaceData::Null;
    if (!result) return {};
    results.push_back(std::move(result));
  }
  return results;
}

}  // namespace

// ---- SurfaceArray ----

SurfaceArray::SurfaceArray() = default;

SurfaceArray::SurfaceArray(const std::shared_ptr<VolumeData>& data) : data_(data) { ResetSurfaces(); }

SurfaceArray::SurfaceArray(const std::vector<std::shared_ptr<Surface>>& surfaces) : data_(StackSurfaces(surfaces)) {
  ResetSurfaces();
}

SurfaceArray::~SurfaceArray() = default;

bool SurfaceArray::ResetSurfaces() {
  if (!data_ || !data_->IsSliceable()) {
    lumo::log::CLogError(LogChannel, "Surface array must be init with sliceable volume data.");
    surfaces_.clear();
    return false;
  }
  surfaces_ = SliceSurfaces(*data_);
  return true;
}

char* SurfaceArray::Buffer() { return data_ ? data_->Buffer() : nullptr; }

const char* SurfaceArray::Buffer() const {
  const VolumeData* data = data_.get();
  return data != nullptr ? data->Buffer() : nullptr;
}

unsigned long long SurfaceArray::BytesPerRow() const { return data_ ? data_->BytesPerRow() : 0; }

unsigned long long SurfaceArray::BytesPerSlice() const { return data_ ? data_->BytesPerSlice() : 0; }

unsigned long long SurfaceArray::Size() const { return data_ ? data_->Size() : 0; }

std::shared_ptr<SurfaceArray> SurfaceArray::SurfaceArrayConvertCopy(const PixelFormatDescriptor& format) {
  std::shared_ptr<VolumeData> converted = data_ ? data_->ConvertCopy(format) : VolumeData::Null;
  return converted ? std::make_shared<SurfaceArray>(converted) : Null;
}

std::shared_ptr<SurfaceArray> SurfaceArray::SurfaceArrayConvertCopy(Converter* converter) {
  std::shared_ptr<VolumeData> converted = data_ ? data_->ConvertCopy(converter) : VolumeData::Null;
  return converted ? std::make_shared<SurfaceArray>(converted) : Null;
}

std::shared_ptr<SurfaceArray> SurfaceArray::SurfaceArrayRotateCopy(int degrees) {
  std::shared_ptr<VolumeData> rotated = data_ ? data_->RotateCopy(degrees) : VolumeData::Null;
  return rotated ? std::make_shared<SurfaceArray>(rotated) : Null;
}

unsigned long long SurfaceArray::Width() const { return surfaces_.empty() ? 0 : surfaces_[0]->Width(); }

unsigned long long SurfaceArray::Height() const { return surfaces_.empty() ? 0 : surfaces_[0]->Height(); }

unsigned long long SurfaceArray::Depth() const { return surfaces_.empty() ? 0 : surfaces_[0]->Depth(); }

unsigned long long SurfaceArray::GetSurfaceCount() const {
  return surfaces_.empty() ? 0 : Count() * surfaces_[0]->GetSurfaceCount();
}

bool SurfaceArray::Downgrade(FilterType filter) {
  const unsigned long long width = Width(), height = Height();
  if ((width < 2 && height < 2) || !data_) return false;
  const unsigned long long half_width = HalfSide(width), half_height = HalfSide(height);
  const std::vector<std::shared_ptr<SurfaceData>> smaller = MapSlices(
      *data_, Count(), [&](const SurfaceData& slice) { return slice.RescaleCopy(half_width, half_height, filter); });
  if (smaller.empty()) return false;
  std::shared_ptr<VolumeData> volume = VolumeData::Create(smaller);
  if (!volume) return false;
  data_ = std::move(volume);
  return ResetSurfaces();
}

std::shared_ptr<Mipmap> SurfaceArray::DowngradeCopy(FilterType filter) {
  const unsigned long long width = Width(), height = Height();
  if ((width < 2 && height < 2) || !data_) return Mipmap::Null;
  const unsigned long long half_width = HalfSide(width), half_height = HalfSide(height);
  const std::vector<std::shared_ptr<SurfaceData>> smaller = MapSlices(
      *data_, Count(), [&](const SurfaceData& slice) { return slice.RescaleCopy(half_width, half_height, filter); });
  if (smaller.empty()) return Mipmap::Null;
  std::shared_ptr<VolumeData> volume = VolumeData::Create(smaller);
  if (!volume) return Mipmap::Null;
  return std::make_shared<SurfaceArray>(volume);
}

bool SurfaceArray::FlipVertical() { return data_ ? data_->FlipVertical() : false; }

bool SurfaceArray::FlipHorizontal() { return data_ ? data_->FlipHorizontal() : false; }

bool SurfaceArray::FlipDepthical() { return data_ ? data_->FlipDepthical() : false; }

bool SurfaceArray::Reinterpret(const PixelFormatDescriptor& format) {
  for (const std::shared_ptr<Surface>& surface : surfaces_) {
    if (!surface->Reinterpret(format)) return false;
  }
  // Every layer took the format; the volume's own record follows so that it
  // keeps describing its views (same bits per pixel, so this succeeds).
  if (!surfaces_.empty() && data_) data_->Reinterpret(format);
  return true;
}

bool SurfaceArray::MakeSizePowerOfTwo(FilterType filter) {
  if (!data_ || surfaces_.empty()) return false;
  const std::vector<std::shared_ptr<SurfaceData>> rounded =
      MapSlices(*data_, Count(), [filter](const SurfaceData& slice) { return slice.MakeSizePowerOfTwoCopy(filter); });
  if (rounded.empty()) return false;
  std::shared_ptr<VolumeData> volume = VolumeData::Create(rounded);
  if (!volume) return false;
  data_ = std::move(volume);
  return ResetSurfaces();
}

std::shared_ptr<Mipmap> SurfaceArray::ConvertCopy(Converter* converter) { return SurfaceArrayConvertCopy(converter); }

std::shared_ptr<Mipmap> SurfaceArray::ConvertCopy(const PixelFormatDescriptor& format) {
  return SurfaceArrayConvertCopy(format);
}

std::shared_ptr<Mipmap> SurfaceArray::RotateCopy(int degrees) { return SurfaceArrayRotateCopy(degrees); }

// ---- Volume ----

Volume::Volume() = default;

Volume::Volume(const std::shared_ptr<VolumeData>& data) : data_(data) { ResetSurfaces(); }

Volume::Volume(const std::vector<std::shared_ptr<Surface>>& surfaces) : data_(StackSurfaces(surfaces)) {
  ResetSurfaces();
}

Volume::~Volume() = default;

// A volume of 3-D blocks is still a volume, only without slice surfaces.
void Volume::ResetSurfaces() {
  if (!data_ || !data_->IsSliceable()) {
    surfaces_.clear();
    return;
  }
  surfaces_ = SliceSurfaces(*data_);
}

char* Volume::Buffer() { return data_ ? data_->Buffer() : nullptr; }

const char* Volume::Buffer() const {
  const VolumeData* data = data_.get();
  return data != nullptr ? data->Buffer() : nullptr;
}

unsigned long long Volume::BytesPerRow() const { return data_ ? data_->BytesPerRow() : 0; }

unsigned long long Volume::BytesPerSlice() const { return data_ ? data_->BytesPerSlice() : 0; }

unsigned long long Volume::Size() const { return data_ ? data_->Size() : 0; }

bool Volume::IsSliceable() const { return data_ ? data_->IsSliceable() : false; }

std::shared_ptr<Volume> Volume::VolumeConvertCopy(const PixelFormatDescriptor& format) {
  std::shared_ptr<VolumeData> converted = data_ ? data_->ConvertCopy(format) : VolumeData::Null;
  return converted ? std::make_shared<Volume>(converted) : Null;
}

std::shared_ptr<Volume> Volume::VolumeConvertCopy(Converter* converter) {
  std::shared_ptr<VolumeData> converted = data_ ? data_->ConvertCopy(converter) : VolumeData::Null;
  return converted ? std::make_shared<Volume>(converted) : Null;
}

std::shared_ptr<Volume> Volume::VolumeRotateCopy(int degrees) {
  std::shared_ptr<VolumeData> rotated = data_ ? data_->RotateCopy(degrees) : VolumeData::Null;
  return rotated ? std::make_shared<Volume>(rotated) : Null;
}

unsigned long long Volume::Width() const { return data_ ? data_->Width() : 0; }

unsigned long long Volume::Height() const { return data_ ? data_->Height() : 0; }

unsigned long long Volume::Depth() const { return data_ ? data_->Depth() : 0; }

PixelFormatDescriptor Volume::Format() {
  if (!surfaces_.empty()) return Mipmap::Format();
  return data_ ? data_->Format() : PixelFormatDescriptor{};
}

std::shared_ptr<Surface> Volume::GetSurface(unsigned long long index) {
  return index < surfaces_.size() ? surfaces_[index] : Surface::Null;
}

bool Volume::Downgrade(FilterType) { return false; }

std::shared_ptr<Mipmap> Volume::DowngradeCopy(FilterType filter) {
  const unsigned long long width = Width(), height = Height(), depth = Depth();
  if (width < 2 && height < 2 && depth < 2) return Mipmap::Null;
  if (!data_) return Mipmap::Null;
  std::shared_ptr<VolumeData> smaller = data_->RescaleCopy(HalfSide(width), HalfSide(height), HalfSide(depth), filter);
  return smaller ? std::make_shared<Volume>(smaller) : Mipmap::Null;
}

bool Volume::FlipVertical() { return data_ ? data_->FlipVertical() : false; }

bool Volume::FlipHorizontal() { return data_ ? data_->FlipHorizontal() : false; }

bool Volume::FlipDepthical() { return data_ ? data_->FlipDepthical() : false; }

bool Volume::Reinterpret(const PixelFormatDescriptor& format) {
  if (data_) return data_->Reinterpret(format);
  if (surfaces_.empty()) return false;
  for (const std::shared_ptr<Surface>& surface : surfaces_) {
    if (!surface->Reinterpret(format)) return false;
  }
  return true;
}

bool Volume::MakeSizePowerOfTwo(FilterType) { return false; }

std::shared_ptr<Mipmap> Volume::ConvertCopy(Converter* converter) { return VolumeConvertCopy(converter); }

std::shared_ptr<Mipmap> Volume::ConvertCopy(const PixelFormatDescriptor& format) { return VolumeConvertCopy(format); }

std::shared_ptr<Mipmap> Volume::RotateCopy(int degrees) { return VolumeRotateCopy(degrees); }

// ---- Cube ----

namespace {

// Asks every present face, even after one has failed; an absent face counts as success.
template <typename Operation>
bool EveryFace(const std::array<std::shared_ptr<Surface>, 6>& faces, Operation operation) {
  bool all = true;
  for (const std::shared_ptr<Surface>& face : faces) {
    if (face && !operation(*face)) all = false;
  }
  return all;
}

}  // namespace

std::shared_ptr<Cube> Cube::Create(const std::shared_ptr<Surface>& face0, const std::shared_ptr<Surface>& face1,
                                   const std::shared_ptr<Surface>& face2, const std::shared_ptr<Surface>& face3,
                                   const std::shared_ptr<Surface>& face4, const std::shared_ptr<Surface>& face5) {
  if (!face0 || !face1 || !face2 || !face3 || !face4 || !face5) {
    lumo::log::CLogError(LogChannel, "Cube must be created with six non-null surface");
    return Null;
  }
  std::shared_ptr<Cube> cube(new Cube());
  cube->faces_ = {face0, face1, face2, face3, face4, face5};
  return cube;
}

Cube::~Cube() = default;

std::shared_ptr<Surface> Cube::GetFace(CubeFace face) const {
  const auto index = static_cast<std::size_t>(face);
  return index < faces_.size() ? faces_[index] : Surface::Null;
}

namespace {

// A new cube whose present faces are `operation` of this cube's; Null as soon
// as one present face gives nothing.
template <typename Operation>
bool MapFaces(const std::array<std::shared_ptr<Surface>, 6>& faces, std::array<std::shared_ptr<Surface>, 6>* out,
              Operation operation) {
  for (std::size_t i = 0; i < faces.size(); ++i) {
    if (!faces[i]) continue;
    (*out)[i] = operation(*faces[i]);
    if (!(*out)[i]) return false;
  }
  return true;
}

// Surface::DowngradeCopy gives a Surface; a derived face class might not.
std::shared_ptr<Surface> DowngradeFace(Surface& face, FilterType filter) {
  return std::dynamic_pointer_cast<Surface>(face.DowngradeCopy(filter));
}

}  // namespace

std::shared_ptr<Cube> Cube::CubeConvertCopy(const PixelFormatDescriptor& format) {
  std::shared_ptr<Cube> cube(new Cube());
  if (!MapFaces(faces_, &cube->faces_, [&format](Surface& face) { return face.SurfaceConvertCopy(format); })) {
    return Null;
  }
  return cube;
}

std::shared_ptr<Cube> Cube::CubeConvertCopy(Converter* converter) {
  std::shared_ptr<Cube> cube(new Cube());
  if (!MapFaces(faces_, &cube->faces_, [converter](Surface& face) { return face.SurfaceConvertCopy(converter); })) {
    return Null;
  }
  return cube;
}

std::shared_ptr<Cube> Cube::CubeRotateCopy(int degrees) {
  std::shared_ptr<Cube> cube(new Cube());
  if (!MapFaces(faces_, &cube->faces_, [degrees](Surface& face) { return face.SurfaceRotateCopy(degrees); })) {
    return Null;
  }
  return cube;
}

std::shared_ptr<Surface> Cube::GetSurface(unsigned long long index) {
  return index < faces_.size() ? faces_[static_cast<std::size_t>(index)] : Surface::Null;
}

bool Cube::Downgrade(FilterType filter) {
  bool all = true;
  for (std::shared_ptr<Surface>& face : faces_) {
    if (!face) continue;
    std::shared_ptr<Surface> smaller = DowngradeFace(*face, filter);
    if (smaller) {
      face = std::move(smaller);
    } else {
      all = false;
    }
  }
  return all;
}

std::shared_ptr<Mipmap> Cube::DowngradeCopy(FilterType filter) {
  std::shared_ptr<Cube> cube(new Cube());
  if (!MapFaces(faces_, &cube->faces_, [filter](Surface& face) { return DowngradeFace(face, filter); })) {
    return Mipmap::Null;
  }
  return cube;
}

bool Cube::FlipVertical() {
  return EveryFace(faces_, [](Surface& face) { return face.FlipVertical(); });
}

bool Cube::FlipHorizontal() {
  return EveryFace(faces_, [](Surface& face) { return face.FlipHorizontal(); });
}

bool Cube::Reinterpret(const PixelFormatDescriptor& format) {
  return EveryFace(faces_, [&format](Surface& face) { return face.Reinterpret(format); });
}

bool Cube::MakeSizePowerOfTwo(FilterType filter) {
  return EveryFace(faces_, [filter](Surface& face) { return face.MakeSizePowerOfTwo(filter); });
}

std::shared_ptr<Mipmap> Cube::ConvertCopy(Converter* converter) { return CubeConvertCopy(converter); }

std::shared_ptr<Mipmap> Cube::ConvertCopy(const PixelFormatDescriptor& format) { return CubeConvertCopy(format); }

std::shared_ptr<Mipmap> Cube::RotateCopy(int degrees) { return CubeRotateCopy(degrees); }

}  // namespace lumo::image
