// The type registry: the reflective catalogue of the structures, enumerations,
// events and functions that a module exposes.
//
// A registered structure is described field by field (name, byte offset, type
// specification and a converter object that moves the field between the
// native object and a BindingProperty), so that any registered structure is
// converted without generated code. Registration code normally goes through
// binding/declare.h rather than calling TypeBuilder::AddField directly.
//
// Ownership: the registry owns every description, field descriptor and
// converter; they live until the registry is destroyed (or cleared by
// InitializeRegistry). Pointers returned by lookups stay valid that long,
// except that UnregisterFunction destroys the function it removes.
//
// Thread-safety: one mutex guards the four indexes; every lookup and every
// snapshot takes it for the index access only. Descriptions are filled
// through builders without the lock, so all registration must happen before
// the registry is shared between threads; afterwards descriptions are
// read-only and may be read from any thread.
#ifndef KAV_BINDING_TYPE_REGISTRY_H_
#define KAV_BINDING_TYPE_REGISTRY_H_

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "binding/binding_property.h"
#include "binding/static_type.h"
#include "kav/plugin_host.h"

namespace kav {

class TypeRegistry;
struct TypeDescription;
class HostApiDescriptionBuilder;  // binding/host_api_description.h
class HostValueArena;             // binding/host_value.h

// Kind codes of a type specification.
enum class TypeKind : uint32_t {
  kNone = 0,
  kBool = 1,
  kInt8 = 2,
  kUint8 = 3,
  kInt16 = 4,
  kUint16 = 5,
  kInt32 = 6,
  kUint32 = 7,
  kInt64 = 8,
  kUint64 = 9,
  kFloat = 10,
  kDouble = 11,
  kString = 12,
  kObject = 13,
  kBlob = 14,
  kVector = 15,
  kEnum = 16,
  kStruct = 17,
  kCallback = 18,
  kMap = 19,
};

// "bool", "int8", ..., "map" for codes 1 to 19; "" for any other code.
const char* TypeKindName(uint32_t code);
inline const char* TypeKindName(TypeKind kind) {
  return TypeKindName(static_cast<uint32_t>(kind));
}

// The type of a field, parameter or result. `elementKind` is meaningful for
// vectors and maps only. `type` is the registered description of an enum or
// struct (for a vector or map: of its element when that is one), else null.
struct TypeSpecification {
  TypeKind kind = TypeKind::kNone;
  TypeKind elementKind = TypeKind::kNone;
  const TypeDescription* type = nullptr;

  bool operator==(const TypeSpecification&) const = default;
};

// A type as shown in help: "vector"/"map" with the element's text in
// `elementType`, the registered name of an enum or struct ("enum"/"struct"
// when it refers to no registered type), else the kind name.
struct TypeIdentifierText {
  std::string type;
  std::string elementType;

