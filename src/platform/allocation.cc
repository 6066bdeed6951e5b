#include "platform/allocation.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <thread>

#include "platform/block_cache.h"
#include "platform/sanitizers.h"
#include "platform/system_heap.h"

namespace kav {
namespace {

void CpuRelax() noexcept {
#if defined(__i386__) || defined(__x86_64__)
  __builtin_ia32_pause();
#endif
}

// The system heap. Sizes of 0 become 1 so that success is never null
// (realloc(block, 0) would otherwise free the block behind our back).
void* SystemAllocate(void* /*context*/, size_t size) {
  return std::malloc(size != 0 ? size : 1);
}
void SystemFree(void* /*context*/, void* block) {
  std::free(block);
}
void* SystemReallocate(void* /*context*/, void* block, size_t size) {
  return std::realloc(block, size != 0 ? size : 1);
}
char* SystemDuplicate(void* /*context*/, const char* text) {
  if (text == nullptr) return nullptr;
  size_t size = std::strlen(text) + 1;
  char* copy = static_cast<char*>(std::malloc(size));
  if (copy != nullptr) std::memcpy(copy, text, size);
  return copy;
}
size_t SystemUsable(void* /*context*/, const void* block) {
  return SystemUsableSize(block);
}

constexpr AllocationTable kSystemTable = {nullptr,          SystemAllocate,  SystemFree,
                                          SystemReallocate, SystemDuplicate, SystemUsable};

// The counting functions; their context is a CountingContext.
CountingContext& Counting(void* context) {
  return *static_cast<CountingContext*>(context);
}

size_t UnderlyingUsable(const CountingContext& counting, const void* block) {
  return counting.underlying.usable_size(counting.underlying.context, block);
}

void* CountingAllocate(void* context, size_t size) {
  CountingContext& counting = Counting(context);
  void* block = counting.underlying.allocate(counting.underlying.context, size);
  if (block != nullptr) counting.counters->RecordAllocation(UnderlyingUsable(counting, block));
  return block;
}

void CountingFree(void* context, void* block) {
  if (block == nullptr) return;
  CountingContext& counting = Counting(context);
  counting.counters->RecordFree(UnderlyingUsable(counting, block));
  counting.underlying.free(counting.underlying.context, block);
}

void* CountingReallocate(void* context, void* block, size_t size) {
  if (block == nullptr) return CountingAllocate(context, size);
  CountingContext& counting = Counting(context);
  size_t old_size = UnderlyingUsable(counting, block);
  void* moved = counting.underlying.reallocate(counting.underlying.context, block, size);
  if (moved == nullptr) return nullptr;
  counting.counters->RecordFree(old_size);
  counting.counters->RecordAllocation(UnderlyingUsable(counting, moved));
  return moved;
}

char* CountingDuplicate(void* context, const char* text) {
  if (text == nullptr) return nullptr;
  CountingContext& counting = Counting(context);
  char* copy = counting.underlying.duplicate(counting.underlying.context, text);
  if (copy != nullptr) counting.counters->RecordAllocation(UnderlyingUsable(counting, copy));
  return copy;
}

size_t CountingUsableSize(void* context, const void* block) {
  return UnderlyingUsable(Counting(context), block);
}

constexpr AllocationTable CountingAllocationTableOver(CountingContext* context) {
  return {context,           CountingAllocate,  CountingFree, CountingReallocate,
          CountingDuplicate, CountingUsableSize};
}

// The process-wide state, constant-initialised so that the counting table is
// in place before the first allocation of any static constructor.
constinit AllocationCounters g_counters;

#if defined(KAV_ADDRESS_SANITIZER)
// Under AddressSanitizer every block goes straight back to the system heap,
// so that the sanitizer sees each use after free.
constinit CountingContext g_counting_context = {kSystemTable, &g_counters};
constinit AllocationTable g_table = CountingAllocationTableOver(&g_counting_context);
#else
constinit AllocationTable g_table = CountingCachedAllocationTable(&g_counters);
#endif

}  // namespace

void AllocationCounters::LockSlowly() const noexcept {
  for (int spins = 0; locked_.exchange(true, std::memory_order_acquire); ++spins) {
    // Held only for a few instructions: spin on a plain read, and give the
    // processor away if the holder seems to have been descheduled.
    while (locked_.load(std::memory_order_relaxed)) {
      if (spins++ < 64) {
        CpuRelax();
      } else {
        std::this_thread::yield();
      }
    }
  }
}

AllocationTable SystemAllocationTable() noexcept {
  return kSystemTable;
}

AllocationTable CountingAllocationTable(CountingContext* context) noexcept {
  return CountingAllocationTableOver(context);
}

AllocationTable InstallAllocationTable(const AllocationTable& table) {
  AllocationTable previous = g_table;
  g_table = table;
  return previous;
}

void* PluginAllocate(size_t size) {
  void* block = g_table.allocate(g_table.context, size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void PluginFree(void* block) noexcept {
  if (block != nullptr) g_table.free(g_table.context, block);
}

void* PluginReallocate(void* block, size_t size) {
  return g_table.reallocate(g_table.context, block, size);
}

char* PluginDuplicate(const char* text) {
  if (text == nullptr) return nullptr;
  return g_table.duplicate(g_table.context, text);
}

size_t PluginUsableSize(const void* block) noexcept {
  if (block == nullptr) return 0;
  return g_table.usable_size(g_table.context, block);
}

MemoryStatistics ReadMemoryStatistics() noexcept {
  return g_counters.Read();
}

}  // namespace kav
