// Call dispatch: registering functions with typed handlers, giving the host
// one call callback per function through the resource table, and everything
// between an incoming request record and the response record it fills
// (route selection, argument binding from headers, path, query, host
// arguments and body, invocation, and the answer).
//
// Registration, from a module's RegisterApi:
//
//   Dispatcher& api = ...;
//   api.RegisterGet("/kav-queue-eligibility/v3/eligibility",
//                   [this](const std::vector<uint64_t>& summonerIds,
//                          const std::vector<int32_t>& queueIds) {
//                     return EligibilityV3(summonerIds, queueIds);
//                   })
//       .AddQueryParameter("summonerIds", "The party")
//       .AddQueryParameter("queueIds", "The queues");
//   api.RegisterPost("/kav-queue-eligibility/v1/eligibility", handler)
//       .AddBodyParameter("eligibilityQueryParam", "The query");
//   const KavResourceTable* table = api.BuildResourceTable();
//
// A handler is any callable (lambda, function pointer, std::function). Its
// parameters (by value or const reference) are converted from the bound
// arguments by the value-conversion rules; its answer is either a plain value
// or a MaybeType<Failure, T> (src/plugin/maybe_type.h; recognised by shape,
// so this layer does not depend on the plugin layer). A value is converted to
// the result; a Failure fails the call with its message, and its code becomes
// the status when the answer's extras set none. A value type that is void or
// an empty class (such as Nothing) answers no value.
//
// Parameters are created from the handler's signature, named "arg0",
// "arg1", ... until the builder's Add*Parameter calls name them in order.
// A parameter marked optional that receives no argument keeps its default
// value instead of failing with "A value for '%1' is required.".
//
// Ownership: the Dispatcher owns the endpoints, the implementations and the
// resource table with everything it points to; it must outlive every call
// through the table. The registry owns the function descriptions. A response
// owns what WriteResponse put into it until ReleaseResponse; all of that
// memory comes from PluginAllocate/PluginDuplicate.
//
// Thread-safety: the endpoint table and the resource-table index are guarded
// by the dispatcher's mutex. Registration (RegisterFunction and the builders)
// happens at start-up on one thread; afterwards calls may arrive on any host
// thread, each with its own call-local data.
#ifndef KAV_ROUTING_DISPATCH_H_
#define KAV_ROUTING_DISPATCH_H_

#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "binding/binding_property.h"
#include "binding/conversion_rules.h"
#include "binding/host_value.h"
#include "binding/static_type.h"
#include "binding/type_converter.h"
#include "binding/type_registry.h"
#include "kav/plugin_host.h"
#include "routing/route.h"

namespace kav {

// ---- What an implementation produces ----

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
  // The registry that names enumerators in the answer (may be null).
  const TypeRegistry* names = nullptr;
  uint8_t flags = 0;
  uint32_t format = 0;  // 1 to 3 reach the host; anything else is written as 0
  uint32_t status = 0;
  std::string text;
  std::vector<std::pair<std::string, std::string>> pairs;
  std::unique_ptr<BodyStream> stream;
};

