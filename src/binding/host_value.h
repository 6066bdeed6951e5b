// Conversion between BindingProperty and the host's value records
// (KavHostValue, include/kav/plugin_host.h).
//
// Ownership: ToHostValue gives the record owned memory (string and blob
// bytes, element arrays, map entries and their keys), all allocated through
// the plugin's counting allocator (PluginAllocate / PluginDuplicate); the
// record's holder gives it back with ReleaseHostValue. FromHostValue only
// reads its source; borrowed kinds (5, 7) are never freed.
//
// Thread-safety: no shared state beyond the allocator (internally safe) and
// the registry, which is only read.
#ifndef KAV_BINDING_HOST_VALUE_H_
#define KAV_BINDING_HOST_VALUE_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "binding/binding_property.h"
#include "binding/static_type.h"
#include "kav/plugin_host.h"

namespace kav {

class TypeRegistry;

// "bool", "signed", "unsigned", "float", "string" (5, 6), "blob" (7, 8),
// "collection" (9), "structure" (10); "" for any other kind, 0 included.
const char* HostValueKindName(uint32_t kind);

// Builds `target` from `source` (a repeated map key ends with the last
// entry's value). An unknown kind anywhere fails with
// "Couldn't assign value to '<path>' of type object because the input is of
// an incompatible type '<kind name>'." reported into `status`; elements
// converted before stay. Returns status.Ok().
bool FromHostValue(BindingResult& status, BindingProperty& target, const KavHostValue& source,
                   std::string_view path);

// Builds `target` (overwritten without being released) from `source`.
// Enumerators become their registered name (kind 6) when `registry` knows
// one, else their number (kind 2). Returns false only when memory ran out;
// `target` is then kind 0 and owns nothing.
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

// ToHostValue without the reset and the catch.
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
