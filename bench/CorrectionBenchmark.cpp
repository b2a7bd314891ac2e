// The correction stage on full 3121 x 3121 frames, with 0.3 % of the pixels flagged:
// isolated pixels, pairs, 3 x 3 clusters, two full lines and columns, and partial
// ones. Counter "vs_memcpy": the time per frame over the time of a memcpy of the
// bytes the pass must move, measured in the same program: the float frame for the
// replacement alone; frame in, offset, gain codes and frame out for the chain.

#include "ThreadScaling.h"
#include "correction/CorrectionChain.h"
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

// The best of a few memcpys of `bytes` bytes, in seconds.
double MemcpySeconds(size_t bytes) {
    std::vector<char> source(bytes, 1), target(bytes);
    double best = 1e9;
    for (int i = 0; i < 10; ++i) {
        const auto start = std::chrono::steady_clock::now();
        std::memcpy(target.data(), source.data(), bytes);
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

void RunReplacement(benchmark::State& state, const ImagePtr<unsigned char>& map, const char* name) {
    const auto frame = PanelFrame();
    const double memcpySeconds = MemcpySeconds(static_cast<size_t>(frame->GetPixelCount()) * sizeof(float));
    const DefectReplacement replacement;
    DefectReplacement::Result result;
    // Replacement reads only good pixels, so repeating it on one frame is the same work.
    const double perFrame =
        orvane::bench::RunWithThreads(state, name, [&] { result = replacement.Replace(frame, map); });
    state.counters["vs_memcpy"] = perFrame / memcpySeconds;
    state.counters["memcpy_ms"] = memcpySeconds * 1e3;
    state.counters["isolated"] = result.replacedIsolated;
    state.counters["runs"] = result.replacedInRuns;
    state.counters["clusters"] = result.replacedInClusters;
    state.counters["unreplaced"] = result.unreplaced;
}

void BM_ReplaceDefects(benchmark::State& state) {
    RunReplacement(state, PanelMap(), "flagged");
}
BENCHMARK(BM_ReplaceDefects)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// The scan alone: a map with nothing flagged.
void BM_ReplaceDefectsCleanMap(benchmark::State& state) {
    RunReplacement(state, boost::make_shared<ImageAcquisition<unsigned char>>(kSide, kSide), "clean");
}
BENCHMARK(BM_ReplaceDefectsCleanMap)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// A raw frame about 3000 counts above an offset near 1000, with the gain spread
// around 1 that such a panel has.
struct Panel {
    ImagePtr<unsigned short> raw = boost::make_shared<ImageAcquisition<unsigned short>>(kSide, kSide);
    boost::shared_ptr<ReferenceOffsetSimple> offset = boost::make_shared<ReferenceOffsetSimple>(kSide, kSide);
    boost::shared_ptr<ReferenceGainLinear> gain = boost::make_shared<ReferenceGainLinear>(kSide, kSide);
    boost::shared_ptr<ReferenceGainPoly> poly = boost::make_shared<ReferenceGainPoly>(kSide, kSide);
    Panel() {
        unsigned short* r = raw->GetData();
        unsigned short* o = offset->GetOffset()->GetData();
        unsigned short* g = gain->GetGainLinear()->GetData();
        for (int i = 0; i < raw->GetPixelCount(); ++i) {
            o[i] = static_cast<unsigned short>(1000 + i % 41);
            g[i] = static_cast<unsigned short>(16384 - 800 + i % 1601);
            r[i] = static_cast<unsigned short>(o[i] + 3000 + i % 97);
        }
        const float values[3] = {1.0f, 2e-6f, -3e-11f};
        for (int k = 0; k < 3; ++k) {
            auto coefficient = boost::make_shared<ImageAcquisition<float>>(kSide, kSide);
            float* c = coefficient->GetData();
            for (int i = 0; i < coefficient->GetPixelCount(); ++i) c[i] = values[k] * (1.0f + 1e-4f * (i % 301));
            poly->CompressImage(coefficient, k, poly->GetGainPoly()[static_cast<size_t>(k)]);
        }
    }
};

// Offset, a gain and defect replacement into a 16-bit frame. Counter "vs_linear_budget":
// the time over 2.5 memcpys of the moved bytes of the linear chain.
void RunChain(benchmark::State& state, bool polynomial) {
    Panel panel;
    CorrectionChain chain(kSide, kSide);
    chain.SetOffset(boost::make_shared<OffsetCorrection>(panel.offset));
    if (polynomial) {
        chain.SetGainPoly(panel.poly);
    } else {
        chain.SetGainLinear(panel.gain);
    }
    chain.SetDefects(PanelMap());
    auto out = boost::make_shared<ImageAcquisition<unsigned short>>(kSide, kSide);
    const size_t pixels = static_cast<size_t>(kSide) * kSide;
    // The polynomial chain reads three float coefficients per pixel, the linear one a code.
    const size_t gainBytes = polynomial ? 3 * sizeof(float) : sizeof(unsigned short);
    const double movedSeconds = MemcpySeconds(pixels * (3 * sizeof(unsigned short) + gainBytes));
    const double linearSeconds = MemcpySeconds(pixels * 4 * sizeof(unsigned short));
    CorrectionChain::Result result = chain.Correct(panel.raw, out);  // the float frame's pages, once
    const double perFrame = orvane::bench::RunWithThreads(state, polynomial ? "poly" : "linear",
                                                          [&] { result = chain.Correct(panel.raw, out); });
    state.counters["vs_memcpy"] = perFrame / movedSeconds;
    state.counters["vs_linear_budget"] = perFrame / (2.5 * linearSeconds);
    state.counters["memcpy_ms"] = movedSeconds * 1e3;
    state.counters["clamped"] = static_cast<double>(result.clamped);
    state.counters["replaced"] = result.defects.replacedIsolated + result.defects.replacedInRuns +
                                 result.defects.replacedInClusters;
}

void BM_ChainOffsetGainLinearDefects(benchmark::State& state) { RunChain(state, false); }
BENCHMARK(BM_ChainOffsetGainLinearDefects)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ChainOffsetGainPolyDefects(benchmark::State& state) { RunChain(state, true); }
BENCHMARK(BM_ChainOffsetGainPolyDefects)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
