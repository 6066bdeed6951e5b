// PluginLogTarget: the log target that hands every log line to the host
// (HostLog) instead of writing it itself. The host receives the level and the
// message text separately, so the target's format is kept but not applied.
//
// Thread-safe like every log target: the logger calls Output under its own
// lock and the target's, from whichever thread logged.
#ifndef KAV_PLUGIN_PLUGIN_LOG_TARGET_H_
#define KAV_PLUGIN_PLUGIN_LOG_TARGET_H_

#include <memory>

#include "diagnostics/log_target.h"
#include "kav/plugin_host.h"

namespace kav {

class PluginLogTarget final : public LogTarget {
 public:
  // The name under which the logger finds the target.
  static constexpr const char* kName = "PluginLogTarget";

  // REQUIRES: `host` outlives the target.
  explicit PluginLogTarget(const KavHostFunctionTable* host);
  // Leaves the logger before it goes.
  ~PluginLogTarget() override;

  const char* GetName() const override { return kName; }
  // Calls HostLog with the record's level and message; reports it written.
  bool Output(const LogRecord& record) override;

 private:
  const KavHostFunctionTable* host_;
};

// Switches the logger over to the host: unless a target named
// "PluginLogTarget" is registered already, unregisters the built-in targets,
// sets the logger's level to 0 and its excluded categories to XTR, and
// returns a new PluginLogTarget, registered with the logger's level, every
// category and the default format. Returns null when one was registered
// already (the logging configuration is then left alone).
std::unique_ptr<PluginLogTarget> SwitchLoggingToHost(const KavHostFunctionTable* host);

}  // namespace kav

#endif  // KAV_PLUGIN_PLUGIN_LOG_TARGET_H_
