#include "host/server/host_control.h"

#include <type_traits>
#include <utility>
#include <variant>

#include "host/scenario_document.h"
#include "host/scenario_writing.h"
#include "host/server/plugin_gateway.h"
#include "host/server/request_guard.h"

namespace kav::host {
namespace {

template <class T>
constexpr const char* ChangeName() {
  if constexpr (std::is_same_v<T, SetQueues>)
    return "setQueues";
  else if constexpr (std::is_same_v<T, DeleteSession>)
    return "deleteSession";
  else if constexpr (std::is_same_v<T, SetSession>)
    return "setSession";
  else if constexpr (std::is_same_v<T, SetPracticeGameEnabled>)
    return "setPracticeGameEnabled";
  else if constexpr (std::is_same_v<T, SetGateKeeperEnabled>)
    return "setGateKeeperEnabled";
  else if constexpr (std::is_same_v<T, SetSummonerLevel>)
    return "setSummonerLevel";
  else if constexpr (std::is_same_v<T, SetChampionCounts>)
    return "setChampionCounts";
  else if constexpr (std::is_same_v<T, SetPeerResource>)
    return "setResource";
  else if constexpr (std::is_same_v<T, DeletePeerResource>)
    return "deleteResource";
  else if constexpr (std::is_same_v<T, SetGatekeeper>)
    return "setGatekeeper";
  else if constexpr (std::is_same_v<T, AddFault>)
    return "addFault";
  else if constexpr (std::is_same_v<T, ClearFaults>)
    return "clearFaults";
  else
    static_assert(!sizeof(T), "a scenario change without a name");
}

// The announcement of a change: its name, and the path for resource changes.
std::string ChangeJson(const ScenarioAction& action) {
  std::string json = "{\"change\":\"" + std::string(ScenarioChangeName(action)) + "\"";
  if (const auto* set = std::get_if<SetPeerResource>(&action)) {
    json += ",\"path\":" + Value::String(set->path).ToJson() + ",\"value\":" + set->value.ToJson();
  } else if (const auto* remove = std::get_if<DeletePeerResource>(&action)) {
    json += ",\"path\":" + Value::String(remove->path).ToJson();
  } else if (const auto* gatekeeper = std::get_if<SetGatekeeper>(&action)) {
    json += ",\"value\":" + GatekeeperToValue(gatekeeper->gatekeeper).ToJson();
  } else if (const auto* fault = std::get_if<AddFault>(&action)) {
    json += ",\"value\":" + FaultToValue(fault->fault).ToJson();
  }
  return json + "}";
}

// The body's reading failure, or nothing when it may be read.
std::optional<HttpAnswer> RefuseBody(const std::string& body) {
  if (body.empty()) return HttpAnswer::Error(400, "This operation needs a JSON body");
  if (JsonNestingDepth(body, kMaxBodyNesting) > kMaxBodyNesting) {
    return HttpAnswer::Error(
        400, "The body nests deeper than " + std::to_string(kMaxBodyNesting) + " levels");
  }
  return std::nullopt;
}

HttpAnswer ActionOrError(ScenarioActionResult parsed) {
  HttpAnswer error = HttpAnswer::Error(400, parsed.error);
  return error;
}

}  // namespace

const char* ScenarioChangeName(const ScenarioAction& action) {
  return std::visit([](const auto& change) { return ChangeName<std::decay_t<decltype(change)>>(); },
                    action);
}

HostControl::HostControl(PluginWorker& worker, EventHub& hub, std::chrono::milliseconds timeout)
    : worker_(worker), hub_(hub), timeout_(timeout) {}

HttpAnswer HostControl::Handle(std::string_view method, std::string_view path,
                               const std::string& body) {
  const std::string_view what = path.substr(kHostPrefix.size());
  auto not_allowed = [&](const char* allowed) {
    HttpAnswer answer =
        HttpAnswer::Error(405, "Method " + std::string(method) + " is not served at " +
                                   std::string(path) + "; allowed: " + allowed);
    answer.headers.emplace_back("Allow", allowed);
    return answer;
  };
  auto parse = [&](std::string_view change) -> std::variant<ScenarioAction, HttpAnswer> {
    if (auto refused = RefuseBody(body)) return *refused;
    ScenarioActionResult parsed =
        change.empty() ? ParseScenarioAction(body, ScenarioFormat::kJson, "body")
                       : ParseScenarioAction(change, body, ScenarioFormat::kJson, "body");
    if (!parsed.ok()) return ActionOrError(std::move(parsed));
    return std::move(*parsed.action);
  };
  auto apply_parsed = [&](std::string_view change) {
    auto parsed = parse(change);
    if (auto* answer = std::get_if<HttpAnswer>(&parsed)) return std::move(*answer);
    return Apply(std::move(std::get<ScenarioAction>(parsed)));
  };

  if (what == "state") {
    if (method != "GET" && method != "HEAD") return not_allowed("GET, HEAD");
    return State();
  }
  if (what == "gatekeeper") {
    if (method == "GET" || method == "HEAD") {
      return Read("gatekeeper", [](ScenarioHost& host) {
        return GatekeeperToValue(host.peers().state().gatekeeper).ToJson();
      });
    }
    if (method == "PUT") return apply_parsed("setGatekeeper");
    return not_allowed("GET, HEAD, PUT");
  }
  if (what == "faults") {
    if (method == "GET" || method == "HEAD") {
      return Read("faults", [](ScenarioHost& host) {
        Value::Array faults;
        for (const Fault& fault : host.peers().state().faults)
          faults.push_back(FaultToValue(fault));
        return Value::MakeArray(std::move(faults)).ToJson();
      });
    }
    if (method == "POST") return apply_parsed("addFault");
    if (method == "DELETE") return Apply(ClearFaults{});
    return not_allowed("GET, HEAD, POST, DELETE");
  }
  if (what == "changes") {
    if (method == "POST") return apply_parsed("");
    return not_allowed("POST");
  }
  if (what.starts_with("resources/")) {
    const std::string resource_path(what.substr(std::string_view("resources").size()));
    if (resource_path.size() < 2)
      return HttpAnswer::Error(404, "Name a resource: /_host/resources/PATH");
    if (method == "GET" || method == "HEAD") {
      std::optional<std::string> value;
      const PluginWorker::RunResult result = worker_.Run(
          PluginWorker::TaskKind::kHostWork,
          [&](ScenarioHost& host) {
            if (auto found = host.peers().ResourceValue(resource_path)) value = found->ToJson();
          },
          timeout_);
      if (result != PluginWorker::RunResult::kDone) return Failed(result);
      if (!value.has_value()) {
        return HttpAnswer::Error(404, "No peer resource answers " + resource_path);
      }
      return HttpAnswer::Json(200, std::move(*value));
    }
    if (method == "PUT") {
      if (auto refused = RefuseBody(body)) return *refused;
      DocumentError error;
      std::optional<DocumentNode> document = ReadJsonDocument(body, &error);
      if (!document.has_value()) return HttpAnswer::Error(400, "body:" + error.ToString());
      return Apply(SetPeerResource{resource_path, document->ToValue()});
    }
    if (method == "DELETE") return Apply(DeletePeerResource{resource_path});
    return not_allowed("GET, HEAD, PUT, DELETE");
  }
  return HttpAnswer::Error(404, "No host operation at " + std::string(path));
}

HttpAnswer HostControl::Failed(PluginWorker::RunResult result) const {
  if (result == PluginWorker::RunResult::kBusy) {
    return HttpAnswer::Error(503, "Too much work is waiting for the plugin thread");
  }
  if (result == PluginWorker::RunResult::kTimedOut) {
    return HttpAnswer::Error(504, "The plugin thread did not take the work within " +
                                      std::to_string(timeout_.count()) + " ms");
  }
  return HttpAnswer::Error(503, "The host is stopping");
}

HttpAnswer HostControl::Apply(ScenarioAction action) {
  const std::string announcement = ChangeJson(action);
  const PluginWorker::RunResult result = worker_.Run(
      PluginWorker::TaskKind::kHostWork,
      [&](ScenarioHost& host) {
        hub_.Publish("scenario", announcement);
        host.Apply(action);
      },
      timeout_);
  if (result != PluginWorker::RunResult::kDone) return Failed(result);
  return HttpAnswer::Json(200, announcement);
}

HttpAnswer HostControl::Read(std::string_view, std::function<std::string(ScenarioHost&)> read) {
  std::string json;
  const PluginWorker::RunResult result = worker_.Run(
      PluginWorker::TaskKind::kHostWork, [&](ScenarioHost& host) { json = read(host); }, timeout_);
  if (result != PluginWorker::RunResult::kDone) return Failed(result);
  return HttpAnswer::Json(200, std::move(json));
}

HttpAnswer HostControl::State() {
  std::string json;
  const PluginWorker::RunResult result = worker_.Run(
      PluginWorker::TaskKind::kHostWork,
      [&](ScenarioHost& host) {
        const Peers& peers = host.peers();
        Value::Array resources;
        for (const std::string& path : peers.ResourcePaths()) {
          std::optional<Value> value = peers.ResourceValue(path);
          resources.push_back(
              Value::MakeMap({{"path", Value::String(path)}, {"value", value.value_or(Value())}}));
        }
        Value::Array faults;
        for (const Fault& fault : peers.state().faults) faults.push_back(FaultToValue(fault));
        const std::optional<uint64_t> self = peers.CurrentSummonerId();
        const MemoryStatisticsWords memory = host.host().GetMemoryStatistics();
        json = Value::MakeMap(
                   {
                       {"plugin",
                        Value::MakeMap(
                            {{"name", Value::String(worker_.plugin_name())},
                             {"version", Value::String(worker_.plugin_version().ToString())}})},
                       {"scenario", Value::String(peers.state().name)},
                       {"currentSummoner", self.has_value() ? Value::Unsigned(*self) : Value()},
                       {"monotonicMillis", Value::Unsigned(MonotonicMillis())},
                       {"calls", Value::Unsigned(host.calls_made())},
                       {"gatekeeperQueries", Value::Unsigned(worker_.gatekeeper_queries() +
                                                             host.gatekeeper_queries().size())},
                       {"pendingProxyAnswers", Value::Unsigned(peers.pending_answers())},
                       {"pluginMemory",
                        Value::MakeMap(
                            {{"bytesInUse", Value::Unsigned(memory.BytesInUse())},
                             {"allocations", Value::Unsigned(memory.allocations())},
                             {"frees", Value::Unsigned(memory.frees())},
                             {"peakBytesInUse", Value::Unsigned(memory.peak_bytes_in_use())}})},
                       {"resources", Value::MakeArray(std::move(resources))},
                       {"gatekeeper", GatekeeperToValue(peers.state().gatekeeper)},
                       {"faults", Value::MakeArray(std::move(faults))},
                   })
                   .ToJson();
      },
      timeout_);
  if (result != PluginWorker::RunResult::kDone) return Failed(result);
  return HttpAnswer::Json(200, std::move(json));
}

}  // namespace kav::host
