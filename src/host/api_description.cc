#include "host/api_description.h"

#include <cstdint>
#include <iterator>
#include <utility>

namespace kav::host {
namespace {

// Types nest this deep at most in a described answer; deeper parts of a
// value are copied without naming.
constexpr size_t kMaxNamingDepth = 256;

std::string Text(const char* text) {
  return text != nullptr ? std::string(text) : std::string();
}

std::vector<std::string> Texts(const char* const* texts, uint32_t count) {
  std::vector<std::string> result;
  if (texts == nullptr) return result;
  result.reserve(count);
  for (uint32_t i = 0; i < count; ++i) result.push_back(Text(texts[i]));
  return result;
}

// The records are packed: every field is copied out before use.
ApiTypeRef TypeRef(uint32_t kind, uint32_t element_kind, const char* type_name) {
  return ApiTypeRef{kind, element_kind, Text(type_name)};
}

std::vector<ApiParameter> Parameters(const KavApiParameter* records, uint32_t count,
                                     const KavParameterLocation* locations) {
  std::vector<ApiParameter> parameters;
  if (records == nullptr) return parameters;
  parameters.reserve(count);
  for (uint32_t i = 0; i < count; ++i) {
    const KavApiParameter& record = records[i];
    ApiParameter& parameter = parameters.emplace_back();
    parameter.name = Text(record.name);
    parameter.description = Text(record.description);
    parameter.type = TypeRef(record.kind, record.element_kind, record.type_name);
    parameter.optional = record.optional != 0;
    parameter.location = locations != nullptr ? uint32_t{locations[i].location} : 0;
  }
  return parameters;
}

ApiResource Resource(const KavResourceEntry& entry) {
  ApiResource resource;
  resource.entry = &entry;
  resource.name = Text(entry.name);
  resource.name_space = Text(entry.name_space);
  resource.description = Text(entry.description);
  resource.help = Text(entry.help);
  resource.method = entry.method;
  resource.custom_method = Text(entry.custom_method);
  resource.path_template = Text(entry.path_template);
  resource.parameters = Parameters(entry.parameters, entry.parameter_count, entry.locations);
  resource.result = TypeRef(entry.result_kind, entry.result_element_kind, entry.result_type_name);
  resource.async_type_name = Text(entry.async_type_name);
  resource.tags = Texts(entry.tags, entry.tag_count);
  resource.thread_safe = entry.thread_safe != 0;
  return resource;
}

ApiType Type(const KavApiType& record) {
  ApiType type;
  type.name = Text(record.name);
  type.name_space = Text(record.name_space);
  type.description = Text(record.description);
  type.size = record.size;
  type.tags = Texts(record.tags, record.tag_count);
  const uint32_t count = record.member_count;
  if (const KavApiField* fields = record.fields; fields != nullptr) {
    type.fields.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
      const KavApiField& field = fields[i];
      type.fields.push_back(ApiField{Text(field.name), Text(field.description), field.offset,
                                     TypeRef(field.kind, field.element_kind, field.type_name),
                                     field.optional != 0});
    }
  } else if (const KavApiEnumerator* enumerators = record.enumerators; enumerators != nullptr) {
    type.enumerators.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
      const KavApiEnumerator& enumerator = enumerators[i];
      type.enumerators.push_back(
          ApiEnumerator{Text(enumerator.name), Text(enumerator.description), enumerator.value});
    }
  }
  return type;
}

ApiEvent Event(const KavApiEvent& record) {
  return ApiEvent{Text(record.name), Text(record.name_space), Text(record.type_name),
                  Text(record.description), Texts(record.tags, record.tag_count)};
}

}  // namespace

const char* ApiKindName(uint32_t kind) {
  static constexpr const char* kNames[] = {"",       "bool",   "int8",   "uint8",    "int16",
                                           "uint16", "int32",  "uint32", "int64",    "uint64",
                                           "float",  "double", "string", "object",   "blob",
                                           "vector", "enum",   "struct", "callback", "map"};
  return kind < std::size(kNames) ? kNames[kind] : "";
}

const ApiField* ApiType::FindField(std::string_view field_name) const {
  for (const ApiField& field : fields) {
    if (field.name == field_name) return &field;
  }
  return nullptr;
}

