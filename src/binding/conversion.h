// The top-level conversions between native values and BindingProperty.
//
//   BindingResult r = ToBindingProperty(native, registry);
//   BindingResult status;
//   bool ok = FromBindingProperty(status, source, "<value>", native, registry);
//
// A registered structure (any class type that is not a string, container,
// optional or BindingProperty) is converted through the type description
// registered for its static identity; an unregistered one fails (on the way
// out with "Couldn't convert native value because it's an unregistered
// structure.", on the way in with the unregistered-structure message).
// Every other native type uses its converter's rule directly, so lists and
// maps of registered structures work the same way.
//
// Thread-safety: as the converters (type_converter.h).
#ifndef KAV_BINDING_CONVERSION_H_
#define KAV_BINDING_CONVERSION_H_

#include <string_view>

#include "binding/binding_property.h"
#include "binding/type_converter.h"
#include "binding/type_registry.h"

namespace kav {

// The value of `native`; on failure the result is not ok and carries the
// message.
template <class T>
BindingResult ToBindingProperty(const T& native, const TypeRegistry& registry) {
  BindingResult result;
  ValueTraits<T>::To(result, result, native, nullptr, registry);
  return result;
}

// Assigns `source` to `native`, reporting into `status` (which must be ok to
// read anything; see conversion_rules.h for what a failure leaves behind).
// `path` names the value in messages. Running out of memory is a failure
// too; nothing is thrown. Returns status.Ok().
template <class T>
bool FromBindingProperty(BindingResult& status, const BindingProperty& source,
                         std::string_view path, T& native, const TypeRegistry& registry) {
  ConvertWithoutThrowing(
      status, path, [&] { ValueTraits<T>::From(status, native, source, path, nullptr, registry); });
  return status.Ok();
}

}  // namespace kav

#endif  // KAV_BINDING_CONVERSION_H_
