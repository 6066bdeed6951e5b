// The signed-in player's cached eligibility, answered through the C ABI,
// follows every change that rebuilds the cache: after a change, the
// answer of a plugin that had answered from the cache before is the answer
// of a plugin that starts with the changed state.
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/scenario.h"
#include "host/scenario_host.h"
#include "signed_in_scenario.h"

namespace kav::host {
namespace {

constexpr uint64_t kSelf = 1001;
constexpr int32_t kFirstQueueId = 430;
constexpr int kQueueCount = 12;  // 430 to 441: queue 440 has its size rule

Queue MakeQueue(int32_t id) {
  Queue queue;
  queue.id = id;
  queue.type = "QUEUE_" + std::to_string(id);
  queue.maximum_participant_list_size = 5;
  queue.min_level = 1;
  queue.max_level = 500;
  queue.allowable_premade_sizes = {1, 2, 5};
  return queue;
}

GatekeeperRestriction Restriction(int32_t queue_id, const char* reason) {
  GatekeeperRestriction restriction;
  restriction.queue_id = queue_id;
  restriction.summoner_id = kSelf;
  restriction.reason = reason;
  return restriction;  // no remaining time: the answers do not depend on the clock
}

Scenario BaseScenario() {
  Scenario scenario = SignedInScenario(kSelf);
  scenario.gatekeeper.restrictions = {Restriction(431, "MIN_LEVEL_RESTRICTED"),
                                      Restriction(433, "BINGE_PREVENTION")};
  std::vector<Queue> queues;
  for (int i = 0; i < kQueueCount; ++i) queues.push_back(MakeQueue(kFirstQueueId + i));
  scenario.queues = queues;
  return scenario;
}

std::string V3Url(const std::vector<int32_t>& queue_ids) {
  std::string url = "/kav-queue-eligibility/v3/eligibility?summonerIds=[" + std::to_string(kSelf) +
                    "]&queueIds=[";
  for (size_t i = 0; i < queue_ids.size(); ++i) {
    url += (i > 0 ? "," : "") + std::to_string(queue_ids[i]);
  }
  return url + "]";
}

TEST(CachedAnswerTest, AnswersFollowEveryChangeOfTheCache) {
  struct Row {
    const char* name;
    // The change, made to the scenario of the plugin that starts with it
    // and applied as steps to the plugin that answered before.
    std::function<void(Scenario&)> change;
    std::function<std::vector<ScenarioAction>(const Scenario&)> steps;
  };
  const auto gatekeeper_then_level = [](const Scenario& changed) {
    return std::vector<ScenarioAction>{SetGatekeeper{changed.gatekeeper}, SetSummonerLevel{31}};
  };
  const Row rows[] = {
      {"nothing but the level", [](Scenario&) {},
       [](const Scenario&) { return std::vector<ScenarioAction>{SetSummonerLevel{31}}; }},
      {"a restriction lifted",
       [](Scenario& scenario) { scenario.gatekeeper.restrictions.pop_back(); },
       gatekeeper_then_level},
      {"a restriction moved to another queue",
       [](Scenario& scenario) { scenario.gatekeeper.restrictions.back().queue_id = 436; },
       gatekeeper_then_level},
      {"a reason changed",
       [](Scenario& scenario) { scenario.gatekeeper.restrictions.front().reason = "RANKED_BAN"; },
       gatekeeper_then_level},
      {"a queue disabled, as many queues as before",
       [](Scenario& scenario) { (*scenario.queues)[2].queue_availability = "PlatformDisabled"; },
       [](const Scenario& changed) {
         return std::vector<ScenarioAction>{SetQueues{*changed.queues}};
       }},
      {"a queue gone",
       [](Scenario& scenario) { scenario.queues->erase(scenario.queues->begin() + 1); },
       [](const Scenario& changed) {
         return std::vector<ScenarioAction>{SetQueues{*changed.queues}};
       }},
  };
  std::vector<int32_t> every_queue;
  for (int i = 0; i < kQueueCount; ++i) every_queue.push_back(kFirstQueueId + i);
  const std::vector<std::vector<int32_t>> asked = {every_queue, {431, 433, 436, 440}, {432}};

  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Scenario changed = BaseScenario();
    row.change(changed);
    changed.summoner_levels[kSelf] = 31;

    ScenarioHost answered_before(BaseScenario());
    ASSERT_TRUE(answered_before.Load()) << answered_before.error();
    for (const std::vector<int32_t>& queues : asked) {
      ASSERT_TRUE(answered_before.Call("GET", V3Url(queues)).ok());
    }
    for (const ScenarioAction& step : row.steps(changed)) answered_before.Apply(step);

    ScenarioHost fresh(changed);
    ASSERT_TRUE(fresh.Load()) << fresh.error();
    for (const std::vector<int32_t>& queues : asked) {
      SCOPED_TRACE(V3Url(queues));
      const CallOutcome expected = fresh.Call("GET", V3Url(queues));
      ASSERT_TRUE(expected.ok()) << *expected.error;
      const CallOutcome answer = answered_before.Call("GET", V3Url(queues));
      ASSERT_TRUE(answer.ok()) << *answer.error;
      EXPECT_EQ(answer.body_json, expected.body_json);
      // Asked again, from the cache as it now stands.
      EXPECT_EQ(answered_before.Call("GET", V3Url(queues)).body_json, expected.body_json);
    }
  }
}

}  // namespace
}  // namespace kav::host
