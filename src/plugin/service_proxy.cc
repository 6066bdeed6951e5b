// AppModule's receiving side of service-proxy calls: answers arrive as the
// three service-proxy events, wait in the received answers until their call
// is pending, and complete it.
#include <utility>

#include "diagnostics/format.h"
#include "diagnostics/logging.h"
#include "plugin/app_module.h"

namespace kav {
namespace {

std::string MethodCallKey(const PluginServiceProxyResponse& response) {
  return FormatMessage("%1.%2", {response.service_name, response.method_name});
}

}  // namespace

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
