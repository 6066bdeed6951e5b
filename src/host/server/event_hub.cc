#include "host/server/event_hub.h"

#include <algorithm>
#include <utility>

namespace kav::host {

std::vector<std::string> EventHub::Subscription::Wait(std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  ready_.wait_for(lock, timeout, [this] { return closed_ || !frames_.empty() || dropped_ > 0; });
  std::vector<std::string> frames;
  if (closed_) return frames;
  if (dropped_ > 0) {
    frames.push_back(Frame(0, "dropped", "{\"frames\":" + std::to_string(dropped_) + "}"));
    dropped_ = 0;
  }
  frames.insert(frames.end(), std::make_move_iterator(frames_.begin()),
                std::make_move_iterator(frames_.end()));
  frames_.clear();
  return frames;
}

bool EventHub::Subscription::closed() const {
  std::lock_guard lock(mutex_);
  return closed_;
}

EventHub::EventHub(EventHubLimits limits) : limits_(limits) {}

std::string EventHub::Frame(uint64_t id, std::string_view event, std::string_view data_json) {
  std::string frame;
  frame.reserve(data_json.size() + event.size() + 32);
  if (id != 0) frame.append("id: ").append(std::to_string(id)).append("\n");
  frame.append("event: ").append(event).append("\ndata: ").append(data_json).append("\n\n");
  return frame;
}

void EventHub::Publish(std::string_view event, std::string_view data_json) {
  std::lock_guard lock(mutex_);
  if (closed_) return;
  std::string frame = Frame(next_id_++, event, data_json);
  for (const std::shared_ptr<Subscription>& subscription : subscriptions_) {
    std::lock_guard sub_lock(subscription->mutex_);
    if (subscription->frames_.size() >= limits_.queue) {
      subscription->frames_.pop_front();
      ++subscription->dropped_;
    }
    subscription->frames_.push_back(frame);
    subscription->ready_.notify_one();
  }
  if (limits_.history > 0) {
    if (history_.size() >= limits_.history) history_.pop_front();
    history_.push_back(std::move(frame));
  }
}

std::shared_ptr<EventHub::Subscription> EventHub::Subscribe() {
  std::lock_guard lock(mutex_);
  if (closed_ || subscriptions_.size() >= limits_.subscribers) return nullptr;
  auto subscription = std::make_shared<Subscription>();
  subscription->frames_.assign(history_.begin(), history_.end());
  subscriptions_.push_back(subscription);
  return subscription;
}

void EventHub::Unsubscribe(const std::shared_ptr<Subscription>& subscription) {
  std::lock_guard lock(mutex_);
  std::erase(subscriptions_, subscription);
  std::lock_guard sub_lock(subscription->mutex_);
  subscription->closed_ = true;
  subscription->ready_.notify_all();
}

void EventHub::Close() {
  std::lock_guard lock(mutex_);
  closed_ = true;
  for (const std::shared_ptr<Subscription>& subscription : subscriptions_) {
    std::lock_guard sub_lock(subscription->mutex_);
    subscription->closed_ = true;
    subscription->ready_.notify_all();
  }
  subscriptions_.clear();
}

size_t EventHub::subscribers() const {
  std::lock_guard lock(mutex_);
  return subscriptions_.size();
}

uint64_t EventHub::published() const {
  std::lock_guard lock(mutex_);
  return next_id_ - 1;
}

}  // namespace kav::host
