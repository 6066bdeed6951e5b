// Reading scenarios: YAML and JSON give one model; refused files say where.
#include "host/scenario.h"

#include <algorithm>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kav::host {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr char kYaml[] = R"(
name: both
session: {state: SUCCEEDED, summonerId: 1001, accountId: 7}
platform: {practiceGameEnabled: false, QueueEligibilityGateKeeperEnabled: ~}
queueDefaults: {maximumParticipantListSize: 5, allowablePremadeSizes: [1, 2]}
queues:
  - {id: 420, type: RANKED_SOLO_5x5, isRanked: true, minLevel: 30}
  - id: -1
    queueAvailability: PlatformDisabled
    allowablePremadeSizes: []
currentSummoner: 1002
summoners: {1001: 30, 1002: 4294967295}
champions:
  1001:
    inventory:
      - {ownership: {rental: {rented: true}}, disabledQueues: [URF], repeat: 2}
    playableCounts: {championsOwned: 3}
leagues: {1001: [{queueType: RANKED_SOLO_5x5, leagueTier: GOLD}]}
shutdownLaw: {disabledQueues: [450], queueStatus: {450: true, -2: false}, customStatus: true}
gatekeeper:
  delivery: afterYields
  yields: 3
  error: down
  errorTimes: 1
  restrictions:
    - {queueId: 420, summonerId: 1001, reason: PLAYER_BANNED, remainingMillis: -5,
       payload: "{}", withMembers: [1002]}
  answers:
    - query: 2
      restrictions: [{queueId: 9999, summonerId: 7, reason: QUEUE_DODGER}]
    - {query: 4, error: gone}
faults:
  - {path: /kav-game-queues/v1/queues, method: GET, times: 2, error: busy, status: 503}
  - {path: /kav-login/v1/session, body: {state: [1]}}
  - {path: /kav-summoner/v1/current-summoner, streamChunks: 4}
steps:
  - {beforeCall: 2, setGateKeeperEnabled: false}
  - {beforeCall: 3, deleteSession: true}
  - {beforeCall: 3, setChampionCounts: {championsRented: 1}}
  - {beforeCall: 4, setQueues: [{id: 440}]}
)";

constexpr char kJson[] = R"({
  "name": "both",
  "session": {"state": "SUCCEEDED", "summonerId": 1001, "accountId": 7},
  "platform": {"practiceGameEnabled": false, "QueueEligibilityGateKeeperEnabled": null},
  "queueDefaults": {"maximumParticipantListSize": 5, "allowablePremadeSizes": [1, 2]},
  "queues": [
    {"id": 420, "type": "RANKED_SOLO_5x5", "isRanked": true, "minLevel": 30},
    {"id": -1, "queueAvailability": "PlatformDisabled", "allowablePremadeSizes": []}
  ],
  "currentSummoner": 1002,
  "summoners": {"1001": 30, "1002": 4294967295},
  "champions": {"1001": {
    "inventory": [{"ownership": {"rental": {"rented": true}}, "disabledQueues": ["URF"],
                   "repeat": 2}],
    "playableCounts": {"championsOwned": 3}}},
  "leagues": {"1001": [{"queueType": "RANKED_SOLO_5x5", "leagueTier": "GOLD"}]},
  "shutdownLaw": {"disabledQueues": [450], "queueStatus": {"450": true, "-2": false},
                  "customStatus": true},
  "gatekeeper": {"delivery": "afterYields", "yields": 3, "error": "down", "errorTimes": 1,
    "restrictions": [{"queueId": 420, "summonerId": 1001, "reason": "PLAYER_BANNED",
                      "remainingMillis": -5, "payload": "{}", "withMembers": [1002]}],
    "answers": [
      {"query": 2,
       "restrictions": [{"queueId": 9999, "summonerId": 7, "reason": "QUEUE_DODGER"}]},
      {"query": 4, "error": "gone"}]},
  "faults": [
    {"path": "/kav-game-queues/v1/queues", "method": "GET", "times": 2, "error": "busy",
     "status": 503},
    {"path": "/kav-login/v1/session", "body": {"state": [1]}},
    {"path": "/kav-summoner/v1/current-summoner", "streamChunks": 4}
  ],
  "steps": [
    {"beforeCall": 2, "setGateKeeperEnabled": false},
    {"beforeCall": 3, "deleteSession": true},
    {"beforeCall": 3, "setChampionCounts": {"championsRented": 1}},
    {"beforeCall": 4, "setQueues": [{"id": 440}]}
  ]
})";

