// Conversion between BindingProperty and the host's value records
// (KavHostValue, include/kav/plugin_host.h).
//
// Ownership: ToHostValue gives the record owned memory (string and blob
// bytes, element arrays, map entries and their keys), all allocated through
// the plugin's counting allocator (PluginAllocate / PluginDuplicate); the
// record's holder gives it back with ReleaseHostValue. FromHostValue only
// reads its source; borrowed kinds (5, 7) are never freed.
//
// Two layouts, one set of records. A value built piece by piece (the
// SetHost* functions without an arena) owns one block per array, map, key
// and text. A one-block value (ToHostValue, LayOutHostValue) has every
// array, map entry and owned text of its tree in a single block; its records
// are the same (kinds, counts, ownership bytes, texts with their zero), so a
// reader cannot tell the two apart. ReleaseHostValue tells them apart by the
// address of the outermost array or map alone, reading nothing: every heap
// block starts on a kPluginBlockAlignment boundary (platform/allocation.h),
// and a one-block tree puts its outermost records kOneBlockOffset bytes past
// its block's start, where no block of its own can begin. Only the outermost
// record of a one-block value is ever released; the records inside it are
// not values of their own.
//
// Limits for hostile input: a host value may nest at most kHostValueMaxDepth
// arrays and maps, and one array or map may hold at most
// kHostValueMaxElements elements or entries. FromHostValue checks both
// before it reads below the limit, and never reserves room for more than
// kHostValueReserveLimit elements on the strength of a declared count alone,
// so that the recursive conversion stays within a small stack and a count
// that the host got wrong costs nothing until its elements are read. The
// plugin builds host values no deeper than it reads them, which bounds the
// recursion of their release too.
//
// Thread-safety: no shared state beyond the allocator (internally safe) and
// the registry, which is only read.
#ifndef KAV_BINDING_HOST_VALUE_H_
#define KAV_BINDING_HOST_VALUE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <new>
#include <span>
#include <string_view>

#include "binding/binding_property.h"
#include "binding/static_type.h"
#include "kav/plugin_host.h"

namespace kav {

class TypeRegistry;

class HostValueArena;

inline constexpr size_t kHostValueMaxDepth = 1000;
inline constexpr size_t kOneBlockOffset = 4;
inline constexpr uint32_t kHostValueMaxElements = 0x0FFFFFFF;
inline constexpr uint32_t kHostValueReserveLimit = 4096;

// What BuildHostValue throws for a source that nests deeper than
// kHostValueMaxDepth: like running out of memory, the value cannot be
// handed over, and every caller that handles the one handles the other.
class HostValueTooDeep : public std::bad_alloc {
 public:
  const char* what() const noexcept override { return "host value nests too deeply"; }
};

// "bool", "signed", "unsigned", "float", "string" (5, 6), "blob" (7, 8),
// "collection" (9), "structure" (10); "" for any other kind, 0 included.
const char* HostValueKindName(uint32_t kind);

// Builds `target` from `source` (a repeated map key ends with the last
// entry's value). Failures, reported into `status` (elements converted
// before stay; returns status.Ok()):
//   an unknown kind: "Couldn't assign value to '<path>' of type object
//     because the input is of an incompatible type '<kind name>'."
//   an array or map below kHostValueMaxDepth others: "Couldn't assign value
//     to '<path>' because the input nests more than 1000 levels deep."
//   a count above kHostValueMaxElements, or a count without elements (null
//     pointer): "Couldn't assign value to '<path>' because the input holds
//     <count> elements, more than 268435455." / "... because the input's
//     <count> elements are missing."
//   running out of memory: "Couldn't assign value to '<path>' because the
//     input does not fit in memory."
// Nothing is thrown.
bool FromHostValue(BindingResult& status, BindingProperty& target, const KavHostValue& source,
                   std::string_view path);

// Builds `target` (overwritten without being released) from `source`, as a
// one-block value when it is a non-empty collection or structure: the tree
// is sized first, then laid out in one allocation. Enumerators become their
// registered name (kind 6) when `registry` knows one, else their number
// (kind 2). Returns false when memory ran out or `source` nests more than
// kHostValueMaxDepth containers deep; `target` is then kind 0 and owns
// nothing.
bool ToHostValue(KavHostValue& target, const BindingProperty& source, const TypeRegistry* registry);

// Copies `source` (kind 0 to 10, built by this plugin, whatever its blocks)
// into `target` (overwritten without being released) as a one-block value
// when it is a non-empty array or map, else as `source` would be built
// piece by piece. Borrowed texts and bytes (kinds 5, 7) and keys that an
// entry does not own stay borrowed. `source` is left as it is. Throws
// std::bad_alloc.
void LayOutHostValue(KavHostValue& target, const KavHostValue& source);
// LayOutHostValue of a `source` built in `arena` (its outermost array or
// map first, as the builders below do): the block is a copy of the arena's
// used memory, region after region, with the pointers into it moved.
void LayOutHostValue(KavHostValue& target, const KavHostValue& source, const HostValueArena& arena);

// Frees what `value` owns and resets it to kind 0 with a zero payload; a
// one-block value goes with one free. REQUIRES: `value` was built by this
// plugin and is the outermost record of its value.
void ReleaseHostValue(KavHostValue& value) noexcept;

// Scratch memory for building a value piece by piece before LayOutHostValue
// copies it into one block: the builders below take their blocks from it
// instead of the heap, and a value built there is never released: it goes
// with the arena. The arena starts in `initial` (the caller's, typically on
// its stack; may be empty) and takes further chunks from the plugin's heap,
// freed with the arena.
// Thread-safety: one thread at a time.
class HostValueArena {
 public:
  // The most regions (the initial memory and the chunks) an arena uses;
  // chunks double in size, so this is never the limit in practice.
  static constexpr size_t kMaxRegions = 48;

