// The peers of a scenario, called through the host's function table as the
// plugin calls them (no plugin is loaded).
#include "host/peers.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/json_value.h"
#include "host/scenario_host.h"

namespace kav::host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

Scenario Parse(const char* yaml) {
  ScenarioResult result = ParseScenario(yaml, ScenarioFormat::kYaml, "test");
  EXPECT_TRUE(result.ok()) << result.error;
  return result.ok() ? *result.scenario : Scenario{};
}

struct Answered {
  uint32_t status = 0;
  std::string error;  // "" when none
  std::string json;   // the body, or the streamed text, as JSON
  size_t chunks = 0;  // reads of a streamed body; 0 when not streamed
};

// Makes one request as the plugin does, reads the answer and releases it.
Answered Request(ReferenceHost& host, uint32_t method, const std::string& url,
                 const std::vector<Value>& arguments = {}) {
  RecordArena arena;
  std::vector<KavArgumentEntry> entries;
  for (const Value& argument : arguments) entries.push_back({nullptr, arena.Build(argument)});
  KavRequest request{};
  request.method = method;
  request.url = url.c_str();
  request.arguments = entries.empty() ? nullptr : entries.data();
  request.argument_count = static_cast<uint32_t>(entries.size());
  request.context = 1;
  const KavHostFunctionTable* table = host.function_table();
  KavResponse response{};
  table->request(table, &response, &request);
  Answered answered;
  answered.status = response.status;
  if (const char* error = response.error; error != nullptr) answered.error = error;
  if (response.stream_read != nullptr) {
    std::string text;
    uint8_t more = 1;
    while (more != 0) {
      uint8_t buffer[4096];
      uint32_t size = sizeof(buffer);
      if (!response.stream_read(response.stream_handle, buffer, &size, &more)) break;
      text.append(reinterpret_cast<const char*>(buffer), size);
      ++answered.chunks;
    }
    answered.json = text;
  } else if (answered.error.empty()) {
    answered.json = Value::FromRecord(response.body).ToJson();
  }
  response.release(&response);
  return answered;
}

constexpr char kPeers[] = R"(
session: {state: SUCCEEDED, summonerId: 1001, accountId: 5}
platform: {practiceGameEnabled: true, QueueEligibilityGateKeeperEnabled: null}
queues: [{id: 420, type: RANKED_SOLO_5x5, allowablePremadeSizes: [1, 2]}]
summoners: {1001: 30, 1002: 7}
champions:
  1001:
    inventory: [{purchased: 5, ownership: {owned: true}, disabledQueues: [URF]}]
    playableCounts: {championsOwned: 1}
  1002: {inventory: []}
leagues: {1001: [{queueType: RANKED_SOLO_5x5, leagueTier: GOLD}]}
shutdownLaw: {disabledQueues: [450, 1100], queueStatus: {450: true}}
faults:
  - {path: /kav-leagues/v1/summoner-leagues/1001, error: busy, status: 503, times: 1}
  - {path: /kav-summoner/v1/summoners/1002, method: POST, body: {odd: true}}
  - {path: /kav-summoner/v1/summoners/1002, streamChunks: 3}
)";

