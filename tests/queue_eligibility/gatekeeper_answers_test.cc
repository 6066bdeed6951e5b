// How the plugin takes the gatekeeper's answers, end to end, with a
// gatekeeper that answers each query exactly as the test scripts it: every
// reason word, the codes the plugin drops itself, entries for queues outside
// the batch, duplicates, merges, failures part way through a computation, and
// changes that arrive while the plugin waits.
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "eligibility_test_support.h"

namespace kav::eligibility_test {
namespace {

constexpr char kDisabledQueues[] = "/kav-kr-shutdown-law/v1/disabled-queues";
constexpr char kRebuilding[] =
    "Queue Eligibility configuration: self eligibility is dirty, rebuilding";

// The gatekeeper's `query`th query (from 1) answers exactly `restrictions`.
void Script(host::Scenario& scenario, uint32_t query,
            std::vector<host::GatekeeperRestriction> restrictions) {
  scenario.gatekeeper.answers.push_back({query, std::move(restrictions), std::nullopt});
}

// The gatekeeper's `query`th query fails with `error`.
void ScriptFailure(host::Scenario& scenario, uint32_t query, std::string error) {
  scenario.gatekeeper.answers.push_back({query, {}, std::move(error)});
}

// `count` available queues with ids from `first`.
std::vector<host::Queue> NumberedQueues(int32_t first, int count) {
  std::vector<host::Queue> queues;
  for (int i = 0; i < count; ++i) queues.push_back(MakeQueue(first + i));
  return queues;
}

std::string V3UrlOf(std::initializer_list<uint64_t> summoner_ids,
                    const std::vector<int32_t>& queue_ids) {
  std::string url = std::string(kV3) + "?summonerIds=" + JsonList(summoner_ids) + "&queueIds=[";
  for (size_t i = 0; i < queue_ids.size(); ++i) {
    url += (i == 0 ? "" : ",") + std::to_string(queue_ids[i]);
  }
  return url + "]";
}

TEST(GatekeeperAnswersTest, EveryReasonWordReachesTheAnswerUnderItsCode) {
  struct Row {
    const char* reason;
    const char* entry;  // the queue's entry in the answer, after "<id>:"
  };
  // MakeQueue: up to 5 players, levels 1 to 500, no champions required.
  const std::vector<Row> rows = {
      {"QUEUE_STATE_NOT_ON", "QueueDisabled[1002]"},
      {"PLAYER_BANNED", "PlayerBannedRestriction[1002]"},
      {"MIN_CHAMPIONS_RESTRICTED",
       "PlayerAvailableChampionRestriction{playerAvailableChampionRestriction=0}[1002]"},
      {"MIN_CHAMPIONS_RESTRICTED_NO_FREE",
       "PlayerAvailableChampionRestriction{playerAvailableChampionRestriction=0}[1002]"},
      {"TIER_DELTA_RESTRICTED", "TeamDivisionRestriction[1002]"},
      {"MAX_PREMADE_SIZE_VIOLATED", "TeamMaxSizeRestriction{teamMaxSizeRestriction=5}[1002]"},
      {"BINGE_PREVENTION", "PlayerBingeRestriction[1002]"},
      {"QUEUE_DODGER", "ok"},
      {"ALREADY_IN_GAME", "ok"},
      {"LEAVER_BUSTED", "ok"},
      {"LEAVER_BUSTER_TAINTED_WARNING", "ok"},
      {"MAX_LEVEL_RESTRICTED", "PlayerMaxLevelRestriction{playerMaxLevelRestriction=500}[1002]"},
      {"MIN_LEVEL_RESTRICTED", "PlayerMinLevelRestriction{playerMinLevelRestriction=1}[1002]"},
      {"MINOR_RESTRICTED", "PlayerMinorRestriction[1002]"},
      {"RANKED_RESTRICTED", "PlayerRankedSuspensionRestriction[1002]"},
      {"HIGH_MMR_PREMADE_SIZE_RESTRICTED", "TeamHighMMRMaxSizeRestriction[1002]"},
      {"PREREQUISITE_QUEUES_NOT_PLAYED", "PrerequisiteQueuesNotPlayedRestriction[1002]"},
      {"NEW_REASON", "UnknownRestriction[1002]"},
  };
  // One queue per row, all asked in one query, each answered with its row's
  // reason.
  host::Scenario scenario = BaseScenario();
  scenario.queues = NumberedQueues(3001, static_cast<int>(rows.size()));
  std::vector<host::GatekeeperRestriction> answer;
  std::vector<int32_t> queue_ids;
  std::string expected;
  for (size_t i = 0; i < rows.size(); ++i) {
    const int32_t queue_id = 3001 + static_cast<int32_t>(i);
    queue_ids.push_back(queue_id);
    answer.push_back(Restriction(queue_id, 1002, rows[i].reason));
    expected += (i == 0 ? "" : " ") + std::to_string(queue_id) + ":" + rows[i].entry;
  }
  Script(scenario, 1, answer);
  host::ScenarioHost host(scenario);
  ASSERT_TRUE(host.Load()) << host.error();
  const host::CallOutcome outcome = host.Call("GET", V3UrlOf({1002, kSelf}, queue_ids));
  ASSERT_TRUE(outcome.ok()) << outcome.ToText();
  EXPECT_EQ(Summarize(outcome.body), expected);
  EXPECT_EQ(LogsStartingWith(host, "Unable"),
            std::vector<std::string>{"1 Unable to map gatekeeper reason: NEW_REASON"});
}

TEST(GatekeeperAnswersTest, DodgeInGameAndLeaverCodesAreDroppedByThePlugin) {
  for (const char* reason :
       {"QUEUE_DODGER", "ALREADY_IN_GAME", "LEAVER_BUSTED", "LEAVER_BUSTER_TAINTED_WARNING"}) {
    SCOPED_TRACE(reason);
    host::Scenario scenario = BaseScenario();
    // The same word for a queue the party holds another restriction in, and
    // alone for a second queue; a third queue shows the answer was read.
    Script(scenario, 1,
           {Restriction(420, 1002, "PLAYER_BANNED"), Restriction(420, kSelf, reason),
            Restriction(430, 1002, reason), Restriction(450, kSelf, "BINGE_PREVENTION")});
    host::ScenarioHost host(scenario);
    ASSERT_TRUE(host.Load()) << host.error();
    const host::CallOutcome outcome = host.Call("GET", V3Url({1002, kSelf}, {420, 430, 450}));
    ASSERT_TRUE(outcome.ok()) << outcome.ToText();
    EXPECT_EQ(Summarize(outcome.body),
              "420:PlayerBannedRestriction[1002] 430:ok 450:PlayerBingeRestriction[1001]");
  }
}

TEST(GatekeeperAnswersTest, EntriesApplyToEveryEntryOfTheirQueueWhateverTheBatch) {
  struct Row {
    const char* name;
    ScenarioSetup setup;
    std::string url;
    std::string answer;
    std::vector<std::vector<int32_t>> batches;
    std::vector<std::string> warnings;
  };
  const std::vector<Row> rows = {
      {"a queue closed earlier by the shutdown law",
       [](host::Scenario& s) {
         s.shutdown_law.disabled_queues = {430};
         Script(s, 1, {Restriction(430, 1002, "PLAYER_BANNED")});
       },
       V3Url({1002, kSelf}, {430, 450}),
       "430:PlayerMinorRestriction[1001],PlayerBannedRestriction[1002] 450:ok",
       {{450}},
       {}},
      {"a disabled queue: the gatekeeper's summoner joins the plugin's restriction",
       [](host::Scenario& s) { Script(s, 1, {Restriction(1700, 1002, "QUEUE_STATE_NOT_ON")}); },
       V3Url({1002, kSelf}, {1700, 450}),
       "450:ok 1700:QueueDisabled[1002]",
       {{450}},
       {}},
      {"a requested queue the plugin does not know: no arguments",
       [](host::Scenario& s) { Script(s, 1, {Restriction(9998, 1002, "MIN_LEVEL_RESTRICTED")}); },
       V3Url({1002, kSelf}, {9998, 450}),
       "450:ok 9998:QueueUnsupported,PlayerMinLevelRestriction[1002]",
       {{450}},
       {"1 Unable to provide eligibility restriction arguments because queue details were not "
        "available: 9998"}},
      {"a queue nobody asked about is ignored",
       [](host::Scenario& s) {
         Script(
             s, 1,
             {Restriction(9999, 1002, "PLAYER_BANNED"), Restriction(420, 1002, "PLAYER_BANNED")});
       },
       V3Url({1002, kSelf}, {450}),
       "450:ok",
       {{450}},
       {"1 Unable to provide eligibility restriction arguments because queue details were not "
        "available: 9999"}},
      {"duplicate queue ids: every entry of the queue, and the batch asks twice",
       [](host::Scenario& s) {
         Script(
             s, 1,
             {Restriction(420, 1002, "PLAYER_BANNED"), Restriction(420, kSelf, "PLAYER_BANNED")});
       },
       V3Url({1002, kSelf}, {450, 420, 420}),
       "420:PlayerBannedRestriction[1002 1001] 420:PlayerBannedRestriction[1002 1001] 450:ok",
       {{420, 420, 450}},
       {}},
      {"duplicate queue ids of the signed-in player, from the cache",
       [](host::Scenario& s) { Script(s, 1, {Restriction(420, kSelf, "PLAYER_BANNED")}); },
       V3Url({kSelf}, {420, 420}),
       "420:PlayerBannedRestriction[1001] 420:PlayerBannedRestriction[1001]",
       {{420, 430, 440, 450}},
       {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    host::Scenario scenario = BaseScenario();
    row.setup(scenario);
    host::ScenarioHost host(scenario);
    ASSERT_TRUE(host.Load()) << host.error();
    const host::CallOutcome outcome = host.Call("GET", row.url);
    ASSERT_TRUE(outcome.ok()) << outcome.ToText();
    EXPECT_EQ(Summarize(outcome.body), row.answer);
    EXPECT_EQ(GatekeeperBatches(host), row.batches);
    EXPECT_EQ(LogsStartingWith(host, "Unable"), row.warnings);
  }
}

TEST(GatekeeperAnswersTest, AMergeKeepsTheFirstRestrictionsArgumentsAndExpiry) {
  struct Row {
    const char* name;
    ScenarioSetup setup;
    // Runs inside the plugin's second yield (while the second query waits).
    std::function<void(host::ScenarioHost&)> during_second_query;
    std::string url;
    std::string answer;
    int32_t queue_id;  // of the merged restriction
    bool timed;        // whether it has an expiry
  };
  const std::vector<Row> rows = {
      {"a later timed restriction does not lend its expiry",
       [](host::Scenario& s) {
         Script(s, 1,
                {Restriction(420, 1002, "PLAYER_BANNED"),
                 Restriction(420, kSelf, "PLAYER_BANNED", 60'000)});
       },
       nullptr, V3Url({1002, kSelf}, {420}), "420:PlayerBannedRestriction[1002 1001]", 420, false},
      {"an earlier timed restriction keeps its expiry",
       [](host::Scenario& s) {
         Script(s, 1,
                {Restriction(420, 1002, "PLAYER_BANNED", 60'000),
                 Restriction(420, kSelf, "PLAYER_BANNED")});
       },
       nullptr, V3Url({1002, kSelf}, {420}), "420:PlayerBannedRestriction[1002 1001]", 420, true},
      {"the plugin's own restriction takes no expiry",
       [](host::Scenario& s) {
         Script(s, 1, {Restriction(1700, 1002, "QUEUE_STATE_NOT_ON", 60'000)});
       },
       nullptr, V3Url({1002, kSelf}, {1700, 450}), "450:ok 1700:QueueDisabled[1002]", 1700, false},
      {"arguments stay those of the queue when the first restriction was made",
       [](host::Scenario& s) {
         s.queues = NumberedQueues(3001, 21);
         Script(s, 1, {Restriction(3001, 1002, "MIN_LEVEL_RESTRICTED")});
         Script(s, 2, {Restriction(3001, kSelf, "MIN_LEVEL_RESTRICTED", 60'000)});
       },
       [](host::ScenarioHost& h) {
         std::vector<host::Queue> queues = NumberedQueues(3001, 21);
         queues[0].min_level = 7;
         h.Apply(host::SetQueues{queues});
       },
       V3UrlOf({1002, kSelf}, {3001, 3002, 3003, 3004, 3005, 3006, 3007, 3008, 3009, 3010, 3011,
                               3012, 3013, 3014, 3015, 3016, 3017, 3018, 3019, 3020, 3021}),
       "3001:PlayerMinLevelRestriction{playerMinLevelRestriction=1}[1002 1001] 3002:ok 3003:ok "
       "3004:ok 3005:ok 3006:ok 3007:ok 3008:ok 3009:ok 3010:ok 3011:ok 3012:ok 3013:ok 3014:ok "
       "3015:ok 3016:ok 3017:ok 3018:ok 3019:ok 3020:ok 3021:ok",
       3001, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    host::Scenario scenario = BaseScenario();
    row.setup(scenario);
    host::ScenarioHost host(scenario);
    ASSERT_TRUE(host.Load()) << host.error();
    if (row.during_second_query) {
      host.host().ScheduleAtYield(2, [&] { row.during_second_query(host); });
    }
    const host::CallOutcome outcome = host.Call("GET", row.url);
    ASSERT_TRUE(outcome.ok()) << outcome.ToText();
    EXPECT_EQ(Summarize(outcome.body), row.answer);
    EXPECT_EQ(FirstExpiry(outcome.body, row.queue_id) > 0, row.timed);
  }
}

TEST(GatekeeperAnswersTest, AFailedRebuildLeavesTheCacheDirty) {
  struct Row {
    const char* name;
    ScenarioSetup setup;
    std::function<void(host::ScenarioHost&)> between;  // after the failed call
    std::vector<int32_t> queue_ids;
    std::string error;
    std::string answer;         // of the next call
    size_t shutdown_law_reads;  // by both calls
  };
  const std::vector<Row> rows = {
      {"queues never received",
       [](host::Scenario& s) { s.queues.reset(); },
       [](host::ScenarioHost& h) {
         // A list without an available queue marks nothing dirty.
         h.Apply(host::SetQueues{{MakeQueue(1700, "PlatformDisabled")}});
       },
       {1700},
       "UNAVAILABLE",
       "1700:QueueDisabled",
       1},
      {"the shutdown-law list unreadable",
       [](host::Scenario& s) {
         host::Fault fault = ErrorFault(kDisabledQueues, "boom");
         fault.times = 1;
         s.faults.push_back(fault);
       },
       nullptr,
       {430},
       "Failed to get kr shutdown disabled queues: Error response for GET "
       "/kav-kr-shutdown-law/v1/disabled-queues: boom",
       "430:ok",
       2},
      {"the second gatekeeper batch fails",
       [](host::Scenario& s) {
         s.queues = NumberedQueues(3001, 21);
         Script(s, 1, {Restriction(3001, kSelf, "PLAYER_BANNED")});
         ScriptFailure(s, 2, "down");
       },
       nullptr,
       {3001},
       "Failed to get gatekeeper restrictions : down",
       "3001:ok",
       2},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    host::Scenario scenario = BaseScenario();
    row.setup(scenario);
    host::ScenarioHost host(scenario);
    ASSERT_TRUE(host.Load()) << host.error();
    const host::CallOutcome failed = host.Call("GET", V3UrlOf({kSelf}, row.queue_ids));
    EXPECT_EQ(failed.status, 500u);
    EXPECT_EQ(failed.error.value_or("<answered>"), row.error);
    if (row.between) row.between(host);
    const host::CallOutcome next = host.Call("GET", V3UrlOf({kSelf}, row.queue_ids));
    ASSERT_TRUE(next.ok()) << next.ToText();
    EXPECT_EQ(Summarize(next.body), row.answer);
    EXPECT_EQ(CountLog(host, kAlways, kRebuilding), 2u);
    EXPECT_EQ(CountRequests(host, kDisabledQueues), row.shutdown_law_reads);
  }
}

TEST(GatekeeperAnswersTest, AnEmptyQueueListStillReadsTheShutdownLaw) {
  struct Row {
    const char* name;
    bool law_fails;
    const char* method;
    std::string url;
    std::optional<std::string> body;
  };
  const std::vector<Row> rows = {
      {"v3", false, "GET", V3Url({1002, kSelf}, {}), std::nullopt},
      {"v2", false, "POST", "/kav-queue-eligibility/v2/eligibility", QueryBody({1002}, {})},
      {"v3, the list unreadable", true, "GET", V3Url({1002, kSelf}, {}), std::nullopt},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    host::Scenario scenario = BaseScenario();
    if (row.law_fails) scenario.faults.push_back(ErrorFault(kDisabledQueues, "boom"));
    host::ScenarioHost host(scenario);
    ASSERT_TRUE(host.Load()) << host.error();
    const host::CallOutcome outcome = host.Call(row.method, row.url, row.body);
    EXPECT_EQ(CountRequests(host, kDisabledQueues), 1u);
    EXPECT_TRUE(host.gatekeeper_queries().empty());
    if (row.law_fails) {
      EXPECT_EQ(outcome.error.value_or("<answered>"),
                "Failed to get kr shutdown disabled queues: Error response for GET "
                "/kav-kr-shutdown-law/v1/disabled-queues: boom");
    } else {
      ASSERT_TRUE(outcome.ok()) << outcome.ToText();
      EXPECT_EQ(outcome.body_json, "[]");
    }
  }
}

TEST(GatekeeperAnswersTest, AQueueChangeDuringAStreamedShutdownLawAnswer) {
  // While the plugin reads the streamed shutdown-law list, queue 450 becomes
  // disabled, queue 420 asks for level 35 and queue 440 admits single players
  // only. The queue check has run already; the gatekeeper's arguments and the
  // size rule read the new list.
  std::vector<host::Queue> changed = *BaseScenario().queues;
  for (host::Queue& queue : changed) {
    if (queue.id == 450) queue.queue_availability = "PlatformDisabled";
    if (queue.id == 420) queue.min_level = 35;
    if (queue.id == 440) queue.allowable_premade_sizes = {1};
  }
  struct Row {
    const char* name;
    std::string url;
    std::string answer;
    std::vector<std::vector<int32_t>> batches;
    // Shutdown-law reads of a later call of the signed-in player: none when
    // the rebuild during which the change came consumed it.
    size_t later_reads;
  };
  const std::vector<Row> rows = {
      {"a party",
       V3Url({1002, kSelf}, {420, 440, 450}),
       "420:PlayerMinLevelRestriction{playerMinLevelRestriction=35}[1002] "
       "440:TeamSizeRestriction{teamSizeRestriction=2} 450:ok",
       {{420, 440, 450}},
       1},
      {"the signed-in player",
       V3Url({kSelf}, {420, 440, 450}),
       "420:PlayerMinLevelRestriction{playerMinLevelRestriction=35}[1002] 440:ok 450:ok",
       {{420, 430, 440, 450}},
       0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    host::Scenario scenario = BaseScenario();
    host::Fault stream;
    stream.path = kDisabledQueues;
    stream.stream_chunks = 2;
    scenario.faults.push_back(stream);
    Script(scenario, 1, {Restriction(420, 1002, "MIN_LEVEL_RESTRICTED")});
    host::ScenarioHost host(scenario);
    ASSERT_TRUE(host.Load()) << host.error();
    host.host().ScheduleAtYield(1, [&] { host.Apply(host::SetQueues{changed}); });
    const host::CallOutcome outcome = host.Call("GET", row.url);
    ASSERT_TRUE(outcome.ok()) << outcome.ToText();
    EXPECT_EQ(Summarize(outcome.body), row.answer);
    EXPECT_EQ(GatekeeperBatches(host), row.batches);
    EXPECT_GE(host.host().stream_reads(), 2u);

    host.host().ClearRecords();
    const host::CallOutcome again = host.Call("GET", V3Url({kSelf}, {450}));
    ASSERT_TRUE(again.ok()) << again.ToText();
    EXPECT_EQ(CountRequests(host, kDisabledQueues), row.later_reads);
  }
}

}  // namespace
}  // namespace kav::eligibility_test