// What an asynchronous implementation learns about its call.
struct AsyncCallContext {
  uint32_t callContext = 0;
  uint64_t time = 0;  // system clock, 100 ns ticks since 1970-01-01
  std::string url;
  const TypeRegistry* registry = nullptr;
  HttpMethod method = HttpMethod::kAny;
  std::string customMethod;  // only for kCustom
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
bool IsAsynchronousResultType(const StaticTypeIdentity& type);

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

namespace dispatch_detail {

template <class F>
struct CallableTraits : CallableTraits<decltype(&std::remove_cvref_t<F>::operator())> {};
template <class R, class... A>
struct CallableTraits<R (*)(A...)> {
  using Result = R;
  using Parameters = std::tuple<A...>;
};
template <class R, class... A>
struct CallableTraits<R (*)(A...) noexcept> : CallableTraits<R (*)(A...)> {};
template <class C, class R, class... A>
struct CallableTraits<R (C::*)(A...)> : CallableTraits<R (*)(A...)> {};
template <class C, class R, class... A>
struct CallableTraits<R (C::*)(A...) const> : CallableTraits<R (*)(A...)> {};
template <class C, class R, class... A>
struct CallableTraits<R (C::*)(A...) noexcept> : CallableTraits<R (*)(A...)> {};
template <class C, class R, class... A>
struct CallableTraits<R (C::*)(A...) const noexcept> : CallableTraits<R (*)(A...)> {};

// The shape of MaybeType<Failure, T>.
template <class R>
concept FailureAnswer = requires(R& answer) {
  typename R::ValueType;
  { answer.HasValue() } -> std::convertible_to<bool>;
  answer.Value();
  { answer.Error().message } -> std::convertible_to<std::string_view>;
  { answer.Error().code } -> std::convertible_to<uint32_t>;
  { answer.Extras().flags } -> std::convertible_to<uint8_t>;
  { answer.Extras().format } -> std::convertible_to<uint32_t>;
  { answer.Extras().status } -> std::convertible_to<uint32_t>;
  answer.Extras().text;
  answer.Extras().pairs;
};

template <class R>
struct AnswerTraits {
  using Value = R;
};
template <FailureAnswer R>
struct AnswerTraits<R> {
  using Value = typename R::ValueType;
};

template <class T>
concept NoValue = std::is_void_v<T> ||(std::is_class_v<T>&& std::is_empty_v<T>);
template <class T>
concept AsyncValue = std::same_as<T, AsyncOperation> || std::same_as<T, AsyncCallback>;

template <class T>
TypeSpecification ResultSpecification(const TypeRegistry& registry) {
  if constexpr (NoValue<T> || AsyncValue<T>) {
    return {};
  } else {
    return SpecificationOf<T>(registry);
  }
}

// Converts a handler's value into the call's result.
template <class T>
void ConvertAnswerValue(CallResult& call_result, const T& value, const TypeSpecification& spec,
                        const TypeRegistry& registry) {
  if constexpr (NoValue<T>) {
    (void)value, (void)spec, (void)registry;
  } else if constexpr (std::same_as<T, AsyncOperation>) {
    call_result.value.Member("asyncToken").SetUnsigned(value.asyncToken);
  } else if constexpr (std::same_as<T, AsyncCallback>) {
    call_result.value.Member("id").SetUnsigned(value.id);
  } else {
    // Straight to the host's format: the answer is only ever handed to the
    // host, so the BindingProperty in between would be built for nothing.
    try {
      ValueTraits<T>::ToHost(call_result.value, call_result.host_value, value, spec.type, registry,
                             call_result.names);
      call_result.has_host_value = call_result.value.Ok();
    } catch (const std::bad_alloc&) {
      call_result.host_value_failed = true;
    }
    if (!call_result.has_host_value) ReleaseHostValue(call_result.host_value);
  }
}

template <class... Values>
struct PreparedTuple final : PreparedArguments {
  std::tuple<Values...> values;
};

// Copies what a MaybeType-shaped answer carries beside its value.
template <class R>
void CopyAnswerExtras(CallResult& call_result, R& answer) {
  auto& extras = answer.Extras();
  call_result.flags = static_cast<uint8_t>(extras.flags);
  call_result.format = static_cast<uint32_t>(extras.format);
  call_result.status = static_cast<uint32_t>(extras.status);
  call_result.text.assign(extras.text);
  call_result.pairs.clear();
  for (const auto& [name, value] : extras.pairs) {
    call_result.pairs.emplace_back(std::string(name), std::string(value));
  }
}

// The implementation generated for one handler type.
template <class Callable, class Result, class... Parameters>
class TypedImplementation final : public FunctionImplementation {
 public:
  using Prepared = PreparedTuple<std::remove_cvref_t<Parameters>...>;

  TypedImplementation(Callable handler, const FunctionDescription& function,
                      const TypeRegistry& registry)
      : handler_(std::move(handler)), function_(function), registry_(registry) {}

  PreparedArguments* PrepareArguments(BindingResult& result,
                                      std::span<const BindingProperty> arguments,
                                      uint32_t /*call_context*/) override {
    auto state = std::make_unique<Prepared>();
    ConvertArguments(result, arguments, state->values, std::index_sequence_for<Parameters...>{});
    return state.release();
  }

  void Invoke(CallResult& call_result, const AsyncCallContext* /*async_context*/,
              PreparedArguments* state, uint32_t /*call_context*/) override {
    auto& values = static_cast<Prepared*>(state)->values;
    if constexpr (std::is_void_v<Result>) {
      Call(values, std::index_sequence_for<Parameters...>{});
    } else {
      Result answer = Call(values, std::index_sequence_for<Parameters...>{});
      if constexpr (FailureAnswer<Result>) {
        CopyAnswerExtras(call_result, answer);
        if (answer.HasValue()) {
          ConvertAnswerValue(call_result, answer.Value(), function_.result, registry_);
        } else {
          call_result.value.SetError(answer.Error().message);
          if (call_result.status == 0) call_result.status = answer.Error().code;
        }
      } else {
        ConvertAnswerValue(call_result, answer, function_.result, registry_);
      }
    }
  }

