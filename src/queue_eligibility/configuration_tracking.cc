// Configuration tracking: the handlers of the observed resources, what each
// stores, when a change makes the cached self-eligibility stale, and the
// one-time completion of the initial configuration.
#include <algorithm>
#include <utility>

#include "diagnostics/format.h"
#include "diagnostics/logging.h"
#include "plugin/event_subscriptions.h"
#include "queue_eligibility/queue_eligibility_module.h"

namespace kav {
namespace {

using queue_eligibility::api::LoginSessionStates;
using queue_eligibility::api::QueueAvailability;

constexpr char kSessionPath[] = "/kav-login/v1/session";
constexpr char kPracticeGameEnabledPath[] =
    "/kav-platform-config/v1/namespaces/ClientSystemStates/practiceGameEnabled";
constexpr char kGateKeeperEnabledPath[] =
    "/kav-platform-config/v1/namespaces/HvxLobby/QueueEligibilityGateKeeperEnabled";
constexpr char kQueuesPath[] = "/kav-game-queues/v1/queues";
constexpr char kCurrentSummonerPath[] = "/kav-summoner/v1/current-summoner";
constexpr char kChampionCountsPathFormat[] =
    "/kav-champions/v1/inventories/%1/champions-playable-count";
constexpr char kLeaguesPathFormat[] = "/kav-leagues/v1/summoner-leagues/%1";
constexpr char kInitialConfigurationCompletePath[] =
    "/kav-queue-eligibility/v1/initial-configuration-complete";
constexpr char kResourceEventName[] = "OnJsonApiEvent";

bool IsDelete(PluginResourceEventType event_type) {
  return event_type == PluginResourceEventType::kDelete;
}

bool IsValidSession(const queue_eligibility::api::LoginSession& session) {
  return session.state == LoginSessionStates::kSucceeded && session.account_id != 0 &&
         session.summoner_id != 0;
}

}  // namespace

bool QueueEligibilityModule::OnStart() {
  ObserveResource<LoginSession>(
      kSessionPath, [this](const ResourceEvent<LoginSession>& event) { OnSessionChanged(event); });
  ObserveResource<bool>(kPracticeGameEnabledPath, [this](const ResourceEvent<bool>& event) {
    OnPracticeGameEnabledChanged(event);
  });
  ObserveResource<std::optional<bool>>(kGateKeeperEnabledPath,
                                       [this](const ResourceEvent<std::optional<bool>>& event) {
                                         OnGateKeeperEnabledChanged(event);
                                       });
  ObserveResource<std::vector<Queue>>(
      kQueuesPath,
      [this](const ResourceEvent<std::vector<Queue>>& event) { OnQueuesChanged(event); });
  ObserveResource<SummonerResource>(
      kCurrentSummonerPath,
      [this](const ResourceEvent<SummonerResource>& event) { OnCurrentSummonerChanged(event); });
  return true;
}

void QueueEligibilityModule::ObserveSessionResources() {
  ObserveResource<ChampionPlayableCountsForEligibility>(
      FormatMessage(kChampionCountsPathFormat, summoner_id_),
      [this](const ResourceEvent<ChampionPlayableCountsForEligibility>& event) {
        OnChampionCountsChanged(event);
      });
  ObserveResource<std::vector<League>>(
      FormatMessage(kLeaguesPathFormat, summoner_id_),
      [this](const ResourceEvent<std::vector<League>>& event) { OnLeaguesChanged(event); });
}

void QueueEligibilityModule::OnSessionChanged(const ResourceEvent<LoginSession>& event) {
  if (IsDelete(event.event_type)) {
    summoner_id_ = 0;
    session_valid_ = false;
    return;
  }
  const bool was_valid = session_valid_;
  session_valid_ = IsValidSession(event.value);
  // Only the change to valid binds the module to a summoner; a session that
  // stays valid keeps its summoner, and one that turns invalid keeps the id
  // until the next valid session or a deletion.
  if (was_valid || !session_valid_) return;
  summoner_id_ = event.value.summoner_id;
  ObserveSessionResources();
}

void QueueEligibilityModule::OnPracticeGameEnabledChanged(const ResourceEvent<bool>& event) {
  if (IsDelete(event.event_type)) return;
  practice_game_enabled_ = event.value;
}

void QueueEligibilityModule::OnGateKeeperEnabledChanged(
    const ResourceEvent<std::optional<bool>>& event) {
  if (IsDelete(event.event_type)) return;
  gate_keeper_enabled_ = event.value.value_or(true);
}

void QueueEligibilityModule::OnQueuesChanged(const ResourceEvent<std::vector<Queue>>& event) {
  if (!IsDelete(event.event_type)) {
    std::vector<Queue> sorted = event.value;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Queue& a, const Queue& b) { return a.id < b.id; });
    std::vector<int32_t> available_ids;
    available_ids.reserve(sorted.size());
    for (const Queue& queue : sorted) {
      if (queue.queue_availability == QueueAvailability::kAvailable) {
        available_ids.push_back(queue.id);
      }
    }
    queues_ = std::move(sorted);
    // Only a change of which queues are open makes the cache stale; other
    // queue fields are read afresh by every computation.
    if (available_ids != available_queue_ids_) {
      Log(kLogAlways, 0,
          "Queue Eligibility configuration: queues changed, self eligibility is dirty");
      self_eligibility_dirty_ = true;
    }
    available_queue_ids_ = std::move(available_ids);
    queues_received_ = true;
  }
  CheckConfigurationComplete();
}

void QueueEligibilityModule::OnCurrentSummonerChanged(
    const ResourceEvent<SummonerResource>& event) {
  if (IsDelete(event.event_type)) return;
  if (event.value.summoner_level == player_level_) return;
  Log(kLogAlways, 0,
      "Queue Eligibility configuration: player level changed, self eligibility is dirty");
  player_level_ = event.value.summoner_level;
  self_eligibility_dirty_ = true;
}

void QueueEligibilityModule::OnChampionCountsChanged(
    const ResourceEvent<ChampionPlayableCountsForEligibility>& event) {
  if (!IsDelete(event.event_type)) {
    if (event.value != champion_counts_) {
      Log(kLogAlways, 0,
          "Queue Eligibility configuration: champions changed, self eligibility is dirty");
      self_eligibility_dirty_ = true;
    }
    champion_counts_ = event.value;
    champion_counts_received_ = true;
  }
  CheckConfigurationComplete();
}

void QueueEligibilityModule::OnLeaguesChanged(const ResourceEvent<std::vector<League>>& event) {
  if (IsDelete(event.event_type)) return;
  leagues_ = event.value;
  leagues_received_ = true;
}

bool QueueEligibilityModule::CheckConfigurationComplete() {
  if (!queues_received_ || !champion_counts_received_) {
    Log(kLogAlways, 0, "Queue Eligibility configuration: incomplete%s%s",
        queues_received_ ? "" : " (Queues)", champion_counts_received_ ? "" : " (Champions)");
    return initial_configuration_complete_;
  }
  if (initial_configuration_complete_) return true;
  initial_configuration_complete_ = true;
  Log(kLogAlways, 0, "Queue Eligibility configuration: COMPLETE");
  Resource completed;
  completed.uri = kInitialConfigurationCompletePath;
  completed.event_type = PluginResourceEventType::kUpdate;
  completed.data.SetBool(true);
  // A publication that fails has nobody to report to; the resource itself
  // answers the flag.
  (void)SendEvent(kResourceEventName, completed, 0);
  return true;
}

}  // namespace kav
