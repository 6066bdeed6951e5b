// Scenario: the state of the plugin's peers (the login, platform
// configuration, game queue, summoner, champion, league and shutdown-law
// plugins, the login plugin's service proxy and the gatekeeper service behind
// it), the faults that some of their resources show, and the changes made to
// that state while the host runs. A scenario is read from a YAML or JSON file
// (see ParseScenario for the format); the host's built-in demo scenario is
// DemoScenario().
//
// Records carry the wire names of the values that the plugin reads; their
// fields default to zero, false or empty. Every type here is a plain value.
//
// Thread-compatible: values only; the parsers keep no state.
#ifndef KAV_HOST_SCENARIO_H_
#define KAV_HOST_SCENARIO_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "host/host_value.h"

namespace kav::host {

// "/kav-login/v1/session".
struct LoginSession {
  std::string state = "SUCCEEDED";  // IN_PROGRESS, SUCCEEDED, LOGGING_OUT or ERROR
  uint64_t summoner_id = 0;
  uint64_t account_id = 0;

  bool operator==(const LoginSession&) const = default;
};

// A platform-configuration switch. Absent: its resource is missing (404);
// present without a value: it answers null; otherwise it answers the bool.
struct PlatformSwitch {
  bool present = false;
  std::optional<bool> value;

  static PlatformSwitch Of(bool value) { return {true, value}; }
  bool operator==(const PlatformSwitch&) const = default;
};

// One game queue of "/kav-game-queues/v1/queues".
struct Queue {
  int32_t id = 0;
  std::string type;
  int32_t num_players_per_team = 0;
  int32_t maximum_participant_list_size = 0;
  uint32_t min_level = 0;
  uint32_t max_level = 0;
  std::string queue_availability = "Available";  // or PlatformDisabled, DoesntMeetRequirements
  bool are_free_champions_allowed = false;
  bool is_ranked = false;
  uint32_t champions_required_to_play = 0;
  std::vector<int32_t> allowable_premade_sizes;
  bool show_position_selector = false;

  bool operator==(const Queue&) const = default;
};

// One champion of "/kav-champions/v1/inventories/{id}/champions-minimal".
struct CollectionsChampion {
  std::vector<std::string> disabled_queues;
  bool free_to_play = false;
  bool free_to_play_reward = false;  // ownership.freeToPlayReward
  bool owned = false;                // ownership.owned
  bool rented = false;               // ownership.rental.rented
  uint64_t purchased = 0;
  bool ranked_play_enabled = false;

  bool operator==(const CollectionsChampion&) const = default;
};

// "/kav-champions/v1/inventories/{id}/champions-playable-count".
struct ChampionPlayableCounts {
  uint32_t champions_owned = 0;
  uint32_t champions_rented = 0;
  uint32_t champions_free_to_play = 0;
  uint32_t champions_free_to_play_reward = 0;

  bool operator==(const ChampionPlayableCounts&) const = default;
};

// A summoner's champions; each part is missing (404) when not given.
struct ChampionData {
  std::optional<std::vector<CollectionsChampion>> inventory;
  std::optional<ChampionPlayableCounts> playable_counts;

  bool operator==(const ChampionData&) const = default;
};

// One entry of "/kav-leagues/v1/summoner-leagues/{id}".
struct League {
  std::string queue_type;
  std::string league_tier;

  bool operator==(const League&) const = default;
};

// The shutdown-law plugin. It always answers: queues not listed are not
// disabled.
struct ShutdownLaw {
  std::vector<int32_t> disabled_queues;  // "/kav-kr-shutdown-law/v1/disabled-queues"
  std::map<int32_t, bool> queue_status;  // ".../queue-status/{id}" isDisabled
  bool custom_disabled = false;          // ".../custom-status" isDisabled

  bool operator==(const ShutdownLaw&) const = default;
};

// One GatekeeperRestrictionDtoV3 that the gatekeeper reports.
struct GatekeeperRestriction {
  int32_t queue_id = 0;
  uint64_t summoner_id = 0;
  std::string reason;
  int64_t remaining_millis = 0;
  std::string summoner_name;
  std::string payload;
  // Not part of the record: the restriction is reported only when the
  // queried party also holds all of these summoners (e.g. a tier difference).
  std::vector<uint64_t> with_members;

