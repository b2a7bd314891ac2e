#ifndef ORVANE_APPS_REPORT_H
#define ORVANE_APPS_REPORT_H

#include "apps/orvane/CalibrationPipeline.h"
#include "apps/orvane/CalibrationVerdicts.h"
#include "apps/orvane/CorrectionCheck.h"
#include "apps/orvane/Evaluation.h"

#include <string>
#include <vector>

namespace orvane {
namespace app {

// What a report shows of one panel, for the report of another to take in.
struct ReportPanel {
    std::string model;
    std::string sections;                     // its sections, its pictures under the folder given
    std::vector<CalibrationVerdict> verdicts;  // its summary lines
};

// Writes into `dir`: report.html (a summary line per calibration, the steps with
// status, detail and time, the
// pictures, and the comparison when `evaluation` is given), the pictures as PNG files
// (defect-map.png, gain.png, offset.png, flat-before.png, flat-after.png; each one only
// when its image exists), and summary.json (model, steps, non-uniformity, and the
// comparison when given). Given the correction figures, the report shows the raw,
// the offset and gain corrected and the fully corrected flat side by side
// (correction-raw.png, correction-offset-gain.png, correction-full.png) with the
// figures below them, and summary.json holds them as "correction"; its "calibrations"
// are the summary lines. Files are written in place: the commands write into a
// staging folder, which a failure discards whole.
// The report also takes in the `embedded` panels, whose reports were written before
// into sub-folders: their summary lines follow this panel's, their sections come
// after its own. Returns this panel with its pictures under `folder`, the folder of
// `dir` relative to the report that will take it in ("" or ending in '/').
ReportPanel WriteReport(const std::string& dir, const std::string& model, const CalibrationOutputs& outputs,
                        const Evaluation* evaluation, const CorrectionFigures* correction = nullptr,
                        const std::vector<ReportPanel>& embedded = {}, const std::string& folder = "");

}  // namespace app
}  // namespace orvane

#endif
