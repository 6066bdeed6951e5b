// AppModule's host event subscriptions: event names of resource URLs,
// reference-counted subscriptions, the dispatch function and the resource
// router.
#include <utility>
#include <vector>

#include "diagnostics/logging.h"
#include "plugin/app_module.h"

namespace kav {
namespace {

constexpr uint32_t kResourceSubscriptionFlag = 0;

std::vector<std::string_view> SplitPath(std::string_view url) {
  std::vector<std::string_view> pieces;
  size_t start = 0;
  while (start <= url.size()) {
    size_t end = url.find('/', start);
    if (end == std::string_view::npos) end = url.size();
    if (end > start) pieces.push_back(url.substr(start, end - start));
    start = end + 1;
  }
  return pieces;
}

}  // namespace

std::string ResolveEventName(std::string_view url) {
  std::vector<std::string_view> entries = {"OnJsonApiEvent"};
  for (std::string_view piece : SplitPath(url)) entries.push_back(piece);
  const size_t keep = entries.size() > 1 && entries[1] == "kav-platform-config" ? 6 : 4;
  if (entries.size() > keep) entries.resize(keep);
  std::string name;
  for (size_t i = 0; i < entries.size(); ++i) {
    if (i > 0) name.push_back('_');
    name.append(entries[i]);
  }
  return name;
}

bool MatchUriPattern(std::string_view pattern, std::string_view uri) {
  size_t p = 0;
  size_t u = 0;
  while (p < pattern.size()) {
    if (pattern[p] == '*') {
      if (u == uri.size()) return false;
      if (uri[u] == '/') {
        ++p;  // a "/" ends the run without being consumed
      } else if (++u == uri.size()) {
        ++p;
      }
    } else {
      if (u == uri.size() || pattern[p] != uri[u]) return false;
      ++p;
      ++u;
    }
  }
  return u == uri.size();
}

void AppModule::Subscribe(std::string_view url) {
  const std::string event_name = ResolveEventName(url);
  if (++subscription_counts_[event_name] != 1) return;
  Trace("%s: Subscribing to event: %s", plugin_name_.c_str(), event_name.c_str());
  auto router = std::make_shared<EventHandler>();
  router->payload_kind = EventPayloadKind::kResource;
  router->on_resource = [this](const Resource& resource) { RouteResourceEvent(resource); };
  RegisterEventHandler(event_name, std::move(router), kResourceSubscriptionFlag);
}

void AppModule::Unsubscribe(std::string_view url) {
  const std::string event_name = ResolveEventName(url);
  auto count = subscription_counts_.find(event_name);
  if (count == subscription_counts_.end() || count->second == 0) return;
  if (--count->second != 0) return;
  HostUnsubscribe(event_name.c_str(), plugin_handle_);
  event_handlers_.erase(event_name);
  Trace("%s: Unsubscribing to event: %s", plugin_name_.c_str(), event_name.c_str());
}

void AppModule::RegisterEventHandler(const std::string& event_name,
                                     std::shared_ptr<EventHandler> handler, uint32_t flag) {
  event_handlers_[event_name] = std::move(handler);
  HostSubscribe(event_name.c_str(), plugin_handle_, &AppModule::DispatchEvent, this, flag);
}

void KAV_CALL AppModule::DispatchEvent(const KavEvent* event) {
  if (event == nullptr || event->context == nullptr || event->name == nullptr) return;
  AppModule* module = static_cast<AppModule*>(event->context);
  auto found = module->event_handlers_.find(event->name);
  if (found == module->event_handlers_.end()) return;
  // The handler is shared so that it outlives its own unsubscription.
  std::shared_ptr<EventHandler> handler = found->second;
  try {
    module->DeliverEvent(*handler, *event);
  } catch (...) {
    Log(kLogError, 0, "%s: Handling event %s failed", module->plugin_name_.c_str(), event->name);
  }
}

void AppModule::DeliverEvent(const EventHandler& /*handler*/, const KavEvent& /*event*/) {}

void AppModule::SetExactObserver(const std::string& uri, ResourceObserver observer) {
  exact_observers_[uri] = std::move(observer);
}

void AppModule::SetPatternObserver(const std::string& pattern, ResourceObserver observer) {
  pattern_observers_[pattern] = std::move(observer);
}

void AppModule::RouteResourceEvent(const Resource& resource) {
  std::string uri = resource.uri;
  if (uri.empty() || uri.front() != '/') uri.insert(uri.begin(), '/');
  // Observers may start or replace observations; they are picked first and
  // called from copies so that the tables may change under them.
  std::vector<ResourceObserver> observers;
  auto exact = exact_observers_.find(uri);
  if (exact != exact_observers_.end() && exact->second) observers.push_back(exact->second);
  for (const auto& [pattern, observer] : pattern_observers_) {
    if (observer && MatchUriPattern(pattern, uri)) observers.push_back(observer);
  }
  for (const ResourceObserver& observer : observers) observer(resource);
}

}  // namespace kav