TEST(ScenarioTest, YamlAndJsonReadTheSameModel) {
  const ScenarioResult yaml = ParseScenario(kYaml, ScenarioFormat::kYaml, "a.yaml");
  const ScenarioResult json = ParseScenario(kJson, ScenarioFormat::kJson, "a.json");
  ASSERT_TRUE(yaml.ok()) << yaml.error;
  ASSERT_TRUE(json.ok()) << json.error;
  EXPECT_TRUE(*yaml.scenario == *json.scenario);

  const Scenario& scenario = *yaml.scenario;
  EXPECT_EQ(scenario.practice_game_enabled, PlatformSwitch::Of(false));
  EXPECT_EQ(scenario.gate_keeper_enabled, (PlatformSwitch{true, std::nullopt}));
  ASSERT_EQ(scenario.queues->size(), 2u);
  // The defaults apply to each queue, and a queue's own fields override them.
  EXPECT_EQ((*scenario.queues)[0].maximum_participant_list_size, 5);
  EXPECT_THAT((*scenario.queues)[0].allowable_premade_sizes, ElementsAre(1, 2));
  EXPECT_TRUE((*scenario.queues)[1].allowable_premade_sizes.empty());
  EXPECT_EQ((*scenario.queues)[1].queue_availability, "PlatformDisabled");
  EXPECT_EQ(scenario.summoner_levels.at(1002), 4294967295u);
  EXPECT_EQ(scenario.champions.at(1001).inventory->size(), 2u);  // repeat: 2
  EXPECT_TRUE(scenario.champions.at(1001).inventory->at(1).rented);
  EXPECT_EQ(scenario.shutdown_law.queue_status.at(-2), false);
  EXPECT_EQ(scenario.gatekeeper.delivery, ProxyDelivery::kAfterYields);
  EXPECT_EQ(scenario.gatekeeper.yields, 3u);
  ASSERT_EQ(scenario.gatekeeper.answers.size(), 2u);
  EXPECT_EQ(scenario.gatekeeper.answers[0].query, 2u);
  ASSERT_EQ(scenario.gatekeeper.answers[0].restrictions.size(), 1u);
  EXPECT_EQ(scenario.gatekeeper.answers[0].restrictions[0].reason, "QUEUE_DODGER");
  EXPECT_FALSE(scenario.gatekeeper.answers[0].error.has_value());
  EXPECT_EQ(scenario.gatekeeper.answers[1].error, "gone");
  EXPECT_EQ(scenario.faults[0].method, uint32_t{KAV_METHOD_GET});
  EXPECT_EQ(scenario.faults[1].body->ToJson(), R"({"state":[1]})");
  ASSERT_EQ(scenario.steps.size(), 4u);
  EXPECT_EQ(scenario.steps[0].action,
            ScenarioAction(SetGateKeeperEnabled{PlatformSwitch::Of(false)}));
  EXPECT_EQ(scenario.steps[1].before_call, 3u);
  EXPECT_TRUE(std::holds_alternative<DeleteSession>(scenario.steps[1].action));
  // Queues of a step start from the defaults as well.
  EXPECT_EQ(std::get<SetQueues>(scenario.steps[3].action).queues[0].maximum_participant_list_size,
            5);
}

