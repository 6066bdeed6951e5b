// Conversion between BindingProperty and the host's value records
// (KavHostValue, include/kav/plugin_host.h).
//
// Ownership: ToHostValue gives the record owned memory (string and blob
// bytes, element arrays, map entries and their keys), all allocated through
// the plugin's counting allocator (PluginAllocate / PluginDuplicate); the
// record's holder gives it back with ReleaseHostValue. FromHostValue only
// reads its source; borrowed kinds (5, 7) are never freed.
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

inline constexpr size_t kHostValueMaxDepth = 1000;
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

// Builds `target` (overwritten without being released) from `source`.
// Enumerators become their registered name (kind 6) when `registry` knows
// one, else their number (kind 2). Returns false when memory ran out or
// `source` nests more than kHostValueMaxDepth containers deep; `target` is
// then kind 0 and owns nothing.
bool ToHostValue(KavHostValue& target, const BindingProperty& source, const TypeRegistry* registry);

// Frees what `value` owns and resets it to kind 0 with a zero payload.
void ReleaseHostValue(KavHostValue& value) noexcept;

// ---- Building a host value piece by piece ----
//
// For converters that write native values straight into the host's format.
// Each function fills a `target` that is kind 0 on entry, exactly as
// ToHostValue would for the equal BindingProperty. They throw std::bad_alloc
// when memory runs out; whatever was built stays reachable from the
// outermost record, so that ReleaseHostValue frees all of it.

// ToHostValue without the reset and the catch: throws std::bad_alloc, or
// HostValueTooDeep (one of those) for a source that nests too deeply.
void BuildHostValue(KavHostValue& target, const BindingProperty& source,
                    const TypeRegistry* registry);
// Kind 6: an owned copy of `text` up to its first NUL byte.
void SetHostString(KavHostValue& target, std::string_view text);
// Kind 8: an owned copy of `bytes` (no block when empty).
void SetHostBlob(KavHostValue& target, std::span<const uint8_t> bytes);
// The enumerator's registered name (kind 6) when `registry` knows one for
// `type`, else its number (kind 2).
void SetHostEnum(KavHostValue& target, int32_t value, const StaticTypeIdentity& type,
                 const TypeRegistry* registry);
// Kind 9 with `count` null elements to fill in; no block when count is 0.
KavHostValue* SetHostArray(KavHostValue& target, size_t count);
// Kind 10 with `count` empty entries (no key, null value) to fill in with
// SetHostKey; no block when count is 0. Entries left empty must be dropped
// with TrimHostMap before the value is handed on.
KavHostMapEntry* SetHostMap(KavHostValue& target, size_t count);
// Gives `entry` an owned copy of `name`. REQUIRES: `name` holds no NUL byte
// (a BindingProperty member name ends at its first one).
void SetHostKey(KavHostMapEntry& entry, std::string_view name);
// Shrinks a map made by SetHostMap to its first `count` entries; the block
// goes when count is 0. REQUIRES: the entries past `count` are still empty.
void TrimHostMap(KavHostValue& target, size_t count) noexcept;

}  // namespace kav

#endif  // KAV_BINDING_HOST_VALUE_H_
