// Internal to routing: the FunctionImplementation that Dispatcher::
// RegisterFunction generates for each handler type, and the traits it reads
// a handler's signature and answer with. Only routing/function_registration.h
// includes this header (its template needs these definitions); nothing else
// should.
//
// A handler is any callable whose parameters (by value or const reference)
// are converted from the bound arguments, and whose answer is a plain value
// or a MaybeType<Failure, T> (recognised by shape, so that routing does not
// depend on the plugin layer).
#ifndef KAV_ROUTING_TYPED_IMPLEMENTATION_H_
#define KAV_ROUTING_TYPED_IMPLEMENTATION_H_

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "binding/binding_property.h"
#include "binding/conversion_rules.h"
#include "binding/host_value.h"
#include "binding/host_value_list.h"
#include "binding/static_type.h"
#include "binding/type_converter.h"
#include "binding/type_registry.h"
#include "platform/allocation.h"
#include "routing/argument_binding.h"
#include "routing/function_implementation.h"
#include "routing/integer_list.h"

namespace kav {

namespace routing_internal {

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

template <class T>
struct IsHostValueList : std::false_type {};
template <class T>
struct IsHostValueList<HostValueList<T>> : std::true_type {};

// The stack memory in which an answer is built before it is laid out in its
// one block; larger answers take chunks from the heap for the while.
inline constexpr size_t kAnswerScratchBytes = 16 * 1024;

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
  } else if constexpr (IsHostValueList<T>::value) {
    if (!value.IsPicks()) {
      ConvertAnswerValue(call_result, value.values(), spec, registry);
      return;
    }
    // Copied from images laid out once, not converted again
    // (eligibility_bench CachedSelfEligibility/N/M).
    try {
      KavHostValue laid_out{};
      value.LayOutPicks(call_result.value, laid_out, spec.type, registry,
                        call_result.enumerator_names);
      if (call_result.value.Ok()) {
        call_result.host_value = laid_out;
        call_result.has_host_value = true;
      }
    } catch (const std::bad_alloc&) {
      call_result.host_value_failed = true;
    }
  } else {
    // Straight to the host's format: the answer is only ever handed to the
    // host, so the BindingProperty in between would be built for nothing
    // (dispatch_bench BM_V3CallThroughTable, eligibility_bench
    // CachedSelfEligibility). It is built in scratch memory, most often all
    // on the stack, and then laid out in one block: one allocation for the
    // whole answer instead of one per array, map, key and text
    // (CachedSelfEligibility/50/50).
    alignas(kPluginBlockAlignment) std::byte scratch[kAnswerScratchBytes];
    try {
      HostValueArena arena(scratch);
      KavHostValue built{};
      ValueTraits<T>::ToHost(call_result.value, built, value, spec.type, registry,
                             call_result.enumerator_names, &arena);
      if (call_result.value.Ok()) {
        LayOutHostValue(call_result.host_value, built, arena);
        call_result.has_host_value = true;
      }
    } catch (const std::bad_alloc&) {
      call_result.host_value_failed = true;
    }
  }
}

template <class... Values>
struct PreparedTuple final : PreparedArguments {
  std::tuple<Values...> values;
  bool in_place = false;  // built in the caller's storage, not allocated
};

template <class T>
struct IsIntegerVector : std::false_type {};
template <ListInteger T>
struct IsIntegerVector<std::vector<T>> : std::true_type {};

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

  PreparedArguments* PrepareBound(BindingResult& result, ArgumentBinder& binder,
                                  uint32_t /*call_context*/,
                                  std::span<std::byte> storage) override {
    // In the caller's storage when it fits: no allocation for the state
    // (tests/host/answer_memory_test.cc).
    Prepared* state = nullptr;
    if (sizeof(Prepared) <= storage.size() && alignof(Prepared) <= alignof(std::max_align_t)) {
      state = new (storage.data()) Prepared;
      state->in_place = true;
    } else {
      state = new Prepared;
    }
    try {
      ConvertBound(result, binder, state->values, std::index_sequence_for<Parameters...>{});
    } catch (...) {
      ReleaseArguments(state);
      throw;
    }
    return state;
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

  void ReleaseArguments(PreparedArguments* state) override {
    auto* prepared = static_cast<Prepared*>(state);
    if (prepared->in_place) {
      prepared->~Prepared();
    } else {
      delete prepared;
    }
  }
  const void* Handler() const override { return &handler_; }
  const StaticTypeIdentity& ResultType() const override {
    return StaticType::Of<typename AnswerTraits<Result>::Value>();
  }

 private:
  template <size_t... kIndex>
  void ConvertBound([[maybe_unused]] BindingResult& result, [[maybe_unused]] ArgumentBinder& binder,
                    [[maybe_unused]] std::tuple<std::remove_cvref_t<Parameters>...>& values,
                    std::index_sequence<kIndex...>) {
    (ConvertBoundArgument<kIndex>(result, binder, std::get<kIndex>(values)), ...);
  }

  // An integer list goes straight into a vector of integers when every
  // element fits; anything else is converted from its generic value.
  template <size_t kIndex, class T>
  void ConvertBoundArgument(BindingResult& result, ArgumentBinder& binder, T& value) {
    if constexpr (IsIntegerVector<T>::value) {
      if (const ArgumentBinder::IntegerList* list = binder.IntegerListOf(kIndex)) {
        if (!result.Ok()) return;
        if (ReadPlainIntegerList(list->text, list->count, value)) return;
      }
    }
    binder.MaterializeArgument(kIndex);
    ConvertArgument<kIndex>(result, binder.arguments(), value);
  }

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

}  // namespace routing_internal

}  // namespace kav

#endif  // KAV_ROUTING_TYPED_IMPLEMENTATION_H_
