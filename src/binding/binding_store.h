// BindingStore: the storage of one BindingProperty tree. It owns every heap
// record of the tree (strings, blobs, enum records, collection element
// arrays, structure records and member nodes) and the tree's table of
// interned strings.
//
// Small records come from 18 pools of fixed-size slots (4 to 72 bytes in
// steps of 4). Each pool first uses a 144-byte block inside the store, then
// 4096-byte pages from the process-wide PageProvider (once it has a page, that
// page's fresh slots come before the block's freed ones); a page goes back to
// the provider as soon as none of its slots is in use. Larger records come from
// the general heap and are remembered, so that Reset and the destructor drop
// all storage of the tree at once without walking it.
//
// Interned strings: one reference-counted entry per distinct content, hashed
// with 32-bit FNV-1a in a chained table that starts with 8 buckets and
// doubles whenever it would hold more entries than buckets. The empty string
// is never interned: it is one shared static entry. In front of the table a
// small direct-mapped cache of recently used entries, indexed by the length
// and the first and last bytes, finds repeated strings (member names above
// all) without hashing them byte by byte.
//
// Thread-safety: none; a store is used by one thread at a time, like its
// tree. Only the page provider behind it is shared (and locked).
#ifndef KAV_BINDING_BINDING_STORE_H_
#define KAV_BINDING_BINDING_STORE_H_

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "binding/binding_property.h"

namespace kav {
namespace binding_internal {

// An interned string; the text and a NUL follow the header.
struct InternedString {
  InternedString* next;  // chain of the hash bucket
  uint32_t hash;
  uint32_t references;
  uint32_t length;

  const char* Text() const { return reinterpret_cast<const char*>(this + 1); }
  std::string_view View() const { return {Text(), length}; }
};

// The shared entry of the empty string: a header directly followed by a NUL.
struct EmptyStringEntry {
  InternedString header;
  char terminator;
};
inline constexpr EmptyStringEntry kEmptyString = {{nullptr, 0x811C9DC5u, 0, 0}, '\0'};
static_assert(offsetof(EmptyStringEntry, terminator) == sizeof(InternedString));

// A blob; the bytes follow the header.
struct BlobRecord {
  size_t size;

  const uint8_t* Bytes() const { return reinterpret_cast<const uint8_t*>(this + 1); }
  uint8_t* Bytes() { return reinterpret_cast<uint8_t*>(this + 1); }
};

// A collection's elements; `capacity` elements follow the header, the first
// `size` of them constructed. An empty collection may have no block at all.
struct CollectionBlock {
  uint32_t size;
  uint32_t capacity;

  BindingProperty* Elements() { return reinterpret_cast<BindingProperty*>(this + 1); }
  const BindingProperty* Elements() const {
    return reinterpret_cast<const BindingProperty*>(this + 1);
  }
};

// A member of a structure, threaded in name order through `next` so that
// walks follow one link per member. Small structures are searched along the
// chain; members carry no tree links, which keeps them small (json_bench
// ReadWithCodec, msgpack_bench ReadMessagePackBench).
struct MemberNode {
  MemberNode* next;  // the member with the next greater name
  const InternedString* name;
  BindingProperty value;
};

// A node of the red-black tree, ordered by name, that indexes the members of
// a structure of more than 16 members: one per member.
struct TreeNode {
  TreeNode* left;
  TreeNode* right;
  MemberNode* member;
  bool red;
};

// A non-empty structure. An empty structure may have no record at all.
struct StructureRecord {
  TreeNode* root;     // the index; null while the `next` chain alone is searched
  MemberNode* first;  // the least name: where walks start
  MemberNode* last;   // the greatest name: for appending in order
  size_t count;
};

// FNV-1a over `text`.
inline uint32_t HashText(std::string_view text) {
  uint32_t hash = 0x811C9DC5u;
  for (char c : text) {
    hash ^= static_cast<uint8_t>(c);
    hash *= 0x01000193u;
  }
  return hash;
}

inline TextProbe Probe(const char* text, size_t length) {
  TextProbe probe;
  if (length >= 8) {
    std::memcpy(&probe.head, text, 8);
    std::memcpy(&probe.tail, text + length - 8, 8);
  } else if (length >= 4) {
    uint32_t head;
    uint32_t tail;
    std::memcpy(&head, text, 4);
    std::memcpy(&tail, text + length - 4, 4);
    probe.head = head;
    probe.tail = tail;
  } else if (length > 0) {
    probe.head = static_cast<uint8_t>(text[0]) | static_cast<uint8_t>(text[length / 2]) << 8 |
                 static_cast<uint8_t>(text[length - 1]) << 16;
  }
  return probe;
}

// The cache set of a text: the top bits of a multiplicative hash, which
// depend on every byte of the probe (texts that differ only in their 7th or
// 8th byte, such as "PlayerTimedRestriction" and "PlayerLevelRestriction",
// must not share a set). REQUIRES: `sets` is a power of two, at least 2.
inline size_t RecentSlot(const TextProbe& probe, size_t length, size_t sets) {
  const uint64_t mixed = (probe.head ^ std::rotl(probe.tail, 29) ^ length) * 0x9E3779B97F4A7C15ull;
  return static_cast<size_t>(mixed >> (64 - std::countr_zero(sets)));
}

// Whether `text` equals `entry`'s text. REQUIRES: both are `length` long,
// `probe` is the text's probe and `entry_probe` the entry's.
inline bool SameText(const TextProbe& probe, const char* text, const TextProbe& entry_probe,
                     const InternedString* entry, size_t length) {
  if (probe.head != entry_probe.head || probe.tail != entry_probe.tail) return false;
  if (length <= 16) return true;
  if (length > 64) return std::memcmp(text + 8, entry->Text() + 8, length - 16) == 0;
  for (size_t offset = 8; offset < length - 8; offset += 8) {
    uint64_t left;
    uint64_t right;
    std::memcpy(&left, text + offset, 8);
    std::memcpy(&right, entry->Text() + offset, 8);
    if (left != right) return false;
  }
  return true;
}
inline bool SameText(const TextProbe& probe, const char* text, const InternedString* entry,
                     size_t length) {
  return SameText(probe, text, Probe(entry->Text(), length), entry, length);
}

}  // namespace binding_internal

class BindingStore {
 public:
  using InternedString = binding_internal::InternedString;

