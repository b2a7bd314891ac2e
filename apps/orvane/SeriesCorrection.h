#ifndef ORVANE_APPS_SERIESCORRECTION_H
#define ORVANE_APPS_SERIESCORRECTION_H

#include "apps/orvane/CorrectionReferences.h"
#include "apps/orvane/Progress.h"
#include "io/ImageFiles.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orvane {
namespace app {

struct SeriesCorrectionRequest {
    std::string calibration;  // the folder `calibrate` wrote
    std::string in;           // a folder of series, an HDF5 file, or one image file
    std::string out;          // the folder of the corrected series (new or empty)
    std::optional<io::ImageFileFormat> format;  // unset: the input's format
    CorrectionChoice choice;
    bool floatOutput = false;  // 32-bit float frames instead of 16-bit
    bool marks = false;        // also the 8-bit plane of replaced pixels, per frame
    bool replace = false;      // replace whatever `out` holds
    io::OpenOptions open;
};

// What the correction of one series did, over all its frames.
struct SeriesTally {
    std::string name;  // "dark", "flat-3", or the stem of a single input file
    int frames = 0;
    std::int64_t clamped = 0;     // 16-bit output: pixels clamped to 0 or 65535
    std::int64_t replaced = 0;    // defect pixels replaced
    std::int64_t unreplaced = 0;  // defect pixels left as they were (no good pixel in reach)
};

// Corrects every frame of every series at request.in, one frame at a time, and writes
// the series under the same names into request.out: frame files stay frame files
// (dark-000.tif), stacks stay stacks (flat-2.fits), and an HDF5 output is one file
// with a dataset per series (the input's dataset names when it was HDF5). The marks
// go beside them as the series "<series>-marks" (frame files "dark-marks-000.<ext>";
// HDF5: a second file "<name>-marks.h5"). Everything that can be checked beforehand
// (the out folder in use, the input, every reference) is, before `out` is created;
// the series are written into a staging folder that a failure discards.
std::vector<SeriesTally> CorrectSeries(const SeriesCorrectionRequest& request, Progress& progress);

}  // namespace app
}  // namespace orvane

#endif