  void ReleaseArguments(PreparedArguments* state) override { delete state; }
  const void* Handler() const override { return &handler_; }
  const StaticTypeIdentity& ResultType() const override {
    return StaticType::Of<typename AnswerTraits<Result>::Value>();
  }

 private:
  template <size_t... kIndex>
  void ConvertArguments([[maybe_unused]] BindingResult& result,
                        [[maybe_unused]] std::span<const BindingProperty> arguments,
                        [[maybe_unused]] std::tuple<std::remove_cvref_t<Parameters>...>& values,
                        std::index_sequence<kIndex...>) {
    (ConvertArgument<kIndex>(result, arguments, std::get<kIndex>(values)), ...);
  }

  template <size_t kIndex, class T>
  void ConvertArgument(BindingResult& result, std::span<const BindingProperty> arguments,
                       T& value) {
    if (!result.Ok() || kIndex >= arguments.size()) return;
    const ParameterDescription& parameter = function_.parameters[kIndex];
    if (parameter.optional && arguments[kIndex].IsEmpty()) return;
    ConvertWithoutThrowing(result, parameter.name, [&] {
      ValueTraits<T>::From(result, value, arguments[kIndex], parameter.name, parameter.type.type,
                           registry_);
    });
  }

  // Passes each prepared value as the handler's parameter type asks: by
  // reference for reference parameters, moved for value parameters.
  template <size_t... kIndex>
  decltype(auto) Call([[maybe_unused]] std::tuple<std::remove_cvref_t<Parameters>...>& values,
                      std::index_sequence<kIndex...>) {
    return std::invoke(handler_, static_cast<Parameters&&>(std::get<kIndex>(values))...);
  }

  Callable handler_;
  const FunctionDescription& function_;
  const TypeRegistry& registry_;
};

}  // namespace dispatch_detail

// ---- Registration ----

// Fills the function and endpoint of a RegisterFunction call. When the
// function existed before that call, every operation does nothing, so a
// repeated registration changes nothing. Use during registration only.
class FunctionBuilder {
 public:
  FunctionBuilder(FunctionDescription* function, bool existed, Endpoint* endpoint)
      : function_(function), existed_(existed), endpoint_(endpoint) {}

  bool Existed() const { return existed_; }
  const FunctionDescription* Function() const { return function_; }
  const Endpoint* GetEndpoint() const { return endpoint_; }

  // Stores the path template without one trailing "/" (a lone "/" stays).
  // A malformed template is reported in the log; its route matches nothing.
  FunctionBuilder& SetPath(std::string_view path);
  // Stores the method and clears the custom method text.
  FunctionBuilder& SetMethod(HttpMethod method);
  // Method kCustom named `method`.
  FunctionBuilder& SetCustomMethod(std::string_view method);

  // Names the next parameter of the handler (in the handler's order), sets
  // where its value may come from and, when `type` has a kind, the type that
  // help and the host see for it. Beyond the handler's last parameter:
  // reported in the log, nothing else.
  FunctionBuilder& AddParameter(std::string_view name, std::string_view description,
                                ParameterLocation location = ParameterLocation::kAny,
                                bool optional = false, TypeSpecification type = {});
  FunctionBuilder& AddQueryParameter(std::string_view name, std::string_view description,
                                     TypeSpecification type = {}) {
    return AddParameter(name, description, ParameterLocation::kQuery, false, type);
  }
  FunctionBuilder& AddBodyParameter(std::string_view name, std::string_view description,
                                    TypeSpecification type = {}) {
    return AddParameter(name, description, ParameterLocation::kBody, false, type);
  }

  // Description setters.
  FunctionBuilder& SetDescription(std::string_view description);
  FunctionBuilder& SetHelp(std::string_view help);
  FunctionBuilder& SetNameSpace(std::string_view name_space);
  FunctionBuilder& AddTag(std::string_view tag);  // an empty tag is ignored
  FunctionBuilder& AddTags(std::span<const std::string> tags);
  FunctionBuilder& SetThreadSafe(bool thread_safe);
  FunctionBuilder& SetAsync(bool async);
  // The result type the host is to see instead of the native one.
  FunctionBuilder& SetHostResultType(TypeSpecification type);

 private:
  bool Inert() const { return existed_ || function_ == nullptr || endpoint_ == nullptr; }

