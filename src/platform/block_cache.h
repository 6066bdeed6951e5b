// A per-thread cache of small freed blocks in front of the system heap.
//
// Answers to the host are trees of many small blocks (a map array, a copy of
// every key, every string) that are all freed together a moment later. The
// system allocator keeps only a handful of freed blocks per size for quick
// reuse and sends the rest through its locked, coalescing path; this cache
// keeps many more, per thread, so that such bursts cost a list push and pop.
//
// Every block, cached or not, is an ordinary system-heap block: it may be
// resized or measured by the system functions, and a block allocated on one
// thread may be freed on another (it then joins that thread's cache).
// A block's usable size is what the system heap reports for it, so counting
// above the cache sees the same sizes as counting over the system heap.
//
// Each thread caches at most kBlockCacheBytesPerClass bytes per size class.
// A thread's cached blocks go back to the system heap when the thread ends;
// frees that come after that (from destructors running at exit) go straight
// to the system heap.
//
// Thread-safe: each thread has its own cache.
#ifndef KAV_PLATFORM_BLOCK_CACHE_H_
#define KAV_PLATFORM_BLOCK_CACHE_H_

#include <cstddef>

#include "platform/allocation.h"

namespace kav {

// Requests up to this many bytes are served from the cache; freed blocks
// are kept when they can serve such a request again.
inline constexpr size_t kLargestCachedBlock = 1032;
inline constexpr size_t kBlockCacheBytesPerClass = 16 * 1024;

namespace block_cache_detail {
void* CountingAllocate(void* counters, size_t size);
void CountingFree(void* counters, void* block);
void* CountingReallocate(void* counters, void* block, size_t size);
char* CountingDuplicate(void* counters, const char* text);
size_t UsableSize(void* counters, const void* block);
}  // namespace block_cache_detail

// The table the plugin starts with: the block cache in front of the system
// heap (a request of 0 bytes is served as 1 byte), counted into
// `*counters` by the rules of CountingAllocationTable. Counting and caching
// are done in one step, so that a block's usable size is looked up at most
// once per operation (a cached block keeps it). Constant, so that the
// start-up table is in place before any constructor runs.
// REQUIRES: *counters outlives every use of the table.
constexpr AllocationTable CountingCachedAllocationTable(AllocationCounters* counters) noexcept {
  using namespace block_cache_detail;
  return {counters,           CountingAllocate,  CountingFree,
          CountingReallocate, CountingDuplicate, UsableSize};
}

// The number of blocks the calling thread's cache holds. For tests.
size_t CachedBlockCount() noexcept;

// The number of threads whose cache is made and not yet given back at their
// exit. For tests.
size_t OpenBlockCacheCount() noexcept;

// Gives every block the calling thread's cache holds back to the system
// heap. The cache stays usable.
void FlushBlockCache() noexcept;

}  // namespace kav

#endif  // KAV_PLATFORM_BLOCK_CACHE_H_
