// The polynomial gain of a full 3121 x 3121 panel from 5 doses of one frame each,
// with the parameters of row "Birch" (16 measure areas, 4 denoise areas of
// 1500 x 1500). Counter "per_pixel": the time per pixel of the whole computation
// after the doses are closed (levels, fit and compression; with denoising, also the
// linear correction, the denoising and the folding of the linear gain).

#include "OrvaneCalibration.h"
#include "calibration/CalibrationGainPoly.h"
#include "interfaces/ReferenceGainPoly.h"
#include "parameters/GainPolyParametersSet.h"

#include <benchmark/benchmark.h>
#include <boost/make_shared.hpp>

#include <vector>

namespace {

constexpr int kSide = 3121;
constexpr int kDoses = 5;

// Frames with a per-pixel sensitivity, a slight compression at high values and a
// small pattern, so that every pixel has its own, well-posed fit.
std::vector<ImagePtr<unsigned short>> DoseFrames() {
    std::vector<ImagePtr<unsigned short>> frames;
    for (int dose = 0; dose < kDoses; ++dose) {
        const double level = 2000.0 * (dose + 1);
        auto frame = boost::make_shared<ImageAcquisition<unsigned short>>(kSide, kSide);
        unsigned short* p = frame->GetData();
        for (int y = 0; y < kSide; ++y) {
            for (int x = 0; x < kSide; ++x) {
                const double sensitivity = 0.9 + 0.2 * ((x * 7 + y * 13) % 101) / 100.0;
                const double value = level * sensitivity * (1.0 - level / 200000.0) + (x + y * 3 + dose) % 17;
                p[y * kSide + x] = static_cast<unsigned short>(value);
            }
        }
        frames.push_back(frame);
    }
    return frames;
}

struct Panel {
    Panel()
        : store(boost::make_shared<ReferenceGainPoly>(kSide, kSide)),
          linear(boost::make_shared<ReferenceGainLinear>(kSide, kSide)),
          dm(boost::make_shared<ReferenceDM>(kSide, kSide)),
          calibration(s_gainPolyParametersSet.lookup("Birch"), store, linear, dm, kDoses),
          warmPool(ImageCollectorRegistry::Instance().GetCollection<float>(kSide, kSide, false)) {
        // Keeps the pool at its working size across Clear, as a host running series
        // after series would, so that the timed part allocates no image.
        warmPool->Reserve(kDoses + 4 + 3);
        dm->SetValid(true);
        auto gain = boost::make_shared<ImageAcquisition<float>>(kSide, kSide);
        *gain->GetBuffer() = *gain->GetBuffer() + 1.0f;
        linear->CompressImage(gain, linear->GetGainLinear());
    }

    // A new series of the given frames, one per dose.
    void Series(const std::vector<ImagePtr<unsigned short>>& frames) {
        calibration.Clear();
        calibration.Init();
        for (int dose = 0; dose < kDoses; ++dose) {
            calibration.AccumulateGainImg(frames[dose]);
            calibration.DivideAccumulation(1.0f);
        }
    }

    boost::shared_ptr<ReferenceGainPoly> store;
    boost::shared_ptr<ReferenceGainLinear> linear;
    boost::shared_ptr<ReferenceDM> dm;
    CalibrationGainPoly calibration;
    boost::shared_ptr<ImageCollection<float>> warmPool;
};

// Seconds per pixel, printed with an SI prefix ("40n" is 40 ns).
void CountPixels(benchmark::State& state) {
    state.counters["per_pixel"] = benchmark::Counter(double(state.iterations()) * kSide * kSide,
                                                     benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_CalculateGainReference(benchmark::State& state) {
    const auto frames = DoseFrames();
    Panel panel;
    for (auto _ : state) {
        state.PauseTiming();
        panel.Series(frames);
        state.ResumeTiming();
        panel.calibration.CalculateGainReference();
    }
    CountPixels(state);
}
BENCHMARK(BM_CalculateGainReference)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_CalculateDenoisedGainReference(benchmark::State& state) {
    const auto frames = DoseFrames();
    Panel panel;
    for (auto _ : state) {
        state.PauseTiming();
        panel.Series(frames);
        state.ResumeTiming();
        panel.calibration.CalculateDenoisedGainReference();
    }
    CountPixels(state);
}
BENCHMARK(BM_CalculateDenoisedGainReference)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
