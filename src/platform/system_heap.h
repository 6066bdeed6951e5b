// The system heap as seen by the allocation table: the usable size of a block
// as the system allocator reports it. One implementation per platform
// (posix/usable_size.cc, windows/usable_size.cc).
//
// Thread-safe, like the system allocator.
#ifndef KAV_PLATFORM_SYSTEM_HEAP_H_
#define KAV_PLATFORM_SYSTEM_HEAP_H_

#include <cstddef>

namespace kav {

// The number of bytes usable in `block`, which the system allocator returned
// (malloc, realloc, strdup); 0 for null.
size_t SystemUsableSize(const void* block) noexcept;

}  // namespace kav

#endif  // KAV_PLATFORM_SYSTEM_HEAP_H_
