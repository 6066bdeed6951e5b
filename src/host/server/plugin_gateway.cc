#include "host/server/plugin_gateway.h"

#include <algorithm>
#include <cctype>
#include <set>

#include "host/openapi.h"
#include "host/scenario_host.h"

namespace kav::host {
namespace {

std::string_view PathOf(std::string_view target) {
  return target.substr(0, target.find('?'));
}

std::string Lower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower;
}

// Headers that the HTTP layer adds or that authenticate with the host.
bool IsHostOnlyHeader(std::string_view lower_name) {
  return lower_name == "authorization" || lower_name == "cookie" || lower_name == "remote_addr" ||
         lower_name == "remote_port" || lower_name == "local_addr" || lower_name == "local_port";
}

const char* UpperMethod(uint32_t method) {
  return MethodName(method);
}

}  // namespace

uint64_t MonotonicMillis() {
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                   std::chrono::steady_clock::now().time_since_epoch())
                                   .count());
}

PluginGateway::PluginGateway(PluginWorker& worker, std::chrono::milliseconds call_timeout)
    : worker_(worker), call_timeout_(call_timeout) {}

bool PluginGateway::Serves(std::string_view path) const {
  for (const ApiResource& resource : worker_.description().resources()) {
    const std::string& path_template =
        resource.path_template.empty() ? resource.name : resource.path_template;
    if (MatchesPathTemplate(path_template, path)) return true;
  }
  return false;
}

std::string PluginGateway::AllowedMethods(std::string_view path) const {
  std::set<uint32_t> methods;
  for (const ApiResource& resource : worker_.description().resources()) {
    const std::string& path_template =
        resource.path_template.empty() ? resource.name : resource.path_template;
    if (!MatchesPathTemplate(path_template, path)) continue;
    if (resource.method == 0) {
      for (uint32_t code = KAV_METHOD_DELETE; code <= KAV_METHOD_PUT; ++code) methods.insert(code);
    } else if (*OpenApiMethod(resource.method) != '\0') {
      methods.insert(resource.method);
    }
  }
  if (methods.count(KAV_METHOD_GET) != 0) methods.insert(KAV_METHOD_HEAD);
  std::string allowed;
  for (uint32_t method : methods) {
    if (!allowed.empty()) allowed += ", ";
    allowed += UpperMethod(method);
  }
  return allowed;
}

HttpAnswer PluginGateway::Call(const IncomingRequest& request) {
  const std::string_view path = PathOf(request.target);
  // HEAD asks what GET would answer.
  const std::string method = request.method == "HEAD" ? std::string("GET") : request.method;
  bool method_served = false;
  for (const ApiResource& resource : worker_.description().resources()) {
    const std::string& path_template =
        resource.path_template.empty() ? resource.name : resource.path_template;
    if (!MatchesPathTemplate(path_template, path)) continue;
    if (resource.method == 0 || UpperMethod(resource.method) == method) method_served = true;
  }
  if (!method_served) {
    HttpAnswer answer =
        HttpAnswer::Error(405, "Method " + request.method + " is not served at " +
                                   std::string(path) + "; allowed: " + AllowedMethods(path));
    answer.headers.emplace_back("Allow", AllowedMethods(path));
    return answer;
  }

  std::vector<std::pair<std::string, std::string>> headers;
  headers.reserve(request.headers.size());
  for (const auto& [name, value] : request.headers) {
    std::string lower = Lower(name);
    if (!IsHostOnlyHeader(lower)) headers.emplace_back(std::move(lower), value);
  }

  CallOutcome outcome;
  const PluginWorker::RunResult result = worker_.Run(
      PluginWorker::TaskKind::kCall,
      [&](ScenarioHost& host) {
        outcome = host.Call(method, request.target, request.body, request.content_type,
                            std::move(headers));
      },
      call_timeout_);

  HttpAnswer answer;
  switch (result) {
    case PluginWorker::RunResult::kDone:
      break;
    case PluginWorker::RunResult::kTimedOut:
      answer = HttpAnswer::Error(504, "The plugin did not take the call within " +
                                          std::to_string(call_timeout_.count()) + " ms");
      break;
    case PluginWorker::RunResult::kBusy:
      answer = HttpAnswer::Error(503, "Too many calls are waiting for the plugin");
      break;
    case PluginWorker::RunResult::kStopped:
      answer = HttpAnswer::Error(503, "The host is stopping");
      break;
  }
  if (result == PluginWorker::RunResult::kDone) {
    if (!outcome.reached_plugin) {
      answer = HttpAnswer::Error(503, outcome.error.value_or("the plugin is not loaded"));
    } else if (outcome.error.has_value()) {
      const int status =
          outcome.status >= 400 && outcome.status <= 599 ? static_cast<int>(outcome.status) : 400;
      answer = HttpAnswer::Error(status, *outcome.error);
    } else {
      const int status =
          outcome.status >= 200 && outcome.status <= 599 ? static_cast<int>(outcome.status) : 200;
      answer = HttpAnswer::Json(status, std::move(outcome.body_json));
      answer.chunked = outcome.streamed;
    }
  }
  answer.headers.emplace_back(std::string(kMonotonicHeader), std::to_string(MonotonicMillis()));
  return answer;
}

}  // namespace kav::host
