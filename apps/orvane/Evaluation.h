#ifndef ORVANE_APPS_EVALUATION_H
#define ORVANE_APPS_EVALUATION_H

#include "apps/orvane/CalibrationPipeline.h"
#include "apps/orvane/ClusterEvaluation.h"
#include "apps/orvane/DefectMapEvaluation.h"
#include "apps/orvane/EchoLineEvaluation.h"
#include "apps/orvane/GainPolyEvaluation.h"
#include "apps/orvane/GroundTruth.h"
#include "apps/orvane/OffsetEvaluation.h"
#include "interfaces/ReferenceGainLinear.h"
#include "parameters/GainLinearParameters.h"

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
    std::vector<MapScore> maps;          // each defect map of the run, in the order made
    bool echoLinesRan = false;           // whether the run has echo lines and clusters to score
    EchoLineScore echoLines;
    bool clustersRan = false;
    ClusterScore clusters;
    std::vector<GainPolyScore> gainPolys;  // each polynomial gain made, when scored against a simulator
    std::vector<OffsetMatch> offsets;      // each offset against the true dark level, likewise
};

// The flat that judges the linear gain: the mean of frames the gain was not measured
// from, minus the offset, in float (before), and the same corrected by the gain (after).
struct FlatCheck {
    ImagePtr<float> before;
    ImagePtr<float> after;
};

// The check flat of `frames` (each `offset`'s size), read one at a time.
FlatCheck MakeFlatCheck(const std::vector<FrameRef>& frames, FrameReader& reader,
                        const ImageAcquisition<unsigned short>& offset, const boost::shared_ptr<ReferenceGainLinear>& gain);

// The gain's normalising area in `record` as the calibration reads it (16-bit fields,
// clipped to the frame), or the whole frame when that area is empty: the pixels the
// linear gain corrects.
ROI GainArea(const GainLinearParameters& record, int width, int height);

// Robust sigma / mean (3-sigma rejection) of `flat` over the good pixels of the gain's
// normalising area in `record` (the whole frame when that area is empty): 0 in
// `defects` when given, with a usable (non-zero) stored gain code. NaN when no pixel
// qualifies or the mean is 0.
double NonUniformity(const ImageAcquisition<float>& flat, const ImageAcquisition<unsigned short>& gainCodes,
                     const ImageAcquisition<unsigned char>* defects, const GainLinearParameters& record);

// Compares a run with the truth it was simulated from; the echo lines and clusters
// when their steps ran, under the parameter rows of the truth's model; the offsets, and
// the polynomial gains over the linear gain's area, when the `simulator` is given.
Evaluation Evaluate(const GroundTruth& truth, const CalibrationOutputs& outputs,
                    const DetectorSimulator* simulator = nullptr);

// The figures as a plain-text table.
void PrintEvaluation(std::ostream& out, const Evaluation& evaluation);

}  // namespace app
}  // namespace orvane

#endif
