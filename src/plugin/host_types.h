// The host's own records in their native form: the resource change carried by
// resource events and the answer carried by the three service-proxy events.
//
// Plain value types (thread-compatible).
#ifndef KAV_PLUGIN_HOST_TYPES_H_
#define KAV_PLUGIN_HOST_TYPES_H_

#include <cstdint>
#include <string>

#include "binding/binding_property.h"

namespace kav {

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

}  // namespace kav

#endif  // KAV_PLUGIN_HOST_TYPES_H_
