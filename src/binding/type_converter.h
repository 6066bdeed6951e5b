// The converters: one class per native type shape, moving a native value to
// and from a BindingProperty by the value-conversion rules.
//
// ValueTraits<T> carries the rule for one native type T and its type
// specification; TypedConverter<T> wraps it as the TypeConverter object that
// a field descriptor owns; FieldTypeOf<T> bundles both for
// TypeBuilder::AddField. Supported shapes:
//   bool; signed and unsigned integers of 8, 16, 32 and 64 bits; float;
//   double; std::string; BindingProperty ("object", carried as is);
//   std::vector<std::byte> ("blob"); enumerations (32-bit storage);
//   std::optional<T>; std::vector<T>; std::map<std::string, T> and
//   std::unordered_map<std::string, T>; and any other class type, which is
//   converted as a registered structure through its type description.
// The non-template rules (with the messages) are in binding/conversion_rules.h;
// the top-level entries ToBindingProperty / FromBindingProperty in
// binding/conversion.h.
//
// Thread-safety: converters are stateless; conversions of distinct values
// may run concurrently once the registry is no longer being filled.
#ifndef KAV_BINDING_TYPE_CONVERTER_H_
#define KAV_BINDING_TYPE_CONVERTER_H_

#include <cfloat>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "binding/binding_property.h"
#include "binding/conversion_rules.h"
#include "binding/host_value.h"
#include "binding/static_type.h"
#include "binding/type_registry.h"

namespace kav {

template <class T>
struct ValueTraits;

namespace converter_detail {

template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};
template <class T>
struct IsVector : std::false_type {};
template <class T, class A>
struct IsVector<std::vector<T, A>> : std::true_type {};
template <class T>
struct IsStringMap : std::false_type {};
template <class T, class C, class A>
struct IsStringMap<std::map<std::string, T, C, A>> : std::true_type {};
template <class T, class H, class E, class A>
struct IsStringMap<std::unordered_map<std::string, T, H, E, A>> : std::true_type {};

// A string map that iterates its keys in byte-wise order.
template <class T>
struct IsByteOrderedMap : std::false_type {};
template <class T, class A>
struct IsByteOrderedMap<std::map<std::string, T, std::less<std::string>, A>> : std::true_type {};
template <class T, class A>
struct IsByteOrderedMap<std::map<std::string, T, std::less<>, A>> : std::true_type {};

template <size_t kSize>
constexpr TypeKind SignedKind() {
  static_assert(kSize == 1 || kSize == 2 || kSize == 4 || kSize == 8);
  return kSize == 1   ? TypeKind::kInt8
         : kSize == 2 ? TypeKind::kInt16
         : kSize == 4 ? TypeKind::kInt32
                      : TypeKind::kInt64;
}
template <size_t kSize>
constexpr TypeKind UnsignedKind() {
  static_assert(kSize == 1 || kSize == 2 || kSize == 4 || kSize == 8);
  return kSize == 1   ? TypeKind::kUint8
         : kSize == 2 ? TypeKind::kUint16
         : kSize == 4 ? TypeKind::kUint32
                      : TypeKind::kUint64;
}

}  // namespace converter_detail

template <class T>
concept SignedInteger = std::is_integral_v<T> && std::is_signed_v<T> && !std::same_as<T, char>;
template <class T>
concept UnsignedInteger = std::is_integral_v<T> && std::is_unsigned_v<T> && !std::same_as<T, bool>;
template <class T>
concept Enumeration = std::is_enum_v<T> && sizeof(T) <= 4;
template <class T>
concept OptionalValue = converter_detail::IsOptional<T>::value;
template <class T>
concept VectorValue =
    converter_detail::IsVector<T>::value && !std::same_as<T, std::vector<std::byte>>;
template <class T>
concept StringMapValue = converter_detail::IsStringMap<T>::value;
// Every class that is not one of the shapes above is a registered structure.
template <class T>
concept StructureValue =
    std::is_class_v<T> && !OptionalValue<T> && !VectorValue<T> && !StringMapValue<T> &&
    !std::same_as<T, std::string> && !std::same_as<T, BindingProperty> &&
    !std::same_as<T, std::vector<std::byte>>;

// ---- Scalars -----------------------------------------------------------------

