// Reserving and releasing address space with committed read-write memory
// straight from the operating system, below the page provider. One
// implementation per platform (posix/system_pages.cc with mmap,
// windows/system_pages.cc with VirtualAlloc).
//
// Thread-safe, like the system calls behind it.
#ifndef KAV_PLATFORM_SYSTEM_PAGES_H_
#define KAV_PLATFORM_SYSTEM_PAGES_H_

#include <cstddef>

namespace kav {

// Reserves and commits `size` bytes of zero-filled read-write memory whose
// address is a multiple of `size`. REQUIRES: `size` is a power of two and a
// multiple of 64 KiB. Returns null when the system refuses.
void* ReserveSystemRegion(size_t size) noexcept;

// Gives a region from ReserveSystemRegion back to the system. REQUIRES:
// `size` is the size it was reserved with.
void ReleaseSystemRegion(void* region, size_t size) noexcept;

}  // namespace kav

#endif  // KAV_PLATFORM_SYSTEM_PAGES_H_
