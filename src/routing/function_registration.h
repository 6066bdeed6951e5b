// Function registration: a module's RegisterApi registers each function
// with a typed handler and describes its endpoint through a FunctionBuilder;
// the Dispatcher keeps the endpoints and builds the resource table handed to
// the host (routing/resource_table.h).
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
// through the table. The registry owns the function descriptions.
//
// Thread-safety: the endpoint table and the resource-table index are guarded
// by the dispatcher's mutex. Registration (RegisterFunction and the builders)
// happens at start-up on one thread; afterwards calls may arrive on any host
// thread, each with its own call-local data.
#ifndef KAV_ROUTING_FUNCTION_REGISTRATION_H_
#define KAV_ROUTING_FUNCTION_REGISTRATION_H_

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "binding/type_converter.h"
#include "binding/type_registry.h"
#include "kav/plugin_host.h"
#include "routing/function_implementation.h"
#include "routing/resource_table.h"
#include "routing/route.h"
#include "routing/typed_implementation.h"

namespace kav {

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

  TypeRegistry& registry_;
  std::vector<std::string> default_tags_;
  mutable std::mutex mutex_;
  std::unordered_map<const FunctionDescription*, std::unique_ptr<Endpoint>> endpoints_;
  std::vector<Endpoint*> endpoint_order_;
  EndpointBindings bindings_;
  std::unique_ptr<ResourceTable> resources_;
};

template <class Handler>
FunctionBuilder Dispatcher::RegisterFunction(std::string_view name, Handler handler,
                                             std::string_view help) {
  using Traits = routing_internal::CallableTraits<Handler>;
  using Result = typename Traits::Result;
  using Value = typename routing_internal::AnswerTraits<Result>::Value;
  return [&]<class... Parameters>(std::tuple<Parameters...>*) {
    std::vector<TypeSpecification> parameter_types{
        SpecificationOf<std::remove_cvref_t<Parameters>>(registry_)...};
    ImplementationFactory make = [&](const FunctionDescription& function) {
      return std::unique_ptr<FunctionImplementation>(
          new routing_internal::TypedImplementation<Handler, Result, Parameters...>(
              std::move(handler), function, registry_));
    };
    return RegisterDescription(name, help, std::move(parameter_types),
                               routing_internal::ResultSpecification<Value>(registry_), make);
  }(static_cast<typename Traits::Parameters*>(nullptr));
}

}  // namespace kav

#endif  // KAV_ROUTING_FUNCTION_REGISTRATION_H_
