// Small helpers shared by the eligibility rule sets: building entries and
// restrictions, and lookups in queue lists (no index is kept: a list read
// from its resource is scanned, the module's list, sorted by id, is
// searched).
//
// Plain functions over value types; thread-compatible.
#ifndef KAV_QUEUE_ELIGIBILITY_ELIGIBILITY_BUILDING_H_
#define KAV_QUEUE_ELIGIBILITY_ELIGIBILITY_BUILDING_H_

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "queue_eligibility/api_types.h"

namespace kav::queue_eligibility {

// An entry for `queue_id` that is eligible and has no restriction.
inline api::Eligibility OpenEligibility(int32_t queue_id) {
  api::Eligibility entry;
  entry.queue_id = queue_id;
  entry.eligible = true;
  return entry;
}

// A restriction with `code`, no arguments, no expiry and no summoner.
inline api::EligibilityRestriction MakeRestriction(api::EligibilityRestrictionCode code) {
  api::EligibilityRestriction restriction;
  restriction.restriction_code = code;
  return restriction;
}

// The same with the one argument `key` = `value` in decimal.
template <class Number>
api::EligibilityRestriction MakeRestriction(api::EligibilityRestrictionCode code, const char* key,
                                            Number value) {
  api::EligibilityRestriction restriction = MakeRestriction(code);
  restriction.restriction_args.emplace(key, std::to_string(value));
  return restriction;
}

// The same applied to the members `summoner_ids`.
inline api::EligibilityRestriction MakeRestriction(api::EligibilityRestrictionCode code,
                                                   std::vector<uint64_t> summoner_ids) {
  api::EligibilityRestriction restriction = MakeRestriction(code);
  restriction.summoner_ids = std::move(summoner_ids);
  return restriction;
}

// Appends `restriction` to `entry`, which is then closed.
inline void CloseWith(api::Eligibility& entry, api::EligibilityRestriction restriction) {
  entry.restrictions.push_back(std::move(restriction));
  entry.eligible = false;
}

// The first queue with `queue_id`, or null. The pointer is valid until the
// list changes.
inline const api::Queue* FindQueue(const std::vector<api::Queue>& queues, int32_t queue_id) {
  for (const api::Queue& queue : queues) {
    if (queue.id == queue_id) return &queue;
  }
  return nullptr;
}

// The same for a list sorted by id (as the module keeps it): a binary
// search that finds the same queue as the scan, the first of equal ids.
inline const api::Queue* FindQueueInSorted(const std::vector<api::Queue>& queues,
                                           int32_t queue_id) {
  auto found = std::lower_bound(queues.begin(), queues.end(), queue_id,
                                [](const api::Queue& queue, int32_t id) { return queue.id < id; });
  return found != queues.end() && found->id == queue_id ? &*found : nullptr;
}

inline bool HasRestriction(const api::Eligibility& entry, api::EligibilityRestrictionCode code) {
  for (const api::EligibilityRestriction& restriction : entry.restrictions) {
    if (restriction.restriction_code == code) return true;
  }
  return false;
}

}  // namespace kav::queue_eligibility

#endif  // KAV_QUEUE_ELIGIBILITY_ELIGIBILITY_BUILDING_H_
