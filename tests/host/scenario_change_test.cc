// Changes of a running scenario, read the way scenario steps are read and
// applied by the peers: any resource set or removed, the gatekeeper
// replaced, faults added and cleared.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/peers.h"
#include "host/scenario.h"
#include "host/scenario_writing.h"

namespace kav::host {
namespace {

using ::testing::HasSubstr;

TEST(ScenarioChangeTest, ChangesReadLikeStepsWithoutBeforeCall) {
  const struct {
    const char* name;
    const char* change;  // "": the text is the whole change
    const char* text;
    const char* error;  // "": read; else a part of the error
    const char* kind;   // the change read
  } rows[] = {
      {"a switch", "", R"({"setGateKeeperEnabled": false})", "", "setGateKeeperEnabled"},
      {"a resource", "", R"({"setResource": {"path": "/a/b", "value": [1, {"x": null}]}})", "",
       "setResource"},
      {"a resource removed", "", R"({"deleteResource": "/a/b"})", "", "deleteResource"},
      {"a gatekeeper", "setGatekeeper", R"({"restrictions": [], "delivery": "duringPost"})", "",
       "setGatekeeper"},
      {"a fault", "addFault", R"({"path": "/x", "error": "down", "status": 503, "times": 2})", "",
       "addFault"},
      {"faults cleared", "", R"({"clearFaults": true})", "", "clearFaults"},
      {"two changes", "", R"({"setSummonerLevel": 3, "setGateKeeperEnabled": true})",
       "expected exactly one change", ""},
      {"no change", "", "{}", "expected exactly one change", ""},
      {"beforeCall", "", R"({"beforeCall": 1, "setSummonerLevel": 3})", "has no beforeCall", ""},
      {"a path without /", "", R"({"deleteResource": "a/b"})", "starting with '/'", ""},
      {"a path with a query", "", R"({"deleteResource": "/a?b=1"})", "without query", ""},
      {"a resource without a value", "", R"({"setResource": {"path": "/a"}})", "needs a value", ""},
      {"a fault with two answers", "addFault", R"({"path": "/x", "error": "e", "streamChunks": 2})",
       "exactly one of error, body, streamChunks", ""},
      {"a gatekeeper's unknown key", "setGatekeeper", R"({"restrictionz": []})",
       "setGatekeeper: unknown key 'restrictionz'", ""},
      {"not JSON", "setGatekeeper", "{", "body:1:2: JSON: ", ""},
      {"not a mapping", "", "[]", "expected a mapping, found a list", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const ScenarioActionResult result =
        *row.change == '\0'
            ? ParseScenarioAction(row.text, ScenarioFormat::kJson, "body")
            : ParseScenarioAction(row.change, row.text, ScenarioFormat::kJson, "body");
    if (*row.error != '\0') {
      EXPECT_FALSE(result.ok());
      EXPECT_THAT(result.error, HasSubstr(row.error));
      continue;
    }
    ASSERT_TRUE(result.ok()) << result.error;
    const char* kinds[] = {"setQueues",
                           "deleteSession",
                           "setSession",
                           "setPracticeGameEnabled",
                           "setGateKeeperEnabled",
                           "setSummonerLevel",
                           "setChampionCounts",
                           "setResource",
                           "deleteResource",
                           "setGatekeeper",
                           "addFault",
                           "clearFaults"};
    EXPECT_STREQ(kinds[result.action->index()], row.kind);
  }
}

TEST(ScenarioChangeTest, PeersAnswerWhatWasSetUntilTheModelSpeaksAgain) {
  Scenario scenario = DemoScenario();
  Peers peers(scenario);
  const std::string queues = "/kav-game-queues/v1/queues";
  const std::string custom = "/kav-custom/v1/thing";
  const std::string level = "/kav-summoner/v1/summoners/1001";
  Queue queue_9;
  queue_9.id = 9;
  Fault fault;
  fault.path = "/x";
  fault.error = "down";
  Gatekeeper gatekeeper;
  gatekeeper.delivery = ProxyDelivery::kDuringPost;
  const struct {
    const char* name;
    ScenarioAction action;
    std::string path;
    const char* answer;  // JSON; "": 404
  } rows[] = {
      {"a path of its own", SetPeerResource{custom, Value::Signed(7)}, custom, "7"},
      {"a modelled path", SetPeerResource{queues, Value::MakeArray({})}, queues, "[]"},
      {"removed", DeletePeerResource{queues}, queues, ""},
      {"the model again", SetQueues{{queue_9}}, queues, "[{\"id\":9,"},
      {"a summoner removed", DeletePeerResource{level}, level, ""},
      {"the model's level", SetSummonerLevel{55}, level,
       "{\"summonerId\":1001,\"summonerLevel\":55}"},
      {"the first path kept", ClearFaults{}, custom, "7"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    peers.Apply(row.action);
    std::optional<Value> value = peers.ResourceValue(row.path);
    if (*row.answer == '\0') {
      EXPECT_FALSE(value.has_value());
      EXPECT_THAT(peers.ResourcePaths(), ::testing::Not(::testing::Contains(row.path)));
    } else {
      ASSERT_TRUE(value.has_value());
      EXPECT_THAT(value->ToJson(), HasSubstr(row.answer));
      EXPECT_THAT(peers.ResourcePaths(), ::testing::Contains(row.path));
    }
  }
  peers.Apply(AddFault{fault});
  peers.Apply(SetGatekeeper{gatekeeper});
  EXPECT_EQ(peers.state().faults.size(), 1u);
  EXPECT_EQ(GatekeeperToValue(peers.state().gatekeeper).ToJson(),
            R"({"restrictions":[],"delivery":"duringPost"})");
  EXPECT_EQ(FaultToValue(peers.state().faults[0]).ToJson(),
            R"({"path":"/x","error":"down","status":500})");
}

// What the host shows of the gatekeeper reads back as the same gatekeeper.
TEST(ScenarioChangeTest, GatekeeperWrittenReadsBackEqual) {
  const char* rows[] = {
      R"({"restrictions": [], "delivery": "duringPost"})",
      R"({"restrictions": [{"queueId": 420, "summonerId": 7, "reason": "PLAYER_BANNED",
          "remainingMillis": 60000, "withMembers": [8]}], "delivery": "afterYields", "yields": 3,
          "error": "down", "errorTimes": 2})",
      R"({"answers": [{"query": 2, "restrictions": [{"queueId": -5, "summonerId": 9,
          "reason": "QUEUE_DODGER"}]}, {"query": 3, "error": "gone"}]})",
  };
  for (const char* text : rows) {
    SCOPED_TRACE(text);
    const ScenarioActionResult first =
        ParseScenarioAction("setGatekeeper", text, ScenarioFormat::kJson, "body");
    ASSERT_TRUE(first.ok()) << first.error;
    const Gatekeeper& gatekeeper = std::get<SetGatekeeper>(*first.action).gatekeeper;
    const std::string written = GatekeeperToValue(gatekeeper).ToJson();
    const ScenarioActionResult again =
        ParseScenarioAction("setGatekeeper", written, ScenarioFormat::kJson, "written");
    ASSERT_TRUE(again.ok()) << again.error << " in " << written;
    EXPECT_EQ(std::get<SetGatekeeper>(*again.action).gatekeeper, gatekeeper) << written;
  }
}

}  // namespace
}  // namespace kav::host