  static constexpr size_t kSizeClassCount = 18;
  static constexpr size_t kLargestPooledSize = 4 * kSizeClassCount;  // 72
  static constexpr size_t kInlineBlockSize = 144;

  BindingStore() noexcept;
  // Releases every page and heap block; no record of the tree survives.
  ~BindingStore();
  BindingStore(const BindingStore&) = delete;
  BindingStore& operator=(const BindingStore&) = delete;

  // Storage for a record of `size` bytes (> 0). The block is aligned to 8
  // bytes when `size` is a multiple of 8, else to 4. Throws std::bad_alloc.
  // Inline so that a constant size picks its class at compile time.
  void* Allocate(size_t size) {
    if (size > kLargestPooledSize) return AllocateLarge(size);
    const size_t units = (size + kUnit - 1) / kUnit;
    SizeClass& size_class = classes_[units - 1];
    // The current page's never-used slots, short of its last one (taking
    // that one moves the page to the full list: the slow path). Checked
    // first: once a tree outgrows the inline block, every record comes from
    // here (msgpack_bench ReadMessagePackBench).
    PageHeader* page = size_class.available;
    if (page != nullptr && page->free == kNoSlot && page->bump + 2 * units <= page->limit) {
      unsigned char* slot = reinterpret_cast<unsigned char*>(page) + page->bump * kUnit;
      page->bump = static_cast<uint16_t>(page->bump + units);
      ++page->used;
      return slot;
    }
    if (size_class.inline_free != kNoSlot) {
      unsigned char* slot = size_class.inline_block + size_class.inline_free * kUnit;
      size_class.inline_free = LoadLink(slot);
      return slot;
    }
    if (size_class.inline_bump < kInlineLimits[units - 1]) {
      unsigned char* slot = size_class.inline_block + size_class.inline_bump * kUnit;
      size_class.inline_bump = static_cast<uint16_t>(size_class.inline_bump + units);
      return slot;
    }
    return AllocateFromPage(size_class, units);
  }

  // REQUIRES: `block` came from Allocate of this store with the same `size`.
  void Free(void* block, size_t size) noexcept {
    if (size > kLargestPooledSize) {
      FreeLarge(block);
      return;
    }
    SizeClass& size_class = classes_[(size + kUnit - 1) / kUnit - 1];
    const uintptr_t offset =
        reinterpret_cast<uintptr_t>(block) - reinterpret_cast<uintptr_t>(size_class.inline_block);
    if (offset < kInlineBlockSize) {
      StoreLink(block, size_class.inline_free);
      size_class.inline_free = static_cast<uint16_t>(offset / kUnit);
      return;
    }
    FreeToPage(size_class, block);
  }