  bool operator==(const GatekeeperRestriction&) const = default;
};

// When the service proxy delivers an answer event.
enum class ProxyDelivery : uint8_t {
  kDuringPost,   // inside the POST, before it returns
  kAfterYields,  // at the plugin's Nth yield after the POST (1: the next one)
};

// A scripted answer of the gatekeeper to one query, reported exactly as
// given: restrictions of any queue or summoner, excluded reasons included.
struct GatekeeperAnswer {
  uint32_t query = 1;  // the query it answers, counting every query from 1
  std::vector<GatekeeperRestriction> restrictions;  // their withMembers are empty
  std::optional<std::string> error;                 // set: the query fails with this text

  bool operator==(const GatekeeperAnswer&) const = default;
};

struct Gatekeeper {
  // Reported as the service would: those of the queried queues and party
  // members, without the excluded reasons.
  std::vector<GatekeeperRestriction> restrictions;
  // Take precedence over everything else for the queries they name.
  std::vector<GatekeeperAnswer> answers;
  ProxyDelivery delivery = ProxyDelivery::kAfterYields;
  uint32_t yields = 1;                  // for kAfterYields; at least 1
  std::string error;                    // non-empty: answers carry this error text
  std::optional<uint32_t> error_times;  // how many answers fail; none: all

  bool operator==(const Gatekeeper&) const = default;
};

// A scripted answer for one path, used before the peers' own answer.
struct Fault {
  std::string path;               // the URL up to "?"
  uint32_t method = 0;            // 0: any method
  std::optional<uint32_t> times;  // how many requests it answers; none: all
  // Exactly one of these, in this order of precedence:
  std::optional<std::string> error;  // answer an error with `status`
  uint32_t status = 500;
  std::optional<Value> body;   // answer this body instead
  uint32_t stream_chunks = 0;  // stream the regular answer in that many chunks

  bool operator==(const Fault&) const = default;
};

// Changes to the peers' state; each publishes the matching resource event.
struct SetQueues {
  std::vector<Queue> queues;
  bool operator==(const SetQueues&) const = default;
};
struct DeleteSession {
  bool operator==(const DeleteSession&) const = default;
};
struct SetSession {
  LoginSession session;
  bool operator==(const SetSession&) const = default;
};
struct SetPracticeGameEnabled {
  PlatformSwitch value;
  bool operator==(const SetPracticeGameEnabled&) const = default;
};
struct SetGateKeeperEnabled {
  PlatformSwitch value;
  bool operator==(const SetGateKeeperEnabled&) const = default;
};
// The level of the current summoner.
struct SetSummonerLevel {
  uint32_t level = 0;
  bool operator==(const SetSummonerLevel&) const = default;
};
// The playable counts of the current summoner.
struct SetChampionCounts {
  ChampionPlayableCounts counts;
  bool operator==(const SetChampionCounts&) const = default;
};
// Any peer resource set to a value of the caller's choosing: the peers
// answer `value` for `path` from then on, instead of what the rest of the
// state says, until a change of the modelled state publishes that path.
struct SetPeerResource {
  std::string path;  // the URL up to "?", starting with "/"
  Value value;
  bool operator==(const SetPeerResource&) const = default;
};
// Any peer resource removed: requests for `path` get 404 from then on.
struct DeletePeerResource {
  std::string path;
  bool operator==(const DeletePeerResource&) const = default;
};
// The gatekeeper replaced as a whole (restrictions, timing, errors); its
// count of failed answers starts again. Publishes nothing: the gatekeeper is
// a service, asked on demand.
struct SetGatekeeper {
  Gatekeeper gatekeeper;
  bool operator==(const SetGatekeeper&) const = default;
};
// A fault added after those already in force. Publishes nothing.
struct AddFault {
  Fault fault;
  bool operator==(const AddFault&) const = default;
};
struct ClearFaults {
  bool operator==(const ClearFaults&) const = default;
};
using ScenarioAction =
    std::variant<SetQueues, DeleteSession, SetSession, SetPracticeGameEnabled, SetGateKeeperEnabled,
                 SetSummonerLevel, SetChampionCounts, SetPeerResource, DeletePeerResource,
                 SetGatekeeper, AddFault, ClearFaults>;

struct ScenarioStep {
  uint32_t before_call = 1;  // applied before the main job's call of this number (from 1)
  ScenarioAction action;

