#ifndef ORVANE_APPS_REPORT_H
#define ORVANE_APPS_REPORT_H

#include "apps/orvane/CalibrationPipeline.h"
#include "apps/orvane/CorrectionCheck.h"
#include "apps/orvane/Evaluation.h"

#include <string>

namespace orvane {
namespace app {

// Writes into `dir`: report.html (the steps with status, detail and time, the
// pictures, and the comparison when `evaluation` is given), the pictures as PNG files
// (defect-map.png, gain.png, offset.png, flat-before.png, flat-after.png; each one only
// when its image exists), and summary.json (model, steps, non-uniformity, and the
// comparison when given). Given the correction figures, the report shows the raw,
// the offset and gain corrected and the fully corrected flat side by side
// (correction-raw.png, correction-offset-gain.png, correction-full.png) with the
// figures below them, and summary.json holds them as "correction". Files are written
// in place: the commands write into a staging folder, which a failure discards whole.
void WriteReport(const std::string& dir, const std::string& model, const CalibrationOutputs& outputs,
                 const Evaluation* evaluation, const CorrectionFigures* correction = nullptr);

}  // namespace app
}  // namespace orvane

#endif
