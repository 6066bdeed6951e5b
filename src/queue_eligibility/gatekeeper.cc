// Gatekeeper restrictions: the reason tables, the mapping of one answer
// entry, the merge of an answer into the eligibility list and the module's
// query of one batch.
#include "queue_eligibility/gatekeeper.h"

#include <chrono>
#include <utility>

#include "diagnostics/format.h"
#include "diagnostics/logging.h"
#include "queue_eligibility/eligibility_building.h"
#include "queue_eligibility/queue_eligibility_module.h"

namespace kav::queue_eligibility {

using api::EligibilityRestrictionCode;

const std::vector<std::string> kExcludedGatekeeperReasons = {
    "QUEUE_DODGER",
    "LEAVER_BUSTED",
    "LEAVER_BUSTER_TAINTED_WARNING",
};

const std::unordered_map<std::string_view, EligibilityRestrictionCode> kGatekeeperReasonCodes = {
    {"QUEUE_STATE_NOT_ON", EligibilityRestrictionCode::kQueueDisabled},
    {"PLAYER_BANNED", EligibilityRestrictionCode::kPlayerBannedRestriction},
    {"MIN_CHAMPIONS_RESTRICTED", EligibilityRestrictionCode::kPlayerAvailableChampionRestriction},
    {"MIN_CHAMPIONS_RESTRICTED_NO_FREE",
     EligibilityRestrictionCode::kPlayerAvailableChampionRestriction},
    {"TIER_DELTA_RESTRICTED", EligibilityRestrictionCode::kTeamDivisionRestriction},
    {"MAX_PREMADE_SIZE_VIOLATED", EligibilityRestrictionCode::kTeamMaxSizeRestriction},
    {"BINGE_PREVENTION", EligibilityRestrictionCode::kPlayerBingeRestriction},
    {"QUEUE_DODGER", EligibilityRestrictionCode::kPlayerDodgeRestriction},
    {"ALREADY_IN_GAME", EligibilityRestrictionCode::kPlayerInGameRestriction},
    {"LEAVER_BUSTED", EligibilityRestrictionCode::kPlayerLeaverBustedRestriction},
    {"LEAVER_BUSTER_TAINTED_WARNING",
     EligibilityRestrictionCode::kPlayerLeaverTaintedWarningRestriction},
    {"MAX_LEVEL_RESTRICTED", EligibilityRestrictionCode::kPlayerMaxLevelRestriction},
    {"MIN_LEVEL_RESTRICTED", EligibilityRestrictionCode::kPlayerMinLevelRestriction},
    {"MINOR_RESTRICTED", EligibilityRestrictionCode::kPlayerMinorRestriction},
    {"RANKED_RESTRICTED", EligibilityRestrictionCode::kPlayerRankedSuspensionRestriction},
    {"HIGH_MMR_PREMADE_SIZE_RESTRICTED",
     EligibilityRestrictionCode::kTeamHighMMRMaxSizeRestriction},
    {"PREREQUISITE_QUEUES_NOT_PLAYED",
     EligibilityRestrictionCode::kPrerequisiteQueuesNotPlayedRestriction},
};

namespace {

constexpr int64_t kNanosecondsPerMillisecond = 1'000'000;

EligibilityRestrictionCode MapReason(const std::string& reason) {
  auto found = kGatekeeperReasonCodes.find(reason);
  if (found != kGatekeeperReasonCodes.end()) return found->second;
  Log(kLogWarn, 0, "Unable to map gatekeeper reason: %s", reason.c_str());
  return EligibilityRestrictionCode::kUnknownRestriction;
}

// (now_ns + remaining_ms * 1e6) / 1e6 in integer division equals
// now_ns / 1e6 + remaining_ms for a non-negative clock reading; the sum is
// taken unsigned so that an absurd remainder wraps instead of overflowing.
uint64_t ExpiryMilliseconds(int64_t now_ns, int64_t remaining_ms) {
  if (remaining_ms <= 0) return 0;
  return static_cast<uint64_t>(now_ns / kNanosecondsPerMillisecond) +
         static_cast<uint64_t>(remaining_ms);
}

// The one argument that a code takes from its queue; false when it takes none.
bool AddQueueArgument(api::EligibilityRestriction& restriction, const api::Queue& queue) {
  auto add = [&](const char* key, auto value) {
    restriction.restriction_args.emplace(key, std::to_string(value));
    return true;
  };
  switch (restriction.restriction_code) {
    case EligibilityRestrictionCode::kPlayerAvailableChampionRestriction:
      return add("playerAvailableChampionRestriction", queue.champions_required_to_play);
    case EligibilityRestrictionCode::kTeamMaxSizeRestriction:
      return add("teamMaxSizeRestriction", queue.maximum_participant_list_size);
    case EligibilityRestrictionCode::kPlayerMaxLevelRestriction:
      return add("playerMaxLevelRestriction", queue.max_level);
    case EligibilityRestrictionCode::kPlayerMinLevelRestriction:
      return add("playerMinLevelRestriction", queue.min_level);
    default:
      return false;
  }
}

void ApplyGatekeeperRestriction(api::Eligibility& entry,
                                const api::EligibilityRestriction& restriction) {
  bool merged = false;
  if (!restriction.summoner_ids.empty()) {
    for (api::EligibilityRestriction& held : entry.restrictions) {
      if (held.restriction_code != restriction.restriction_code) continue;
      held.summoner_ids.push_back(restriction.summoner_ids.front());
      merged = true;
    }
  }
  if (!merged) entry.restrictions.push_back(restriction);
  entry.eligible = false;
}

}  // namespace

int64_t SteadyClockNanoseconds() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

api::EligibilityRestriction MapGatekeeperRestriction(const mqds::GatekeeperRestrictionDtoV3& dto,
                                                     const std::vector<api::Queue>& queues,
                                                     int64_t now_ns) {
  api::EligibilityRestriction restriction = MakeRestriction(MapReason(dto.reason));
  restriction.expired_timestamp = ExpiryMilliseconds(now_ns, dto.remaining_millis);
  restriction.summoner_ids.push_back(dto.summoner_id);
  if (const api::Queue* queue = FindQueueInSorted(queues, dto.queue_id); queue != nullptr) {
    AddQueueArgument(restriction, *queue);
  } else {
    Log(kLogWarn, 0,
        "Unable to provide eligibility restriction arguments because queue details were not "
        "available: %u",
        static_cast<unsigned>(dto.queue_id));
  }
  return restriction;
}

bool IsDroppedGatekeeperCode(EligibilityRestrictionCode code) {
  switch (code) {
    case EligibilityRestrictionCode::kPlayerDodgeRestriction:
    case EligibilityRestrictionCode::kPlayerInGameRestriction:
    case EligibilityRestrictionCode::kPlayerLeaverBustedRestriction:
    case EligibilityRestrictionCode::kPlayerLeaverTaintedWarningRestriction:
      return true;
    default:
      return false;
  }
}

void MergeGatekeeperAnswer(std::vector<api::Eligibility>& eligibilities,
                           std::span<const mqds::GatekeeperRestrictionDtoV3> answer,
                           const std::vector<api::Queue>& queues) {
  std::vector<std::pair<int32_t, api::EligibilityRestriction>> kept;
  kept.reserve(answer.size());
  for (const mqds::GatekeeperRestrictionDtoV3& dto : answer) {
    api::EligibilityRestriction restriction =
        MapGatekeeperRestriction(dto, queues, SteadyClockNanoseconds());
    if (IsDroppedGatekeeperCode(restriction.restriction_code)) continue;
    kept.emplace_back(dto.queue_id, std::move(restriction));
  }
  for (const auto& [queue_id, restriction] : kept) {
    for (api::Eligibility& entry : eligibilities) {
      if (entry.queue_id == queue_id) ApplyGatekeeperRestriction(entry, restriction);
    }
  }
}

}  // namespace kav::queue_eligibility

