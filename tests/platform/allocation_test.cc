#include "platform/allocation.h"

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include <gtest/gtest.h>

namespace kav {
namespace {

// An underlying heap whose blocks report a usable size of the request
// rounded up to 16 bytes, and which can be told to fail.
struct FakeHeap {
  std::map<const void*, size_t> usable;
  bool fail = false;

  static size_t Round(size_t size) { return (size + 15) / 16 * 16; }
  static FakeHeap& Of(void* context) { return *static_cast<FakeHeap*>(context); }

  static void* Allocate(void* context, size_t size) {
    FakeHeap& heap = Of(context);
    if (heap.fail) return nullptr;
    void* block = std::malloc(Round(size) + 1);
    heap.usable[block] = Round(size);
    return block;
  }
  static void Free(void* context, void* block) {
    Of(context).usable.erase(block);
    std::free(block);
  }
  static void* Reallocate(void* context, void* block, size_t size) {
    FakeHeap& heap = Of(context);
    if (heap.fail) return nullptr;
    void* moved = Allocate(context, size);
    std::memcpy(moved, block, std::min(heap.usable[block], Round(size)));
    Free(context, block);
    return moved;
  }
  static char* Duplicate(void* context, const char* text) {
    char* copy = static_cast<char*>(Allocate(context, std::strlen(text) + 1));
    std::strcpy(copy, text);
    return copy;
  }
  static size_t UsableSize(void* context, const void* block) {
    return Of(context).usable.at(block);
  }

  AllocationTable Table() { return {this, Allocate, Free, Reallocate, Duplicate, UsableSize}; }
};

// Installs counting functions over a fake heap for the duration of a test.
class CountingOverFakeHeap {
 public:
  CountingOverFakeHeap()
      : context_{heap.Table(), &counters},
        previous_(InstallAllocationTable(CountingAllocationTable(&context_))) {}
  ~CountingOverFakeHeap() { InstallAllocationTable(previous_); }

  FakeHeap heap;
  AllocationCounters counters;

 private:
  CountingContext context_;
  AllocationTable previous_;
};

struct Expected {
  uint64_t peak, live_at_peak, allocated, allocations, freed, frees;
};

void ExpectCounters(const MemoryStatistics& actual, const Expected& expected) {
  EXPECT_EQ(actual.peak_bytes_in_use, expected.peak);
  EXPECT_EQ(actual.live_allocations_at_peak, expected.live_at_peak);
  EXPECT_EQ(actual.bytes_allocated, expected.allocated);
  EXPECT_EQ(actual.allocations, expected.allocations);
  EXPECT_EQ(actual.bytes_freed, expected.freed);
  EXPECT_EQ(actual.frees, expected.frees);
}

TEST(CountingAllocationTest, OperationsMoveTheSixCounters) {
  struct Step {
    const char* name;
    void (*run)(void*& a, void*& b);
    Expected after;
  };
  const Step steps[] = {
      {"allocate 10 (usable 16)",
       [](void*& a, void*&) { a = PluginAllocate(10); },
       {16, 1, 16, 1, 0, 0}},
      {"allocate 40 (usable 48)",
       [](void*&, void*& b) { b = PluginAllocate(40); },
       {64, 2, 64, 2, 0, 0}},
      {"free the first",
       [](void*& a, void*&) { PluginFree(a), a = nullptr; },
       {64, 2, 64, 2, 16, 1}},
      {"free null counts nothing",
       [](void*&, void*&) { PluginFree(nullptr); },
       {64, 2, 64, 2, 16, 1}},
      {"allocate 8 stays below the peak",
       [](void*& a, void*&) { a = PluginAllocate(8); },
       {64, 2, 80, 3, 16, 1}},
      {"resize 48 to 100 is a free and an allocation",
       [](void*&, void*& b) { b = PluginReallocate(b, 100); },
       {128, 2, 192, 4, 64, 2}},
      {"resize of null allocates",
       [](void*&, void*&) { PluginFree(PluginReallocate(nullptr, 1)); },
       {144, 3, 208, 5, 80, 3}},
      {"duplicate counts its copy",
       [](void*&, void*&) { PluginFree(PluginDuplicate("0123456789012345678")); },
       {160, 3, 240, 6, 112, 4}},
      {"free the rest",
       [](void*& a, void*& b) { PluginFree(a), PluginFree(b); },
       {160, 3, 240, 6, 240, 6}},
  };
  CountingOverFakeHeap counting;
  void* a = nullptr;
  void* b = nullptr;
  for (const Step& step : steps) {
    SCOPED_TRACE(step.name);
    step.run(a, b);
    ExpectCounters(counting.counters.Read(), step.after);
  }
  EXPECT_TRUE(counting.heap.usable.empty());
}

TEST(CountingAllocationTest, FailuresCountNothing) {
  CountingOverFakeHeap counting;
  void* block = PluginAllocate(20);
  counting.heap.fail = true;
  EXPECT_THROW(PluginAllocate(1), std::bad_alloc);
  EXPECT_EQ(PluginReallocate(block, 500), nullptr);
  ExpectCounters(counting.counters.Read(), {32, 1, 32, 1, 0, 0});
  EXPECT_EQ(PluginUsableSize(block), 32u);
  counting.heap.fail = false;
  PluginFree(block);
  EXPECT_EQ(counting.counters.Read().BytesInUse(), 0u);
}

TEST(CountingAllocationTest, DefaultTableCountsSystemHeapByUsableSize) {
  const MemoryStatistics before = ReadMemoryStatistics();
  void* block = PluginAllocate(100);
  const size_t usable = PluginUsableSize(block);
  EXPECT_GE(usable, 100u);
  std::memset(block, 0xAB, usable);
  char* text = PluginDuplicate("text");
  EXPECT_STREQ(text, "text");
  EXPECT_EQ(PluginDuplicate(nullptr), nullptr);
  PluginFree(text);
  PluginFree(block);
  const MemoryStatistics after = ReadMemoryStatistics();
  EXPECT_EQ(after.allocations - before.allocations, 2u);
  EXPECT_EQ(after.frees - before.frees, 2u);
  EXPECT_EQ(after.BytesInUse(), before.BytesInUse());
  EXPECT_GE(after.bytes_allocated - before.bytes_allocated, usable);
}

}  // namespace
}  // namespace kav
