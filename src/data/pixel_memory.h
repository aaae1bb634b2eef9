// Allocation of pixel buffers owned by SurfaceDataBitmap.
#pragma once

namespace lumo::image::detail {

// Uninitialised, 64-byte aligned storage; throws std::bad_alloc. Large buffers
// are aligned to 2 MiB and advised as huge pages: the first touch of a fresh
// multi-megabyte buffer otherwise costs more than the pixel work done in it.
char* AllocatePixels(unsigned long long size);
void FreePixels(char* pixels);

}  // namespace lumo::image::detail
