#include "platform/allocation.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "platform/system_heap.h"

namespace kav {
namespace {

void AtomicAdd(std::atomic<uint64_t>& counter, uint64_t amount) noexcept {
  uint64_t seen = counter.load(std::memory_order_relaxed);
  while (!counter.compare_exchange_weak(seen, seen + amount, std::memory_order_relaxed)) {
  }
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

// The process-wide state, constant-initialised so that the counting table is
// in place before the first allocation of any static constructor.
constinit AllocationCounters g_counters;
constinit CountingContext g_counting_context = {kSystemTable, &g_counters};
constinit AllocationTable g_table = {&g_counting_context, CountingAllocate,  CountingFree,
                                     CountingReallocate,  CountingDuplicate, CountingUsableSize};

}  // namespace

void AllocationCounters::RecordAllocation(uint64_t usable_size) noexcept {
  AtomicAdd(bytes_allocated_, usable_size);
  AtomicAdd(allocations_, 1);
  // Freed is read before allocated (and frees before allocations): both only
  // grow and never overtake their partner, so the differences cannot wrap.
  uint64_t freed = bytes_freed_.load();
  uint64_t in_use = bytes_allocated_.load() - freed;
  uint64_t peak = peak_bytes_in_use_.load();
  while (in_use > peak) {
    if (peak_bytes_in_use_.compare_exchange_weak(peak, in_use)) {
      uint64_t frees = frees_.load();
      uint64_t live = allocations_.load() - frees;
      uint64_t previous = live_allocations_at_peak_.load();
      while (!live_allocations_at_peak_.compare_exchange_weak(previous, live)) {
      }
      break;
    }
  }
}

void AllocationCounters::RecordFree(uint64_t usable_size) noexcept {
  AtomicAdd(bytes_freed_, usable_size);
  AtomicAdd(frees_, 1);
}

MemoryStatistics AllocationCounters::Read() const noexcept {
  MemoryStatistics statistics;
  statistics.peak_bytes_in_use = peak_bytes_in_use_.load();
  statistics.live_allocations_at_peak = live_allocations_at_peak_.load();
  statistics.bytes_freed = bytes_freed_.load();
  statistics.frees = frees_.load();
  statistics.bytes_allocated = bytes_allocated_.load();
  statistics.allocations = allocations_.load();
  return statistics;
}

AllocationTable SystemAllocationTable() noexcept {
  return kSystemTable;
}

AllocationTable CountingAllocationTable(CountingContext* context) noexcept {
  return {context,           CountingAllocate,  CountingFree, CountingReallocate,
          CountingDuplicate, CountingUsableSize};
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