template <>
struct ValueTraits<bool> {
  static constexpr TypeKind kKind = TypeKind::kBool;
  static TypeSpecification Specification(const TypeRegistry&) { return {kKind}; }
  static void From(BindingResult& status, bool& native, const BindingProperty& source,
                   std::string_view path, const TypeDescription*, const TypeRegistry&) {
    BoolFromProperty(status, native, source, path);
  }
  static void To(BindingResult&, BindingProperty& target, bool native, const TypeDescription*,
                 const TypeRegistry&) {
    target.SetBool(native);
  }
  static void ToHost(BindingResult&, KavHostValue& target, bool native, const TypeDescription*,
                     const TypeRegistry&, const TypeRegistry*, HostValueArena* = nullptr) {
    target.kind = KAV_VALUE_BOOL;
    target.payload.boolean = native ? 1 : 0;
  }
};

template <SignedInteger T>
struct ValueTraits<T> {
  static constexpr TypeKind kKind = converter_detail::SignedKind<sizeof(T)>();
  static TypeSpecification Specification(const TypeRegistry&) { return {kKind}; }
  static void From(BindingResult& status, T& native, const BindingProperty& source,
                   std::string_view path, const TypeDescription*, const TypeRegistry&) {
    int64_t value = 0;
    SignedFromProperty(status, value, source, path, TypeKindName(kKind),
                       std::numeric_limits<T>::min(), std::numeric_limits<T>::max());
    native = static_cast<T>(value);
  }
  static void To(BindingResult&, BindingProperty& target, T native, const TypeDescription*,
                 const TypeRegistry&) {
    target.SetSigned(native);
  }
  static void ToHost(BindingResult&, KavHostValue& target, T native, const TypeDescription*,
                     const TypeRegistry&, const TypeRegistry*, HostValueArena* = nullptr) {
    target.kind = KAV_VALUE_SIGNED;
    target.payload.i64 = native;
  }
};

template <UnsignedInteger T>
struct ValueTraits<T> {
  static constexpr TypeKind kKind = converter_detail::UnsignedKind<sizeof(T)>();
  static TypeSpecification Specification(const TypeRegistry&) { return {kKind}; }
  static void From(BindingResult& status, T& native, const BindingProperty& source,
                   std::string_view path, const TypeDescription*, const TypeRegistry&) {
    uint64_t value = 0;
    UnsignedFromProperty(status, value, source, path, TypeKindName(kKind),
                         std::numeric_limits<T>::max());
    native = static_cast<T>(value);
  }
  static void To(BindingResult&, BindingProperty& target, T native, const TypeDescription*,
                 const TypeRegistry&) {
    target.SetUnsigned(native);
  }
  static void ToHost(BindingResult&, KavHostValue& target, T native, const TypeDescription*,
                     const TypeRegistry&, const TypeRegistry*, HostValueArena* = nullptr) {
    target.kind = KAV_VALUE_UNSIGNED;
    target.payload.u64 = native;
  }
};

template <std::floating_point T>
requires(sizeof(T) == 4 || sizeof(T) == 8) struct ValueTraits<T> {
  static constexpr TypeKind kKind = sizeof(T) == 4 ? TypeKind::kFloat : TypeKind::kDouble;
  static TypeSpecification Specification(const TypeRegistry&) { return {kKind}; }
  static void From(BindingResult& status, T& native, const BindingProperty& source,
                   std::string_view path, const TypeDescription*, const TypeRegistry&) {
    constexpr double kMax = static_cast<double>(std::numeric_limits<T>::max());
    double value = 0.0;
    FloatingFromProperty(status, value, source, path, TypeKindName(kKind), -kMax, kMax);
    native = static_cast<T>(value);
  }
  static void To(BindingResult&, BindingProperty& target, T native, const TypeDescription*,
                 const TypeRegistry&) {
    target.SetFloat(static_cast<double>(native));
  }
  static void ToHost(BindingResult&, KavHostValue& target, T native, const TypeDescription*,
                     const TypeRegistry&, const TypeRegistry*, HostValueArena* = nullptr) {
    target.kind = KAV_VALUE_FLOAT;
    target.payload.f64 = static_cast<double>(native);
  }
};

template <>
struct ValueTraits<std::string> {
  static constexpr TypeKind kKind = TypeKind::kString;
  static TypeSpecification Specification(const TypeRegistry&) { return {kKind}; }
  static void From(BindingResult& status, std::string& native, const BindingProperty& source,
                   std::string_view path, const TypeDescription*, const TypeRegistry& registry) {
    StringFromProperty(status, native, source, path, registry);
  }
  static void To(BindingResult&, BindingProperty& target, const std::string& native,
                 const TypeDescription*, const TypeRegistry&) {
    target.SetString(std::string_view(native));
  }
  static void ToHost(BindingResult&, KavHostValue& target, const std::string& native,
                     const TypeDescription*, const TypeRegistry&, const TypeRegistry*,
                     HostValueArena* arena = nullptr) {
    SetHostString(target, native, arena);
  }
};