  bool operator==(const TypeIdentifierText&) const = default;
};
TypeIdentifierText TypeIdentifier(const TypeSpecification& specification);

// Moves one native value of a fixed shape to and from a BindingProperty.
// One object per field or parameter; the concrete classes (one per native
// type shape) live in binding/type_converter.h. Stateless and const, so a
// converter may be used from any thread.
class TypeConverter {
 public:
  // Assigns `source` to the native value at `native`, reporting failures
  // only through `status` (SetError; never raises ok). `path` names the value
  // in messages; `type` is the referenced enum/struct description or null.
  virtual void FromProperty(BindingResult& status, void* native, const BindingProperty& source,
                            std::string_view path, const TypeDescription* type,
                            const TypeRegistry& registry) const = 0;
  // Builds `target` from the native value at `native`. Failures lower
  // `status`, which may be `target` itself or an ancestor of it: after a
  // failure `target` may be gone, so callers must look at status before
  // touching `target` again.
  virtual void ToProperty(BindingResult& status, BindingProperty& target, const void* native,
                          const TypeDescription* type, const TypeRegistry& registry) const = 0;
  // Builds the host value `target` (kind 0 on entry) from the native value
  // at `native`, the same value ToProperty and then ToHostValue would give,
  // without the BindingProperty in between. `names` names enumerators (see
  // ToHostValue). Failures lower `status`; `target` then holds what was
  // built so far, for the caller to release (with an `arena`, the blocks
  // come from it: see HostValueArena). Throws std::bad_alloc.
  virtual void ToHostValue(BindingResult& status, KavHostValue& target, const void* native,
                           const TypeDescription* type, const TypeRegistry& registry,
                           const TypeRegistry* names, HostValueArena* arena = nullptr) const = 0;
  virtual ~TypeConverter() = default;
};

// Field flag bits.
enum FieldFlags : uint32_t {
  kOmitIfDefault = 1u,  // left out of a produced structure when zero, false or empty
  kRequired = 2u,       // reading a structure fails when the member is missing or empty
};

struct FieldDescriptor {
  std::string name;
  uint32_t nameHash = 0;  // 32-bit FNV-1a of `name`
  std::string description;
  const StaticTypeIdentity* identity = nullptr;  // of the field's native type
  uint32_t offset = 0;
  TypeSpecification type;
  TypeSpecification hostType;  // absent when hostType.kind is kNone
  uint32_t flags = 0;
  std::unique_ptr<TypeConverter> converter;
  const TypeDescription* owner = nullptr;
  bool optional = false;  // shown in help only
};

struct EnumValueDescription {
  int32_t value = 0;
  std::string name;
  std::string description;
};

struct TypeDescription {
  uint32_t size = 0;
  bool isEnum = false;
  std::string name;
  const StaticTypeIdentity* identity = nullptr;
  std::string nameSpace;
  std::string description;
  std::vector<std::string> tags;
  std::vector<FieldDescriptor> fields;  // structures, in registration order
  // The fields in the order a produced structure lists its members
  // (byte-wise by name up to its first NUL, which is where a member name
  // ends). Empty when two fields share such a name: the later one then
  // replaces the earlier one's value.
  struct MemberField {
    uint32_t field;       // index into `fields`
    uint32_t nameLength;  // of the member name: the field name up to its first NUL
  };
  std::vector<MemberField> fieldsByName;
  // Enumerations, by name (byte-wise order).
  std::map<std::string, EnumValueDescription, std::less<>> values;
};

struct EventDescription {
  std::string name;
  const TypeDescription* type = nullptr;  // the payload's structure or enumeration
  std::string nameSpace;
  std::string description;
  std::vector<std::string> tags;
};

struct ParameterDescription {
  std::string name;
  std::string description;
  TypeSpecification type;
  TypeSpecification hostType;  // absent when hostType.kind is kNone
  bool optional = false;
};

// The object that carries out a function; defined by the routing layer. The
// registry only owns and destroys it.
class FunctionHandler {
 public:
  virtual ~FunctionHandler() = default;
};

struct FunctionDescription {
  std::string name;
  std::string nameSpace;
  std::vector<ParameterDescription> parameters;
  TypeSpecification result;
  TypeSpecification hostResult;  // absent when hostResult.kind is kNone
  std::vector<std::string> tags;
  std::string description;
  std::string help;
  bool threadSafe = false;
  bool async = false;
  std::unique_ptr<FunctionHandler> handler;
};

// What TypeBuilder::AddField needs beyond the name and offset: implied by the
// native field type (see FieldTypeOf in binding/type_converter.h).
struct FieldType {
  const StaticTypeIdentity* identity = nullptr;
  TypeSpecification specification;
  std::unique_ptr<TypeConverter> converter;
};

// Fills a type description just created by RegisterType. A builder on a type
// that existed before is inert: every operation does nothing. Builders are
// cheap handles; use them during registration only.
class TypeBuilder {
 public:
  TypeBuilder(TypeDescription* description, bool is_new)
      : description_(description), is_new_(is_new) {}

  bool IsNew() const { return is_new_; }
  // The description (new or existing); never null.
  TypeDescription* Description() const { return description_; }

