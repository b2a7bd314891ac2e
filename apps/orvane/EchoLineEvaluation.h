#ifndef ORVANE_APPS_ECHOLINEEVALUATION_H
#define ORVANE_APPS_ECHOLINEEVALUATION_H

#include "apps/orvane/GroundTruth.h"
#include "parameters/EchoLineParameters.h"

#include <set>

namespace orvane {
namespace app {

// The echo lines a run found against those its planted defects make.
struct EchoLineScore {
    std::set<int> plantedSingle;  // numbered as the echo-line step numbers them
    std::set<int> plantedDouble;  // by the lower number of each pair
    std::set<int> foundSingle;
    std::set<int> foundDouble;
    int plantedLines = 0;  // a double line counts two
    int mirrored = 0;      // of those, numbered from the last row (below the middle row)
    int foundLines = 0;
    int foundPlanted = 0;  // found lines that are planted ones
    int foundEchoRows = 0;  // found lines that are rows echoing the row above: no false finds
    double recall = 1.0;     // foundPlanted / plantedLines (1 when none was planted)
    double precision = 1.0;  // (foundPlanted + foundEchoRows) / foundLines (1 when none was found)
};

// Scores the single and double lines of a run under `record`. A planted line is a row
// of the scanned area, other than the middle row, with a run of at least MinimumRun
// planted defective pixels on one side of the middle column (which is left out). It
// keeps its number above the middle row and takes the number of its mirror row,
// counted from the last row, from the middle row on. Adjacent numbers pair into a
// double line from the low end, a block of three into a double and a single.
EchoLineScore ScoreEchoLines(const GroundTruth& truth, const EchoLineParameters& record,
                             const std::set<int>& foundSingle, const std::set<int>& foundDouble);

}  // namespace app
}  // namespace orvane

#endif