template <>
struct ValueTraits<BindingProperty> {
  static constexpr TypeKind kKind = TypeKind::kObject;
  static TypeSpecification Specification(const TypeRegistry&) { return {kKind}; }
  static void From(BindingResult& status, BindingProperty& native, const BindingProperty& source,
                   std::string_view, const TypeDescription*, const TypeRegistry&) {
    ObjectFromProperty(status, native, source);
  }
  static void To(BindingResult&, BindingProperty& target, const BindingProperty& native,
                 const TypeDescription*, const TypeRegistry&) {
    target = native;
  }
  static void ToHost(BindingResult&, KavHostValue& target, const BindingProperty& native,
                     const TypeDescription*, const TypeRegistry&, const TypeRegistry* names,
                     HostValueArena* arena = nullptr) {
    BuildHostValue(target, native, names, arena);
  }
};

template <>
struct ValueTraits<std::vector<std::byte>> {
  static constexpr TypeKind kKind = TypeKind::kBlob;
  static TypeSpecification Specification(const TypeRegistry&) { return {kKind}; }
  static void From(BindingResult& status, std::vector<std::byte>& native,
                   const BindingProperty& source, std::string_view path, const TypeDescription*,
                   const TypeRegistry&) {
    BlobFromProperty(status, native, source, path);
  }
  static void To(BindingResult&, BindingProperty& target, const std::vector<std::byte>& native,
                 const TypeDescription*, const TypeRegistry&) {
    target.SetBlob(
        std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(native.data()), native.size()));
  }
  static void ToHost(BindingResult&, KavHostValue& target, const std::vector<std::byte>& native,
                     const TypeDescription*, const TypeRegistry&, const TypeRegistry*,
                     HostValueArena* arena = nullptr) {
    SetHostBlob(
        target,
        std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(native.data()), native.size()),
        arena);
  }
};

// ---- Enumerations and structures ---------------------------------------------

// The description of T: the one handed down by the field or container when
// there is one, else the registry's entry for T's identity (a type that was
// registered after the field that refers to it).
template <class T>
const TypeDescription* ResolveDescription(const TypeDescription* given,
                                          const TypeRegistry& registry) {
  return given != nullptr ? given : registry.FindType(StaticType::Of<T>());
}

template <Enumeration T>
struct ValueTraits<T> {
  static constexpr TypeKind kKind = TypeKind::kEnum;
  static TypeSpecification Specification(const TypeRegistry& registry) {
    return {kKind, TypeKind::kNone, registry.FindType(StaticType::Of<T>())};
  }
  static void From(BindingResult& status, T& native, const BindingProperty& source,
                   std::string_view path, const TypeDescription* type,
                   const TypeRegistry& registry) {
    int32_t value = 0;
    EnumFromProperty(status, value, source, path, ResolveDescription<T>(type, registry));
    native = static_cast<T>(value);
  }
  static void To(BindingResult&, BindingProperty& target, T native, const TypeDescription*,
                 const TypeRegistry&) {
    target.SetEnum(static_cast<int32_t>(native), StaticType::Of<T>());
  }
  static void ToHost(BindingResult&, KavHostValue& target, T native, const TypeDescription*,
                     const TypeRegistry&, const TypeRegistry* names,
                     HostValueArena* arena = nullptr) {
    SetHostEnum(target, static_cast<int32_t>(native), StaticType::Of<T>(), names, arena);
  }
};

template <StructureValue T>
struct ValueTraits<T> {
  static constexpr TypeKind kKind = TypeKind::kStruct;
  static TypeSpecification Specification(const TypeRegistry& registry) {
    return {kKind, TypeKind::kNone, registry.FindType(StaticType::Of<T>())};
  }
  static void From(BindingResult& status, T& native, const BindingProperty& source,
                   std::string_view path, const TypeDescription* type,
                   const TypeRegistry& registry) {
    StructureFromProperty(status, &native, source, path, ResolveDescription<T>(type, registry),
                          registry);
  }
  static void To(BindingResult& status, BindingProperty& target, const T& native,
                 const TypeDescription* type, const TypeRegistry& registry) {
    StructureToProperty(status, target, &native, ResolveDescription<T>(type, registry), registry);
  }
  static void ToHost(BindingResult& status, KavHostValue& target, const T& native,
                     const TypeDescription* type, const TypeRegistry& registry,
                     const TypeRegistry* names, HostValueArena* arena = nullptr) {
    StructureToHostValue(status, target, &native, ResolveDescription<T>(type, registry), registry,
                         names, arena);
  }
};

