// The registrations that every type registry contains from the start, in this
// order: the help records (binding/api_help.h), the asynchronous-operation
// state and event payloads below, and the built-in event "OnCallback"
// (payload BindingCallbackEvent). Run by TypeRegistry::InitializeRegistry.
// Since the first registration of a name wins, a module cannot redefine
// these types.
//
// Thread-safety: as registration in general (start-up, one thread).
#ifndef KAV_BINDING_BUILTIN_TYPES_H_
#define KAV_BINDING_BUILTIN_TYPES_H_

#include <cstdint>
#include <string>
#include <vector>

#include "binding/binding_property.h"

namespace kav {

class TypeRegistry;

// The states of an asynchronous operation.
enum class BindingAsyncState : int32_t {
  kNone = 0,        // "Invalid state"
  kRunning = 1,     // "The operation is in flight"
  kCancelling = 2,  // "A request to cancel the operation has been made"
  kCancelled = 3,   // "The operation was cancelled"
  kSucceeded = 4,   // "The operation completed successfully"
  kFailed = 5,      // "The operation encountered an error"
};

// Generic data of an event.
struct BindingGenericEvent {
  BindingProperty data;
};

// The parameters of a call to a provided callback (payload of "OnCallback").
struct BindingCallbackEvent {
  uint32_t id = 0;
  std::vector<BindingProperty> parameters;
};

// Generic data of an asynchronous operation's event.
struct BindingGenericAsyncEvent {
  uint32_t asyncToken = 0;
  BindingProperty data;
};

// A failed asynchronous operation.
struct BindingAsyncFailureEvent {
  uint32_t asyncToken = 0;
  std::string error;
};

// A cancelled asynchronous operation.
struct BindingAsyncCancelEvent {
  uint32_t asyncToken = 0;
};

void RegisterBuiltins(TypeRegistry& registry);

}  // namespace kav

#endif  // KAV_BINDING_BUILTIN_TYPES_H_
