// The plugin's one export. It creates the eligibility module and registers it
// with the host; nothing else happens until the host calls Initialize.
#include <exception>
#include <memory>

#include "diagnostics/logging.h"
#include "kav/plugin_host.h"
#include "queue_eligibility/queue_eligibility_module.h"

extern "C" KAV_EXPORT void KAV_CALL load_kav_queue_eligibility(KavPluginRecord* record) {
  if (record == nullptr) return;
  // No exception may reach the host: on one, the record stays untouched and
  // the host sees no callbacks.
  try {
    auto module = std::make_unique<kav::QueueEligibilityModule>();
    module->RegisterWithHost(record, kav::kQueueEligibilityPluginName);
    module.release();  // owned by the host's record until Destroy
  } catch (const std::exception& exception) {
    kav::Log(kav::kLogError, 0, "%s: Loading failed: %s", kav::kQueueEligibilityPluginName,
             exception.what());
  } catch (...) {
    kav::Log(kav::kLogError, 0, "%s: Loading failed", kav::kQueueEligibilityPluginName);
  }
}
