#ifndef ORVANE_IO_HDF5FILE_H
#define ORVANE_IO_HDF5FILE_H

// HDF5 through its C API. A series is one dataset: 3-D (frames x rows x columns) or
// 2-D (one frame), of unsigned 8/16-bit integers or 32-bit floats in either byte order,
// contiguous or chunked, compressed with any filter the HDF5 build has (gzip, shuffle,
// ...). A filter the build lacks (e.g. bitshuffle) is refused with its number and name,
// even one marked optional. Refused too, naming the file: signed or wider integers,
// doubles, compound and other types, other ranks, frames beyond the limits, a missing
// dataset, a file that is not HDF5 or that HDF5 cannot open (truncated, damaged).
// Frames are read one at a time through a hyperslab, with a chunk cache that holds
// every chunk one frame touches, so reading frame after frame decodes each chunk once.
//
// Metadata: the dataset's attributes "image.time" (64-bit integers) and
// "image.temperature" (64-bit floats), one value per frame, give the frame
// properties; an attribute of another length is ignored. We write them so, at Close,
// each only when every frame has that property as a number.
// Write: a chunked dataset of one frame per chunk, gzip level 1 with shuffle, extended
// frame by frame; intermediate groups are created. Close with no frame written throws
// (the dataset's frame size is unknown).

#include "io/SeriesSource.h"
#include "io/SeriesWriter.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace orvane {
namespace io {

// The dataset `dataset` of the file; empty: the file's only dataset of 2 or 3
// dimensions (refused when there are none or several, naming them).
std::unique_ptr<SeriesSource> OpenHdf5Series(const std::string& path, const std::string& dataset);
std::unique_ptr<SeriesWriter> CreateHdf5Writer(const std::string& path, const WriteOptions& options);

// Writes a 2-D dataset of 32-bit unsigned integers (a pixel mask: width x height values
// row after row) into the file, created if missing, gzip-compressed.
void WriteHdf5PixelMask(const std::string& path, const std::string& dataset, const std::uint32_t* mask, int width,
                        int height);

// The paths of the datasets of 2 or 3 dimensions in the file ("/dark",
// "/exchange/data_white", ...), sorted.
std::vector<std::string> Hdf5ImageDatasets(const std::string& path);

}  // namespace io
}  // namespace orvane

#endif
