// Typed requests to other plugins' resources: AppModule::Request<T>.
//
//   MaybeType<Failure, Summoner> summoner =
//       module.Request<Summoner>(KAV_METHOD_GET, "/kav-summoner/v1/current-summoner");
//   MaybeType<Failure, std::string> uuid =
//       module.Request<std::string>(KAV_METHOD_POST, url, service, method, handle, json);
//
// Each native argument becomes one positional argument entry. The request is
// synchronous (HostRequest returns with the response filled), except that
// reading a streamed body may Yield to the host between two pieces. Every
// failure is returned as a Failure, never thrown or logged:
//   code 400  an argument did not convert; nothing was sent;
//   status    the host answered with an error text;
//   0         the body could not be read or converted to T.
// The response's release function is called whatever the outcome.
//
// T may be Nothing (the body is ignored), bool, std::string, BindingProperty,
// any registered record, and lists or maps of these.
//
// Thread-safety: as the module (one host call at a time).
#ifndef KAV_PLUGIN_REQUEST_H_
#define KAV_PLUGIN_REQUEST_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "binding/conversion.h"
#include "plugin/app_module.h"
#include "plugin/maybe_type.h"
#include "routing/route.h"  // HttpMethodName: the method names used in messages

namespace kav {

// The largest piece read from a streamed body at once.
inline constexpr uint32_t kStreamReadSize = 4096;

namespace request_detail {

// "Request not sent: Error converting parameters for {method} {url}: {error}",
// code 400.
Failure ParameterConversionFailure(uint32_t method, std::string_view url, std::string_view error);
// "Error converting response for {method} {url}: {error}", code 0.
Failure ResponseConversionFailure(uint32_t method, std::string_view url, std::string_view error);

// Texts of any form travel as std::string; every other argument as is.
template <class A>
decltype(auto) NormalizeArgument(const A& argument) {
  if constexpr (std::is_convertible_v<const A&, std::string_view> &&
                !std::is_same_v<A, std::string>) {
    return std::string(std::string_view(argument));
  } else {
    return (argument);
  }
}

}  // namespace request_detail

template <class T, class... Arguments>
MaybeType<Failure, T> AppModule::Request(uint32_t method, std::string_view url,
                                         const Arguments&... arguments) {
  std::vector<BindingProperty> converted;
  converted.reserve(sizeof...(Arguments));
  bool converted_all = true;
  std::string error;
  [[maybe_unused]] auto convert = [&](const auto& argument) {
    if (!converted_all) return;
    BindingResult value =
        ToBindingProperty(request_detail::NormalizeArgument(argument), registry());
    if (!value.Ok()) {
      converted_all = false;
      error = std::string(value.Error());
      return;
    }
    converted.emplace_back(std::move(static_cast<BindingProperty&>(value)));
  };
  (convert(arguments), ...);
  if (!converted_all) return request_detail::ParameterConversionFailure(method, url, error);

  constexpr bool kReadBody = !std::is_same_v<T, Nothing>;
  MaybeType<Failure, BindingProperty> body = SendRequest(method, url, converted, kReadBody);
  if (!body.HasValue()) return std::move(body.Error());
  if constexpr (!kReadBody) {
    return Nothing{};
  } else {
    T value{};
    BindingResult status;
    if (!FromBindingProperty(status, body.Value(), "<result>", value, registry())) {
      return request_detail::ResponseConversionFailure(method, url, status.Error());
    }
    return value;
  }
}

}  // namespace kav

#endif  // KAV_PLUGIN_REQUEST_H_
