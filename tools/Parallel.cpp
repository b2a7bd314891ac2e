#include "tools/Parallel.h"

#include <omp.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <thread>

namespace orvane {

namespace {

std::atomic<int> chosenThreads{0};

int DefaultThreads() {
    if (const char* text = std::getenv("ORVANE_THREADS")) {
        char* end = nullptr;
        const long value = std::strtol(text, &end, 10);
        if (end != text && *end == '\0' && value > 0 && value <= 1024) {
            return static_cast<int>(value);
        }
    }
    cpu_set_t cores;
    if (sched_getaffinity(0, sizeof cores, &cores) == 0) {
        return std::max(1, CPU_COUNT(&cores));
    }
    return std::max(1u, std::thread::hardware_concurrency());
}

}  // namespace

int ThreadCount() {
    const int chosen = chosenThreads.load();
    return chosen > 0 ? chosen : DefaultThreads();
}

void SetThreadCount(int threads) { chosenThreads.store(std::max(threads, 0)); }

void ParallelFor(int count, int grain, const std::function<void(int begin, int end)>& body) {
    if (count <= 0) {
        return;
    }
    grain = std::max(grain, 1);
    const int pieces = (count - 1) / grain + 1;
    const int threads = std::min(ThreadCount(), pieces);
    if (threads <= 1) {
        for (int piece = 0; piece < pieces; ++piece) {
            body(piece * grain, std::min(count, (piece + 1) * grain));
        }
        return;
    }
    std::exception_ptr failure;
    std::mutex failureLock;
#pragma omp parallel for num_threads(threads) schedule(dynamic, 1)
    for (int piece = 0; piece < pieces; ++piece) {
        try {
            body(piece * grain, std::min(count, (piece + 1) * grain));
        } catch (...) {
            const std::lock_guard<std::mutex> hold(failureLock);
            if (!failure) {
                failure = std::current_exception();
            }
        }
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

}  // namespace orvane
