#include "platform/block_cache.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/system_heap.h"

#if defined(_WIN32)
#include <windows.h>
#endif

namespace kav {
namespace {

// Size classes are 16 bytes apart and start at 24, the smallest usable size
// of the 64-bit system heap: class c holds blocks of at least ClassSize(c)
// usable bytes and serves requests up to that size.
constexpr size_t kSmallestClassSize = 24;
constexpr size_t kClassStep = 16;
constexpr size_t kClassCount = (kLargestCachedBlock - kSmallestClassSize) / kClassStep + 1;

constexpr size_t ClassSize(size_t size_class) {
  return kSmallestClassSize + size_class * kClassStep;
}

// The class that serves a request of `size` bytes. REQUIRES: size <= kLargestCachedBlock.
constexpr size_t ClassForRequest(size_t size) {
  return size <= kSmallestClassSize ? 0 : (size - kSmallestClassSize + kClassStep - 1) / kClassStep;
}

// The largest class a freed block of `usable` bytes can serve.
// REQUIRES: kSmallestClassSize <= usable <= kLargestCachedUsable.
constexpr size_t ClassForBlock(size_t usable) {
  return (usable - kSmallestClassSize) / kClassStep;
}

// How many blocks a thread keeps per class: kBlockCacheBytesPerClass
// bytes, but at least 4 blocks.
constexpr auto kClassLimits = [] {
  std::array<uint16_t, kClassCount> limits{};
  for (size_t size_class = 0; size_class < kClassCount; ++size_class) {
    const size_t limit = kBlockCacheBytesPerClass / ClassSize(size_class);
    limits[size_class] = static_cast<uint16_t>(limit < 4 ? 4 : limit);
  }
  return limits;
}();

// A block asked for as the largest class may come with a few bytes more.
constexpr size_t kLargestCachedUsable = kLargestCachedBlock + kClassStep - 1;

static_assert(ClassSize(kClassCount - 1) == kLargestCachedBlock);
static_assert(ClassForBlock(kLargestCachedUsable) == kClassCount - 1);
static_assert(ClassForRequest(kLargestCachedBlock) == kClassCount - 1);

// A block in a cache: the link to the next one of its class and its usable
// size, kept so that handing the block out again needs no size query.
struct CachedBlock {
  CachedBlock* next;
  size_t usable;
};
static_assert(sizeof(CachedBlock) <= kSmallestClassSize);

struct ThreadBlockCache {
  CachedBlock* heads[kClassCount];
  uint16_t counts[kClassCount];
};

// The marker of a thread whose cache is gone: it is ending, and its frees go
// straight to the system heap.
ThreadBlockCache* const kClosedCache = reinterpret_cast<ThreadBlockCache*>(uintptr_t{1});

// Threads whose cache is made and not yet given back.
constinit std::atomic<size_t> g_open_caches{0};

void FlushClasses(ThreadBlockCache& cache) noexcept {
  for (size_t size_class = 0; size_class < kClassCount; ++size_class) {
    CachedBlock* block = cache.heads[size_class];
    while (block != nullptr) {
      CachedBlock* next = block->next;
      std::free(block);
      block = next;
    }
    cache.heads[size_class] = nullptr;
    cache.counts[size_class] = 0;
  }
}

// Where the calling thread's cache pointer lives: LoadThreadCache gives null
// before the first use and kClosedCache after the thread's exit flush;
// ArmThreadExit makes CloseThreadCache run when the calling thread ends.
void CloseThreadCache() noexcept;

#if defined(_WIN32)
// MinGW emulates thread_local: each access is a call, and when a thread ends
// its emulated variables may be gone before the destructors of thread_local
// objects run, which would then see a fresh null pointer and leak the cache.
// The pointer lives in a system TLS slot instead, and a TLS callback, which
// the loader calls at the end of every thread in programs and DLLs alike,
// closes the cache.
DWORD g_cache_slot = TLS_OUT_OF_INDEXES;

DWORD CacheSlot() noexcept {
  DWORD slot = __atomic_load_n(&g_cache_slot, __ATOMIC_ACQUIRE);
  if (slot != TLS_OUT_OF_INDEXES) [[likely]]
    return slot;
  const DWORD fresh = TlsAlloc();
  if (fresh == TLS_OUT_OF_INDEXES) return fresh;
  if (!__atomic_compare_exchange_n(&g_cache_slot, &slot, fresh, false, __ATOMIC_ACQ_REL,
                                   __ATOMIC_ACQUIRE)) {
    TlsFree(fresh);  // another thread was first
    return slot;
  }
  return fresh;
}

// TlsGetValue clears the thread's last error; the allocator must not.
inline ThreadBlockCache* LoadThreadCache() noexcept {
  const DWORD slot = CacheSlot();
  if (slot == TLS_OUT_OF_INDEXES) return kClosedCache;
  const DWORD last_error = GetLastError();
  void* cache = TlsGetValue(slot);
  SetLastError(last_error);
  return static_cast<ThreadBlockCache*>(cache);
}

inline void StoreThreadCache(ThreadBlockCache* cache) noexcept {
  TlsSetValue(CacheSlot(), cache);
}

void ArmThreadExit() noexcept {}

void NTAPI CloseCacheAtThreadExit(PVOID /*module*/, DWORD reason, PVOID /*reserved*/) {
  if (reason == DLL_THREAD_DETACH) CloseThreadCache();
}

}  // namespace

// Called by the loader; the section puts it in the module's TLS callback list.
[[gnu::used,
  gnu::section(".CRT$XLY")]] extern const PIMAGE_TLS_CALLBACK kav_close_block_cache_at_thread_exit =
    CloseCacheAtThreadExit;

namespace {
#else
// Only a pointer lives in thread-local storage, so that the initial-exec
// model (one instruction per access instead of a call per access) costs the
// host's static TLS reserve a few bytes.
#if defined(__GNUC__) && defined(__ELF__)
[[gnu::tls_model("initial-exec")]]
#endif
constinit thread_local ThreadBlockCache* t_cache = nullptr;

inline ThreadBlockCache* LoadThreadCache() noexcept {
  return t_cache;
}

inline void StoreThreadCache(ThreadBlockCache* cache) noexcept {
  t_cache = cache;
}

struct CloseAtThreadExit {
  ~CloseAtThreadExit() { CloseThreadCache(); }
};

void ArmThreadExit() noexcept {
  // Constructing the object registers its destructor with the thread's exit.
  thread_local CloseAtThreadExit close_at_exit;
  (void)close_at_exit;
}
#endif

void CloseThreadCache() noexcept {
  ThreadBlockCache* cache = LoadThreadCache();
  StoreThreadCache(kClosedCache);
  if (cache == nullptr || cache == kClosedCache) return;
  FlushClasses(*cache);
  std::free(cache);
  g_open_caches.fetch_sub(1, std::memory_order_relaxed);
}

// The calling thread's cache, made on first use; null once the thread is
// ending or when no memory is left for it.
[[gnu::noinline]] ThreadBlockCache* OpenCache() noexcept {
  ArmThreadExit();
  auto* cache = static_cast<ThreadBlockCache*>(std::calloc(1, sizeof(ThreadBlockCache)));
  if (cache != nullptr) g_open_caches.fetch_add(1, std::memory_order_relaxed);
  StoreThreadCache(cache);
  return cache;
}

inline ThreadBlockCache* CurrentCache() noexcept {
  ThreadBlockCache* cache = LoadThreadCache();
  if (cache != nullptr && cache != kClosedCache) [[likely]]
    return cache;
  return cache == nullptr ? OpenCache() : nullptr;
}

// A block of at least `size` bytes (1 when 0) and its usable size: from the
// calling thread's cache, else from the system heap; a null block when out
// of memory.
struct SizedBlock {
  void* block;
  size_t usable;
};

inline SizedBlock CacheAllocate(size_t size) noexcept {
  if (size <= kLargestCachedBlock) [[likely]] {
    const size_t size_class = ClassForRequest(size);
    if (ThreadBlockCache* cache = CurrentCache()) [[likely]] {
      if (CachedBlock* block = cache->heads[size_class]) {
        cache->heads[size_class] = block->next;
        --cache->counts[size_class];
        return {block, block->usable};
      }
    }
    // Asked for the whole class size, so that the block serves its class
    // again once it is freed.
    size = ClassSize(size_class);
  }
  void* block = std::malloc(size);
  return {block, SystemUsableSize(block)};
}

// Keeps `block` in the calling thread's cache, or frees it when its class is
// full or it is too large. REQUIRES: `usable` is SystemUsableSize(block).
inline void CacheFree(void* block, size_t usable) noexcept {
  if (usable >= kSmallestClassSize && usable <= kLargestCachedUsable) [[likely]] {
    const size_t size_class = ClassForBlock(usable);
    ThreadBlockCache* cache = CurrentCache();
    if (cache != nullptr && cache->counts[size_class] < kClassLimits[size_class]) [[likely]] {
      CachedBlock* cached = static_cast<CachedBlock*>(block);
      cached->next = cache->heads[size_class];
      cached->usable = usable;
      cache->heads[size_class] = cached;
      ++cache->counts[size_class];
      return;
    }
  }
  std::free(block);
}

AllocationCounters& Counters(void* context) {
  return *static_cast<AllocationCounters*>(context);
}

}  // namespace

namespace block_cache_detail {

void* CountingAllocate(void* counters, size_t size) {
  const SizedBlock allocated = CacheAllocate(size);
  if (allocated.block != nullptr) Counters(counters).RecordAllocation(allocated.usable);
  return allocated.block;
}

void CountingFree(void* counters, void* block) {
  if (block == nullptr) return;
  const size_t usable = SystemUsableSize(block);
  Counters(counters).RecordFree(usable);
  CacheFree(block, usable);
}

// A cached block is never in use, so every block can be resized by the
// system heap directly.
void* CountingReallocate(void* counters, void* block, size_t size) {
  if (block == nullptr) return CountingAllocate(counters, size);
  const size_t old_usable = SystemUsableSize(block);
  void* moved = std::realloc(block, size != 0 ? size : 1);
  if (moved == nullptr) return nullptr;
  Counters(counters).RecordFree(old_usable);
  Counters(counters).RecordAllocation(SystemUsableSize(moved));
  return moved;
}

char* CountingDuplicate(void* counters, const char* text) {
  if (text == nullptr) return nullptr;
  const size_t size = std::strlen(text) + 1;
  char* copy = static_cast<char*>(CountingAllocate(counters, size));
  if (copy != nullptr) std::memcpy(copy, text, size);
  return copy;
}

size_t UsableSize(void* /*counters*/, const void* block) {
  return SystemUsableSize(block);
}

}  // namespace block_cache_detail

size_t CachedBlockCount() noexcept {
  const ThreadBlockCache* cache = LoadThreadCache();
  if (cache == nullptr || cache == kClosedCache) return 0;
  size_t count = 0;
  for (uint16_t class_count : cache->counts) count += class_count;
  return count;
}

size_t OpenBlockCacheCount() noexcept {
  return g_open_caches.load(std::memory_order_relaxed);
}

void FlushBlockCache() noexcept {
  ThreadBlockCache* cache = LoadThreadCache();
  if (cache != nullptr && cache != kClosedCache) FlushClasses(*cache);
}

}  // namespace kav
