#include "routing/dispatch.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <utility>

#include "binding/api_help.h"
#include "routing/argument_binding.h"

namespace kav {
namespace {

constexpr size_t kPreparedStorageBytes = 256;

// Releases the prepared arguments however the call ends.
class PreparedGuard {
 public:
  PreparedGuard(FunctionImplementation* implementation, PreparedArguments* state)
      : implementation_(implementation), state_(state) {}
  ~PreparedGuard() {
    if (state_ != nullptr) implementation_->ReleaseArguments(state_);
  }
  PreparedGuard(const PreparedGuard&) = delete;
  PreparedGuard& operator=(const PreparedGuard&) = delete;

 private:
  FunctionImplementation* implementation_;
  PreparedArguments* state_;
};

// The system clock in 100 ns ticks since 1970-01-01.
uint64_t SystemClockTicks() {
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                   std::chrono::system_clock::now().time_since_epoch())
                                   .count() /
                               100);
}

// Runs `implementation` with its prepared `state` into `result`; the
// asynchronous result types also get the call's context.
void Invoke(FunctionImplementation& implementation, CallResult& result, PreparedArguments* state,
            const KavRequest& request, const TypeRegistry* registry, HeaderMap& headers) {
  result.enumerator_names = registry;
  if (!IsAsynchronousResultType(implementation.ResultType())) {
    implementation.Invoke(result, nullptr, state, request.context);
    return;
  }
  AsyncCallContext context;
  context.callContext = request.context;
  context.time = SystemClockTicks();
  context.url = request.url != nullptr ? request.url : "";
  context.registry = registry;
  context.method = HttpMethodFromCode(request.method);
  if (context.method == HttpMethod::kCustom && request.custom_method != nullptr) {
    context.customMethod = request.custom_method;
  }
  context.headers = std::move(headers);
  implementation.Invoke(result, &context, state, request.context);
}

// Binds the arguments of the matched function from `request`, prepares and
// runs its implementation, writes the answer into `response`, and only then
// releases the prepared arguments (an answer may still refer to them).
void Dispatch(KavResponse& response, const KavRequest& request, const RouteMatch& match,
              const TypeRegistry* registry) {
  const FunctionDescription& function = *match.function;
  const Endpoint& endpoint = *match.endpoint;
  CallResult result;
  ArgumentBinder binder(function, endpoint, result.value);
  HeaderMap headers = ReadHeaders(request);
  binder.BindRequest(request, headers, match.pathParameters);

  FunctionImplementation* implementation = endpoint.implementation.get();
  // The prepared state of most functions fits here: no allocation for it
  // (tests/host/answer_memory_test.cc).
  alignas(std::max_align_t) std::byte prepared_storage[kPreparedStorageBytes];
  PreparedArguments* state = nullptr;
  if (result.value.Ok() && implementation == nullptr) {
    result.value.SetError("Invalid function");
    result.status = 404;
  } else if (result.value.Ok()) {
    state = implementation->PrepareBound(result.value, binder, request.context, prepared_storage);
  }
  PreparedGuard guard(implementation, state);
  if (result.value.Ok()) Invoke(*implementation, result, state, request, registry, headers);
  WriteResponse(response, result, registry);
}

void AnswerBuiltin(KavResponse& response, const TypeRegistry& registry,
                   const FunctionDescription& function) {
  CallResult result;
  if (function.name == "Help") {
    BindingResult document = DescribeApi(registry, BindingHelpFormat::kFull);
    if (document.Ok()) {
      result.value = std::move(document);
    } else {
      result.value.SetError(document.Error());
      result.status = 400;
    }
  } else {
    result.value.SetError("Unsupported builtin function");
    result.status = 400;
  }
  WriteResponse(response, result, &registry);
}

bool HasTag(const FunctionDescription& function, std::string_view tag) {
  for (const std::string& candidate : function.tags) {
    if (candidate == tag) return true;
  }
  return false;
}

}  // namespace

void HandleCall(const TypeRegistry* registry, KavResponse& response, const KavRequest& request,
                std::span<const Route> routes) {
  ReleaseResponse(&response);
  response.release = ReleaseResponse;
  try {
    RouteRequest call;
    call.url = request.url != nullptr ? request.url : "";
    call.method = HttpMethodFromCode(request.method);
    if (call.method == HttpMethod::kCustom && request.custom_method != nullptr) {
      call.customMethod = request.custom_method;
    }
    RouteMatch match;
    if (!FindRoute(call, routes, false, match) || match.function == nullptr ||
        match.endpoint == nullptr) {
      CallResult result;
      result.value.SetError("Invalid function");
      result.status = 404;
      WriteResponse(response, result, registry);
      return;
    }
    if (registry != nullptr && HasTag(*match.function, "$builtin")) {
      AnswerBuiltin(response, *registry, *match.function);
      return;
    }
    Dispatch(response, request, match, registry);
  } catch (const std::exception& error) {
    WriteInternalError(response, error.what());
  } catch (...) {
    WriteInternalError(response, nullptr);
  }
}

void KAV_CALL OnCall(KavResponse* response, const KavRequest* request) {
  if (response == nullptr) return;
  if (request == nullptr) {
    const KavRequest empty{};
    HandleCall(nullptr, *response, empty, {});  // answers "Invalid function"
    return;
  }
  const auto* binding = static_cast<const EndpointBinding*>(request->user_data);
  if (binding == nullptr || binding->endpoint == nullptr) {
    HandleCall(nullptr, *response, *request, {});  // answers "Invalid function"
    return;
  }
  try {
    // No registry: built-ins are not served to the host, and the answer's
    // enumerators reach it as numbers, which it names from the API
    // description it was given.
    if (binding->route != nullptr && binding->route->endpoint() == binding->endpoint) {
      HandleCall(nullptr, *response, *request, {binding->route.get(), 1});
      return;
    }
    Route route(*binding->endpoint);
    HandleCall(nullptr, *response, *request, {&route, 1});
  } catch (...) {
    HandleCall(nullptr, *response, *request, {});  // answers "Invalid function"
  }
}

}  // namespace kav
