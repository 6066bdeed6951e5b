// Message formatting and logging:
//   FormatMessage against snprintf writing the same three values;
//   FormatNamedMessage of a typical failure text (named to positional, then
//   positional formatting, recording three parameters);
//   Log of a record the logger drops by level (the cost of a disabled log
//   line), and of one that is formatted and handed to a target that formats
//   its line and discards it.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "diagnostics/format.h"
#include "diagnostics/log_target.h"
#include "diagnostics/logging.h"

namespace kav {
namespace {

void BM_FormatMessage(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(FormatMessage("Queue %1 of summoner %2 is closed: '%3'", 420,
                                           uint64_t{123456789}, "QUEUE_DODGER"));
  }
}
BENCHMARK(BM_FormatMessage);

void BM_Snprintf(benchmark::State& state) {
  char buffer[4096];
  for (auto _ : state) {
    std::snprintf(buffer, sizeof(buffer), "Queue %d of summoner %llu is closed: '%s'", 420,
                  123456789ull, "QUEUE_DODGER");
    benchmark::DoNotOptimize(buffer);
  }
}
BENCHMARK(BM_Snprintf);

void BM_FormatNamedMessage(benchmark::State& state) {
  const NamedArgument arguments[] = {"GET", "/kav-summoner/v1/current-summoner", "Not found"};
  for (auto _ : state) {
    FormatParameters parameters;
    benchmark::DoNotOptimize(
        FormatNamedMessage("Error response for {method} {url}: {error}", arguments, parameters));
  }
}
BENCHMARK(BM_FormatNamedMessage);

class DiscardingLogTarget final : public LogTarget {
 public:
  DiscardingLogTarget() { ConnectOutput(); }
  ~DiscardingLogTarget() override { Detach(); }
  bool Output(const LogRecord& record) override {
    char line[kLogBufferSize];
    benchmark::DoNotOptimize(FormatLine(line, sizeof(line), record));
    return true;
  }
};

void BM_LogDroppedByLevel(benchmark::State& state) {
  AcquireLogger();
  for (auto _ : state) Log(kLogOkay, 0, "dropped %d", 1);
  ReleaseLogger();
}
BENCHMARK(BM_LogDroppedByLevel);

void BM_LogWritten(benchmark::State& state) {
  AcquireLogger();
  UnregisterBuiltInLogTargets();
  {
    DiscardingLogTarget target;
    target.Configure({});
    for (auto _ : state) Log(kLogWarn, kCategoryDbg, "written %d of %s", 1, "many");
  }
  ReleaseLogger();
}
BENCHMARK(BM_LogWritten);

}  // namespace
}  // namespace kav
