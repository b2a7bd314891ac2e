// The dose defect map of a full 3121 x 3121 panel: one dose of 10 frames with the
// "Birch" record (3001 x 3001 area at (60, 60), 61 x 61 median window, 16384 levels),
// and the gain defect map of the same panel with the gain table's values (21 x 21
// window, 65536 levels) on the same area. Counter "per_dose": seconds per dose, or per
// gain map, printed with an SI prefix. Beside them, the two kernels that dominate a
// dose: the 61 x 61 high-pass median with 65536 levels on 3001 x 3001, and the robust
// mean and sigma of 9 M floats. Each runs on one and on two threads.

#include "OrvaneCalibration.h"
#include "calibration/CalibrationDefectMap.h"
#include "calibration/CalibrationDefectMapGain.h"
#include "calibration/HighPassMedian.h"
#include "calibration/ImageStatistics.h"
#include "ThreadScaling.h"

#include <benchmark/benchmark.h>
#include <boost/make_shared.hpp>

#include <random>
#include <vector>

namespace {

constexpr int kSide = 3121;
constexpr int kFrames = 10;

DefectMapParameters BirchParameters() {
    DefectMapParameters p;
    p.X0 = 60, p.Y0 = 60, p.Width = 3001, p.Height = 3001;
    p.ClipMax = 16283, p.ClipMin = -100, p.MedianWidth = 61, p.MedianHeight = 61;
    p.SpareLevel = 3000, p.LogScale = 1000, p.GfaMin = 100, p.GfaMax = 1500;
    p.ExcludeSigmas = 5, p.GfaSigmas = 3, p.GfaTolerance = 0.05f, p.QuantLevels = 16384;
    return p;
}

DefectMapGainParameters GainParameters() {
    DefectMapGainParameters p;
    p.X0 = 60, p.Y0 = 60, p.Width = 3001, p.Height = 3001, p.MedianWidth = 21, p.MedianHeight = 21;
    p.ClipMin = 0.25f, p.ClipMax = 4.0f, p.ThresholdMin = 0.53f, p.ThresholdMax = 2.0f;
    p.QuantLevels = 65536;
    return p;
}

// A smooth gain from about 0.9 to 1.1 with a few pixels far out of band.
boost::shared_ptr<ReferenceGainLinear> PanelGain() {
    auto store = boost::make_shared<ReferenceGainLinear>(kSide, kSide);
    unsigned short* code = store->GetGainLinear()->GetData();
    for (int y = 0; y < kSide; ++y) {
        for (int x = 0; x < kSide; ++x) {
            const int shading = (x + y) * 3276 / (2 * kSide);
            code[y * kSide + x] = static_cast<unsigned short>(
                (x * y) % 5003 == 7 ? 4096 : 14746 + shading + (x * 31 + y * 17) % 64);
        }
    }
    return store;
}

// Flat frames at about 8000 with shading, a per-pixel pattern, and hot and dead pixels.
std::vector<ImagePtr<unsigned short>> DoseFrames() {
    std::vector<ImagePtr<unsigned short>> frames;
    for (int k = 0; k < kFrames; ++k) {
        auto frame = boost::make_shared<ImageAcquisition<unsigned short>>(kSide, kSide);
        unsigned short* p = frame->GetData();
        for (int y = 0; y < kSide; ++y) {
            for (int x = 0; x < kSide; ++x) {
                const int defect = (x * 7 + y * 3) % 4001;
                const int value = 8000 + (x + y) / 8 + (x * 7 + y * 13 + k * 5) % 61;
                p[y * kSide + x] =
                    static_cast<unsigned short>(defect == 0 ? 15000 : defect == 1 ? 500 : value);
            }
        }
        frames.push_back(frame);
    }
    return frames;
}

void CountPerDose(benchmark::State& state) {
    state.counters["per_dose"] = benchmark::Counter(
        double(state.iterations()), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_DefectMap6(benchmark::State& state) {
    static const DefectMapParameters parameters = BirchParameters();
    static const DMFlagParameters flagParameters;
    const auto frames = DoseFrames();
    CalibrationDefectMap calibration(parameters, boost::make_shared<ReferenceDM>(kSide, kSide),
                                     PanelGain(), boost::make_shared<DefectMapFlag>(flagParameters));
    calibration.Init();
    orvane::bench::RunWithThreads(state, "dose", [&] { calibration.DefectMap6(frames); });
    CountPerDose(state);
}
BENCHMARK(BM_DefectMap6)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_DefectMapGain(benchmark::State& state) {
    static const DefectMapGainParameters parameters = GainParameters();
    static const DMFlagParameters flagParameters;
    CalibrationDefectMapGain calibration(parameters, boost::make_shared<ReferenceDM>(kSide, kSide),
                                         PanelGain(), boost::make_shared<DefectMapFlag>(flagParameters));
    calibration.Init();
    orvane::bench::RunWithThreads(state, "gain", [&] { calibration.DefectMapGain(); });
    CountPerDose(state);
}
BENCHMARK(BM_DefectMapGain)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// Levels of a shaded flat with noise, spread over the middle of 65536 levels, and a
// few pixels at the extremes, as the quantisation of a dose gives them.
ImagePtr<float> QuantisedLevels(int side) {
    auto image = boost::make_shared<ImageAcquisition<float>>(side, side);
    std::mt19937 random(5);
    std::normal_distribution<float> noise(0.0f, 400.0f);
    float* p = image->GetData();
    for (int y = 0; y < side; ++y) {
        for (int x = 0; x < side; ++x) {
            const float level = 28000.0f + 4.0f * float(x + y) + noise(random);
            p[y * side + x] = (x * y) % 4999 == 3 ? 65535.0f : std::max(0.0f, std::floor(level));
        }
    }
    return image;
}

void BM_HighPassMedianSubtract(benchmark::State& state) {
    constexpr int side = 3001;
    const auto source = QuantisedLevels(side);
    const auto image = boost::make_shared<ImageAcquisition<float>>(side, side);
    orvane::bench::RunWithThreads(state, "high-pass", [&] {
        HighPassMedianSubtract(source, image, ROI(0, 0, side, side), 61, 61, 1.0f, 0.0f, 65536);
    });
}
BENCHMARK(BM_HighPassMedianSubtract)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_GFAMeanAndSigma(benchmark::State& state) {
    constexpr unsigned count = 3001u * 3001u;
    std::vector<float> values(count), scratch(count);
    std::mt19937 random(9);
    std::normal_distribution<float> noise(500.0f, 40.0f);
    for (unsigned i = 0; i < count; ++i) values[i] = i % 1009 == 5 ? 1400.0f : noise(random);
    float mean = 0.0f, sigma = 0.0f;
    orvane::bench::RunWithThreads(state, "robust", [&] {
        ComputeGFAMeanAndSigma(values.data(), scratch.data(), count, 3, 0.001f, 100.0f, 1500.0f, mean, sigma);
    });
    benchmark::DoNotOptimize(mean);
    benchmark::DoNotOptimize(sigma);
}
BENCHMARK(BM_GFAMeanAndSigma)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
