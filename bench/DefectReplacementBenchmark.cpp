// Defect replacement on a full 3121 x 3121 float frame with 0.3 % of its pixels
// flagged: isolated pixels, pairs, 3 x 3 clusters, two full lines and columns, and
// partial ones. Counter "vs_memcpy": the time per frame over the time of a memcpy
// of the frame's bytes, measured in the same program.

#include "correction/DefectReplacement.h"

#include <benchmark/benchmark.h>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <random>
#include <vector>

namespace {

constexpr int kSide = 3121;

ImagePtr<float> PanelFrame() {
    auto frame = boost::make_shared<ImageAcquisition<float>>(kSide, kSide);
    float* p = frame->GetData();
    for (int y = 0; y < kSide; ++y)
        for (int x = 0; x < kSide; ++x)
            p[static_cast<size_t>(y) * kSide + x] = 1000.0f + 0.1f * x + 0.05f * y + static_cast<float>((x * 7 + y * 13) % 17);
    return frame;
}

ImagePtr<unsigned char> PanelMap() {
    auto map = boost::make_shared<ImageAcquisition<unsigned char>>(kSide, kSide);
    unsigned char* m = map->GetData();
    auto flag = [m](int x, int y) { m[static_cast<size_t>(y) * kSide + x] = 1; };
    for (int x = 0; x < kSide; ++x) flag(x, 700), flag(x, 2400);
    for (int y = 0; y < kSide; ++y) flag(900, y), flag(2200, y);
    for (int x = 100; x < 1600; ++x) flag(x, 1200);
    for (int x = 1500; x < 3000; ++x) flag(x, 2800);
    for (int y = 300; y < 1500; ++y) flag(1700, y);
    std::mt19937 random(3121);
    auto place = [&random] { return static_cast<int>(random() % (kSide - 2)); };
    for (int i = 0; i < 40; ++i) {
        const int x = place(), y = place();
        for (int dy = 0; dy < 3; ++dy)
            for (int dx = 0; dx < 3; ++dx) flag(x + dx, y + dy);
    }
    for (int i = 0; i < 800; ++i) {
        const int x = place(), y = place();
        flag(x, y);
        flag(x + 1, y);
    }
    const size_t target = static_cast<size_t>(0.003 * kSide * kSide);
    while (static_cast<size_t>(std::count(m, m + map->GetPixelCount(), 1)) < target) {
        for (int i = 0; i < 1000; ++i) flag(place(), place());
    }
    return map;
}

// The best of a few copies of the frame's bytes, in seconds.
double MemcpySeconds(const ImagePtr<float>& frame) {
    std::vector<float> target(static_cast<size_t>(frame->GetPixelCount()));
    double best = 1e9;
    for (int i = 0; i < 10; ++i) {
        const auto start = std::chrono::steady_clock::now();
        std::memcpy(target.data(), frame->GetData(), target.size() * sizeof(float));
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

void RunReplacement(benchmark::State& state, const ImagePtr<unsigned char>& map) {
    const auto frame = PanelFrame();
    const double memcpySeconds = MemcpySeconds(frame);
    const DefectReplacement replacement;
    DefectReplacement::Result result;
    // Replacement reads only good pixels, so repeating it on one frame is the same work.
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        result = replacement.Replace(frame, map);
        benchmark::ClobberMemory();
    }
    const double perFrame = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() /
                            static_cast<double>(state.iterations());
    state.counters["vs_memcpy"] = perFrame / memcpySeconds;
    state.counters["memcpy_ms"] = memcpySeconds * 1e3;
    state.counters["isolated"] = result.replacedIsolated;
    state.counters["runs"] = result.replacedInRuns;
    state.counters["clusters"] = result.replacedInClusters;
    state.counters["unreplaced"] = result.unreplaced;
}

void BM_ReplaceDefects(benchmark::State& state) {
    RunReplacement(state, PanelMap());
}
BENCHMARK(BM_ReplaceDefects)->Unit(benchmark::kMillisecond)->UseRealTime();

// The scan alone: a map with nothing flagged.
void BM_ReplaceDefectsCleanMap(benchmark::State& state) {
    RunReplacement(state, boost::make_shared<ImageAcquisition<unsigned char>>(kSide, kSide));
}
BENCHMARK(BM_ReplaceDefectsCleanMap)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
