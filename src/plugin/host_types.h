// The host's own records and events in their native form: the plugin
// manager's state, the resource change carried by resource events, the MQDS
// records and the answer carried by the three service-proxy events. Every
// plugin declares them in its type registry (DeclareHostTypesAndEvents) so
// that event payloads convert like any other value and so that the plugin's
// self-description lists them.
//
// Plain value types (thread-compatible). Declaration runs at registration,
// on one thread.
#ifndef KAV_PLUGIN_HOST_TYPES_H_
#define KAV_PLUGIN_HOST_TYPES_H_

#include <cstdint>
#include <string>

#include "binding/binding_property.h"
#include "binding/declare.h"
#include "binding/type_registry.h"

namespace kav {

// The help tag of every host type and event.
inline constexpr char kHostTypeTag[] = "oclient";

// Registered as "PluginManagerState".
enum class PluginManagerState : int32_t {
  kNotReady = 0,
  kPluginsInitialized = 1,
};

// Registered as "PluginManagerResource". Declared only; never read.
struct PluginManagerResource {
  PluginManagerState state = PluginManagerState::kNotReady;
};

// Registered as "PluginResourceEventType"; the values are fixed by the host.
enum class PluginResourceEventType : int32_t {
  kCreate = 0,
  kUpdate = 1,
  kDelete = 2,
};

// One resource change (registered as "PluginResourceEvent").
struct Resource {
  std::string uri;
  PluginResourceEventType event_type = PluginResourceEventType::kCreate;
  BindingProperty data;  // empty for kDelete
};

// A resource change whose data was converted to the observer's type T
// (default-constructed for kDelete, whose data is not converted).
template <class T>
struct ResourceEvent {
  std::string uri;
  PluginResourceEventType event_type = PluginResourceEventType::kCreate;
  T value{};
};

// Registered as "PluginMqdsEvent". Declared only; never subscribed.
struct PluginMqdsEvent {
  std::string client_id;
  std::string subtopic;
  std::string type_name;
  BindingProperty body;
};

// Registered as "PluginMqdsResponse". Declared only.
struct PluginMqdsResponse {
  std::string type_name;
  BindingProperty body;
};

// The payload of "OnServiceProxyUuidEvent", "OnServiceProxyMethodEvent" and
// "OnServiceProxyAsyncEvent" (registered as "PluginServiceProxyResponse").
struct PluginServiceProxyResponse {
  std::string uuid;
  std::string service_name;
  std::string method_name;
  std::string payload;  // JSON text
  std::string status;
  std::string error;  // empty when the call succeeded
};

constexpr auto BindingEnumerators(const PluginManagerState*) {
  using enum PluginManagerState;
  return Enumerators<PluginManagerState>({
      {"NotReady", kNotReady},
      {"PluginsInitialized", kPluginsInitialized},
  });
}

constexpr auto BindingFields(const PluginManagerResource*) {
  return Fields(Field("state", &PluginManagerResource::state));
}

constexpr auto BindingEnumerators(const PluginResourceEventType*) {
  using enum PluginResourceEventType;
  return Enumerators<PluginResourceEventType>({
      {"Create", kCreate},
      {"Update", kUpdate},
      {"Delete", kDelete},
  });
}

constexpr auto BindingFields(const Resource*) {
  return Fields(Field("uri", &Resource::uri), Field("eventType", &Resource::event_type),
                Field("data", &Resource::data));
}

constexpr auto BindingFields(const PluginMqdsEvent*) {
  using E = PluginMqdsEvent;
  return Fields(Field("clientId", &E::client_id), Field("subtopic", &E::subtopic),
                Field("typeName", &E::type_name), Field("body", &E::body));
}

constexpr auto BindingFields(const PluginMqdsResponse*) {
  return Fields(Field("typeName", &PluginMqdsResponse::type_name),
                Field("body", &PluginMqdsResponse::body));
}

constexpr auto BindingFields(const PluginServiceProxyResponse*) {
  using R = PluginServiceProxyResponse;
  return Fields(Field("uuid", &R::uuid), Field("serviceName", &R::service_name),
                Field("methodName", &R::method_name), Field("payload", &R::payload),
                Field("status", &R::status), Field("error", &R::error));
}

// Declares, with the tag kHostTypeTag, the seven host types (PluginManagerState,
// PluginManagerResource, PluginResourceEventType, PluginResourceEvent,
// PluginMqdsEvent, PluginMqdsResponse, PluginServiceProxyResponse) and the
// five host events ("OnJsonApiEvent", "OnMqdsEvent",
// "OnServiceProxyUuidEvent", "OnServiceProxyMethodEvent",
// "OnServiceProxyAsyncEvent") with their descriptions, in that order. Names
// registered before keep their first registration.
void DeclareHostTypesAndEvents(TypeRegistry& registry);

}  // namespace kav

#endif  // KAV_PLUGIN_HOST_TYPES_H_
