// Peers: the plugins and services around the plugin under test, simulated
// from a Scenario. Attached to a ReferenceHost, they answer every request
// for which the host has no programmed answer:
//  * the resources that the plugin reads (login session, platform switches,
//    game queues, summoners, champions, leagues, shutdown law), from the
//    scenario's current state; a resource that the state lacks answers 404;
//  * the login plugin's two service-proxy resources, whose answers arrive
//    later as "OnServiceProxyUuidEvent" / "OnServiceProxyMethodEvent" events,
//    during the POST or after a number of the plugin's yields, as the
//    scenario's gatekeeper section says;
//  * the gatekeeper service behind the proxy, which answers from the
//    scenario's restrictions and records every query;
//  * the scenario's faults, which take precedence over all of the above.
// Changes to the state (ScenarioAction) publish the matching resource events
// to the plugin's subscriptions.
//
// Ownership: Peers keeps a pointer to the attached host; the host keeps
// callbacks into the Peers. Both must outlive the plugin's use of the host,
// and the Peers must outlive the host's calls into them.
//
// Thread-safety: not thread-safe; used on the thread that drives the host.
#ifndef KAV_HOST_PEERS_H_
#define KAV_HOST_PEERS_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/host_value.h"
#include "host/reference_host.h"
#include "host/scenario.h"

namespace kav::host {

// Paths of the login plugin's service proxy.
inline constexpr std::string_view kServiceProxyUuidPath =
    "/kav-login/v1/service-proxy-uuid-requests";
inline constexpr std::string_view kServiceProxyMethodPath =
    "/kav-login/v1/service-proxy-method-requests";

enum class ResourceEventType : uint8_t { kCreate = 0, kUpdate = 1, kDelete = 2 };

// One call of the gatekeeper service, as the plugin sent it.
struct GatekeeperQuery {
  std::vector<int32_t> queue_ids;
  std::vector<uint64_t> summoner_ids;
  std::vector<std::string> excluded_reasons;
  std::string error;  // why the request payload was refused; empty when it was read
};

// An event that the peers delivered (or tried to) to the plugin.
struct PeerEvent {
  std::string name;
  Value payload;
  size_t callbacks = 0;  // subscribers that received it; 0 when nobody listened
};

// The event name that carries the changes of `uri` in full:
// "OnJsonApiEvent" and the path's pieces, joined by "_".
std::string ResourceEventName(std::string_view uri);
// Whether the subscription `event_name` receives the changes of `uri`: it is
// "OnJsonApiEvent", or the full name, or the full name cut after one of its
// pieces (the plugin subscribes to such shortened names).
bool EventNameCovers(std::string_view event_name, std::string_view uri);

class Peers {
 public:
  explicit Peers(Scenario scenario);
  Peers(const Peers&) = delete;
  Peers& operator=(const Peers&) = delete;

  // Answers the host's unprogrammed requests from now on (replaces the
  // host's fallback handler). Delayed answers wait for the host's yields
  // (ReferenceHost::ScheduleAtYield); the yield hook stays free.
  void Attach(ReferenceHost& host);

  // The answer to one request of the plugin.
  HostAnswer Answer(const RecordedRequest& request);

  // Changes the state and publishes the matching resource event.
  void Apply(const ScenarioAction& action);
  // Delivers {uri, eventType, data} to every subscription of the plugin that
  // covers `uri`; returns how many callbacks ran. REQUIRES: attached.
  size_t PublishResource(std::string_view uri, ResourceEventType type, const Value& data);

  // The value that the resource at `path` answers now; nothing when the
  // state has none (the request then gets 404).
  std::optional<Value> ResourceValue(std::string_view path) const;
  // The summoner of "/kav-summoner/v1/current-summoner", if any.
  std::optional<uint64_t> CurrentSummonerId() const;

  const Scenario& state() const { return state_; }
  const std::vector<GatekeeperQuery>& gatekeeper_queries() const { return gatekeeper_queries_; }
  const std::vector<PeerEvent>& delivered_events() const { return delivered_events_; }
  // Service-proxy answers waiting for a later yield.
  size_t pending_answers() const { return pending_answers_; }
  // Forgets the recorded gatekeeper queries and delivered events (a long
  // run of calls would otherwise keep them all); the state stays.
  void ClearRecords();

 private:
  struct ServiceAnswer {
    std::string payload;
    std::string status;
    std::string error;
  };
  HostAnswer RegularAnswer(const RecordedRequest& request, std::string_view path);
  HostAnswer ServiceProxyUuidRequest(const RecordedRequest& request);
  HostAnswer ServiceProxyMethodRequest(const RecordedRequest& request);
  ServiceAnswer CallService(const std::string& service, const std::string& method,
                            const std::string& payload);
  ServiceAnswer QueryGatekeeper(const std::string& payload);
  void ScheduleAnswer(std::string event_name, Value payload);
  size_t Deliver(const std::string& event_name, const Value& payload);
  void PublishSwitch(std::string_view uri, const PlatformSwitch& value);

  Scenario state_;
  ReferenceHost* host_ = nullptr;
  std::vector<uint32_t> fault_uses_;  // per fault of the state
  uint32_t gatekeeper_errors_ = 0;
  uint64_t next_uuid_ = 1;
  size_t pending_answers_ = 0;
  std::vector<GatekeeperQuery> gatekeeper_queries_;
  std::vector<PeerEvent> delivered_events_;
};

}  // namespace kav::host

#endif  // KAV_HOST_PEERS_H_