  explicit HostValueArena(std::span<std::byte> initial = {}) noexcept
      : cursor_(initial.data()), end_(initial.data() + initial.size()) {
    regions_[0] = {initial.data(), 0};
  }
  HostValueArena(const HostValueArena&) = delete;
  HostValueArena& operator=(const HostValueArena&) = delete;
  ~HostValueArena();

  // `size` bytes, unaligned (the host's records are packed). Throws
  // std::bad_alloc.
  void* Allocate(size_t size) {
    if (size <= static_cast<size_t>(end_ - cursor_)) {
      void* block = cursor_;
      cursor_ += size;
      return block;
    }
    return AllocateChunk(size);
  }
  // Whether a chunk had to be taken from the heap.
  bool Grew() const noexcept { return region_count_ > 1; }
  // Calls `visit` with what was handed out of each region, in the order the
  // regions were used (the initial memory first, perhaps empty); within a
  // region the bytes are in the order they were handed out.
  template <class Visit>
  void ForEachUsedRegion(Visit&& visit) const {
    for (size_t index = 0; index < region_count_; ++index) {
      const Region& region = regions_[index];
      const size_t used =
          index + 1 == region_count_ ? static_cast<size_t>(cursor_ - region.start) : region.used;
      visit(std::span<const std::byte>(region.start, used));
    }
  }

 private:
  struct Region {
    std::byte* start;
    size_t used;  // set when the next region is started
  };

  void* AllocateChunk(size_t size);

  std::byte* cursor_;
  std::byte* end_;
  std::array<Region, kMaxRegions> regions_{};  // [0]: the initial memory
  size_t region_count_ = 1;
  size_t next_chunk_size_ = 0;
};

// ---- Building a host value piece by piece ----
//
// For converters that write native values straight into the host's format.
// Each function fills a `target` that is kind 0 on entry, exactly as
// ToHostValue would for the equal BindingProperty. They throw std::bad_alloc
// when memory runs out; whatever was built stays reachable from the
// outermost record, so that ReleaseHostValue frees all of it. With an
// `arena`, every block comes from it instead (see HostValueArena).

// ToHostValue without the reset and the catch: throws std::bad_alloc, or
// HostValueTooDeep (one of those) for a source that nests too deeply.
void BuildHostValue(KavHostValue& target, const BindingProperty& source,
                    const TypeRegistry* registry, HostValueArena* arena = nullptr);
// Kind 6: an owned copy of `text` up to its first NUL byte.
void SetHostString(KavHostValue& target, std::string_view text, HostValueArena* arena = nullptr);
// Kind 8: an owned copy of `bytes` (no block when empty).
void SetHostBlob(KavHostValue& target, std::span<const uint8_t> bytes,
                 HostValueArena* arena = nullptr);
// The enumerator's registered name (kind 6) when `registry` knows one for
// `type`, else its number (kind 2).
void SetHostEnum(KavHostValue& target, int32_t value, const StaticTypeIdentity& type,
                 const TypeRegistry* registry, HostValueArena* arena = nullptr);
// Kind 9 with `count` null elements to fill in; no block when count is 0.
KavHostValue* SetHostArray(KavHostValue& target, size_t count, HostValueArena* arena = nullptr);
// Kind 10 with `count` empty entries (no key, null value) to fill in with
// SetHostKey; no block when count is 0. Entries left empty must be dropped
// with TrimHostMap before the value is handed on.
KavHostMapEntry* SetHostMap(KavHostValue& target, size_t count, HostValueArena* arena = nullptr);
// Gives `entry` an owned copy of `name`. REQUIRES: `name` holds no NUL byte
// (a BindingProperty member name ends at its first one).
void SetHostKey(KavHostMapEntry& entry, std::string_view name, HostValueArena* arena = nullptr);
// Shrinks a map made by SetHostMap (with the same `arena`) to its first
// `count` entries; the block goes when count is 0. REQUIRES: the entries
// past `count` are still empty.
void TrimHostMap(KavHostValue& target, size_t count, HostValueArena* arena = nullptr) noexcept;

}  // namespace kav

#endif  // KAV_BINDING_HOST_VALUE_H_
