// The eligibility resource as the host sees it: GET
// "/kav-queue-eligibility/v3/eligibility" for the signed-in player, through
// the plugin's C ABI (the resource table's call function and the response's
// release function), with the plugin loaded by the reference host among
// simulated peers whose gatekeeper answers during the POST.
//
//   CachedSelfEligibility/N/M the cache holds N queues and the call asks for
//                             M of them: no request leaves the plugin.
//   RebuiltSelfEligibility/N  every call finds the cache dirty (a player
//                             level change, applied outside the timing) and
//                             rebuilds it over N queues: the shutdown-law
//                             read, N/20 gatekeeper calls and the merge of
//                             their answers; the call asks for two queues.
// N = 50, 100, 200, 400 shows how the cost grows with the queue list.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "host/scenario.h"
#include "host/scenario_host.h"
#include "kav/plugin_host.h"

namespace kav::bench {
namespace {

constexpr uint64_t kSelf = 1001;
constexpr int32_t kFirstQueueId = 400;
constexpr char kV3[] = "/kav-queue-eligibility/v3/eligibility";

// `count` available queues with ids from kFirstQueueId; the gatekeeper
// restricts every tenth one for the signed-in player.
host::Scenario QueueScenario(int count) {
  host::Scenario scenario;
  scenario.session = host::LoginSession{"SUCCEEDED", kSelf, 5001};
  scenario.practice_game_enabled = host::PlatformSwitch::Of(true);
  scenario.gate_keeper_enabled = host::PlatformSwitch::Of(true);
  scenario.summoner_levels = {{kSelf, 30}};
  host::ChampionData champions;
  champions.playable_counts = host::ChampionPlayableCounts{25, 2, 10, 1};
  scenario.champions[kSelf] = champions;
  scenario.gatekeeper.delivery = host::ProxyDelivery::kDuringPost;
  std::vector<host::Queue> queues;
  for (int i = 0; i < count; ++i) {
    host::Queue queue;
    queue.id = kFirstQueueId + i;
    queue.type = "QUEUE_" + std::to_string(queue.id);
    queue.maximum_participant_list_size = 5;
    queue.min_level = 1;
    queue.max_level = 500;
    queue.allowable_premade_sizes = {1, 2, 5};
    queues.push_back(queue);
    if (i % 10 == 0) {
      host::GatekeeperRestriction restriction;
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

std::string V3Url(int first_queue, int count) {
  std::string url = std::string(kV3) + "?summonerIds=[" + std::to_string(kSelf) + "]&queueIds=[";
  for (int i = 0; i < count; ++i) {
    if (i > 0) url += ",";
    url += std::to_string(first_queue + i);
  }
  return url + "]";
}

// One call of a resource through the plugin's C ABI, as the host makes it.
class DirectCall {
 public:
  DirectCall(const KavResourceEntry& entry, std::string url) : url_(std::move(url)) {
    call_ = entry.call;
    request_.method = KAV_METHOD_GET;
    request_.url = url_.c_str();
    request_.user_data = entry.user_data;
  }

  // False when the plugin answered an error.
  bool Run() {
    KavResponse response{};
    call_(&response, &request_);
    const bool ok = response.error == nullptr;
    if (response.release != nullptr) response.release(&response);
    return ok;
  }

 private:
  std::string url_;
  KavCallFn call_ = nullptr;
  KavRequest request_{};
};

// A loaded plugin whose cache for the signed-in player is built.
struct LoadedPlugin {
  explicit LoadedPlugin(int queue_count) : host(QueueScenario(queue_count)) {}

  bool Start(benchmark::State& state) {
    if (!host.Load()) {
      state.SkipWithError(host.error().c_str());
      return false;
    }
    entry = host.host().FindResourceEntry(kV3, KAV_METHOD_GET);
    if (entry == nullptr) {
      state.SkipWithError("no v3 eligibility resource");
      return false;
    }
    return true;
  }

  host::ScenarioHost host;
  const KavResourceEntry* entry = nullptr;
};

void CachedSelfEligibility(benchmark::State& state) {
  const int queue_count = static_cast<int>(state.range(0));
  const int asked_count = static_cast<int>(state.range(1));
  LoadedPlugin plugin(queue_count);
  if (!plugin.Start(state)) return;
  DirectCall call(*plugin.entry, V3Url(kFirstQueueId, asked_count));
  if (!call.Run()) state.SkipWithError("the first call failed");
  const size_t requests = plugin.host.host().requests().size();
  for (auto _ : state) {
    benchmark::DoNotOptimize(call.Run());
  }
  if (plugin.host.host().requests().size() != requests) {
    state.SkipWithError("a cached call made requests");
  }
  state.counters["calls/s"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["queues"] = queue_count;
  state.counters["asked"] = asked_count;
}

void RebuiltSelfEligibility(benchmark::State& state) {
  const int queue_count = static_cast<int>(state.range(0));
  LoadedPlugin plugin(queue_count);
  if (!plugin.Start(state)) return;
  DirectCall call(*plugin.entry, V3Url(kFirstQueueId, 2));
  uint32_t level = 30;
  for (auto _ : state) {
    state.PauseTiming();
    plugin.host.host().ClearRecords();
    plugin.host.Apply(host::SetSummonerLevel{++level});  // marks the cache dirty
    state.ResumeTiming();
    if (!call.Run()) {
      state.SkipWithError("a rebuild failed");
      break;
    }
  }
  state.counters["calls/s"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["queues"] = queue_count;
}

BENCHMARK(CachedSelfEligibility)
    ->Args({50, 2})
    ->Args({50, 50})
    ->Args({100, 100})
    ->Args({200, 200})
    ->Args({400, 400});
BENCHMARK(RebuiltSelfEligibility)
    ->Arg(50)
    ->Arg(100)
    ->Arg(200)
    ->Arg(400)
    ->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace kav::bench
