#include "plugin/host_types.h"

#include <string>
#include <string_view>
#include <vector>

namespace kav {
namespace {

void DeclareHostEvent(TypeRegistry& registry, std::string_view name, const TypeDescription* payload,
                      std::string_view description) {
  const EventRegistration registration = registry.RegisterEvent(name, payload);
  if (registration.existed) return;
  registration.event->description = std::string(description);
  registration.event->tags.emplace_back(kHostTypeTag);
}

}  // namespace

void DeclareHostTypesAndEvents(TypeRegistry& registry) {
  const std::vector<std::string> tags = {kHostTypeTag};
  (void)RegisterEnumeration<PluginManagerState>(registry, "PluginManagerState", tags);
  (void)RegisterStructure<PluginManagerResource>(registry, "PluginManagerResource", tags);
  (void)RegisterEnumeration<PluginResourceEventType>(registry, "PluginResourceEventType", tags);
  const TypeDescription* resource_event =
      RegisterStructure<Resource>(registry, "PluginResourceEvent", tags).Description();
  const TypeDescription* mqds_event =
      RegisterStructure<PluginMqdsEvent>(registry, "PluginMqdsEvent", tags).Description();
  (void)RegisterStructure<PluginMqdsResponse>(registry, "PluginMqdsResponse", tags);
  const TypeDescription* service_proxy_response =
      RegisterStructure<PluginServiceProxyResponse>(registry, "PluginServiceProxyResponse", tags)
          .Description();

  DeclareHostEvent(registry, "OnJsonApiEvent", resource_event, "Fired when a resource is changed.");
  DeclareHostEvent(registry, "OnMqdsEvent", mqds_event,
                   "Fired when a message is received over the MQDS connection.");
  DeclareHostEvent(registry, "OnServiceProxyUuidEvent", service_proxy_response,
                   "Fired when a uuid-based service proxy message is received.");
  DeclareHostEvent(registry, "OnServiceProxyMethodEvent", service_proxy_response,
                   "Fired when a method-based service proxy message is received.");
  DeclareHostEvent(registry, "OnServiceProxyAsyncEvent", service_proxy_response,
                   "Fired when an async service proxy message is received.");
}

}  // namespace kav
