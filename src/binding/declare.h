// One declaration per record: the fields of a native structure, or the
// enumerators of a native enumeration, listed once, one line each; offsets,
// type specifications, converters and registration follow from it.
//
// A structure declares its fields with a function found by argument-dependent
// lookup, in the structure's own namespace:
//
//   struct Queue { int32_t id = 0; std::vector<int32_t> allowablePremadeSizes; };
//   constexpr auto BindingFields(const Queue*) {
//     return kav::Fields(kav::Field("id", &Queue::id),
//                        kav::Field("allowablePremadeSizes", &Queue::allowablePremadeSizes));
//   }
//   RegisterStructure<Queue>(registry, "Queue", tags);
//
// Field() takes optional flags (kOmitIfDefault, kRequired), a description,
// the help-only optional flag and a host type specification. An enumeration declares its
// enumerators the same way:
//
//   constexpr auto BindingEnumerators(const QueueAvailability*) {
//     return kav::Enumerators<QueueAvailability>({
//         {"Available", QueueAvailability::kAvailable},
//         {"PlatformDisabled", QueueAvailability::kPlatformDisabled, "optional description"},
//     });
//   }
//   RegisterEnumeration<QueueAvailability>(registry, "QueueAvailability", tags);
//
// Registration follows the registry's rule: fields and enumerators are added
// only when the name is new (the first registration of a name wins); the
// tags are added to a new type, and the returned builder takes a description
// or further tags.
//
// Thread-safety: registration runs at start-up on one thread (see
// type_registry.h).
#ifndef KAV_BINDING_DECLARE_H_
#define KAV_BINDING_DECLARE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>

#include "binding/static_type.h"
#include "binding/type_converter.h"
#include "binding/type_registry.h"

namespace kav {

template <class S, class F>
struct FieldDeclaration {
  using Structure = S;
  using Type = F;

  const char* name;
  F S::*member;
  uint32_t flags = 0;
  const char* description = "";
  bool optional = false;
  // The type the host is to see instead of the native one (kind kNone: none).
  // Only kinds can be given here; a host type that refers to a registered
  // description is added through TypeBuilder::AddField.
  TypeSpecification host_type = {};
};

template <class S, class F>
constexpr FieldDeclaration<S, F> Field(const char* name, F S::*member, uint32_t flags = 0,
                                       const char* description = "", bool optional = false,
                                       TypeSpecification host_type = {}) {
  return {name, member, flags, description, optional, host_type};
}

template <class... Declarations>
constexpr std::tuple<Declarations...> Fields(Declarations... declarations) {
  return {declarations...};
}

template <class E>
struct EnumeratorDeclaration {
  const char* name;
  E value;
  const char* description = "";
};

template <class E, size_t kCount>
constexpr std::array<EnumeratorDeclaration<E>, kCount> Enumerators(
    const EnumeratorDeclaration<E> (&declarations)[kCount]) {
  return std::to_array(declarations);
}

// The byte offset of `member` inside S, found on an unconstructed object so
// that it also works where offsetof is not allowed (non-standard-layout S).
template <class S, class F>
uint32_t MemberOffset(F S::*member) {
  union Storage {
    Storage() {}
    ~Storage() {}
    S object;
  } storage;
  const auto* base = reinterpret_cast<const unsigned char*>(&storage.object);
  const auto* field = reinterpret_cast<const unsigned char*>(&(storage.object.*member));
  return static_cast<uint32_t>(field - base);
}

template <class S>
concept DeclaredStructure = requires(const S* tag) {
  BindingFields(tag);
};
template <class E>
concept DeclaredEnumeration = std::is_enum_v<E> && requires(const E* tag) {
  BindingEnumerators(tag);
};

// Appends one declared field through `builder`.
template <class S, class F>
void AddDeclaredField(TypeBuilder& builder, const TypeRegistry& registry,
                      const FieldDeclaration<S, F>& declaration) {
  builder.AddField(declaration.name, MemberOffset(declaration.member), FieldTypeOf<F>(registry),
                   declaration.description, declaration.flags, declaration.host_type,
                   declaration.optional);
}

template <DeclaredStructure S>
TypeBuilder RegisterStructure(TypeRegistry& registry, std::string_view name,
                              std::span<const std::string> tags = {}) {
  TypeBuilder builder =
      registry.RegisterType(name, static_cast<uint32_t>(sizeof(S)), StaticType::Of<S>(), false);
  if (builder.IsNew()) {
    constexpr auto kFields = BindingFields(static_cast<const S*>(nullptr));
    std::apply([&](const auto&... field) { (AddDeclaredField(builder, registry, field), ...); },
               kFields);
  }
  builder.AddTags(tags);
  return builder;
}

template <DeclaredEnumeration E>
TypeBuilder RegisterEnumeration(TypeRegistry& registry, std::string_view name,
                                std::span<const std::string> tags = {}) {
  static_assert(sizeof(E) <= 4, "enumerations are stored in 32 bits");
  TypeBuilder builder = registry.RegisterType(name, 4, StaticType::Of<E>(), true);
  if (builder.IsNew()) {
    constexpr auto kEnumerators = BindingEnumerators(static_cast<const E*>(nullptr));
    for (const auto& enumerator : kEnumerators) {
      builder.AddEnumValue(enumerator.name, static_cast<int32_t>(enumerator.value),
                           enumerator.description);
    }
  }
  builder.AddTags(tags);
  return builder;
}

}  // namespace kav

#endif  // KAV_BINDING_DECLARE_H_
