#ifndef ORVANE_TOOLS_PARALLEL_H
#define ORVANE_TOOLS_PARALLEL_H

#include <functional>

namespace orvane {

// The number of threads the library's parallel work uses: the last SetThreadCount,
// else ORVANE_THREADS when it holds a positive number, else the cores this process
// may run on.
int ThreadCount();
// n >= 1 fixes the count; 0 returns to the default. A negative n is taken as 0.
void SetThreadCount(int threads);

// Runs body(begin, end) over the items 0 ... count - 1, cut into pieces of `grain`
// items, on up to ThreadCount() threads; each item lies in exactly one piece. Work is
// split only where each item's result does not depend on the others, so results are
// the same for any thread count. The first exception a piece throws is rethrown here
// once every piece has ended.
void ParallelFor(int count, int grain, const std::function<void(int begin, int end)>& body);

}  // namespace orvane

#endif
