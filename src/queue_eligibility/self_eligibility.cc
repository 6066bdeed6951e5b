// The gatekeeper-based eligibility computation and the cached eligibility of
// the signed-in player.
#include <algorithm>
#include <span>
#include <utility>

#include "diagnostics/format.h"
#include "diagnostics/logging.h"
#include "queue_eligibility/eligibility_building.h"
#include "queue_eligibility/queue_eligibility_module.h"

namespace kav {
namespace {

using queue_eligibility::CloseWith;
using queue_eligibility::FindQueueInSorted;
using queue_eligibility::HasRestriction;
using queue_eligibility::MakeRestriction;
using queue_eligibility::OpenEligibility;
using queue_eligibility::api::EligibilityRestrictionCode;
using queue_eligibility::api::QueueAvailability;

constexpr char kDisabledQueuesPath[] = "/kav-kr-shutdown-law/v1/disabled-queues";

// The gatekeeper is asked about at most this many queues per call; larger
// sets are split, and more than this many in one computation is unexpected.
constexpr size_t kGatekeeperBatchSize = 20;

// The picks of a cached answer keep their memory up to this many.
constexpr size_t kMostKeptPicks = 4096;

// The queue whose party sizes are checked here rather than by the gatekeeper.
constexpr int32_t kSizeRuleQueueId = 440;

bool Contains(const std::vector<int32_t>& ids, int32_t id) {
  return std::find(ids.begin(), ids.end(), id) != ids.end();
}

}  // namespace

void QueueEligibilityModule::ApplyQueueAvailability(std::vector<Eligibility>& eligibilities) const {
  for (Eligibility& entry : eligibilities) {
    const Queue* queue = FindQueueInSorted(queues_, entry.queue_id);
    if (queue == nullptr) {
      CloseWith(entry, MakeRestriction(EligibilityRestrictionCode::kQueueUnsupported));
    } else if (queue->queue_availability != QueueAvailability::kAvailable) {
      CloseWith(entry, MakeRestriction(EligibilityRestrictionCode::kQueueDisabled));
    }
  }
}

void QueueEligibilityModule::ApplyQueue440SizeRule(std::vector<Eligibility>& eligibilities,
                                                   size_t party_size) const {
  for (Eligibility& entry : eligibilities) {
    if (entry.queue_id != kSizeRuleQueueId) continue;
    const Queue* queue = FindQueueInSorted(queues_, kSizeRuleQueueId);
    if (queue == nullptr) {
      Log(kLogWarn, 0, "Couldn't find queue %d to match eligibility resource", kSizeRuleQueueId);
      continue;
    }
    if (Contains(queue->allowable_premade_sizes, static_cast<int32_t>(party_size))) continue;
    if (HasRestriction(entry, EligibilityRestrictionCode::kTeamMaxSizeRestriction) ||
        HasRestriction(entry, EligibilityRestrictionCode::kTeamMinSizeRestriction)) {
      continue;
    }
    CloseWith(entry, MakeRestriction(EligibilityRestrictionCode::kTeamSizeRestriction,
                                     "teamSizeRestriction", party_size));
  }
}

QueueEligibilityModule::EligibilityAnswer QueueEligibilityModule::ComputeEligibility(
    const std::vector<uint64_t>& summoner_ids, const std::vector<int32_t>& queue_ids) {
  if (!queues_received_) return Failure::Internal("UNAVAILABLE");

  std::vector<Eligibility> eligibilities;
  eligibilities.reserve(queue_ids.size());
  for (int32_t queue_id : queue_ids) eligibilities.push_back(OpenEligibility(queue_id));
  ApplyQueueAvailability(eligibilities);

  auto disabled = GetResource<std::vector<int32_t>>(kDisabledQueuesPath);
  if (!disabled.HasValue()) {
    const std::string message =
        FormatMessage("Failed to get kr shutdown disabled queues: %1", disabled.Error().message);
    Log(kLogError, 0, "%s", message.c_str());
    return Failure::Internal(message);
  }
  std::vector<int32_t> to_query;
  to_query.reserve(eligibilities.size());
  for (Eligibility& entry : eligibilities) {
    if (Contains(disabled.Value(), entry.queue_id)) {
      CloseWith(entry, MakeRestriction(EligibilityRestrictionCode::kPlayerMinorRestriction,
                                       std::vector<uint64_t>{summoner_id_}));
    }
    if (entry.eligible) to_query.push_back(entry.queue_id);
  }

  if (to_query.size() > kGatekeeperBatchSize) {
    Log(kLogWarn, 0, "Querying eligibility for %ld queues, unexpected configuration",
        static_cast<long>(to_query.size()));
  }
  const std::span<const int32_t> pending(to_query);
  for (size_t start = 0; start < pending.size(); start += kGatekeeperBatchSize) {
    const size_t count = std::min(kGatekeeperBatchSize, pending.size() - start);
    std::string error;
    // The restriction arguments come from `queues_` as it stands after the
    // wait for the answer, which may have replaced it.
    if (!QueryGatekeeperRestrictions(eligibilities, queues_, summoner_ids,
                                     pending.subspan(start, count), error)) {
      return Failure::Internal(error);
    }
  }

  ApplyQueue440SizeRule(eligibilities, summoner_ids.size());
  return eligibilities;
}

QueueEligibilityModule::EligibilityListAnswer QueueEligibilityModule::GetSelfEligibility(
    const std::vector<uint64_t>& summoner_ids, const std::vector<int32_t>& queue_ids) {
  if (self_eligibility_dirty_) {
    Log(kLogAlways, 0, "Queue Eligibility configuration: self eligibility is dirty, rebuilding");
    std::vector<int32_t> all_queue_ids;
    all_queue_ids.reserve(queues_.size());
    for (const Queue& queue : queues_) all_queue_ids.push_back(queue.id);
    EligibilityAnswer rebuilt = ComputeEligibility(summoner_ids, all_queue_ids);
    if (!rebuilt.HasValue()) return std::move(rebuilt.Error());
    // A change that marked the cache dirty while the rebuild waited is
    // consumed with it.
    self_eligibility_ = std::move(rebuilt).Value();
    self_eligibility_images_.Clear();
    self_eligibility_dirty_ = false;
  }

  std::vector<uint32_t>& picks = self_eligibility_picks_;
  picks.clear();
  if (picks.capacity() > kMostKeptPicks) picks.shrink_to_fit();
  picks.reserve(queue_ids.size());
  // The ids come sorted too: each is searched from where the one before was
  // found, and the id that follows it in the cache is found without a
  // search (eligibility_bench CachedSelfEligibility/50/50).
  const auto end = self_eligibility_.end();
  auto from = self_eligibility_.begin();
  for (int32_t queue_id : queue_ids) {
    if (from != end && from->queue_id < queue_id) {
      ++from;
      if (from != end && from->queue_id < queue_id) {
        from = std::lower_bound(from + 1, end, queue_id, [](const Eligibility& entry, int32_t id) {
          return entry.queue_id < id;
        });
      }
    }
    if (from == end || from->queue_id != queue_id) break;
    picks.push_back(static_cast<uint32_t>(from - self_eligibility_.begin()));
  }
  if (picks.size() == queue_ids.size()) {
    return HostValueList<Eligibility>(self_eligibility_, self_eligibility_images_, picks);
  }

  // A queue the cache does not know: copies, with an entry made for it.
  // The first cache entry of an id is where a binary search lands.
  const auto find_cached = [this](int32_t queue_id) {
    auto cached =
        std::lower_bound(self_eligibility_.begin(), self_eligibility_.end(), queue_id,
                         [](const Eligibility& entry, int32_t id) { return entry.queue_id < id; });
    return cached != self_eligibility_.end() && cached->queue_id == queue_id
               ? cached
               : self_eligibility_.end();
  };
  std::vector<Eligibility> answer;
  answer.reserve(queue_ids.size());
  for (int32_t queue_id : queue_ids) {
    auto cached = find_cached(queue_id);
    if (cached != self_eligibility_.end()) {
      answer.push_back(*cached);
    } else {
      Eligibility unknown = OpenEligibility(queue_id);
      CloseWith(unknown, MakeRestriction(EligibilityRestrictionCode::kQueueUnsupported));
      answer.push_back(std::move(unknown));
    }
  }
  return HostValueList<Eligibility>(std::move(answer));
}

}  // namespace kav
