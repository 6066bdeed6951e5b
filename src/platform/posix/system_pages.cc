#include "platform/system_pages.h"

#include <sys/mman.h>

#include <cstdint>

namespace kav {

// mmap only promises page alignment, so twice the size is mapped and the
// unaligned head and tail are unmapped again.
void* ReserveSystemRegion(size_t size) noexcept {
  const size_t span = size * 2;
  void* raw = mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED) return nullptr;
  const uintptr_t begin = reinterpret_cast<uintptr_t>(raw);
  const uintptr_t aligned = (begin + size - 1) & ~(static_cast<uintptr_t>(size) - 1);
  const size_t head = aligned - begin;
  const size_t tail = span - head - size;
  if (head != 0) munmap(raw, head);
  if (tail != 0) munmap(reinterpret_cast<void*>(aligned + size), tail);
  return reinterpret_cast<void*>(aligned);
}

void ReleaseSystemRegion(void* region, size_t size) noexcept {
  munmap(region, size);
}

}  // namespace kav
