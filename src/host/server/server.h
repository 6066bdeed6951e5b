// Server: `kav-host serve`, the plugin's resources over local HTTP.
//
//   GET  /                 the console page (HTML, CSS and JavaScript built
//                          into the binary; it loads nothing from elsewhere)
//   GET  /openapi.json     the OpenAPI 3.1 document of the plugin's resources
//   GET  /events           Server-Sent Events: "plugin" (published events),
//                          "log" (log lines), "scenario" (changes)
//   /_host/...             the scenario, read and changed (HostControl)
//   anything else          the plugin's resources (PluginGateway)
//
// Local by construction: it binds 127.0.0.1 only; a request whose Host is no
// loopback name is refused (403, against DNS rebinding), as is one whose
// Origin is neither the server's own nor the one allowed by
// `allow_origin` (403, against other sites' pages); CORS headers are sent
// only to that allowed origin. With a token, every request needs
// "Authorization: Bearer TOKEN" (or the cookie that GET /?token=TOKEN sets
// for the console page); 401 otherwise.
//
// Limits (ServerOptions): the request line and each header line 8 KiB (the
// HTTP library's; 414 and 400), all headers together `max_header_bytes`
// (431), a body `max_body_bytes` after content decoding (413); a GET, HEAD or
// OPTIONS request with a body is refused (400), a multipart body too (415);
// each read or write waits `read_timeout`/`write_timeout`, an idle
// keep-alive connection `keep_alive_timeout`; `worker_threads` connections
// are served at once (more wait for a thread). Every refusal is
// {"httpStatus": N, "message": "..."}; a refusal that leaves a body unread
// closes the connection.
//
// Thread-safety: Run blocks the calling thread; Stop may be called from any
// thread (a signal watcher, say).
#ifndef KAV_HOST_SERVER_SERVER_H_
#define KAV_HOST_SERVER_SERVER_H_

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

#include "host/server/event_hub.h"
#include "host/server/plugin_worker.h"

namespace kav::host {

struct ServerOptions {
  int port = 0;              // 0: a free port, chosen at Bind
  std::string token;         // empty: no token needed
  std::string allow_origin;  // empty: no CORS
  size_t max_body_bytes = size_t{1} << 20;
  size_t max_header_bytes = size_t{64} << 10;
  size_t worker_threads = 128;
  std::chrono::seconds read_timeout{5};
  std::chrono::seconds write_timeout{5};
  std::chrono::seconds keep_alive_timeout{5};
  size_t keep_alive_requests = 100000;  // per connection
  std::chrono::milliseconds call_timeout{30000};
};

class Server {
 public:
  // REQUIRES: `worker` started; `worker` and `hub` outlive the server.
  Server(PluginWorker& worker, EventHub& hub, ServerOptions options);
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  ~Server();

  // Binds 127.0.0.1 at the options' port. False (error says why) when the
  // port cannot be had.
  [[nodiscard]] bool Bind(std::string* error);
  // The bound port; 0 before Bind.
  int port() const;
  // "http://127.0.0.1:PORT/".
  std::string url() const;
  // Serves until Stop. REQUIRES: Bind succeeded.
  void Run();
  // Ends the event streams and the server; Run returns once the connections
  // in progress are done.
  void Stop();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kav::host

#endif  // KAV_HOST_SERVER_SERVER_H_
