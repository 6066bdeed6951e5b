// The assignment rules of the value conversion, one function per target
// shape, with their messages. The converter templates (type_converter.h)
// call these; most code should use ToBindingProperty / FromBindingProperty
// (conversion.h) instead.
//
// Contract shared by every *FromProperty rule: nothing is read when `status`
// has already failed; a scalar target then, and after its own failure,
// holds its zero value (0, false, ""). Failures only lower `status` through
// SetError with the first failure's message; nothing is thrown.
//
// Thread-safety: no shared state; the registry is only read.
#ifndef KAV_BINDING_CONVERSION_RULES_H_
#define KAV_BINDING_CONVERSION_RULES_H_

#include <cstddef>
#include <cstdint>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "binding/binding_property.h"
#include "binding/host_value.h"
#include "binding/type_registry.h"

namespace kav {

void BoolFromProperty(BindingResult& status, bool& out, const BindingProperty& source,
                      std::string_view path);
// `type_name` is the target's kind name ("int32", ...) used in messages.
void SignedFromProperty(BindingResult& status, int64_t& out, const BindingProperty& source,
                        std::string_view path, std::string_view type_name, int64_t min,
                        int64_t max);
void UnsignedFromProperty(BindingResult& status, uint64_t& out, const BindingProperty& source,
                          std::string_view path, std::string_view type_name, uint64_t max);
void FloatingFromProperty(BindingResult& status, double& out, const BindingProperty& source,
                          std::string_view path, std::string_view type_name, double min,
                          double max);
// An enum input becomes the registered name of its enumerator.
void StringFromProperty(BindingResult& status, std::string& out, const BindingProperty& source,
                        std::string_view path, const TypeRegistry& registry);
// `type` is the enumeration's description; null makes every value invalid.
void EnumFromProperty(BindingResult& status, int32_t& out, const BindingProperty& source,
                      std::string_view path, const TypeDescription* type);
// Copies any input as it is; never fails. Cleared when `status` has failed.
void ObjectFromProperty(const BindingResult& status, BindingProperty& out,
                        const BindingProperty& source);
void BlobFromProperty(BindingResult& status, std::vector<std::byte>& out,
                      const BindingProperty& source, std::string_view path);

// The structure rule: each field of `type` in registration order through its
// converter at `native` + offset. `type` null: the structure is unregistered.
// A structure target is left as it was when `status` has already failed.
void StructureFromProperty(BindingResult& status, void* native, const BindingProperty& source,
                           std::string_view path, const TypeDescription* type,
                           const TypeRegistry& registry);
// Builds `target` as a structure of the fields of `type`. `status` may be
// `target` or an ancestor of it (see TypeConverter::ToProperty).
void StructureToProperty(BindingResult& status, BindingProperty& target, const void* native,
                         const TypeDescription* type, const TypeRegistry& registry);

// The host value StructureToProperty and then ToHostValue would give, built
// directly (see TypeConverter::ToHostValue). Throws std::bad_alloc.
void StructureToHostValue(BindingResult& status, KavHostValue& target, const void* native,
                          const TypeDescription* type, const TypeRegistry& registry,
                          const TypeRegistry* names, HostValueArena* arena = nullptr);

// Any native value to a host value through a BindingProperty: the way for
// the shapes whose direct conversion would have to repeat BindingProperty's
// own rules (repeated or NUL-cut member names). `to_property` is the
// value's ToProperty. Throws std::bad_alloc.
template <class ToPropertyFn>
void ToHostValueThroughProperty(BindingResult& status, KavHostValue& target,
                                ToPropertyFn&& to_property, const TypeRegistry* names,
                                HostValueArena* arena = nullptr) {
  BindingResult value;
  to_property(value);
  if (!value.Ok()) {
    status.SetError(value.Error());
    return;
  }
  BuildHostValue(target, value, names, arena);
}

// Whether a field flagged OmitIfDefault with this value is left out: false,
// zero, exactly 0.0, enumerator 0, a zero-size string, blob, collection or
// structure, and empty.
bool IsDefaultValue(const BindingProperty& value);

// The container messages, kept out of the templates.
void ReportNotCollection(BindingResult& status, std::string_view path);
void ReportNotStructureForMap(BindingResult& status, std::string_view path);
// "Couldn't assign value to '<path>' because the input does not fit in
// memory."
void ReportNotInMemory(BindingResult& status, std::string_view path);

// Runs `convert`, a conversion that reports into `status`, so that no
// exception leaves it: running out of memory (or a native container beyond
// its size limit) becomes the failure of ReportNotInMemory.
template <class ConvertFn>
void ConvertWithoutThrowing(BindingResult& status, std::string_view path, ConvertFn&& convert) {
  try {
    convert();
  } catch (const std::bad_alloc&) {
    ReportNotInMemory(status, path);
  } catch (const std::length_error&) {
    ReportNotInMemory(status, path);
  }
}

}  // namespace kav

#endif  // KAV_BINDING_CONVERSION_RULES_H_
