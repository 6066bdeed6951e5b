// HostControl: the scenario of a running host, read and changed over HTTP
// under /_host/. Every change is a ScenarioAction, read by the scenario
// format's own reader and applied by the peers exactly as a scenario step
// would be (publishing the resource events that the plugin hears):
//
//   GET    /_host/state                the world: peer resources, gatekeeper,
//                                      faults, counters, the monotonic clock
//   GET    /_host/resources/{path}     a peer resource's value (404: none)
//   PUT    /_host/resources/{path}     body: the value     -> setResource
//   DELETE /_host/resources/{path}                         -> deleteResource
//   GET    /_host/gatekeeper           the gatekeeper section
//   PUT    /_host/gatekeeper           body: the section   -> setGatekeeper
//   GET    /_host/faults               the faults in force
//   POST   /_host/faults               body: one fault     -> addFault
//   DELETE /_host/faults                                   -> clearFaults
//   POST   /_host/changes              body: one step without beforeCall,
//                                      e.g. {"setGateKeeperEnabled": false}
//
// Bodies are JSON (nested at most kMaxBodyNesting deep). Each change is
// announced on the event hub (kind "scenario") before it is applied, so that
// a listener sees it ahead of the plugin's reaction. Changes are host work:
// they run between the plugin's calls or inside its HostYield.
//
// Thread-safety: Handle may run on many threads at once.
#ifndef KAV_HOST_SERVER_HOST_CONTROL_H_
#define KAV_HOST_SERVER_HOST_CONTROL_H_

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "host/scenario.h"
#include "host/server/event_hub.h"
#include "host/server/http_answer.h"
#include "host/server/plugin_worker.h"

namespace kav::host {

inline constexpr std::string_view kHostPrefix = "/_host/";
inline constexpr size_t kMaxBodyNesting = 64;

// The key of `action` in a scenario step ("setQueues", "setResource", ...).
const char* ScenarioChangeName(const ScenarioAction& action);

class HostControl {
 public:
  HostControl(PluginWorker& worker, EventHub& hub, std::chrono::milliseconds timeout);

  // REQUIRES: `path` (without query) starts with kHostPrefix.
  HttpAnswer Handle(std::string_view method, std::string_view path, const std::string& body);

 private:
  HttpAnswer State();
  HttpAnswer Apply(ScenarioAction action);
  HttpAnswer Read(std::string_view what, std::function<std::string(ScenarioHost&)> read);
  HttpAnswer Failed(PluginWorker::RunResult result) const;

  PluginWorker& worker_;
  EventHub& hub_;
  std::chrono::milliseconds timeout_;
};

}  // namespace kav::host

#endif  // KAV_HOST_SERVER_HOST_CONTROL_H_
