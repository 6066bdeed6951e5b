#include "host/server/plugin_worker.h"

#include <utility>
#include <vector>

namespace kav::host {

struct PluginWorker::Task {
  enum class State : uint8_t { kQueued, kRunning, kDone, kDropped };

  TaskKind kind;
  std::function<void(ScenarioHost&)> run;
  State state = State::kQueued;  // guarded by the worker's mutex
  std::condition_variable finished;
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
  wake_.notify_one();
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  const auto ended = [&] {
    return task->state == Task::State::kDone || task->state == Task::State::kDropped;
  };
  if (!task->finished.wait_until(lock, deadline, ended)) {
    if (task->state == Task::State::kQueued) {
      std::erase(queue_, task);
      return RunResult::kTimedOut;
    }
    task->finished.wait(lock, ended);  // started: wait for its end
  }
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
      wake_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
      if (stopping_) {
        for (const std::shared_ptr<Task>& dropped : queue_) {
          dropped->state = Task::State::kDropped;
          dropped->finished.notify_all();
        }
        queue_.clear();
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
  std::lock_guard lock(mutex_);
  task.state = Task::State::kDone;
  ++tasks_run_;
  task.finished.notify_all();
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
    std::lock_guard lock(mutex_);
    task->state = Task::State::kDone;
    ++tasks_run_;
    ++host_work_in_yields_;
    task->finished.notify_all();
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
