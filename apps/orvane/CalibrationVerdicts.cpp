#include "apps/orvane/CalibrationVerdicts.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace orvane {
namespace app {

namespace {

std::string Format(const char* format, double a, double b = 0.0, double c = 0.0) {
    char text[160];
    std::snprintf(text, sizeof text, format, a, b, c);
    return text;
}

bool Meets(double recall, double precision) { return recall >= kRecallTarget && precision >= kPrecisionTarget; }

// The judged figure of `step` and whether it meets its targets; false when the step
// has no figure against the truth.
bool Judge(const std::string& step, const CalibrationOutputs& outputs, const Evaluation& e, std::string& figure,
           bool& pass) {
    const auto map = std::find_if(e.maps.begin(), e.maps.end(), [&step](const MapScore& m) { return m.step == step; });
    if (map != e.maps.end()) {
        figure = Format("recall %.3f, precision %.3f without the pixels the flagging rules add (%.3f with them)",
                        map->recall, map->precisionWithoutRule, map->precision);
        pass = Meets(map->recall, map->precisionWithoutRule);
        return true;
    }
    if (step == "echo-lines" && e.echoLinesRan) {
        figure = Format("recall %.3f, precision %.3f", e.echoLines.recall, e.echoLines.precision) + " (" +
                 std::to_string(e.echoLines.plantedSingle.size()) + " single and " +
                 std::to_string(e.echoLines.plantedDouble.size()) + " double lines planted)";
        pass = Meets(e.echoLines.recall, e.echoLines.precision);
        return true;
    }
    if (step == "clusters" && e.clustersRan) {
        figure = Format("recall %.3f, precision %.3f", e.clusters.recall, e.clusters.precision) + " (" +
                 std::to_string(e.clusters.planted) + " offset changes to find, " +
                 std::to_string(e.clusters.weakFound) + " of " + std::to_string(e.clusters.weak) +
                 " below the threshold found)";
        pass = Meets(e.clusters.recall, e.clusters.precision) && e.clusters.weakFound == 0;
        return true;
    }
    const auto poly = std::find_if(e.gainPolys.begin(), e.gainPolys.end(),
                                   [&step](const GainPolyScore& p) { return p.step == step; });
    if (poly != e.gainPolys.end()) {
        figure = "error at each dose";
        for (double error : poly->doseErrors) figure += Format(" %.3f %%", 100.0 * error);
        figure += " of the expected signal";
        pass = std::isfinite(poly->worst) && poly->worst <= kGainErrorTarget;
        return true;
    }
    std::string offsets;  // every state an offset of `step` was scored at
    bool offsetsPass = true;
    for (const OffsetMatch& match : e.offsets) {
        if (match.step != step) continue;
        offsets += (offsets.empty() ? "" : "; ") +
                   Format("error %.2f counts (noise floor %.2f), bias %+.2f", match.error, match.noiseFloor,
                          match.bias) +
                   " at " + match.state;
        offsetsPass = offsetsPass && std::fabs(match.bias) <= kOffsetBiasTarget &&
                      match.error <= kOffsetNoiseTarget * match.noiseFloor;
    }
    if (!offsets.empty()) {
        figure = offsets;
        pass = offsetsPass;
        return true;
    }
    if (step == "gain-linear" && std::isfinite(e.gainError)) {
        const double flattening = outputs.nonUniformityBefore / outputs.nonUniformityAfter;
        figure = Format("gain error %.3f %%, flat non-uniformity %.3f %% to %.3f %%", 100.0 * e.gainError,
                        100.0 * outputs.nonUniformityBefore, 100.0 * outputs.nonUniformityAfter);
        pass = e.gainError <= kGainErrorTarget && std::isfinite(flattening) && flattening >= kFlatteningTarget;
        return true;
    }
    return false;
}

}  // namespace

std::vector<CalibrationVerdict> JudgeCalibrations(const std::string& model, const CalibrationOutputs& outputs,
                                                  const Evaluation* evaluation) {
    std::vector<CalibrationVerdict> verdicts;
    for (const StepReport& step : outputs.steps) {
        CalibrationVerdict v{step.name, model, "", step.detail};
        bool pass = false;
        if (step.status == StepReport::Status::Skipped) {
            v.verdict = "skipped";
        } else if (step.status == StepReport::Status::Failed) {
            v.verdict = "attention";
        } else if (evaluation && Judge(step.name, outputs, *evaluation, v.figure, pass)) {
            v.verdict = pass ? "pass" : "attention";
        } else {
            v.verdict = "ran";
        }
        verdicts.push_back(v);
    }
    return verdicts;
}

}  // namespace app
}  // namespace orvane
