// The dose defect map of a full 3121 x 3121 panel: one dose of 10 frames with the
// "Birch" record (3001 x 3001 area at (60, 60), 61 x 61 median window, 16384 levels),
// and the gain defect map of the same panel with the gain table's values (21 x 21
// window, 65536 levels) on the same area. Counter "per_dose": seconds per dose, or per
// gain map, printed with an SI prefix.

#include "OrvaneCalibration.h"
#include "calibration/CalibrationDefectMap.h"
#include "calibration/CalibrationDefectMapGain.h"

#include <benchmark/benchmark.h>
#include <boost/make_shared.hpp>

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
    for (auto _ : state) {
        calibration.DefectMap6(frames);
    }
    CountPerDose(state);
}
BENCHMARK(BM_DefectMap6)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_DefectMapGain(benchmark::State& state) {
    static const DefectMapGainParameters parameters = GainParameters();
    static const DMFlagParameters flagParameters;
    CalibrationDefectMapGain calibration(parameters, boost::make_shared<ReferenceDM>(kSide, kSide),
                                         PanelGain(), boost::make_shared<DefectMapFlag>(flagParameters));
    calibration.Init();
    for (auto _ : state) {
        calibration.DefectMapGain();
    }
    CountPerDose(state);
}
BENCHMARK(BM_DefectMapGain)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
