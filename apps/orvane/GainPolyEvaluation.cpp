#include "apps/orvane/GainPolyEvaluation.h"

#include "correction/GainPolyCorrection.h"

#include <algorithm>
#include <cmath>

namespace orvane {
namespace app {

namespace {

// Mean |value / mean - 1| over the pixels of `area` with kind None, in double.
double RelativeSpread(const ImageAcquisition<float>& image, const unsigned char* kinds, const ROI& area) {
    const int width = image.GetWidth();
    const float* pixels = image.GetData();
    const auto each = [&](auto visit) {
        for (int y = area.top; y < area.top + area.height; ++y) {
            const std::size_t row = static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
            for (std::size_t i = row + area.left; i < row + area.left + area.width; ++i) {
                if (kinds[i] == 0) visit(static_cast<double>(pixels[i]));
            }
        }
    };
    double sum = 0.0;
    long count = 0;
    each([&](double v) { sum += v, ++count; });
    if (count == 0 || sum == 0.0) return NAN;
    const double mean = sum / static_cast<double>(count);
    double spread = 0.0;
    each([&](double v) { spread += std::fabs(v / mean - 1.0); });
    return spread / static_cast<double>(count);
}

}  // namespace

std::vector<GainPolyScore> ScoreGainPolys(const DetectorSimulator& simulator, const CalibrationOutputs& outputs,
                                          const ROI& area) {
    std::vector<GainPolyScore> scores;
    const unsigned char* kinds = simulator.Truth().defects->GetData();
    const std::pair<const char*, boost::shared_ptr<ReferenceGainPoly>> stores[] = {
        {"gain-poly", outputs.polyGain}, {"gain-poly-denoised", outputs.polyGainDenoised}};
    for (const auto& store : stores) {
        if (!store.second) continue;
        GainPolyScore score;
        score.step = store.first;
        const GainPolyCorrection correction(store.second);
        for (int dose = 1; dose <= simulator.Options().doses; ++dose) {
            const ImagePtr<float> flat = simulator.ExpectedSignal(dose);
            correction.Correct(flat);
            score.doseErrors.push_back(RelativeSpread(*flat, kinds, area));
            score.worst = std::max(score.worst, score.doseErrors.back());
        }
        scores.push_back(score);
    }
    return scores;
}

}  // namespace app
}  // namespace orvane
