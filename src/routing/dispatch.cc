#include "routing/dispatch.h"

#include <chrono>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <utility>

#include "binding/api_help.h"
#include "routing/argument_binding.h"

namespace kav {
namespace {

// Releases the prepared arguments however the call ends.
class PreparedGuard {
 public:
  PreparedGuard(FunctionImplementation& implementation, PreparedArguments* state)
      : implementation_(implementation), state_(state) {}
  ~PreparedGuard() {
    if (state_ != nullptr) implementation_.ReleaseArguments(state_);
  }
  PreparedGuard(const PreparedGuard&) = delete;
  PreparedGuard& operator=(const PreparedGuard&) = delete;

 private:
  FunctionImplementation& implementation_;
  PreparedArguments* state_;
};

// The system clock in 100 ns ticks since 1970-01-01.
uint64_t SystemClockTicks() {
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                   std::chrono::system_clock::now().time_since_epoch())
                                   .count() /
                               100);
}

// Prepares the bound `arguments` and runs `implementation` into `result`;
// the asynchronous result types also get the call's context.
void Invoke(FunctionImplementation& implementation, CallResult& result,
            std::span<const BindingProperty> arguments, const KavRequest& request,
            const TypeRegistry* registry, HeaderMap& headers) {
  PreparedArguments* state =
      implementation.PrepareArguments(result.value, arguments, request.context);
  PreparedGuard guard(implementation, state);
  if (!result.value.Ok()) return;
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

// Binds the arguments of the matched function from `request`, runs its
// implementation and writes the answer into `response`.
void Dispatch(KavResponse& response, const KavRequest& request, const RouteMatch& match,
              const TypeRegistry* registry) {
  const FunctionDescription& function = *match.function;
  const Endpoint& endpoint = *match.endpoint;
  CallResult result;
  ArgumentBinder binder(function, endpoint, result.value);
  HeaderMap headers = ReadHeaders(request);
  binder.BindArguments(HeaderArguments(headers, function, endpoint), match.pathParameters,
                       ParseQuery(request.url != nullptr ? request.url : ""));
  binder.BindHostArguments(request, match.pathParameters.size());
  if (result.value.Ok()) binder.BindBody(request);
  if (result.value.Ok()) {
    if (endpoint.implementation == nullptr) {
      result.value.SetError("Invalid function");
      result.status = 404;
    } else {
      Invoke(*endpoint.implementation, result, binder.arguments(), request, registry, headers);
    }
  }
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

// HandleCall with the registry for built-ins and the one for conversions
// given separately.
void HandleRequest(const TypeRegistry* builtins, const TypeRegistry* conversions,
                   KavResponse& response, const KavRequest& request,
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
      WriteResponse(response, result, conversions);
      return;
    }
    if (builtins != nullptr && HasTag(*match.function, "$builtin")) {
      AnswerBuiltin(response, *builtins, *match.function);
      return;
    }
    Dispatch(response, request, match, conversions);
  } catch (const std::exception& error) {
    WriteInternalError(response, error.what());
  } catch (...) {
    WriteInternalError(response, nullptr);
  }
}

}  // namespace

void KAV_CALL OnCall(KavResponse* response, const KavRequest* request) {
  if (response == nullptr) return;
  if (request == nullptr) {
    KavRequest empty{};
    HandleRequest(nullptr, nullptr, *response, empty, {});
    return;
  }
  const auto* binding = static_cast<const EndpointBinding*>(request->user_data);
  if (binding == nullptr || binding->endpoint == nullptr) {
    HandleRequest(nullptr, nullptr, *response, *request, {});
    return;
  }
  try {
    Route route(*binding->endpoint);
    // Built-ins are not served to the host; the registry still names
    // enumerators in the answer.
    HandleRequest(nullptr, binding->registry, *response, *request, {&route, 1});
  } catch (...) {
    HandleRequest(nullptr, nullptr, *response, *request, {});  // answers "Invalid function"
  }
}

void HandleCall(const TypeRegistry* registry, KavResponse& response, const KavRequest& request,
                std::span<const Route> routes) {
  HandleRequest(registry, registry, response, request, routes);
}

}  // namespace kav
