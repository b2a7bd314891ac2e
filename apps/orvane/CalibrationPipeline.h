#ifndef ORVANE_APPS_CALIBRATIONPIPELINE_H
#define ORVANE_APPS_CALIBRATIONPIPELINE_H

#include "apps/orvane/FrameReader.h"
#include "apps/orvane/FrameSeries.h"
#include "apps/orvane/Progress.h"
#include "image/ImageAcquisition.h"
#include "interfaces/ReferenceGainPoly.h"
#include "interfaces/ReferenceOffsetTimeGrid.h"
#include "parameters/DefectMapUntypicalParameters.h"

#include <set>
#include <string>
#include <vector>

namespace orvane {
namespace app {

// One calibration of the run, as the report and summary show it.
struct StepReport {
    enum class Status { Ran, Skipped, Failed };
    std::string name;       // one of CalibrationStepNames()
    Status status = Status::Skipped;
    std::string detail;     // why it was skipped or failed; for a run, its main figure
    double seconds = 0.0;
    std::vector<std::string> files;  // store files it saved, relative to the output folder
};

struct CalibrationRequest {
    std::string model;                 // parameter key, e.g. "Birch"
    std::string outDir;                // where the stores are saved (exists, writable)
    std::vector<std::string> only;     // step names to run; empty = all
    FrameDefaults defaults;            // metadata for frames without
    // A row for the untypical defect map, for a model whose table has none (only a few
    // large panels have one); null: such a model skips that step.
    const DefectMapUntypicalParameters* untypicalRow = nullptr;
};

// The place in the frame where the cluster step found a cluster: the column, and the
// first row of the change met from the top (upper half) or the bottom (lower half).
struct ClusterPlace {
    int x = 0;
    int y = 0;
};

// A defect map a step made, and the area the step measured (clipped to the frame).
struct DefectMapOutput {
    std::string step;
    ImagePtr<unsigned char> map;  // a copy of the store's map
    ROI area;
};

// What the run leaves for the report and the comparison with a ground truth. Images
// are copies owned here (null when the step that makes them did not run).
struct CalibrationOutputs {
    std::vector<StepReport> steps;     // every step of CalibrationStepNames(), in order
    ImagePtr<float> offset;            // dynamic offset, decompressed
    int offsetFrames = 0;              // dark frames averaged into it
    boost::shared_ptr<ReferenceOffsetTimeGrid> offsetGrid;  // the time grid's store (null when not made)
    std::vector<int> gridEntryFrames;  // dark frames averaged into each of its entries, in grid order
    ImagePtr<float> gain;              // linear gain, decompressed (not inverted)
    ImagePtr<unsigned char> defects;   // the final defect map (merged when merged), 0 = good
    std::vector<DefectMapOutput> maps;  // every defect map made, in the order made
    ImagePtr<float> flatBefore;        // mean flat of the check dose minus the offset
    ImagePtr<float> flatAfter;         // the same after gain correction
    double nonUniformityBefore = 0.0;  // robust sigma / mean of flatBefore over good pixels
    double nonUniformityAfter = 0.0;   // the same of flatAfter
    std::set<int> singleEchoLines;     // the echo-line store's sets (empty when it did not run)
    std::set<int> doubleEchoLines;
    std::vector<ClusterPlace> clusterPlaces;  // where each stored cluster was found, in store order
    boost::shared_ptr<ReferenceGainPoly> polyGain;          // the stores of the polynomial gains (null when
    boost::shared_ptr<ReferenceGainPoly> polyGainDenoised;  // not made)
};

// The step names, in the order the library requires them to run:
// "offset-dynamic", "offset-time-grid", "gain-linear", "dm6", "dm-gain", "dm-dark",
// "dm-untypical", "dm-auto", "dm-merge", "gain-poly", "gain-poly-denoised",
// "clusters", "echo-lines".
const std::vector<std::string>& CalibrationStepNames();

// Runs every step that the model has parameter rows for (and that `only` names) on
// the frames of `series`, saves each store into request.outDir, and says for every
// other step why it was skipped. A step that fails is reported, and the steps that
// need its result are skipped; the run goes on. InputError for an `only` entry that
// is not a step name.
CalibrationOutputs RunCalibrations(const CalibrationRequest& request, const FrameSeries& series,
                                   Progress& progress);

// How the run feeds the calibrations:
// - A step runs when the model's key reaches a row of its parameter set other than
//   the default row. The dynamic offset's set is one default row for every model, so
//   that step always qualifies; the merge has no set and runs when a map was made.
// - Flat frames are offset-subtracted (clipped at 0) with the dynamic offset before
//   the linear gain, the dose defect map and the polynomial gains; the dark, untypical
//   and automatic defect maps see raw frames. The "middle dose" is dose
//   doses.size() / 2 + 1; the "check dose", which the flat pictures and the
//   non-uniformity figures come from, is the one above it (below it when there is
//   none above), so that the gain is judged on frames it was not measured from.
// - The time grid splits the darks into up to three series; an entry's delta time is
//   the "image.time" distance / 60 from the first dark to the series' first frame.
// - The linear gain is measured with an empty defect map (none exists yet).
// - dm-untypical reads the model's table row, or request.untypicalRow when the table
//   has none for the model.
// - dm6 takes the raw darks as its first dose (hot pixels), then the flat doses whose
//   mean stays below the record's ClipMax (a clipped dose is flat and breaks the
//   statistic).
// - dm-auto uses up to three disjoint frame pairs (a full-frame moving median each).
// - dm-auto extends a copy of the dm-gain map, or of the last map made when dm-gain
//   has no rows or was not requested (dm-auto.fxd), and replaces it in the merge.
// - Every defect store is marked valid once written; without a merge, the final map is
//   the last one made. The polynomial gains weigh every dose 1.
// - The check flat and its non-uniformity are measured as Evaluation.h describes
//   (MakeFlatCheck, NonUniformity), over the pixels good in the final map.
// - Stores are saved as <step>.fxd in the output folder (the merged map as
//   defect-map.fxd).

}  // namespace app
}  // namespace orvane

#endif
