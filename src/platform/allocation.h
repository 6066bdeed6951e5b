// The plugin's allocation table and its statistics.
//
// Every allocation of the plugin (new, delete, resize, text duplication, size
// query) goes through one replaceable table of five functions with a context
// pointer. On first use the table holds counting functions that keep six
// 64-bit counters: peak bytes in use, live allocations at that peak, bytes
// allocated, allocations, bytes freed, frees. Sizes are the usable sizes of
// the blocks as the system allocator reports them.
//
// In the plugin library the global operator new and delete are routed here
// (src/plugin/library), so standard containers are counted too; in other
// programs only explicit calls of these functions are counted.
//
// Thread-safe: the counters are updated together under a spin lock. Replacing
// the table (InstallAllocationTable) is not synchronised with allocations on
// other threads; it is meant for start-up and tests.
#ifndef KAV_PLATFORM_ALLOCATION_H_
#define KAV_PLATFORM_ALLOCATION_H_

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace kav {

struct AllocationTable {
  void* context;
  void* (*allocate)(void* context, size_t size);
  void (*free)(void* context, void* block);  // null block: nothing
  void* (*reallocate)(void* context, void* block, size_t size);
  char* (*duplicate)(void* context, const char* text);
  size_t (*usable_size)(void* context, const void* block);
};

struct MemoryStatistics {
  uint64_t peak_bytes_in_use;
  uint64_t live_allocations_at_peak;
  uint64_t bytes_allocated;
  uint64_t allocations;
  uint64_t bytes_freed;
  uint64_t frees;

  uint64_t BytesInUse() const { return bytes_allocated - bytes_freed; }
  uint64_t LiveAllocations() const { return allocations - frees; }
};

// Every table hands out blocks that start on a multiple of this many bytes,
// as every system heap does (8 on 32-bit systems, 16 on 64-bit ones); host
// values tell their layouts apart by it (binding/host_value.h). REQUIRES of
// a replacement table.
inline constexpr size_t kPluginBlockAlignment = 8;

// Replaces the table; returns the previous one. A replacement is responsible
// for its own bookkeeping. REQUIRES: no block allocated through the old table
// is freed through the new one unless both agree on the heap.
AllocationTable InstallAllocationTable(const AllocationTable& table);

// Allocation through the current table. PluginAllocate never returns null:
// it throws std::bad_alloc when the system is out of memory.
void* PluginAllocate(size_t size);
void PluginFree(void* block) noexcept;
// Like realloc: null on failure, the old block then stays valid.
void* PluginReallocate(void* block, size_t size);
char* PluginDuplicate(const char* text);  // null gives null
size_t PluginUsableSize(const void* block) noexcept;

// A snapshot of the counters of the counting table.
MemoryStatistics ReadMemoryStatistics() noexcept;

// The six counters and the rules that move them. Each allocation adds its
// usable size to bytes allocated and 1 to allocations; each free adds the
// usable size to bytes freed and 1 to frees. After each allocation, when
// bytes in use exceed the peak, the peak takes that value and live
// allocations at peak becomes allocations minus frees. Each record is one
// short critical section under a spin lock, so any thread may record, and a
// read sees all six counters at one moment.
class AllocationCounters {
 public:
  constexpr AllocationCounters() = default;
  AllocationCounters(const AllocationCounters&) = delete;
  AllocationCounters& operator=(const AllocationCounters&) = delete;

  void RecordAllocation(uint64_t usable_size) noexcept {
    Lock();
    counters_.bytes_allocated += usable_size;
    ++counters_.allocations;
    const uint64_t in_use = counters_.BytesInUse();
    if (in_use > counters_.peak_bytes_in_use) {
      counters_.peak_bytes_in_use = in_use;
      counters_.live_allocations_at_peak = counters_.LiveAllocations();
    }
    Unlock();
  }

  void RecordFree(uint64_t usable_size) noexcept {
    Lock();
    counters_.bytes_freed += usable_size;
    ++counters_.frees;
    Unlock();
  }

  MemoryStatistics Read() const noexcept {
    Lock();
    const MemoryStatistics statistics = counters_;
    Unlock();
    return statistics;
  }

 private:
  void Lock() const noexcept {
    if (locked_.exchange(true, std::memory_order_acquire)) [[unlikely]]
      LockSlowly();
  }
  void LockSlowly() const noexcept;
  void Unlock() const noexcept { locked_.store(false, std::memory_order_release); }

  mutable std::atomic<bool> locked_{false};
  MemoryStatistics counters_{};
};

// The system heap (malloc, free, realloc, strdup and the usable-size query)
// as an allocation table without counting. A request of 0 bytes is served
// as 1 byte, so a successful allocation or resize never returns null.
AllocationTable SystemAllocationTable() noexcept;

// What the counting functions work with: the table that really allocates and
// the counters that they move.
struct CountingContext {
  AllocationTable underlying;
  AllocationCounters* counters;
};

// A table of counting functions over `context->underlying` (the table that
// is installed at start-up counts over the system heap, behind the block
// cache of block_cache.h except under AddressSanitizer, into the counters
// that ReadMemoryStatistics reads). A resize counts as a free of the old
// block and an allocation of the new one; a failed resize counts nothing.
// REQUIRES: *context outlives every use of the returned table.
AllocationTable CountingAllocationTable(CountingContext* context) noexcept;

}  // namespace kav

#endif  // KAV_PLATFORM_ALLOCATION_H_
