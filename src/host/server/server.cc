#include "host/server/server.h"

#include <httplib.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <optional>
#include <thread>
#include <utility>

#include "host/openapi.h"
#include "host/server/console_assets.h"
#include "host/server/host_control.h"
#include "host/server/http_answer.h"
#include "host/server/plugin_gateway.h"
#include "host/server/request_guard.h"

namespace kav::host {
namespace {

constexpr const char* kLoopback = "127.0.0.1";
// A stream sends a comment when nothing happened for this many waits of one
// second, so that a closed connection is noticed.
constexpr int kKeepAliveWaits = 5;
constexpr size_t kChunkBytes = 16 * 1024;
// Connections the kernel may hold ready before they are accepted. The HTTP
// library listens with a queue of 5: a load tool opening 64 connections at
// once overflows it, and every dropped handshake costs its client a 1 s (then
// 3 s) retransmission before the first answer (measured with
// scripts/bench-serve.sh: timeouts and p99 near 1 s with 5, none with this).
constexpr int kListenBacklog = SOMAXCONN;

constexpr const char* kContentSecurityPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
    "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

// Headers that the HTTP library adds to a request itself.
bool IsLibraryHeader(const std::string& name) {
  return name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR" ||
         name == "LOCAL_PORT";
}

bool HasBodyFraming(const httplib::Request& request) {
  if (request.has_header("Transfer-Encoding")) return true;
  const std::string length = request.get_header_value("Content-Length");
  return !length.empty() && length != "0";
}

std::string StatusMessage(int status, size_t max_body_bytes) {
  switch (status) {
    case 400:
      return "Bad request: a malformed request line or header, or a header line over 8192 bytes";
    case 404:
      return "Not found";
    case 413:
      return "The body is larger than " + std::to_string(max_body_bytes) + " bytes";
    case 414:
      return "The request line is longer than 8192 bytes";
    case 416:
      return "The requested range cannot be served";
    case 431:
      return "The headers are too large";
    default:
      return "HTTP status " + std::to_string(status);
  }
}

}  // namespace

struct Server::Impl {
  Impl(PluginWorker& worker_in, EventHub& hub_in, ServerOptions options_in)
      : worker(worker_in),
        hub(hub_in),
        options(std::move(options_in)),
        gateway(worker_in, options.call_timeout),
        control(worker_in, hub_in, options.call_timeout) {
    openapi_json =
        BuildOpenApiDocument(worker.description(),
                             OpenApiInfo{worker.plugin_name(), worker.plugin_version().ToString(),
                                         "The resources of the plugin " + worker.plugin_name() +
                                             ", served by kav-host from the plugin's own "
                                             "description."})
            .ToJson();
  }

  void Configure();
  httplib::Server::HandlerResponse Guard(const httplib::Request& request,
                                         httplib::Response& response);
  void Handle(const httplib::Request& request, httplib::Response& response,
              std::optional<std::string> body);
  void HandleWithBody(const httplib::Request& request, httplib::Response& response,
                      const httplib::ContentReader& reader);
  void Events(httplib::Response& response);
  static void Send(HttpAnswer answer, httplib::Response& response);
  bool AllowsCors(const httplib::Request& request) const {
    return !options.allow_origin.empty() &&
           request.get_header_value("Origin") == options.allow_origin;
  }

