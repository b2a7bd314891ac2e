#ifndef ORVANE_APPS_DEFECTMAPEVALUATION_H
#define ORVANE_APPS_DEFECTMAPEVALUATION_H

#include "apps/orvane/CalibrationPipeline.h"
#include "apps/orvane/GroundTruth.h"

#include <string>
#include <vector>

namespace orvane {
namespace app {

// How one defect map of a run did against the kinds it is there to find.
struct MapScore {
    std::string step;
    std::vector<DefectKind> targets;
    long planted = 0;        // pixels of the target kinds inside the area the step measured
    long found = 0;          // of those, flagged
    double recall = 1.0;     // found / planted (1 when none was planted)
    long flagged = 0;        // over the whole map
    long flaggedPlanted = 0;  // of those, pixels of any planted kind or of an echo row
    // Of the other flagged pixels, those on a row or column holding a planted run: the
    // flagging rules take such a row or column whole, which the truth does not plant.
    long flaggedByRule = 0;
    double precision = 1.0;             // flaggedPlanted / flagged (1 when none flagged)
    double precisionWithoutRule = 1.0;  // flaggedPlanted / (flagged - flaggedByRule)
};

// The kinds each map is there to find: dm6 what the darks and the flat doses show
// pixel by pixel (hot to partial-column), dm-gain the weak responses the gain tells,
// dm-dark the dark regions, which only the darks show, dm-untypical the pixels that
// flicker in single frames; dm-auto those of the map it extends (dm-gain's when
// dm-gain ran, else the map made before it); dm-merge every kind of the maps before it,
// each counted in the area of the first map that looks for it. Other maps may find
// them too: dm6 reads the darks divided by the gain and each dose's mean to about 1 %,
// dm-untypical raw frames, in which a weak pixel stands out as well.
std::vector<MapScore> ScoreDefectMaps(const GroundTruth& truth, const std::vector<DefectMapOutput>& maps);

}  // namespace app
}  // namespace orvane

#endif
