// The main function of the parsing benchmarks. Freed memory stays with the process, for every
// library alike: on this VM the first touch of a page that the process gave back costs several
// times more from one run to the next, and that cost would otherwise swamp the differences
// being measured. --keep-freed-memory=0 measures with the allocator's defaults.
#ifndef QUORLIN_BENCH_BENCH_MAIN_HPP
#define QUORLIN_BENCH_BENCH_MAIN_HPP

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <string_view>
#include <vector>

namespace quorlin::bench {

// The fastest repetition: other work on a shared VM only ever adds time, so with repetitions the
// minimum is the steadiest figure to set beside a peer's.
inline double fastest(const std::vector<double>& repetitions) {
  return repetitions.empty() ? 0.0 : *std::min_element(repetitions.begin(), repetitions.end());
}

// Milliseconds, with the fastest repetition among the aggregates: BENCHMARK(f)->Apply(this).
inline void in_milliseconds_with_fastest(benchmark::internal::Benchmark* benchmark) {
  benchmark->Unit(benchmark::kMillisecond)->ComputeStatistics("min", fastest);
}

inline int run_benchmarks(int argc, char** argv) {
  const auto last = std::remove_if(argv + 1, argv + argc, [](const char* argument) {
    return std::string_view(argument) == "--keep-freed-memory=0";
  });
  if (last == argv + argc) {
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
  }
  argc = static_cast<int>(last - argv);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

}  // namespace quorlin::bench

#endif  // QUORLIN_BENCH_BENCH_MAIN_HPP
