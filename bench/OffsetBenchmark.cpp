// Full-frame passes of the offset calibrations on a 3121 x 3121 frame, in bytes of
// memory traffic per second, each beside a plain memcpy moving the same traffic
// (counter "vs_memcpy": 1.0 means the fused expression runs at memory speed).

#include "OrvaneCalibration.h"
#include "ThreadScaling.h"

#include <benchmark/benchmark.h>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <vector>

namespace {

constexpr int kSide = 3121;
constexpr double kPixels = double(kSide) * kSide;

ImagePtr<unsigned short> MakeFrame(unsigned short base) {
    auto frame = boost::make_shared<ImageAcquisition<unsigned short>>(kSide, kSide);
    unsigned short* p = frame->GetData();
    for (int i = 0; i < frame->GetPixelCount(); ++i) p[i] = static_cast<unsigned short>(base + i % 97);
    return frame;
}

// Seconds that memcpy takes to read and write `traffic` bytes in all (best of 5).
double MemcpySeconds(size_t traffic) {
    const size_t bytes = traffic / 2;
    std::vector<char> source(bytes, 1), target(bytes, 0);
    double best = 1e30;
    for (int run = 0; run < 5; ++run) {
        const auto start = std::chrono::steady_clock::now();
        std::memcpy(target.data(), source.data(), bytes);
        benchmark::ClobberMemory();
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    benchmark::DoNotOptimize(target.data());
    return best;
}

void Report(benchmark::State& state, double bytesPerPixel) {
    const double traffic = bytesPerPixel * kPixels;
    state.SetBytesProcessed(static_cast<int64_t>(traffic * double(state.iterations())));
    // memcpy time of all passes over their real time: the speed relative to memcpy.
    state.counters["vs_memcpy"] = benchmark::Counter(
        MemcpySeconds(size_t(traffic)) * double(state.iterations()), benchmark::Counter::kIsRate);
}

// accumulation (float) += frame (u16): reads 4 + 2 bytes and writes 4 per pixel.
void BM_AccumulateOffset(benchmark::State& state) {
    static const OffsetDynamicParameters parameters{0.125f};
    auto store = boost::make_shared<ReferenceOffsetSimple>(kSide, kSide);
    CalibrationOffsetDynamic calibration(parameters, store);
    calibration.Init();
    const auto frame = MakeFrame(1000);
    calibration.AccumulateOffset(frame);  // the first frame is a copy; time the sums
    for (auto _ : state) {
        calibration.AccumulateOffset(frame);
    }
    calibration.DeleteAccumulation();
    Report(state, 10.0);
}
BENCHMARK(BM_AccumulateOffset)->Unit(benchmark::kMillisecond)->UseRealTime();

// offset (u16) = frame * w + offset * (1 - w): reads 2 + 2 bytes and writes 2 per pixel.
void BM_UpdateSingleOffsetRef(benchmark::State& state) {
    static const OffsetDynamicParameters parameters{0.125f};
    auto store = boost::make_shared<ReferenceOffsetSimple>(kSide, kSide);
    CalibrationOffsetDynamic calibration(parameters, store);
    const auto frame = MakeFrame(1000);
    for (auto _ : state) {
        calibration.UpdateSingleOffsetRef(frame);
    }
    Report(state, 6.0);
}
BENCHMARK(BM_UpdateSingleOffsetRef)->Unit(benchmark::kMillisecond)->UseRealTime();

// Seconds of one plain pass that reads every word of the frames (best of 3).
double ReadSeconds(const std::vector<ImagePtr<unsigned short>>& frames) {
    double best = 1e30;
    for (int run = 0; run < 3; ++run) {
        const auto start = std::chrono::steady_clock::now();
        unsigned long long sum = 0;
        for (const auto& frame : frames) {
            const unsigned short* p = frame->GetData();
            for (int i = 0; i < frame->GetPixelCount(); ++i) sum += p[i];
        }
        benchmark::DoNotOptimize(sum);
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

// The offset of 20 dark frames (their mean): counter "vs_read" is the time over one
// plain read of the 20 frames' bytes.
void BM_CalculateOffsetReference20(benchmark::State& state) {
    static const OffsetDynamicParameters parameters{0.125f};
    auto store = boost::make_shared<ReferenceOffsetSimple>(kSide, kSide);
    CalibrationOffsetDynamic calibration(parameters, store);
    calibration.Init();
    std::vector<ImagePtr<unsigned short>> frames;
    for (int k = 0; k < 20; ++k) frames.push_back(MakeFrame(static_cast<unsigned short>(1000 + k)));
    const double seconds = orvane::bench::RunWithThreads(state, "offset20", [&] { calibration.CalculateOffsetReference(frames); });
    state.counters["vs_read"] = seconds / ReadSeconds(frames);
}
BENCHMARK(BM_CalculateOffsetReference20)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
