// PluginWorker: the one thread that calls into the plugin, as the core's
// calling thread does. It loads and initializes the plugin among the peers of
// a scenario (a ScenarioHost), then runs the tasks that other threads hand
// it, one at a time, and finally destroys the plugin.
//
// Two kinds of task:
//  * calls (kCall), which may call the plugin: run one at a time, in order,
//    never while another task runs;
//  * host work (kHostWork): changes of the peers and reads of their state.
//    They run in order between calls, and also inside the plugin's HostYield
//    while a call waits for an answer, as a core delivers its events then.
// A task runs on the plugin thread with the ScenarioHost; the thread that
// handed it in waits for it. A task that has not started within the given
// time is dropped and never runs; one that has started is waited for to its
// end, so a task may use the data of the caller.
//
// After every task the host's and the peers' journals are cleared, so that
// the memory of a long-running worker stays flat; the observers given in the
// options see every event and log line as it happens.
//
// Thread-safety: Run and the accessors may be called from any thread; Start
// and Stop from the owning thread only.
#ifndef KAV_HOST_SERVER_PLUGIN_WORKER_H_
#define KAV_HOST_SERVER_PLUGIN_WORKER_H_

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "host/api_description.h"
#include "host/reference_host.h"
#include "host/scenario.h"
#include "host/scenario_host.h"

namespace kav::host {

struct PluginWorkerOptions {
  Scenario scenario;
  std::string plugin_path = KAV_DEFAULT_PLUGIN_PATH;
  ApiVersion core_version = kDefaultCoreVersion;
  // Tasks waiting to run at most; Run answers kBusy beyond.
  size_t max_queued_tasks = 4096;
  // Called on the plugin thread for every event the plugin publishes (with
  // the plugin's API description) and every line it logs, from Load on.
  // They must not call into the plugin.
  std::function<void(const PublishedEvent&, const ApiDescription&)> on_event;
  std::function<void(const LogLine&)> on_log;
};

// The plugin's memory statistics at the points of its life that show
// whether serving leaked.
struct WorkerMemoryReport {
  MemoryStatisticsWords after_initialize;
  MemoryStatisticsWords before_destroy;
  MemoryStatisticsWords after_destroy;
};

class PluginWorker {
 public:
  enum class TaskKind : uint8_t { kCall, kHostWork };
  enum class RunResult : uint8_t {
    kDone,      // the task ran
    kTimedOut,  // it had not started in time and was dropped
    kBusy,      // the queue was full; nothing ran
    kStopped,   // the worker is not running; nothing ran
  };

  explicit PluginWorker(PluginWorkerOptions options);
  PluginWorker(const PluginWorker&) = delete;
  PluginWorker& operator=(const PluginWorker&) = delete;
  // Stops a running worker.
  ~PluginWorker();

  // Starts the thread, which loads and initializes the plugin; returns when
  // that is done. False (error says why) when the plugin did not start; the
  // thread is gone then.
  [[nodiscard]] bool Start(std::string* error);

  // Runs `task` on the plugin thread and waits for its end, or until
  // `timeout` passes before it starts.
  RunResult Run(TaskKind kind, std::function<void(ScenarioHost&)> task,
                std::chrono::milliseconds timeout);

  // Refuses new tasks, lets the running one end, drops those still queued,
  // destroys the plugin on its thread and joins it. Idempotent.
  void Stop();

  bool running() const;
  // Valid after a successful Start, and unchanged until destruction.
  const ApiDescription& description() const { return description_; }
  std::string plugin_name() const { return plugin_name_; }
  ApiVersion plugin_version() const { return plugin_version_; }
  // Valid after Stop.
  const WorkerMemoryReport& memory_report() const { return memory_report_; }

  // Counters over the worker's life.
  uint64_t tasks_run() const;
  uint64_t gatekeeper_queries() const;
  // Host work that ran inside a HostYield of a waiting call.
  uint64_t host_work_in_yields() const;

 private:
  struct Task;

  void ThreadMain();
  bool LoadPlugin();
  // Runs the queued host work; `nested` inside a HostYield.
  void RunHostWork();
  void Execute(Task& task);
  void ClearJournals();

  PluginWorkerOptions options_;
  std::unique_ptr<ScenarioHost> host_;  // created and used on the plugin thread only
  ApiDescription description_;
  std::string plugin_name_;
  ApiVersion plugin_version_;
  WorkerMemoryReport memory_report_;

  mutable std::mutex mutex_;
  std::condition_variable wake_;     // the plugin thread waits for tasks
  std::condition_variable started_;  // Start waits for the load
  std::deque<std::shared_ptr<Task>> queue_;
  bool start_done_ = false;
  bool start_ok_ = false;
  bool stopping_ = false;
  bool plugin_thread_waiting_ = false;  // waits on wake_ for a task
  std::string start_error_;
  uint64_t tasks_run_ = 0;
  uint64_t gatekeeper_queries_ = 0;
  uint64_t host_work_in_yields_ = 0;
  std::thread thread_;

  bool in_host_work_ = false;  // plugin thread only
};

}  // namespace kav::host

#endif  // KAV_HOST_SERVER_PLUGIN_WORKER_H_
