#ifndef ORVANE_IO_IMAGEFILES_H
#define ORVANE_IO_IMAGEFILES_H

// The one entry to the image files of every format: open a series source, create a
// series writer.

#include "io/ImageFileFormat.h"
#include "io/RawFile.h"
#include "io/SeriesSource.h"
#include "io/SeriesWriter.h"

#include <memory>
#include <optional>
#include <string>

namespace orvane {
namespace io {

struct OpenOptions {
    std::optional<RawLayout> raw;  // how to read a raw file; required for one
    std::string dataset;           // HDF5: the dataset (see OpenHdf5Series)
};

// The series in the file at `path`, of the format DetectFormat finds.
std::unique_ptr<SeriesSource> OpenSeries(const std::string& path, const OpenOptions& options = {});

std::unique_ptr<SeriesWriter> CreateSeriesWriter(const std::string& path, ImageFileFormat format,
                                                 const WriteOptions& options = {});

}  // namespace io
}  // namespace orvane

#endif
