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

#include <cstdint>
#include <string_view>

#include "binding/binding_property.h"
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

}  // namespace kav

#endif  // KAV_BINDING_HOST_VALUE_H_
