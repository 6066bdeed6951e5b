#include "binding/host_api_description.h"

#include <cstring>
#include <memory>

namespace kav {
namespace {

const char kEmptyText[] = "";

uint32_t KindCode(TypeKind kind) {
  uint32_t code = static_cast<uint32_t>(kind);
  return code >= 1 && code <= 19 ? code : 0;
}

// The type specification the host is to see.
const TypeSpecification& Described(const TypeSpecification& type,
                                   const TypeSpecification& host_type) {
  return host_type.kind != TypeKind::kNone ? host_type : type;
}

const char* TypeNameOf(const TypeSpecification& type) {
  switch (type.kind) {
    case TypeKind::kVector:
    case TypeKind::kEnum:
    case TypeKind::kStruct:
    case TypeKind::kMap:
      return type.type != nullptr ? type.type->name.c_str() : kEmptyText;
    default:
      return kEmptyText;
  }
}

void FillTags(std::vector<const char*>& texts, const std::vector<std::string>& tags) {
  texts.clear();
  texts.reserve(tags.size());
  for (const std::string& tag : tags) texts.push_back(tag.c_str());
}

template <class T>
const T* DataOrNull(const std::vector<T>& records) {
  return records.empty() ? nullptr : records.data();
}

// Links each record to the following one; the last gets 0.
template <class T>
void Link(std::vector<T>& records) {
  for (size_t i = 0; i < records.size(); ++i) {
    records[i].next = i + 1 < records.size() ? &records[i + 1] : nullptr;
  }
}

}  // namespace

HostApiDescription HostApiDescriptionBuilder::Build(
    std::span<const FunctionDescription* const> functions,
    std::span<const TypeDescription* const> types,
    std::span<const EventDescription* const> events) {
  functions_.assign(functions.size(), KavApiFunction{});
  parameters_.assign(functions.size(), {});
  function_tags_.assign(functions.size(), {});
  types_.assign(types.size(), KavApiType{});
  fields_.assign(types.size(), {});
  enumerators_.assign(types.size(), {});
  type_tags_.assign(types.size(), {});
  events_.assign(events.size(), KavApiEvent{});
  event_tags_.assign(events.size(), {});

  for (size_t i = 0; i < functions.size(); ++i) FillFunction(i, *functions[i]);
  for (size_t i = 0; i < types.size(); ++i) FillType(i, *types[i]);
  for (size_t i = 0; i < events.size(); ++i) FillEvent(i, *events[i]);
  Link(functions_);
  Link(types_);
  Link(events_);

  HostApiDescription description{};
  description.functions = DataOrNull(functions_);
  description.function_count = static_cast<uint32_t>(functions_.size());
  description.types = DataOrNull(types_);
  description.type_count = static_cast<uint32_t>(types_.size());
  description.events = DataOrNull(events_);
  description.event_count = static_cast<uint32_t>(events_.size());
  return description;
}

const KavApiFunction* HostApiDescriptionBuilder::FindFunction(std::string_view name) const {
  for (const KavApiFunction& function : functions_) {
    if (function.name == name) return &function;
  }
  return nullptr;
}

void HostApiDescriptionBuilder::FillFunction(size_t index, const FunctionDescription& function) {
  std::vector<KavApiParameter>& parameters = parameters_[index];
  parameters.assign(function.parameters.size(), KavApiParameter{});
  for (size_t i = 0; i < parameters.size(); ++i) {
    const ParameterDescription& source = function.parameters[i];
    const TypeSpecification& type = Described(source.type, source.hostType);
    KavApiParameter& record = parameters[i];
    record.name = source.name.c_str();
    record.description = source.description.c_str();
    record.kind = KindCode(type.kind);
    record.element_kind = KindCode(type.elementKind);
    record.type_name = TypeNameOf(type);
    record.optional = source.optional ? 1 : 0;
  }
  Link(parameters);
  FillTags(function_tags_[index], function.tags);

  const TypeSpecification& result = Described(function.result, function.hostResult);
  KavApiFunction& record = functions_[index];
  record.name = function.name.c_str();
  record.name_space = function.nameSpace.c_str();
  record.parameters = DataOrNull(parameters);
  record.parameter_count = static_cast<uint32_t>(parameters.size());
  record.result_kind = KindCode(result.kind);
  record.result_element_kind = KindCode(result.elementKind);
  record.result_type_name = TypeNameOf(result);
  record.description = function.description.c_str();
  record.help = function.help.c_str();
  record.thread_safe = function.threadSafe ? 1 : 0;
  record.async_type_name = function.async && function.result.type != nullptr
                               ? function.result.type->name.c_str()
                               : kEmptyText;
  record.tags = DataOrNull(function_tags_[index]);
  record.tag_count = static_cast<uint32_t>(function_tags_[index].size());
}

void HostApiDescriptionBuilder::FillType(size_t index, const TypeDescription& type) {
  std::vector<KavApiField>& fields = fields_[index];
  std::vector<KavApiEnumerator>& enumerators = enumerators_[index];
  if (!type.fields.empty()) {
    fields.assign(type.fields.size(), KavApiField{});
    for (size_t i = 0; i < fields.size(); ++i) {
      const FieldDescriptor& source = type.fields[i];
      const TypeSpecification& spec = Described(source.type, source.hostType);
      KavApiField& record = fields[i];
      record.name = source.name.c_str();
      record.description = source.description.c_str();
      record.offset = source.offset;
      record.kind = KindCode(spec.kind);
      record.element_kind = KindCode(spec.elementKind);
      record.type_name = TypeNameOf(spec);
      record.optional = source.optional ? 1 : 0;
    }
    Link(fields);
  } else {
    enumerators.reserve(type.values.size());
    for (const auto& [name, value] : type.values) {
      KavApiEnumerator& record = enumerators.emplace_back();
      record.name = value.name.c_str();
      record.description = value.description.c_str();
      record.value = value.value;
    }
    Link(enumerators);
  }
  FillTags(type_tags_[index], type.tags);

  KavApiType& record = types_[index];
  record.name = type.name.c_str();
  record.name_space = type.nameSpace.c_str();
  record.size = type.size;
  record.description = type.description.c_str();
  record.tags = DataOrNull(type_tags_[index]);
  record.tag_count = static_cast<uint32_t>(type_tags_[index].size());
  record.fields = DataOrNull(fields);
  record.enumerators = fields.empty() ? DataOrNull(enumerators) : nullptr;
  record.member_count = static_cast<uint32_t>(fields.empty() ? enumerators.size() : fields.size());
}

void HostApiDescriptionBuilder::FillEvent(size_t index, const EventDescription& event) {
  FillTags(event_tags_[index], event.tags);
  KavApiEvent& record = events_[index];
  record.name = event.name.c_str();
  record.name_space = event.nameSpace.c_str();
  record.type_name = event.type != nullptr ? event.type->name.c_str() : kEmptyText;
  record.description = event.description.c_str();
  record.tags = DataOrNull(event_tags_[index]);
  record.tag_count = static_cast<uint32_t>(event_tags_[index].size());
}

HostApiDescription BuildHostApiDescription(TypeRegistry& registry) {
  std::shared_ptr<HostApiDescriptionBuilder>& slot = registry.HostApiDescriptionSlot();
  if (!slot) slot = std::make_shared<HostApiDescriptionBuilder>();
  std::vector<const FunctionDescription*> functions = registry.Functions();
  std::vector<const TypeDescription*> types = registry.Types();
  std::vector<const EventDescription*> events = registry.Events();
  return slot->Build(functions, types, events);
}

}  // namespace kav
