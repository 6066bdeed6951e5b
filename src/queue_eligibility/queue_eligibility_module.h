// QueueEligibilityModule: the plugin's one module. It adds to AppModule what
// the plugin knows about the signed-in player, the game queues and the
// platform switches, the cached eligibility of the signed-in player and the
// flags that say how complete and how fresh that knowledge is.
//
// Its work is split by concern: configuration_tracking.cc (observed
// resources, dirty flag, completion), self_eligibility.cc and gatekeeper.cc
// (the gatekeeper-based computation and its cache), local_rules.cc (the rule
// set used without the gatekeeper) and endpoints.cc (the served resources).
// Every failure is a Failure value with status 500; nothing is thrown.
//
// Thread-safety: none of its own. Every field is read and written only by the
// module's handlers, which the host runs one at a time; a handler that waits
// lets the host run other handlers meanwhile, so fields may change between
// two steps of a running computation.
#ifndef KAV_QUEUE_ELIGIBILITY_QUEUE_ELIGIBILITY_MODULE_H_
#define KAV_QUEUE_ELIGIBILITY_QUEUE_ELIGIBILITY_MODULE_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "binding/host_value_images.h"
#include "binding/host_value_list.h"
#include "plugin/app_module.h"
#include "plugin/host_types.h"
#include "plugin/maybe_type.h"
#include "plugin/request.h"
#include "queue_eligibility/api_types.h"

namespace kav {

// The module name under which the plugin registers with the host.
inline constexpr char kQueueEligibilityPluginName[] = "kav-queue-eligibility";

class QueueEligibilityModule : public AppModule {
 public:
  using Eligibility = queue_eligibility::api::Eligibility;
  using Queue = queue_eligibility::api::Queue;
  using ChampionPlayableCountsForEligibility =
      queue_eligibility::api::ChampionPlayableCountsForEligibility;
  using League = queue_eligibility::api::League;
  using LoginSession = queue_eligibility::api::LoginSession;
  using SummonerResource = queue_eligibility::api::SummonerResource;
  using EligibilityQueryParams = queue_eligibility::api::EligibilityQueryParams;
  // What every eligibility computation and resource answers.
  using EligibilityAnswer = MaybeType<Failure, std::vector<Eligibility>>;
  // What the eligibility resources answer: the same list, which the cached
  // answers give as picks from the cache.
  using EligibilityListAnswer = MaybeType<Failure, HostValueList<Eligibility>>;

  QueueEligibilityModule() = default;
  // Releases leagues, available queue ids, queues and self eligibility, in
  // that order (reverse declaration order), then the AppModule teardown runs.
  ~QueueEligibilityModule() override = default;

  // Declares the plugin's API types and its five resources.
  void RegisterApi() override;
  // Starts watching the resources of other plugins; reports success.
  bool OnStart() override;

  uint64_t summoner_id() const { return summoner_id_; }
  bool session_valid() const { return session_valid_; }
  bool practice_game_enabled() const { return practice_game_enabled_; }
  bool gate_keeper_enabled() const { return gate_keeper_enabled_; }
  const std::vector<Eligibility>& self_eligibility() const { return self_eligibility_; }
  bool self_eligibility_dirty() const { return self_eligibility_dirty_; }
  bool initial_configuration_complete() const { return initial_configuration_complete_; }
  uint32_t player_level() const { return player_level_; }
  bool queues_received() const { return queues_received_; }
  const std::vector<Queue>& queues() const { return queues_; }
  const std::vector<int32_t>& available_queue_ids() const { return available_queue_ids_; }
  bool champion_counts_received() const { return champion_counts_received_; }
  const ChampionPlayableCountsForEligibility& champion_counts() const { return champion_counts_; }
  bool leagues_received() const { return leagues_received_; }
  const std::vector<League>& leagues() const { return leagues_; }

 private:
  // ---- Configuration tracking (configuration_tracking.cc) ----
  // Observes the two resources bound to the signed-in summoner.
  void ObserveSessionResources();
  void OnSessionChanged(const ResourceEvent<LoginSession>& event);
  void OnPracticeGameEnabledChanged(const ResourceEvent<bool>& event);
  void OnGateKeeperEnabledChanged(const ResourceEvent<std::optional<bool>>& event);
  void OnQueuesChanged(const ResourceEvent<std::vector<Queue>>& event);
  void OnCurrentSummonerChanged(const ResourceEvent<SummonerResource>& event);
  void OnChampionCountsChanged(const ResourceEvent<ChampionPlayableCountsForEligibility>& event);
  void OnLeaguesChanged(const ResourceEvent<std::vector<League>>& event);
  // Marks the configuration complete once queues and champion counts have
  // both arrived, and then announces it, once in the module's life. Returns
  // the flag afterwards.
  bool CheckConfigurationComplete();

