// The linear gain of a full 3121 x 3121 panel from a series of 10 flat frames, with
// the 16 measure areas of 120 x 120 pixels around the centre and the whole frame as
// normalising area. Counter "per_pixel_frame": the time per pixel and frame.

#include "OrvaneCalibration.h"

#include <benchmark/benchmark.h>
#include <boost/make_shared.hpp>

#include <vector>

namespace {

constexpr int kSide = 3121;
constexpr int kFrames = 10;

GainLinearParameters PanelParameters() {
    GainLinearParameters p;
    p.Y0 = 0;
    p.Height = kSide;
    p.X0 = 0;
    p.Width = kSide;
    p.ClipMin = 0.25f;
    p.ClipMax = 4.0f;
    p.GfaSigmas = 3;
    p.GfaTolerance = 0.05f;
    for (unsigned short top : {1320, 1440, 1561, 1681}) {
        for (unsigned short left : {1320, 1440, 1561, 1681}) {
            p.MeasureAreas.push_back(ROI(top, left, 120, 120));
        }
    }
    return p;
}

// Flat frames with a smooth shading, a per-pixel pattern and a few dead pixels.
std::vector<ImagePtr<unsigned short>> FlatFrames() {
    std::vector<ImagePtr<unsigned short>> frames;
    for (int k = 0; k < kFrames; ++k) {
        auto frame = boost::make_shared<ImageAcquisition<unsigned short>>(kSide, kSide);
        unsigned short* p = frame->GetData();
        for (int y = 0; y < kSide; ++y) {
            for (int x = 0; x < kSide; ++x) {
                const int shading = (x + y) / 8;
                const int pattern = (x * 7 + y * 13 + k * 5) % 61;
                p[y * kSide + x] = static_cast<unsigned short>((x * y) % 4099 == 0 ? 0 : 8000 + shading + pattern);
            }
        }
        frames.push_back(frame);
    }
    return frames;
}

void BM_CalculateGainReference(benchmark::State& state) {
    static const GainLinearParameters parameters = PanelParameters();
    const auto frames = FlatFrames();
    auto store = boost::make_shared<ReferenceGainLinear>(kSide, kSide);
    auto dm = boost::make_shared<ReferenceDM>(kSide, kSide);
    CalibrationGainLinear calibration(parameters, store, dm);
    for (auto _ : state) {
        state.PauseTiming();
        calibration.Clear();  // a new series each time
        calibration.Init();
        state.ResumeTiming();
        calibration.CalculateGainReference(frames);
    }
    // Seconds per pixel and frame, printed with an SI prefix ("1.5n" is 1.5 ns).
    state.counters["per_pixel_frame"] = benchmark::Counter(
        double(state.iterations()) * kFrames * kSide * kSide,
        benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_CalculateGainReference)->Unit(benchmark::kMillisecond)->UseRealTime();

// The part after the averaging alone: levels, normalising, clipping, compression.
void BM_GainFromAverage(benchmark::State& state) {
    static const GainLinearParameters parameters = PanelParameters();
    const auto frames = FlatFrames();
    auto store = boost::make_shared<ReferenceGainLinear>(kSide, kSide);
    auto dm = boost::make_shared<ReferenceDM>(kSide, kSide);
    CalibrationGainLinear calibration(parameters, store, dm);
    calibration.Init();
    calibration.CalculateGainReference(frames);
    for (auto _ : state) {
        calibration.CalculateGainReference();
    }
}
BENCHMARK(BM_GainFromAverage)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
