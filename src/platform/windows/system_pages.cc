#ifdef _WIN32
#include "platform/system_pages.h"

#include <windows.h>

namespace kav {

// VirtualAlloc hands out address space on the 64 KiB allocation granularity,
// which satisfies the alignment promised for regions of exactly 64 KiB. A
// larger region is placed by reserving a bigger span, releasing it and
// reserving again at the aligned address inside it (retried if another
// thread takes that space in between).
void* ReserveSystemRegion(size_t size) noexcept {
  void* region = VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
  if (region == nullptr || (reinterpret_cast<uintptr_t>(region) & (size - 1)) == 0) {
    return region;
  }
  VirtualFree(region, 0, MEM_RELEASE);
  for (int attempt = 0; attempt < 8; ++attempt) {
    void* span = VirtualAlloc(nullptr, size * 2, MEM_RESERVE, PAGE_NOACCESS);
    if (span == nullptr) return nullptr;
    const uintptr_t aligned =
        (reinterpret_cast<uintptr_t>(span) + size - 1) & ~(static_cast<uintptr_t>(size) - 1);
    VirtualFree(span, 0, MEM_RELEASE);
    region = VirtualAlloc(reinterpret_cast<void*>(aligned), size, MEM_RESERVE | MEM_COMMIT,
                          PAGE_READWRITE);
    if (region != nullptr) return region;
  }
  return nullptr;
}

void ReleaseSystemRegion(void* region, size_t) noexcept {
  VirtualFree(region, 0, MEM_RELEASE);
}

}  // namespace kav
#endif  // _WIN32
