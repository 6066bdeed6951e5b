#include "diagnostics/event_tracing.h"

#include <new>

#include "platform/thread.h"

namespace kav {
namespace {

// Provider 1: general framework events.
constexpr TracingEventInfo kGeneralEvents[] = {{4, 0x1}, {2, 0x2}, {3, 0x4}};
// Provider 2: threads; its first event is the thread name.
constexpr TracingEventInfo kThreadEvents[] = {{0, 0x1}, {4, 0x2}};
// Provider 3: requests to and from the host.
constexpr TracingEventInfo kRequestEvents[] = {{4, 0x1}, {4, 0x2}, {2, 0x4}};
// Provider 4: performance counters.
constexpr TracingEventInfo kPerformanceEvents[] = {{5, 0x1}, {5, 0x2}};

constexpr TracingGuid kProviderGuids[EventTracing::kProviderCount] = {
    {0x3015fb38, 0x89ed, 0x4752, {0xbb, 0x5f, 0x9c, 0x23, 0x96, 0xaf, 0xa7, 0x87}},
    {0xa805c855, 0xa5ad, 0x498b, {0xb0, 0x11, 0x3c, 0x63, 0x70, 0x80, 0xdc, 0xfe}},
    {0xe369da3f, 0x9a23, 0x412a, {0x90, 0xd0, 0xc3, 0x9a, 0xa9, 0xfa, 0xf8, 0x7d}},
    {0x20e2e18f, 0x73c5, 0x458f, {0x84, 0xad, 0x34, 0xf1, 0xb7, 0x4a, 0x8e, 0x0c}},
};

}  // namespace

bool IsTracingEventWanted(const TracingEventInfo& event, uint8_t session_level, uint64_t match_any,
                          uint64_t match_all) {
  const bool level_ok = session_level == 0 || event.level <= session_level;
  const bool keywords_ok = event.keywords == 0 || ((event.keywords & match_any) != 0 &&
                                                   (event.keywords & match_all) == match_all);
  return level_ok && keywords_ok;
}

void TracingProviderState::ApplyControl(uint32_t control_code, uint8_t level, uint64_t match_any,
                                        uint64_t match_all) {
  if (control_code == kTracingDisable) {
    enabled_.store(false, std::memory_order_release);
    level_ = 0;
    match_any_ = 0;
    match_all_ = 0;
    enabled_events_.store(0, std::memory_order_release);
  } else if (control_code == kTracingEnable) {
    level_ = level;
    match_any_ = match_any;
    match_all_ = match_all;
    enabled_.store(true, std::memory_order_release);
    uint64_t wanted = 0;
    for (size_t i = 0; i < events_.size() && i < 64; ++i) {
      if (IsTracingEventWanted(events_[i], level, match_any, match_all)) wanted |= uint64_t{1} << i;
    }
    enabled_events_.store(wanted, std::memory_order_release);
  }
}

EventTracing::EventTracing()
    : providers_{Provider(kGeneralEvents), Provider(kThreadEvents), Provider(kRequestEvents),
                 Provider(kPerformanceEvents)} {}

const TracingGuid& EventTracing::ProviderGuid(size_t index) {
  return kProviderGuids[index];
}

void EventTracing::OnEnable(uint32_t control_code, uint8_t level, uint64_t match_any,
                            uint64_t match_all, void* context) {
  static_cast<TracingProviderState*>(context)->ApplyControl(control_code, level, match_any,
                                                            match_all);
}

void EventTracing::Start(const EventTracingFunctions& functions) {
  functions_ = functions;
  if (!functions_.register_provider) return;
  for (size_t i = 0; i < kProviderCount; ++i) {
    Provider& provider = providers_[i];
    if (provider.handle != 0) continue;
    provider.registration = {&EventTracing::OnEnable, &provider.state};
    uint64_t handle = 0;
    if (functions_.register_provider(&kProviderGuids[i], &provider.registration, &handle) == 0) {
      provider.handle = handle;
    }
  }
  if (providers_[kThreadProvider].state.enabled()) WriteThreadName();
}

void EventTracing::WriteThreadName() {
  const Provider& provider = providers_[kThreadProvider];
  if (!functions_.write_event || provider.handle == 0) return;
  const uint32_t thread_id = CurrentThreadId();
  const TracingDataItem items[] = {
      {reinterpret_cast<uintptr_t>(&thread_id), sizeof(thread_id), 0},
      {reinterpret_cast<uintptr_t>(kMainThreadName), sizeof(kMainThreadName), 0},
  };
  functions_.write_event(provider.handle, &kThreadNameEvent, 2, items);
}

void EventTracing::Stop() {
  for (Provider& provider : providers_) {
    if (provider.handle == 0) continue;
    if (functions_.unregister_provider) functions_.unregister_provider(provider.handle);
    provider.handle = 0;
  }
}

namespace {

EventTracing& ProcessTracing() {
  // Never destroyed: the system may still call an enable callback while the
  // process exits.
  alignas(EventTracing) static unsigned char storage[sizeof(EventTracing)];
  static EventTracing* tracing = new (storage) EventTracing();
  return *tracing;
}

EventTracingFunctions g_functions{};

}  // namespace

void StartEventTracing() {
  if (!LoadEventTracing(&g_functions)) return;
  ProcessTracing().Start(g_functions);
}

void StopEventTracing() {
  ProcessTracing().Stop();
  UnloadEventTracing();
  g_functions = EventTracingFunctions{};
}

}  // namespace kav
