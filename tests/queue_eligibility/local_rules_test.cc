// The local rule set, end to end through "/kav-queue-eligibility/v1/eligibility".
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "eligibility_test_support.h"

namespace kav::eligibility_test {
namespace {

constexpr char kV1[] = "/kav-queue-eligibility/v1/eligibility";

host::Queue& QueueOf(host::Scenario& scenario, int32_t id) {
  for (host::Queue& queue : *scenario.queues) {
    if (queue.id == id) return queue;
  }
  ADD_FAILURE() << "no queue " << id;
  return scenario.queues->front();
}

TEST(LocalRulesTest, AppliesSizeLevelChampionAndShutdownRules) {
  struct Row {
    const char* name;
    ScenarioSetup setup;
    std::string body;
    std::string answer;
    std::vector<std::string> requested_inventories;
    std::vector<std::string> errors;  // "<level> <text>" of lines starting "Failed"
  };
  const std::string summoner_error =
      "2 Failed to get summoner resource for summoner ID +1005. Error: Error response for GET "
      "/kav-summoner/v1/summoners/1005: ";
  const std::vector<Row> rows = {
      {"party larger than the queue admits",
       nullptr,
       QueryBody({kSelf, 1002, 1003, 1002, 1003, 1002}, {430}),
       "430:TeamMaxSizeRestriction{teamMaxSizeRestriction=5}",
       {},
       {}},
      {"members below the minimum level; unreadable member left out",
       [](host::Scenario& s) {
         QueueOf(s, 430).min_level = 20;
         s.summoner_levels[1004] = 5;
       },
       QueryBody({1003, 1002, 1005, 1004}, {430}),
       "430:PlayerLevelRestriction{playerLevelRestriction=20}[1002 1004]",
       {},
       {summoner_error}},
      {"closed queues come first, in request order",
       nullptr,
       QueryBody({kSelf}, {430, 9999, 2000, 1700}),
       "9999:QueueDisabled 2000:QueueUnsupported 1700:QueueDisabled 430:ok",
       {},
       {}},
      {"shutdown law closes a queue for the signed-in player",
       [](host::Scenario& s) { s.shutdown_law.queue_status[450] = true; },
       QueryBody({1002}, {450, 430}),
       "450:PlayerMinorRestriction[1001] 430:ok",
       {},
       {}},
      {"unreadable shutdown status leaves the queue open",
       [](host::Scenario& s) {
         s.faults.push_back(ErrorFault("/kav-kr-shutdown-law/v1/queue-status/450", "gone"));
       },
       QueryBody({1002}, {450}),
       "450:ok",
       {},
       {"2 Failed to get kr shutdown status for queue: Error response for GET "
        "/kav-kr-shutdown-law/v1/queue-status/450: gone",
        "2 Failed to get Kr shutdown restriction for queueId: 450"}},
      {"champions are counted for the signed-in player only",
       nullptr,
       QueryBody({1002, kSelf}, {420}),
       "420:PlayerLevelRestriction{playerLevelRestriction=30}[1002]",
       {"/kav-champions/v1/inventories/1001/champions-minimal"},
       {}},
      {"too few champions for a ranked queue",
       [](host::Scenario& s) { QueueOf(s, 420).champions_required_to_play = 26; },
       QueryBody({kSelf}, {420, 430}),
       "420:PlayerAvailableChampionRestriction{playerAvailableChampionRestriction=26}[1001] 430:ok",
       {"/kav-champions/v1/inventories/1001/champions-minimal"},
       {}},
      {"no ranked or position queue, no inventory",
       nullptr,
       QueryBody({kSelf}, {430, 450}),
       "430:ok 450:ok",
       {},
       {}},
      {"no queue ids", nullptr, QueryBody({kSelf}, {}), "", {}, {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    host::Scenario scenario = BaseScenario();
    if (row.setup) row.setup(scenario);
    host::ScenarioHost host(scenario);
    ASSERT_TRUE(host.Load()) << host.error();
    host.host().ClearRecords();
    const host::CallOutcome outcome = host.Call("POST", kV1, row.body);
    ASSERT_TRUE(outcome.ok()) << outcome.ToText();
    EXPECT_EQ(Summarize(outcome.body), row.answer);

    std::vector<std::string> inventories;
    for (const std::string& url : host.requested_urls()) {
      if (url.ends_with("/champions-minimal")) inventories.push_back(url);
    }
    EXPECT_EQ(inventories, row.requested_inventories);
    const std::vector<std::string> errors = LogsStartingWith(host, "Failed");
    ASSERT_EQ(errors.size(), row.errors.size());
    for (size_t i = 0; i < errors.size(); ++i) {
      EXPECT_TRUE(errors[i].starts_with(row.errors[i])) << errors[i];
    }
    if (row.answer.empty()) {
      EXPECT_TRUE(host.requested_urls().empty());
    }
  }
}

// A champion with the properties named by the words of `flags`: purchased,
// owned, reward (free-to-play reward), rented, free (free to play), ranked
// (enabled for ranked play).
host::CollectionsChampion Champion(std::string_view flags,
                                   std::vector<std::string> disabled_queues = {}) {
  auto has = [flags](std::string_view word) {
    return (" " + std::string(flags) + " ").find(" " + std::string(word) + " ") !=
           std::string::npos;
  };
  host::CollectionsChampion champion;
  champion.disabled_queues = std::move(disabled_queues);
  champion.purchased = has("purchased") ? 1600000000 : 0;
  champion.owned = has("owned");
  champion.free_to_play_reward = has("reward");
  champion.rented = has("rented");
  champion.free_to_play = has("free");
  champion.ranked_play_enabled = has("ranked");
  return champion;
}

TEST(LocalRulesTest, CountsOnlyChampionsAvailableForTheQueue) {
  struct Row {
    const char* name;
    host::CollectionsChampion champion;
    bool ranked;
    bool free_allowed;
    bool available;
  };
  const std::vector<Row> rows = {
      {"purchased", Champion("purchased ranked"), true, false, true},
      {"owned", Champion("owned"), false, false, true},
      {"free reward", Champion("reward"), false, false, true},
      {"rented", Champion("rented ranked"), true, false, true},
      {"free to play where allowed", Champion("free"), false, true, true},
      {"free to play where not allowed", Champion("free"), false, false, false},
      {"not playable at all", Champion("ranked"), false, true, false},
      {"disabled in this queue type", Champion("owned", {"ARAM", "RANKED_SOLO_5x5"}), false, false,
       false},
      {"disabled in another queue type", Champion("owned", {"ranked_solo_5x5"}), false, false,
       true},
      {"ranked queue without ranked play", Champion("owned"), true, false, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    host::Scenario scenario = BaseScenario();
    host::Queue& queue = QueueOf(scenario, 420);
    queue.is_ranked = row.ranked;
    queue.are_free_champions_allowed = row.free_allowed;
    queue.champions_required_to_play = 1;
    scenario.champions[kSelf].inventory = std::vector<host::CollectionsChampion>{row.champion};
    host::ScenarioHost host(scenario);
    ASSERT_TRUE(host.Load()) << host.error();
    const host::CallOutcome outcome = host.Call("POST", kV1, QueryBody({kSelf}, {420}));
    ASSERT_TRUE(outcome.ok()) << outcome.ToText();
    EXPECT_EQ(Summarize(outcome.body),
              row.available
                  ? "420:ok"
                  : "420:PlayerAvailableChampionRestriction{playerAvailableChampionRestriction=1}"
                    "[1001]");
  }
}

}  // namespace
}  // namespace kav::eligibility_test