  // Drops every record at once and empties the string table: the store is as
  // new. REQUIRES: no value refers to a record of this store any more.
  void Reset() noexcept;

  // The entry for `text` up to its first NUL byte, with its reference count
  // raised. The empty text gives EmptyString().
  const InternedString* Intern(std::string_view text);
  // Same with the FNV-1a hash of `text` known (e.g. from another store).
  // REQUIRES: `text` holds no NUL byte.
  const InternedString* Intern(std::string_view text, uint32_t hash);
  // A recently used entry whose text is exactly `text` (so `text` holds no
  // NUL byte), or null; the reference count is not touched.
  const InternedString* FindRecent(std::string_view text) const noexcept {
    const size_t length = text.size();
    const binding_internal::TextProbe probe = binding_internal::Probe(text.data(), length);
    const RecentSet& set = recent_[binding_internal::RecentSlot(probe, length, kRecentSets)];
    for (const InternedString* entry : set.ways) {
      if (entry != nullptr && entry->length == length &&
          binding_internal::SameText(probe, text.data(), entry, length)) {
        return entry;
      }
    }
    return nullptr;
  }
  // Raises the reference count of an entry of this store.
  void AddReference(const InternedString* entry) noexcept {
    if (entry != EmptyString()) ++const_cast<InternedString*>(entry)->references;
  }
  // Drops one reference; the entry goes away at zero.
  void Release(const InternedString* entry) noexcept;
  // The shared static entry of the empty string.
  static const InternedString* EmptyString() noexcept {
    return &binding_internal::kEmptyString.header;
  }

  // Distinct strings interned right now.
  size_t InternedCount() const { return interned_count_; }
  // Pages of the provider held right now.
  size_t PagesHeld() const;

 private:
  // Sits at the start of each page; the slots follow it.
  struct PageHeader {
    PageHeader* next;  // first word: also chains pages handed back together
    PageHeader* prev;
    uint16_t free;   // head of the free chain
    uint16_t used;   // slots in use
    uint16_t bump;   // first slot never handed out, in units
    uint16_t limit;  // end of the last whole slot, in units
  };
  // Where the first slot of a page begins: after the header, 8-byte aligned.
  static constexpr size_t kFirstSlotOffset = (sizeof(PageHeader) + 7) & ~size_t{7};
  struct SizeClass {
    alignas(8) unsigned char inline_block[kInlineBlockSize];
    PageHeader* available;  // pages with a free slot
    PageHeader* full;       // pages without one
    uint16_t inline_free;   // head of the inline block's free chain
    uint16_t inline_bump;   // slots of the inline block handed out so far
  };
  // Precedes every block taken from the general heap.
  struct LargeHeader {
    LargeHeader* prev;
    LargeHeader* next;
  };

  // Free slots are chained through their first two bytes: the offset of the
  // next free slot from the start of its block or page, in units of 4 bytes.
  // kNoSlot ends a chain.
  static constexpr size_t kUnit = 4;
  static constexpr uint16_t kNoSlot = 0xFFFF;
  // End of the usable part of each class's inline block, in units.
  static constexpr auto kInlineLimits = [] {
    std::array<uint16_t, kSizeClassCount> limits{};
    for (size_t i = 0; i < limits.size(); ++i) {
      const size_t units = i + 1;
      limits[i] = static_cast<uint16_t>(kInlineBlockSize / (units * kUnit) * units);
    }
    return limits;
  }();

  static uint16_t LoadLink(const void* slot) {
    uint16_t link;
    std::memcpy(&link, slot, sizeof link);
    return link;
  }
  static void StoreLink(void* slot, uint16_t link) { std::memcpy(slot, &link, sizeof link); }

  void* AllocateFromPage(SizeClass& size_class, size_t units);
  void FreeToPage(SizeClass& size_class, void* block) noexcept;
  void* AllocateLarge(size_t size);
  void FreeLarge(void* block) noexcept;
  void ReleaseAllStorage() noexcept;
  void GrowTable();

  // The recent-strings cache: two ways per set, the newer one first.
  static constexpr size_t kRecentSets = 64;
  struct RecentSet {
    const InternedString* ways[2];
  };
  void Remember(const InternedString* entry) noexcept;

  SizeClass classes_[kSizeClassCount];
  RecentSet recent_[kRecentSets];
  LargeHeader* large_ = nullptr;
  InternedString** buckets_ = nullptr;
  size_t bucket_count_ = 0;
  size_t interned_count_ = 0;
};

}  // namespace kav

#endif  // KAV_BINDING_BINDING_STORE_H_
