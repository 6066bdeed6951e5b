// The local rule set: eligibility decided from the queue list, the party's
// summoner levels, the signed-in player's champions and the shutdown law,
// all read afresh on every call.
#include "queue_eligibility/local_rules.h"

#include <algorithm>
#include <string>
#include <utility>

#include "diagnostics/format.h"
#include "diagnostics/logging.h"
#include "queue_eligibility/eligibility_building.h"
#include "queue_eligibility/queue_eligibility_module.h"

namespace kav::queue_eligibility {

bool IsChampionAvailable(const api::CollectionsChampion& champion, const api::Queue& queue) {
  const bool playable = champion.purchased != 0 || champion.ownership.owned ||
                        champion.ownership.free_to_play_reward ||
                        (champion.free_to_play && queue.are_free_champions_allowed) ||
                        champion.ownership.rental.rented;
  if (!playable) return false;
  if (std::find(champion.disabled_queues.begin(), champion.disabled_queues.end(), queue.type) !=
      champion.disabled_queues.end()) {
    return false;
  }
  return !queue.is_ranked || champion.ranked_play_enabled;
}

uint32_t CountAvailableChampions(const std::vector<api::CollectionsChampion>& inventory,
                                 const api::Queue& queue) {
  uint32_t count = 0;
  for (const api::CollectionsChampion& champion : inventory) {
    if (IsChampionAvailable(champion, queue)) ++count;
  }
  return count;
}

void CheckAvailableChampions(const api::Queue& queue, api::Eligibility& entry,
                             const ChampionInventories& inventories) {
  if (!NeedsChampionCheck(queue)) return;
  std::vector<uint64_t> restricted;
  for (const auto& [summoner_id, inventory] : inventories) {
    if (CountAvailableChampions(inventory, queue) < queue.champions_required_to_play) {
      restricted.push_back(summoner_id);
    }
  }
  if (restricted.empty()) return;
  api::EligibilityRestriction restriction =
      MakeRestriction(api::EligibilityRestrictionCode::kPlayerAvailableChampionRestriction,
                      "playerAvailableChampionRestriction", queue.champions_required_to_play);
  restriction.summoner_ids = std::move(restricted);
  CloseWith(entry, std::move(restriction));
}

}  // namespace kav::queue_eligibility

