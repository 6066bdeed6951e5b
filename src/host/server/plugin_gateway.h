// PluginGateway: one HTTP request on a resource of the plugin, handed to the
// plugin thread as the core would pass it, and the plugin's answer as HTTP.
//
// The request record gets the method, the target exactly as the client sent
// it (path and query string; the plugin decodes the query itself), the
// headers with lower-case names (less the host's own credentials,
// Authorization and Cookie), and the body with its Content-Type. The answer:
//  * a value: the answer's status (200 when the plugin gives none) and the
//    value as JSON, enumerators named from the plugin's API description, the
//    same text that `kav-host` prints for a one-shot call; a streamed answer
//    is passed on with chunked transfer coding;
//  * an error: {"httpStatus": N, "message": "..."} with the plugin's status,
//    or 400 when the plugin gives no error status (a request that it could
//    not bind);
//  * 405 with Allow when the path is the plugin's but the method is not;
//  * 503 when the plugin thread's queue is full or the host stops, 504 when
//    the call does not start in time.
// Every answer carries X-Host-Monotonic-Ms: the host's monotonic clock in
// milliseconds, the clock of the answers' "expiredTimestamp".
//
// Thread-safety: Call may run on many threads at once.
#ifndef KAV_HOST_SERVER_PLUGIN_GATEWAY_H_
#define KAV_HOST_SERVER_PLUGIN_GATEWAY_H_

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/server/http_answer.h"
#include "host/server/plugin_worker.h"

namespace kav::host {

struct IncomingRequest {
  std::string method;  // "GET", "POST", ...
  std::string target;  // as sent: path, "?" and query
  std::vector<std::pair<std::string, std::string>> headers;
  std::optional<std::string> body;
  std::string content_type;
};

// The header that carries the host's monotonic clock.
inline constexpr std::string_view kMonotonicHeader = "X-Host-Monotonic-Ms";
// The host's monotonic clock in milliseconds.
uint64_t MonotonicMillis();

class PluginGateway {
 public:
  // REQUIRES: `worker` started; it outlives the gateway.
  PluginGateway(PluginWorker& worker, std::chrono::milliseconds call_timeout);

  // Whether a resource of the plugin has this path (any method).
  bool Serves(std::string_view path) const;
  // The methods served at `path`, e.g. "GET, HEAD".
  std::string AllowedMethods(std::string_view path) const;
  HttpAnswer Call(const IncomingRequest& request);

 private:
  PluginWorker& worker_;
  std::chrono::milliseconds call_timeout_;
};

}  // namespace kav::host

#endif  // KAV_HOST_SERVER_PLUGIN_GATEWAY_H_
