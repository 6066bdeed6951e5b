// Event tracing: the plugin's four tracing providers, their registration at
// library load and unregistration at unload, and the enable-callback rules
// that decide which of a provider's events a tracing session wants.
//
// Without the system's tracing functions (always on POSIX) nothing is
// registered and tracing is silently off.
//
// Thread-safety: Start and Stop are called once each, from the thread that
// loads or unloads the library. The enable callback may run on a system
// thread at any time while a provider is registered; it writes only that
// provider's state, whose flags are atomic.
#ifndef KAV_DIAGNOSTICS_EVENT_TRACING_H_
#define KAV_DIAGNOSTICS_EVENT_TRACING_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/event_tracing.h"

namespace kav {

// One event of a provider's table.
struct TracingEventInfo {
  uint8_t level;      // 0: any session level
  uint64_t keywords;  // 0: no keyword filter
};

// Whether a session with this level and keywords wants the event: its level
// is 0 or not below the event's, and the event has no keywords or shares one
// with `match_any` and holds all of `match_all`.
bool IsTracingEventWanted(const TracingEventInfo& event, uint8_t session_level, uint64_t match_any,
                          uint64_t match_all);

// A provider's enable state, written by the enable callback. At most 64
// events.
class TracingProviderState {
 public:
  explicit TracingProviderState(std::span<const TracingEventInfo> events) : events_(events) {}

  // Control code kTracingDisable clears everything, kTracingEnable stores the
  // session's settings and decides each event; other codes change nothing.
  void ApplyControl(uint32_t control_code, uint8_t level, uint64_t match_any, uint64_t match_all);

  bool enabled() const { return enabled_.load(std::memory_order_acquire); }
  bool IsEventEnabled(size_t index) const {
    return index < 64 && (enabled_events_.load(std::memory_order_acquire) >> index & 1) != 0;
  }
  uint8_t level() const { return level_; }
  uint64_t match_any() const { return match_any_; }
  uint64_t match_all() const { return match_all_; }

 private:
  std::span<const TracingEventInfo> events_;
  std::atomic<bool> enabled_{false};
  std::atomic<uint64_t> enabled_events_{0};
  uint8_t level_ = 0;
  uint64_t match_any_ = 0;
  uint64_t match_all_ = 0;
};

// The thread-name event of the second provider: the thread's identifier
// (unsigned 32-bit) and the text "Main thread" with its NUL.
inline constexpr TracingEventDescriptor kThreadNameEvent = {103, 0, 0, 0, 14, 2, 1};
inline constexpr char kMainThreadName[] = "Main thread";

// The four providers and their registrations. Not copyable: the system keeps
// pointers to the registrations.
class EventTracing {
 public:
  static constexpr size_t kProviderCount = 4;
  // The provider that names the loading thread.
  static constexpr size_t kThreadProvider = 1;

  EventTracing();
  EventTracing(const EventTracing&) = delete;
  EventTracing& operator=(const EventTracing&) = delete;
  ~EventTracing() = default;

  // Registers every provider not registered yet (none without a register
  // function), then names the calling thread when the thread provider is
  // enabled. `functions` must stay valid until Stop.
  void Start(const EventTracingFunctions& functions);
  // Unregisters every registered provider.
  void Stop();

  static const TracingGuid& ProviderGuid(size_t index);
  uint64_t handle(size_t index) const { return providers_[index].handle; }
  const TracingProviderState& state(size_t index) const { return providers_[index].state; }

 private:
  struct Provider {
    explicit Provider(std::span<const TracingEventInfo> events) : state(events) {}
    uint64_t handle = 0;
    TracingProviderState state;
    TracingRegistration registration{};
  };

  static void OnEnable(uint32_t control_code, uint8_t level, uint64_t match_any, uint64_t match_all,
                       void* context);
  void WriteThreadName();

  EventTracingFunctions functions_{};
  Provider providers_[kProviderCount];
};

// The process's tracing, for the library's load and unload code.
void StartEventTracing();
void StopEventTracing();

}  // namespace kav

#endif  // KAV_DIAGNOSTICS_EVENT_TRACING_H_
