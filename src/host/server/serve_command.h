// `kav-host serve`: starts the plugin thread and the server, prints where
// they are, serves until SIGINT or SIGTERM, then stops cleanly: the server,
// then the plugin (Destroy), then prints the plugin's memory statistics.
#ifndef KAV_HOST_SERVER_SERVE_COMMAND_H_
#define KAV_HOST_SERVER_SERVE_COMMAND_H_

#include <string>

#include "host/reference_host.h"
#include "host/scenario.h"
#include "host/server/server.h"

namespace kav::host {

struct ServeCommandOptions {
  Scenario scenario;
  std::string scenario_label;  // for the banner
  std::string plugin_path = KAV_DEFAULT_PLUGIN_PATH;
  ApiVersion core_version = kDefaultCoreVersion;
  bool verbose = false;  // also print the plugin's log lines
  ServerOptions server;
};

// Returns the process's exit code: 0 after a clean stop, 1 when the plugin
// or the port could not be had.
int RunServeCommand(ServeCommandOptions options);

}  // namespace kav::host

#endif  // KAV_HOST_SERVER_SERVE_COMMAND_H_
