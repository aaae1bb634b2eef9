// Mip levels as views of a file's bytes, for the container plugins whose
// images keep pointing into the buffer they were read from. Every view is
// checked against the buffer before it is made: a level that does not fit is
// not made, whatever the header claimed.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <vector>

#include "lumo/image/formats.h"
#include "lumo/image/mipmaps.h"
#include "lumo/image/surface_data.h"

namespace lumo::image::detail {

constexpr unsigned kCubeFaces = 6;

struct Extent {
  unsigned long long width = 1, height = 1, depth = 1;
};

// Level `level` of a chain: every side halved per level, never below 1.
Extent LevelExtent(const Extent& base, unsigned long long level);

// A count the header declares, cut to what `available` bytes can hold when
// each element takes at least `min_bytes`: a small file cannot ask for
// millions of level or layer objects.
unsigned long long CountThatFits(unsigned long long declared, unsigned long long min_bytes,
                                 unsigned long long available);

// Views of one pixel format over one shared buffer. Row alignment is an
// exponent as in BytesPerRow (0: tight rows).
class LevelViews {
 public:
  LevelViews(std::shared_ptr<char> data, unsigned long long size, PixelFormatDescriptor format,
             unsigned long long alignment = 0);

  unsigned long long Size() const { return size_; }
  PixelFormatDescriptor Format() const { return format_; }

  // Bytes of one image (a volume: all its slices) at extent e; 0 when they do
  // not fit in 64 bits.
  unsigned long long Bytes(const Extent& e, bool volume) const;
  // Whether Bytes(e, volume) bytes from `offset` lie inside the buffer (and are not 0).
  bool Fits(unsigned long long offset, const Extent& e, bool volume) const;

  // Each is Null when its bytes do not lie inside the buffer.
  std::shared_ptr<Surface> SurfaceAt(unsigned long long offset, const Extent& e) const;
  std::shared_ptr<Volume> VolumeAt(unsigned long long offset, const Extent& e) const;
  // `layers` layers stored one after the other from `offset`, viewed in
  // place (the array's volume is a view of the buffer).
  std::shared_ptr<SurfaceArray> LayersAt(unsigned long long offset, const Extent& e, unsigned long long layers) const;
  // Layers at the given offsets (copied into the array's own storage).
  std::shared_ptr<SurfaceArray> ArrayAt(const std::vector<unsigned long long>& offsets, const Extent& e) const;
  // Faces in CubeFace order; a face that is missing or does not fit is
  // handed to Cube::Create as Surface::Null, which refuses it.
  std::shared_ptr<Cube> CubeAt(const std::array<std::shared_ptr<Surface>, kCubeFaces>& faces) const;

 private:
  std::shared_ptr<char> data_;
  unsigned long long size_;
  PixelFormatDescriptor format_;
  unsigned long long alignment_;
};

// The stored pixels of element `slice` of a level (a cube's face, an array's
// layer, a volume's whole data; a surface has only slice 0), as a writer
// copies them. `known` is false for a level of a type no writer handles.
struct LevelElement {
  const char* data = nullptr;
  unsigned long long size = 0;
  unsigned long long pitch = 0;  // bytes from one row to the next; 0 for block data
  bool known = true;
};
LevelElement ElementOf(const std::shared_ptr<Mipmap>& level, unsigned long long slice);

}  // namespace lumo::image::detail