TEST(PeersTest, ResourcesAnswerFromTheScenarioState) {
  ScenarioHost host(Parse(kPeers));
  const struct {
    const char* name;
    uint32_t method;
    const char* url;
    Answered expected;
  } rows[] = {
      {"session",
       KAV_METHOD_GET,
       "/kav-login/v1/session",
       {200, "", R"({"state":"SUCCEEDED","summonerId":1001,"accountId":5})"}},
      {"switch",
       KAV_METHOD_GET,
       "/kav-platform-config/v1/namespaces/ClientSystemStates/practiceGameEnabled",
       {200, "", "true"}},
      {"switch without value",
       KAV_METHOD_GET,
       "/kav-platform-config/v1/namespaces/HvxLobby/QueueEligibilityGateKeeperEnabled",
       {200, "", "null"}},
      {"queues",
       KAV_METHOD_GET,
       "/kav-game-queues/v1/queues?x=1",
       {200, "",
        R"([{"id":420,"type":"RANKED_SOLO_5x5","numPlayersPerTeam":0,)"
        R"("maximumParticipantListSize":0,"minLevel":0,"maxLevel":0,)"
        R"("queueAvailability":"Available","areFreeChampionsAllowed":false,"isRanked":false,)"
        R"("championsRequiredToPlay":0,"allowablePremadeSizes":[1,2],)"
        R"("showPositionSelector":false}])"}},
      {"current summoner",
       KAV_METHOD_GET,
       "/kav-summoner/v1/current-summoner",
       {200, "", R"({"summonerId":1001,"summonerLevel":30})"}},
      {"summoner streamed by a fault",
       KAV_METHOD_GET,
       "/kav-summoner/v1/summoners/1002",
       {200, "", R"({"summonerId":1002,"summonerLevel":7})", 3}},
      {"fault for one method",
       KAV_METHOD_POST,
       "/kav-summoner/v1/summoners/1002",
       {200, "", R"({"odd":true})"}},
      {"unknown summoner",
       KAV_METHOD_GET,
       "/kav-summoner/v1/summoners/9",
       {404, "Not found: /kav-summoner/v1/summoners/9", ""}},
      {"not an id",
       KAV_METHOD_GET,
       "/kav-summoner/v1/summoners/x",
       {404, "Not found: /kav-summoner/v1/summoners/x", ""}},
      {"champions",
       KAV_METHOD_GET,
       "/kav-champions/v1/inventories/1001/champions-minimal",
       {200, "",
        R"([{"disabledQueues":["URF"],"freeToPlay":false,"ownership":{"freeToPlayReward":false,)"
        R"("owned":true,"rental":{"rented":false}},"purchased":5,"rankedPlayEnabled":false}])"}},
      {"counts",
       KAV_METHOD_GET,
       "/kav-champions/v1/inventories/1001/champions-playable-count",
       {200, "",
        R"({"championsOwned":1,"championsRented":0,"championsFreeToPlay":0,)"
        R"("championsFreeToPlayReward":0})"}},
      {"no counts",
       KAV_METHOD_GET,
       "/kav-champions/v1/inventories/1002/champions-playable-count",
       {404, "Not found: /kav-champions/v1/inventories/1002/champions-playable-count", ""}},
      {"leagues fail once",
       KAV_METHOD_GET,
       "/kav-leagues/v1/summoner-leagues/1001",
       {503, "busy", ""}},
      {"then answer",
       KAV_METHOD_GET,
       "/kav-leagues/v1/summoner-leagues/1001",
       {200, "", R"([{"queueType":"RANKED_SOLO_5x5","leagueTier":"GOLD"}])"}},
      {"disabled queues",
       KAV_METHOD_GET,
       "/kav-kr-shutdown-law/v1/disabled-queues",
       {200, "", "[450,1100]"}},
      {"queue status",
       KAV_METHOD_GET,
       "/kav-kr-shutdown-law/v1/queue-status/450",
       {200, "", R"({"isDisabled":true})"}},
      {"unlisted queue status",
       KAV_METHOD_GET,
       "/kav-kr-shutdown-law/v1/queue-status/-7",
       {200, "", R"({"isDisabled":false})"}},
      {"custom status",
       KAV_METHOD_GET,
       "/kav-kr-shutdown-law/v1/custom-status",
       {200, "", R"({"isDisabled":false})"}},
      {"other method",
       KAV_METHOD_PUT,
       "/kav-login/v1/session",
       {405, "Method not allowed: PUT /kav-login/v1/session", ""}},
      {"no such peer",
       KAV_METHOD_GET,
       "/kav-store/v1/wallet",
       {404, "Not found: /kav-store/v1/wallet", ""}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const Answered answered = Request(host.host(), row.method, row.url);
    EXPECT_EQ(answered.status, row.expected.status);
    EXPECT_EQ(answered.error, row.expected.error);
    EXPECT_EQ(answered.json, row.expected.json);
    EXPECT_EQ(answered.chunks, row.expected.chunks);
  }
  // A programmed answer of the host still wins over the peers.
  host.host().SetResource("/kav-login/v1/session", 0, HostAnswer::Error(500, "programmed"));
  EXPECT_EQ(Request(host.host(), KAV_METHOD_GET, "/kav-login/v1/session").error, "programmed");
}

struct ReceivedEvent {
  std::string name;
  Value payload;
  size_t at_yield;
  size_t requests_answered;  // requests the host had answered when it arrived
};

struct Collector {
  ReferenceHost* host = nullptr;
  size_t answered = 0;
  std::vector<ReceivedEvent> events;
};

void KAV_CALL Collect(const KavEvent* event) {
  auto* collector = static_cast<Collector*>(event->context);
  collector->events.push_back({event->name, Value::FromRecord(event->payload),
                               collector->host->yields(), collector->answered});
}

void Subscribe(ReferenceHost& host, Collector& collector, const char* name) {
  collector.host = &host;
  const KavHostFunctionTable* table = host.function_table();
  table->subscribe(table, name, 1, &Collect, &collector, 1);
}

void Yield(ReferenceHost& host) {
  const KavHostFunctionTable* table = host.function_table();
  table->yield(table);
}

TEST(PeersTest, ServiceProxyAnswersAtTheScriptedMoment) {
  const std::string gatekeeper_request = R"({"queueIds":[420],"summonerIds":[1001]})";
  const struct {
    const char* name;
    const char* gatekeeper;
    bool method_form;
    size_t at_yield;  // 0: during the POST
  } rows[] = {
      {"uuid, during the POST", "{delivery: duringPost}", false, 0},
      {"uuid, next yield", "{delivery: nextYield}", false, 1},
      {"uuid, default", "{}", false, 1},
      {"uuid, third yield", "{delivery: afterYields, yields: 3}", false, 3},
      {"method, during the POST", "{delivery: duringPost}", true, 0},
      {"method, second yield", "{delivery: afterYields, yields: 2}", true, 2},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ScenarioHost host(Parse((std::string("gatekeeper: ") + row.gatekeeper).c_str()));
    Collector collector;
    Subscribe(host.host(), collector, "OnServiceProxyUuidEvent");
    Subscribe(host.host(), collector, "OnServiceProxyMethodEvent");
    const Answered posted =
        row.method_form
            ? Request(host.host(), KAV_METHOD_POST, std::string(kServiceProxyMethodPath),
                      {Value::String("gatekeeper"),
                       Value::String("getQueueRestrictionsForQueuesV2"), Value::String("answered"),
                       Value::String(""), Value::Unsigned(1), Value::String(gatekeeper_request)})
            : Request(
                  host.host(), KAV_METHOD_POST, std::string(kServiceProxyUuidPath),
                  {Value::String("gatekeeper"), Value::String("getQueueRestrictionsForQueuesV2"),
                   Value::Unsigned(1), Value::String(gatekeeper_request)});
    collector.answered = 1;
    ASSERT_EQ(posted.error, "");
    EXPECT_EQ(posted.json, row.method_form ? "null" : "\"00000000-0000-4000-8000-000000000001\"");
    for (int i = 0; i < 4; ++i) Yield(host.host());

    ASSERT_EQ(collector.events.size(), 1u);
    const ReceivedEvent& event = collector.events[0];
    EXPECT_EQ(event.name,
              row.method_form ? "OnServiceProxyMethodEvent" : "OnServiceProxyUuidEvent");
    EXPECT_EQ(event.at_yield, row.at_yield);
    // Answers during the POST arrive before the POST has returned.
    EXPECT_EQ(event.requests_answered, row.at_yield == 0 ? 0u : 1u);
    EXPECT_EQ(event.payload.Find("uuid")->AsString(),
              row.method_form ? "" : "00000000-0000-4000-8000-000000000001");
    EXPECT_EQ(event.payload.Find("serviceName")->AsString(), "gatekeeper");
    EXPECT_EQ(event.payload.Find("methodName")->AsString(),
              row.method_form ? "answered" : "getQueueRestrictionsForQueuesV2");
    EXPECT_EQ(event.payload.Find("payload")->AsString(), "[]");
    EXPECT_EQ(event.payload.Find("error")->AsString(), "");
    EXPECT_EQ(host.peers().pending_answers(), 0u);
  }
}

TEST(PeersTest, GatekeeperAnswersTheQueriedRestrictionsAndRecordsQueries) {
  ScenarioHost host(Parse(R"(
gatekeeper:
  delivery: duringPost
  error: overloaded
  errorTimes: 1
  restrictions:
    - {queueId: 420, summonerId: 1, reason: PLAYER_BANNED, remainingMillis: 60000,
       summonerName: One, payload: p}
    - {queueId: 440, summonerId: 2, reason: QUEUE_DODGER}
    - {queueId: 420, summonerId: 2, reason: TIER_DELTA_RESTRICTED, withMembers: [1]}
    - {queueId: 450, summonerId: 1, reason: MIN_LEVEL_RESTRICTED}
)"));
  Collector collector;
  Subscribe(host.host(), collector, "OnServiceProxyUuidEvent");
  const struct {
    const char* name;
    const char* service;
    const char* payload;
    const char* answer;  // the event's payload text
    const char* error;   // the event's error text
  } rows[] = {
      {"scripted failure first", "gatekeeper", R"({"queueIds":[420],"summonerIds":[1]})", "",
       "overloaded"},
      {"one member", "gatekeeper", R"({"queueIds":[420,440],"summonerIds":[1]})",
       R"([{"summonerName":"One","reason":"PLAYER_BANNED","remainingMillis":60000,)"
       R"("payload":"p","queueId":420,"summonerId":1}])",
       ""},
      {"party brings the tier difference", "gatekeeper",
       R"({"queueIds":[420],"summonerIds":[2,1],"queueRestrictionsToExclude":["PLAYER_BANNED"]})",
       R"([{"summonerName":"","reason":"TIER_DELTA_RESTRICTED","remainingMillis":0,)"
       R"("payload":"","queueId":420,"summonerId":2}])",
       ""},
      {"excluded reason", "gatekeeper",
       R"({"queueIds":[440],"summonerIds":[2],"queueRestrictionsToExclude":["QUEUE_DODGER"]})",
       "[]", ""},
      {"bad payload", "gatekeeper", R"({"queueIds":"420"})", "",
       "Bad gatekeeper request: queueIds, summonerIds or queueRestrictionsToExclude has the "
       "wrong type"},
      {"unknown service", "store", "{}", "",
       "Unknown service method: store.getQueueRestrictionsForQueuesV2"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    collector.events.clear();
    const Answered posted =
        Request(host.host(), KAV_METHOD_POST, std::string(kServiceProxyUuidPath),
                {Value::String(row.service), Value::String("getQueueRestrictionsForQueuesV2"),
                 Value::Signed(1), Value::String(row.payload)});
    EXPECT_EQ(posted.error, "");
    ASSERT_EQ(collector.events.size(), 1u);
    EXPECT_EQ(collector.events[0].payload.Find("payload")->AsString(), row.answer);
    EXPECT_EQ(collector.events[0].payload.Find("error")->AsString(), row.error);
  }
  const std::vector<GatekeeperQuery>& queries = host.gatekeeper_queries();
  ASSERT_EQ(queries.size(), 5u);  // the unknown service is no query
  EXPECT_THAT(queries[1].queue_ids, ElementsAre(420, 440));
  EXPECT_THAT(queries[2].summoner_ids, ElementsAre(2u, 1u));
  EXPECT_THAT(queries[3].excluded_reasons, ElementsAre("QUEUE_DODGER"));
  EXPECT_FALSE(queries[4].error.empty());

  const Answered refused = Request(host.host(), KAV_METHOD_POST, std::string(kServiceProxyUuidPath),
                                   {Value::String("gatekeeper")});
  EXPECT_EQ(refused.status, 400u);
  EXPECT_THAT(refused.error, ::testing::StartsWith("Bad service proxy request"));
}

TEST(PeersTest, ScriptedGatekeeperAnswersAreReportedExactlyAsGiven) {
  ScenarioHost host(Parse(R"(
gatekeeper:
  delivery: duringPost
  error: overloaded
  errorTimes: 1
  restrictions:
    - {queueId: 420, summonerId: 1, reason: PLAYER_BANNED}
  answers:
    - query: 2
      restrictions:
        - {queueId: 9999, summonerId: 5, reason: QUEUE_DODGER, remainingMillis: 7}
        - {queueId: 420, summonerId: 1, reason: LEAVER_BUSTED}
    - {query: 3, restrictions: []}
    - {query: 5, error: down again}
)"));
  Collector collector;
  Subscribe(host.host(), collector, "OnServiceProxyUuidEvent");
  const char* const kQuery =
      R"({"queueIds":[420],"summonerIds":[1],"queueRestrictionsToExclude":["QUEUE_DODGER",)"
      R"("LEAVER_BUSTED"]})";
  const struct {
    const char* name;
    const char* answer;  // the event's payload text
    const char* error;   // the event's error text
  } rows[] = {
      {"first: the scripted failure", "", "overloaded"},
      {"second: as scripted, whatever was asked",
       R"([{"summonerName":"","reason":"QUEUE_DODGER","remainingMillis":7,"payload":"",)"
       R"("queueId":9999,"summonerId":5},{"summonerName":"","reason":"LEAVER_BUSTED",)"
       R"("remainingMillis":0,"payload":"","queueId":420,"summonerId":1}])",
       ""},
      {"third: scripted as empty", "[]", ""},
      {"fourth: the restrictions of the query",
       R"([{"summonerName":"","reason":"PLAYER_BANNED","remainingMillis":0,"payload":"",)"
       R"("queueId":420,"summonerId":1}])",
       ""},
      {"fifth: a scripted failure after answers", "", "down again"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    collector.events.clear();
    Request(host.host(), KAV_METHOD_POST, std::string(kServiceProxyUuidPath),
            {Value::String("gatekeeper"), Value::String("getQueueRestrictionsForQueuesV2"),
             Value::Signed(1), Value::String(kQuery)});
    ASSERT_EQ(collector.events.size(), 1u);
    EXPECT_EQ(collector.events[0].payload.Find("payload")->AsString(), row.answer);
    EXPECT_EQ(collector.events[0].payload.Find("error")->AsString(), row.error);
  }
  EXPECT_EQ(host.gatekeeper_queries().size(), 5u);
}

TEST(PeersTest, StepsChangeStateAndPublishToCoveringSubscriptions) {
  ScenarioHost host(Parse(R"(
session: {state: SUCCEEDED, summonerId: 1001, accountId: 5}
platform: {QueueEligibilityGateKeeperEnabled: true}
summoners: {1001: 30}
steps:
  - {beforeCall: 2, setSummonerLevel: 31}
  - {beforeCall: 2, setChampionCounts: {championsOwned: 9}}
  - {beforeCall: 3, setGateKeeperEnabled: null}
  - {beforeCall: 3, setQueues: [{id: 7}]}
  - {beforeCall: 4, deleteSession: true}
)"));
  Collector collector;
  for (const char* name : {"OnJsonApiEvent_kav-summoner_v1_current-summoner",
                           "OnJsonApiEvent_kav-champions_v1_inventories",
                           "OnJsonApiEvent_kav-platform-config_v1_namespaces_HvxLobby_"
                           "QueueEligibilityGateKeeperEnabled",
                           "OnJsonApiEvent_kav-login_v1_session", "OnServiceProxyUuidEvent"}) {
    Subscribe(host.host(), collector, name);
  }
  const struct {
    const char* name;
    std::vector<std::string> events;  // "<event name> <uri> <eventType> <data JSON>"
  } rows[] = {
      {"call 1: nothing", {}},
      {"call 2: level and counts",
       {"OnJsonApiEvent_kav-summoner_v1_current-summoner /kav-summoner/v1/current-summoner 1 "
        R"({"summonerId":1001,"summonerLevel":31})",
        "OnJsonApiEvent_kav-champions_v1_inventories "
        "/kav-champions/v1/inventories/1001/champions-playable-count 1 "
        R"({"championsOwned":9,"championsRented":0,"championsFreeToPlay":0,)"
        R"("championsFreeToPlayReward":0})"}},
      {"call 3: switch without value, queues nobody follows",
       {"OnJsonApiEvent_kav-platform-config_v1_namespaces_HvxLobby_"
        "QueueEligibilityGateKeeperEnabled "
        "/kav-platform-config/v1/namespaces/HvxLobby/QueueEligibilityGateKeeperEnabled 1 null"}},
      {"call 4: session deleted",
       {"OnJsonApiEvent_kav-login_v1_session /kav-login/v1/session 2 null"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    collector.events.clear();
    const CallOutcome outcome = host.Call("GET", "/kav-queue-eligibility/v1/anything");
    EXPECT_FALSE(outcome.reached_plugin);  // no plugin is loaded
    std::vector<std::string> events;
    for (const ReceivedEvent& event : collector.events) {
      events.push_back(event.name + " " + event.payload.Find("uri")->AsString() + " " +
                       std::to_string(event.payload.Find("eventType")->AsSigned()) + " " +
                       event.payload.Find("data")->ToJson());
    }
    EXPECT_EQ(events, row.events);
  }
  // The state changed with the events.
  EXPECT_EQ(host.peers().ResourceValue("/kav-summoner/v1/summoners/1001")->ToJson(),
            R"({"summonerId":1001,"summonerLevel":31})");
  EXPECT_EQ(host.peers().ResourceValue("/kav-game-queues/v1/queues")->AsArray().size(), 1u);
  EXPECT_FALSE(host.peers().ResourceValue("/kav-login/v1/session").has_value());
  // The queue change reached nobody, and says so.
  EXPECT_THAT(host.peer_events(),
              ::testing::Contains(
                  ::testing::Field(&PeerEvent::name, "OnJsonApiEvent_kav-game-queues_v1_queues")));
}

TEST(PeersTest, EventNamesCoverTheirResources) {
  const struct {
    const char* event_name;
    const char* uri;
    bool covers;
  } rows[] = {
      {"OnJsonApiEvent_kav-champions_v1_inventories",
       "/kav-champions/v1/inventories/1/champions-minimal", true},
      {"OnJsonApiEvent_kav-champions_v1_inventories", "/kav-champions/v1/inventories", true},
      {"OnJsonApiEvent_kav-champions_v1_inventor", "/kav-champions/v1/inventories/1", false},
      {"OnJsonApiEvent_kav-login_v1_session", "/kav-login/v1/session-x", false},
      {"OnJsonApiEvent", "/anything", true},
      {"OnServiceProxyUuidEvent", "/kav-login/v1/session", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.event_name) + " " + row.uri);
    EXPECT_EQ(EventNameCovers(row.event_name, row.uri), row.covers);
  }
}

}  // namespace
}  // namespace kav::host