TEST(ScenarioTest, RefusedScenariosSayWhere) {
  const struct {
    const char* name;
    ScenarioFormat format;
    const char* text;
    const char* error;
  } rows[] = {
      {"YAML syntax", ScenarioFormat::kYaml, "queues:\n  - {id: 1\n", "s:3:1: YAML: did not find"},
      {"JSON syntax", ScenarioFormat::kJson, "{\n  \"queues\": [1,]\n}",
       "s:2:16: JSON: Invalid value."},
      {"JSON trailing", ScenarioFormat::kJson, "{} {}",
       "s:1:4: JSON: The document root must not be followed by other values."},
      {"two YAML documents", ScenarioFormat::kYaml, "name: a\n---\nname: b\n",
       "s:2:1: YAML: a scenario file holds one YAML document"},
      {"unknown top key", ScenarioFormat::kYaml, "name: x\nqueue: []\n",
       "s:2:1: unknown key 'queue' (known keys: name, session,"},
      {"misspelt field", ScenarioFormat::kYaml, "queues:\n  - {id: 1, minLvl: 3}\n",
       "s:2:13: queues[0]: unknown key 'minLvl'"},
      {"wrong type", ScenarioFormat::kJson, "{\"queues\": [{\"id\": \"420\"}]}",
       "s:1:20: queues[0].id: expected an integer from -2147483648 to 2147483647, found a "
       "string '420'"},
      {"out of range", ScenarioFormat::kYaml, "summoners: {1: -1}\n",
       "s:1:16: summoners.1: expected an integer from 0 to 4294967295, found an integer '-1'"},
      {"bad enumerator", ScenarioFormat::kYaml, "session: {state: LOGGED_IN}\n",
       "s:1:18: session.state: expected one of IN_PROGRESS, SUCCEEDED, LOGGING_OUT, ERROR"},
      {"duplicate key", ScenarioFormat::kJson, "{\"name\": \"a\",\n \"name\": \"b\"}",
       "s:2:2: JSON: duplicate key 'name'"},
      {"id key", ScenarioFormat::kYaml, "leagues:\n  me: []\n",
       "s:2:3: leagues: key 'me' is not an id"},
      {"fault without answer", ScenarioFormat::kYaml, "faults:\n  - {path: /x, times: 1}\n",
       "s:2:5: faults[0]: a fault needs exactly one of error, body, streamChunks"},
      {"step without change", ScenarioFormat::kYaml, "steps:\n  - beforeCall: 1\n",
       "s:2:5: steps[0]: a step needs exactly one change"},
      {"call zero", ScenarioFormat::kYaml, "steps: [{beforeCall: 0, deleteSession: true}]",
       "s:1:22: steps[0].beforeCall: calls are counted from 1"},
      {"yields without afterYields", ScenarioFormat::kYaml, "gatekeeper: {yields: 2}",
       "s:1:22: gatekeeper.yields: applies only to delivery: afterYields"},
      {"answer without a query", ScenarioFormat::kYaml, "gatekeeper:\n  answers: [{error: x}]\n",
       "s:2:13: gatekeeper.answers[0]: an answer needs a query"},
      {"answer to query zero", ScenarioFormat::kYaml,
       "gatekeeper: {answers: [{query: 0, error: x}]}",
       "s:1:32: gatekeeper.answers[0].query: expected at least 1"},
      {"answer with restrictions and an error", ScenarioFormat::kYaml,
       "gatekeeper: {answers: [{query: 1, error: x, restrictions: []}]}",
       "s:1:24: gatekeeper.answers[0]: an answer needs exactly one of restrictions, error"},
      {"answer with neither", ScenarioFormat::kYaml, "gatekeeper: {answers: [{query: 1}]}",
       "s:1:24: gatekeeper.answers[0]: an answer needs exactly one of restrictions, error"},
      {"withMembers in an answer", ScenarioFormat::kYaml,
       "gatekeeper: {answers: [{query: 1, restrictions: [{queueId: 1, withMembers: [2]}]}]}",
       "s:1:50: gatekeeper.answers[0].restrictions[0]: withMembers applies only to "
       "gatekeeper.restrictions"},
      {"query answered twice", ScenarioFormat::kYaml,
       "gatekeeper:\n  answers:\n    - {query: 3, error: a}\n    - {query: 3, error: b}\n",
       "s:4:7: gatekeeper.answers[1]: query 3 is answered twice"},
      {"repeat zero", ScenarioFormat::kYaml, "champions: {1: {inventory: [{repeat: 0}]}}",
       "s:1:29: champions.1.inventory[0].repeat: expected 1 to 10000"},
      {"top is a list", ScenarioFormat::kYaml, "- 1\n", "s:1:1: expected a mapping, found a list"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const ScenarioResult result = ParseScenario(row.text, row.format, "s");
    EXPECT_FALSE(result.ok());
    EXPECT_THAT(result.error, HasSubstr(row.error));
  }
}

TEST(ScenarioTest, FormatIsDetectedByNameThenContent) {
  const struct {
    const char* file_name;
    const char* text;
    ScenarioFormat format;
  } rows[] = {
      {"a.YAML", "{}", ScenarioFormat::kYaml},
      {"a.yml", "{}", ScenarioFormat::kYaml},
      {"a.json", "name: x", ScenarioFormat::kJson},
      {"scenario", "  \n {\"name\": 1}", ScenarioFormat::kJson},
      {"scenario", "name: x", ScenarioFormat::kYaml},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.file_name) + " / " + row.text);
    EXPECT_EQ(DetectScenarioFormat(row.file_name, row.text), row.format);
  }
  EXPECT_THAT(LoadScenarioFile("/nonexistent/scenario.yaml").error,
              HasSubstr("cannot read /nonexistent/scenario.yaml"));
}

