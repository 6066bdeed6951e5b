#include "host/scenario_host.h"

#include <utility>

#include "host/json_value.h"

namespace kav::host {

std::string CallOutcome::ToText() const {
  if (error.has_value()) return "error " + std::to_string(status) + ": " + *error;
  return ToIndentedJson(body);
}

bool MatchesPathTemplate(std::string_view path_template, std::string_view path) {
  size_t t = 0;
  size_t p = 0;
  while (t < path_template.size()) {
    if (path_template[t] != '{') {
      if (p == path.size() || path[p] != path_template[t]) return false;
      ++t;
      ++p;
      continue;
    }
    const size_t close = path_template.find('}', t);
    if (close == std::string_view::npos) return false;
    const bool rest = close > t + 1 && path_template[t + 1] == '+';
    t = close + 1;
    if (rest) {
      p = path.size();
    } else {
      while (p < path.size() && path[p] != '/') ++p;
    }
  }
  return p == path.size();
}

uint32_t MethodCode(std::string_view method) {
  for (uint32_t code = KAV_METHOD_DELETE; code <= KAV_METHOD_PUT; ++code) {
    if (method == MethodName(code)) return code;
  }
  return KAV_METHOD_CUSTOM;
}

ScenarioHost::ScenarioHost(Scenario scenario, std::string plugin_path)
    : steps_(scenario.steps), peers_(std::move(scenario)), host_(std::move(plugin_path)) {
  peers_.Attach(host_);
}

bool ScenarioHost::Load(ApiVersion core_version, uint32_t plugin_handle) {
  error_.clear();
  if (!host_.Load(core_version)) {
    error_ = host_.error();
    return false;
  }
  description_ = ApiDescription::Read(host_.resource_table());
  if (!host_.Initialize(plugin_handle)) {
    error_ = "the plugin's Initialize returned false";
    return false;
  }
  return true;
}

const KavResourceEntry* ScenarioHost::FindEntry(uint32_t method, std::string_view method_text,
                                                std::string_view path) const {
  for (const KavResourceEntry& entry : host_.resource_entries()) {
    const uint32_t entry_method = entry.method;
    if (entry_method != 0 && entry_method != method) continue;
    if (entry_method == KAV_METHOD_CUSTOM) {
      const char* custom = entry.custom_method;
      if (custom == nullptr || method_text != custom) continue;
    }
    const char* path_template = entry.path_template;
    if (path_template == nullptr || path_template[0] == '\0') path_template = entry.name;
    if (path_template != nullptr && MatchesPathTemplate(path_template, path)) return &entry;
  }
  return nullptr;
}

CallOutcome ScenarioHost::Call(std::string_view method, std::string_view url,
                               std::optional<std::string> body, std::string_view content_type) {
  return Call(method, url, std::move(body), content_type, {});
}

CallOutcome ScenarioHost::Call(std::string_view method, std::string_view url,
                               std::optional<std::string> body, std::string_view content_type,
                               std::vector<std::pair<std::string, std::string>> headers) {
  ++calls_made_;
  for (const ScenarioStep& step : steps_) {
    if (step.before_call == calls_made_) peers_.Apply(step.action);
  }
  CallOutcome outcome;
  const uint32_t method_code = MethodCode(method);
  const std::string_view path = url.substr(0, url.find('?'));
  const KavResourceEntry* entry = host_.loaded() ? FindEntry(method_code, method, path) : nullptr;
  if (entry == nullptr) {
    outcome.reached_plugin = false;
    outcome.status = 404;
    outcome.error = host_.loaded() ? "no resource of the plugin matches " + std::string(method) +
                                         " " + std::string(path)
                                   : "the plugin is not loaded";
    return outcome;
  }

  PluginCall call;
  call.method = method_code;
  call.url = std::string(url);
  if (method_code == KAV_METHOD_CUSTOM) call.custom_method = std::string(method);
  call.headers = std::move(headers);
  if (body.has_value()) {
    call.body = std::move(body);
    call.content_type = std::string(content_type);
  }
  PluginResponse response = host_.CallPlugin(*entry, call);
  outcome.status = response.status;
  if (response.error.has_value()) {
    outcome.error = std::move(response.error);
    return outcome;
  }
  outcome.streamed = response.streamed;
  if (response.streamed) {
    std::optional<Value> streamed = ParseJson(response.streamed_body);
    outcome.raw_body = streamed.has_value() ? std::move(*streamed)
                                            : Value::String(std::move(response.streamed_body));
  } else {
    outcome.raw_body = std::move(response.body);
  }
  const ApiResource* resource = description_.FindResource(entry);
  outcome.body = resource != nullptr
                     ? description_.NameEnumerators(outcome.raw_body, resource->result)
                     : outcome.raw_body;
  outcome.body_json = outcome.body.ToJson();
  return outcome;
}

std::vector<std::string> ScenarioHost::requested_urls() const {
  std::vector<std::string> urls;
  for (const RecordedRequest& request : host_.requests()) urls.push_back(request.url);
  return urls;
}

}  // namespace kav::host
