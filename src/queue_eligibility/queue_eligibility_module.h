// QueueEligibilityModule: the plugin's one module. It adds to AppModule what
// the plugin knows about the signed-in player, the game queues and the
// platform switches, the cached eligibility of the signed-in player and the
// flags that say how complete and how fresh that knowledge is.
//
// Thread-safety: none of its own. Every field is read and written only by the
// module's handlers, which the host runs one at a time; a handler that waits
// lets the host run other handlers meanwhile, so fields may change between
// two steps of a running computation.
#ifndef KAV_QUEUE_ELIGIBILITY_QUEUE_ELIGIBILITY_MODULE_H_
#define KAV_QUEUE_ELIGIBILITY_QUEUE_ELIGIBILITY_MODULE_H_

#include <cstdint>
#include <vector>

#include "plugin/app_module.h"
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
  uint64_t summoner_id_ = 0;    // 0 while no valid session is known
  bool session_valid_ = false;  // session "SUCCEEDED" with account and summoner ids
  bool practice_game_enabled_ = false;
  bool gate_keeper_enabled_ = true;
  std::vector<Eligibility> self_eligibility_;  // meaningful only while not dirty
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
