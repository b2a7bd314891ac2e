#ifndef ORVANE_APPS_GAINPOLYEVALUATION_H
#define ORVANE_APPS_GAINPOLYEVALUATION_H

#include "apps/orvane/CalibrationPipeline.h"
#include "apps/orvane/DetectorSimulator.h"
#include "image/ROI.h"

#include <string>
#include <vector>

namespace orvane {
namespace app {

// How a polynomial gain flattens the panel's response at each dose.
struct GainPolyScore {
    std::string step;               // "gain-poly" or "gain-poly-denoised"
    std::vector<double> doseErrors;  // per dose, lowest first: mean |corrected / its mean - 1|
    double worst = 0.0;             // the largest of them
};

// Scores each polynomial gain of `outputs` on the simulator's expected signal of every
// dose (noise-free: what the fit is to make flat), corrected by the gain, over the
// pixels of `area` nothing was planted on.
std::vector<GainPolyScore> ScoreGainPolys(const DetectorSimulator& simulator, const CalibrationOutputs& outputs,
                                          const ROI& area);

}  // namespace app
}  // namespace orvane

#endif
