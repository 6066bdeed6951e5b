// The packed description of the API handed to the host: flat arrays of the
// fixed-size records of kav/plugin_host.h (KavApiFunction, KavApiParameter,
// KavApiType, KavApiField, KavApiEnumerator, KavApiEvent), each array also
// linked through its records' `next` words.
//
// Where a field, parameter or result carries a host type specification, that
// one is described; otherwise its type specification. Kind codes outside 1 to
// 19 are written as 0; a type name is the registered name of the referenced
// type for vectors, enums, structs and maps, otherwise "".
//
// Ownership: the record arrays and the arrays of tag text pointers belong to
// the builder; the texts are the registry's own strings. Everything stays
// valid until the builder builds again or is destroyed, and as long as the
// registry's descriptions live.
//
// Thread-safety: a builder is used by one thread at a time (registration).
#ifndef KAV_BINDING_HOST_API_DESCRIPTION_H_
#define KAV_BINDING_HOST_API_DESCRIPTION_H_

#include <span>
#include <vector>

#include "binding/type_registry.h"
#include "kav/plugin_host.h"

namespace kav {

using HostApiDescription = KavApiDescription;

class HostApiDescriptionBuilder {
 public:
  // Rebuilds every array from the snapshots, in their order, and returns the
  // three arrays with their counts (null pointers for empty arrays).
  HostApiDescription Build(std::span<const FunctionDescription* const> functions,
                           std::span<const TypeDescription* const> types,
                           std::span<const EventDescription* const> events);

  // The function record of `name` from the last Build; null when none.
  const KavApiFunction* FindFunction(std::string_view name) const;

 private:
  void FillFunction(size_t index, const FunctionDescription& function);
  void FillType(size_t index, const TypeDescription& type);
  void FillEvent(size_t index, const EventDescription& event);

  std::vector<KavApiFunction> functions_;
  std::vector<std::vector<KavApiParameter>> parameters_;
  std::vector<std::vector<const char*>> function_tags_;
  std::vector<KavApiType> types_;
  std::vector<std::vector<KavApiField>> fields_;
  std::vector<std::vector<KavApiEnumerator>> enumerators_;
  std::vector<std::vector<const char*>> type_tags_;
  std::vector<KavApiEvent> events_;
  std::vector<std::vector<const char*>> event_tags_;
};

// Builds the description of everything `registry` holds (its function, type
// and event snapshots) into the builder kept in the registry, replacing the
// previous description.
HostApiDescription BuildHostApiDescription(TypeRegistry& registry);

}  // namespace kav

#endif  // KAV_BINDING_HOST_API_DESCRIPTION_H_
