#include "data/pixel_memory.h"

#include <cstdlib>
#include <new>

#if defined(__linux__)
#  include <sys/mman.h>
#endif

namespace lumo::image::detail {
namespace {
constexpr unsigned long long kHugePage = 2ULL << 20;
}  // namespace

char* AllocatePixels(unsigned long long size) {
  const bool huge = size >= kHugePage;
  const std::size_t alignment = huge ? kHugePage : 64;
  void* memory = nullptr;
  if (size > static_cast<unsigned long long>(static_cast<std::size_t>(-1) - alignment) ||
      posix_memalign(&memory, alignment, size == 0 ? 1 : static_cast<std::size_t>(size)) != 0) {
    throw std::bad_alloc();
  }
#if defined(__linux__) && defined(MADV_HUGEPAGE)
  if (huge) madvise(memory, static_cast<std::size_t>(size), MADV_HUGEPAGE);
#endif
  return static_cast<char*>(memory);
}

void FreePixels(char* pixels) { std::free(pixels); }

}  // namespace lumo::image::detail
