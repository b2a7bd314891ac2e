#ifndef ORVANE_IO_FITSFILE_H
#define ORVANE_IO_FITSFILE_H

// FITS through cfitsio. A series is the primary image: 2-D (one frame) or a 3-D cube
// (NAXIS3 frames of NAXIS1 columns x NAXIS2 rows). Pixels: BITPIX 8; BITPIX 16 with
// BZERO 32768 and BSCALE 1 (16-bit unsigned, as the convention stores it); BITPIX -32.
// Refused, naming the file: other BITPIX or scalings (signed 16-bit, 32-bit integer,
// doubles), more than 3 axes.
//
// Metadata: the keywords TIMEnnnn and TEMPnnnn (nnnn the frame number from 0001) give
// "image.time" and "image.temperature" of each frame; we write them so.
// Write: the primary image, 2-D for one frame, a cube for several.

#include "io/SeriesSource.h"
#include "io/SeriesWriter.h"

#include <memory>
#include <string>

namespace orvane {
namespace io {

std::unique_ptr<SeriesSource> OpenFitsSeries(const std::string& path);
std::unique_ptr<SeriesWriter> CreateFitsWriter(const std::string& path, const WriteOptions& options);

}  // namespace io
}  // namespace orvane

#endif
