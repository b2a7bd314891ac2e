#include "apps/orvane/ClusterEvaluation.h"

#include <algorithm>
#include <cstdlib>

namespace orvane {
namespace app {

namespace {

constexpr int kColumnTolerance = 1;
constexpr int kRowTolerance = 3;

}  // namespace

ClusterScore ScoreClusters(const GroundTruth& truth, const CalibrationClustersParameters& record,
                           const std::vector<ClusterPlace>& places) {
    ClusterScore score;
    const int middle = (truth.height - 1) / 2;  // the row the search does not visit
    std::vector<char> met(truth.offsetChanges.size(), 0);
    for (const ClusterPlace& place : places) {
        bool onChange = false;
        for (std::size_t c = 0; c < truth.offsetChanges.size(); ++c) {
            const ROI& box = truth.offsetChanges[c].box;
            const bool upper = box.top + box.height - 1 < middle;
            if (upper != (place.y < middle)) continue;
            const int firstColumn = box.left - kColumnTolerance;
            const int lastColumn = box.left + box.width - 1 + kColumnTolerance;
            if (place.x < firstColumn || place.x > lastColumn) continue;
            const int edge = upper ? box.top : box.top + box.height - 1;
            const int error = std::abs(place.y - edge);
            if (error > kRowTolerance) continue;
            onChange = true;
            met[c] = 1;
            score.largestRowError = std::max(score.largestRowError, error);
        }
        score.placesOnChanges += onChange;
    }
    for (std::size_t c = 0; c < truth.offsetChanges.size(); ++c) {
        if (truth.offsetChanges[c].amplitude >= record.Threshold) {
            ++score.planted;
            score.found += met[c];
        } else {
            ++score.weak;
            score.weakFound += met[c];
        }
    }
    score.places = static_cast<int>(places.size());
    if (score.planted > 0) score.recall = static_cast<double>(score.found) / score.planted;
    if (score.places > 0) score.precision = static_cast<double>(score.placesOnChanges) / score.places;
    return score;
}

}  // namespace app
}  // namespace orvane
