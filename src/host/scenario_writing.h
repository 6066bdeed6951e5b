// Parts of a Scenario written back in the scenario format (the keys and
// values that ParseScenario reads), so that a reader of the host's state
// sees them the way a scenario file writes them.
//
// Thread-compatible: free functions.
#ifndef KAV_HOST_SCENARIO_WRITING_H_
#define KAV_HOST_SCENARIO_WRITING_H_

#include "host/host_value.h"
#include "host/scenario.h"

namespace kav::host {

// The "gatekeeper" section: restrictions (with withMembers when set),
// delivery, yields when delivery is afterYields, error and errorTimes when set.
Value GatekeeperToValue(const Gatekeeper& gatekeeper);
// One entry of "faults".
Value FaultToValue(const Fault& fault);

}  // namespace kav::host

#endif  // KAV_HOST_SCENARIO_WRITING_H_
