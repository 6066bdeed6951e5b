#include "routing/resource_table.h"

#include <cstdint>

#include "binding/host_api_description.h"
#include "binding/type_registry.h"
#include "routing/dispatch.h"

namespace kav {

ResourceTable::ResourceTable(TypeRegistry& registry, std::span<Endpoint* const> endpoints,
                             EndpointBindings& bindings) {
  HostApiDescription description = BuildHostApiDescription(registry);
  const HostApiDescriptionBuilder& records = *registry.HostApiDescriptionSlot();

  // Reserved up front: entries point into these vectors.
  entries_.reserve(endpoints.size());
  locations_.reserve(endpoints.size());
  text_lists_.reserve(endpoints.size());
  texts_.reserve(endpoints.size());

  for (Endpoint* endpoint : endpoints) {
    const FunctionDescription& function = *endpoint->function;
    // An endpoint whose function was replaced in the index is not served.
    if (registry.FindFunction(function.name) != &function) continue;
    const KavApiFunction* record = records.FindFunction(function.name);
    if (record == nullptr) continue;

    std::vector<KavParameterLocation>& locations = locations_.emplace_back();
    for (ParameterLocation location : endpoint->locations) {
      uint32_t code = static_cast<uint32_t>(location);
      locations.push_back(KavParameterLocation{0, code >= 1 && code <= 5 ? code : 0});
    }
    std::vector<std::vector<const char*>>& texts = texts_.emplace_back();
    std::vector<KavTextList>& text_lists = text_lists_.emplace_back();
    texts.reserve(endpoint->textLists.size());
    for (const std::vector<std::string>& list : endpoint->textLists) {
      std::vector<const char*>& pointers = texts.emplace_back();
      for (const std::string& text : list) pointers.push_back(text.c_str());
      text_lists.push_back(KavTextList{0, pointers.empty() ? nullptr : pointers.data(),
                                       static_cast<uint32_t>(pointers.size())});
    }

    std::unique_ptr<EndpointBinding>& binding = bindings[function.name];
    if (!binding) binding = std::make_unique<EndpointBinding>();
    binding->registry = &registry;
    binding->endpoint = endpoint;
    binding->route = std::make_shared<const Route>(*endpoint);

    KavResourceEntry& entry = entries_.emplace_back();
    entry = KavResourceEntry{};
    entry.user_data = binding.get();
    entry.name = record->name;
    entry.name_space = record->name_space;
    entry.parameters = record->parameters;
    entry.parameter_count = record->parameter_count;
    entry.result_kind = record->result_kind;
    entry.result_element_kind = record->result_element_kind;
    entry.result_type_name = record->result_type_name;
    entry.description = record->description;
    entry.help = record->help;
    entry.thread_safe = record->thread_safe;
    entry.async_type_name = record->async_type_name;
    entry.tags = record->tags;
    entry.tag_count = record->tag_count;
    entry.call = OnCall;
    entry.locations = locations.empty() ? nullptr : locations.data();
    entry.path_template = endpoint->pathTemplate.c_str();
    uint32_t method = static_cast<uint32_t>(endpoint->method);
    entry.method = method >= 1 && method <= 8 ? method : 0;
    entry.flags = endpoint->flags;
    entry.text_lists = text_lists.empty() ? nullptr : text_lists.data();
    entry.text_list_count = static_cast<uint32_t>(text_lists.size());
    entry.custom_method = endpoint->customMethod.c_str();
  }
  for (size_t i = 0; i < entries_.size(); ++i) {
    entries_[i].next = i + 1 < entries_.size() ? &entries_[i + 1] : nullptr;
  }

  table_.entries = entries_.empty() ? nullptr : entries_.data();
  table_.entry_count = static_cast<uint32_t>(entries_.size());
  table_.types = description.types;
  table_.type_count = description.type_count;
  table_.events = description.events;
  table_.event_count = description.event_count;
}

}  // namespace kav
