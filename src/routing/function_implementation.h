// The contract between call dispatch and the code that runs a registered
// function: what an implementation is handed (the bound arguments, the call
// context and, for the asynchronous result types, an AsyncCallContext) and
// what it produces (a CallResult, possibly with a streamed body).
//
// Ownership: a CallResult owns its value, its host value and its stream until
// the response takes them over (routing/response_writing.h). The state that
// PrepareArguments returns belongs to the dispatcher, which hands it back to
// ReleaseArguments once the response is written.
//
// Thread-safety: an implementation may be called from several host threads
// at once; each call has its own CallResult and prepared state.
#ifndef KAV_ROUTING_FUNCTION_IMPLEMENTATION_H_
#define KAV_ROUTING_FUNCTION_IMPLEMENTATION_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "binding/binding_property.h"
#include "binding/host_value.h"
#include "binding/static_type.h"
#include "kav/plugin_host.h"
#include "routing/argument_binding.h"
#include "routing/route.h"

namespace kav {

class TypeRegistry;

// A streamed response body; owned by the CallResult, then by the response
// until the host calls its close function.
class BodyStream {
 public:
  // Fills up to `size` bytes of `buffer`; `size` becomes the count
  // delivered; `more` is cleared once the stream is exhausted. False on a
  // read error.
  virtual bool Read(uint8_t* buffer, uint32_t& size, bool& more) = 0;
  // The expected total length (a reservation hint).
  virtual uint32_t Length() = 0;
  virtual ~BodyStream() = default;
};

struct CallResult {
  CallResult() = default;
  CallResult(const CallResult&) = delete;
  CallResult& operator=(const CallResult&) = delete;
  ~CallResult() { ReleaseHostValue(host_value); }

  // The answer: its error, or its value as a BindingProperty unless
  // `has_host_value` says it went straight into `host_value`.
  BindingResult value;
  KavHostValue host_value{};  // owned until moved into the response
  bool has_host_value = false;
  bool host_value_failed = false;  // memory ran out while it was built
  // The registry whose names the answer's enumerators carry; null writes
  // enumerators as numbers.
  const TypeRegistry* enumerator_names = nullptr;
  uint8_t flags = 0;
  uint32_t format = 0;  // 1 to 3 reach the host; anything else is written as 0
  uint32_t status = 0;  // the response's status code
  std::string text;
  std::vector<std::pair<std::string, std::string>> pairs;
  std::unique_ptr<BodyStream> stream;
};

// What an asynchronous implementation learns about its call.
struct AsyncCallContext {
  uint32_t callContext = 0;
  uint64_t time = 0;  // system clock, 100 ns ticks since 1970-01-01
  std::string url;
  const TypeRegistry* registry = nullptr;  // the one given to HandleCall; null from OnCall
  HttpMethod method = HttpMethod::kAny;
  std::string customMethod;  // only for kCustom
  // The request's headers by name as given; a later header of the same name
  // replaces the earlier.
  std::unordered_map<std::string, std::string> headers;
};

// The two asynchronous result types: a handler that answers one of them has
// started an operation that reports its outcome later through the built-in
// asynchronous events (binding/builtin_types.h) under the same token. The call
// itself answers {"asyncToken": n} or {"id": n}. Dispatch hands such an
// implementation the AsyncCallContext; the generated implementations do not
// use it (a hand-written FunctionImplementation may).
struct AsyncOperation {
  uint32_t asyncToken = 0;
};
struct AsyncCallback {
  uint32_t id = 0;
};
inline bool IsAsynchronousResultType(const StaticTypeIdentity& type) {
  // Hashed at compile time: every call asks this (dispatch_bench
  // BM_FlagCallThroughTable).
  constexpr uint32_t kAsyncOperationId = StaticType::Id<AsyncOperation>();
  constexpr uint32_t kAsyncCallbackId = StaticType::Id<AsyncCallback>();
  return type.id == kAsyncOperationId || type.id == kAsyncCallbackId;
}

// The native arguments prepared for one call; opaque to the dispatcher.
class PreparedArguments {
 public:
  virtual ~PreparedArguments() = default;
};

// The callable object of an endpoint.
class FunctionImplementation {
 public:
  // Converts the bound argument values (one per parameter) to the handler's
  // native arguments, reporting failures into `result`. The returned state
  // is handed to Invoke and then to ReleaseArguments.
  virtual PreparedArguments* PrepareArguments(BindingResult& result,
                                              std::span<const BindingProperty> arguments,
                                              uint32_t call_context) = 0;
  // PrepareArguments for the arguments as `binder` holds them, integer
  // lists perhaps still as texts. The state may be built in `storage`
  // (suitably aligned for any type), which outlives ReleaseArguments. The
  // default hands the generic values to PrepareArguments.
  virtual PreparedArguments* PrepareBound(BindingResult& result, ArgumentBinder& binder,
                                          uint32_t call_context, std::span<std::byte> /*storage*/) {
    return PrepareArguments(result, binder.MaterializedArguments(), call_context);
  }
  // Runs the handler and fills `call_result`. `async_context` is set only
  // for the asynchronous result types.
  virtual void Invoke(CallResult& call_result, const AsyncCallContext* async_context,
                      PreparedArguments* state, uint32_t call_context) = 0;
  virtual void ReleaseArguments(PreparedArguments* state) = 0;
  // The stored native handler.
  virtual const void* Handler() const = 0;
  // The identity of the handler's answer type (T of a MaybeType<Failure, T>
  // answer, else the declared result type).
  virtual const StaticTypeIdentity& ResultType() const = 0;
  virtual ~FunctionImplementation() = default;
};

}  // namespace kav

#endif  // KAV_ROUTING_FUNCTION_IMPLEMENTATION_H_