TEST(ScenarioTest, DemoScenarioHasTheAdvertisedData) {
  const ScenarioResult demo = ParseScenario(DemoScenarioText(), ScenarioFormat::kYaml, "demo");
  ASSERT_TRUE(demo.ok()) << demo.error;
  const Scenario& scenario = *demo.scenario;
  EXPECT_EQ(scenario.session, (LoginSession{"SUCCEEDED", 1001, 5001}));
  EXPECT_EQ(scenario.practice_game_enabled, PlatformSwitch::Of(true));
  ASSERT_TRUE(scenario.queues.has_value());
  EXPECT_GE(scenario.queues->size(), 24u);
  auto queue = [&](int32_t id) -> const Queue* {
    auto found = std::find_if(scenario.queues->begin(), scenario.queues->end(),
                              [id](const Queue& each) { return each.id == id; });
    return found != scenario.queues->end() ? &*found : nullptr;
  };
  for (int32_t id : {420, 430, 440, 450, 830, 1700}) {
    SCOPED_TRACE(id);
    ASSERT_NE(queue(id), nullptr);
    EXPECT_EQ(queue(id)->queue_availability, "Available");
  }
  EXPECT_THAT(queue(440)->allowable_premade_sizes, ElementsAre(1, 2, 5));
  EXPECT_TRUE(std::any_of(scenario.queues->begin(), scenario.queues->end(),
                          [](const Queue& q) { return q.queue_availability != "Available"; }));
  auto has_reason = [&](const char* reason, bool timed) {
    return std::any_of(scenario.gatekeeper.restrictions.begin(),
                       scenario.gatekeeper.restrictions.end(), [&](const GatekeeperRestriction& r) {
                         return r.reason == reason && (r.remaining_millis > 0) == timed;
                       });
  };
  EXPECT_TRUE(has_reason("RANKED_RESTRICTED", true));
  EXPECT_TRUE(has_reason("MIN_LEVEL_RESTRICTED", false));
  EXPECT_TRUE(has_reason("TIER_DELTA_RESTRICTED", false));
  EXPECT_EQ(DemoScenario(), scenario);
}

}  // namespace
}  // namespace kav::host
