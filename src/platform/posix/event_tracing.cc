#include "platform/event_tracing.h"

namespace kav {

// There is no system event tracing on POSIX: tracing stays silently off.
bool LoadEventTracing(EventTracingFunctions* functions) {
  *functions = EventTracingFunctions{};
  return false;
}

void UnloadEventTracing() {}

}  // namespace kav
