// The gatekeeper-based computation and its cache, end to end: the plugin
// among simulated peers, reached through its C ABI.
#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "eligibility_test_support.h"

namespace kav::eligibility_test {
namespace {

void AddRestrictions(host::Scenario& scenario,
                     std::initializer_list<host::GatekeeperRestriction> restrictions) {
  scenario.gatekeeper.restrictions.insert(scenario.gatekeeper.restrictions.end(), restrictions);
}

TEST(GatekeeperEligibilityTest, CombinesQueueListShutdownLawGatekeeperAndSizeRule) {
  struct Row {
    const char* name;
    ScenarioSetup setup;
    std::string url;
    std::string answer;
    std::vector<std::vector<int32_t>> batches;
    std::vector<std::string>
        warnings;  // "<level> <text>" of the lines starting "Unable" or "Couldn't"
  };
  const std::vector<Row> rows = {
      {"unknown and closed queues are not asked about",
       nullptr,
       V3Url({1002, kSelf}, {9999, 2000, 1700, 420}),
       "420:ok 1700:QueueDisabled 2000:QueueDisabled 9999:QueueUnsupported",
       {{420}},
       {}},
      {"shutdown law names the signed-in player, not the party",
       [](host::Scenario& s) { s.shutdown_law.disabled_queues = {430}; },
       V3Url({1003, 1002}, {430, 450}),
       "430:PlayerMinorRestriction[1001] 450:ok",
       {{450}},
       {}},
      {"queue 440 refuses a party size it does not admit",
       nullptr,
       V3Url({1003, 1002, kSelf}, {440}),
       "440:TeamSizeRestriction{teamSizeRestriction=3}",
       {{440}},
       {}},
      {"queue 440 admits a party of two",
       nullptr,
       V3Url({1002, kSelf}, {440}),
       "440:ok",
       {{440}},
       {}},
      {"queue 440 rule also applies to an empty party",
       nullptr,
       V3Url({}, {440}),
       "440:TeamSizeRestriction{teamSizeRestriction=0}",
       {{440}},
       {}},
      {"signed-in id twice is a party of two",
       [](host::Scenario& s) {
         s.queues->at(3).allowable_premade_sizes = {1};  // queue 440
       },
       V3Url({kSelf, kSelf}, {440}),
       "440:TeamSizeRestriction{teamSizeRestriction=2}",
       {{440}},
       {}},
      {"gatekeeper team size restriction suppresses the 440 rule",
       [](host::Scenario& s) {
         AddRestrictions(s, {Restriction(440, 1002, "MAX_PREMADE_SIZE_VIOLATED")});
       },
       V3Url({kSelf, 1002, 1003}, {440}),
       "440:TeamMaxSizeRestriction{teamMaxSizeRestriction=5}[1002]",
       {{440}},
       {}},
      {"same reason for two members merges",
       [](host::Scenario& s) {
         AddRestrictions(s, {Restriction(420, 1002, "PLAYER_BANNED"),
                             Restriction(420, kSelf, "PLAYER_BANNED")});
       },
       V3Url({kSelf, 1002}, {420}),
       "420:PlayerBannedRestriction[1002 1001]",
       {{420}},
       {}},
      {"both champion reasons merge into one restriction",
       [](host::Scenario& s) {
         AddRestrictions(s, {Restriction(420, kSelf, "MIN_CHAMPIONS_RESTRICTED"),
                             Restriction(420, 1002, "MIN_CHAMPIONS_RESTRICTED_NO_FREE")});
       },
       V3Url({kSelf, 1002}, {420}),
       "420:PlayerAvailableChampionRestriction{playerAvailableChampionRestriction=20}[1001 1002]",
       {{420}},
       {}},
      {"level reasons carry the queue's levels",
       [](host::Scenario& s) {
         AddRestrictions(s, {Restriction(420, 1002, "MIN_LEVEL_RESTRICTED"),
                             Restriction(450, 1003, "MAX_LEVEL_RESTRICTED"),
                             Restriction(450, 1002, "TIER_DELTA_RESTRICTED")});
       },
       V3Url({1003, 1002}, {450, 420}),
       "420:PlayerMinLevelRestriction{playerMinLevelRestriction=30}[1002] "
       "450:PlayerMaxLevelRestriction{playerMaxLevelRestriction=500}[1003],"
       "TeamDivisionRestriction[1002]",
       {{420, 450}},
       {}},
      {"in-game and leaver reasons never reach the answer",
       [](host::Scenario& s) {
         AddRestrictions(s, {Restriction(420, kSelf, "ALREADY_IN_GAME"),
                             Restriction(420, kSelf, "LEAVER_BUSTED")});
       },
       V3Url({kSelf, 1002}, {420}),
       "420:ok",
       {{420}},
       {}},
      {"unknown reason word",
       [](host::Scenario& s) { AddRestrictions(s, {Restriction(430, 1002, "player_banned")}); },
       V3Url({kSelf, 1002}, {430}),
       "430:UnknownRestriction[1002]",
       {{430}},
       {"1 Unable to map gatekeeper reason: player_banned"}},
      {"queue 440 missing from the queue list",
       [](host::Scenario& s) {
         std::erase_if(*s.queues, [](const host::Queue& q) { return q.id == 440; });
       },
       V3Url({kSelf, 1002}, {440}),
       "440:QueueUnsupported",
       {},
       {"1 Couldn't find queue 440 to match eligibility resource"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    host::Scenario scenario = BaseScenario();
    if (row.setup) row.setup(scenario);
    host::ScenarioHost host(scenario);
    ASSERT_TRUE(host.Load()) << host.error();
    const host::CallOutcome outcome = host.Call("GET", row.url);
    ASSERT_TRUE(outcome.ok()) << outcome.ToText();
    EXPECT_EQ(Summarize(outcome.body), row.answer);
    EXPECT_EQ(GatekeeperBatches(host), row.batches);
    for (const host::GatekeeperQuery& query : host.gatekeeper_queries()) {
      EXPECT_EQ(query.excluded_reasons,
                (std::vector<std::string>{"QUEUE_DODGER", "LEAVER_BUSTED",
                                          "LEAVER_BUSTER_TAINTED_WARNING"}));
    }
    std::vector<std::string> warnings = LogsStartingWith(host, "Unable");
    for (std::string& line : LogsStartingWith(host, "Couldn't")) warnings.push_back(line);
    EXPECT_EQ(warnings, row.warnings);
  }
}

TEST(GatekeeperEligibilityTest, SignedInPlayerIsAnsweredFromTheCacheBuiltInBatches) {
  struct Row {
    const char* name;
    int available_queues;
    std::vector<size_t> batch_sizes;
    size_t warnings;
  };
  const std::vector<Row> rows = {
      {"twenty queues, one query", 20, {20}, 0},
      {"twenty-one queues, two queries", 21, {20, 1}, 1},
      {"forty-five queues, three queries", 45, {20, 20, 5}, 1},
      {"no open queue, no query", 0, {}, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    host::Scenario scenario = BaseScenario();
    scenario.queues = std::vector<host::Queue>{MakeQueue(1700, "PlatformDisabled")};
    for (int i = row.available_queues; i > 0; --i) scenario.queues->push_back(MakeQueue(3000 + i));
    host::ScenarioHost host(scenario);
    ASSERT_TRUE(host.Load()) << host.error();

    const host::CallOutcome first = host.Call("GET", V3Url({kSelf}, {3001, 1700}));
    ASSERT_TRUE(first.ok()) << first.ToText();
    EXPECT_EQ(Summarize(first.body), row.available_queues > 0
                                         ? "1700:QueueDisabled 3001:ok"
                                         : "1700:QueueDisabled 3001:QueueUnsupported");
    std::vector<size_t> sizes;
    std::vector<int32_t> asked;
    for (const auto& batch : GatekeeperBatches(host)) {
      sizes.push_back(batch.size());
      asked.insert(asked.end(), batch.begin(), batch.end());
    }
    EXPECT_EQ(sizes, row.batch_sizes);
    EXPECT_TRUE(std::is_sorted(asked.begin(), asked.end())) << "in the order of the queue list";
    const std::string warning = "Querying eligibility for " + std::to_string(row.available_queues) +
                                " queues, unexpected configuration";
    EXPECT_EQ(CountLog(host, kWarn, warning), row.warnings);
    EXPECT_EQ(CountRequests(host, "/kav-kr-shutdown-law/v1/disabled-queues"), 1u);

    host.host().ClearRecords();
    const host::CallOutcome cached = host.Call("GET", V3Url({kSelf}, {3001, 4242}));
    ASSERT_TRUE(cached.ok()) << cached.ToText();
    EXPECT_EQ(Summarize(cached.body), row.available_queues > 0
                                          ? "3001:ok 4242:QueueUnsupported"
                                          : "3001:QueueUnsupported 4242:QueueUnsupported");
    EXPECT_TRUE(host.requested_urls().empty());
    EXPECT_EQ(GatekeeperBatches(host).size(), row.batch_sizes.size());
  }
}

TEST(GatekeeperEligibilityTest, AnswersAlikeWheneverTheGatekeeperAnswers) {
  struct Row {
    const char* name;
    host::ProxyDelivery delivery;
    uint32_t yields;
    size_t waits;
    size_t yield_calls;
  };
  const std::vector<Row> rows = {
      {"before the POST returns", host::ProxyDelivery::kDuringPost, 1, 0, 0},
      {"at the next yield", host::ProxyDelivery::kAfterYields, 1, 1, 1},
      {"at the third yield", host::ProxyDelivery::kAfterYields, 3, 1, 3},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    host::Scenario scenario = BaseScenario();
    scenario.gatekeeper.delivery = row.delivery;
    scenario.gatekeeper.yields = row.yields;
    AddRestrictions(scenario, {Restriction(430, 1002, "BINGE_PREVENTION")});
    host::ScenarioHost host(scenario);
    ASSERT_TRUE(host.Load()) << host.error();
    host.host().ClearRecords();
    const host::CallOutcome outcome = host.Call("GET", V3Url({1002, kSelf}, {430, 420}));
    ASSERT_TRUE(outcome.ok()) << outcome.ToText();
    EXPECT_EQ(Summarize(outcome.body), "420:ok 430:PlayerBingeRestriction[1002]");
    EXPECT_EQ(host.wait_count(), row.waits);
    EXPECT_EQ(host.yield_count(), row.yield_calls);
  }
}

TEST(GatekeeperEligibilityTest, TimedRestrictionsEndOnTheSteadyClock) {
  struct Row {
    int64_t remaining_millis;
    bool timed;
  };
  for (const Row& row : std::vector<Row>{{90'000, true}, {1, true}, {0, false}, {-5, false}}) {
    SCOPED_TRACE(row.remaining_millis);
    host::Scenario scenario = BaseScenario();
    AddRestrictions(scenario, {Restriction(450, 1002, "RANKED_RESTRICTED", row.remaining_millis)});
    host::ScenarioHost host(scenario);
    ASSERT_TRUE(host.Load()) << host.error();
    auto now_ms = [] {
      return std::chrono::duration_cast<std::chrono::milliseconds>(
                 std::chrono::steady_clock::now().time_since_epoch())
          .count();
    };
    const int64_t before = now_ms();
    const host::CallOutcome outcome = host.Call("GET", V3Url({1002}, {450}));
    const int64_t after = now_ms();
    ASSERT_TRUE(outcome.ok()) << outcome.ToText();
    EXPECT_EQ(Summarize(outcome.body), "450:PlayerRankedSuspensionRestriction[1002]");
    const int64_t expiry = FirstExpiry(outcome.body, 450);
    if (row.timed) {
      EXPECT_GE(expiry, before + row.remaining_millis);
      EXPECT_LE(expiry, after + row.remaining_millis);
    } else {
      EXPECT_EQ(expiry, 0);
    }
  }
}

TEST(GatekeeperEligibilityTest, QueueChangeDuringTheWaitIsConsumedByTheRebuild) {
  host::ScenarioHost host([] {
    host::Scenario scenario = BaseScenario();
    AddRestrictions(scenario, {Restriction(420, kSelf, "MIN_LEVEL_RESTRICTED")});
    return scenario;
  }());
  ASSERT_TRUE(host.Load()) << host.error();
  // While the rebuild waits for the gatekeeper, queue 420 disappears: its
  // restriction then has no queue to take its argument from.
  host.host().ScheduleAtYield(1, [&host] {
    std::vector<host::Queue> queues = *host.peers().state().queues;
    queues.erase(queues.begin() + 1);
    host.Apply(host::SetQueues{queues});
  });
  const host::CallOutcome first = host.Call("GET", V3Url({kSelf}, {420}));
  ASSERT_TRUE(first.ok()) << first.ToText();
  EXPECT_EQ(Summarize(first.body), "420:PlayerMinLevelRestriction[1001]");
  EXPECT_EQ(CountLog(host, kWarn,
                     "Unable to provide eligibility restriction arguments because queue details "
                     "were not available: 420"),
            1u);
  host.host().ClearRecords();
  const host::CallOutcome second = host.Call("GET", V3Url({kSelf}, {420}));
  EXPECT_EQ(Summarize(second.body), "420:PlayerMinLevelRestriction[1001]");
  EXPECT_TRUE(host.requested_urls().empty()) << "the rebuild cleared the dirty mark";
}

}  // namespace
}  // namespace kav::eligibility_test
