// ScenarioHost: a ReferenceHost whose plugin lives among the peers of a
// Scenario, driven call by call the way the kav-host command and end-to-end
// tests drive it:
//
//   ScenarioHost host(DemoScenario());
//   if (!host.Load()) FAIL() << host.error();
//   CallOutcome r = host.Call("GET",
//       "/kav-queue-eligibility/v3/eligibility?summonerIds=[1001]&queueIds=[420]");
//   // r.status, r.error, r.body_json; host.gatekeeper_queries(), ...
//
// Each Call is one call of the main job: the scenario's steps scheduled
// before it are applied first (publishing their resource events), then the
// call goes to the plugin's resource-table entry whose method and path
// template match.
//
// Ownership: owns its Peers and its ReferenceHost (which owns the plugin's
// module); destroying the ScenarioHost destroys a live module first.
//
// Thread-safety: not thread-safe; one thread drives it.
#ifndef KAV_HOST_SCENARIO_HOST_H_
#define KAV_HOST_SCENARIO_HOST_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/api_description.h"
#include "host/host_value.h"
#include "host/peers.h"
#include "host/reference_host.h"
#include "host/scenario.h"

namespace kav::host {

// The plugin's answer to one call.
struct CallOutcome {
  bool reached_plugin = true;        // false: no entry matched, or no plugin is loaded
  uint32_t status = 0;               // as the plugin wrote it
  std::optional<std::string> error;  // the plugin's (or the host's) error text
  // The answer, with enumerators written by the names that the plugin's API
  // description gives them; a streamed answer is read as JSON.
  Value body;
  Value raw_body;         // the answer as the plugin wrote it
  std::string body_json;  // `body` as compact JSON; "" on error
  bool streamed = false;  // the plugin answered with a body stream

  bool ok() const { return !error.has_value(); }
  // As kav-host prints it: indented JSON, or "error <status>: <text>".
  std::string ToText() const;
};

// Whether `path` (without a query) matches a resource-table path template,
// where "{name}" stands for one path segment (possibly empty) and "{+name}"
// for the rest of the path.
bool MatchesPathTemplate(std::string_view path_template, std::string_view path);

// The method code of "GET", "POST", ... (7 names); 8 (custom) for others.
uint32_t MethodCode(std::string_view method);

class ScenarioHost {
 public:
  explicit ScenarioHost(Scenario scenario = DemoScenario(),
                        std::string plugin_path = KAV_DEFAULT_PLUGIN_PATH);
  ScenarioHost(const ScenarioHost&) = delete;
  ScenarioHost& operator=(const ScenarioHost&) = delete;

  // Loads the plugin, reads its API description and initializes it (its
  // observations read the peers at once). False when either fails; error()
  // says why.
  [[nodiscard]] bool Load(ApiVersion core_version = kDefaultCoreVersion,
                          uint32_t plugin_handle = 1);
  // One call of the main job. `url` may carry "?query". A body is sent with
  // `content_type`.
  CallOutcome Call(std::string_view method, std::string_view url,
                   std::optional<std::string> body = std::nullopt,
                   std::string_view content_type = "application/json");
  // The same with request headers (name, value), handed to the plugin in
  // the order given.
  CallOutcome Call(std::string_view method, std::string_view url, std::optional<std::string> body,
                   std::string_view content_type,
                   std::vector<std::pair<std::string, std::string>> headers);
  // Changes the peers' state now, as a scenario step would.
  void Apply(const ScenarioAction& action) { peers_.Apply(action); }
  // Destroys the plugin's module. REQUIRES: loaded.
  void Destroy() { host_.Destroy(); }

  const std::string& error() const { return error_; }
  bool loaded() const { return host_.loaded(); }
  ReferenceHost& host() { return host_; }
  Peers& peers() { return peers_; }
  // What the plugin described at registration; empty before Load.
  const ApiDescription& description() const { return description_; }
  size_t calls_made() const { return calls_made_; }

  // ---- What happened ---------------------------------------------------------
  const std::vector<GatekeeperQuery>& gatekeeper_queries() const {
    return peers_.gatekeeper_queries();
  }
  // The URLs that the plugin requested, in order.
  std::vector<std::string> requested_urls() const;
  // Events that the plugin published.
  const std::vector<PublishedEvent>& published_events() const { return host_.published_events(); }
  // Events that the peers delivered to the plugin.
  const std::vector<PeerEvent>& peer_events() const { return peers_.delivered_events(); }
  const std::vector<LogLine>& log_lines() const { return host_.log_lines(); }
  size_t yield_count() const { return host_.CountCalls(HostFunction::kYield); }
  size_t wait_count() const { return host_.CountCalls(HostFunction::kBeginWait); }

 private:
  const KavResourceEntry* FindEntry(uint32_t method, std::string_view method_text,
                                    std::string_view path) const;

  std::vector<ScenarioStep> steps_;
  Peers peers_;  // before host_: the host calls into the peers until it is gone
  ReferenceHost host_;
  ApiDescription description_;
  size_t calls_made_ = 0;
  std::string error_;
};

}  // namespace kav::host

#endif  // KAV_HOST_SCENARIO_HOST_H_