const ApiEnumerator* ApiType::FindEnumerator(int64_t value) const {
  for (const ApiEnumerator& enumerator : enumerators) {
    if (enumerator.value == value) return &enumerator;
  }
  return nullptr;
}

ApiDescription ApiDescription::Read(const KavResourceTable* table) {
  ApiDescription description;
  if (table == nullptr) return description;
  if (const KavResourceEntry* entries = table->entries; entries != nullptr) {
    const uint32_t count = table->entry_count;
    description.resources_.reserve(count);
    for (uint32_t i = 0; i < count; ++i) description.resources_.push_back(Resource(entries[i]));
  }
  if (const KavApiType* types = table->types; types != nullptr) {
    const uint32_t count = table->type_count;
    description.types_.reserve(count);
    for (uint32_t i = 0; i < count; ++i) description.types_.push_back(Type(types[i]));
  }
  if (const KavApiEvent* events = table->events; events != nullptr) {
    const uint32_t count = table->event_count;
    description.events_.reserve(count);
    for (uint32_t i = 0; i < count; ++i) description.events_.push_back(Event(events[i]));
  }
  description.Index();
  return description;
}

void ApiDescription::Index() {
  type_index_.clear();
  for (size_t i = 0; i < types_.size(); ++i) type_index_.emplace(types_[i].name, i);
}

const ApiType* ApiDescription::FindType(std::string_view name) const {
  auto found = type_index_.find(name);
  return found != type_index_.end() ? &types_[found->second] : nullptr;
}

const ApiResource* ApiDescription::FindResource(std::string_view name) const {
  for (const ApiResource& resource : resources_) {
    if (resource.name == name) return &resource;
  }
  return nullptr;
}

const ApiResource* ApiDescription::FindResource(const KavResourceEntry* entry) const {
  for (const ApiResource& resource : resources_) {
    if (resource.entry == entry) return &resource;
  }
  return nullptr;
}

Value ApiDescription::NameEnumerators(const Value& value, const ApiTypeRef& type) const {
  return Named(value, type, 0);
}

Value ApiDescription::Named(const Value& value, const ApiTypeRef& type, size_t depth) const {
  if (depth >= kMaxNamingDepth) return value;
  switch (static_cast<ApiKind>(type.kind)) {
    case ApiKind::kEnum: {
      const ApiType* described = FindType(type.type_name);
      if (described == nullptr) return value;
      const ApiEnumerator* enumerator = nullptr;
      if (value.kind() == Value::Kind::kSigned) {
        enumerator = described->FindEnumerator(value.AsSigned());
      } else if (value.kind() == Value::Kind::kUnsigned && value.AsUnsigned() <= INT32_MAX) {
        enumerator = described->FindEnumerator(static_cast<int64_t>(value.AsUnsigned()));
      }
      return enumerator != nullptr ? Value::String(enumerator->name) : value;
    }
    case ApiKind::kVector: {
      if (value.kind() != Value::Kind::kArray) return value;
      const ApiTypeRef element = type.Element();
      Value::Array elements;
      elements.reserve(value.AsArray().size());
      for (const Value& item : value.AsArray()) elements.push_back(Named(item, element, depth + 1));
      return Value::MakeArray(std::move(elements));
    }
    case ApiKind::kMap: {
      if (value.kind() != Value::Kind::kMap) return value;
      const ApiTypeRef element = type.Element();
      Value::Map entries;
      entries.reserve(value.AsMap().size());
      for (const MapEntry& entry : value.AsMap()) {
        entries.push_back(MapEntry{entry.key, Named(entry.value, element, depth + 1)});
      }
      return Value::MakeMap(std::move(entries));
    }
    case ApiKind::kStruct: {
      const ApiType* described = FindType(type.type_name);
      if (described == nullptr || value.kind() != Value::Kind::kMap) return value;
      Value::Map entries;
      entries.reserve(value.AsMap().size());
      for (const MapEntry& entry : value.AsMap()) {
        const ApiField* field = described->FindField(entry.key);
        entries.push_back(MapEntry{entry.key, field != nullptr
                                                  ? Named(entry.value, field->type, depth + 1)
                                                  : entry.value});
      }
      return Value::MakeMap(std::move(entries));
    }
    default:
      return value;
  }
}

}  // namespace kav::host
