#include "host/server/host_events.h"

#include <utility>

#include "host/scenario_host.h"

namespace kav::host {
namespace {

constexpr std::string_view kResourceEventPrefix = "OnJsonApiEvent";

const ApiEvent* FindEvent(const ApiDescription& description, std::string_view name) {
  for (const ApiEvent& event : description.events()) {
    if (event.name == name) return &event;
  }
  return nullptr;
}

Value NamePayload(const PublishedEvent& event, const ApiDescription& description) {
  Value payload = event.payload;
  const ApiEvent* described = FindEvent(description, event.name);
  if (described == nullptr && event.name.starts_with(kResourceEventPrefix)) {
    described = FindEvent(description, kResourceEventPrefix);
  }
  if (described != nullptr && !described->type_name.empty()) {
    const ApiType* type = description.FindType(described->type_name);
    const uint32_t kind = type != nullptr && type->IsEnumeration()
                              ? static_cast<uint32_t>(ApiKind::kEnum)
                              : static_cast<uint32_t>(ApiKind::kStruct);
    payload = description.NameEnumerators(payload, ApiTypeRef{kind, 0, described->type_name});
  }
  // A change of one of the plugin's own resources: its data is that
  // resource's answer.
  const Value* uri = payload.Find("uri");
  if (uri == nullptr || uri->kind() != Value::Kind::kString || payload.Find("data") == nullptr) {
    return payload;
  }
  for (const ApiResource& resource : description.resources()) {
    if (resource.method != 0 && resource.method != KAV_METHOD_GET) continue;
    if (!MatchesPathTemplate(resource.path_template, uri->AsString())) continue;
    Value::Map entries = payload.AsMap();
    for (MapEntry& entry : entries) {
      if (entry.key == "data")
        entry.value = description.NameEnumerators(entry.value, resource.result);
    }
    return Value::MakeMap(std::move(entries));
  }
  return payload;
}

const char* LevelName(int32_t level) {
  switch (level) {
    case 0:
      return "OKAY";
    case 1:
      return "WARN";
    case 2:
      return "ERROR";
    case 3:
      return "ALWAYS";
    default:
      return "";
  }
}

}  // namespace

std::string PublishedEventJson(const PublishedEvent& event, const ApiDescription& description) {
  return Value::MakeMap(
             {{"name", Value::String(event.name)}, {"payload", NamePayload(event, description)}})
      .ToJson();
}

std::string LogLineJson(const LogLine& line) {
  return Value::MakeMap({{"level", Value::Signed(line.level)},
                         {"levelName", Value::String(LevelName(line.level))},
                         {"text", Value::String(line.text)}})
      .ToJson();
}

}  // namespace kav::host
