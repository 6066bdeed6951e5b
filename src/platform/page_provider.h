// PageProvider: hands out 4096-byte pages carved from 64 KiB regions that it
// reserves from the operating system, and gives a region back to the system
// once all 16 of its pages have come back - except for a configured number of
// such emptied regions, which it keeps for reuse.
//
// The small-object pools of generic-value stores draw their pages from the
// process-wide instance (Process()); separate instances exist for tests.
//
// Thread-safe: every operation takes the provider's one mutex.
#ifndef KAV_PLATFORM_PAGE_PROVIDER_H_
#define KAV_PLATFORM_PAGE_PROVIDER_H_

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace kav {

inline constexpr size_t kPageSize = 4096;
inline constexpr size_t kPagesPerRegion = 16;
inline constexpr size_t kRegionSize = kPageSize * kPagesPerRegion;

struct PageProviderStatistics {
  size_t pages_in_use;              // handed out and not yet returned
  size_t regions_held;              // reserved from the system right now
  uint64_t regions_reserved_total;  // reservations since construction
  uint64_t regions_released_total;  // releases since construction
};

class PageProvider {
 public:
  // `retained_empty_regions`: how many regions whose pages have all come
  // back are kept for reuse instead of being released at once.
  explicit PageProvider(size_t retained_empty_regions = 0);
  // Releases every region. REQUIRES: no page is in use any more.
  ~PageProvider();
  PageProvider(const PageProvider&) = delete;
  PageProvider& operator=(const PageProvider&) = delete;

  // The process-wide provider: created on first use and never destroyed, so
  // that values destroyed during static destruction can still return pages.
  static PageProvider& Process();

  // A 4096-byte page aligned to 4096 bytes; its contents are unspecified.
  // Throws std::bad_alloc when the system refuses more memory.
  void* AcquirePage();
  // Returns one page. REQUIRES: `page` came from AcquirePage of this provider.
  void ReleasePage(void* page) noexcept;
  // Returns a chain of pages linked through their first pointer-sized word
  // (null ends the chain), taking the lock once.
  void ReleasePageChain(void* first) noexcept;

  PageProviderStatistics Statistics() const;

 private:
  // A 64 KiB region; `free_mask` has bit i set when page i is available.
  struct Region {
    uintptr_t base = 0;
    uint32_t free_mask = 0;
    Region* prev = nullptr;  // links of the list of regions with free pages
    Region* next = nullptr;
  };

  void ReleaseLocked(void* page) noexcept;
  void LinkAvailable(Region& region) noexcept;
  void UnlinkAvailable(Region& region) noexcept;

  const size_t retained_empty_regions_;
  mutable std::mutex mutex_;
  std::unordered_map<uintptr_t, Region> regions_;  // by base address
  // The map nodes of released regions, kept for the next regions: regions
  // come and go with the trees on them, and a node allocated afresh each
  // time would make the heap's byte counts depend on which block the heap
  // happens to hand out. Its capacity exceeds the regions held, so that a
  // release never allocates.
  std::vector<std::unordered_map<uintptr_t, Region>::node_type> spare_nodes_;
  Region* available_ = nullptr;  // regions with a free page
  size_t empty_regions_ = 0;     // regions with all pages free
  PageProviderStatistics statistics_{};
};

}  // namespace kav

#endif  // KAV_PLATFORM_PAGE_PROVIDER_H_
