// The gatekeeper's side of eligibility: the reason words it is asked to
// leave out, the translation of its reason words into restriction codes,
// and the merge of its answers into an eligibility list.
//
// The tables are constants built when the library is loaded; the functions
// are pure apart from reading the steady clock and logging. Thread-safe.
#ifndef KAV_QUEUE_ELIGIBILITY_GATEKEEPER_H_
#define KAV_QUEUE_ELIGIBILITY_GATEKEEPER_H_

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "queue_eligibility/api_types.h"

namespace kav::queue_eligibility {

// The gatekeeper service and the method that answers restrictions.
inline constexpr char kGatekeeperServiceName[] = "gatekeeper";
inline constexpr char kGatekeeperRestrictionsMethod[] = "getQueueRestrictionsForQueuesV2";

// Sent with every query as "queueRestrictionsToExclude", in this order.
extern const std::vector<std::string> kExcludedGatekeeperReasons;

// The service's reason words and the codes they stand for. Words not in the
// table are "UnknownRestriction". Matching is exact.
extern const std::unordered_map<std::string_view, api::EligibilityRestrictionCode>
    kGatekeeperReasonCodes;

// The reading of the steady clock in nanoseconds.
int64_t SteadyClockNanoseconds();

// One answer entry as a restriction of its summoner: the mapped code (an
// unknown word logs a warning), the expiry on the steady clock in
// milliseconds for a positive "remainingMillis" (`now_ns` + remaining, in
// ms, else 0), and the argument that the code takes from the queue named by
// the entry (a warning and no argument when `queues` lacks it).
// REQUIRES: `queues` is sorted by id (the module's list).
api::EligibilityRestriction MapGatekeeperRestriction(const mqds::GatekeeperRestrictionDtoV3& dto,
                                                     const std::vector<api::Queue>& queues,
                                                     int64_t now_ns);

// Whether a restriction of `code` never reaches an eligibility list (dodge,
// in game, leaver busted, leaver warning).
bool IsDroppedGatekeeperCode(api::EligibilityRestrictionCode code);

// Merges one answer of the service into `eligibilities`: every answer entry
// is mapped (against `queues` as it stands now), dropped codes left out, and
// applied to every entry of its queue: a restriction whose code the entry
// already holds only adds its summoner to each such restriction; any other
// is appended. Every entry touched is closed. Entries of unknown queues are
// ignored. REQUIRES: `queues` is sorted by id.
void MergeGatekeeperAnswer(std::vector<api::Eligibility>& eligibilities,
                           std::span<const mqds::GatekeeperRestrictionDtoV3> answer,
                           const std::vector<api::Queue>& queues);

}  // namespace kav::queue_eligibility

#endif  // KAV_QUEUE_ELIGIBILITY_GATEKEEPER_H_
