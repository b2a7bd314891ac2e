#ifndef ORVANE_APPS_FRAMEFOLDER_H
#define ORVANE_APPS_FRAMEFOLDER_H

#include "image/ImageAcquisition.h"

#include <string>
#include <vector>

namespace orvane {
namespace app {

// A folder of raw frames, one 16-bit .fxd file per frame:
//   dark-000.fxd, dark-001.fxd, ...             dark frames in time order
//   flat-1-000.fxd, ..., flat-2-000.fxd, ...    flat frames, by dose (1 = lowest)
// Each frame file carries the properties "image.temperature" and "image.time".
struct FrameSeries {
    int width = 0;
    int height = 0;
    std::vector<std::string> darks;                // paths, in time order
    std::vector<std::vector<std::string>> doses;   // paths per dose, lowest dose first
};

// The frames of `dir`. InputError (naming the file or folder) for: a missing or empty
// folder, no dark frames, a dose with no frames or a gap in dose numbers, a file that
// is not a readable 16-bit .fxd frame (including a truncated one), frames of different
// sizes. Other files in the folder are ignored.
FrameSeries ScanFrameFolder(const std::string& dir);

// One frame, with its properties; InputError naming the file if it cannot be read or
// is not width x height 16-bit.
ImagePtr<unsigned short> ReadFrame(const std::string& path, int width, int height);

// Writes one frame with its properties to `path` (in place: the commands write into a
// staging folder, which a failure discards whole).
void WriteFrame(const std::string& path, const ImageAcquisition<unsigned short>& frame);

std::string DarkFileName(int index);             // "dark-007.fxd"
std::string FlatFileName(int dose, int index);   // "flat-2-007.fxd"

}  // namespace app
}  // namespace orvane

#endif