// ---- Wrappers and containers -------------------------------------------------

template <OptionalValue T>
struct ValueTraits<T> {
  using Element = typename T::value_type;
  using ElementTraits = ValueTraits<Element>;
  static constexpr TypeKind kKind = ElementTraits::kKind;
  static TypeSpecification Specification(const TypeRegistry& registry) {
    return ElementTraits::Specification(registry);
  }
  // An empty input leaves the optional without a value and reports nothing.
  static void From(BindingResult& status, T& native, const BindingProperty& source,
                   std::string_view path, const TypeDescription* type,
                   const TypeRegistry& registry) {
    native.reset();
    if (!status.Ok() || source.IsEmpty()) return;
    Element value{};
    ElementTraits::From(status, value, source, path, type, registry);
    if (status.Ok()) native = std::move(value);
  }
  static void To(BindingResult& status, BindingProperty& target, const T& native,
                 const TypeDescription* type, const TypeRegistry& registry) {
    if (!native.has_value()) {
      target.Clear();
      return;
    }
    ElementTraits::To(status, target, *native, type, registry);
  }
  static void ToHost(BindingResult& status, KavHostValue& target, const T& native,
                     const TypeDescription* type, const TypeRegistry& registry,
                     const TypeRegistry* names, HostValueArena* arena = nullptr) {
    if (native.has_value()) {
      ElementTraits::ToHost(status, target, *native, type, registry, names, arena);
    }
  }
};

template <VectorValue T>
struct ValueTraits<T> {
  using Element = typename T::value_type;
  using ElementTraits = ValueTraits<Element>;
  static constexpr TypeKind kKind = TypeKind::kVector;
  static TypeSpecification Specification(const TypeRegistry& registry) {
    return {kKind, ElementTraits::kKind, ElementTraits::Specification(registry).type};
  }
  static void From(BindingResult& status, T& native, const BindingProperty& source,
                   std::string_view path, const TypeDescription* type,
                   const TypeRegistry& registry) {
    native.clear();
    if (!status.Ok()) return;
    if (source.Kind() != BindingKind::kCollection) {
      ReportNotCollection(status, path);
      return;
    }
    native.resize(source.Size());
    for (size_t index = 0; index < native.size() && status.Ok(); ++index) {
      const BindingProperty& element = source.At(index);
      if (element.IsEmpty()) continue;
      if constexpr (std::is_same_v<Element, bool>) {  // std::vector<bool> hands out proxies
        bool value = false;
        ElementTraits::From(status, value, element, path, type, registry);
        native[index] = value;
      } else {
        ElementTraits::From(status, native[index], element, path, type, registry);
      }
    }
  }
  static void To(BindingResult& status, BindingProperty& target, const T& native,
                 const TypeDescription* type, const TypeRegistry& registry) {
    target.Clear();
    target.MakeCollection();
    target.Reserve(native.size());
    for (const auto& element : native) {
      ElementTraits::To(status, target.Append(), element, type, registry);
      if (!status.Ok()) return;  // `target` may be gone
    }
  }
  static void ToHost(BindingResult& status, KavHostValue& target, const T& native,
                     const TypeDescription* type, const TypeRegistry& registry,
                     const TypeRegistry* names, HostValueArena* arena = nullptr) {
    KavHostValue* elements = SetHostArray(target, native.size(), arena);
    for (const auto& element : native) {
      ElementTraits::ToHost(status, *elements++, element, type, registry, names, arena);
      if (!status.Ok()) return;
    }
  }
};