namespace kav {

bool QueueEligibilityModule::QueryGatekeeperRestrictions(std::vector<Eligibility>& eligibilities,
                                                         const std::vector<Queue>& queues,
                                                         const std::vector<uint64_t>& summoner_ids,
                                                         std::span<const int32_t> queue_ids,
                                                         std::string& error) {
  queue_eligibility::mqds::GetQueueRestrictionsForQueuesRequestV2 request;
  request.queue_ids.assign(queue_ids.begin(), queue_ids.end());
  request.summoner_ids = summoner_ids;
  request.queue_restrictions_to_exclude = queue_eligibility::kExcludedGatekeeperReasons;
  auto answer = ServiceProxyCall<std::vector<queue_eligibility::mqds::GatekeeperRestrictionDtoV3>>(
      queue_eligibility::kGatekeeperServiceName, queue_eligibility::kGatekeeperRestrictionsMethod,
      request);
  if (!answer.HasValue()) {
    const std::string& message = answer.Error().message;
    Log(kLogError, 0, "Failed to get gatekeeper restrictions : %s", message.c_str());
    error = FormatMessage("Failed to get gatekeeper restrictions : %1", message);
    return false;
  }
  // `queues` is the module's list as it stands after the wait.
  queue_eligibility::MergeGatekeeperAnswer(eligibilities, answer.Value(), queues);
  return true;
}

}  // namespace kav
