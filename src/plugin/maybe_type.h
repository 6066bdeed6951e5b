// Failure and MaybeType<Failure, T>: the result of every request and every
// handler. A MaybeType holds either a T or a Failure; callers must look.
//
// A MaybeType also carries what a handler wants written beside its answer
// into a response (flag byte, format code, status, text, name/value pairs);
// all default to zero or empty and are ignored by requests.
//
// Thread-compatible value types.
#ifndef KAV_PLUGIN_MAYBE_TYPE_H_
#define KAV_PLUGIN_MAYBE_TYPE_H_

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "diagnostics/format.h"

namespace kav {

// The T of an answer that carries nothing useful.
struct Nothing {
  bool operator==(const Nothing&) const = default;
};

struct Failure {
  uint32_t code = 0;            // a status code; 0 when none applies
  std::string message;          // the finished message
  FormatParameters parameters;  // the values put into the message

  // A failure whose message is `format` filled by the named formatter; a
  // non-zero code is also recorded as the parameter "errorCode_int".
  static Failure Make(uint32_t code, std::string_view format,
                      std::initializer_list<NamedArgument> arguments = {});
  // The failure with which handlers answer incoming calls: status 500 and the
  // text as message (taken literally, braces included), "Internal server
  // error" when the text is empty; records "errorCode_int" 500 like Make.
  static Failure Internal(std::string_view text);
};

inline Failure Failure::Make(uint32_t code, std::string_view format,
                             std::initializer_list<NamedArgument> arguments) {
  Failure failure;
  failure.code = code;
  failure.message = FormatNamedMessage(format, arguments, failure.parameters);
  if (code != 0) failure.parameters.insert_or_assign("errorCode_int", NamedArgument(code));
  return failure;
}

inline Failure Failure::Internal(std::string_view text) {
  constexpr uint32_t kInternalServerError = 500;
  Failure failure;
  failure.code = kInternalServerError;
  failure.message = text.empty() ? std::string("Internal server error") : std::string(text);
  failure.parameters.insert_or_assign("errorCode_int", NamedArgument(kInternalServerError));
  return failure;
}

// Extras that a handler's answer hands to the response.
struct ResponseExtras {
  uint8_t flags = 0;
  uint32_t format = 0;
  uint32_t status = 0;
  std::string text;
  std::vector<std::pair<std::string, std::string>> pairs;
};

template <class E, class T>
class MaybeType;

template <class T>
class [[nodiscard]] MaybeType<Failure, T> {
 public:
  using ValueType = T;

  MaybeType() : state_(T{}) {}
  MaybeType(const T& value) : state_(value) {}
  MaybeType(T&& value) : state_(std::move(value)) {}
  MaybeType(const Failure& failure) : state_(failure) {}
  MaybeType(Failure&& failure) : state_(std::move(failure)) {}

  bool HasValue() const { return state_.index() == 0; }
  explicit operator bool() const { return HasValue(); }

  // REQUIRES: HasValue().
  T& Value() & { return std::get<0>(state_); }
  const T& Value() const& { return std::get<0>(state_); }
  T&& Value() && { return std::get<0>(std::move(state_)); }
  // REQUIRES: !HasValue().
  const Failure& Error() const { return std::get<1>(state_); }
  Failure& Error() { return std::get<1>(state_); }

  ResponseExtras& Extras() { return extras_; }
  const ResponseExtras& Extras() const { return extras_; }

 private:
  std::variant<T, Failure> state_;
  ResponseExtras extras_;
};

}  // namespace kav

#endif  // KAV_PLUGIN_MAYBE_TYPE_H_
