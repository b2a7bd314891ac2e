#ifndef ORVANE_APPS_FRAMESERIES_H
#define ORVANE_APPS_FRAMESERIES_H

#include "io/ImageFiles.h"

#include <string>
#include <vector>

namespace orvane {
namespace app {

// One frame of a series: frame `index` of a file (of one dataset of it, for HDF5).
struct FrameRef {
    std::string file;
    std::string dataset;  // HDF5 only
    int index = 0;
    int ordinal = 0;      // its place in the run: darks first, then the doses in order
    bool single = true;   // the file holds this frame alone

    // How messages name it: the file, then ":<dataset>" and " frame <index>" unless
    // the file holds this frame alone.
    std::string Name() const;
};

// The 16-bit frames of a run, found in one of three layouts:
//   a folder of frame files  dark-000.<ext>, dark-001.<ext>, ...   flat-1-000.<ext>, ...
//                            one frame per file, in the order of their numbers;
//   a folder of stacks       dark.<ext>, flat-1.<ext>, flat-2.<ext>, ...
//                            every frame of a series in one file (multi-page TIFF,
//                            FITS cube, HDF5 or .fxd of several frames, raw);
//   one HDF5 file            datasets /dark, /flat-1, /flat-2, ...; or the Data
//                            Exchange /exchange/data_dark and /exchange/data_white
//                            (a single dose).
// <ext> is an image file extension (io/ImageFileFormat.h). Doses are numbered from 1
// without a gap, the lowest dose first. Raw files are read with options.raw.
struct FrameSeries {
    int width = 0;
    int height = 0;
    std::vector<FrameRef> darks;               // in time order
    std::vector<std::vector<FrameRef>> doses;  // frames per dose, lowest dose first
    io::OpenOptions options;                   // how to open its files
};

// The frames at `in` (a folder or an HDF5 file). InputError naming the file or folder
// for: a missing or empty folder, no dark frames, a dose with no frames or a gap in
// dose numbers, one series given both as frame files and as a stack, a file that is
// not a readable 16-bit image (a truncated one included), frames of different sizes.
// Other files in a folder are ignored. Only headers are read.
FrameSeries ScanFrames(const std::string& in, const io::OpenOptions& options = {});

// The names the simulator writes: "dark-007<extension>", "flat-2-007<extension>",
// and for stacks "dark<extension>", "flat-2<extension>".
std::string DarkFileName(int index, const std::string& extension = ".fxd");
std::string FlatFileName(int dose, int index, const std::string& extension = ".fxd");
std::string DarkStackName(const std::string& extension);
std::string FlatStackName(int dose, const std::string& extension);

}  // namespace app
}  // namespace orvane

#endif
