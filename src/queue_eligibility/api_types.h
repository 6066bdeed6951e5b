// The records and enumerations that cross the eligibility module's boundary:
// the answers of its resources, the values it reads from other plugins'
// resources, and the two records of the gatekeeper service.
//
// Each record is declared once (binding/declare.h): BindingFields lists the
// wire name and member of every field in registration order, and
// RegisterEligibilityApiTypes registers everything with a type registry so
// that the framework converts the records to and from generic values.
// Every field is registered with flags 0: a missing member leaves the field
// at its default and every field is written out.
//
// Thread-compatible value types; registration runs at start-up.
#ifndef KAV_QUEUE_ELIGIBILITY_API_TYPES_H_
#define KAV_QUEUE_ELIGIBILITY_API_TYPES_H_

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "binding/declare.h"
#include "binding/static_type.h"
#include "binding/type_registry.h"

namespace kav::queue_eligibility {

namespace api {

// Whether a queue can be entered at all.
enum class QueueAvailability : int32_t {
  kAvailable = 0,
  kPlatformDisabled = 1,
  kDoesntMeetRequirements = 2,
};

// One game queue as read from "/kav-game-queues/v1/queues".
struct Queue {
  int32_t id = 0;
  std::string type;
  int32_t num_players_per_team = 0;
  int32_t maximum_participant_list_size = 0;
  uint32_t min_level = 0;
  uint32_t max_level = 0;
  QueueAvailability queue_availability = QueueAvailability::kAvailable;
  bool are_free_champions_allowed = false;
  bool is_ranked = false;
  uint32_t champions_required_to_play = 0;
  std::vector<int32_t> allowable_premade_sizes;
  bool show_position_selector = false;

  bool operator==(const Queue&) const = default;
};

// Why a queue is closed.
enum class EligibilityRestrictionCode : int32_t {
  kQueueDisabled = 0,
  kQueueUnsupported = 1,
  kPlayerLevelRestriction = 2,
  kPlayerTimedRestriction = 3,
  kPlayerBannedRestriction = 4,
  kPlayerAvailableChampionRestriction = 5,
  kTeamDivisionRestriction = 6,
  kTeamMaxSizeRestriction = 7,
  kTeamMinSizeRestriction = 8,
  kPlayerBingeRestriction = 9,
  kPlayerDodgeRestriction = 10,
  kPlayerInGameRestriction = 11,
  kPlayerLeaverBustedRestriction = 12,
  kPlayerLeaverTaintedWarningRestriction = 13,
  kPlayerMaxLevelRestriction = 14,
  kPlayerMinLevelRestriction = 15,
  kPlayerMinorRestriction = 16,
  kPlayerRankedSuspensionRestriction = 17,
  kTeamHighMMRMaxSizeRestriction = 18,
  kTeamSizeRestriction = 19,
  kPrerequisiteQueuesNotPlayedRestriction = 20,
  kUnknownRestriction = 21,
};

// One reason why a queue is closed.
struct EligibilityRestriction {
  EligibilityRestrictionCode restriction_code = EligibilityRestrictionCode::kQueueDisabled;
  // At most one entry, whose key is fixed per code. An ordered map: with at
  // most one entry the order never shows, and the record stays comparable
  // and cheap to copy.
  std::map<std::string, std::string> restriction_args;
  uint64_t expired_timestamp = 0;  // ms on the monotonic clock; 0: no end
  std::vector<uint64_t> summoner_ids;

  bool operator==(const EligibilityRestriction&) const = default;
};

// The answer for one queue.
struct Eligibility {
  int32_t queue_id = 0;  // -1 for custom games
  bool eligible = false;
  std::vector<EligibilityRestriction> restrictions;

  bool operator==(const Eligibility&) const = default;
};

// The body of the v1 and v2 eligibility resources.
struct EligibilityQueryParams {
  std::vector<uint64_t> summoner_ids;
  std::vector<int32_t> queue_ids;

