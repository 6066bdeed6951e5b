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
// (malloc, realloc, strdup); 0 for null. The block's bytes are not read,
// which the attribute tells the compiler: a fresh block is uninitialised.
#if defined(__GNUC__) && !defined(__clang__)
__attribute__((access(none, 1)))
#endif
size_t
SystemUsableSize(const void* block) noexcept;

}  // namespace kav

#endif  // KAV_PLATFORM_SYSTEM_HEAP_H_
