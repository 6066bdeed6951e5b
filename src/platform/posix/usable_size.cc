#include <malloc.h>

#include "platform/system_heap.h"

namespace kav {

size_t SystemUsableSize(const void* block) noexcept {
  if (block == nullptr) return 0;
  return malloc_usable_size(const_cast<void*>(block));
}

}  // namespace kav
