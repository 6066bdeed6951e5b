// Registers the plugin's tracing providers when the library is loaded and
// unregisters them when it is unloaded. Where the system has no tracing
// library both calls do nothing.
#include "diagnostics/event_tracing.h"

namespace kav {
namespace {

struct EventTracingLifetime {
  EventTracingLifetime() { StartEventTracing(); }
  ~EventTracingLifetime() { StopEventTracing(); }
};

const EventTracingLifetime event_tracing_lifetime;

}  // namespace
}  // namespace kav
