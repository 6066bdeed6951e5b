// EventHub: hands what happens in the host (the plugin's published events,
// its log lines, changes of the scenario) to every open event stream, as
// Server-Sent Events frames ("id: N", "event: KIND", "data: JSON").
//
// A new subscriber first receives the last frames published (the history),
// so that a page opened after the plugin started still sees its start. Each
// subscriber holds at most a bounded number of frames: when a slow reader
// falls that far behind, its oldest frames are dropped and it is told how
// many with a frame of kind "dropped".
//
// Thread-safety: every operation may be called from any thread.
#ifndef KAV_HOST_SERVER_EVENT_HUB_H_
#define KAV_HOST_SERVER_EVENT_HUB_H_

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace kav::host {

struct EventHubLimits {
  size_t history = 200;     // frames replayed to a new subscriber
  size_t queue = 2000;      // frames waiting per subscriber at most
  size_t subscribers = 16;  // open streams at most
};

class EventHub {
 public:
  class Subscription {
   public:
    // The frames published since the last call; waits up to `timeout` for
    // one when there are none. Empty after Close.
    std::vector<std::string> Wait(std::chrono::milliseconds timeout);
    bool closed() const;

   private:
    friend class EventHub;
    mutable std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<std::string> frames_;
    uint64_t dropped_ = 0;
    bool closed_ = false;
  };

  explicit EventHub(EventHubLimits limits = {});
  EventHub(const EventHub&) = delete;
  EventHub& operator=(const EventHub&) = delete;

  // Sends a frame of kind `event` with `data_json` (one line of JSON).
  void Publish(std::string_view event, std::string_view data_json);
  // A new stream; null when the limit of open streams is reached or the hub
  // is closed.
  std::shared_ptr<Subscription> Subscribe();
  // Ends a stream (its reader's next Wait returns at once).
  void Unsubscribe(const std::shared_ptr<Subscription>& subscription);
  // Ends every stream; later subscriptions are refused.
  void Close();

  size_t subscribers() const;
  uint64_t published() const;

  // One SSE frame.
  static std::string Frame(uint64_t id, std::string_view event, std::string_view data_json);

 private:
  EventHubLimits limits_;
  mutable std::mutex mutex_;
  std::deque<std::string> history_;
  std::vector<std::shared_ptr<Subscription>> subscriptions_;
  uint64_t next_id_ = 1;
  bool closed_ = false;
};

}  // namespace kav::host

#endif  // KAV_HOST_SERVER_EVENT_HUB_H_
