// AppModule's service-proxy calls: the sending side posts a call to the
// login plugin and makes it pending; the receiving side stores answers that
// arrive as the three service-proxy events until their call is pending, and
// completes it.
#include "plugin/service_proxy.h"

#include <utility>

#include "diagnostics/format.h"
#include "diagnostics/logging.h"
#include "plugin/request.h"

namespace kav {
namespace {

std::string MethodCallKey(const PluginServiceProxyResponse& response) {
  return FormatMessage("%1.%2", {response.service_name, response.method_name});
}

}  // namespace

namespace service_proxy_detail {

Failure TextFailure(std::string text) {
  Failure failure;
  failure.message = std::move(text);
  return failure;
}

std::string PayloadConversionError(const char* type_name) {
  FormatParameters parameters;
  return FormatNamedMessage("Failed to convert type {type} to BindingProperty for serialization",
                            {type_name}, parameters);
}

Failure DeserializationFailure(std::string_view payload, const char* type_name) {
  return Failure::Make(0, "Failed to deserialize response payload \"{payload}\" to a {type}",
                       {payload, type_name});
}

}  // namespace service_proxy_detail

std::string AppModule::StartServiceProxyRequest(std::string_view service_name,
                                                std::string_view method_name,
                                                const std::string& payload,
                                                std::string_view response_method_name,
                                                std::string_view further_text,
                                                ServiceProxyHandler on_response) {
  const std::string target = FormatMessage("%1.%2", service_name, method_name);
  Log(kLogAlways, 0, "%s: Preparing service proxy request: %s", plugin_name_.c_str(),
      target.c_str());
  std::string key;
  if (!response_method_name.empty()) {
    key = FormatMessage("%1.%2", service_name, response_method_name);
    {
      std::lock_guard<std::mutex> lock(service_proxy_lock_);
      if (pending_calls_.contains(key)) {
        Log(kLogError, 0, "%s: Could not invoke service proxy as request is already in flight",
            plugin_name_.c_str());
        return "Request already in flight";
      }
    }
    MaybeType<Failure, Nothing> posted =
        Request<Nothing>(KAV_METHOD_POST, kServiceProxyMethodRequestsUrl, service_name, method_name,
                         response_method_name, further_text, plugin_handle_, payload);
    if (!posted.HasValue()) return posted.Error().message;
  } else {
    MaybeType<Failure, std::string> uuid =
        Request<std::string>(KAV_METHOD_POST, kServiceProxyUuidRequestsUrl, service_name,
                             method_name, plugin_handle_, payload);
    if (!uuid.HasValue()) return uuid.Error().message;
    key = std::move(uuid.Value());
  }
  Log(kLogAlways, 0, "%s: Started service proxy request: %s (%s)", plugin_name_.c_str(),
      target.c_str(), key.c_str());
  // The lock is not held across the posting request: the host may deliver
  // the answer (which takes the lock) before the request returns.
  std::lock_guard<std::mutex> lock(service_proxy_lock_);
  pending_calls_.insert_or_assign(std::move(key), std::move(on_response));
  CompleteOneServiceProxyCall();
  return {};
}

void AppModule::ReceiveServiceProxyUuidEvent(const PluginServiceProxyResponse& response) {
  std::lock_guard<std::mutex> lock(service_proxy_lock_);
  received_answers_[response.uuid] = response;
  CompleteOneServiceProxyCall();
}

void AppModule::ReceiveServiceProxyMethodEvent(const PluginServiceProxyResponse& response) {
  std::lock_guard<std::mutex> lock(service_proxy_lock_);
  received_answers_[MethodCallKey(response)] = response;
  CompleteOneServiceProxyCall();
}

void AppModule::ReceiveServiceProxyAsyncEvent(const PluginServiceProxyResponse& response) {
  std::lock_guard<std::mutex> lock(service_proxy_lock_);
  const std::string key = MethodCallKey(response);
  auto handler = async_handlers_.find(key);
  if (handler == async_handlers_.end() || !handler->second) {
    Log(kLogError, 0, "%s: Could not find registered handler for async service proxy event %s",
        plugin_name_.c_str(), key.c_str());
    return;
  }
  handler->second(response);
}

void AppModule::CompleteOneServiceProxyCall() {
  for (auto answer = received_answers_.begin(); answer != received_answers_.end(); ++answer) {
    auto call = pending_calls_.find(answer->first);
    if (call == pending_calls_.end()) continue;
    if (call->second) call->second(answer->second);
    Log(kLogAlways, 0, "%s: Fulfilled service proxy request: %s", plugin_name_.c_str(),
        answer->first.c_str());
    pending_calls_.erase(call);
    received_answers_.erase(answer);
    return;
  }
}

}  // namespace kav
