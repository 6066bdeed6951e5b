#include "platform/page_provider.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <vector>

namespace kav {
namespace {

TEST(PageProviderTest, RegionsComeAndGoWithTheirPages) {
  struct Row {
    const char* name;
    size_t retained;
    size_t pages;
    size_t regions_while_held;
    size_t regions_after;
  };
  const Row rows[] = {
      {"one page", 0, 1, 1, 0},
      {"one full region", 0, 16, 1, 0},
      {"one page more than a region", 0, 17, 2, 0},
      {"one emptied region kept", 1, 40, 3, 1},
      {"more kept than exist", 5, 20, 2, 2},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    PageProvider provider(row.retained);
    std::vector<void*> pages;
    std::set<uintptr_t> distinct;
    for (size_t i = 0; i < row.pages; ++i) {
      void* page = provider.AcquirePage();
      ASSERT_EQ(reinterpret_cast<uintptr_t>(page) % kPageSize, 0u);
      std::memset(page, 0xA5, kPageSize);  // writable, whole page
      pages.push_back(page);
      distinct.insert(reinterpret_cast<uintptr_t>(page));
    }
    EXPECT_EQ(distinct.size(), row.pages);
    PageProviderStatistics held = provider.Statistics();
    EXPECT_EQ(held.pages_in_use, row.pages);
    EXPECT_EQ(held.regions_held, row.regions_while_held);

    // Half back one by one, the rest as one chain linked through the pages.
    void* chain = nullptr;
    for (size_t i = 0; i < pages.size(); ++i) {
      if (i % 2 == 0) {
        provider.ReleasePage(pages[i]);
      } else {
        *static_cast<void**>(pages[i]) = chain;
        chain = pages[i];
      }
    }
    provider.ReleasePageChain(chain);
    PageProviderStatistics after = provider.Statistics();
    EXPECT_EQ(after.pages_in_use, 0u);
    EXPECT_EQ(after.regions_held, row.regions_after);
    EXPECT_EQ(after.regions_reserved_total - after.regions_released_total, row.regions_after);

    // Pages of a kept region are handed out again before new memory.
    if (row.regions_after != 0) {
      void* again = provider.AcquirePage();
      EXPECT_EQ(provider.Statistics().regions_reserved_total, after.regions_reserved_total);
      provider.ReleasePage(again);
    }
  }
}

}  // namespace
}  // namespace kav
