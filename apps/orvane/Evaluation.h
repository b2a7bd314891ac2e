#ifndef ORVANE_APPS_EVALUATION_H
#define ORVANE_APPS_EVALUATION_H

#include "apps/orvane/CalibrationPipeline.h"
#include "apps/orvane/GroundTruth.h"

#include <ostream>
#include <string>
#include <vector>

namespace orvane {
namespace app {

// How one planted defect kind was found.
struct KindScore {
    std::string kind;      // DefectKindName
    long planted = 0;      // pixels of that kind
    long found = 0;        // of those, flagged in the final map
    double recall = 0.0;   // found / planted (1 when none was planted)
};

struct Evaluation {
    std::vector<KindScore> kinds;        // every kind but None
    long flagged = 0;                    // pixels flagged in the final map
    long flaggedPlanted = 0;             // of those, pixels of any planted kind or of an echo row
    double precision = 0.0;              // flaggedPlanted / flagged (1 when none flagged)
    double gainError = 0.0;              // mean |gain / truth - 1| over good pixels of the gain area
    double nonUniformityBefore = 0.0;    // from the run
    double nonUniformityAfter = 0.0;
};

// Compares a run with the truth it was simulated from.
Evaluation Evaluate(const GroundTruth& truth, const CalibrationOutputs& outputs);

// The figures as a plain-text table.
void PrintEvaluation(std::ostream& out, const Evaluation& evaluation);

}  // namespace app
}  // namespace orvane

#endif
