// The eligibility resources: which computation each version uses, how the
// arguments are prepared, and the answer for custom games.
#include <algorithm>
#include <utility>

#include "diagnostics/format.h"
#include "diagnostics/logging.h"
#include "queue_eligibility/eligibility_building.h"
#include "queue_eligibility/queue_eligibility_module.h"

namespace kav {
namespace {

using queue_eligibility::CloseWith;
using queue_eligibility::MakeRestriction;
using queue_eligibility::OpenEligibility;
using queue_eligibility::api::EligibilityRestrictionCode;
using queue_eligibility::api::QueueShutdownStatus;

constexpr char kCustomStatusPath[] = "/kav-kr-shutdown-law/v1/custom-status";

// The queue id of the answer about custom games.
constexpr int32_t kCustomGameQueueId = -1;

// `ids` in ascending order: `ids` itself when it already is, as lists mostly
// arrive, else a sorted copy kept in `storage`. Two allocations fewer per
// call (tests/host/answer_memory_test.cc; about 2% of the instructions of
// eligibility_bench CachedSelfEligibility/50/50).
template <class Id>
const std::vector<Id>& Sorted(const std::vector<Id>& ids, std::vector<Id>& storage) {
  if (std::is_sorted(ids.begin(), ids.end())) return ids;
  storage = ids;
  std::sort(storage.begin(), storage.end());
  return storage;
}

}  // namespace

QueueEligibilityModule::EligibilityAnswer QueueEligibilityModule::EligibilityV1(
    const EligibilityQueryParams& query) {
  return EvaluateLocalRules(query.summoner_ids, query.queue_ids);
}

QueueEligibilityModule::EligibilityListAnswer QueueEligibilityModule::EligibilityV2(
    const EligibilityQueryParams& query) {
  return EligibilityV3(query.summoner_ids, query.queue_ids);
}

QueueEligibilityModule::EligibilityListAnswer QueueEligibilityModule::EligibilityV3(
    const std::vector<uint64_t>& summoner_ids, const std::vector<int32_t>& queue_ids) {
  std::vector<uint64_t> sorted_party;
  std::vector<int32_t> sorted_queues;
  const std::vector<uint64_t>& party = Sorted(summoner_ids, sorted_party);
  const std::vector<int32_t>& queues = Sorted(queue_ids, sorted_queues);
  if (gate_keeper_enabled_ && party.size() == 1 && party.front() == summoner_id_) {
    return GetSelfEligibility(party, queues);
  }
  EligibilityAnswer answer =
      gate_keeper_enabled_ ? ComputeEligibility(party, queues) : EvaluateLocalRules(party, queues);
  if (!answer.HasValue()) return std::move(answer.Error());
  return HostValueList<Eligibility>(std::move(answer).Value());
}

QueueEligibilityModule::EligibilityAnswer QueueEligibilityModule::CustomEligibilityV3(
    int32_t team_size, const std::string& /*pick_mode*/) {
  Eligibility entry = OpenEligibility(kCustomGameQueueId);
  if (team_size < 0) {
    CloseWith(entry, MakeRestriction(EligibilityRestrictionCode::kTeamMinSizeRestriction));
  }
  if (!practice_game_enabled_) {
    CloseWith(entry, MakeRestriction(EligibilityRestrictionCode::kQueueDisabled));
  }
  auto status = GetResource<QueueShutdownStatus>(kCustomStatusPath);
  if (!status.HasValue()) {
    const std::string& message = status.Error().message;
    Log(kLogError, 0, "Failed to get kr shutdown for custom games: %s", message.c_str());
    return Failure::Internal(
        FormatMessage("Failed to get kr shutdown for custom games: %1", message));
  }
  if (status.Value().is_disabled) {
    CloseWith(entry, MakeRestriction(EligibilityRestrictionCode::kPlayerMinorRestriction,
                                     std::vector<uint64_t>{summoner_id_}));
  }
  return std::vector<Eligibility>{std::move(entry)};
}

}  // namespace kav
