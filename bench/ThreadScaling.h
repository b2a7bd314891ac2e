#ifndef ORVANE_BENCH_THREADSCALING_H
#define ORVANE_BENCH_THREADSCALING_H

// Benchmarks that take the thread count as their argument: ->Arg(1)->Arg(2).
// RunWithThreads sets the library's thread count to state.range(0), times the loop
// and, for more than one thread, reports "speedup" over the one-thread run of the
// same benchmark (which must be listed first). It gives the seconds per iteration.

#include "tools/Parallel.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <map>
#include <string>

namespace orvane {
namespace bench {

template <typename Iteration>
double RunWithThreads(benchmark::State& state, const std::string& name, Iteration iteration) {
    static std::map<std::string, double> oneThreadSeconds;
    const int threads = static_cast<int>(state.range(0));
    orvane::SetThreadCount(threads);
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        iteration();
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() /
                           static_cast<double>(state.iterations());
    orvane::SetThreadCount(0);
    if (threads == 1) {
        oneThreadSeconds[name] = seconds;
    } else if (oneThreadSeconds.count(name)) {
        state.counters["speedup"] = oneThreadSeconds[name] / seconds;
    }
    state.counters["threads"] = threads;
    return seconds;
}

}  // namespace bench
}  // namespace orvane

#endif
