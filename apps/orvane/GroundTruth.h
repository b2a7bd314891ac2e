#ifndef ORVANE_APPS_GROUNDTRUTH_H
#define ORVANE_APPS_GROUNDTRUTH_H

#include "image/ImageAcquisition.h"
#include "image/ROI.h"

#include <string>
#include <vector>

namespace orvane {
namespace app {

// What a planted defect pixel is. Stored per pixel in GroundTruth::defects.
enum class DefectKind : unsigned char {
    None = 0,
    Hot = 1,            // dark level far above its neighbours
    Dead = 2,           // (almost) no response to light
    Noisy = 3,          // normal level, large temporal noise
    Cluster = 4,        // pixel of a small clump of dead pixels
    Line = 5,           // pixel of a whole defective row
    Column = 6,         // pixel of a whole defective column
    PartialLine = 7,    // pixel of a defective run along a row
    PartialColumn = 8,  // pixel of a defective run along a column
    DarkRegion = 9,     // pixel of a block whose dark level lies far below the panel's; normal response
    WeakResponse = 10,  // response 30 to 42 % of its neighbours'; normal dark level
    Flicker = 11,       // normal, but far brighter in the last flat frame of each dose
};
constexpr int kDefectKindCount = 12;
const char* DefectKindName(DefectKind kind);  // "hot", "dead", ..., "partial-column", "dark-region", ...

// A local change of the dark level during the darks, which the time-grid clusters
// find: `amplitude` counts in the last third of the darks (from dark darkFrames * 2 / 3
// on, where the last of three grid entries starts), none before and none in the flats.
struct OffsetChange {
    ROI box;
    float amplitude = 0.0f;
};

// Everything the simulator planted, to compare calibration results with.
struct GroundTruth {
    std::string model;
    int width = 0;
    int height = 0;
    int darkFrames = 0;
    int framesPerDose = 0;
    std::vector<float> doseLevels;          // mean signal above the dark level, per dose
    ImagePtr<float> offset;                 // per-pixel dark level at the reference temperature and time
    ImagePtr<float> gain;                   // per-pixel linear response, mean 1 over the frame
    ImagePtr<unsigned char> defects;        // DefectKind per pixel
    std::vector<int> echoLines;             // rows carrying an echo of the row above, ascending
    std::vector<ROI> clusters;              // bounding boxes of the planted clumps
    std::vector<OffsetChange> offsetChanges;  // in the order planted
};

// Writes `<dir>/truth/` (offset.fxd, gain.fxd, defects.fxd, truth.json) in place: the
// commands write into a staging folder, which a failure discards whole.
void SaveGroundTruth(const GroundTruth& truth, const std::string& dir);
// Reads it back; InputError naming the file for anything missing or malformed.
GroundTruth LoadGroundTruth(const std::string& dir);

}  // namespace app
}  // namespace orvane

#endif