  bool operator==(const ScenarioStep&) const = default;
};

struct Scenario {
  std::string name;
  std::optional<LoginSession> session;
  PlatformSwitch practice_game_enabled;
  PlatformSwitch gate_keeper_enabled;
  std::optional<std::vector<Queue>> queues;
  // The current summoner; none: the session's summoner.
  std::optional<uint64_t> current_summoner;
  std::map<uint64_t, uint32_t> summoner_levels;
  std::map<uint64_t, ChampionData> champions;
  std::map<uint64_t, std::vector<League>> leagues;
  ShutdownLaw shutdown_law;
  Gatekeeper gatekeeper;
  std::vector<Fault> faults;
  std::vector<ScenarioStep> steps;

  bool operator==(const Scenario&) const = default;
};

enum class ScenarioFormat : uint8_t { kYaml, kJson };

// The format of a scenario file: by the extension of `file_name` (".yaml",
// ".yml", ".json"), otherwise JSON when the first non-blank byte of `text`
// is "{", else YAML.
ScenarioFormat DetectScenarioFormat(std::string_view file_name, std::string_view text);

// A scenario, or why not: "<source>:<line>:<column>: <message>".
struct ScenarioResult {
  std::optional<Scenario> scenario;
  std::string error;

  bool ok() const { return scenario.has_value(); }
};

// Reads a scenario. `source` names the text in messages (a file name).
//
// Format (YAML shown; JSON has the same structure; every section optional):
//   name: text
//   session: {state: SUCCEEDED, summonerId: 1001, accountId: 5001}
//   platform: {practiceGameEnabled: true, QueueEligibilityGateKeeperEnabled: true}
//   queueDefaults: {<Queue fields>}        # starting values of every queue
//   queues: [{id: 420, type: ..., <Queue fields by wire name>}, ...]
//   currentSummoner: 1001
//   summoners: {1001: 30, 1002: 12}        # id: level
//   champions: {1001: {inventory: [<CollectionsChampion> + optional repeat: N],
//                      playableCounts: {<ChampionPlayableCountsForEligibility>}}}
//   leagues: {1001: [{queueType: ..., leagueTier: ...}]}
//   shutdownLaw: {disabledQueues: [...], queueStatus: {450: true}, customStatus: false}
//   gatekeeper: {restrictions: [<GatekeeperRestrictionDtoV3> + optional withMembers: [ids]],
//                answers: [{query: N, then restrictions: [<GatekeeperRestrictionDtoV3>]
//                           or error: text}],   # the Nth query (from 1) answers exactly this
//                delivery: duringPost |
//                nextYield | afterYields, yields: N, error: text, errorTimes: N}
//   faults: [{path: ..., method: GET, times: N, then one of error: text (+ status: N),
//             body: <any value>, streamChunks: N}]
//   steps: [{beforeCall: N, then one of setQueues: [...], deleteSession: true,
//            setSession: {...}, setPracticeGameEnabled: bool|null,
//            setGateKeeperEnabled: bool|null, setSummonerLevel: N,
//            setChampionCounts: {...}, setResource: {path: /..., value: <any>},
//            deleteResource: /..., setGatekeeper: {<gatekeeper section>},
//            addFault: {<fault>}, clearFaults: true}]
// Unknown keys are refused, so that a misspelt key does not go unnoticed.
ScenarioResult ParseScenario(std::string_view text, ScenarioFormat format,
                             std::string_view source = "scenario");
// Reads the file at `path`; the format as DetectScenarioFormat says.
ScenarioResult LoadScenarioFile(const std::string& path);

// One change, or why not ("<source>:<line>:<column>: <message>").
struct ScenarioActionResult {
  std::optional<ScenarioAction> action;
  std::string error;

  bool ok() const { return action.has_value(); }
};

// Reads one change written as a step of the format above without
// "beforeCall", e.g. {setGateKeeperEnabled: false}.
ScenarioActionResult ParseScenarioAction(std::string_view text, ScenarioFormat format,
                                         std::string_view source = "change");
// Reads the value of the change named `change` (a key of a step, e.g.
// "setGatekeeper") from `value_text`, as if it were written under that key.
ScenarioActionResult ParseScenarioAction(std::string_view change, std::string_view value_text,
                                         ScenarioFormat format, std::string_view source = "change");

// The built-in demo scenario, as YAML text and read.
std::string_view DemoScenarioText();
Scenario DemoScenario();

}  // namespace kav::host

#endif  // KAV_HOST_SCENARIO_H_
