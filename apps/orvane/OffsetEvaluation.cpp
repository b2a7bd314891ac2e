#include "apps/orvane/OffsetEvaluation.h"

#include "correction/TimeGridBlend.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

namespace orvane {
namespace app {

namespace {

// Mean |offset - truth| and mean (offset - truth) over the pixels with kind None
// outside every offset change, in double.
void Compare(const ImageAcquisition<float>& offset, const ImageAcquisition<float>& truth, const GroundTruth& planted,
             OffsetMatch& match) {
    const int width = offset.GetWidth();
    std::vector<unsigned char> counted(static_cast<std::size_t>(offset.GetPixelCount()), 1);
    for (const OffsetChange& change : planted.offsetChanges) {
        for (int y = change.box.top; y < change.box.top + change.box.height; ++y) {
            const std::size_t row = static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
            std::fill_n(counted.begin() + static_cast<long>(row + change.box.left), change.box.width, 0);
        }
    }
    const float* a = offset.GetData();
    const float* b = truth.GetData();
    const unsigned char* kinds = planted.defects->GetData();
    double absolute = 0.0, difference = 0.0;
    long count = 0;
    for (std::size_t i = 0; i < counted.size(); ++i) {
        if (kinds[i] != 0 || counted[i] == 0) continue;
        const double d = static_cast<double>(a[i]) - static_cast<double>(b[i]);
        absolute += std::fabs(d);
        difference += d;
        ++count;
    }
    match.error = count > 0 ? absolute / static_cast<double>(count) : NAN;
    match.bias = count > 0 ? difference / static_cast<double>(count) : NAN;
}

// The variance a 16-bit offset averaged from `frames` dark frames keeps: each frame's
// noise and rounding, then the rounding of the mean.
double EntryVariance(int frames) {
    const double noise = static_cast<double>(DetectorSimulator::ReadNoise());
    return (noise * noise + 1.0 / 12.0) / frames + 1.0 / 12.0;
}

// The mean |x| of a centred normal of variance `variance`.
double MeanAbsolute(double variance) { return std::sqrt(2.0 / M_PI * variance); }

OffsetMatch Match(const char* step, std::string state, float temperature) {
    OffsetMatch match;
    match.step = step;
    match.state = std::move(state);
    match.temperature = temperature;
    return match;
}

}  // namespace

std::vector<OffsetMatch> ScoreOffsets(const DetectorSimulator& simulator, const CalibrationOutputs& outputs) {
    std::vector<OffsetMatch> matches;
    const GroundTruth& truth = simulator.Truth();
    if (outputs.offset && outputs.offsetFrames > 0) {
        double sum = 0.0;
        for (int k = 0; k < outputs.offsetFrames; ++k) sum += simulator.DarkTemperature(k);
        const auto temperature = static_cast<float>(sum / outputs.offsetFrames);
        OffsetMatch match = Match("offset-dynamic", "the darks' mean temperature", temperature);
        Compare(*outputs.offset, *simulator.DarkLevel(temperature), truth, match);
        match.noiseFloor = MeanAbsolute(EntryVariance(outputs.offsetFrames));
        matches.push_back(match);
    }
    if (!outputs.offsetGrid) return matches;
    ReferenceOffsetTimeGrid& grid = *outputs.offsetGrid;
    const TimeGridBlend blend(outputs.offsetGrid);
    for (int i = 0; i + 1 < grid.GetNbReferences(); ++i) {
        const ImagePtr<unsigned short> lower = grid.GetAt(i), upper = grid.GetAt(i + 1);
        const float temperature = 0.5f * (lower->GetProperty<float>("image.temperature") +
                                          upper->GetProperty<float>("image.temperature"));
        const std::int64_t time =
            (lower->GetProperty<std::int64_t>("image.time") + upper->GetProperty<std::int64_t>("image.time")) / 2;
        char state[96];
        std::snprintf(state, sizeof state, "halfway between entries %d and %d (image.time %lld)", i, i + 1,
                      static_cast<long long>(time));
        OffsetMatch match = Match("offset-time-grid", state, temperature);
        Compare(*blend.OffsetAt(temperature, time), *simulator.DarkLevel(temperature), truth, match);
        const TimeGridBlend::Weights w = blend.WeightsAt(temperature, time);
        const auto frames = [&outputs](int entry) { return outputs.gridEntryFrames[static_cast<std::size_t>(entry)]; };
        match.noiseFloor = MeanAbsolute((1.0 - w.share) * (1.0 - w.share) * EntryVariance(frames(w.lower)) +
                                        w.share * w.share * EntryVariance(frames(w.upper)));
        matches.push_back(match);
    }
    return matches;
}

}  // namespace app
}  // namespace orvane
