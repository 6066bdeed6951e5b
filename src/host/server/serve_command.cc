#include "host/server/serve_command.h"

#include <pthread.h>
#include <signal.h>

#include <cinttypes>
#include <cstdio>
#include <thread>
#include <utility>

#include "host/server/event_hub.h"
#include "host/server/host_events.h"
#include "host/server/plugin_worker.h"

namespace kav::host {
namespace {

void PrintMemory(const char* when, const MemoryStatisticsWords& statistics) {
  std::printf("  %-16s %10" PRIu64 " bytes in use, %8" PRIu64 " allocations, %8" PRIu64
              " frees, peak %" PRIu64 " bytes\n",
              when, statistics.BytesInUse(), statistics.allocations(), statistics.frees(),
              statistics.peak_bytes_in_use());
}

}  // namespace

int RunServeCommand(ServeCommandOptions options) {
  // Every thread started from here on leaves SIGINT and SIGTERM to the
  // waiter below.
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGINT);
  sigaddset(&stop_signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);

  EventHub hub;
  PluginWorkerOptions worker_options;
  worker_options.scenario = std::move(options.scenario);
  worker_options.plugin_path = options.plugin_path;
  worker_options.core_version = options.core_version;
  worker_options.on_event = [&hub](const PublishedEvent& event, const ApiDescription& description) {
    hub.Publish("plugin", PublishedEventJson(event, description));
  };
  const bool verbose = options.verbose;
  worker_options.on_log = [&hub, verbose](const LogLine& line) {
    if (verbose) std::fprintf(stderr, "[plugin %d] %s\n", line.level, line.text.c_str());
    hub.Publish("log", LogLineJson(line));
  };
  std::fflush(stdout);  // an incompatible plugin ends the process inside Load
  PluginWorker worker(std::move(worker_options));
  std::string error;
  if (!worker.Start(&error)) {
    std::fprintf(stderr, "kav-host: %s\n", error.c_str());
    return 1;
  }
  const ServerOptions server_options = options.server;
  Server server(worker, hub, server_options);
  if (!server.Bind(&error)) {
    std::fprintf(stderr, "kav-host: %s\n", error.c_str());
    worker.Stop();
    return 1;
  }
  const std::string url = server.url();
  std::printf("kav-host serve: %s %s, scenario %s, core plugin API %s\n",
              worker.plugin_name().c_str(), worker.plugin_version().ToString().c_str(),
              options.scenario_label.c_str(), options.core_version.ToString().c_str());
  std::printf("  listening on %s (loopback only)\n", url.c_str());
  if (server_options.token.empty()) {
    std::printf("  console       %s\n", url.c_str());
  } else {
    std::printf("  console       %s?token=%s\n", url.c_str(), server_options.token.c_str());
    std::printf("  token         every request needs 'Authorization: Bearer <token>'\n");
  }
  std::printf("  API document  %sopenapi.json\n", url.c_str());
  std::printf("  events        %sevents\n", url.c_str());
  std::printf("  scenario      %s_host/state\n", url.c_str());
  if (!server_options.allow_origin.empty()) {
    std::printf("  CORS          %s\n", server_options.allow_origin.c_str());
  }
  std::printf(
      "  limits        body %zu bytes, headers %zu bytes, %zu connections at once, "
      "%lld s read/write timeouts, %lld ms for a call to start\n",
      server_options.max_body_bytes, server_options.max_header_bytes, server_options.worker_threads,
      static_cast<long long>(server_options.read_timeout.count()),
      static_cast<long long>(server_options.call_timeout.count()));
  std::printf("Stop with Ctrl-C (SIGINT) or SIGTERM.\n");
  std::fflush(stdout);

  std::thread serving([&server] { server.Run(); });
  int signal_number = 0;
  sigwait(&stop_signals, &signal_number);
  std::printf("kav-host serve: %s: stopping\n", signal_number == SIGINT ? "SIGINT" : "SIGTERM");
  std::fflush(stdout);
  server.Stop();
  serving.join();
  worker.Stop();

  const WorkerMemoryReport& memory = worker.memory_report();
  std::printf("plugin memory statistics (%" PRIu64 " tasks run):\n", worker.tasks_run());
  PrintMemory("after Initialize", memory.after_initialize);
  PrintMemory("before Destroy", memory.before_destroy);
  PrintMemory("after Destroy", memory.after_destroy);
  std::fflush(stdout);
  return 0;
}

}  // namespace kav::host
