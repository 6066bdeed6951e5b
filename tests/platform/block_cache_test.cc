#include "platform/block_cache.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/allocation.h"
#include "platform/system_heap.h"

namespace kav {
namespace {

// Each test starts from an empty cache on its thread.
class BlockCacheTest : public ::testing::Test {
 protected:
  BlockCacheTest() { FlushBlockCache(); }
  ~BlockCacheTest() override { FlushBlockCache(); }

  AllocationCounters counters_;
  const AllocationTable table_ = CountingCachedAllocationTable(&counters_);

  void* Allocate(size_t size) { return table_.allocate(table_.context, size); }
  void Free(void* block) { table_.free(table_.context, block); }
};

TEST_F(BlockCacheTest, FreedSmallBlocksServeTheirSizeAgain) {
  struct Row {
    size_t size;
    bool cached;
  };
  const Row rows[] = {{0, true},  {1, true},   {24, true},   {25, true},    {40, true},
                      {41, true}, {600, true}, {1032, true}, {1100, false}, {5000, false}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.size);
    void* block = Allocate(row.size);
    ASSERT_NE(block, nullptr);
    const size_t usable = SystemUsableSize(block);
    EXPECT_GE(usable, row.size == 0 ? 1 : row.size);
    std::memset(block, 0x5A, usable);
    Free(block);
    EXPECT_EQ(CachedBlockCount(), row.cached ? 1u : 0u);
    if (!row.cached) continue;
    // The same request gets the same block back, whole.
    void* again = Allocate(row.size);
    EXPECT_EQ(again, block);
    EXPECT_EQ(SystemUsableSize(again), usable);
    EXPECT_EQ(CachedBlockCount(), 0u);
    Free(again);
    FlushBlockCache();
  }
}

TEST_F(BlockCacheTest, EachClassKeepsAtMostItsShareOfBytes) {
  for (size_t size : {24, 100, 1000}) {
    SCOPED_TRACE(size);
    // The system heap may hand out a little more than asked: such a block
    // is kept in the class its usable size reaches (classes are 16 bytes
    // apart from 24 on).
    std::map<size_t, size_t> blocks_per_class_size;
    std::vector<void*> blocks;
    for (int i = 0; i < 2000; ++i) {
      blocks.push_back(Allocate(size));
      const size_t usable = SystemUsableSize(blocks.back());
      ++blocks_per_class_size[24 + (usable - 24) / 16 * 16];
    }
    for (void* block : blocks) Free(block);
    size_t expected = 0;
    for (const auto& [class_size, count] : blocks_per_class_size) {
      expected += std::min(count, kBlockCacheBytesPerClass / class_size);
    }
    EXPECT_EQ(CachedBlockCount(), expected);
    EXPECT_GT(CachedBlockCount(), 10u);
    FlushBlockCache();
  }
}

TEST_F(BlockCacheTest, ResizeAndDuplicateWorkOnCachedBlocks) {
  void* block = Allocate(30);
  Free(block);
  char* text = table_.duplicate(table_.context, "0123456789012345678901234");
  EXPECT_STREQ(text, "0123456789012345678901234");
  text = static_cast<char*>(table_.reallocate(table_.context, text, 5000));
  ASSERT_NE(text, nullptr);
  EXPECT_STREQ(text, "0123456789012345678901234");
  EXPECT_GE(table_.usable_size(table_.context, text), 5000u);
  Free(text);
  EXPECT_EQ(table_.duplicate(table_.context, nullptr), nullptr);
}

// A thread's blocks go back to the system heap when it ends (the leak
// checker of the sanitizer build would see them otherwise), and a block
// freed on another thread joins that thread's cache.
TEST_F(BlockCacheTest, ThreadsKeepTheirOwnCaches) {
  Free(Allocate(48));  // this thread's cache is open
  FlushBlockCache();
  const size_t open_before = OpenBlockCacheCount();
  std::vector<void*> from_thread;
  size_t cached_in_thread = 0;
  size_t open_in_thread = 0;
  std::thread worker([&] {
    std::vector<void*> blocks;
    for (int i = 0; i < 100; ++i) blocks.push_back(Allocate(48));
    for (void* block : blocks) Free(block);
    cached_in_thread = CachedBlockCount();
    open_in_thread = OpenBlockCacheCount();
    for (int i = 0; i < 3; ++i) from_thread.push_back(Allocate(48));
  });
  worker.join();
  EXPECT_EQ(cached_in_thread, 100u);
  EXPECT_EQ(open_in_thread, open_before + 1);
  EXPECT_EQ(OpenBlockCacheCount(), open_before) << "the worker's cache outlived the worker";
  EXPECT_EQ(CachedBlockCount(), 0u);
  for (void* block : from_thread) Free(block);
  EXPECT_EQ(CachedBlockCount(), 3u);
}

// The counting table over the cache keeps the six counters by the usable
// sizes the system heap reports, whatever the cache does.
TEST_F(BlockCacheTest, CountingTableCountsUsableSizes) {
  AllocationCounters counters;
  const AllocationTable previous = InstallAllocationTable(CountingCachedAllocationTable(&counters));
  std::map<void*, size_t> live;
  uint64_t allocated = 0, allocations = 0, freed = 0, frees = 0, peak = 0, live_at_peak = 0;
  const auto allocated_now = [&](void* block) {
    const size_t usable = SystemUsableSize(block);
    EXPECT_EQ(PluginUsableSize(block), usable);
    live[block] = usable;
    allocated += usable;
    ++allocations;
    if (allocated - freed > peak) peak = allocated - freed, live_at_peak = allocations - frees;
  };
  const auto freed_now = [&](void* block) {
    freed += live.at(block);
    ++frees;
    live.erase(block);
  };
  const auto check = [&](const char* step) {
    SCOPED_TRACE(step);
    const MemoryStatistics actual = counters.Read();
    EXPECT_EQ(actual.bytes_allocated, allocated);
    EXPECT_EQ(actual.allocations, allocations);
    EXPECT_EQ(actual.bytes_freed, freed);
    EXPECT_EQ(actual.frees, frees);
    EXPECT_EQ(actual.peak_bytes_in_use, peak);
    EXPECT_EQ(actual.live_allocations_at_peak, live_at_peak);
  };

  void* a = PluginAllocate(10);
  allocated_now(a);
  void* b = PluginAllocate(2000);
  allocated_now(b);
  check("two allocations");
  freed_now(a);
  PluginFree(a);
  check("a small block freed into the cache");
  void* c = PluginAllocate(10);
  allocated_now(c);
  check("the cached block handed out again");
  freed_now(b);
  void* d = PluginReallocate(b, 3000);
  allocated_now(d);
  check("a resize");
  char* text = PluginDuplicate("some text");
  allocated_now(text);
  check("a duplicate");
  for (void* block : {c, d, static_cast<void*>(text)}) {
    freed_now(block);
    PluginFree(block);
  }
  PluginFree(nullptr);
  check("everything freed");
  InstallAllocationTable(previous);
}

}  // namespace
}  // namespace kav
