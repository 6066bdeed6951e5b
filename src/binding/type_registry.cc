#include "binding/type_registry.h"

#include <algorithm>
#include <utility>

#include "binding/builtin_types.h"

namespace kav {
namespace {

constexpr const char* kTypeKindNames[] = {
    "",       "bool",   "int8",   "uint8",  "int16",    "uint16", "int32",
    "uint32", "int64",  "uint64", "float",  "double",   "string", "object",
    "blob",   "vector", "enum",   "struct", "callback", "map",
};

uint32_t HashName(std::string_view name) {
  return static_type_detail::Fnv1a(name);
}

// The text of a type that is not a vector or map.
std::string ScalarIdentifier(TypeKind kind, const TypeDescription* type) {
  if (kind == TypeKind::kEnum || kind == TypeKind::kStruct) {
    if (type != nullptr) return type->name;
  }
  return TypeKindName(kind);
}

}  // namespace

const char* TypeKindName(uint32_t code) {
  if (code >= std::size(kTypeKindNames)) return "";
  return kTypeKindNames[code];
}

TypeIdentifierText TypeIdentifier(const TypeSpecification& specification) {
  TypeIdentifierText text;
  if (specification.kind == TypeKind::kVector || specification.kind == TypeKind::kMap) {
    text.type = TypeKindName(specification.kind);
    text.elementType = ScalarIdentifier(specification.elementKind, specification.type);
  } else {
    text.type = ScalarIdentifier(specification.kind, specification.type);
  }
  return text;
}

// ---- TypeBuilder ----------------------------------------------------------

namespace {

std::string_view MemberName(const FieldDescriptor& field) {
  const std::string_view name = field.name;
  return name.substr(0, name.find('\0'));
}

// Fills description.fieldsByName; see there.
void OrderFieldsByName(TypeDescription& description) {
  std::vector<TypeDescription::MemberField>& order = description.fieldsByName;
  order.clear();
  for (uint32_t index = 0; index < description.fields.size(); ++index) {
    order.push_back({index, static_cast<uint32_t>(MemberName(description.fields[index]).size())});
  }
  const auto name_of = [&](const TypeDescription::MemberField& member) {
    return MemberName(description.fields[member.field]);
  };
  std::sort(order.begin(), order.end(),
            [&](const auto& left, const auto& right) { return name_of(left) < name_of(right); });
  for (size_t index = 1; index < order.size(); ++index) {
    if (name_of(order[index - 1]) == name_of(order[index])) {
      order.clear();
      return;
    }
  }
}

}  // namespace

TypeBuilder& TypeBuilder::AddField(std::string_view name, uint32_t offset, FieldType field_type,
                                   std::string_view description, uint32_t flags,
                                   TypeSpecification host_type, bool optional) {
  if (!is_new_) return *this;
  FieldDescriptor& field = description_->fields.emplace_back();
  field.name = name;
  field.nameHash = HashName(name);
  field.description = description;
  field.identity = field_type.identity;
  field.offset = offset;
  field.type = field_type.specification;
  field.hostType = host_type;
  field.flags = flags;
  field.converter = std::move(field_type.converter);
  field.owner = description_;
  field.optional = optional;
  OrderFieldsByName(*description_);
  return *this;
}

TypeBuilder& TypeBuilder::AddEnumValue(std::string_view name, int32_t value,
                                       std::string_view description) {
  if (!is_new_) return *this;
  auto found = description_->values.find(name);
  if (found == description_->values.end()) {
    found = description_->values.emplace(std::string(name), EnumValueDescription{}).first;
  }
  found->second.value = value;
  found->second.name = name;
  found->second.description = description;
  return *this;
}

TypeBuilder& TypeBuilder::SetDescription(std::string_view description) {
  if (is_new_) description_->description = description;
  return *this;
}

TypeBuilder& TypeBuilder::SetNameSpace(std::string_view name_space) {
  if (is_new_) description_->nameSpace = name_space;
  return *this;
}

TypeBuilder& TypeBuilder::AddTag(std::string_view tag) {
  if (is_new_ && !tag.empty()) description_->tags.emplace_back(tag);
  return *this;
}

TypeBuilder& TypeBuilder::AddTags(std::span<const std::string> tags) {
  for (const std::string& tag : tags) AddTag(tag);
  return *this;
}

// ---- TypeRegistry ---------------------------------------------------------

TypeRegistry::TypeRegistry() = default;

TypeRegistry::~TypeRegistry() {
  std::lock_guard lock(mutex_);
  ClearLocked();
}

void TypeRegistry::ClearLocked() {
  functions_by_name_.clear();
  events_by_name_.clear();
  types_by_name_.clear();
  types_by_id_.clear();
  // Handlers go before their descriptions; functions before the types that
  // their specifications refer to.
  for (auto* list : {&functions_, &unindexed_functions_}) {
    for (auto& function : *list) function->handler.reset();
    list->clear();
  }
  events_.clear();
  types_.clear();
}

void TypeRegistry::InitializeRegistry() {
  {
    std::lock_guard lock(mutex_);
    if (initialized_) ClearLocked();
    initialized_ = false;
  }
  RegisterBuiltins(*this);
  std::lock_guard lock(mutex_);
  initialized_ = true;
}

bool TypeRegistry::Initialized() const {
  std::lock_guard lock(mutex_);
  return initialized_;
}

TypeBuilder TypeRegistry::RegisterType(std::string_view name, uint32_t size,
                                       const StaticTypeIdentity& identity, bool is_enum) {
  std::lock_guard lock(mutex_);
  if (auto found = types_by_name_.find(name); found != types_by_name_.end()) {
    return TypeBuilder(found->second, false);
  }
  auto description = std::make_unique<TypeDescription>();
  description->size = size;
  description->isEnum = is_enum;
  description->name = name;
  description->identity = &identity;
  TypeDescription* stored = description.get();
  types_.push_back(std::move(description));
  types_by_name_.emplace(stored->name, stored);
  // Two names for one native type: the identifier index keeps the first.
  types_by_id_.emplace(identity.id, stored);
  return TypeBuilder(stored, true);
}

EventRegistration TypeRegistry::RegisterEvent(std::string_view name,
                                              const TypeDescription* payload) {
  std::lock_guard lock(mutex_);
  if (auto found = events_by_name_.find(name); found != events_by_name_.end()) {
    return {found->second, true};
  }
  auto event = std::make_unique<EventDescription>();
  event->name = name;
  event->type = payload;
  EventDescription* stored = event.get();
  events_.push_back(std::move(event));
  events_by_name_.emplace(stored->name, stored);
  return {stored, false};
}

FunctionDescription* TypeRegistry::RegisterFunction(std::unique_ptr<FunctionDescription> function,
                                                    bool published) {
  std::lock_guard lock(mutex_);
  FunctionDescription* stored = function.get();
  if (!published) {
    unindexed_functions_.push_back(std::move(function));
    return stored;
  }
  auto found = functions_by_name_.find(stored->name);
  if (found != functions_by_name_.end()) {
    // The replaced description may still be referred to (an endpoint table):
    // keep it alive, out of the index.
    auto owner = std::find_if(functions_.begin(), functions_.end(),
                              [&](const auto& held) { return held.get() == found->second; });
    unindexed_functions_.push_back(std::move(*owner));
    functions_.erase(owner);
    functions_by_name_.erase(found);
  }
  functions_.push_back(std::move(function));
  functions_by_name_.emplace(stored->name, stored);
  ++function_change_counter_;
  return stored;
}

void TypeRegistry::UnregisterFunction(const FunctionDescription* function) {
  std::unique_ptr<FunctionDescription> removed;
  {
    std::lock_guard lock(mutex_);
    for (auto* list : {&functions_, &unindexed_functions_}) {
      auto owner = std::find_if(list->begin(), list->end(),
                                [&](const auto& held) { return held.get() == function; });
      if (owner == list->end()) continue;
      if (list == &functions_) functions_by_name_.erase(function->name);
      removed = std::move(*owner);
      list->erase(owner);
      ++function_change_counter_;
      break;
    }
    if (removed) removed->handler.reset();
  }
  removed.reset();
}

const TypeDescription* TypeRegistry::FindType(const StaticTypeIdentity& identity) const {
  std::lock_guard lock(mutex_);
  auto found = types_by_id_.find(identity.id);
  return found == types_by_id_.end() ? nullptr : found->second;
}

const TypeDescription* TypeRegistry::FindTypeByName(std::string_view name) const {
  std::lock_guard lock(mutex_);
  auto found = types_by_name_.find(name);
  return found == types_by_name_.end() ? nullptr : found->second;
}

const FunctionDescription* TypeRegistry::FindFunction(std::string_view name) const {
  std::lock_guard lock(mutex_);
  auto found = functions_by_name_.find(name);
  return found == functions_by_name_.end() ? nullptr : found->second;
}

const EventDescription* TypeRegistry::FindEvent(std::string_view name) const {
  std::lock_guard lock(mutex_);
  auto found = events_by_name_.find(name);
  return found == events_by_name_.end() ? nullptr : found->second;
}

const char* TypeRegistry::EnumValueName(const StaticTypeIdentity& type, int32_t value) const {
  const TypeDescription* description = FindType(type);
  if (description == nullptr) return nullptr;
  for (const auto& [name, enumerator] : description->values) {
    if (enumerator.value == value) return name.c_str();
  }
  return nullptr;
}

bool TypeRegistry::IsEnumValue(const TypeDescription* type, int32_t value) {
  if (type == nullptr) return false;
  return std::any_of(type->values.begin(), type->values.end(),
                     [value](const auto& entry) { return entry.second.value == value; });
}

std::vector<const FunctionDescription*> TypeRegistry::Functions() const {
  std::lock_guard lock(mutex_);
  std::vector<const FunctionDescription*> snapshot;
  snapshot.reserve(functions_.size());
  for (const auto& function : functions_) snapshot.push_back(function.get());
  return snapshot;
}

std::vector<const TypeDescription*> TypeRegistry::Types() const {
  std::lock_guard lock(mutex_);
  std::vector<const TypeDescription*> snapshot;
  snapshot.reserve(types_.size());
  for (const auto& type : types_) snapshot.push_back(type.get());
  return snapshot;
}

std::vector<const EventDescription*> TypeRegistry::Events() const {
  std::lock_guard lock(mutex_);
  std::vector<const EventDescription*> snapshot;
  snapshot.reserve(events_.size());
  for (const auto& event : events_) snapshot.push_back(event.get());
  return snapshot;
}

uint32_t TypeRegistry::FunctionChangeCounter() const {
  std::lock_guard lock(mutex_);
  return function_change_counter_;
}

}  // namespace kav
