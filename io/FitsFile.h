#ifndef ORVANE_IO_FITSFILE_H
#define ORVANE_IO_FITSFILE_H

// FITS through cfitsio. A series is the primary image: 2-D (one frame) or a 3-D cube
// (NAXIS3 frames of NAXIS1 columns x NAXIS2 rows, row 0 the first in the file). Pixels:
// BITPIX 8; BITPIX 16 with BZERO 32768 and BSCALE 1 (16-bit unsigned, as the convention
// stores it); BITPIX -32. Refused, naming the file: other BITPIX or scalings (signed
// 16-bit, 32-bit integer, doubles), NAXIS other than 2 or 3, a primary HDU without an
// image (images in extensions are not read), a file shorter than its image.
//
// Metadata: the keywords TIMEnnnn (integer) and TEMPnnnn (real), nnnn the frame number
// from 0001 to 9999, give "image.time" and "image.temperature" of each frame; a frame
// without them has no such property. We write them so for every frame that has the
// property; frames after the 9999th carry none. A frame whose image.time is not a whole
// number, or image.temperature not a finite number, is refused before it is written.
// Write: the primary image, 2-D for one frame, a cube for several; an existing file at
// the path is replaced. Each frame is written as it comes (the cube grows a plane at a
// time unless WriteOptions::expectedFrames gives its size); the header keeps room for
// the keywords of expectedFrames frames, or of 100 when the count is unknown. Close
// refuses a series without frames.

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
