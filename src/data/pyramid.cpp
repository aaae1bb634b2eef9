#include "lumo/image/pyramid.h"

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "lumo/image/mipmaps.h"

namespace lumo::image {

const std::shared_ptr<Pyramid> Pyramid::Null;

std::shared_ptr<Pyramid> Pyramid::Make(const std::shared_ptr<Mipmap>& level, ImageOrigin origin) {
  // The constructor is private, so make_shared cannot reach it.
  std::shared_ptr<Pyramid> pyramid(new Pyramid());
  pyramid->levels_.push_back(level);
  pyramid->origin_ = origin;
  return pyramid;
}

std::shared_ptr<Pyramid> Pyramid::Make(const std::vector<std::shared_ptr<Mipmap>>& levels, ImageOrigin origin) {
  std::shared_ptr<Pyramid> pyramid(new Pyramid());
  pyramid->levels_ = levels;
  pyramid->origin_ = origin;
  return pyramid;
}

Pyramid::~Pyramid() = default;

std::shared_ptr<Mipmap> Pyramid::GetMipmap(unsigned long long level) const {
  return level < levels_.size() ? levels_[level] : Mipmap::Null;
}

std::shared_ptr<Surface> Pyramid::GetSurface(unsigned long long level, unsigned long long index) const {
  const std::shared_ptr<Mipmap> mipmap = GetMipmap(level);
  return mipmap ? mipmap->GetSurface(index) : Surface::Null;
}

unsigned long long Pyramid::LevelsComplete() const {
  // Without a level 0 to halve there is no chain to speak of.
  if (levels_.empty() || !levels_[0]) return 0;
  unsigned long long w = levels_[0]->Width();
  unsigned long long h = levels_[0]->Height();
  unsigned long long d = levels_[0]->Depth();
  unsigned long long count = 1;
  while (w > 1 || h > 1 || d > 1) {
    w = w > 1 ? w / 2 : 1;
    h = h > 1 ? h / 2 : 1;
    d = d > 1 ? d / 2 : 1;
    ++count;
  }
  return count;
}

MipmapType Pyramid::Type() const { return !levels_.empty() && levels_[0] ? levels_[0]->Type() : MipmapType::Surface; }

bool Pyramid::IsArray() const { return !levels_.empty() && levels_[0] && levels_[0]->IsArray(); }

unsigned long long Pyramid::Width() const { return !levels_.empty() && levels_[0] ? levels_[0]->Width() : 0; }

unsigned long long Pyramid::Height() const { return !levels_.empty() && levels_[0] ? levels_[0]->Height() : 0; }

unsigned long long Pyramid::Depth() const { return !levels_.empty() && levels_[0] ? levels_[0]->Depth() : 0; }

unsigned long long Pyramid::ArrayLength() const {
  return !levels_.empty() && levels_[0] ? levels_[0]->ArrayLength() : 0;
}

PixelFormatDescriptor Pyramid::Format() const {
  return !levels_.empty() && levels_[0] ? levels_[0]->Format() : PixelFormatDescriptor{};
}

// Empty entries hold no pixels, so the in-place operations pass over them as
// a cube passes over an absent face.

bool Pyramid::FlipHorizontal() {
  bool all = true;
  for (const auto& level : levels_) {
    if (level && !level->FlipHorizontal()) all = false;
  }
  return all;
}

bool Pyramid::FlipVertical() {
  bool all = true;
  for (const auto& level : levels_) {
    if (level && !level->FlipVertical()) all = false;
  }
  // A partial flip leaves the rows in mixed order; the origin cannot describe
  // that, so it only follows a complete one.
  if (all) {
    if (origin_ == ImageOrigin::TopDown) {
      origin_ = ImageOrigin::BottomUp;
    } else if (origin_ == ImageOrigin::BottomUp) {
      origin_ = ImageOrigin::TopDown;
    }
  }
  return all;
}

bool Pyramid::FlipDepthical() {
  bool all = true;
  for (const auto& level : levels_) {
    if (level && !level->FlipDepthical()) all = false;
  }
  return all;
}

bool Pyramid::Reinterpret(const PixelFormatDescriptor& format) {
  for (const auto& level : levels_) {
    if (level && !level->Reinterpret(format)) return false;
  }
  return true;
}

bool Pyramid::MakeSizePowerOfTwo(FilterType filter) {
  for (const auto& level : levels_) {
    // Levels already in shape are skipped: their own MakeSizePowerOfTwo would
    // report false for them.
    if (!level || level->IsSizePowerOfTwo()) continue;
    if (!level->MakeSizePowerOfTwo(filter)) return false;
  }
  return true;
}

bool Pyramid::MakeComplete(FilterType filter) {
  if (!levels_.empty() && !levels_[0]) return false;
  const unsigned long long count = LevelsComplete();
  if (levels_.size() == count) return true;

  // Built aside so that a failure part way leaves the pyramid as it was.
  std::vector<std::shared_ptr<Mipmap>> chain;
  chain.reserve(count);
  for (unsigned long long i = 0; i < count; ++i) {
    if (i < levels_.size() && levels_[i]) {
      chain.push_back(levels_[i]);
      continue;
    }
    if (i == 0 || !chain[i - 1]) return false;
    std::shared_ptr<Mipmap> next = chain[i - 1]->DowngradeCopy(filter);
    if (!next) return false;
    chain.push_back(std::move(next));
  }
  levels_ = std::move(chain);
  return true;
}

bool Pyramid::Skip(unsigned long long count) {
  if (count >= levels_.size()) return false;
  levels_.erase(levels_.begin(), levels_.begin() + static_cast<std::ptrdiff_t>(count));
  return true;
}

namespace {

// Applies `copy` to every level; Null as soon as a level (or its copy) is
// missing, since a chain with a hole is no faithful copy.
template <typename CopyFn>
std::shared_ptr<Pyramid> CopyLevels(const Pyramid& pyramid, CopyFn&& copy) {
  std::vector<std::shared_ptr<Mipmap>> levels;
  levels.reserve(pyramid.LevelsCurrent());
  for (unsigned long long i = 0; i < pyramid.LevelsCurrent(); ++i) {
    const std::shared_ptr<Mipmap> level = pyramid.GetMipmap(i);
    if (!level) return Pyramid::Null;
    std::shared_ptr<Mipmap> result = copy(*level);
    if (!result) return Pyramid::Null;
    levels.push_back(std::move(result));
  }
  return Pyramid::Make(levels, pyramid.Origin());
}

}  // namespace

std::shared_ptr<Pyramid> Pyramid::ConvertCopy(const PixelFormatDescriptor& format) const {
  return CopyLevels(*this, [&format](Mipmap& level) { return level.ConvertCopy(format); });
}

std::shared_ptr<Pyramid> Pyramid::ConvertCopy(Converter* converter) const {
  return CopyLevels(*this, [converter](Mipmap& level) { return level.ConvertCopy(converter); });
}

std::shared_ptr<Pyramid> Pyramid::RotateCopy(int degrees) const {
  return CopyLevels(*this, [degrees](Mipmap& level) { return level.RotateCopy(degrees); });
}

std::shared_ptr<Pyramid> Pyramid::Face(CubeFace face) const {
  if (levels_.empty() || !levels_[0] || levels_[0]->Type() != MipmapType::Cube) return Null;
  std::vector<std::shared_ptr<Mipmap>> faces;
  faces.reserve(levels_.size());
  for (const auto& level : levels_) {
    // A level that is not a cube has no such face: it gives an empty entry,
    // as an empty level does.
    const auto* cube = dynamic_cast<const Cube*>(level.get());
    faces.push_back(cube ? std::shared_ptr<Mipmap>(cube->GetFace(face)) : Mipmap::Null);
  }
  return Make(faces, ImageOrigin::TopDown);
}

}  // namespace lumo::image