  bool operator==(const EligibilityQueryParams&) const = default;
};

// A summoner (registered as "SummonerSummoner").
struct SummonerResource {
  uint64_t summoner_id = 0;
  uint32_t summoner_level = 0;

  bool operator==(const SummonerResource&) const = default;
};

struct CollectionsRental {
  bool rented = false;

  bool operator==(const CollectionsRental&) const = default;
};

struct CollectionsOwnership {
  bool free_to_play_reward = false;
  bool owned = false;
  CollectionsRental rental;

  bool operator==(const CollectionsOwnership&) const = default;
};

// One champion of a summoner's inventory.
struct CollectionsChampion {
  std::vector<std::string> disabled_queues;
  bool free_to_play = false;
  CollectionsOwnership ownership;
  uint64_t purchased = 0;
  bool ranked_play_enabled = false;

  bool operator==(const CollectionsChampion&) const = default;
};

struct CollectionsPlayableChampionCounts {
  uint32_t champions_owned = 0;

  bool operator==(const CollectionsPlayableChampionCounts&) const = default;
};

struct QueueShutdownStatus {
  bool is_disabled = false;

  bool operator==(const QueueShutdownStatus&) const = default;
};

enum class LoginSessionStates : int32_t {
  kInProgress = 0,
  kSucceeded = 1,
  kLoggingOut = 2,
  kError = 3,
};

struct LoginSession {
  LoginSessionStates state = LoginSessionStates::kInProgress;
  uint64_t summoner_id = 0;
  uint64_t account_id = 0;

  bool operator==(const LoginSession&) const = default;
};

// Compared as a whole to detect a change.
struct ChampionPlayableCountsForEligibility {
  uint32_t champions_owned = 0;
  uint32_t champions_rented = 0;
  uint32_t champions_free_to_play = 0;
  uint32_t champions_free_to_play_reward = 0;

  bool operator==(const ChampionPlayableCountsForEligibility&) const = default;
};

struct League {
  std::string queue_type;
  std::string league_tier;

