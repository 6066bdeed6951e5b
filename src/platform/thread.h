// The operating system's identifier of the calling thread.
//
// Thread-safe.
#ifndef KAV_PLATFORM_THREAD_H_
#define KAV_PLATFORM_THREAD_H_

#include <cstdint>

namespace kav {

uint32_t CurrentThreadId();

}  // namespace kav

#endif  // KAV_PLATFORM_THREAD_H_
