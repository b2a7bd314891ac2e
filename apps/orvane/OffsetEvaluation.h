#ifndef ORVANE_APPS_OFFSETEVALUATION_H
#define ORVANE_APPS_OFFSETEVALUATION_H

#include "apps/orvane/CalibrationPipeline.h"
#include "apps/orvane/DetectorSimulator.h"

#include <string>
#include <vector>

namespace orvane {
namespace app {

// How an offset meets the simulator's true dark level at one temperature and time, in
// counts, over the pixels nothing was planted on, outside the local offset changes.
struct OffsetMatch {
    std::string step;          // "offset-dynamic" or "offset-time-grid"
    std::string state;         // the state, e.g. "halfway between entries 0 and 1 (t 15)"
    float temperature = 0.0f;  // its temperature
    double error = 0.0;        // mean |offset - truth|
    double bias = 0.0;         // mean (offset - truth)
    // The mean |error| that the frames' read noise and the roundings alone leave: what
    // an exact calibration reaches on average.
    double noiseFloor = 0.0;
};

// The dynamic offset at the darks' mean temperature, and the time grid's blend
// (TimeGridBlend) halfway between each pair of neighbouring entries, each against
// DarkLevel at that state; for the offsets `outputs` holds.
std::vector<OffsetMatch> ScoreOffsets(const DetectorSimulator& simulator, const CalibrationOutputs& outputs);

}  // namespace app
}  // namespace orvane

#endif
