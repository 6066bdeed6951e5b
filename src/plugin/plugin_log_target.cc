#include "plugin/plugin_log_target.h"

#include "diagnostics/logging.h"

namespace kav {

PluginLogTarget::PluginLogTarget(const KavHostFunctionTable* host) : host_(host) {
  ConnectOutput();
}

PluginLogTarget::~PluginLogTarget() {
  Detach();
}

bool PluginLogTarget::Output(const LogRecord& record) {
  host_->log(host_, record.level, record.message != nullptr ? record.message : "");
  return true;
}

std::unique_ptr<PluginLogTarget> SwitchLoggingToHost(const KavHostFunctionTable* host) {
  if (FindLogTarget(PluginLogTarget::kName) != nullptr) return nullptr;
  UnregisterBuiltInLogTargets();
  SetLogLevel(kLogOkay);
  SetExcludedLogCategories(kCategoryXtr);
  auto target = std::make_unique<PluginLogTarget>(host);
  target->Configure(
      {.level = GetLogLevel(), .included = 0, .excluded = 0, .format = kDefaultLogFormat});
  return target;
}

}  // namespace kav
