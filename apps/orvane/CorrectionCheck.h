#ifndef ORVANE_APPS_CORRECTIONCHECK_H
#define ORVANE_APPS_CORRECTIONCHECK_H

#include "apps/orvane/DetectorSimulator.h"
#include "apps/orvane/FrameSeries.h"
#include "apps/orvane/Progress.h"
#include "image/ImageAcquisition.h"
#include "image/ROI.h"

#include <limits>
#include <ostream>
#include <string>

namespace orvane {
namespace app {

// How the correction of a calibration run does on the flats of the middle dose, each
// corrected on its own (CorrectionChain, float output). The flatness figures are
// measured on one corrected flat, the dose's first, with its noise: the mean of the
// dose's flats is what the linear gain was computed from, flat to the gain's coding,
// and would hide what the correction leaves.
struct CorrectionFigures {
    static constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
    std::string notMeasured;        // why the figures are missing, or ""
    int dose = 0;                   // the middle dose, from 1
    int frames = 0;                 // its flats corrected
    // The figures below cover the pixels the linear gain corrects (GainArea, the whole
    // frame for most models), defects included unless said otherwise.
    ROI area;
    // Robust sigma / mean (3-sigma rejection) of the first corrected flat over every pixel,
    // over the pixels good in the defect map, and all / good.
    double nonUniformityAll = kNaN;
    double nonUniformityGood = kNaN;
    double nonUniformityRatio = kNaN;
    // Pixels of the first corrected flat further than 5 robust sigmas (of all its pixels)
    // from the median of their 7 x 7 neighbourhood, and their share of the area.
    long outliers = 0;
    double outlierFraction = kNaN;
    // Every replaced pixel of every flat against what the defect-free panel gives
    // there (DetectorSimulator::FlatWithoutDefects, corrected with an offset and gain
    // calibrated the same way from defect-free frames): |replaced - true| / true.
    long replacedSamples = 0;
    long unreplacedSamples = 0;
    double replacedErrorMedian = kNaN;
    double replacedError99 = kNaN;
    // Means of the flats: raw, offset and gain corrected, fully corrected.
    ImagePtr<float> raw;
    ImagePtr<float> offsetGain;
    ImagePtr<float> corrected;
};

// Corrects the middle dose of `series` (written by `simulator`) with the references
// that a run saved in `dir` (offset-dynamic, gain-linear and defect-map), and measures
// it. A reference missing (a step failed or was not run) leaves the figures NaN with
// the reason in notMeasured.
CorrectionFigures CheckCorrection(const std::string& dir, const std::string& model, const FrameSeries& series,
                                  const DetectorSimulator& simulator, Progress& progress);

// The figures as plain-text lines, with the targets: ratio <= 1.2, fewer than 1 in
// 100,000 pixels beyond 5 sigma.
void PrintCorrection(std::ostream& out, const CorrectionFigures& figures);

constexpr double kNonUniformityRatioTarget = 1.2;
constexpr double kOutlierFractionTarget = 1.0e-5;

}  // namespace app
}  // namespace orvane

#endif
