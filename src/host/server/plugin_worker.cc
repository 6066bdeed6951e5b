#include "host/server/plugin_worker.h"

#include <utility>
#include <vector>

namespace kav::host {

struct PluginWorker::Task {
  enum class State : uint8_t { kQueued, kRunning, kDone, kDropped };

  TaskKind kind;
  std::function<void(ScenarioHost&)> run;
  State state = State::kQueued;  // guarded by the worker's mutex
  // Signalled once the task is done or dropped, after `state` says which.
  // The waiting thread waits on the task's own lock, not the worker's, so
  // that a finished call does not contend with the plugin thread taking the
  // next one (scripts/bench-serve.sh: the flag resource under 64 connections).
  std::mutex finished_mutex;
  std::condition_variable finished_signal;
  bool finished = false;  // guarded by finished_mutex

  void Finish() {
    {
      std::lock_guard lock(finished_mutex);
      finished = true;
    }
    finished_signal.notify_one();
  }
  bool WaitUntil(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock lock(finished_mutex);
    return finished_signal.wait_until(lock, deadline, [this] { return finished; });
  }
  void Wait() {
    std::unique_lock lock(finished_mutex);
    finished_signal.wait(lock, [this] { return finished; });
  }
};

PluginWorker::PluginWorker(PluginWorkerOptions options) : options_(std::move(options)) {}

PluginWorker::~PluginWorker() {
  Stop();
}

bool PluginWorker::Start(std::string* error) {
  thread_ = std::thread([this] { ThreadMain(); });
  std::unique_lock lock(mutex_);
  started_.wait(lock, [this] { return start_done_; });
  if (start_ok_) return true;
  if (error != nullptr) *error = start_error_;
  lock.unlock();
  thread_.join();
  return false;
}

bool PluginWorker::running() const {
  std::lock_guard lock(mutex_);
  return start_ok_ && !stopping_;
}

uint64_t PluginWorker::tasks_run() const {
  std::lock_guard lock(mutex_);
  return tasks_run_;
}

uint64_t PluginWorker::host_work_in_yields() const {
  std::lock_guard lock(mutex_);
  return host_work_in_yields_;
}

uint64_t PluginWorker::gatekeeper_queries() const {
  std::lock_guard lock(mutex_);
  return gatekeeper_queries_;
}

PluginWorker::RunResult PluginWorker::Run(TaskKind kind, std::function<void(ScenarioHost&)> run,
                                          std::chrono::milliseconds timeout) {
  auto task = std::make_shared<Task>();
  task->kind = kind;
  task->run = std::move(run);
  std::unique_lock lock(mutex_);
  if (!start_ok_ || stopping_) return RunResult::kStopped;
  if (queue_.size() >= options_.max_queued_tasks) return RunResult::kBusy;
  queue_.push_back(task);
  // A busy plugin thread looks at the queue before it waits again.
  const bool wake = plugin_thread_waiting_;
  lock.unlock();
  if (wake) wake_.notify_one();
  if (!task->WaitUntil(std::chrono::steady_clock::now() + timeout)) {
    lock.lock();
    if (task->state == Task::State::kQueued) {
      std::erase(queue_, task);
      return RunResult::kTimedOut;
    }
    lock.unlock();
    task->Wait();  // started: wait for its end
  }
  // Written before the task was signalled finished: no lock needed.
  return task->state == Task::State::kDone ? RunResult::kDone : RunResult::kStopped;
}

void PluginWorker::Stop() {
  {
    std::lock_guard lock(mutex_);
    if (!thread_.joinable()) return;
    stopping_ = true;
    wake_.notify_one();
  }
  thread_.join();
}

bool PluginWorker::LoadPlugin() {
  host_ = std::make_unique<ScenarioHost>(std::move(options_.scenario), options_.plugin_path);
  ReferenceHost& host = host_->host();
  if (options_.on_event) {
    host.SetEventObserver(
        [this](const PublishedEvent& event) { options_.on_event(event, host_->description()); });
  }
  if (options_.on_log) host.SetLogObserver(options_.on_log);
  // Host work waits no longer than the next yield of a running call.
  host.SetYieldHook([this] {
    if (!in_host_work_) RunHostWork();
  });
  if (!host_->Load(options_.core_version)) {
    start_error_ = host_->error();
    if (host_->loaded()) host_->Destroy();
    return false;
  }
  memory_report_.after_initialize = host.GetMemoryStatistics();
  description_ = host_->description();
  plugin_name_ = host.plugin_name();
  plugin_version_ = host.plugin_version();
  ClearJournals();
  return true;
}

void PluginWorker::ThreadMain() {
  const bool loaded = LoadPlugin();
  {
    std::lock_guard lock(mutex_);
    start_done_ = true;
    start_ok_ = loaded;
    started_.notify_all();
  }
  if (!loaded) {
    host_.reset();
    return;
  }
  for (;;) {
    std::shared_ptr<Task> task;
    {
      std::unique_lock lock(mutex_);
      plugin_thread_waiting_ = true;
      wake_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
      plugin_thread_waiting_ = false;
      if (stopping_) {
        std::deque<std::shared_ptr<Task>> dropped;
        dropped.swap(queue_);
        for (const std::shared_ptr<Task>& task : dropped) task->state = Task::State::kDropped;
        lock.unlock();
        for (const std::shared_ptr<Task>& task : dropped) task->Finish();
        break;
      }
      task = std::move(queue_.front());
      queue_.pop_front();
      task->state = Task::State::kRunning;
    }
    Execute(*task);
  }
  ReferenceHost& host = host_->host();
  memory_report_.before_destroy = host.GetMemoryStatistics();
  host_->Destroy();
  memory_report_.after_destroy = host.GetMemoryStatistics();
  host.SetEventObserver(nullptr);
  host.SetLogObserver(nullptr);
  host_.reset();
}

void PluginWorker::Execute(Task& task) {
  if (task.kind == TaskKind::kHostWork) {
    in_host_work_ = true;  // a change whose events make the plugin yield runs no other work
    task.run(*host_);
    in_host_work_ = false;
  } else {
    task.run(*host_);
  }
  ClearJournals();
  {
    std::lock_guard lock(mutex_);
    task.state = Task::State::kDone;
    ++tasks_run_;
  }
  task.Finish();
}

void PluginWorker::RunHostWork() {
  std::vector<std::shared_ptr<Task>> work;
  {
    std::lock_guard lock(mutex_);
    for (auto it = queue_.begin(); it != queue_.end();) {
      if ((*it)->kind == TaskKind::kHostWork) {
        (*it)->state = Task::State::kRunning;
        work.push_back(std::move(*it));
        it = queue_.erase(it);
      } else {
        ++it;
      }
    }
  }
  for (const std::shared_ptr<Task>& task : work) {
    in_host_work_ = true;
    task->run(*host_);
    in_host_work_ = false;
    {
      std::lock_guard lock(mutex_);
      task->state = Task::State::kDone;
      ++tasks_run_;
      ++host_work_in_yields_;
    }
    task->Finish();
  }
}

void PluginWorker::ClearJournals() {
  if (in_host_work_) return;
  const size_t queries = host_->gatekeeper_queries().size();
  host_->host().ClearRecords();
  host_->peers().ClearRecords();
  std::lock_guard lock(mutex_);
  gatekeeper_queries_ += queries;
}

}  // namespace kav::host
