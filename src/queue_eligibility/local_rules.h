// The pure parts of the local rule set, used while the gatekeeper is not:
// which queues the champion rule applies to, and which champions of an
// inventory count as available for a queue.
//
// Plain functions over value types; thread-safe.
#ifndef KAV_QUEUE_ELIGIBILITY_LOCAL_RULES_H_
#define KAV_QUEUE_ELIGIBILITY_LOCAL_RULES_H_

#include <cstdint>
#include <map>
#include <vector>

#include "queue_eligibility/api_types.h"

namespace kav::queue_eligibility {

// Ranked queues and queues with position selection need enough available
// champions.
inline bool NeedsChampionCheck(const api::Queue& queue) {
  return queue.is_ranked || queue.show_position_selector;
}

// Whether `champion` may be played in `queue`: it is playable (bought,
// owned, a free reward, free to play where the queue allows free champions,
// or rented), the queue's type is not among its disabled queues, and in a
// ranked queue it is enabled for ranked play.
bool IsChampionAvailable(const api::CollectionsChampion& champion, const api::Queue& queue);

// How many champions of `inventory` are available for `queue`.
uint32_t CountAvailableChampions(const std::vector<api::CollectionsChampion>& inventory,
                                 const api::Queue& queue);

// Champion inventories by summoner id (in practice only the signed-in
// player's).
using ChampionInventories = std::map<uint64_t, std::vector<api::CollectionsChampion>>;

// For a queue that needs the check, closes `entry` with one
// "PlayerAvailableChampionRestriction" (argument: the champions the queue
// requires) naming every summoner of `inventories` with fewer available
// champions than the queue requires. Other queues are left alone.
void CheckAvailableChampions(const api::Queue& queue, api::Eligibility& entry,
                             const ChampionInventories& inventories);

}  // namespace kav::queue_eligibility

#endif  // KAV_QUEUE_ELIGIBILITY_LOCAL_RULES_H_
