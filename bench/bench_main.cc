// Entry point of kav_bench: every bench/*.cc registers its benchmarks with
// Google Benchmark; this file only runs them.
#include <benchmark/benchmark.h>

BENCHMARK_MAIN();
