#include "queue_eligibility/queue_eligibility_module.h"

namespace kav {

void QueueEligibilityModule::RegisterApi() {}

bool QueueEligibilityModule::OnStart() {
  return true;
}

}  // namespace kav
