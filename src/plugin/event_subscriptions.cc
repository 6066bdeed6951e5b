// AppModule's host event subscriptions: event names of resource URLs,
// reference-counted subscriptions, observations, the dispatch function, the
// resource router and the publication of resource events.
#include "plugin/event_subscriptions.h"

#include <utility>
#include <vector>

#include "binding/host_value.h"
#include "diagnostics/logging.h"
#include "plugin/request.h"
#include "serialization/json.h"

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

// Converts `source` (the payload, root "<result>") to `native`; false, with
// the reason in `status`, when either step fails.
template <class T>
bool ConvertPayload(BindingResult& status, const KavHostValue& source, T& native,
                    const TypeRegistry& registry) {
  BindingProperty payload;
  if (!FromHostValue(status, payload, source, "<result>")) return false;
  return FromBindingProperty(status, payload, "<result>", native, registry);
}

Failure PlainFailure(std::string message) {
  Failure failure;
  failure.message = std::move(message);
  return failure;
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

void AppModule::DeliverEvent(const EventHandler& handler, const KavEvent& event) {
  const KavHostValue payload = event.payload;
  BindingResult status;
  switch (handler.payload_kind) {
    case EventPayloadKind::kResource: {
      Resource resource;
      if (!ConvertPayload(status, payload, resource, registry())) break;
      Trace("%s: Handling event %s", plugin_name_.c_str(), event.name);
      if (handler.on_resource) handler.on_resource(resource);
      return;
    }
    case EventPayloadKind::kServiceProxyResponse: {
      PluginServiceProxyResponse response;
      if (!ConvertPayload(status, payload, response, registry())) break;
      Trace("%s: Handling event %s", plugin_name_.c_str(), event.name);
      if (handler.on_service_proxy_response) handler.on_service_proxy_response(response);
      return;
    }
  }
  Trace("%s: Couldn't convert payload %s for event %s: %s", plugin_name_.c_str(),
        HostValueKindName(payload.kind), event.name, std::string(status.Error()).c_str());
}

void AppModule::StartObservation(std::string_view url, ResourceObserver observer) {
  const std::string key(url);
  const bool pattern = key.find('*') != std::string::npos;
  if (pattern) {
    SetPatternObserver(key, observer);
  } else {
    SetExactObserver(key, observer);
  }
  Subscribe(url);
  if (pattern) return;
  MaybeType<Failure, BindingProperty> initial = Request<BindingProperty>(KAV_METHOD_GET, url);
  if (!initial.HasValue() || !observer) return;
  observer(Resource{key, PluginResourceEventType::kCreate, std::move(initial).Value()});
}

MaybeType<Failure, Nothing> AppModule::SendEvent(std::string_view event_name,
                                                 const Resource& resource, uint32_t word) {
  BindingResult value = ToBindingProperty(resource, registry());
  if (!value.Ok()) return PlainFailure(std::string(value.Error()));
  const std::string resolved_name = ResolveEventName(resource.uri);
  Trace("%s: Sending event: %s", plugin_name_.c_str(), resolved_name.c_str());
  KavHostValue payload{};
  if (!ToHostValue(payload, value, &registry())) {
    return PlainFailure("Out of memory for a host value");
  }
  KavEvent event{};
  event.name = resolved_name.c_str();
  event.payload = payload;
  event.word = word;
  event.context = nullptr;
  HostSendEvent(&event);
  if (event_name != resolved_name) {
    const std::string given_name(event_name);
    event.name = given_name.c_str();
    HostSendEvent(&event);
  }
  ReleaseHostValue(payload);
  return Nothing{};
}

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
