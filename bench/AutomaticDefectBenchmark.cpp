// The moving-median pass of the automatic defect update: one pair of 3001 x 3001
// frames with a 7 x 7 window over the whole frame, in megapixels per second, on one
// and on two threads.

#include "OrvaneCalibration.h"
#include "ThreadScaling.h"
#include "calibration/CalibrationAutomaticDefect.h"

#include <benchmark/benchmark.h>
#include <boost/make_shared.hpp>

namespace {

constexpr int kSide = 3001;
constexpr double kPixels = double(kSide) * kSide;

// Dark-frame-like noise around `base`, different for each seed.
ImagePtr<unsigned short> MakeFrame(unsigned short base, unsigned seed) {
    auto frame = boost::make_shared<ImageAcquisition<unsigned short>>(kSide, kSide);
    unsigned short* p = frame->GetData();
    for (int i = 0; i < frame->GetPixelCount(); ++i) {
        seed = seed * 1103515245u + 12345u;
        p[i] = static_cast<unsigned short>(base + (seed >> 16) % 64u);
    }
    return frame;
}

void BM_ProcessReferenceAndCumul(benchmark::State& state) {
    AutomaticDefectParameters parameters;
    parameters.Area = ROI(0, 0, kSide, kSide);
    parameters.WindowSize = 7;
    parameters.WindowPixels = 49;
    parameters.ThresholdHigh = 1000;
    parameters.ThresholdLow = -1000;
    parameters.MinHits = 5;
    static const DMFlagParameters flagParameters{};
    auto store = boost::make_shared<ReferenceDM>(kSide, kSide);
    store->SetValid(true);
    CalibrationAutomaticDefect calibration(parameters, store,
                                           boost::make_shared<DefectMapFlag>(flagParameters));
    calibration.Init();
    const auto first = MakeFrame(1000, 1u);
    const auto second = MakeFrame(1000, 2u);
    orvane::bench::RunWithThreads(state, "pair", [&] { calibration.ProcessReferenceAndCumul(first, second); });
    state.counters["MPixel/s"] =
        benchmark::Counter(kPixels * double(state.iterations()) / 1e6, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_ProcessReferenceAndCumul)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
