// Test support: the real plugin served in-process (plugin thread, event hub
// and server on a free loopback port), and clients that speak HTTP the way
// a hostile one would.
#ifndef KAV_TESTS_HOST_SERVER_SERVED_PLUGIN_H_
#define KAV_TESTS_HOST_SERVER_SERVED_PLUGIN_H_

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "host/host_value.h"
#include "host/scenario.h"
#include "host/server/event_hub.h"
#include "host/server/host_events.h"
#include "host/server/plugin_worker.h"
#include "host/server/server.h"

namespace kav::host {

class ServedPlugin {
 public:
  explicit ServedPlugin(Scenario scenario = DemoScenario(), ServerOptions options = {}) {
    PluginWorkerOptions worker_options;
    worker_options.scenario = std::move(scenario);
    worker_options.on_event = [this](const PublishedEvent& event, const ApiDescription& api) {
      hub_.Publish("plugin", PublishedEventJson(event, api));
    };
    worker_options.on_log = [this](const LogLine& line) { hub_.Publish("log", LogLineJson(line)); };
    worker_ = std::make_unique<PluginWorker>(std::move(worker_options));
    if (!worker_->Start(&error_)) return;
    server_ = std::make_unique<Server>(*worker_, hub_, std::move(options));
    if (!server_->Bind(&error_)) return;
    serving_ = std::thread([this] { server_->Run(); });
    started_ = true;
  }
  ServedPlugin(const ServedPlugin&) = delete;
  ServedPlugin& operator=(const ServedPlugin&) = delete;
  ~ServedPlugin() { Stop(); }

  void Stop() {
    if (server_ != nullptr) server_->Stop();
    if (serving_.joinable()) serving_.join();
    if (worker_ != nullptr) worker_->Stop();
  }

  bool started() const { return started_; }
  const std::string& error() const { return error_; }
  int port() const { return server_->port(); }
  PluginWorker& worker() { return *worker_; }
  EventHub& hub() { return hub_; }

  std::unique_ptr<httplib::Client> Client() const {
    auto client = std::make_unique<httplib::Client>("127.0.0.1", port());
    client->set_read_timeout(10, 0);
    client->set_connection_timeout(5, 0);
    return client;
  }

 private:
  EventHub hub_;
  std::unique_ptr<PluginWorker> worker_;
  std::unique_ptr<Server> server_;
  std::thread serving_;
  std::string error_;
  bool started_ = false;
};

// The first response on a connection to which `pieces` were written in
// order (waiting `pause` between them): its status (0 when none came) and
// body; `closed` when the server ended the connection after it.
struct RawResponse {
  int status = 0;
  std::string head;
  std::string body;
  bool closed = false;
};

inline RawResponse SendRaw(int port, const std::vector<std::string>& pieces,
                           std::chrono::milliseconds pause = std::chrono::milliseconds(0)) {
  RawResponse response;
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  if (fd < 0) return response;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
    close(fd);
    return response;
  }
  for (size_t i = 0; i < pieces.size(); ++i) {
    if (i > 0 && pause.count() > 0) std::this_thread::sleep_for(pause);
    // A server that already answered may refuse the rest.
    if (send(fd, pieces[i].data(), pieces[i].size(), MSG_NOSIGNAL) < 0) break;
  }
  std::string received;
  size_t expected_total = std::string::npos;
  char buffer[65536];
  for (;;) {
    pollfd poller{fd, POLLIN, 0};
    if (poll(&poller, 1, 10000) <= 0) break;
    const ssize_t n = recv(fd, buffer, sizeof(buffer), 0);
    if (n <= 0) {
      response.closed = true;
      break;
    }
    received.append(buffer, static_cast<size_t>(n));
    const size_t end_of_head = received.find("\r\n\r\n");
    if (end_of_head != std::string::npos && expected_total == std::string::npos) {
      const std::string head = received.substr(0, end_of_head);
      size_t length = 0;
      if (const size_t at = head.find("Content-Length: "); at != std::string::npos) {
        length = std::strtoul(head.c_str() + at + 16, nullptr, 10);
      }
      expected_total = end_of_head + 4 + length;
    }
    if (expected_total != std::string::npos && received.size() >= expected_total) {
      // Whether the server closes the connection after this answer.
      pollfd after{fd, POLLIN, 0};
      if (poll(&after, 1, 500) > 0) {
        const ssize_t more = recv(fd, buffer, sizeof(buffer), 0);
        response.closed = more <= 0;
      }
      break;
    }
  }
  close(fd);
  const size_t end_of_head = received.find("\r\n\r\n");
  if (received.starts_with("HTTP/1.1 ") && end_of_head != std::string::npos) {
    response.status = std::atoi(received.c_str() + 9);
    response.head = received.substr(0, end_of_head);
    response.body = received.substr(end_of_head + 4);
  }
  return response;
}

// JSON equality where "expiredTimestamp" values (milliseconds of the
// monotonic clock at different moments) may differ by `tolerance_ms`.
// Empty when equal, else where they differ.
inline std::string JsonDifference(const Value& a, const Value& b, int64_t tolerance_ms,
                                  const std::string& where = "$") {
  auto number = [](const Value& value, int64_t& out) {
    if (value.kind() == Value::Kind::kSigned) {
      out = value.AsSigned();
      return true;
    }
    if (value.kind() == Value::Kind::kUnsigned) {
      out = static_cast<int64_t>(value.AsUnsigned());
      return true;
    }
    return false;
  };
  if (where.ends_with(".expiredTimestamp")) {
    int64_t x = 0;
    int64_t y = 0;
    if (number(a, x) && number(b, y) && (x == 0) == (y == 0) && std::llabs(x - y) <= tolerance_ms) {
      return "";
    }
  }
  if (a.kind() == Value::Kind::kArray && b.kind() == Value::Kind::kArray) {
    if (a.AsArray().size() != b.AsArray().size()) return where + ": lengths differ";
    for (size_t i = 0; i < a.AsArray().size(); ++i) {
      std::string difference = JsonDifference(a.AsArray()[i], b.AsArray()[i], tolerance_ms,
                                              where + "[" + std::to_string(i) + "]");
      if (!difference.empty()) return difference;
    }
    return "";
  }
  if (a.kind() == Value::Kind::kMap && b.kind() == Value::Kind::kMap) {
    if (a.AsMap().size() != b.AsMap().size()) return where + ": member counts differ";
    for (size_t i = 0; i < a.AsMap().size(); ++i) {
      const MapEntry& x = a.AsMap()[i];
      const MapEntry& y = b.AsMap()[i];
      if (x.key != y.key) return where + ": member " + x.key + " vs " + y.key;
      std::string difference = JsonDifference(x.value, y.value, tolerance_ms, where + "." + x.key);
      if (!difference.empty()) return difference;
    }
    return "";
  }
  return a == b ? "" : where + ": " + a.ToJson() + " vs " + b.ToJson();
}

inline RawResponse SendRaw(int port, std::string request) {
  return SendRaw(port, std::vector<std::string>{std::move(request)});
}

}  // namespace kav::host

#endif  // KAV_TESTS_HOST_SERVER_SERVED_PLUGIN_H_