  PluginWorker& worker;
  EventHub& hub;
  ServerOptions options;
  PluginGateway gateway;
  HostControl control;
  std::string openapi_json;
  httplib::Server http;
  // The listening socket, seen when the library creates it (before bind).
  std::atomic<int> listening_socket{-1};
  int port = 0;
  std::atomic<bool> stopping{false};
  std::atomic<bool> run_entered{false};
  std::atomic<bool> run_returned{false};
};

void Server::Impl::Send(HttpAnswer answer, httplib::Response& response) {
  response.status = answer.status;
  for (auto& [name, value] : answer.headers) response.set_header(name, value);
  if (answer.close_connection) {
    // The library ends a connection whose content provider fails: the answer
    // is written in full, then the provider reports failure.
    auto body = std::make_shared<std::string>(std::move(answer.body));
    response.set_content_provider(body->size(), answer.content_type,
                                  [body](size_t offset, size_t length, httplib::DataSink& sink) {
                                    sink.write(body->data() + offset, length);
                                    return false;
                                  });
    return;
  }
  if (answer.chunked) {
    auto body = std::make_shared<std::string>(std::move(answer.body));
    auto sent = std::make_shared<size_t>(0);
    response.set_chunked_content_provider(
        answer.content_type, [body, sent](size_t, httplib::DataSink& sink) {
          if (*sent >= body->size()) {
            sink.done();
            return true;
          }
          const size_t length = std::min(kChunkBytes, body->size() - *sent);
          if (!sink.write(body->data() + *sent, length)) return false;
          *sent += length;
          return true;
        });
    return;
  }
  response.set_content(std::move(answer.body), answer.content_type);
}

void Server::Impl::Configure() {
  http.new_task_queue = [threads = options.worker_threads] {
    return new httplib::ThreadPool(threads);
  };
  http.set_read_timeout(options.read_timeout);
  http.set_write_timeout(options.write_timeout);
  http.set_keep_alive_timeout(options.keep_alive_timeout.count());
  http.set_keep_alive_max_count(options.keep_alive_requests);
  http.set_payload_max_length(options.max_body_bytes);
  http.set_tcp_nodelay(true);
  http.set_socket_options([this](socket_t socket) {
    httplib::default_socket_options(socket);
    listening_socket = static_cast<int>(socket);
  });

  http.set_pre_routing_handler(
      [this](const httplib::Request& request, httplib::Response& response) {
        return Guard(request, response);
      });
  http.set_post_routing_handler(
      [this](const httplib::Request& request, httplib::Response& response) {
        response.set_header("X-Content-Type-Options", "nosniff");
        response.set_header("Cache-Control", "no-store");
        if (AllowsCors(request)) {
          response.set_header("Access-Control-Allow-Origin", options.allow_origin);
          response.set_header("Access-Control-Expose-Headers", std::string(kMonotonicHeader));
          response.set_header("Vary", "Origin");
        }
      });
  http.set_error_handler(httplib::Server::HandlerWithResponse(
      [this](const httplib::Request&, httplib::Response& response) {
        if (!response.body.empty() || response.content_provider_) {
          return httplib::Server::HandlerResponse::Unhandled;
        }
        response.set_content(
            ErrorJson(response.status, StatusMessage(response.status, options.max_body_bytes)),
            "application/json");
        return httplib::Server::HandlerResponse::Handled;
      }));
  http.set_exception_handler(
      [](const httplib::Request&, httplib::Response& response, std::exception_ptr) {
        Send(HttpAnswer::Error(500, "The host failed to answer this request"), response);
      });

  auto plain = [this](const httplib::Request& request, httplib::Response& response) {
    Handle(request, response, std::nullopt);
  };
  auto with_body = [this](const httplib::Request& request, httplib::Response& response,
                          const httplib::ContentReader& reader) {
    HandleWithBody(request, response, reader);
  };
  http.Get(".*", plain);
  http.Options(".*", plain);
  http.Delete(".*", plain);  // a DELETE without Content-Length
  http.Post(".*", with_body);
  http.Put(".*", with_body);
  http.Patch(".*", with_body);
  http.Delete(".*", with_body);
}

httplib::Server::HandlerResponse Server::Impl::Guard(const httplib::Request& request,
                                                     httplib::Response& response) {
  using Handled = httplib::Server::HandlerResponse;
  const bool framed_body = HasBodyFraming(request);
  auto refuse = [&](int status, std::string message) {
    HttpAnswer answer = HttpAnswer::Error(status, message);
    // An unread body would be taken for the next request.
    answer.close_connection = framed_body;
    Send(std::move(answer), response);
    return Handled::Handled;
  };

  size_t header_bytes = 0;
  for (const auto& [name, value] : request.headers) {
    if (!IsLibraryHeader(name)) header_bytes += name.size() + value.size() + 4;
  }
  if (header_bytes > options.max_header_bytes) {
    HttpAnswer answer = HttpAnswer::Error(
        431, "The headers take " + std::to_string(header_bytes) + " bytes; at most " +
                 std::to_string(options.max_header_bytes) + " are read");
    answer.close_connection = true;
    Send(std::move(answer), response);
    return Handled::Handled;
  }
  const std::string host = request.get_header_value("Host");
  if (!IsLoopbackHost(host)) {
    return refuse(403, host.empty() ? "A request needs a Host header"
                                    : "Host '" + host +
                                          "' is not a loopback name; this server answers "
                                          "requests for localhost, 127.0.0.1 or [::1] only");
  }
  const std::string origin = request.get_header_value("Origin");
  if (!origin.empty() && !IsOwnOrigin(origin, port) && origin != options.allow_origin) {
    return refuse(403, "Origin '" + origin +
                           "' may not call this server (start it with --allow-origin " + origin +
                           " to allow it)");
  }
  if (request.method == "OPTIONS" && AllowsCors(request) &&
      request.has_header("Access-Control-Request-Method")) {
    response.status = 204;
    response.set_header("Access-Control-Allow-Methods", "GET, HEAD, POST, PUT, PATCH, DELETE");
    response.set_header("Access-Control-Allow-Headers", "Authorization, Content-Type");
    response.set_header("Access-Control-Max-Age", "600");
    return Handled::Handled;
  }
  if (!options.token.empty()) {
    if (request.method == "GET" && request.path == "/" && request.has_param("token")) {
      if (!ConstantTimeEquals(request.get_param_value("token"), options.token)) {
        return refuse(401, "The token is not this server's");
      }
      response.status = 303;
      response.set_header("Location", "/");
      response.set_header("Set-Cookie", std::string(kTokenCookie) + "=" + options.token +
                                            "; Path=/; HttpOnly; SameSite=Strict");
      return Handled::Handled;
    }
    if (!CarriesToken(options.token, request.get_header_value("Authorization"),
                      request.get_header_value("Cookie"))) {
      response.set_header("WWW-Authenticate", "Bearer");
      return refuse(401, "This server needs its token: send 'Authorization: Bearer TOKEN'");
    }
  }
  const bool bodiless_method =
      request.method == "GET" || request.method == "HEAD" || request.method == "OPTIONS";
  if (bodiless_method && framed_body) {
    return refuse(400, "A " + request.method + " request carries no body");
  }
  if (request.is_multipart_form_data()) {
    return refuse(415, "Multipart bodies are not accepted; send JSON, YAML or MessagePack");
  }
  return Handled::Unhandled;
}

void Server::Impl::HandleWithBody(const httplib::Request& request, httplib::Response& response,
                                  const httplib::ContentReader& reader) {
  if (!HasBodyFraming(request)) {
    // No Content-Length and no transfer coding: no body.
    Handle(request, response, std::nullopt);
    return;
  }
  std::string body;
  bool too_large = false;
  const bool read = reader([&](const char* data, size_t length) {
    if (body.size() + length > options.max_body_bytes) {
      too_large = true;
      return false;
    }
    body.append(data, length);
    return true;
  });
  if (!read || too_large) {
    const int status = too_large || response.status == 413 ? 413 : 400;
    HttpAnswer answer =
        HttpAnswer::Error(status, status == 413 ? StatusMessage(413, options.max_body_bytes)
                                                : std::string("The body could not be read"));
    // The library skipped a body whose length was too large; any other
    // body may be partly unread.
    answer.close_connection = response.status != 413;
    response.status = -1;
    Send(std::move(answer), response);
    return;
  }
  Handle(request, response, std::move(body));
}

void Server::Impl::Handle(const httplib::Request& request, httplib::Response& response,
                          std::optional<std::string> body) {
  const std::string& method = request.method;
  const bool get = method == "GET" || method == "HEAD";
  const std::string path = request.target.substr(0, request.target.find('?'));

  if (const ConsoleAsset* asset = FindConsoleAsset(request.path); asset != nullptr) {
    if (!get) {
      Send(HttpAnswer::Error(405, "The console is read with GET"), response);
      response.set_header("Allow", "GET, HEAD");
      return;
    }
    response.set_header("Content-Security-Policy", kContentSecurityPolicy);
    response.set_content(std::string(asset->content), std::string(asset->content_type));
    return;
  }
  if (request.path == "/openapi.json") {
    if (!get) {
      Send(HttpAnswer::Error(405, "The API document is read with GET"), response);
      response.set_header("Allow", "GET, HEAD");
      return;
    }
    response.set_content(openapi_json, "application/json");
    return;
  }
  if (request.path == "/events") {
    if (!get) {
      Send(HttpAnswer::Error(405, "The event stream is read with GET"), response);
      response.set_header("Allow", "GET, HEAD");
      return;
    }
    Events(response);
    return;
  }
  if (request.path.starts_with(kHostPrefix)) {
    Send(control.Handle(method, request.path, body.value_or(std::string())), response);
    return;
  }
  if (gateway.Serves(path)) {
    IncomingRequest incoming;
    incoming.method = method;
    incoming.target = request.target;
    for (const auto& [name, value] : request.headers) {
      if (!IsLibraryHeader(name)) incoming.headers.emplace_back(name, value);
    }
    if (body.has_value()) {
      incoming.content_type = request.get_header_value("Content-Type");
      incoming.body = std::move(body);
    }
    Send(gateway.Call(incoming), response);
    return;
  }
  Send(HttpAnswer::Error(404, "Nothing is served at " + path +
                                  "; GET /openapi.json lists the plugin's resources"),
       response);
}

void Server::Impl::Events(httplib::Response& response) {
  std::shared_ptr<EventHub::Subscription> subscription = hub.Subscribe();
  if (subscription == nullptr) {
    Send(HttpAnswer::Error(503, "Too many event streams are open"), response);
    return;
  }
  response.set_header("X-Accel-Buffering", "no");
  auto idle = std::make_shared<int>(0);
  response.set_chunked_content_provider(
      "text/event-stream",
      [this, subscription, idle](size_t, httplib::DataSink& sink) {
        if (stopping) return false;
        std::vector<std::string> frames = subscription->Wait(std::chrono::milliseconds(1000));
        if (subscription->closed()) return false;
        if (frames.empty()) {
          if (++*idle < kKeepAliveWaits) return true;
          frames.emplace_back(": keep-alive\n\n");
        }
        *idle = 0;
        for (const std::string& frame : frames) {
          if (!sink.write(frame.data(), frame.size())) return false;
        }
        return true;
      },
      [this, subscription](bool) { hub.Unsubscribe(subscription); });
}

Server::Server(PluginWorker& worker, EventHub& hub, ServerOptions options)
    : impl_(std::make_unique<Impl>(worker, hub, std::move(options))) {
  impl_->Configure();
}

Server::~Server() {
  Stop();
}

bool Server::Bind(std::string* error) {
  if (impl_->options.port == 0) {
    impl_->port = impl_->http.bind_to_any_port(kLoopback);
  } else if (impl_->http.bind_to_port(kLoopback, impl_->options.port)) {
    impl_->port = impl_->options.port;
  } else {
    impl_->port = -1;
  }
  if (impl_->port > 0) {
    // Listening again on a listening socket only sets its queue's length.
    if (impl_->listening_socket >= 0) ::listen(impl_->listening_socket, kListenBacklog);
    return true;
  }
  impl_->port = 0;
  if (error != nullptr) {
    *error = "cannot listen on " + std::string(kLoopback) + ":" +
             std::to_string(impl_->options.port) + " (in use, or not allowed)";
  }
  return false;
}

int Server::port() const {
  return impl_->port;
}

std::string Server::url() const {
  return "http://" + std::string(kLoopback) + ":" + std::to_string(impl_->port) + "/";
}

void Server::Run() {
  impl_->run_entered = true;
  if (!impl_->stopping) impl_->http.listen_after_bind();
  impl_->run_returned = true;
}

void Server::Stop() {
  impl_->stopping = true;
  impl_->hub.Close();
  // The library stops only a server that listens: a Stop that comes while
  // Run is starting waits until it does (or Run saw the stop and returned).
  while (impl_->run_entered && !impl_->run_returned && !impl_->http.is_running()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  impl_->http.stop();
}

}  // namespace kav::host
