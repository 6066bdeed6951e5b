// Configuration tracking, end to end: the plugin among simulated peers,
// reached through its C ABI.
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "eligibility_test_support.h"

namespace kav::eligibility_test {
namespace {

constexpr char kComplete[] = "/kav-queue-eligibility/v1/initial-configuration-complete";
constexpr char kPrefix[] = "Queue Eligibility configuration: ";
constexpr char kRebuilding[] =
    "Queue Eligibility configuration: self eligibility is dirty, rebuilding";

std::string Line(const char* text) {
  return "3 " + std::string(kPrefix) + text;
}

using Action = std::function<void(host::ScenarioHost&)>;

TEST(ConfigurationTrackingTest, InitialConfigurationCompletesOnceBothInputsArrived) {
  struct Row {
    const char* name;
    std::function<void(host::Scenario&)> setup;
    Action after_load;
    std::vector<std::string> lines;
    bool complete;
  };
  const std::vector<Row> rows = {
      {"champion counts before queues",
       nullptr,
       nullptr,
       {Line("champions changed, self eligibility is dirty"), Line("incomplete (Queues)"),
        Line("queues changed, self eligibility is dirty"), Line("COMPLETE"),
        Line("player level changed, self eligibility is dirty")},
       true},
      {"queues before champion counts",
       [](host::Scenario& s) { s.session.reset(); },
       [](host::ScenarioHost& h) {
         h.Apply(host::SetSession{{"SUCCEEDED", kSelf, 5001}});
       },
       {Line("queues changed, self eligibility is dirty"), Line("incomplete (Champions)"),
        Line("champions changed, self eligibility is dirty"), Line("COMPLETE")},
       true},
      {"no valid session",
       [](host::Scenario& s) { s.session->account_id = 0; },
       nullptr,
       {Line("queues changed, self eligibility is dirty"), Line("incomplete (Champions)"),
        Line("player level changed, self eligibility is dirty")},
       false},
      {"no queues",
       [](host::Scenario& s) { s.queues.reset(); },
       nullptr,
       {Line("champions changed, self eligibility is dirty"), Line("incomplete (Queues)"),
        Line("player level changed, self eligibility is dirty")},
       false},
      {"changes after completion announce nothing more",
       nullptr,
       [](host::ScenarioHost& h) {
         std::vector<host::Queue> queues = *h.peers().state().queues;
         queues.pop_back();
         queues.front().queue_availability = "PlatformDisabled";
         h.Apply(host::SetQueues{queues});
         h.Apply(host::SetChampionCounts{{26, 2, 10, 1}});
       },
       {Line("champions changed, self eligibility is dirty"), Line("incomplete (Queues)"),
        Line("queues changed, self eligibility is dirty"), Line("COMPLETE"),
        Line("player level changed, self eligibility is dirty"),
        Line("queues changed, self eligibility is dirty"),
        Line("champions changed, self eligibility is dirty")},
       true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    host::Scenario scenario = BaseScenario();
    if (row.setup) row.setup(scenario);
    host::ScenarioHost host(scenario);
    ASSERT_TRUE(host.Load()) << host.error();
    if (row.after_load) row.after_load(host);

    EXPECT_EQ(LogsStartingWith(host, kPrefix), row.lines);
    const host::CallOutcome answer = host.Call("GET", kComplete);
    ASSERT_TRUE(answer.ok()) << answer.ToText();
    EXPECT_EQ(answer.body_json, row.complete ? "true" : "false");

    std::vector<std::string> names;
    for (const host::PublishedEvent& event : host.published_events()) names.push_back(event.name);
    const std::vector<std::string> expected_names =
        row.complete ? std::vector<std::string>{"OnJsonApiEvent_kav-queue-eligibility_v1_"
                                                "initial-configuration-complete",
                                                "OnJsonApiEvent"}
                     : std::vector<std::string>{};
    ASSERT_EQ(names, expected_names);
    for (const host::PublishedEvent& event : host.published_events()) {
      const host::Value* uri = event.payload.Find("uri");
      ASSERT_NE(uri, nullptr);
      EXPECT_EQ(uri->AsString(), kComplete);
      // An Update, by number or by name.
      const std::string event_type = event.payload.Find("eventType")->ToJson();
      EXPECT_TRUE(event_type == "1" || event_type == "\"Update\"") << event_type;
      EXPECT_EQ(event.payload.Find("data")->ToJson(), "true");
    }
  }
}

TEST(ConfigurationTrackingTest, OnlyTrackedChangesMakeTheSelfEligibilityRebuild) {
  auto set_queues = [](auto change) {
    return [change](host::ScenarioHost& h) {
      std::vector<host::Queue> queues = *h.peers().state().queues;
      for (host::Queue& queue : queues) {
        if (queue.id == 430) change(queue);
      }
      h.Apply(host::SetQueues{queues});
    };
  };
  struct Row {
    const char* name;
    Action change;
    bool rebuilds;
    std::string answer;
  };
  const std::vector<Row> rows = {
      {"queue becomes unavailable",
       set_queues([](host::Queue& q) { q.queue_availability = "DoesntMeetRequirements"; }), true,
       "420:ok 430:QueueDisabled"},
      {"minimum level changes", set_queues([](host::Queue& q) { q.min_level = 50; }), false,
       "420:ok 430:ok"},
      {"identical queue list", set_queues([](host::Queue&) {}), false, "420:ok 430:ok"},
      {"queue list deleted",
       [](host::ScenarioHost& h) {
         h.peers().PublishResource("/kav-game-queues/v1/queues", host::ResourceEventType::kDelete,
                                   host::Value());
       },
       false, "420:ok 430:ok"},
      {"player level changes", [](host::ScenarioHost& h) { h.Apply(host::SetSummonerLevel{31}); },
       true, "420:ok 430:ok"},
      {"same player level", [](host::ScenarioHost& h) { h.Apply(host::SetSummonerLevel{30}); },
       false, "420:ok 430:ok"},
      {"champion counts change",
       [](host::ScenarioHost& h) {
         h.Apply(host::SetChampionCounts{{25, 3, 10, 1}});
       },
       true, "420:ok 430:ok"},
      {"same champion counts",
       [](host::ScenarioHost& h) {
         h.Apply(host::SetChampionCounts{{25, 2, 10, 1}});
       },
       false, "420:ok 430:ok"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    host::ScenarioHost host(BaseScenario());
    ASSERT_TRUE(host.Load()) << host.error();
    const host::CallOutcome first = host.Call("GET", V3Url({kSelf}, {430, 420}));
    ASSERT_TRUE(first.ok()) << first.ToText();
    EXPECT_EQ(Summarize(first.body), "420:ok 430:ok");
    EXPECT_EQ(CountLog(host, kAlways, kRebuilding), 1u);
    EXPECT_EQ(GatekeeperBatches(host).size(), 1u);

    row.change(host);
    host.host().ClearRecords();
    const host::CallOutcome second = host.Call("GET", V3Url({kSelf}, {430, 420}));
    ASSERT_TRUE(second.ok()) << second.ToText();
    EXPECT_EQ(Summarize(second.body), row.answer);
    EXPECT_EQ(CountLog(host, kAlways, kRebuilding), row.rebuilds ? 1u : 0u);
    EXPECT_EQ(GatekeeperBatches(host).size(), row.rebuilds ? 2u : 1u);
    if (!row.rebuilds) {
      EXPECT_TRUE(host.requested_urls().empty());
    }
  }
}

TEST(ConfigurationTrackingTest, SessionChangesBindTheSignedInSummoner) {
  struct Row {
    const char* name;
    Action change;
    std::vector<std::string> observed;  // requested after the change
    uint64_t self;                      // the party of one answered from the cache
    uint64_t other;                     // a party of one that asks the gatekeeper
  };
  const std::vector<Row> rows = {
      {"deleted session",
       [](host::ScenarioHost& h) { h.Apply(host::DeleteSession{}); },
       {},
       0,
       kSelf},
      {"invalid then valid session",
       [](host::ScenarioHost& h) {
         h.Apply(host::SetSession{{"SUCCEEDED", 1002, 0}});
         h.Apply(host::SetSession{{"SUCCEEDED", 1002, 5002}});
       },
       {"/kav-champions/v1/inventories/1002/champions-playable-count",
        "/kav-leagues/v1/summoner-leagues/1002"},
       1002,
       kSelf},
      {"same summoner after deletion",
       [](host::ScenarioHost& h) {
         h.Apply(host::DeleteSession{});
         h.Apply(host::SetSession{{"SUCCEEDED", kSelf, 5001}});
       },
       {"/kav-champions/v1/inventories/1001/champions-playable-count",
        "/kav-leagues/v1/summoner-leagues/1001"},
       kSelf,
       1003},
      {"other summoner while valid",
       [](host::ScenarioHost& h) {
         h.Apply(host::SetSession{{"SUCCEEDED", 1003, 5003}});
       },
       {},
       kSelf,
       1003},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    host::ScenarioHost host(BaseScenario());
    ASSERT_TRUE(host.Load()) << host.error();
    ASSERT_TRUE(host.Call("GET", V3Url({kSelf}, {420})).ok());
    host.host().ClearRecords();
    row.change(host);
    EXPECT_EQ(host.requested_urls(), row.observed);

    const size_t queries = host.gatekeeper_queries().size();
    const host::CallOutcome self = host.Call("GET", V3Url({row.self}, {420}));
    ASSERT_TRUE(self.ok()) << self.ToText();
    EXPECT_EQ(host.gatekeeper_queries().size(), queries) << "answered from the cache";

    const host::CallOutcome other = host.Call("GET", V3Url({row.other}, {420}));
    ASSERT_TRUE(other.ok()) << other.ToText();
    ASSERT_EQ(host.gatekeeper_queries().size(), queries + 1);
    EXPECT_EQ(host.gatekeeper_queries().back().summoner_ids, std::vector<uint64_t>{row.other});
  }
}

}  // namespace
}  // namespace kav::eligibility_test