  FunctionDescription* function_;
  bool existed_;
  Endpoint* endpoint_;
  size_t next_parameter_ = 0;
};

// The user data of a resource-table entry.
struct EndpointBinding {
  const TypeRegistry* registry = nullptr;
  const Endpoint* endpoint = nullptr;
};

// The module's function table: endpoints by function, and the resource table
// handed to the host.
class Dispatcher {
 public:
  explicit Dispatcher(TypeRegistry& registry);
  ~Dispatcher();
  Dispatcher(const Dispatcher&) = delete;
  Dispatcher& operator=(const Dispatcher&) = delete;

  TypeRegistry& Registry() const { return registry_; }

  // Tags given to every function registered from now on (the module's help
  // tags).
  void SetDefaultTags(std::vector<std::string> tags);

  // Registers the function `name` with a copy of `handler`. When a function
  // of that name is already registered with an endpoint, nothing changes and
  // the returned builder is inert.
  template <class Handler>
  FunctionBuilder RegisterFunction(std::string_view name, Handler handler,
                                   std::string_view help = {});
  // Named by MakeFunctionName("GET"/"POST", path), with path and method set.
  template <class Handler>
  FunctionBuilder RegisterGet(std::string_view path, Handler handler, std::string_view help = {}) {
    return RegisterFunction(MakeFunctionName("GET", path), std::move(handler), help)
        .SetPath(path)
        .SetMethod(HttpMethod::kGet);
  }
  template <class Handler>
  FunctionBuilder RegisterPost(std::string_view path, Handler handler, std::string_view help = {}) {
    return RegisterFunction(MakeFunctionName("POST", path), std::move(handler), help)
        .SetPath(path)
        .SetMethod(HttpMethod::kPost);
  }

  // Builds the host API description and the resource table of every
  // endpoint (in registration order). The table and everything it points to
  // stay valid until the next build or the dispatcher's destruction.
  const KavResourceTable* BuildResourceTable();

  // The endpoint of a function; null when none.
  const Endpoint* FindEndpoint(const FunctionDescription* function) const;
  // The resource-table user data of a function name; null before
  // BuildResourceTable or for an unknown name.
  const EndpointBinding* FindBinding(std::string_view name) const;
  // The routes of every endpoint, in registration order.
  std::vector<Route> Routes() const;

 private:
  using ImplementationFactory =
      std::function<std::unique_ptr<FunctionImplementation>(const FunctionDescription&)>;

  FunctionBuilder RegisterDescription(std::string_view name, std::string_view help,
                                      std::vector<TypeSpecification> parameter_types,
                                      TypeSpecification result,
                                      const ImplementationFactory& make_implementation);

  struct ResourceStorage;

  TypeRegistry& registry_;
  std::vector<std::string> default_tags_;
  mutable std::mutex mutex_;
  std::unordered_map<const FunctionDescription*, std::unique_ptr<Endpoint>> endpoints_;
  std::vector<Endpoint*> endpoint_order_;
  std::unordered_map<std::string, std::unique_ptr<EndpointBinding>> bindings_;
  std::unique_ptr<ResourceStorage> resources_;
};

template <class Handler>
FunctionBuilder Dispatcher::RegisterFunction(std::string_view name, Handler handler,
                                             std::string_view help) {
  using Traits = dispatch_detail::CallableTraits<Handler>;
  using Result = typename Traits::Result;
  using Value = typename dispatch_detail::AnswerTraits<Result>::Value;
  return [&]<class... Parameters>(std::tuple<Parameters...>*) {
    std::vector<TypeSpecification> parameter_types{
        SpecificationOf<std::remove_cvref_t<Parameters>>(registry_)...};
    ImplementationFactory make = [&](const FunctionDescription& function) {
      return std::unique_ptr<FunctionImplementation>(
          new dispatch_detail::TypedImplementation<Handler, Result, Parameters...>(
              std::move(handler), function, registry_));
    };
    return RegisterDescription(name, help, std::move(parameter_types),
                               dispatch_detail::ResultSpecification<Value>(registry_), make);
  }(static_cast<typename Traits::Parameters*>(nullptr));
}

// ---- Calls ----

// The host's entry for every call: the endpoint comes from the request's
// user data (an EndpointBinding). Never throws.
void KAV_CALL OnCall(KavResponse* response, const KavRequest* request);

// Answers `request` over `routes` into `response` (released first). With a
// `registry`, functions tagged "$builtin" are answered as built-ins ("Help":
// the Full help document); without one, enumerators reach the host as
// numbers. Never throws.
void HandleCall(const TypeRegistry* registry, KavResponse& response, const KavRequest& request,
                std::span<const Route> routes);

// The response's release function: frees what the response owns and
// zero-fills the record.
void KAV_CALL ReleaseResponse(KavResponse* response);

}  // namespace kav

#endif  // KAV_ROUTING_DISPATCH_H_
