#ifndef ORVANE_IO_FXDFILE_H
#define ORVANE_IO_FXDFILE_H

// The .fxd files of the reference stores and the simulator (tools/ImageFxdFile.h):
// every frame of a file is a frame of the series, with its whole property tree.
// Frames stream as they are read: a file's checksum is not verified here (that takes
// a pass over the whole file), and the writer leaves it out; the stores write and
// verify theirs.

#include "io/SeriesSource.h"
#include "io/SeriesWriter.h"

#include <memory>
#include <string>

namespace orvane {
namespace io {

std::unique_ptr<SeriesSource> OpenFxdSeries(const std::string& path);
std::unique_ptr<SeriesWriter> CreateFxdWriter(const std::string& path);

}  // namespace io
}  // namespace orvane

#endif
