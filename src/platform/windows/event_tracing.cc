#ifdef _WIN32
#include "platform/event_tracing.h"

#include <windows.h>

namespace kav {
namespace {

// The system's signatures (evntprov.h), spelled out so that no import of
// Advapi32.dll is created: the library is looked up at run time.
using EnableCallbackType = void(NTAPI*)(LPCGUID source, ULONG control_code, UCHAR level,
                                        ULONGLONG match_any, ULONGLONG match_all, PVOID filter,
                                        PVOID context);
using EventRegisterType = ULONG(WINAPI*)(LPCGUID provider, EnableCallbackType callback,
                                         PVOID context, ULONGLONG* handle);
using EventWriteType = ULONG(WINAPI*)(ULONGLONG handle, const void* descriptor, ULONG count,
                                      const void* items);
using EventUnregisterType = ULONG(WINAPI*)(ULONGLONG handle);

HMODULE g_library = nullptr;
EventRegisterType g_event_register = nullptr;
EventWriteType g_event_write = nullptr;
EventUnregisterType g_event_unregister = nullptr;

void NTAPI EnableTrampoline(LPCGUID, ULONG control_code, UCHAR level, ULONGLONG match_any,
                            ULONGLONG match_all, PVOID, PVOID context) {
  auto* registration = static_cast<TracingRegistration*>(context);
  if (registration && registration->callback) {
    registration->callback(control_code, level, match_any, match_all, registration->context);
  }
}

uint32_t RegisterProvider(const TracingGuid* provider, TracingRegistration* registration,
                          uint64_t* handle) {
  ULONGLONG system_handle = 0;
  const ULONG result = g_event_register(reinterpret_cast<LPCGUID>(provider), &EnableTrampoline,
                                        registration, &system_handle);
  *handle = system_handle;
  return result;
}

uint32_t WriteEvent(uint64_t handle, const TracingEventDescriptor* descriptor, uint32_t count,
                    const TracingDataItem* items) {
  return g_event_write(handle, descriptor, count, items);
}

uint32_t UnregisterProvider(uint64_t handle) {
  return g_event_unregister(handle);
}

template <class Function>
Function Find(const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(g_library, name)));
}

}  // namespace

bool LoadEventTracing(EventTracingFunctions* functions) {
  *functions = EventTracingFunctions{};
  if (!g_library) g_library = LoadLibraryA("Advapi32.dll");
  if (!g_library) return false;
  g_event_register = Find<EventRegisterType>("EventRegister");
  g_event_write = Find<EventWriteType>("EventWrite");
  g_event_unregister = Find<EventUnregisterType>("EventUnregister");
  if (g_event_register) functions->register_provider = &RegisterProvider;
  if (g_event_write) functions->write_event = &WriteEvent;
  if (g_event_unregister) functions->unregister_provider = &UnregisterProvider;
  return true;
}

void UnloadEventTracing() {
  g_event_register = nullptr;
  g_event_write = nullptr;
  g_event_unregister = nullptr;
  if (g_library) FreeLibrary(g_library);
  g_library = nullptr;
}

}  // namespace kav
#endif  // _WIN32
