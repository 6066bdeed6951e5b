// Test data shared by the benchmarks: the two payloads the plugin handles in
// bulk, as JSON text and as value trees.
//
//   Queue list: an array of queue records, each an object with the members
//   "id", "type", "numPlayersPerTeam", "maximumParticipantListSize",
//   "minLevel", "maxLevel", "queueAvailability", "areFreeChampionsAllowed",
//   "isRanked", "championsRequiredToPlay", "allowablePremadeSizes" and
//   "showPositionSelector".
//   Eligibility answer: an array of {"queueId", "eligible", "restrictions"},
//   where two entries in three are closed by one or two restrictions
//   {"restrictionCode", "restrictionArgs", "expiredTimestamp", "summonerIds"}.
//
// The data is deterministic. The JSON text is written with RapidJSON (members
// in the order above) and the trees are built directly, so neither depends on
// the codecs being measured.
//
// Thread-safety: the functions share no state.
#ifndef KAV_BENCH_BENCH_DATA_H_
#define KAV_BENCH_BENCH_DATA_H_

#include <cstddef>
#include <string>

#include "binding/binding_property.h"

namespace kav::bench {

inline constexpr size_t kQueueCount = 1000;
inline constexpr size_t kEligibilityCount = 500;

std::string QueueListJson(size_t count = kQueueCount);
BindingProperty QueueList(size_t count = kQueueCount);

std::string EligibilityAnswerJson(size_t count = kEligibilityCount);
BindingProperty EligibilityAnswer(size_t count = kEligibilityCount);

}  // namespace kav::bench

#endif  // KAV_BENCH_BENCH_DATA_H_