  bool operator==(const League&) const = default;
};

constexpr auto BindingEnumerators(const QueueAvailability*) {
  using enum QueueAvailability;
  return Enumerators<QueueAvailability>({
      {"Available", kAvailable},
      {"PlatformDisabled", kPlatformDisabled},
      {"DoesntMeetRequirements", kDoesntMeetRequirements},
  });
}

constexpr auto BindingFields(const Queue*) {
  return Fields(
      Field("id", &Queue::id),  //
      Field("type", &Queue::type), Field("numPlayersPerTeam", &Queue::num_players_per_team),
      Field("maximumParticipantListSize", &Queue::maximum_participant_list_size),
      Field("minLevel", &Queue::min_level),  //
      Field("maxLevel", &Queue::max_level), Field("queueAvailability", &Queue::queue_availability),
      Field("areFreeChampionsAllowed", &Queue::are_free_champions_allowed),
      Field("isRanked", &Queue::is_ranked),
      Field("championsRequiredToPlay", &Queue::champions_required_to_play),
      Field("allowablePremadeSizes", &Queue::allowable_premade_sizes),
      Field("showPositionSelector", &Queue::show_position_selector));
}

constexpr auto BindingEnumerators(const EligibilityRestrictionCode*) {
  using enum EligibilityRestrictionCode;
  return Enumerators<EligibilityRestrictionCode>({
      {"QueueDisabled", kQueueDisabled},
      {"QueueUnsupported", kQueueUnsupported},
      {"PlayerLevelRestriction", kPlayerLevelRestriction},
      {"PlayerTimedRestriction", kPlayerTimedRestriction},
      {"PlayerBannedRestriction", kPlayerBannedRestriction},
      {"PlayerAvailableChampionRestriction", kPlayerAvailableChampionRestriction},
      {"TeamDivisionRestriction", kTeamDivisionRestriction},
      {"TeamMaxSizeRestriction", kTeamMaxSizeRestriction},
      {"TeamMinSizeRestriction", kTeamMinSizeRestriction},
      {"PlayerBingeRestriction", kPlayerBingeRestriction},
      {"PlayerDodgeRestriction", kPlayerDodgeRestriction},
      {"PlayerInGameRestriction", kPlayerInGameRestriction},
      {"PlayerLeaverBustedRestriction", kPlayerLeaverBustedRestriction},
      {"PlayerLeaverTaintedWarningRestriction", kPlayerLeaverTaintedWarningRestriction},
      {"PlayerMaxLevelRestriction", kPlayerMaxLevelRestriction},
      {"PlayerMinLevelRestriction", kPlayerMinLevelRestriction},
      {"PlayerMinorRestriction", kPlayerMinorRestriction},
      {"PlayerRankedSuspensionRestriction", kPlayerRankedSuspensionRestriction},
      {"TeamHighMMRMaxSizeRestriction", kTeamHighMMRMaxSizeRestriction},
      {"TeamSizeRestriction", kTeamSizeRestriction},
      {"PrerequisiteQueuesNotPlayedRestriction", kPrerequisiteQueuesNotPlayedRestriction},
      {"UnknownRestriction", kUnknownRestriction},
  });
}

constexpr auto BindingFields(const EligibilityRestriction*) {
  using R = EligibilityRestriction;
  return Fields(Field("restrictionCode", &R::restriction_code),
                Field("restrictionArgs", &R::restriction_args),
                Field("expiredTimestamp", &R::expired_timestamp),
                Field("summonerIds", &R::summoner_ids));
}

constexpr auto BindingFields(const Eligibility*) {
  return Fields(Field("queueId", &Eligibility::queue_id), Field("eligible", &Eligibility::eligible),
                Field("restrictions", &Eligibility::restrictions));
}

constexpr auto BindingFields(const EligibilityQueryParams*) {
  return Fields(Field("summonerIds", &EligibilityQueryParams::summoner_ids),
                Field("queueIds", &EligibilityQueryParams::queue_ids));
}

constexpr auto BindingFields(const SummonerResource*) {
  return Fields(Field("summonerId", &SummonerResource::summoner_id),
                Field("summonerLevel", &SummonerResource::summoner_level));
}

constexpr auto BindingFields(const CollectionsRental*) {
  return Fields(Field("rented", &CollectionsRental::rented));
}

constexpr auto BindingFields(const CollectionsOwnership*) {
  return Fields(Field("freeToPlayReward", &CollectionsOwnership::free_to_play_reward),
                Field("owned", &CollectionsOwnership::owned),
                Field("rental", &CollectionsOwnership::rental));
}

constexpr auto BindingFields(const CollectionsChampion*) {
  return Fields(Field("disabledQueues", &CollectionsChampion::disabled_queues),
                Field("freeToPlay", &CollectionsChampion::free_to_play),
                Field("ownership", &CollectionsChampion::ownership),
                Field("purchased", &CollectionsChampion::purchased),
                Field("rankedPlayEnabled", &CollectionsChampion::ranked_play_enabled));
}

constexpr auto BindingFields(const CollectionsPlayableChampionCounts*) {
  return Fields(Field("championsOwned", &CollectionsPlayableChampionCounts::champions_owned));
}

constexpr auto BindingFields(const QueueShutdownStatus*) {
  return Fields(Field("isDisabled", &QueueShutdownStatus::is_disabled));
}

constexpr auto BindingEnumerators(const LoginSessionStates*) {
  using enum LoginSessionStates;
  return Enumerators<LoginSessionStates>({
      {"IN_PROGRESS", kInProgress},
      {"ERROR", kError},
      {"SUCCEEDED", kSucceeded},
      {"LOGGING_OUT", kLoggingOut},
  });
}

constexpr auto BindingFields(const LoginSession*) {
  return Fields(Field("state", &LoginSession::state),
                Field("summonerId", &LoginSession::summoner_id),
                Field("accountId", &LoginSession::account_id));
}

constexpr auto BindingFields(const ChampionPlayableCountsForEligibility*) {
  using C = ChampionPlayableCountsForEligibility;
  return Fields(Field("championsOwned", &C::champions_owned),
                Field("championsRented", &C::champions_rented),
                Field("championsFreeToPlay", &C::champions_free_to_play),
                Field("championsFreeToPlayReward", &C::champions_free_to_play_reward));
}

constexpr auto BindingFields(const League*) {
  return Fields(Field("queueType", &League::queue_type), Field("leagueTier", &League::league_tier));
}

}  // namespace api

// The records exchanged with the gatekeeper service.
namespace mqds {

// The request of the gatekeeper query: one batch of queues for the party.
struct GetQueueRestrictionsForQueuesRequestV2 {
  std::vector<int32_t> queue_ids;
  std::vector<uint64_t> summoner_ids;
  std::vector<std::string> queue_restrictions_to_exclude;

