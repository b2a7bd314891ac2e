#ifndef ORVANE_APPS_CALIBRATIONVERDICTS_H
#define ORVANE_APPS_CALIBRATIONVERDICTS_H

#include "apps/orvane/CalibrationPipeline.h"
#include "apps/orvane/Evaluation.h"

#include <string>
#include <vector>

namespace orvane {
namespace app {

// One line of a report's summary: how a calibration of a panel did.
struct CalibrationVerdict {
    std::string step;
    std::string model;
    // "pass": its figures against the truth meet the targets; "attention": they do
    // not, or the step failed; "ran": it has no figure against the truth; "skipped".
    std::string verdict;
    std::string figure;  // the figure judged, or the step's own detail
};

// Targets against the truth: a recall of at least 0.95, and a precision of at least
// 0.9 for the echo lines, the clusters and each defect map (without the pixels the
// flagging rules add); a linear gain within 1 % of the truth that lowers the flat's
// non-uniformity at least fivefold; a polynomial gain that leaves at most 1 % of the
// expected signal's spread at every dose; an offset, at every state scored, within 1
// count of the true dark level on average and within 10 % of the noise floor per
// pixel.
constexpr double kRecallTarget = 0.95;
constexpr double kPrecisionTarget = 0.9;
constexpr double kGainErrorTarget = 0.01;
constexpr double kFlatteningTarget = 5.0;
constexpr double kOffsetBiasTarget = 1.0;
constexpr double kOffsetNoiseTarget = 1.1;

// A line per step of `outputs`, in step order; judged against `evaluation` when given.
std::vector<CalibrationVerdict> JudgeCalibrations(const std::string& model, const CalibrationOutputs& outputs,
                                                  const Evaluation* evaluation);

}  // namespace app
}  // namespace orvane

#endif
