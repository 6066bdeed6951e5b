// Complete calls through the resource table: a request record in, a response
// record out, released, beside a direct call of the same handler in the same
// run. Two calls: the flag of the initial-configuration-complete resource,
// and a v3 eligibility call binding ten queue ids and one summoner id from
// the query, with a handler that answers at once (one eligible entry per
// queue).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "binding/type_registry.h"
#include "kav/plugin_host.h"
#include "plugin/maybe_type.h"
#include "queue_eligibility/api_types.h"
#include "routing/dispatch.h"

namespace kav {
namespace {

using queue_eligibility::api::Eligibility;
using EligibilityList = std::vector<Eligibility>;

constexpr const char* kFlagPath = "/kav-queue-eligibility/v1/initial-configuration-complete";
constexpr const char* kV3Path = "/kav-queue-eligibility/v3/eligibility";
constexpr const char* kV3Url =
    "/kav-queue-eligibility/v3/eligibility?summonerIds=[1001]"
    "&queueIds=[400,420,430,440,450,700,830,840,850,1700]";

bool configuration_complete = true;

MaybeType<Failure, bool> AnswerFlag() { return configuration_complete; }

MaybeType<Failure, EligibilityList> AnswerAtOnce(const std::vector<uint64_t>& summoner_ids,
                                                 const std::vector<int32_t>& queue_ids) {
  EligibilityList answer(queue_ids.size());
  for (size_t i = 0; i < queue_ids.size(); ++i) {
    answer[i].queue_id = queue_ids[i];
    answer[i].eligible = !summoner_ids.empty();
  }
  return answer;
}

// The plugin's registrations of the two functions, as the module makes them.
class CallFixture {
 public:
  CallFixture() : dispatcher_(registry_) {
    registry_.InitializeRegistry();
    queue_eligibility::ServiceTypeTables tables;
    queue_eligibility::RegisterEligibilityApiTypes(registry_, "KavQueueEligibility",
                                                   {"Plugins", "Plugin kav-queue-eligibility"},
                                                   tables);
    dispatcher_.RegisterGet(kFlagPath, &AnswerFlag);
    dispatcher_.RegisterGet(kV3Path, &AnswerAtOnce)
        .AddQueryParameter("summonerIds", "The party")
        .AddQueryParameter("queueIds", "The queues");
    table_ = dispatcher_.BuildResourceTable();
  }

  const KavResourceEntry& Entry(const char* path) const {
    for (const KavResourceEntry* e = table_->entries; e != nullptr; e = e->next) {
      if (std::string(e->path_template) == path) return *e;
    }
    std::abort();
  }

 private:
  TypeRegistry registry_;
  Dispatcher dispatcher_;
  const KavResourceTable* table_ = nullptr;
};

CallFixture& Fixture() {
  static CallFixture fixture;
  return fixture;
}

void CallThroughTable(benchmark::State& state, const char* path, const char* url) {
  const KavResourceEntry& entry = Fixture().Entry(path);
  KavRequest request{};
  request.method = KAV_METHOD_GET;
  request.url = url;
  request.user_data = entry.user_data;
  request.content_type = "";
  KavCallFn call = entry.call;
  for (auto _ : state) {
    KavResponse response{};
    call(&response, &request);
    if (response.error != nullptr) {
      state.SkipWithError(response.error);
      response.release(&response);
      break;
    }
    benchmark::DoNotOptimize(response.body.kind);
    response.release(&response);
  }
  state.counters["calls/s"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_FlagCallThroughTable(benchmark::State& state) {
  CallThroughTable(state, kFlagPath, kFlagPath);
}
BENCHMARK(BM_FlagCallThroughTable);

void BM_FlagHandlerDirect(benchmark::State& state) {
  for (auto _ : state) {
    auto answer = AnswerFlag();
    benchmark::DoNotOptimize(answer.Value());
  }
  state.counters["calls/s"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_FlagHandlerDirect);

void BM_V3CallThroughTable(benchmark::State& state) { CallThroughTable(state, kV3Path, kV3Url); }
BENCHMARK(BM_V3CallThroughTable);

void BM_V3HandlerDirect(benchmark::State& state) {
  const std::vector<uint64_t> summoners{1001};
  const std::vector<int32_t> queues{400, 420, 430, 440, 450, 700, 830, 840, 850, 1700};
  for (auto _ : state) {
    auto answer = AnswerAtOnce(summoners, queues);
    benchmark::DoNotOptimize(answer.Value().data());
  }
  state.counters["calls/s"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_V3HandlerDirect);

}  // namespace
}  // namespace kav