  // Appends a field descriptor. `host_type` is the type the host is to see
  // instead of the native one (kind kNone: none).
  TypeBuilder& AddField(std::string_view name, uint32_t offset, FieldType field_type,
                        std::string_view description = {}, uint32_t flags = 0,
                        TypeSpecification host_type = {}, bool optional = false);
  // Inserts the enumerator, or overwrites the one of the same name.
  TypeBuilder& AddEnumValue(std::string_view name, int32_t value,
                            std::string_view description = {});
  TypeBuilder& SetDescription(std::string_view description);
  TypeBuilder& SetNameSpace(std::string_view name_space);
  // An empty tag is ignored.
  TypeBuilder& AddTag(std::string_view tag);
  TypeBuilder& AddTags(std::span<const std::string> tags);

 private:
  TypeDescription* description_;
  bool is_new_;
};

struct EventRegistration {
  EventDescription* event;  // never null
  bool existed;             // true: the name was taken; leave the event as it is
};

class TypeRegistry {
 public:
  TypeRegistry();
  ~TypeRegistry();
  TypeRegistry(const TypeRegistry&) = delete;
  TypeRegistry& operator=(const TypeRegistry&) = delete;

  // Clears everything when initialised before, runs the built-in
  // registrations (RegisterBuiltins) and marks the registry initialised.
  void InitializeRegistry();
  bool Initialized() const;

  // The first registration of a name wins; a later one returns an inert
  // builder on the existing description.
  TypeBuilder RegisterType(std::string_view name, uint32_t size, const StaticTypeIdentity& identity,
                           bool is_enum);
  EventRegistration RegisterEvent(std::string_view name, const TypeDescription* payload);
  // Takes ownership. An unpublished function is kept but not indexed; a
  // published one replaces an indexed function of the same name (the earlier
  // one stays alive, unindexed, until the registry is destroyed) and bumps
  // the change counter. Returns the stored description.
  FunctionDescription* RegisterFunction(std::unique_ptr<FunctionDescription> function,
                                        bool published = true);
  // Removes the function from the index, bumps the change counter, then
  // destroys its handler and the description. Unknown pointers: nothing.
  void UnregisterFunction(const FunctionDescription* function);

  // Lookups; null when none.
  const TypeDescription* FindType(const StaticTypeIdentity& identity) const;
  const TypeDescription* FindTypeByName(std::string_view name) const;
  const FunctionDescription* FindFunction(std::string_view name) const;
  const EventDescription* FindEvent(std::string_view name) const;
  // Name of the first enumerator, in name order, with `value`; null when the
  // type is unknown or no enumerator has the value. The text lives as long
  // as the registry.
  const char* EnumValueName(const StaticTypeIdentity& type, int32_t value) const;
  // Whether any enumerator of `type` has `value`; false for null.
  static bool IsEnumValue(const TypeDescription* type, int32_t value);

  // Snapshots in registration order.
  std::vector<const FunctionDescription*> Functions() const;
  std::vector<const TypeDescription*> Types() const;
  std::vector<const EventDescription*> Events() const;

  // Incremented by every published function registration and every removal.
  uint32_t FunctionChangeCounter() const;

  // Storage of the packed host description (BuildHostApiDescription); kept
  // here so that it lives exactly as long as the texts it points to.
  std::shared_ptr<HostApiDescriptionBuilder>& HostApiDescriptionSlot() {
    return host_api_description_;
  }

 private:
  struct StringHash {
    using is_transparent = void;
    size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
  };
  template <class T>
  using NameIndex = std::unordered_map<std::string, T*, StringHash, std::equal_to<>>;

  void ClearLocked();

  mutable std::mutex mutex_;
  NameIndex<FunctionDescription> functions_by_name_;
  NameIndex<EventDescription> events_by_name_;
  NameIndex<TypeDescription> types_by_name_;
  std::unordered_map<uint32_t, TypeDescription*> types_by_id_;
  // Owners, in registration order.
  std::vector<std::unique_ptr<TypeDescription>> types_;
  std::vector<std::unique_ptr<EventDescription>> events_;
  std::vector<std::unique_ptr<FunctionDescription>> functions_;  // indexed ones
  std::vector<std::unique_ptr<FunctionDescription>> unindexed_functions_;
  uint32_t function_change_counter_ = 0;
  bool initialized_ = false;
  std::shared_ptr<HostApiDescriptionBuilder> host_api_description_;
};

}  // namespace kav

#endif  // KAV_BINDING_TYPE_REGISTRY_H_
