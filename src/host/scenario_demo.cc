// The built-in demo scenario: a signed-in summoner 1001 with three friends of
// lower levels, a realistic queue list with some disabled queues, champion
// data, leagues, one queue closed by the shutdown law, and gatekeeper
// restrictions of the kinds the plugin maps (a timed ranked suspension, a
// minimum level, a tier difference inside a party, a ban) plus one that the
// plugin drops (already in game).
#include "host/scenario.h"

namespace kav::host {

std::string_view DemoScenarioText() {
  return R"yaml(
name: demo
session: {state: SUCCEEDED, summonerId: 1001, accountId: 5001}
platform:
  practiceGameEnabled: true
  QueueEligibilityGateKeeperEnabled: true

queueDefaults:
  numPlayersPerTeam: 5
  maximumParticipantListSize: 5
  minLevel: 0
  maxLevel: 0
  queueAvailability: Available
  areFreeChampionsAllowed: true
  isRanked: false
  championsRequiredToPlay: 0
  allowablePremadeSizes: [1, 2, 3, 4, 5]
  showPositionSelector: false

queues:
  - {id: 0, type: CUSTOM, numPlayersPerTeam: 5}
  - {id: 400, type: NORMAL, minLevel: 10, showPositionSelector: true, championsRequiredToPlay: 1}
  - {id: 420, type: RANKED_SOLO_5x5, minLevel: 30, isRanked: true, areFreeChampionsAllowed: false,
     championsRequiredToPlay: 20, allowablePremadeSizes: [1, 2], maximumParticipantListSize: 2,
     showPositionSelector: true}
  - {id: 430, type: NORMAL, minLevel: 10}
  - {id: 440, type: RANKED_FLEX_SR, minLevel: 30, isRanked: true, areFreeChampionsAllowed: false,
     championsRequiredToPlay: 20, allowablePremadeSizes: [1, 2, 5], showPositionSelector: true}
  - {id: 450, type: ARAM_UNRANKED_5x5, minLevel: 7}
  - {id: 480, type: SWIFTPLAY, minLevel: 10}
  - {id: 490, type: NORMAL, minLevel: 10, queueAvailability: PlatformDisabled}
  - {id: 700, type: CLASH, minLevel: 30, isRanked: true, championsRequiredToPlay: 20,
     showPositionSelector: true, queueAvailability: DoesntMeetRequirements}
  - {id: 720, type: ARAM_CLASH, minLevel: 30, queueAvailability: DoesntMeetRequirements}
  - {id: 830, type: BOT, numPlayersPerTeam: 5, minLevel: 1}
  - {id: 840, type: BOT, minLevel: 1}
  - {id: 850, type: BOT, minLevel: 1}
  - {id: 870, type: BOT, minLevel: 1, maxLevel: 20}
  - {id: 880, type: BOT, minLevel: 1}
  - {id: 890, type: BOT, minLevel: 1}
  - {id: 900, type: URF, minLevel: 10, queueAvailability: PlatformDisabled}
  - {id: 1020, type: ONEFORALL, minLevel: 10, queueAvailability: PlatformDisabled}
  - {id: 1090, type: NORMAL_TFT, numPlayersPerTeam: 1, maximumParticipantListSize: 8,
     allowablePremadeSizes: [1, 2, 3, 4, 5, 6, 7, 8]}
  - {id: 1100, type: RANKED_TFT, numPlayersPerTeam: 1, maximumParticipantListSize: 1,
     minLevel: 10, isRanked: true, allowablePremadeSizes: [1]}
  - {id: 1130, type: RANKED_TFT_TURBO, numPlayersPerTeam: 1, maximumParticipantListSize: 1,
     isRanked: true, allowablePremadeSizes: [1]}
  - {id: 1160, type: RANKED_TFT_DOUBLE_UP, numPlayersPerTeam: 2, maximumParticipantListSize: 2,
     isRanked: true, allowablePremadeSizes: [2]}
  - {id: 1210, type: TFT_CHONCCS, numPlayersPerTeam: 1, maximumParticipantListSize: 8,
     queueAvailability: PlatformDisabled}
  - {id: 1300, type: NEXUS_BLITZ, minLevel: 10, queueAvailability: PlatformDisabled}
  - {id: 1400, type: ULTIMATE_SPELLBOOK, minLevel: 10, queueAvailability: PlatformDisabled}
  - {id: 1700, type: CHERRY, numPlayersPerTeam: 2, maximumParticipantListSize: 2, minLevel: 10,
     allowablePremadeSizes: [1, 2]}
  - {id: 1710, type: CHERRY_TEST, numPlayersPerTeam: 2, maximumParticipantListSize: 2,
     queueAvailability: DoesntMeetRequirements}
  - {id: 1810, type: SWARM, numPlayersPerTeam: 4, maximumParticipantListSize: 4,
     allowablePremadeSizes: [1, 2, 3, 4]}
  - {id: 1820, type: SWARM_DUO, numPlayersPerTeam: 4, maximumParticipantListSize: 4,
     allowablePremadeSizes: [1, 2, 3, 4]}
  - {id: 1830, type: SWARM_TRIO, numPlayersPerTeam: 4, maximumParticipantListSize: 4,
     queueAvailability: PlatformDisabled}
  - {id: 2000, type: TUTORIAL_1, numPlayersPerTeam: 1, maximumParticipantListSize: 1,
     allowablePremadeSizes: [1]}
  - {id: 2010, type: TUTORIAL_2, numPlayersPerTeam: 1, maximumParticipantListSize: 1,
     allowablePremadeSizes: [1]}
  - {id: 2020, type: TUTORIAL_3, numPlayersPerTeam: 1, maximumParticipantListSize: 1,
     allowablePremadeSizes: [1]}

summoners: {1001: 187, 1002: 45, 1003: 12, 1004: 8}

champions:
  1001:
    inventory:
      - {purchased: 1600000000000, ownership: {owned: true}, rankedPlayEnabled: true, repeat: 24}
      - {freeToPlay: true, rankedPlayEnabled: true, repeat: 10}
      - {ownership: {rental: {rented: true}}, rankedPlayEnabled: false, repeat: 2}
      - {purchased: 1650000000000, ownership: {owned: true}, rankedPlayEnabled: true,
         disabledQueues: [URF, ONEFORALL]}
    playableCounts: {championsOwned: 25, championsRented: 2, championsFreeToPlay: 10,
                     championsFreeToPlayReward: 0}
  1002:
    inventory:
      - {purchased: 1600000000000, ownership: {owned: true}, rankedPlayEnabled: true, repeat: 21}
    playableCounts: {championsOwned: 21}
  1003:
    inventory:
      - {freeToPlay: true, rankedPlayEnabled: true, repeat: 10}
      - {ownership: {owned: true}, rankedPlayEnabled: true, repeat: 3}
    playableCounts: {championsOwned: 3, championsFreeToPlay: 10}

leagues:
  1001:
    - {queueType: RANKED_SOLO_5x5, leagueTier: GOLD}
    - {queueType: RANKED_FLEX_SR, leagueTier: PLATINUM}
  1002:
    - {queueType: RANKED_SOLO_5x5, leagueTier: IRON}

shutdownLaw:
  disabledQueues: [1100]
  queueStatus: {1100: true}
  customStatus: false

gatekeeper:
  delivery: nextYield
  restrictions:
    # A timed ranked suspension of the signed-in player: two hours.
    - {queueId: 440, summonerId: 1001, reason: RANKED_RESTRICTED, remainingMillis: 7200000,
       summonerName: Demo Player, payload: "{\"reason\":\"timed\"}"}
    # Friends below the minimum level.
    - {queueId: 420, summonerId: 1003, reason: MIN_LEVEL_RESTRICTED, summonerName: Low Friend}
    - {queueId: 440, summonerId: 1003, reason: MIN_LEVEL_RESTRICTED, summonerName: Low Friend}
    - {queueId: 420, summonerId: 1004, reason: MIN_LEVEL_RESTRICTED, summonerName: New Friend}
    # Tiers too far apart for a party of 1001 and 1002.
    - {queueId: 420, summonerId: 1001, reason: TIER_DELTA_RESTRICTED, summonerName: Demo Player,
       withMembers: [1002]}
    - {queueId: 420, summonerId: 1002, reason: TIER_DELTA_RESTRICTED, summonerName: Iron Friend,
       withMembers: [1001]}
    # A banned friend, for a day.
    - {queueId: 450, summonerId: 1004, reason: PLAYER_BANNED, remainingMillis: 86400000,
       summonerName: New Friend}
    # Left out by the plugin's request, and dropped by the plugin.
    - {queueId: 430, summonerId: 1002, reason: QUEUE_DODGER, remainingMillis: 360000,
       summonerName: Iron Friend}
    - {queueId: 430, summonerId: 1004, reason: ALREADY_IN_GAME, summonerName: New Friend}
)yaml";
}

}  // namespace kav::host
