#ifndef ORVANE_IO_TIFFFILE_H
#define ORVANE_IO_TIFFFILE_H

// TIFF through libtiff. A file is a series of its pages (image file directories), read
// in order with TIFFReadDirectory. Read: 8/16-bit unsigned and 32-bit float grey pages,
// strips or tiles, either byte order, classic TIFF and BigTIFF, any compression libtiff
// decodes. Refused, naming the file and the reason: other sample formats and widths
// (signed, 32-bit integer), more than one sample per pixel (RGB), pages that differ
// in size or type from the first.
//
// Metadata: each page's ImageDescription, when it is a JSON object, gives the frame
// properties (e.g. {"image":{"time":"60","temperature":"30.05"}}); we write it so.
// Write: one page per frame, strips, no compression, the host's byte order; BigTIFF
// when WriteOptions::bigTiff is set or the expected frames may pass 4 GB.

#include "io/SeriesSource.h"
#include "io/SeriesWriter.h"

#include <memory>
#include <string>

namespace orvane {
namespace io {

std::unique_ptr<SeriesSource> OpenTiffSeries(const std::string& path);
std::unique_ptr<SeriesWriter> CreateTiffWriter(const std::string& path, const WriteOptions& options);

}  // namespace io
}  // namespace orvane

#endif