  bool operator==(const GetQueueRestrictionsForQueuesRequestV2&) const = default;
};

// One entry of the gatekeeper's answer.
struct GatekeeperRestrictionDtoV3 {
  std::string summoner_name;
  std::string reason;
  int64_t remaining_millis = 0;  // 0 or less: no end
  std::string payload;
  int32_t queue_id = 0;
  uint64_t summoner_id = 0;

  bool operator==(const GatekeeperRestrictionDtoV3&) const = default;
};

constexpr auto BindingFields(const GetQueueRestrictionsForQueuesRequestV2*) {
  using R = GetQueueRestrictionsForQueuesRequestV2;
  return Fields(Field("queueIds", &R::queue_ids),  //
                Field("summonerIds", &R::summoner_ids),
                Field("queueRestrictionsToExclude", &R::queue_restrictions_to_exclude));
}

constexpr auto BindingFields(const GatekeeperRestrictionDtoV3*) {
  using D = GatekeeperRestrictionDtoV3;
  return Fields(Field("summonerName", &D::summoner_name),  //
                Field("reason", &D::reason), Field("remainingMillis", &D::remaining_millis),
                Field("payload", &D::payload),  //
                Field("queueId", &D::queue_id), Field("summonerId", &D::summoner_id));
}

}  // namespace mqds

// Type name of each gatekeeper record and the class name by which the
// service knows it.
inline constexpr std::string_view kGetQueueRestrictionsRequestTypeName =
    "QueueEligilibilityGetQueueRestrictionsForQueuesRequestV2";
inline constexpr std::string_view kGetQueueRestrictionsRequestClassName =
    "com.orvogames.platform.gatekeeper.frontend.GetQueueRestrictionsForQueuesRequestV2";
inline constexpr std::string_view kGatekeeperRestrictionTypeName =
    "QueueEligilibilityGatekeeperRestrictionDtoV3";
inline constexpr std::string_view kGatekeeperRestrictionClassName =
    "com.orvogames.platform.gatekeeper.frontend.GatekeeperRestrictionDtoV3";

// The two lookup tables kept beside the registry for the service records.
// Owned by the module; filled by RegisterEligibilityApiTypes.
struct ServiceTypeTables {
  struct ClassEntry {
    std::string className;
    const StaticTypeIdentity* identity = nullptr;
  };
  std::unordered_map<std::string, ClassEntry> byTypeName;   // type name -> class, identity
  std::unordered_map<uint32_t, std::string> classNameById;  // identity id -> class name
};

// Registers every record and enumeration in the required order: the API
// types under `prefix` + their name with `tags`, then the two service records
// under their literal type names (also with `tags`), entering those into
// `tables`. Registering again changes nothing (first registration wins).
void RegisterEligibilityApiTypes(TypeRegistry& registry, std::string_view prefix,
                                 const std::vector<std::string>& tags, ServiceTypeTables& tables);

}  // namespace kav::queue_eligibility

#endif  // KAV_QUEUE_ELIGIBILITY_API_TYPES_H_
