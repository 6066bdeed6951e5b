// The plugin's counting allocation against the bare system heap, on the
// pattern of an answer to the host: a burst of small blocks (map arrays,
// key copies) allocated, then all freed.
//
//   SystemHeapBurst/N    malloc and free of N blocks (the baseline)
//   PluginHeapBurst/N    the same through PluginAllocate and PluginFree:
//                        the counters and the per-thread block cache
//   UncachedPluginHeapBurst/N  counting straight over the system heap, as
//                        without the block cache
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <vector>

#include "platform/allocation.h"

namespace kav::bench {
namespace {

// Sizes in the proportions of an eligibility answer: mostly key copies,
// some map arrays of 3 or 4 entries, a few larger arrays.
size_t BlockSize(size_t index) {
  switch (index % 6) {
    case 0:
      return 51;
    case 5:
      return index % 60 == 5 ? 600 : 13;
    default:
      return 9 + index % 4;
  }
}

template <class Allocate, class Free>
void Burst(benchmark::State& state, Allocate allocate, Free free) {
  const size_t count = static_cast<size_t>(state.range(0));
  std::vector<void*> blocks(count);
  for (auto _ : state) {
    for (size_t index = 0; index < count; ++index) blocks[index] = allocate(BlockSize(index));
    benchmark::DoNotOptimize(blocks.data());
    for (void* block : blocks) free(block);
  }
  state.counters["blocks/s"] = benchmark::Counter(static_cast<double>(state.iterations() * count),
                                                  benchmark::Counter::kIsRate);
}

void SystemHeapBurst(benchmark::State& state) {
  Burst(
      state, [](size_t size) { return std::malloc(size); }, [](void* block) { std::free(block); });
}

void PluginHeapBurst(benchmark::State& state) {
  Burst(
      state, [](size_t size) { return PluginAllocate(size); },
      [](void* block) { PluginFree(block); });
}

void UncachedPluginHeapBurst(benchmark::State& state) {
  AllocationCounters counters;
  CountingContext context{SystemAllocationTable(), &counters};
  const AllocationTable previous = InstallAllocationTable(CountingAllocationTable(&context));
  PluginHeapBurst(state);
  InstallAllocationTable(previous);
}

BENCHMARK(SystemHeapBurst)->Arg(300);
BENCHMARK(PluginHeapBurst)->Arg(300);
BENCHMARK(UncachedPluginHeapBurst)->Arg(300);

}  // namespace
}  // namespace kav::bench