template <StringMapValue T>
struct ValueTraits<T> {
  using Element = typename T::mapped_type;
  using ElementTraits = ValueTraits<Element>;
  static constexpr TypeKind kKind = TypeKind::kMap;
  static TypeSpecification Specification(const TypeRegistry& registry) {
    return {kKind, ElementTraits::kKind, ElementTraits::Specification(registry).type};
  }
  static void From(BindingResult& status, T& native, const BindingProperty& source,
                   std::string_view path, const TypeDescription* type,
                   const TypeRegistry& registry) {
    native.clear();
    if (!status.Ok()) return;
    if (source.Kind() != BindingKind::kStructure) {
      ReportNotStructureForMap(status, path);
      return;
    }
    for (auto [name, member] : source.Members()) {
      if (!status.Ok()) return;
      if (member.IsEmpty()) continue;
      Element value{};
      ElementTraits::From(status, value, member, path, type, registry);
      if (status.Ok()) native.insert_or_assign(std::string(name), std::move(value));
    }
  }
  static void To(BindingResult& status, BindingProperty& target, const T& native,
                 const TypeDescription* type, const TypeRegistry& registry) {
    target.Clear();
    target.MakeStructure();
    for (const auto& [key, value] : native) {
      ElementTraits::To(status, target.Member(key), value, type, registry);
      if (!status.Ok()) return;  // `target` may be gone
    }
  }
  // A std::map is already in member order; an unordered map, or a key that
  // a NUL byte cuts short (two keys may then meet), goes the generic way.
  static void ToHost(BindingResult& status, KavHostValue& target, const T& native,
                     const TypeDescription* type, const TypeRegistry& registry,
                     const TypeRegistry* names, HostValueArena* arena = nullptr) {
    if (!IsOrderedMap() || HasKeyWithNul(native)) {
      ToHostValueThroughProperty(
          status, target, [&](BindingResult& value) { To(value, value, native, type, registry); },
          names, arena);
      return;
    }
    KavHostMapEntry* entries = SetHostMap(target, native.size(), arena);
    for (const auto& [key, value] : native) {
      KavHostMapEntry& entry = *entries++;
      SetHostKey(entry, key, arena);
      ElementTraits::ToHost(status, entry.value, value, type, registry, names, arena);
      if (!status.Ok()) return;
    }
  }

 private:
  static constexpr bool IsOrderedMap() { return converter_detail::IsByteOrderedMap<T>::value; }
  static bool HasKeyWithNul(const T& native) {
    for (const auto& entry : native) {
      if (entry.first.find('\0') != std::string::npos) return true;
    }
    return false;
  }
};

// ---- Converter objects ---------------------------------------------------------

template <class T>
class TypedConverter final : public TypeConverter {
 public:
  void FromProperty(BindingResult& status, void* native, const BindingProperty& source,
                    std::string_view path, const TypeDescription* type,
                    const TypeRegistry& registry) const override {
    ValueTraits<T>::From(status, *static_cast<T*>(native), source, path, type, registry);
  }
  void ToProperty(BindingResult& status, BindingProperty& target, const void* native,
                  const TypeDescription* type, const TypeRegistry& registry) const override {
    ValueTraits<T>::To(status, target, *static_cast<const T*>(native), type, registry);
  }
  void ToHostValue(BindingResult& status, KavHostValue& target, const void* native,
                   const TypeDescription* type, const TypeRegistry& registry,
                   const TypeRegistry* names, HostValueArena* arena) const override {
    ValueTraits<T>::ToHost(status, target, *static_cast<const T*>(native), type, registry, names,
                           arena);
  }
};

// The identity, specification and converter of a field of native type T.
// Enum and struct references are resolved against `registry` now; a type
// registered later is found at conversion time instead.
template <class T>
FieldType FieldTypeOf(const TypeRegistry& registry) {
  FieldType field_type;
  field_type.identity = &StaticType::Of<T>();
  field_type.specification = ValueTraits<T>::Specification(registry);
  field_type.converter = std::make_unique<TypedConverter<T>>();
  return field_type;
}

template <class T>
TypeSpecification SpecificationOf(const TypeRegistry& registry) {
  return ValueTraits<T>::Specification(registry);
}

// The scalar converters are instantiated once, in type_converter.cc.
extern template class TypedConverter<bool>;
extern template class TypedConverter<int8_t>;
extern template class TypedConverter<int16_t>;
extern template class TypedConverter<int32_t>;
extern template class TypedConverter<int64_t>;
extern template class TypedConverter<uint8_t>;
extern template class TypedConverter<uint16_t>;
extern template class TypedConverter<uint32_t>;
extern template class TypedConverter<uint64_t>;
extern template class TypedConverter<float>;
extern template class TypedConverter<double>;
extern template class TypedConverter<std::string>;
extern template class TypedConverter<BindingProperty>;

}  // namespace kav

#endif  // KAV_BINDING_TYPE_CONVERTER_H_
