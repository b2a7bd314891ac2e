#ifndef ORVANE_APPS_CLUSTEREVALUATION_H
#define ORVANE_APPS_CLUSTEREVALUATION_H

#include "apps/orvane/CalibrationPipeline.h"
#include "apps/orvane/GroundTruth.h"
#include "parameters/CalibrationClustersParameters.h"

#include <vector>

namespace orvane {
namespace app {

// The clusters a run found against the planted offset changes.
struct ClusterScore {
    int planted = 0;        // changes of at least the step's threshold
    int found = 0;          // of those, met by at least one place
    int weak = 0;           // changes below the threshold, which the step is not to find
    int weakFound = 0;
    int places = 0;         // places of the store: one per column of a change found
    int placesOnChanges = 0;  // of those, on a planted change, weak ones included
    int largestRowError = 0;  // rows between a place and the edge of its change that the search meets first
    double recall = 1.0;     // found / planted (1 when none was planted)
    double precision = 1.0;  // placesOnChanges / places (1 when none was stored)
};

// Scores the places of a cluster run. A place is on a change when it lies in the
// same half of the frame (the search meets the upper half's changes from the top
// and the lower half's from the bottom), in one of the change's columns or the one
// beside it on each side, and within three rows of the edge the search meets first.
// A change is expected to be found when its amplitude, the step between the time
// grid's first and last entries, is at least the record's Threshold.
ClusterScore ScoreClusters(const GroundTruth& truth, const CalibrationClustersParameters& record,
                           const std::vector<ClusterPlace>& places);

}  // namespace app
}  // namespace orvane

#endif
