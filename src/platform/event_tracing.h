// Access to the system's event tracing (Event Tracing for Windows): the
// functions that register a provider, write an event and unregister the
// provider, looked up at run time so that their absence is no error.
//
// The layouts of TracingGuid, TracingEventDescriptor and TracingDataItem are
// those of the system's GUID, EVENT_DESCRIPTOR and EVENT_DATA_DESCRIPTOR.
//
// Thread-safety: LoadEventTracing and UnloadEventTracing are called once each,
// at library load and unload; the functions of a loaded table may be called
// from any thread.
#ifndef KAV_PLATFORM_EVENT_TRACING_H_
#define KAV_PLATFORM_EVENT_TRACING_H_

#include <cstdint>

namespace kav {

struct TracingGuid {
  uint32_t data1;
  uint16_t data2;
  uint16_t data3;
  uint8_t data4[8];
};

struct TracingEventDescriptor {
  uint16_t id;
  uint8_t version;
  uint8_t channel;
  uint8_t level;
  uint8_t opcode;
  uint16_t task;
  uint64_t keyword;
};

struct TracingDataItem {
  uint64_t address;  // of the data, widened to 64 bits
  uint32_t size;
  uint32_t reserved;
};

// Control codes of the enable callback.
inline constexpr uint32_t kTracingDisable = 0;
inline constexpr uint32_t kTracingEnable = 1;

// Called by the system (on any thread) when a tracing session enables or
// disables a provider.
using TracingEnableCallback = void (*)(uint32_t control_code, uint8_t level, uint64_t match_any,
                                       uint64_t match_all, void* context);

// What a provider registration hands to the system; the caller owns it and
// keeps it alive until the provider is unregistered.
struct TracingRegistration {
  TracingEnableCallback callback;
  void* context;
};

// The tracing functions; each is null when the system lacks it. Results are
// system error codes, 0 for success.
struct EventTracingFunctions {
  uint32_t (*register_provider)(const TracingGuid* provider, TracingRegistration* registration,
                                uint64_t* handle);
  uint32_t (*write_event)(uint64_t handle, const TracingEventDescriptor* descriptor,
                          uint32_t item_count, const TracingDataItem* items);
  uint32_t (*unregister_provider)(uint64_t handle);
};

// Loads the tracing library and looks up its functions; false, with every
// function null, when the library is not available (always on POSIX).
bool LoadEventTracing(EventTracingFunctions* functions);
// Releases the library loaded by LoadEventTracing.
void UnloadEventTracing();

}  // namespace kav

#endif  // KAV_PLATFORM_EVENT_TRACING_H_