namespace kav {
namespace {

using queue_eligibility::ChampionInventories;
using queue_eligibility::CloseWith;
using queue_eligibility::MakeRestriction;
using queue_eligibility::OpenEligibility;
using queue_eligibility::api::CollectionsChampion;
using queue_eligibility::api::EligibilityRestrictionCode;
using queue_eligibility::api::QueueAvailability;
using queue_eligibility::api::QueueShutdownStatus;
using queue_eligibility::api::SummonerResource;

constexpr char kQueuesPath[] = "/kav-game-queues/v1/queues";

// The restriction that closes a queue which cannot be checked at all:
// missing or switched off by the platform, or not open for another reason.
EligibilityRestrictionCode UnavailableQueueCode(const queue_eligibility::api::Queue* queue) {
  if (queue == nullptr || queue->queue_availability == QueueAvailability::kPlatformDisabled) {
    return EligibilityRestrictionCode::kQueueDisabled;
  }
  return EligibilityRestrictionCode::kQueueUnsupported;
}

}  // namespace

QueueEligibilityModule::EligibilityAnswer QueueEligibilityModule::EvaluateLocalRules(
    const std::vector<uint64_t>& summoner_ids, const std::vector<int32_t>& queue_ids) {
  std::vector<Eligibility> result;
  if (queue_ids.empty() || summoner_ids.empty()) return result;

  auto all_queues = GetResource<std::vector<Queue>>(kQueuesPath);
  if (!all_queues.HasValue()) {
    const std::string& message = all_queues.Error().message;
    Log(kLogError, 0, "Failed to get all available game queues: %s", message.c_str());
    return Failure::Internal(FormatMessage("Error to get available game queues : %1", message));
  }

  std::vector<const Queue*> to_check;
  for (int32_t queue_id : queue_ids) {
    const Queue* queue = queue_eligibility::FindQueue(all_queues.Value(), queue_id);
    if (queue != nullptr && queue->queue_availability == QueueAvailability::kAvailable) {
      to_check.push_back(queue);
      continue;
    }
    Eligibility closed = OpenEligibility(queue_id);
    CloseWith(closed, MakeRestriction(UnavailableQueueCode(queue)));
    result.push_back(std::move(closed));
  }
  if (to_check.empty()) return result;

  const bool champion_rule = std::any_of(to_check.begin(), to_check.end(), [](const Queue* queue) {
    return queue_eligibility::NeedsChampionCheck(*queue);
  });

  std::vector<SummonerResource> levels;
  ChampionInventories inventories;
  for (uint64_t summoner_id : summoner_ids) {
    auto summoner =
        GetResource<SummonerResource>(FormatMessage("/kav-summoner/v1/summoners/%1", summoner_id));
    if (summoner.HasValue()) {
      levels.push_back(summoner.Value());
    } else {
      Log(kLogError, 0, "Failed to get summoner resource for summoner ID %+lld. Error: %s",
          static_cast<long long>(summoner_id), summoner.Error().message.c_str());
    }
    if (!champion_rule || summoner_id != summoner_id_) continue;
    auto inventory = GetResource<std::vector<CollectionsChampion>>(
        FormatMessage("/kav-champions/v1/inventories/%1/champions-minimal", summoner_id));
    if (!inventory.HasValue()) {
      const std::string& message = inventory.Error().message;
      Log(kLogError, 0, "Failed to get champion inventory for summoner ID %+lld. Error: %s",
          static_cast<long long>(summoner_id), message.c_str());
      return Failure::Internal(FormatMessage("Error to get available champions : %1", message));
    }
    inventories[summoner_id] = std::move(inventory).Value();
  }

  const auto party_size = static_cast<uint32_t>(summoner_ids.size());
  for (const Queue* queue : to_check) {
    Eligibility entry = OpenEligibility(queue->id);
    const auto max_party = static_cast<uint32_t>(queue->maximum_participant_list_size);
    if (party_size > max_party) {
      CloseWith(entry,
                MakeRestriction(EligibilityRestrictionCode::kTeamMaxSizeRestriction,
                                "teamMaxSizeRestriction", queue->maximum_participant_list_size));
    }
    std::vector<uint64_t> below_level;
    for (const SummonerResource& summoner : levels) {
      if (summoner.summoner_level < queue->min_level) below_level.push_back(summoner.summoner_id);
    }
    if (!below_level.empty()) {
      auto restriction = MakeRestriction(EligibilityRestrictionCode::kPlayerLevelRestriction,
                                         "playerLevelRestriction", queue->min_level);
      restriction.summoner_ids = std::move(below_level);
      CloseWith(entry, std::move(restriction));
    }
    if (champion_rule) queue_eligibility::CheckAvailableChampions(*queue, entry, inventories);
    ApplyQueueShutdownStatus(entry);
    result.push_back(std::move(entry));
  }
  return result;
}

void QueueEligibilityModule::ApplyQueueShutdownStatus(Eligibility& entry) {
  auto status = GetResource<QueueShutdownStatus>(
      FormatMessage("/kav-kr-shutdown-law/v1/queue-status/%1", entry.queue_id));
  if (!status.HasValue()) {
    Log(kLogError, 0, "Failed to get kr shutdown status for queue: %s",
        status.Error().message.c_str());
    Log(kLogError, 0, "Failed to get Kr shutdown restriction for queueId: %d", entry.queue_id);
    return;
  }
  if (status.Value().is_disabled) {
    CloseWith(entry, MakeRestriction(EligibilityRestrictionCode::kPlayerMinorRestriction,
                                     std::vector<uint64_t>{summoner_id_}));
  }
}

}  // namespace kav
