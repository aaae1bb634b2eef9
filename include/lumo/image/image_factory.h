// Image files: the file formats the library reads and writes.
#pragma once

#include "lumo/image/export.h"

namespace lumo::image {

// File format numbers; part of the exported interface (gaps are unused numbers).
enum class ImageFormat : int {
  UNKNOWN = 0,
  BMP = 1,
  JPG = 2,
  PNG = 3,
  TGA = 4,
  GIF = 5,
  HDR = 8,
  DDS = 32,
  KTX = 33,
  PKM = 34,
  PVR = 35,
  ASTC = 36,
  PKMA = 38,
};

}  // namespace lumo::image
