// Observing other plugins' resources: AppModule::ObserveResource<T>.
//
//   module.ObserveResource<Summoner>(
//       "/kav-summoner/v1/current-summoner",
//       [&](const ResourceEvent<Summoner>& event) { ... });
//
// The handler receives every change of the resource (or, for a URL with "*",
// of every resource the pattern matches) with the data converted to T; for
// Delete the value stays default-constructed. Changes whose data does not
// convert to T are dropped. A URL without "*" is also read at once (GET),
// and a successful answer is delivered as a Create; a failed read is
// skipped silently. Observations last until Shutdown.
//
// Thread-safety: as the module (the host delivers events one at a time).
#ifndef KAV_PLUGIN_EVENT_SUBSCRIPTIONS_H_
#define KAV_PLUGIN_EVENT_SUBSCRIPTIONS_H_

#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "binding/conversion.h"
#include "binding/static_type.h"
#include "diagnostics/logging.h"
#include "plugin/app_module.h"
#include "plugin/host_types.h"

namespace kav {

template <class T>
void AppModule::ObserveResource(std::string_view url,
                                std::function<void(const ResourceEvent<T>&)> handler) {
  ResourceObserver typed = [this, handler = std::move(handler)](const Resource& resource) {
    ResourceEvent<T> event;
    event.uri = resource.uri;
    event.event_type = resource.event_type;
    if (resource.event_type != PluginResourceEventType::kDelete) {
      BindingResult status;
      if (!FromBindingProperty(status, resource.data, "<value>", event.value, registry())) {
        Trace("Couldn't convert resource %s to C++ while handling update for URL: %s",
              StaticType::Name<T>(), resource.uri.c_str());
        return;
      }
    }
    if (handler) handler(event);
  };
  StartObservation(url, std::move(typed));
}

}  // namespace kav

#endif  // KAV_PLUGIN_EVENT_SUBSCRIPTIONS_H_
