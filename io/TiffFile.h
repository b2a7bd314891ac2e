#ifndef ORVANE_IO_TIFFFILE_H
#define ORVANE_IO_TIFFFILE_H

// TIFF through libtiff. A file is a series of its pages (image file directories): they
// are counted when the file is opened, by walking the chain of directory offsets, and
// read in order with TIFFReadDirectory (an earlier page is sought from the first).
// Read: 8/16-bit unsigned and 32-bit float grey pages, strips or tiles, either byte
// order, classic TIFF and BigTIFF, any compression libtiff decodes. Refused, naming the
// file and the reason: other sample formats and widths (signed, 32-bit integer, 64-bit
// float, 1-bit), more than one sample per pixel (RGB), palettes, a page that differs in
// size or type from the first (found when that page is read), a broken chain of pages.
// libtiff prints nothing; its last complaint ends our message, in parentheses.
//
// Metadata: each page's ImageDescription, when it is a JSON object, gives the frame
// properties (e.g. {"image":{"time":"60","temperature":"30.05"}}); we write it so,
// compact, and write none for a frame without properties.
// Write: one page per frame, one strip per page (up to 64 MiB), no compression, the host's byte
// order; BigTIFF when WriteOptions::bigTiff is set or the expected frames pass 3.5 GiB.
// The file is created by the writer and opened as TIFF at the first frame, when the
// frame's size is known; Close without frames is refused.

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