  // ---- Gatekeeper-based rules (self_eligibility.cc, gatekeeper.cc) ----
  // One entry per requested queue, in request order: queue availability,
  // shutdown law, gatekeeper restrictions, the queue 440 size rule. Fails
  // "UNAVAILABLE" before the first queue list. May wait for the host.
  EligibilityAnswer ComputeEligibility(const std::vector<uint64_t>& summoner_ids,
                                       const std::vector<int32_t>& queue_ids);
  // The signed-in player's eligibility from the cache, rebuilt for every
  // known queue first when it is dirty: picks from the cache when it holds
  // every asked queue, else copies. REQUIRES: `summoner_ids` is the
  // signed-in summoner alone; `queue_ids` ascend.
  EligibilityListAnswer GetSelfEligibility(const std::vector<uint64_t>& summoner_ids,
                                           const std::vector<int32_t>& queue_ids);
  // Closes entries of unknown and unavailable queues.
  void ApplyQueueAvailability(std::vector<Eligibility>& eligibilities) const;
  // Closes queue 440 for a party size it does not admit, unless a team size
  // restriction closes it already.
  void ApplyQueue440SizeRule(std::vector<Eligibility>& eligibilities, size_t party_size) const;
  // Asks the gatekeeper about one batch and merges its answer; `queues` is
  // read after the wait. False, with `error` set, when the call fails.
  bool QueryGatekeeperRestrictions(std::vector<Eligibility>& eligibilities,
                                   const std::vector<Queue>& queues,
                                   const std::vector<uint64_t>& summoner_ids,
                                   std::span<const int32_t> queue_ids, std::string& error);

  // ---- Local rules (local_rules.cc) ----
  // Eligibility from freshly read queues, levels, champions and shutdown
  // statuses: queues closed for availability first, then the checked ones.
  EligibilityAnswer EvaluateLocalRules(const std::vector<uint64_t>& summoner_ids,
                                       const std::vector<int32_t>& queue_ids);
  // Closes `entry` when the shutdown law disables its queue; an unreadable
  // status is logged and leaves the entry as it is.
  void ApplyQueueShutdownStatus(Eligibility& entry);

  // ---- Endpoints (endpoints.cc) ----
  EligibilityAnswer EligibilityV1(const EligibilityQueryParams& query);
  EligibilityListAnswer EligibilityV2(const EligibilityQueryParams& query);
  EligibilityListAnswer EligibilityV3(const std::vector<uint64_t>& summoner_ids,
                                      const std::vector<int32_t>& queue_ids);
  EligibilityAnswer CustomEligibilityV3(int32_t team_size, const std::string& pick_mode);
  bool InitialConfigurationComplete() const { return initial_configuration_complete_; }

  // Reads another plugin's resource with GET.
  template <class T>
  MaybeType<Failure, T> GetResource(std::string_view url) {
    return Request<T>(KAV_METHOD_GET, url);
  }

  // The service records' class names beside the registry.
  queue_eligibility::ServiceTypeTables service_types_;

  uint64_t summoner_id_ = 0;    // 0 while no valid session is known
  bool session_valid_ = false;  // session "SUCCEEDED" with account and summoner ids
  bool practice_game_enabled_ = false;
  bool gate_keeper_enabled_ = true;
  std::vector<Eligibility> self_eligibility_;  // meaningful only while not dirty
  // The host values of self_eligibility_'s entries, made as they are first
  // answered; cleared whenever self_eligibility_ changes.
  HostValueImages self_eligibility_images_;
  // The cache entries of the last answer from the cache, by index: read
  // when that answer is converted, right after its handler returns, so no
  // other call can come in between (its memory is kept: no allocation per
  // call, tests/host/answer_memory_test.cc).
  std::vector<uint32_t> self_eligibility_picks_;
  bool self_eligibility_dirty_ = true;
  bool initial_configuration_complete_ = false;  // never goes back to false
  uint32_t player_level_ = 0;
  bool queues_received_ = false;
  std::vector<Queue> queues_;                 // sorted by id
  std::vector<int32_t> available_queue_ids_;  // in the order of queues_
  bool champion_counts_received_ = false;
  ChampionPlayableCountsForEligibility champion_counts_;
  bool leagues_received_ = false;
  std::vector<League> leagues_;
};

}  // namespace kav

#endif  // KAV_QUEUE_ELIGIBILITY_QUEUE_ELIGIBILITY_MODULE_H_
