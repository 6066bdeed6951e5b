// Calls to platform services through the login plugin's service proxy:
// AppModule::ServiceProxyRequest and AppModule::ServiceProxyCall<T>.
//
//   MaybeType<Failure, Restrictions> restrictions =
//       module.ServiceProxyCall<Restrictions>("gatekeeper", "getQueueRestrictionsForQueuesV2",
//                                             request);
//
// A call is posted to "/kav-login/v1/service-proxy-uuid-requests" (the uuid
// the login plugin returns is the call's key) or, when a response method is
// named, to "/kav-login/v1/service-proxy-method-requests" (key "service.
// responseMethod"; one such call per key at a time). The answer arrives later
// as a service-proxy event, waits in the received answers until its call is
// pending, and is handed to the call's completion handler. ServiceProxyCall
// waits for it with Await, so the host may run other handlers meanwhile.
// Nothing expires: Shutdown drops pending calls uncalled (an Await on one of
// them then ends the process, see await.h).
//
// Thread-safety: the pending calls, received answers and async handlers are
// guarded by one non-recursive lock; completion handlers run while it is
// held and must not start or receive service-proxy calls themselves.
#ifndef KAV_PLUGIN_SERVICE_PROXY_H_
#define KAV_PLUGIN_SERVICE_PROXY_H_

#include <future>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "binding/conversion.h"
#include "binding/static_type.h"
#include "plugin/app_module.h"
#include "plugin/await.h"
#include "plugin/host_types.h"
#include "plugin/maybe_type.h"
#include "serialization/json.h"

namespace kav {

inline constexpr char kServiceProxyUuidRequestsUrl[] = "/kav-login/v1/service-proxy-uuid-requests";
inline constexpr char kServiceProxyMethodRequestsUrl[] =
    "/kav-login/v1/service-proxy-method-requests";

namespace service_proxy_detail {

// A failure with code 0 whose message is `text` as it is.
Failure TextFailure(std::string text);
// "Failed to convert type {type} to BindingProperty for serialization".
std::string PayloadConversionError(const char* type_name);
// "Failed to deserialize response payload \"{payload}\" to a {type}", code 0.
Failure DeserializationFailure(std::string_view payload, const char* type_name);

}  // namespace service_proxy_detail

template <class Payload>
std::string AppModule::ServiceProxyRequest(std::string_view service_name,
                                           std::string_view method_name, const Payload& payload,
                                           std::string_view response_method_name,
                                           std::string_view further_text,
                                           ServiceProxyHandler on_response) {
  if (stopping_) return "Finalizing";
  const BindingResult value = ToBindingProperty(payload, registry());
  if (!value.Ok()) {
    return service_proxy_detail::PayloadConversionError(StaticType::Name<Payload>());
  }
  return StartServiceProxyRequest(service_name, method_name, SerializeJson(value, &registry()),
                                  response_method_name, further_text, std::move(on_response));
}

template <class T>
MaybeType<Failure, T> AppModule::DecodeServiceProxyAnswer(
    const PluginServiceProxyResponse& response) const {
  if (!response.error.empty()) return service_proxy_detail::TextFailure(response.error);
  const BindingResult parsed = DeserializeJson(response.payload);
  T value{};
  BindingResult status;
  if (!parsed.Ok() || !FromBindingProperty(status, parsed, "<result>", value, registry())) {
    return service_proxy_detail::DeserializationFailure(response.payload, StaticType::Name<T>());
  }
  return value;
}

template <class T, class Payload>
MaybeType<Failure, T> AppModule::ServiceProxyCall(std::string_view service_name,
                                                  std::string_view method_name,
                                                  const Payload& payload) {
  auto promise = std::make_shared<std::promise<MaybeType<Failure, T>>>();
  std::future<MaybeType<Failure, T>> future = promise->get_future();
  const std::string refusal =
      ServiceProxyRequest(service_name, method_name, payload, {}, {},
                          [this, promise](const PluginServiceProxyResponse& response) {
                            promise->set_value(DecodeServiceProxyAnswer<T>(response));
                          });
  if (!refusal.empty()) promise->set_value(service_proxy_detail::TextFailure(refusal));
  // From here the pending call owns the promise alone, so a call dropped
  // uncalled breaks it instead of leaving Await waiting forever.
  promise.reset();
  return Await(std::move(future));
}

}  // namespace kav

#endif  // KAV_PLUGIN_SERVICE_PROXY_H_
