// What a cached answer costs the plugin's heap, read through its
// GetMemoryStatistics around calls that the host makes through the C ABI:
// the signed-in player's eligibility, served from the cache, makes at most a
// few allocations, and once the host has released the response the plugin's
// bytes in use are back where they were.
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "host/scenario.h"
#include "host/scenario_host.h"
#include "kav/plugin_host.h"
#include "signed_in_scenario.h"

namespace kav::host {
namespace {

constexpr uint64_t kSelf = 1001;
constexpr int32_t kFirstQueueId = 400;
constexpr int kQueueCount = 50;
constexpr char kV3[] = "/kav-queue-eligibility/v3/eligibility";

// kQueueCount available queues; the gatekeeper restricts every tenth one
// for the signed-in player, half of them for a minute.
Scenario QueueScenario() {
  Scenario scenario = SignedInScenario(kSelf);
  std::vector<Queue> queues;
  for (int i = 0; i < kQueueCount; ++i) {
    Queue queue;
    queue.id = kFirstQueueId + i;
    queue.type = "QUEUE_" + std::to_string(queue.id);
    queue.maximum_participant_list_size = 5;
    queue.min_level = 1;
    queue.max_level = 500;
    queue.allowable_premade_sizes = {1, 2, 5};
    queues.push_back(queue);
    if (i % 10 == 0) {
      GatekeeperRestriction restriction;
      restriction.queue_id = queue.id;
      restriction.summoner_id = kSelf;
      restriction.reason = i % 20 == 0 ? "MIN_LEVEL_RESTRICTED" : "BINGE_PREVENTION";
      restriction.remaining_millis = i % 20 == 0 ? 0 : 60'000;
      scenario.gatekeeper.restrictions.push_back(restriction);
    }
  }
  scenario.queues = std::move(queues);
  return scenario;
}

std::string IdList(int first, int count) {
  std::string list = "[";
  for (int i = 0; i < count; ++i) {
    if (i > 0) list += ",";
    list += std::to_string(first + i);
  }
  return list + "]";
}

TEST(AnswerMemoryTest, CachedAnswersCostAFewAllocationsAndGiveAllBack) {
  struct Row {
    const char* name;
    int asked;  // queues asked for, from the first
    // The answer's records and texts take one of these; the others are the
    // call's own (query parsing, argument lists, the copy of the cached
    // entries that the handler answers with).
    uint64_t most_allocations;
  };
  const Row rows[] = {
      {"all 50 queues", kQueueCount, 3},
      {"2 of the 50 queues", 2, 3},
  };

  ScenarioHost host(QueueScenario());
  ASSERT_TRUE(host.Load()) << host.error();
  const KavResourceEntry* entry = host.host().FindResourceEntry(kV3, KAV_METHOD_GET);
  ASSERT_NE(entry, nullptr);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string url = std::string(kV3) + "?summonerIds=[" + std::to_string(kSelf) +
                            "]&queueIds=" + IdList(kFirstQueueId, row.asked);
    KavRequest request{};
    request.method = KAV_METHOD_GET;
    request.url = url.c_str();
    request.user_data = entry->user_data;
    const auto call = [&](KavResponse& response) {
      response = KavResponse{};
      entry->call(&response, &request);
      return response.error == nullptr;
    };
    // The first call fills the cache and lets the pools grow that are kept
    // for reuse; the second is measured.
    KavResponse response;
    ASSERT_TRUE(call(response));
    const size_t requests = host.host().requests().size();
    response.release(&response);

    const MemoryStatisticsWords before = host.host().GetMemoryStatistics();
    ASSERT_TRUE(call(response));
    const MemoryStatisticsWords answered = host.host().GetMemoryStatistics();
    ASSERT_EQ(response.body.kind, static_cast<uint32_t>(KAV_VALUE_ARRAY));
    EXPECT_EQ(response.body.payload.ref.size, static_cast<uint32_t>(row.asked));
    response.release(&response);
    const MemoryStatisticsWords released = host.host().GetMemoryStatistics();

    EXPECT_EQ(host.host().requests().size(), requests) << "served from the cache";
    EXPECT_LE(answered.allocations() - before.allocations(), row.most_allocations);
    EXPECT_EQ(released.BytesInUse(), before.BytesInUse());
    EXPECT_EQ(released.allocations() - released.frees(), before.allocations() - before.frees());
  }
}

}  // namespace
}  // namespace kav::host
